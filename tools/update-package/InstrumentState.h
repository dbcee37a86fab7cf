#pragma once
// What the virtual instrument holds after a job: the root's changes, the partitions, the PIC's memory,
// the trace of what happened and the message view. The reader lives with the virtual instrument's driver;
// this header is the interface the package tool's comparison is written against.

#include "InstrumentProfile.h"

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QVector>
#include <optional>

namespace state {

struct Node
{                 // one path of the root, as lstat sees it (never through a link)
    QString path; // absolute
    bool removed = false;
    profile::Kind kind = profile::Kind::File;
    uint mode = 0;
    uint uid = 0, gid = 0;
    qint64 size = 0;
    QString target;    // link target
    QByteArray sha256; // raw 32 bytes of a regular file's content, else empty
};

struct Snapshot
{
    QVector<Node> root;                   // every changed, added or removed path, sorted by path,
                                          // "/" and "/tmp" themselves included when they changed
    QMap<QString, QByteArray> partitions; // "/dev/mtd0", "/dev/mtd1", "/dev/mmcblk0" -> whole content
    QByteArray picFlash, picConfig;       // empty when the instrument has no PIC board
    QVector<QString> trace;               // the raw trace.log lines
    QString view;                         // the message view's plain text at the end
    bool ended = false;                   // the view reached its end line
};

std::optional<Snapshot> read(const QString& stateDir, QString& error);
QString text(const Snapshot&); // a readable listing, one item a line (for people and diffs)

} // namespace state
