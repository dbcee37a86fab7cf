// GpioPinController for the fuzz targets: the same operations on the in-process line bank instead of
// sysfs files, each costing a microsecond of virtual time. The header is the product's; removeDriver and
// toggleValue are left out, as the code under test never calls them (the link would say so).
#include "GpioPinController.h"

#include "FuzzSupport.h"

namespace {
const std::uint64_t GPIO_OPERATION_NS = 1'000;

std::uint64_t operationTime()
{
    fuzzsupport::advanceNs(GPIO_OPERATION_NS);
    return fuzzsupport::nowNs();
}

// The bank stands in for sysfs, which is always there: the "descriptors" only say opened or not.
const int OPENED = 1;
} // namespace

GpioPinController::GpioPinController(QString pinNumber, QObject* parent)
    : QObject(parent), m_pinNumber(pinNumber), m_value_fd(-1), m_direction_fd(-1), m_export_fd(OPENED)
{
}

GpioPinController::~GpioPinController() = default;

bool GpioPinController::createDriver()
{
    if (m_export_fd != OPENED)
        return false;
    // Exporting a line twice is refused and not noticed, as with the files.
    fuzzsupport::lineBank().exportLine(m_pinNumber.toStdString());
    if (fuzzsupport::lineBank().isExported(m_pinNumber.toInt())) {
        m_direction_fd = OPENED;
        m_value_fd = OPENED;
    }
    return true;
}

bool GpioPinController::setDirection(QString direction)
{
    if (m_direction_fd != OPENED)
        return false;
    fuzzsupport::lineBank().writeDirection(m_pinNumber.toInt(), direction.toStdString(), operationTime());
    return true;
}

bool GpioPinController::setValue(QString value)
{
    if (m_value_fd != OPENED)
        return false;
    fuzzsupport::lineBank().writeValue(m_pinNumber.toInt(), value.toStdString(), operationTime());
    return true;
}

QString GpioPinController::getValue()
{
    if (m_value_fd != OPENED)
        return "-1";
    const std::string text = fuzzsupport::lineBank().readValue(m_pinNumber.toInt(), operationTime());
    return QString(QChar(text.empty() ? '\0' : text[0]));
}
