#include "GpioLineBank.h"

#include "ControlText.h"

#include <cerrno>
#include <limits>

namespace sim {

namespace {

// sysfs compares keywords ignoring one trailing newline on the written text.
bool sysfsEquals(std::string_view written, std::string_view keyword)
{
    if (!written.empty() && written.back() == '\n')
        written.remove_suffix(1);
    return written == keyword;
}

bool inBank(long line)
{
    return line >= 0 && line <= GpioLineBank::maxLine;
}

} // namespace

std::optional<long> GpioLineBank::parseInteger(std::string_view text)
{
    if (!text.empty() && text.back() == '\n')
        text.remove_suffix(1);
    bool negative = false;
    if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    } else if (text.size() > 1 && text[0] == '0') {
        base = 8;
        text.remove_prefix(1);
    }
    // Out of range is refused: the kernel answers EINVAL or ERANGE, both refusals.
    const std::optional<std::uint64_t> value =
        parseNumber(text, base, static_cast<std::uint64_t>(std::numeric_limits<long>::max()));
    if (!value)
        return std::nullopt;
    return negative ? -static_cast<long>(*value) : static_cast<long>(*value);
}

int GpioLineBank::refuse(int error)
{
    ++m_totals.rejected;
    return -error;
}

void GpioLineBank::notify(int line, const LineState& state, std::uint64_t nowNs)
{
    if (GpioDevice* device = deviceAt(line))
        device->lineChanged(line, state, nowNs);
}

int GpioLineBank::exportLine(int line)
{
    if (!inBank(line))
        return refuse(EINVAL);
    if (isExported(line))
        return refuse(EBUSY);
    m_lines.emplace(line, LineState{}); // a new line is an undriven input
    ++m_totals.exports;
    return 0;
}

int GpioLineBank::unexportLine(int line, std::uint64_t nowNs)
{
    auto it = m_lines.find(line);
    if (it == m_lines.end())
        return refuse(EINVAL);
    const bool wasDriving = it->second.direction == Direction::Out;
    LineState released = it->second;
    released.direction = Direction::In;
    m_lines.erase(it);
    ++m_totals.unexports;
    // Releasing the line stops the host driving it; the device sees it become an input.
    if (wasDriving)
        notify(line, released, nowNs);
    return 0;
}

int GpioLineBank::exportLine(std::string_view text)
{
    const std::optional<long> line = parseInteger(text);
    if (!line || !inBank(*line))
        return refuse(EINVAL);
    return exportLine(static_cast<int>(*line));
}

int GpioLineBank::unexportLine(std::string_view text, std::uint64_t nowNs)
{
    const std::optional<long> line = parseInteger(text);
    if (!line || !inBank(*line))
        return refuse(EINVAL);
    return unexportLine(static_cast<int>(*line), nowNs);
}

int GpioLineBank::writeDirection(int line, std::string_view text, std::uint64_t nowNs)
{
    auto it = m_lines.find(line);
    if (it == m_lines.end())
        return refuse(ENODEV);
    LineState& s = it->second;
    if (sysfsEquals(text, "high")) {
        s.direction = Direction::Out;
        s.hostLevel = true;
    } else if (sysfsEquals(text, "out") || sysfsEquals(text, "low")) {
        s.direction = Direction::Out; // "out" always starts the output low
        s.hostLevel = false;
    } else if (sysfsEquals(text, "in")) {
        s.direction = Direction::In;
    } else {
        ++s.rejectedWrites;
        return refuse(EINVAL);
    }
    ++s.directionWrites;
    ++m_totals.directionWrites;
    notify(line, s, nowNs);
    return 0;
}

int GpioLineBank::writeValue(int line, std::string_view text, std::uint64_t nowNs)
{
    auto it = m_lines.find(line);
    if (it == m_lines.end())
        return refuse(ENODEV);
    LineState& s = it->second;
    // An input refuses the write before the text is even looked at.
    if (s.direction != Direction::Out) {
        ++s.rejectedWrites;
        return refuse(EPERM);
    }
    const std::optional<long> value = parseInteger(text);
    if (!value) {
        ++s.rejectedWrites;
        return refuse(EINVAL);
    }
    s.hostLevel = *value != 0;
    ++s.valueWrites;
    ++m_totals.valueWrites;
    notify(line, s, nowNs);
    return 0;
}

bool GpioLineBank::level(int line, std::uint64_t nowNs)
{
    auto it = m_lines.find(line);
    if (it != m_lines.end() && it->second.direction == Direction::Out)
        return it->second.hostLevel;
    if (GpioDevice* device = deviceAt(line)) {
        if (const std::optional<bool> driven = device->drivenLevel(line, nowNs))
            return *driven;
    }
    return true; // pulled up
}

std::string GpioLineBank::readValue(int line, std::uint64_t nowNs)
{
    auto it = m_lines.find(line);
    if (it == m_lines.end())
        return {};
    ++it->second.valueReads;
    ++m_totals.valueReads;
    return level(line, nowNs) ? "1\n" : "0\n";
}

std::string GpioLineBank::readDirection(int line) const
{
    const LineState* s = state(line);
    if (!s)
        return {};
    return s->direction == Direction::Out ? "out\n" : "in\n";
}

bool GpioLineBank::isExported(int line) const
{
    return m_lines.count(line) != 0;
}

const LineState* GpioLineBank::state(int line) const
{
    auto it = m_lines.find(line);
    return it == m_lines.end() ? nullptr : &it->second;
}

std::vector<int> GpioLineBank::exportedLines() const
{
    std::vector<int> lines;
    lines.reserve(m_lines.size());
    for (const auto& entry : m_lines)
        lines.push_back(entry.first);
    return lines;
}

void GpioLineBank::reset(std::uint64_t nowNs)
{
    for (int line : exportedLines())
        unexportLine(line, nowNs);
    m_totals = BankTotals{};
}

void GpioLineBank::attach(const std::vector<int>& lines, GpioDevice* device)
{
    for (int line : lines)
        m_devices[line] = device;
}

GpioDevice* GpioLineBank::deviceAt(int line) const
{
    auto it = m_devices.find(line);
    return it == m_devices.end() ? nullptr : it->second;
}

} // namespace sim
