#pragma once
// The instrument's file system as the target's commands meet it: the profile's listing, the package
// unpacked into /tmp, and every change a command makes. Paths resolve as the kernel resolves them (links
// in the middle followed, the last one only when asked, a trailing '/' demanding a folder), mounts are
// read-only or writable, and contents are known where they came from the package.

#include "InstrumentProfile.h"

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>
#include <memory>

namespace rootfs {

using profile::Kind;

struct Inode
{
    Kind kind = Kind::File;
    uint mode = 0644; // permission bits with set-id and sticky bits
    uint uid = 0, gid = 0;
    qint64 size = 0;
    QString target;       // a link's target
    QByteArray data;      // the content, when known
    QByteArray sha256;    // of the content, when known
    bool known = false;   // the content is known (it came from the package)
    bool running = false; // the executable of a running program (writing it fails with "Text file busy")
    QString program;      // the instrument's own program this file is ("ubiformat"), copies included
};
// Inodes are never changed in place: a change makes a new one, so earlier states stay as they were.
using Node = std::shared_ptr<const Inode>;

enum class Err
{
    None,
    NoEnt,
    NotDir,
    IsDir,
    Loop,
    ReadOnly,
    Exists,
    NotEmpty,
    TextBusy,
    Access,
    NoExec,
};
// The C library's text for an error ("No such file or directory").
QString errorText(Err err);

struct Lookup
{
    Err err = Err::None;
    QString
        path;  // where the name leads, links in the middle resolved: "/usr/lib/modules" for "/lib/modules/"
    Node node; // nullptr when nothing is there (err None: the folder above exists)
    bool trailingSlash = false;
};

class Tree
{
public:
    explicit Tree(const profile::Profile& profile);

    // Resolves `path` (relative ones from `cwd`). `follow`: follow a link in the last place too.
    Lookup resolve(const QString& path, bool follow, const QString& cwd = QStringLiteral("/")) const;
    Node at(const QString& path) const { return m_nodes.value(path); }
    bool writable(const QString& path) const; // the mount holding `path` takes writes
    void setWritable(const QString& mountPoint, bool writable);
    bool isMountPoint(const QString& path) const { return m_mounts.contains(path); }
    void unmount(const QString& mountPoint) { m_mounts.remove(mountPoint); }

    void set(const QString& path, const Node& node); // creates or replaces one entry
    void remove(const QString& path);                // one entry (a folder's entries go first)
    // Gives every name of `old` the inode `replacement` (hard links share one inode).
    void replaceInode(const Node& old, const Node& replacement);
    QStringList children(const QString& folder) const;
    QStringList below(const QString& folder) const; // every path under it, deepest last

    // Every path whose entry differs from the start's (the profile's), with the line that changed it last.
    const QMap<QString, int>& changed() const { return m_changed; }
    // The root as it is now becomes the start: the next job of the same run of the updater finds it so.
    void startHere();
    void setLine(int line) { m_line = line; }
    // The paths changed since the last call.
    QStringList takeTouched();
    Node original(const QString& path) const { return m_original.value(path); }
    // `path` led to an entry in the instrument as the profile has it.
    bool resolvedAtStart(const QString& path) const;

private:
    QMap<QString, Node> m_nodes, m_original, m_profile;
    QMap<QString, bool> m_mounts;
    QMap<QString, int> m_changed;
    QStringList m_touched;
    int m_line = 0;
};

// Two entries look the same to lstat and a reader of their content (nullptr: no entry).
bool sameState(const Node& a, const Node& b);

QString parentOf(const QString& path);
QString join(const QString& folder, const QString& name);
// A file inode with this content (mode, owner as given).
Node fileNode(const QByteArray& data, uint mode, uint uid = 0, uint gid = 0);
Node folderNode(uint mode, uint uid = 0, uint gid = 0);
Node linkNode(const QString& target, uint uid = 0, uint gid = 0);

} // namespace rootfs
