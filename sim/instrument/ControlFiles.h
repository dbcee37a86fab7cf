#pragma once
// control/: the instrument's control registry as files for tests and tools. Reads produce the whole text
// at offset 0; writes go to the file's callback at once, or on close for whole-file writes. The log
// leaves these files out.

#include "DeviceFiles.h"
#include "Instrument.h"

namespace sim {

class ControlFiles : public DeviceFiles
{
public:
    explicit ControlFiles(Instrument& instrument) : m_in(instrument) {}

    DirEntry top() const override { return {"control", inode::controlBase}; }
    bool owns(Inode ino) const override { return ino >= inode::controlBase && ino < inode::lineBase; }
    std::optional<Inode> lookup(Inode parent, std::string_view name) override;
    bool attributes(Inode ino, struct stat* st) override;
    bool list(Inode folder, std::vector<DirEntry>* entries) override;
    int open(Inode ino, int flags, std::unique_ptr<OpenFile>* file) override;
    int truncate(Inode ino) override;

private:
    const ControlRegistry::Node* node(Inode ino) const
    {
        return m_in.control().node(ino - inode::controlBase);
    }

    Instrument& m_in;
};

} // namespace sim
