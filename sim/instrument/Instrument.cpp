#include "Instrument.h"

#include "ControlText.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace sim {

Instrument::Instrument()
{
    addBuiltInFiles();
}

std::uint64_t Instrument::nowNs()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<std::uint64_t>(ts.tv_sec) * 1000000000u + static_cast<std::uint64_t>(ts.tv_nsec);
}

std::string Instrument::quote(std::string_view bytes)
{
    std::string text = "\"";
    for (unsigned char c : bytes) {
        switch (c) {
        case '\n':
            text += "\\n";
            break;
        case '\r':
            text += "\\r";
            break;
        case '\t':
            text += "\\t";
            break;
        case '"':
            text += "\\\"";
            break;
        case '\\':
            text += "\\\\";
            break;
        default:
            if (c >= 0x20 && c < 0x7F) {
                text += static_cast<char>(c);
            } else {
                char buf[5];
                std::snprintf(buf, sizeof buf, "\\x%02x", c);
                text += buf;
            }
        }
    }
    return text + "\"";
}

std::string Instrument::errorName(int error)
{
    switch (error) {
    case EPERM:
        return "EPERM";
    case ENOENT:
        return "ENOENT";
    case EIO:
        return "EIO";
    case ENXIO:
        return "ENXIO";
    case EBADF:
        return "EBADF";
    case EACCES:
        return "EACCES";
    case EBUSY:
        return "EBUSY";
    case ENODEV:
        return "ENODEV";
    case EINVAL:
        return "EINVAL";
    case ENOTTY:
        return "ENOTTY";
    case ENOSYS:
        return "ENOSYS";
    case EISDIR:
        return "EISDIR";
    case ENOTDIR:
        return "ENOTDIR";
    default:
        return "errno " + std::to_string(error);
    }
}

void Instrument::reset()
{
    m_gpio.reset(nowNs());
    m_expander = I2cExpander(expanderAddress);
    if (m_serialPeer)
        m_serialPeer->reset();
    for (const auto& hook : m_resetHooks)
        hook();
    clearLog();
    m_powerCut.reset();
}

std::string Instrument::linesText()
{
    const std::uint64_t now = nowNs();
    std::string text;
    for (int line : m_gpio.exportedLines()) {
        const LineState& s = *m_gpio.state(line);
        text += std::to_string(line);
        text += s.direction == Direction::Out ? " out " : " in ";
        text += m_gpio.level(line, now) ? '1' : '0';
        text += " value-writes=" + std::to_string(s.valueWrites);
        text += " value-reads=" + std::to_string(s.valueReads);
        text += " direction-writes=" + std::to_string(s.directionWrites);
        text += " rejected=" + std::to_string(s.rejectedWrites);
        text += '\n';
    }
    return text;
}

std::string Instrument::statsText() const
{
    const BankTotals& t = m_gpio.totals();
    return "exports=" + std::to_string(t.exports) + "\nunexports=" + std::to_string(t.unexports) +
           "\nvalue-writes=" + std::to_string(t.valueWrites) +
           "\nvalue-reads=" + std::to_string(t.valueReads) +
           "\ndirection-writes=" + std::to_string(t.directionWrites) +
           "\nrejected=" + std::to_string(t.rejected) +
           "\ni2c-transactions=" + std::to_string(m_expander.transactions().size()) + "\n";
}

std::string Instrument::busText() const
{
    std::string text;
    for (const I2cTransaction& t : m_expander.transactions()) {
        text += t.read ? "r " : "w ";
        text += hexBytes(&t.address, 1);
        if (!t.bytes.empty())
            text += " " + hexBytes(t.bytes.data(), t.bytes.size());
        if (!t.acknowledged)
            text += " nack";
        text += '\n';
    }
    return text;
}

std::string Instrument::expanderText() const
{
    const auto byte = [](std::uint8_t value) { return hexBytes(&value, 1); };
    return "output=" + byte(m_expander.reg(I2cExpander::OutputPort)) +
           "\nconfiguration=" + byte(m_expander.reg(I2cExpander::Configuration)) +
           "\npolarity=" + byte(m_expander.reg(I2cExpander::PolarityInversion)) +
           "\npins=" + byte(m_expander.pinLevels()) + "\n";
}

void Instrument::addBuiltInFiles()
{
    m_control.add("log", {[this] { return logText(); },
                          [this](std::string_view) {
                              clearLog();
                              return 0;
                          },
                          false, "every device file operation in order; any write clears it"});
    m_control.add(
        "lines",
        {[this] { return linesText(); }, {}, false, "exported lines: number, direction, level, counters"});
    m_control.add("stats", {[this] { return statsText(); }, {}, false, "totals since start or reset"});
    m_control.add("i2c", {[this] { return busText(); },
                          [this](std::string_view) {
                              m_expander.clearTransactions();
                              return 0;
                          },
                          false, "bus transactions: w|r, address, bytes in hex; any write clears it"});
    m_control.add("expander", {[this] { return expanderText(); }, {}, false, "expander registers in hex"});
    m_control.add("reset", {{},
                            [this](std::string_view) {
                                reset();
                                return 0;
                            },
                            false,
                            "any write: fresh start (no exported line, empty log and bus record)"});
    m_control.add("cut", {[this] { return m_powerCut.text(); },
                          [this](std::string_view text) { return m_powerCut.write(text); }, false,
                          "line changes since reset and the cut: write \"after N\" (the next change is "
                          "not made: the power is off) or \"off\""});
    m_control.add("help", {[this] { return m_control.listing(); }, {}, false, "this list"});
}

} // namespace sim
