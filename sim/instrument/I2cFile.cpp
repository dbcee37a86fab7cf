#include "I2cFile.h"

#include "ControlText.h"

#include <cstdio>

namespace sim {

namespace {

constexpr unsigned long i2cSlave = 0x0703;      // I2C_SLAVE
constexpr unsigned long i2cSlaveForce = 0x0706; // I2C_SLAVE_FORCE
constexpr std::size_t i2cMaxTransfer = 8192;    // what i2c-dev accepts in one read or write

class I2cOpenFile : public OpenFile
{
public:
    explicit I2cOpenFile(Instrument& instrument) : m_in(instrument) {}

    std::string logName() const override { return "i2c-1"; }

    int read(std::size_t size, std::uint64_t, std::string* out) override
    {
        std::vector<std::uint8_t> bytes;
        const int rc = size > i2cMaxTransfer ? -EINVAL : m_in.expander().read(address(), size, bytes);
        m_in.log("read " + logName() + (rc ? "" : " " + hexBytes(bytes.data(), bytes.size())) +
                 failureText(-rc));
        out->assign(bytes.begin(), bytes.end());
        return rc < 0 ? rc : 0;
    }

    int write(std::string_view data, std::uint64_t) override
    {
        const int rc =
            data.size() > i2cMaxTransfer
                ? -EINVAL
                : m_in.expander().write(address(), std::vector<std::uint8_t>(data.begin(), data.end()));
        m_in.log("write " + logName() + " " + hexBytes(data) + failureText(-rc));
        return rc;
    }

    int ioctl(unsigned int cmd, std::uintptr_t value) override
    {
        char text[64];
        int error = 0;
        if (cmd == i2cSlave || cmd == i2cSlaveForce) {
            std::snprintf(text, sizeof text, "ioctl i2c-1 %s 0x%02lx",
                          cmd == i2cSlave ? "I2C_SLAVE" : "I2C_SLAVE_FORCE",
                          static_cast<unsigned long>(value));
            if (value > 0x7F) // seven-bit addresses only
                error = EINVAL;
            else
                m_address = static_cast<int>(value);
        } else {
            std::snprintf(text, sizeof text, "ioctl i2c-1 0x%04x", cmd);
            error = ENOTTY;
        }
        m_in.log(text + failureText(error));
        return -error;
    }

private:
    std::uint8_t address() const { return static_cast<std::uint8_t>(m_address); }

    Instrument& m_in;
    int m_address = 0; // i2c-dev starts with no slave selected
};

} // namespace

bool I2cFile::attributes(Inode, struct stat* st)
{
    setFile(st, 0600);
    return true;
}

int I2cFile::open(Inode, int, std::unique_ptr<OpenFile>* file)
{
    *file = std::make_unique<I2cOpenFile>(m_in);
    return 0;
}

} // namespace sim
