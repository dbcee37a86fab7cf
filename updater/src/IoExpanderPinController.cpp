#include "IoExpanderPinController.h"

#include <QDebug>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <sys/ioctl.h>
#include <unistd.h>

IOExpanderPinController* IOExpanderPinController::m_pMe = nullptr;

namespace {
const char* const I2C_DEVICE = "/dev/i2c-1";
const int EXPANDER_SLAVE = 0x22;
const unsigned char REG_OUTPUT_PORT = 0x01;
const unsigned char REG_CONFIGURATION = 0x03;
const unsigned int INITIAL_OUTPUTS = 0x9E;
} // namespace

IOExpanderPinController::IOExpanderPinController() : QObject(nullptr), m_fd(0), m_OutputPins(INITIAL_OUTPUTS)
{
}

IOExpanderPinController::~IOExpanderPinController()
{
    deinit();
}

IOExpanderPinController* IOExpanderPinController::instance()
{
    if (!m_pMe)
        m_pMe = new IOExpanderPinController();
    return m_pMe;
}

bool IOExpanderPinController::init()
{
    return openI2cPort() && writeI2cOutputMode() && writeI2cDigitals();
}

void IOExpanderPinController::deinit()
{
    closeI2cPort();
}

bool IOExpanderPinController::setDigOutput(int pin)
{
    // Only an unopened port (0) is refused: a failed open leaves a negative descriptor that passes.
    if (pin < 0 || pin > 7 || m_fd == 0)
        return false;
    m_OutputPins |= (1u << pin);
    writeI2cDigitals();
    return true;
}

bool IOExpanderPinController::clearDigOutput(int pin)
{
    if (pin < 0 || pin > 7 || m_fd == 0)
        return false;
    m_OutputPins &= ~(1u << pin);
    writeI2cDigitals();
    return true;
}

bool IOExpanderPinController::openI2cPort()
{
    m_fd = ::open(I2C_DEVICE, O_RDWR);
    if (m_fd < 0) {
        const int error = errno; // before the debug stream can touch it
        qDebug() << "Failed to open I2c I/O Expander " << strerror(error);
        return false;
    }
    if (::ioctl(m_fd, I2C_SLAVE, EXPANDER_SLAVE) < 0) {
        const int error = errno;
        qDebug() << "Failed to open I2c I/O Expander " << strerror(error);
        return false;
    }
    return true;
}

void IOExpanderPinController::closeI2cPort()
{
    if (m_fd != 0) {
        ::close(m_fd);
        m_fd = 0;
    }
}

bool IOExpanderPinController::writeI2cOutputMode()
{
    unsigned char data[2] = {REG_CONFIGURATION, 0x00};
    return i2cWriteOperation(data);
}

bool IOExpanderPinController::writeI2cDigitals()
{
    unsigned char data[2] = {REG_OUTPUT_PORT, static_cast<unsigned char>(m_OutputPins & 0xFF)};
    return i2cWriteOperation(data);
}

bool IOExpanderPinController::i2cWriteOperation(unsigned char* data)
{
    if (::write(m_fd, data, 2) != 2) {
        const int error = errno;
        qDebug() << "Error writing I2c" << strerror(error);
        return false;
    }
    return true;
}
