#pragma once
// The members of a modules archive as tar will unpack them over the instrument's root: names, kinds,
// modes, owners and, for kernel modules (*.ko), their contents. Read with libarchive from memory.

#include <QByteArray>
#include <QString>
#include <QVector>

namespace payload {

struct ArchiveMember
{
    enum Kind
    {
        File,
        Directory,
        Symlink,
        Hardlink,
        Other
    };
    QString name; // "./" dropped, no trailing "/"
    Kind kind = File;
    uint mode = 0; // permission bits
    qint64 uid = 0, gid = 0;
    qint64 size = 0;
    QString link;    // a link's target
    QByteArray data; // a module's contents (only *.ko files up to moduleLimit)
};

struct ModulesArchive
{
    // Modules larger than this are not read (no kernel module is that big).
    static constexpr qint64 moduleLimit = qint64(32) * 1024 * 1024;
    QVector<ArchiveMember> members;
    QString error; // what stopped the reading, empty when the archive was read to its end
};

ModulesArchive readModulesArchive(const QByteArray& data);

} // namespace payload
