#ifndef GPIOPINCONTROLLER_H
#define GPIOPINCONTROLLER_H

#include <QObject>
#include <QString>

// One processor GPIO line through the sysfs interface; the value file stays open for bit-banging.
class GpioPinController : public QObject
{
public:
    explicit GpioPinController(QString pinNumber, QObject* parent = nullptr);
    virtual ~GpioPinController();

    bool createDriver();
    bool removeDriver();
    bool setDirection(QString direction);
    bool setValue(QString value);
    QString getValue();
    void toggleValue();

private:
    QString m_pinNumber;
    int m_value_fd;
    int m_direction_fd;
    int m_export_fd;
};

#endif // GPIOPINCONTROLLER_H
