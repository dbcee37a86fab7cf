#pragma once
// i2c-1 as /dev/i2c-1: ioctl(I2C_SLAVE) selects the slave per open file, each write is one bus
// transaction and each read one read transfer, answered by the instrument's expander.

#include "DeviceFiles.h"
#include "Instrument.h"

namespace sim {

class I2cFile : public DeviceFiles
{
public:
    explicit I2cFile(Instrument& instrument) : m_in(instrument) {}

    DirEntry top() const override { return {"i2c-1", inode::i2c}; }
    bool owns(Inode ino) const override { return ino == inode::i2c; }
    std::optional<Inode> lookup(Inode, std::string_view) override { return std::nullopt; }
    bool attributes(Inode ino, struct stat* st) override;
    bool list(Inode, std::vector<DirEntry>*) override { return false; }
    int open(Inode ino, int flags, std::unique_ptr<OpenFile>* file) override;

private:
    Instrument& m_in;
};

} // namespace sim
