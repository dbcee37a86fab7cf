#pragma once
// An 8-bit I2C I/O expander with the PCA9534 register map, as one slave on a bus. Pure model: the
// caller hands it whole bus transactions (address phase plus bytes) and gets the bus's answer.

#include <cstdint>
#include <vector>

namespace sim {

struct I2cTransaction
{
    std::uint8_t address = 0;  // 7-bit slave address
    bool read = false;         // a read transfer (bytes are what the slave returned)
    bool acknowledged = false; // false: no slave answered the address
    std::vector<std::uint8_t> bytes;
};

class I2cExpander
{
public:
    enum Register : std::uint8_t
    {
        InputPort = 0,
        OutputPort = 1,
        PolarityInversion = 2,
        Configuration = 3
    };

    explicit I2cExpander(std::uint8_t address = 0x22) : m_address(address) {}

    // A write transfer to `address`: the first byte selects the register, each further byte is written
    // to that register (the pointer does not advance). Returns 0, or -ENXIO when the address is not
    // this chip's (nothing acknowledged, nothing changed).
    int write(std::uint8_t address, const std::vector<std::uint8_t>& bytes);
    // A read transfer of `count` bytes from the selected register; -ENXIO for a foreign address.
    int read(std::uint8_t address, std::size_t count, std::vector<std::uint8_t>& out);

    std::uint8_t address() const { return m_address; }
    std::uint8_t reg(Register r) const { return m_regs[r & 3]; }
    // Level on each pin: an output pin carries its output-port bit, an input pin floats high.
    std::uint8_t pinLevels() const;
    const std::vector<I2cTransaction>& transactions() const { return m_transactions; }
    void clearTransactions() { m_transactions.clear(); }

private:
    std::uint8_t registerValue(std::uint8_t r) const;

    std::uint8_t m_address;
    // Power-on values: outputs latched high, no inversion, every pin an input.
    std::uint8_t m_regs[4] = {0x00, 0xFF, 0x00, 0xFF};
    std::uint8_t m_pointer = 0;
    std::vector<I2cTransaction> m_transactions;
};

} // namespace sim
