#pragma once
// An update package as the tool sees it: the entries of a bzip2 tar archive (read with libarchive,
// never unpacked to disk) or of a folder laid out as the archive's firmware_update/ would be.

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <optional>
#include <vector>

namespace package {

inline const QString topFolder = QStringLiteral("firmware_update");
inline const QString commandListPath = QStringLiteral("firmware_update/update_config");
// Payloads larger than this are hashed but not kept in memory (no command list or HEX file is that big).
inline constexpr qint64 keepLimit = qint64(64) * 1024 * 1024;

enum class EntryType
{
    File,
    Directory,
    Symlink,
    Hardlink,
    Other
};

struct Entry
{
    QString name;    // as stored, e.g. "firmware_update/etc/x.conf" ("./" and a trailing "/" dropped)
    QString rawName; // exactly as stored (tar's own handling of "./", "/" and ".." starts from it)
    EntryType type = EntryType::File;
    int mode = 0; // permission bits
    qint64 size = 0;
    QString link; // target of a link
    uint uid = 0, gid = 0;
    QString uname, gname;
    uint fileType = 0; // of an Other entry: S_IFCHR, S_IFBLK, S_IFIFO or S_IFSOCK
    QByteArray data;   // the contents, when size <= keepLimit
    QByteArray sha256;
    bool truncated = false; // the archive ends inside the data: `size` and `data` are what it holds
    bool kept() const { return type == EntryType::File && size <= keepLimit; }
};

struct Package
{
    QString origin;   // the path given by the user
    QString fileName; // the archive's own name (empty for a folder)
    bool folder = false;
    QString compression; // "bzip2", "gzip", ... as libarchive names the filter; "none"
    std::vector<Entry> entries;
    // A folder's version-control and editor files (.git, *~, .*.swp, ...), relative to the folder: not
    // among the entries, as build leaves them out.
    QStringList leftOut;

    // The entry of a path inside the archive, e.g. "firmware_update/board.hex".
    const Entry* find(const QString& name) const;
};

// Reads a tar archive held in memory (any compression tar detects), e.g. a modules archive inside a
// package. On failure returns nothing and sets `error`; `partial`, when given, keeps the entries read
// before the failure (tar extracts those before it stops).
std::optional<Package> readBytes(const QByteArray& data, QString& error, Package* partial = nullptr);

// Reads an archive or a folder (the folder stands for firmware_update/). On failure returns nothing and
// sets `error` to a message that says what is wrong and where.
std::optional<Package> read(const QString& path, QString& error);

// Writes `pkg` (read from a folder) as a bzip2 tar archive with the top folder firmware_update/, file
// modes kept. Writes to a temporary name beside `target` and renames it at the end; nothing is left
// behind on failure.
bool write(const Package& pkg, const QString& folder, const QString& target, QString& error);

// True when the updater's search pattern "*M_firmware_update*.tar.bz2" (case-insensitive) matches.
bool nameMatches(const QString& fileName);

QString sizeText(qint64 bytes);

} // namespace package
