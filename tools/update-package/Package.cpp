#include "Package.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>
#include <archive.h>
#include <archive_entry.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace package {
namespace {

using ArchiveReader = std::unique_ptr<archive, decltype(&archive_read_free)>;
using ArchiveWriter = std::unique_ptr<archive, decltype(&archive_write_free)>;

QString normalised(QString name)
{
    while (name.startsWith(QLatin1String("./")))
        name.remove(0, 2);
    while (name.size() > 1 && name.endsWith('/'))
        name.chop(1);
    return name;
}

EntryType typeOf(mode_t mode, bool hardlink)
{
    if (hardlink)
        return EntryType::Hardlink;
    switch (mode & S_IFMT) {
    case S_IFREG:
        return EntryType::File;
    case S_IFDIR:
        return EntryType::Directory;
    case S_IFLNK:
        return EntryType::Symlink;
    default:
        return EntryType::Other;
    }
}

// Reads the entry's data block by block (sparse holes read as zeros); keeps it when small enough and
// hashes it. Returns false with libarchive's message on a truncated or corrupt archive.
bool readData(archive* a, Entry& entry, QString& error)
{
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (entry.kept())
        entry.data = QByteArray(int(entry.size), '\0');
    static const QByteArray zeros(64 * 1024, '\0');
    qint64 hashed = 0;
    auto hashZerosUpTo = [&](qint64 offset) {
        for (; hashed < offset; hashed += qMin<qint64>(zeros.size(), offset - hashed))
            hash.addData(zeros.constData(), int(qMin<qint64>(zeros.size(), offset - hashed)));
    };
    for (;;) {
        const void* block = nullptr;
        size_t length = 0;
        la_int64_t offset = 0;
        const int r = archive_read_data_block(a, &block, &length, &offset);
        if (r == ARCHIVE_EOF)
            break;
        if (r < ARCHIVE_WARN) {
            // What was read stays: tar has written it before it stops.
            error = QString::fromUtf8(archive_error_string(a));
            entry.size = hashed;
            entry.data.truncate(int(qMin<qint64>(hashed, entry.data.size())));
            entry.sha256 = hash.result();
            entry.truncated = true;
            return false;
        }
        if (offset + qint64(length) > entry.size) {
            error = QStringLiteral("data beyond the size in its header");
            return false;
        }
        hashZerosUpTo(offset);
        hash.addData(static_cast<const char*>(block), int(length));
        hashed = offset + qint64(length);
        if (entry.kept())
            memcpy(entry.data.data() + offset, block, length);
    }
    hashZerosUpTo(entry.size);
    entry.sha256 = hash.result();
    return true;
}

// Reads the entries of an opened archive; `pkg` keeps what was read when it fails.
bool readEntries(archive* a, const QString& path, Package& pkg, QString& error)
{
    archive_entry* header = nullptr;
    for (;;) {
        const int r = archive_read_next_header(a, &header);
        if (r == ARCHIVE_EOF)
            break;
        if (r < ARCHIVE_WARN) {
            const QString where =
                pkg.entries.empty()
                    ? QStringLiteral("not a tar archive")
                    : QStringLiteral("truncated or corrupt after entry '%1'").arg(pkg.entries.back().name);
            error =
                QStringLiteral("%1: %2 (%3)").arg(path, where, QString::fromUtf8(archive_error_string(a)));
            return false;
        }
        if (pkg.entries.empty())
            pkg.compression = QString::fromUtf8(archive_filter_name(a, 0));
        Entry entry;
        entry.rawName = QString::fromUtf8(archive_entry_pathname(header));
        entry.name = normalised(entry.rawName);
        const bool hardlink = archive_entry_hardlink(header) != nullptr;
        entry.type = typeOf(archive_entry_filetype(header), hardlink);
        entry.fileType = entry.type == EntryType::Other ? uint(archive_entry_filetype(header)) : 0u;
        entry.mode = int(archive_entry_perm(header));
        entry.size = archive_entry_size(header);
        entry.uid = uint(archive_entry_uid(header));
        entry.gid = uint(archive_entry_gid(header));
        entry.uname = QString::fromUtf8(archive_entry_uname(header));
        entry.gname = QString::fromUtf8(archive_entry_gname(header));
        if (hardlink)
            entry.link = normalised(QString::fromUtf8(archive_entry_hardlink(header)));
        else if (const char* target = archive_entry_symlink(header))
            entry.link = QString::fromUtf8(target);
        if (entry.type == EntryType::File && !readData(a, entry, error)) {
            error = QStringLiteral("%1: truncated or corrupt archive inside entry '%2' (%3)")
                        .arg(path, entry.name, error);
            if (entry.truncated)
                pkg.entries.push_back(std::move(entry));
            return false;
        }
        pkg.entries.push_back(std::move(entry));
    }
    return true;
}

ArchiveReader tarReader()
{
    ArchiveReader a(archive_read_new(), archive_read_free);
    archive_read_support_filter_all(a.get());
    archive_read_support_format_tar(a.get());
    archive_read_support_format_gnutar(a.get());
    return a;
}

std::optional<Package> readArchive(const QString& path, QString& error)
{
    ArchiveReader a = tarReader();
    if (archive_read_open_filename(a.get(), QFile::encodeName(path).constData(), size_t(64) * 1024) !=
        ARCHIVE_OK) {
        error = QStringLiteral("%1: not a readable tar archive: %2")
                    .arg(path, QString::fromUtf8(archive_error_string(a.get())));
        return std::nullopt;
    }
    Package pkg;
    pkg.origin = path;
    pkg.fileName = QFileInfo(path).fileName();
    if (!readEntries(a.get(), path, pkg, error))
        return std::nullopt;
    if (pkg.entries.empty()) {
        error = QStringLiteral("%1: not an archive, or an empty one: it holds no entries").arg(path);
        return std::nullopt;
    }
    if (pkg.compression == QLatin1String("none"))
        pkg.compression = QStringLiteral("none");
    return pkg;
}

// Version-control folders and editors' backup, swap and desktop files: never part of a package.
bool isLeftOut(const QString& fileName)
{
    static const QStringList names{".git",   ".gitignore", ".gitattributes", ".gitmodules", ".svn",
                                   ".hg",    ".hgignore",  ".bzr",           "CVS",         ".cvsignore",
                                   "_darcs", ".DS_Store",  "Thumbs.db",      ".directory"};
    static const QRegularExpression patterns(QStringLiteral(R"(^(.*~|\..*\.sw[a-p]|\._.*|#.*#|\.#.*)$)"));
    return names.contains(fileName) || patterns.match(fileName).hasMatch();
}

std::optional<Package> readFolder(const QString& path, QString& error)
{
    Package pkg;
    pkg.origin = path;
    pkg.folder = true;
    pkg.compression = QStringLiteral("bzip2");
    Entry top;
    top.name = top.rawName = topFolder + '/';
    top.name = topFolder;
    top.type = EntryType::Directory;
    top.mode = 0755;
    top.uname = top.gname = QStringLiteral("root");
    pkg.entries.push_back(top);
    const QDir root(QFileInfo(path).absoluteFilePath());
    QDirIterator it(root.path(), QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    QStringList names;
    while (it.hasNext())
        names << it.next();
    names.sort();
    for (const QString& file : names) {
        const QString relative = root.relativeFilePath(file);
        const QStringList parts = relative.split('/');
        const auto first = std::find_if(parts.begin(), parts.end(), isLeftOut);
        if (first != parts.end()) {
            if (first == parts.end() - 1) // what lies inside a left-out folder is not named
                pkg.leftOut << relative;
            continue;
        }
        struct stat st
        {
        };
        if (::lstat(QFile::encodeName(file).constData(), &st) != 0) {
            error = QStringLiteral("%1: cannot be read").arg(file);
            return std::nullopt;
        }
        Entry entry;
        entry.name = topFolder + '/' + relative;
        entry.type = typeOf(st.st_mode, false);
        entry.fileType = entry.type == EntryType::Other ? uint(st.st_mode & S_IFMT) : 0u;
        entry.rawName = entry.name + (entry.type == EntryType::Directory ? QStringLiteral("/") : QString());
        entry.uname = entry.gname = QStringLiteral("root"); // what build writes
        entry.mode = int(st.st_mode & 07777);
        entry.size = entry.type == EntryType::File ? qint64(st.st_size) : 0;
        if (entry.type == EntryType::Symlink) {
            char target[4096];
            const ssize_t n = ::readlink(QFile::encodeName(file).constData(), target, sizeof target);
            entry.link = n > 0 ? QFile::decodeName(QByteArray(target, int(n))) : QString();
        }
        if (entry.type == EntryType::File) {
            QFile in(file);
            if (!in.open(QIODevice::ReadOnly)) {
                error = QStringLiteral("%1: cannot be read: %2").arg(file, in.errorString());
                return std::nullopt;
            }
            QCryptographicHash hash(QCryptographicHash::Sha256);
            hash.addData(&in);
            entry.sha256 = hash.result();
            if (entry.kept()) {
                in.seek(0);
                entry.data = in.readAll();
            }
        }
        pkg.entries.push_back(std::move(entry));
    }
    return pkg;
}

la_ssize_t writeToSaveFile(archive*, void* client, const void* buffer, size_t length)
{
    auto* file = static_cast<QSaveFile*>(client);
    return file->write(static_cast<const char*>(buffer), qint64(length));
}

} // namespace

std::optional<Package> readBytes(const QByteArray& data, QString& error, Package* partial)
{
    ArchiveReader a = tarReader();
    Package pkg;
    if (archive_read_open_memory(a.get(), data.constData(), size_t(data.size())) != ARCHIVE_OK) {
        error = QString::fromUtf8(archive_error_string(a.get()));
        return std::nullopt;
    }
    const bool ok = readEntries(a.get(), QStringLiteral("archive"), pkg, error);
    if (ok && pkg.entries.empty())
        error = QStringLiteral("no entries");
    if (ok && !pkg.entries.empty())
        return pkg;
    if (partial)
        *partial = std::move(pkg);
    return std::nullopt;
}

const Entry* Package::find(const QString& name) const
{
    for (const Entry& entry : entries) {
        if (entry.name == name)
            return &entry;
    }
    return nullptr;
}

std::optional<Package> read(const QString& path, QString& error)
{
    const QFileInfo info(path);
    if (!info.exists()) {
        error = QStringLiteral("%1: no such file or folder").arg(path);
        return std::nullopt;
    }
    return info.isDir() ? readFolder(path, error) : readArchive(path, error);
}

bool write(const Package& pkg, const QString& folder, const QString& target, QString& error)
{
    QSaveFile out(target);
    if (!out.open(QIODevice::WriteOnly)) {
        error = QStringLiteral("%1: cannot be written: %2").arg(target, out.errorString());
        return false;
    }
    ArchiveWriter a(archive_write_new(), archive_write_free);
    archive_write_add_filter_bzip2(a.get());
    archive_write_set_format_pax_restricted(a.get());
    archive_write_set_bytes_in_last_block(a.get(), 1); // no zero padding after the compressed stream
    auto fail = [&](const QString& what) {
        error =
            QStringLiteral("%1: %2: %3").arg(target, what, QString::fromUtf8(archive_error_string(a.get())));
        out.cancelWriting();
        return false;
    };
    if (archive_write_open(a.get(), &out, nullptr, writeToSaveFile, nullptr) != ARCHIVE_OK)
        return fail(QStringLiteral("cannot start the archive"));
    for (const Entry& entry : pkg.entries) {
        std::unique_ptr<archive_entry, decltype(&archive_entry_free)> header(archive_entry_new(),
                                                                             archive_entry_free);
        archive_entry_set_pathname(header.get(), entry.name.toUtf8().constData());
        archive_entry_set_perm(header.get(), mode_t(entry.mode));
        archive_entry_set_uname(header.get(), "root");
        archive_entry_set_gname(header.get(), "root");
        const QString source = folder + entry.name.mid(topFolder.size());
        archive_entry_set_mtime(header.get(), QFileInfo(source).lastModified().toSecsSinceEpoch(), 0);
        switch (entry.type) {
        case EntryType::Directory:
            archive_entry_set_filetype(header.get(), AE_IFDIR);
            break;
        case EntryType::Symlink:
            archive_entry_set_filetype(header.get(), AE_IFLNK);
            archive_entry_set_symlink(header.get(), entry.link.toUtf8().constData());
            break;
        case EntryType::File:
            archive_entry_set_filetype(header.get(), AE_IFREG);
            archive_entry_set_size(header.get(), entry.size);
            break;
        default:
            error = QStringLiteral("%1: neither a file, a folder nor a link: not packed").arg(source);
            out.cancelWriting();
            return false;
        }
        if (archive_write_header(a.get(), header.get()) != ARCHIVE_OK)
            return fail(QStringLiteral("cannot add '%1'").arg(entry.name));
        if (entry.type != EntryType::File)
            continue;
        QFile in(source);
        if (!in.open(QIODevice::ReadOnly)) {
            error = QStringLiteral("%1: cannot be read: %2").arg(source, in.errorString());
            out.cancelWriting();
            return false;
        }
        QByteArray chunk;
        while (!(chunk = in.read(1 << 20)).isEmpty()) {
            if (archive_write_data(a.get(), chunk.constData(), size_t(chunk.size())) < 0)
                return fail(QStringLiteral("cannot add '%1'").arg(entry.name));
        }
    }
    if (archive_write_close(a.get()) != ARCHIVE_OK)
        return fail(QStringLiteral("cannot finish the archive"));
    if (!out.commit()) {
        error = QStringLiteral("%1: cannot be written: %2").arg(target, out.errorString());
        return false;
    }
    return true;
}

bool nameMatches(const QString& fileName)
{
    static const QRegularExpression pattern(
        QRegularExpression::wildcardToRegularExpression(QStringLiteral("*M_firmware_update*.tar.bz2")),
        QRegularExpression::CaseInsensitiveOption);
    return pattern.match(fileName).hasMatch();
}

QString sizeText(qint64 bytes)
{
    if (bytes >= qint64(1024) * 1024 * 1024)
        return QStringLiteral("%1 GiB").arg(double(bytes) / (1024.0 * 1024 * 1024), 0, 'f', 1);
    if (bytes >= qint64(1024) * 1024)
        return QStringLiteral("%1 MiB").arg(double(bytes) / (1024.0 * 1024), 0, 'f', 1);
    if (bytes >= 1024)
        return QStringLiteral("%1 KiB").arg(double(bytes) / 1024.0, 0, 'f', 1);
    return QStringLiteral("%1 bytes").arg(bytes);
}

} // namespace package
