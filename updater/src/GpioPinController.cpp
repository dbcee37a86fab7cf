#include "GpioPinController.h"

#include <QDebug>

#include <fcntl.h>
#include <unistd.h>

namespace {
const QString GPIO_ROOT = "/sys/class/gpio";

// Descriptor 0 counts as unusable, like -1.
bool isUsable(int fd)
{
    return !(fd < 1);
}

void writeText(int fd, const QString& text)
{
    const QByteArray bytes = text.toLocal8Bit();
    (void)::write(fd, bytes.constData(), bytes.size());
}
} // namespace

GpioPinController::GpioPinController(QString pinNumber, QObject* parent)
    : QObject(parent), m_pinNumber(pinNumber), m_value_fd(-1), m_direction_fd(-1)
{
    m_export_fd = ::open(QString(GPIO_ROOT + "/export").toLocal8Bit().constData(), O_WRONLY);
}

GpioPinController::~GpioPinController()
{
    ::close(m_export_fd);
    ::close(m_direction_fd);
    ::close(m_value_fd);
}

bool GpioPinController::createDriver()
{
    if (!isUsable(m_export_fd))
        return false;
    // An already exported pin or a missing one is not noticed here; later operations see the bad descriptors.
    writeText(m_export_fd, m_pinNumber);
    const QString pinDir = GPIO_ROOT + "/gpio" + m_pinNumber;
    m_direction_fd = ::open(QString(pinDir + "/direction").toLocal8Bit().constData(), O_WRONLY);
    m_value_fd = ::open(QString(pinDir + "/value").toLocal8Bit().constData(), O_RDWR);
    return true;
}

bool GpioPinController::removeDriver()
{
    const int fd = ::open(QString(GPIO_ROOT + "/unexport").toLocal8Bit().constData(), O_WRONLY);
    if (!isUsable(fd))
        return false;
    writeText(fd, m_pinNumber);
    ::close(fd);
    return true;
}

bool GpioPinController::setDirection(QString direction)
{
    if (!isUsable(m_direction_fd))
        return false;
    writeText(m_direction_fd, direction);
    return true;
}

bool GpioPinController::setValue(QString value)
{
    if (!isUsable(m_value_fd))
        return false;
    writeText(m_value_fd, value);
    return true;
}

QString GpioPinController::getValue()
{
    if (!isUsable(m_value_fd)) {
        qDebug() << "getValue failed";
        return "-1";
    }
    char level = 0;
    ::lseek(m_value_fd, 0, SEEK_SET);
    (void)::read(m_value_fd, &level, 1);
    return QString(QChar(level));
}

void GpioPinController::toggleValue()
{
    // Only 0 and 1 toggle: "-1" from a failed read is left alone, an unparsable character converts to 0
    // and counts as low.
    const int level = getValue().toInt(nullptr, 10);
    if (level == 0)
        setValue("1");
    else if (level == 1)
        setValue("0");
}
