#include "TtyHandler.h"

#include <QSocketNotifier>

#include <cstring>
#include <fcntl.h>
#include <unistd.h>

TtyHandler::TtyHandler(const QString& device, QObject* parent) : QIODevice(parent), m_ttyNotifier(nullptr)
{
    std::memset(&m_tio, 0, sizeof(m_tio));
    std::memset(ttyBuff, 0, sizeof(ttyBuff));
    // The speed travels in the control flags only; no speed-setting call is made.
    m_tio.c_cflag = B115200 | CS8 | CREAD | CLOCAL;
    m_tio.c_iflag = IGNPAR;
    m_tio.c_oflag = 0;
    m_tio.c_lflag = 0;
    m_tio.c_cc[VTIME] = 0;
    m_tio.c_cc[VMIN] = 0;

    m_tty_fd = ::open(device.toLocal8Bit().constData(), O_RDWR | O_NOCTTY);
    if (m_tty_fd > 0) {
        tcflush(m_tty_fd, TCIFLUSH);
        (void)tcsetattr(m_tty_fd, TCSANOW, &m_tio);
        m_ttyNotifier = new QSocketNotifier(m_tty_fd, QSocketNotifier::Read, this);
        connect(m_ttyNotifier, SIGNAL(activated(int)), this, SLOT(notify(int)));
    }
    // Open even when the tty is missing: sends are then ignored and reads fail.
    QIODevice::open(QIODevice::ReadWrite);
}

TtyHandler::~TtyHandler()
{
    ::close(m_tty_fd);
}

void TtyHandler::sendString(QString text)
{
    const QByteArray bytes = text.toLocal8Bit();
    if (m_tty_fd > 0)
        (void)::write(m_tty_fd, bytes.constData(), bytes.size());
}

void TtyHandler::sendByteArray(QByteArray data)
{
    if (m_tty_fd > 0)
        (void)::write(m_tty_fd, data.constData(), data.size());
}

void TtyHandler::notify(int)
{
    emit readyRead();
}

qint64 TtyHandler::readData(char* data, qint64 maxSize)
{
    return ::read(m_tty_fd, data, maxSize);
}

qint64 TtyHandler::writeData(const char* data, qint64 maxSize)
{
    return ::write(m_tty_fd, data, maxSize);
}
