#pragma once
// The virtual instrument after a job, read from the job's state folder by the tool, outside the sandbox's
// root: a package that damaged that root cannot change what is read, and nothing is read through one of
// its links. The folder (sim/sandbox --state, filled by scripts/technician.sh) holds:
//   rootfs/                     the overlay's upper layer: exactly what the job changed on the root
//                               (a whiteout, a character device 0/0, is a removed path; a folder with the
//                               trusted.overlay.opaque xattr "y" hides everything the root had below it)
//   rootfs.start                optional: the upper layer as the job found it (the sandbox's mount
//                               points), in the instrument profile's entry format; what is unchanged
//                               since is not listed
//   lowerdirs                   optional: the overlay's lower layers, top first, separated by ':' (what
//                               the root was before the job); without it the host's root
//   uid_map, gid_map            optional: a user namespace's id maps (inside outside count); the layers'
//                               owners are the host's and are listed as the instrument's root sees them
//   media/mtd0, mtd1, mmcblk0   the partitions the updater writes (absent: never written)
//   pic/flash, pic/config       the PIC's memories at the end (absent: no PIC board)
//   trace.log, view.txt         the job's trace (sim/stubs/lib/stub-common.sh) and its view at the end
//   outcome                     the technician's word: "ended" or "not ended: <why>"

#include "InstrumentProfile.h"

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QVector>
#include <optional>

namespace state {

struct Before // a path as the root had it before the job
{
    profile::Kind kind = profile::Kind::File;
    uint mode = 0, uid = 0, gid = 0;
    qint64 size = 0;
    QString target;
};

struct Node // one path of the root, as lstat sees it (never through a link)
{
    QString path; // absolute
    bool removed = false;
    // Now; for a removed path, what was removed (as `before`).
    profile::Kind kind = profile::Kind::File;
    uint mode = 0; // permission bits with set-id and sticky bits
    uint uid = 0, gid = 0;
    qint64 size = 0;              // files only
    QString target;               // link target
    QByteArray sha256;            // raw 32 bytes of a regular file's content, else empty
    std::optional<Before> before; // empty when the path is new
};

struct Snapshot
{
    QVector<Node> root;                   // every changed, added or removed path, sorted by path, "/" and
                                          // "/tmp" themselves included when they changed
    QMap<QString, QByteArray> partitions; // "/dev/mtd0", "/dev/mtd1", "/dev/mmcblk0" -> whole content
    QByteArray picFlash, picConfig;       // empty when the instrument has no PIC board
    QVector<QString> trace;               // the raw trace.log lines
    QString view;                         // the message view's plain text at the end
    bool ended = false;                   // the view reached its end line
    QString outcome;                      // the technician's word on the job's end
};

// Reads a finished job's state folder; on failure returns nothing and sets `error` to what is wrong where.
std::optional<Snapshot> read(const QString& stateDir, QString& error);

// What one job of a session (one run of the updater, jobs one after another) changed: `now` read from the
// session's folder after the job, `before` after the job before it. The root's paths that differ from
// `before` (their `before` as the earlier job left them), the trace's lines since; the partitions, the
// PIC, the view and the outcome as `now` has them.
Snapshot since(const Snapshot& before, const Snapshot& now);

// A readable listing, one item a line (for people and diffs).
QString text(const Snapshot& snapshot);

// A trace line's TEXT or ARGV as it was ("\\" and "\n" undone).
QString unescaped(const QString& text);

// The message view as the trace's view, undo and clear lines leave it (for a job that did not end).
QString viewFromTrace(const QVector<QString>& trace);

} // namespace state
