#pragma once
// gpio/ as /sys/class/gpio: export and unexport, and per exported line its folder with direction and
// value. Every export gets inodes of its own, so a descriptor that outlives its unexport gets ENODEV.

#include "DeviceFiles.h"
#include "Instrument.h"

#include <map>

namespace sim {

class GpioFiles : public DeviceFiles
{
public:
    explicit GpioFiles(Instrument& instrument) : m_in(instrument) {}

    DirEntry top() const override { return {"gpio", inode::gpioDir}; }
    bool owns(Inode ino) const override;
    std::optional<Inode> lookup(Inode parent, std::string_view name) override;
    bool attributes(Inode ino, struct stat* st) override;
    bool list(Inode folder, std::vector<DirEntry>* entries) override;
    int open(Inode ino, int flags, std::unique_ptr<OpenFile>* file) override;

    // Per exported line: its folder and its two attribute files.
    enum LinePart
    {
        LineDir = 0,
        LineDirection = 1,
        LineValue = 2
    };

    Instrument& instrument() { return m_in; }
    // The export id of a line that is exported now, 0 when it is not.
    std::uint64_t currentExport(int line);
    void exported(int line) { m_exportIds[line] = ++m_nextExportId; }
    void unexported(int line) { m_exportIds.erase(line); }

private:
    static Inode lineIno(std::uint64_t exportId, LinePart part)
    {
        return inode::lineBase + exportId * 4 + part;
    }
    // The line of a per-line inode, if that export is still the current one.
    std::optional<int> lineOf(Inode ino);

    Instrument& m_in;
    std::map<int, std::uint64_t> m_exportIds; // line -> id of its current export
    std::uint64_t m_nextExportId = 0;
};

} // namespace sim
