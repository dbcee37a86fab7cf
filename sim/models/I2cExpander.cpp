#include "I2cExpander.h"

#include <cerrno>

namespace sim {

std::uint8_t I2cExpander::pinLevels() const
{
    const std::uint8_t config = m_regs[Configuration];
    return static_cast<std::uint8_t>((m_regs[OutputPort] & ~config) | config);
}

std::uint8_t I2cExpander::registerValue(std::uint8_t r) const
{
    if (r == InputPort)
        return static_cast<std::uint8_t>(pinLevels() ^ m_regs[PolarityInversion]);
    return m_regs[r];
}

int I2cExpander::write(std::uint8_t address, const std::vector<std::uint8_t>& bytes)
{
    I2cTransaction t;
    t.address = address;
    t.acknowledged = address == m_address;
    t.bytes = bytes;
    m_transactions.push_back(t);
    if (!t.acknowledged)
        return -ENXIO;
    if (bytes.empty())
        return 0; // an address-only probe
    // Only the two low command bits decode to a register.
    m_pointer = bytes[0] & 3;
    for (std::size_t i = 1; i < bytes.size(); ++i) {
        if (m_pointer != InputPort) // the input port ignores writes
            m_regs[m_pointer] = bytes[i];
    }
    return 0;
}

int I2cExpander::read(std::uint8_t address, std::size_t count, std::vector<std::uint8_t>& out)
{
    I2cTransaction t;
    t.address = address;
    t.read = true;
    t.acknowledged = address == m_address;
    if (t.acknowledged)
        t.bytes.assign(count, registerValue(m_pointer));
    m_transactions.push_back(t);
    if (!t.acknowledged)
        return -ENXIO;
    out = m_transactions.back().bytes;
    return 0;
}

} // namespace sim
