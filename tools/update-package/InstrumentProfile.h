#pragma once
// What the tool and the virtual instrument know of one instrument: its platform (kernel release, ELF
// platform, loader), its flash (NAND geometry, partition sizes) and a listing of its root file system.
// Captured on an instrument with scripts/capture-profile.sh; the format is described in
// docs/instrument-profile.md. Reading never follows the instrument's links: entries are as lstat saw them.

#include <QHash>
#include <QMap>
#include <QString>
#include <QStringList>
#include <optional>

namespace profile {

enum class Kind
{
    Directory,
    File,
    Symlink,
    CharDevice,
    BlockDevice,
    Fifo,
    Socket
};

struct Entry
{
    QString path; // absolute, no trailing '/' ("/" for the root)
    Kind kind = Kind::File;
    uint mode = 0; // permission bits, set-id and sticky bits included
    uint uid = 0, gid = 0;
    qint64 size = 0;
    QString target; // a link's target as stored
};

struct Profile
{
    QString origin; // the file it was read from
    QString kernelRelease;
    QString machine;          // ELF machine: "arm", "aarch64", "x86-64", "i386"
    int elfClass = 0;         // 32 or 64
    QString floatAbi;         // "hard", "soft" (ARM only), "" elsewhere
    QString loader;           // dynamic loader of the instrument's programs
    QStringList libraryPaths; // folders the loader takes the programs' libraries from
    QString updater;          // where the updater program is installed
    qint64 nandPage = 0, nandEraseBlock = 0;
    QMap<QString, qint64> partitions; // device path -> size in bytes
    QHash<QString, Entry> entries;    // by path
    // What the updater's commands meet beyond the listing (each has a default when the profile is silent).
    QMap<QString, bool> mounts;        // mount point -> writable; "/" is read-only until remounted
    uint umask = 022;                  // the updater's umask, which new files of cp get
    bool bootsFromNand = true;         // "mount ubi0:rootfs -o remount,rw" finds the root only then
    QMap<QString, uint> users, groups; // names tar maps an archive's owners by (root is 0)

    // The entry at exactly this path, links not followed; nullptr when the instrument has none.
    const Entry* find(const QString& path) const;
};

// Reads a profile; on failure returns nothing and sets `error` to what is wrong and on which line.
std::optional<Profile> read(const QString& file, QString& error);

// The profile used when none is given: the virtual instrument's, which stands for the image the embedded
// team ships.
QString defaultPath();

// The escaped form of a path in a profile (blank, tab, newline and '\' as \ooo) and back.
QString escapePath(const QString& path);
QString unescapePath(const QString& text, bool* ok = nullptr);

QString kindName(Kind kind);

} // namespace profile
