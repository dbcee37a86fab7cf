#pragma once
// One device's part of the simulated instrument's file system: its inodes, their attributes and listings,
// and its open files. InstrumentServer routes every request to the part that owns the inode, from its one
// poll loop; the parts never see libfuse.

#include <sys/stat.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

using Inode = std::uint64_t;

// Fixed inodes; control nodes and exported lines live in their own ranges.
namespace inode {
constexpr Inode root = 1; // libfuse's root id
constexpr Inode gpioDir = 2;
constexpr Inode exportFile = 3;
constexpr Inode unexportFile = 4;
constexpr Inode i2c = 5;
constexpr Inode controlBase = Inode(1) << 32;
constexpr Inode lineBase = Inode(1) << 40;
} // namespace inode

struct DirEntry
{
    std::string name;
    Inode ino;
};

void setFolder(struct stat* st);
void setFile(struct stat* st, mode_t mode, off_t size = 0);

// " -> EIO" after a logged operation that failed, nothing for 0.
std::string failureText(int error);

// "rdonly", "wronly" or "rdwr" as the log spells open flags.
std::string accessName(int flags);

// Like seq_file: a read from offset 0 produces fresh content, later offsets continue in the same text.
class Snapshot
{
public:
    std::string_view part(std::size_t size, std::uint64_t offset,
                          const std::function<std::string()>& produce);

private:
    std::string m_text;
    bool m_taken = false;
};

class OpenFile
{
public:
    virtual ~OpenFile() = default;
    // The file as the operation log names it ("gpio5/value"); empty for files the log leaves out.
    virtual std::string logName() const = 0;
    // Each returns 0 or -errno; device files log their reads and writes themselves.
    virtual int read(std::size_t size, std::uint64_t offset, std::string* out) = 0;
    virtual int write(std::string_view data, std::uint64_t offset) = 0;
    virtual int ioctl(unsigned int /*cmd*/, std::uintptr_t /*arg*/) { return -ENOTTY; }
    virtual int flush() { return 0; }
};

class DeviceFiles
{
public:
    virtual ~DeviceFiles() = default;
    virtual DirEntry top() const = 0; // its entry in the mount's root
    virtual bool owns(Inode ino) const = 0;
    virtual std::optional<Inode> lookup(Inode parent, std::string_view name) = 0;
    virtual bool attributes(Inode ino, struct stat* st) = 0;             // false: no such inode (any more)
    virtual bool list(Inode folder, std::vector<DirEntry>* entries) = 0; // false: not a folder
    // 0 or -errno. A file handed back together with an error is an open the log records as refused.
    virtual int open(Inode ino, int flags, std::unique_ptr<OpenFile>* file) = 0;
    // A shell's "> file": sysfs ignores it; a control file counts it as an empty write.
    virtual int truncate(Inode /*ino*/) { return 0; }
};

} // namespace sim
