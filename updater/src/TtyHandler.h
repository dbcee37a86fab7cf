#ifndef TTYHANDLER_H
#define TTYHANDLER_H

#include <QIODevice>
#include <QString>

#include <termios.h>

class QSocketNotifier;

// One serial tty, raw 115200 8N1, as a QIODevice whose readyRead() comes from a socket notifier.
class TtyHandler : public QIODevice
{
    Q_OBJECT

public:
    TtyHandler(const QString& device, QObject* parent = nullptr);
    ~TtyHandler() override;

    void sendString(QString text);
    void sendByteArray(QByteArray data);

public slots:
    void notify(int i);

protected:
    qint64 readData(char* data, qint64 maxSize) override;
    qint64 writeData(const char* data, qint64 maxSize) override;

private:
    int m_tty_fd;
    struct termios m_tio;
    QSocketNotifier* m_ttyNotifier;
    char ttyBuff[256];
};

#endif // TTYHANDLER_H
