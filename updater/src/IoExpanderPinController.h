#ifndef IOEXPANDERPINCONTROLLER_H
#define IOEXPANDERPINCONTROLLER_H

#include <QObject>

// Owner of the 8-bit I2C output expander (slave 0x22 on bus 1) with a shadow of its output port.
class IOExpanderPinController : public QObject
{
    Q_OBJECT

public:
    static IOExpanderPinController* instance();
    ~IOExpanderPinController() override;

    bool init();
    void deinit();
    bool setDigOutput(int pin);
    bool clearDigOutput(int pin);

private:
    IOExpanderPinController();

    bool openI2cPort();
    void closeI2cPort();
    bool writeI2cOutputMode();
    bool writeI2cDigitals();
    bool i2cWriteOperation(unsigned char* data);

    static IOExpanderPinController* m_pMe;
    int m_fd;
    unsigned int m_OutputPins;
};

#endif // IOEXPANDERPINCONTROLLER_H
