#include "ModulesArchive.h"

#include <archive.h>
#include <archive_entry.h>
#include <memory>
#include <sys/stat.h>

namespace payload {
namespace {

using Reader = std::unique_ptr<archive, decltype(&archive_read_free)>;

ArchiveMember::Kind kindOf(archive_entry* header)
{
    if (archive_entry_hardlink(header))
        return ArchiveMember::Hardlink;
    switch (archive_entry_filetype(header)) {
    case AE_IFREG:
        return ArchiveMember::File;
    case AE_IFDIR:
        return ArchiveMember::Directory;
    case AE_IFLNK:
        return ArchiveMember::Symlink;
    default:
        return ArchiveMember::Other;
    }
}

QString normalised(QString name)
{
    while (name.startsWith(QLatin1String("./")))
        name.remove(0, 2);
    while (name.startsWith('/')) // tar drops a leading "/" when unpacking
        name.remove(0, 1);
    while (name.endsWith('/'))
        name.chop(1);
    return name;
}

QString archiveError(archive* a, const QString& member)
{
    const QString what =
        QString::fromUtf8(archive_error_string(a) ? archive_error_string(a) : "unknown error");
    return member.isEmpty() ? what : QStringLiteral("%1 (at %2)").arg(what, member);
}

} // namespace

ModulesArchive readModulesArchive(const QByteArray& data)
{
    ModulesArchive out;
    Reader a(archive_read_new(), &archive_read_free);
    archive_read_support_filter_all(a.get());
    archive_read_support_format_tar(a.get());
    archive_read_support_format_gnutar(a.get());
    if (archive_read_open_memory(a.get(), data.constData(), size_t(data.size())) != ARCHIVE_OK) {
        out.error = archiveError(a.get(), QString());
        return out;
    }
    archive_entry* header = nullptr;
    int r = ARCHIVE_OK;
    while ((r = archive_read_next_header(a.get(), &header)) == ARCHIVE_OK || r == ARCHIVE_WARN) {
        ArchiveMember member;
        member.name = normalised(QString::fromUtf8(archive_entry_pathname(header)));
        member.kind = kindOf(header);
        member.mode = uint(archive_entry_perm(header));
        member.uid = archive_entry_uid(header);
        member.gid = archive_entry_gid(header);
        member.size = archive_entry_size(header);
        const char* link =
            archive_entry_hardlink(header) ? archive_entry_hardlink(header) : archive_entry_symlink(header);
        member.link = link ? QString::fromUtf8(link) : QString();
        if (member.kind == ArchiveMember::File && member.name.endsWith(QLatin1String(".ko")) &&
            member.size <= ModulesArchive::moduleLimit) {
            member.data.resize(int(member.size));
            la_ssize_t done = 0;
            while (done < member.size) {
                const la_ssize_t n =
                    archive_read_data(a.get(), member.data.data() + done, size_t(member.size - done));
                if (n <= 0)
                    break;
                done += n;
            }
            if (done < member.size) {
                out.error = archiveError(a.get(), member.name);
                return out;
            }
        } else if (archive_read_data_skip(a.get()) < ARCHIVE_WARN) {
            out.error = archiveError(a.get(), member.name);
            return out;
        }
        out.members.append(member);
    }
    if (r != ARCHIVE_EOF)
        out.error =
            archiveError(a.get(), out.members.isEmpty() ? QString() : "after " + out.members.last().name);
    return out;
}

} // namespace payload
