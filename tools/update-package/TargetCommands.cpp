#include "TargetCommands.h"

#include "Package.h"
#include "payload/ElfImage.h"
#include "payload/ScriptHeader.h"

#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <functional>
#include <sys/stat.h>

namespace target {
namespace {

using namespace rootfs;

Outcome failure(const QString& rule, const QString& message, Exit exit = Exit::Failure)
{
    Outcome out;
    out.exit = exit;
    out.rule = rule;
    out.message = message;
    return out;
}

Outcome unknown(const QString& message)
{
    return failure(QStringLiteral("model-unknown"), message, Exit::Unknown);
}

QString q(const QString& path)
{
    return QLatin1Char('\'') + path + QLatin1Char('\'');
}

QString baseName(QString path)
{
    while (path.size() > 1 && path.endsWith('/'))
        path.chop(1);
    return path.mid(path.lastIndexOf('/') + 1);
}

bool hasOption(const QStringList& args)
{
    return std::any_of(args.begin(), args.end(),
                       [](const QString& a) { return a.size() > 1 && a.startsWith('-'); });
}

// The rule for a path that does not lead where it should, from the error and the path's shape.
QString pathRule(const QString& prefix, Err err, const QString& path)
{
    if (err == Err::NotDir && path.endsWith('/'))
        return prefix + QStringLiteral("-trailing-slash");
    if (err == Err::NoEnt && path.contains(QLatin1String("/..")))
        return prefix + QStringLiteral("-dotdot");
    if (err == Err::Loop)
        return prefix + QStringLiteral("-link-loop");
    return prefix + (err == Err::NotDir ? QStringLiteral("-not-folder") : QStringLiteral("-missing"));
}

// ---- cp (GNU coreutils 9.1, no options)

bool copyOne(const QString& source, const QString& target, Context& c, Outcome& out)
{
    Tree& tree = c.tree;
    const Lookup s = tree.resolve(source, true);
    const Err sourceErr = s.err != Err::None ? s.err : s.node ? Err::None : Err::NoEnt;
    if (sourceErr != Err::None) {
        out = failure(s.err == Err::None ? QStringLiteral("cp-source-missing")
                                         : pathRule(QStringLiteral("cp-source"), sourceErr, source),
                      QStringLiteral("cp: cannot stat %1: %2").arg(q(source), errorText(sourceErr)));
        return false;
    }
    if (s.node->kind == Kind::Directory) {
        out = failure(QStringLiteral("cp-source-folder"),
                      QStringLiteral("cp: -r not specified; omitting directory %1").arg(q(source)));
        return false;
    }
    const Lookup t = tree.resolve(target, false);
    const auto cannotCreate = [&](Err err, const QString& rule) {
        out = failure(rule,
                      QStringLiteral("cp: cannot create regular file %1: %2").arg(q(target), errorText(err)));
        return false;
    };
    if (t.err != Err::None)
        return cannotCreate(t.err, pathRule(QStringLiteral("cp-target"), t.err, target));
    Lookup real = t;
    if (t.node && t.node->kind == Kind::Symlink) {
        real = tree.resolve(target, true);
        if (real.err != Err::None || !real.node) {
            out = failure(QStringLiteral("cp-target-dangling-link"),
                          QStringLiteral("cp: not writing through dangling symlink %1").arg(q(target)));
            return false;
        }
        c.notes.push_back(
            {QStringLiteral("write-through-link"),
             QStringLiteral("%1 is a link: cp writes the file it points to, %2").arg(target, real.path)});
    }
    if (real.node) {
        if (real.node->kind == Kind::Directory) {
            out = failure(
                QStringLiteral("cp-target-folder"),
                QStringLiteral("cp: cannot overwrite directory %1 with non-directory").arg(q(target)));
            return false;
        }
        if (real.node == s.node) {
            out = failure(QStringLiteral("cp-same-file"),
                          QStringLiteral("cp: %1 and %2 are the same file").arg(q(source), q(target)));
            return false;
        }
        if (!tree.writable(real.path))
            return cannotCreate(Err::ReadOnly, QStringLiteral("root-read-only"));
        if (real.node->running)
            return cannotCreate(Err::TextBusy, QStringLiteral("cp-target-running"));
        auto changed = std::make_shared<Inode>(*real.node); // the old file keeps its mode and owner
        changed->data = s.node->data;
        changed->sha256 = s.node->sha256;
        changed->known = s.node->known;
        changed->size = s.node->size;
        changed->program = s.node->program;
        tree.replaceInode(real.node, changed);
        return true;
    }
    if (t.trailingSlash)
        return cannotCreate(Err::NotDir, QStringLiteral("cp-target-trailing-slash"));
    if (!tree.writable(parentOf(t.path)))
        return cannotCreate(Err::ReadOnly, QStringLiteral("root-read-only"));
    auto created = std::make_shared<Inode>(*s.node);
    created->kind = Kind::File;
    created->mode = s.node->mode & 0777 & ~c.profile.umask; // set-id bits are not copied
    created->uid = created->gid = 0;
    created->running = false;
    tree.set(t.path, created);
    return true;
}

Outcome cp(const QStringList& args, Context& c)
{
    if (hasOption(args))
        return unknown(QStringLiteral("cp with options the model does not know: %1").arg(args.join(' ')));
    if (args.size() < 2)
        return failure(QStringLiteral("cp-missing-operand"),
                       args.isEmpty()
                           ? QStringLiteral("cp: missing file operand")
                           : QStringLiteral("cp: missing destination file operand after %1").arg(q(args[0])));
    const QString& dest = args.last();
    const Lookup d = c.tree.resolve(dest, true);
    const bool intoFolder = d.err == Err::None && d.node && d.node->kind == Kind::Directory;
    if (args.size() > 2 && !intoFolder)
        return failure(QStringLiteral("cp-extra-operand"),
                       QStringLiteral("cp: target %1: %2")
                           .arg(q(dest), d.node ? QStringLiteral("Not a directory") : errorText(Err::NoEnt)));
    Outcome out;
    for (int i = 0; i + 1 < args.size(); ++i) {
        Outcome one;
        if (!copyOne(args[i], intoFolder ? join(d.path, baseName(args[i])) : dest, c, one) &&
            out.exit == Exit::Success)
            out = one;
    }
    return out;
}

// ---- rm (GNU coreutils 9.1, with or without -r)

Outcome rm(QStringList args, Context& c)
{
    const bool recursive =
        !args.isEmpty() && (args[0] == QLatin1String("-r") || args[0] == QLatin1String("-R"));
    if (recursive)
        args.removeFirst();
    if (hasOption(args))
        return unknown(QStringLiteral("rm with options the model does not know: %1").arg(args.join(' ')));
    if (args.isEmpty())
        return failure(QStringLiteral("rm-missing-operand"), QStringLiteral("rm: missing operand"));
    Outcome out;
    const auto fail = [&](const QString& rule, const QString& message) {
        if (out.exit == Exit::Success)
            out = failure(rule, message);
    };
    Tree& tree = c.tree;
    for (const QString& operand : args) {
        const QString name = baseName(operand);
        if (name == QLatin1String(".") || name == QLatin1String("..")) {
            fail(QStringLiteral("rm-dot"),
                 QStringLiteral("rm: refusing to remove '.' or '..' directory: skipping %1").arg(q(operand)));
            continue;
        }
        const Lookup l = tree.resolve(operand, false);
        if (l.err != Err::None || !l.node) {
            const Err err = l.err != Err::None ? l.err : Err::NoEnt;
            fail(l.err == Err::None ? QStringLiteral("rm-target-missing")
                                    : pathRule(QStringLiteral("rm-target"), err, operand),
                 QStringLiteral("rm: cannot remove %1: %2").arg(q(operand), errorText(err)));
            continue;
        }
        if (l.path == QLatin1String("/")) {
            fail(QStringLiteral("rm-root"),
                 QStringLiteral("rm: it is dangerous to operate recursively on '/'"));
            continue;
        }
        if (l.node->kind == Kind::Directory && !recursive) {
            fail(QStringLiteral("rm-target-folder"),
                 QStringLiteral("rm: cannot remove %1: Is a directory").arg(q(operand)));
            continue;
        }
        QStringList doomed = l.node->kind == Kind::Directory ? tree.below(l.path) : QStringList();
        std::reverse(doomed.begin(), doomed.end());
        // "link/" empties the folder the link points to, then fails to remove the link as a folder.
        QString bare = operand;
        while (bare.size() > 1 && bare.endsWith('/'))
            bare.chop(1);
        const Node named = tree.resolve(bare, false).node;
        if (l.trailingSlash && named && named->kind == Kind::Symlink)
            fail(QStringLiteral("rm-target-trailing-slash"),
                 QStringLiteral("rm: cannot remove %1: Not a directory").arg(q(operand)));
        else
            doomed << l.path;
        for (const QString& path : doomed) {
            if (!tree.writable(parentOf(path))) {
                fail(QStringLiteral("root-read-only"),
                     QStringLiteral("rm: cannot remove %1: Read-only file system").arg(q(path)));
                continue;
            }
            const Node node = tree.at(path);
            if (node && node->kind == Kind::Directory && !tree.children(path).isEmpty())
                continue; // something below it could not go
            tree.remove(path);
        }
    }
    return out;
}

// ---- tar (GNU tar 1.34, extracting as root)

bool containsDotDot(const QString& name)
{
    return name.split('/').contains(QStringLiteral(".."));
}

uint ownerId(const QMap<QString, uint>& names, const QString& name, uint number)
{
    return names.contains(name) ? names.value(name) : number;
}

} // namespace

Outcome extract(const package::Package& members, const QString& base, const QStringList& only, Context& c)
{
    Tree& tree = c.tree;
    Outcome out;
    const auto fail = [&](const QString& rule, const QString& message) {
        if (out.exit == Exit::Success)
            out = failure(rule, message);
    };
    const Lookup baseDir = tree.resolve(base, true);
    if (baseDir.err != Err::None || !baseDir.node || baseDir.node->kind != Kind::Directory)
        return failure(QStringLiteral("tar-folder-missing"),
                       QStringLiteral("tar: %1: Cannot open: No such file or directory").arg(base));
    QSet<QString> found;                           // the members asked for that the archive holds
    QVector<QPair<QString, QString>> delayedLinks; // placeholder path, link target
    for (const package::Entry& member : members.entries) {
        QString name = member.rawName;
        if (!only.isEmpty()) {
            const auto asked = std::find_if(only.begin(), only.end(), [&](const QString& w) {
                return member.name == w || member.name.startsWith(w + '/');
            });
            if (asked == only.end())
                continue;
            found.insert(*asked);
        }
        while (name.startsWith('/'))
            name.remove(0, 1);
        if (containsDotDot(name)) {
            fail(QStringLiteral("tar-member-dotdot"),
                 QStringLiteral("tar: %1: Member name contains '..'").arg(member.rawName));
            continue;
        }
        // Folders missing on the way are made (links on the way are followed).
        QStringList parts = name.split('/', Qt::SkipEmptyParts);
        const QString last = parts.isEmpty() ? QString() : parts.takeLast();
        QString folder = baseDir.path;
        bool reachable = true;
        for (const QString& part : parts) {
            const Lookup l = tree.resolve(join(folder, part), true);
            if (l.err == Err::None && !l.node && tree.writable(folder)) {
                tree.set(l.path, folderNode(0777 & ~c.profile.umask));
                folder = l.path;
            } else if (l.err == Err::None && l.node && l.node->kind == Kind::Directory) {
                folder = l.path;
            } else {
                fail(QStringLiteral("tar-member-path"),
                     QStringLiteral("tar: %1: Cannot open: %2")
                         .arg(member.rawName, errorText(l.err != Err::None ? l.err
                                                        : l.node           ? Err::NotDir
                                                                           : Err::ReadOnly)));
                reachable = false;
                break;
            }
        }
        if (!reachable)
            continue;
        const Lookup target = last.isEmpty() || last == QLatin1String(".")
                                  ? tree.resolve(folder, true)
                                  : tree.resolve(join(folder, last), false);
        if (!tree.writable(target.node ? target.path : parentOf(target.path))) {
            fail(QStringLiteral("root-read-only"),
                 QStringLiteral("tar: %1: Cannot open: Read-only file system").arg(member.rawName));
            continue;
        }
        const uint uid = ownerId(c.profile.users, member.uname, member.uid);
        const uint gid = ownerId(c.profile.groups, member.gname, member.gid);
        const Node existing = target.node;
        // Replacing one of the instrument's own links breaks every path that went through it.
        const auto noteLink = [&] {
            if (existing && existing->kind == Kind::Symlink && tree.original(target.path) == existing)
                c.notes.push_back({QStringLiteral("tar-replaces-link"),
                                   QStringLiteral("%1 replaces the instrument's link %2 -> %3")
                                       .arg(member.rawName, target.path, existing->target)});
        };
        // A folder goes only when empty; anything else is unlinked first.
        const auto clear = [&](const char* what) {
            if (!existing)
                return true;
            if (existing->kind == Kind::Directory && !tree.children(target.path).isEmpty()) {
                fail(QStringLiteral("tar-member-over-folder"),
                     QStringLiteral("tar: %1: Cannot %2: File exists").arg(member.rawName, what));
                return false;
            }
            noteLink();
            tree.remove(target.path);
            return true;
        };
        switch (member.type) {
        case package::EntryType::Directory: {
            if (existing && existing->kind == Kind::Directory) {
                if (existing->mode == uint(member.mode) && existing->uid == uid && existing->gid == gid)
                    break;
                auto changed = std::make_shared<Inode>(*existing);
                changed->mode = uint(member.mode);
                changed->uid = uid;
                changed->gid = gid;
                tree.set(target.path, changed);
                if (tree.original(target.path))
                    c.notes.push_back(
                        {QStringLiteral("tar-changes-folder"),
                         QStringLiteral("%1 gives the instrument's folder %2 mode %3 and owner %4:%5")
                             .arg(member.rawName, target.path)
                             .arg(member.mode, 4, 8, QLatin1Char('0'))
                             .arg(uid)
                             .arg(gid)});
                break;
            }
            noteLink();
            if (existing)
                tree.remove(target.path);
            tree.set(target.path, folderNode(uint(member.mode), uid, gid));
            break;
        }
        case package::EntryType::File: {
            if (!clear("open"))
                break;
            auto node = std::make_shared<Inode>();
            // tar writes a file with its owner's bits only and sets the member's mode once the data is
            // complete: a member the archive cuts short keeps the owner's bits.
            node->mode = uint(member.truncated ? member.mode & 0700 : member.mode);
            node->uid = uid;
            node->gid = gid;
            node->size = member.size;
            node->data = member.data;
            node->sha256 = member.sha256;
            node->known = true;
            tree.set(target.path, node);
            break;
        }
        case package::EntryType::Symlink: {
            if (!clear("create symlink to"))
                break;
            if (member.link.startsWith('/') || containsDotDot(member.link)) {
                // GNU tar makes such a link last, over an empty placeholder, so that no later member
                // is written through it.
                tree.set(target.path, fileNode(QByteArray(), 0, uid, gid));
                delayedLinks.push_back({target.path, member.link});
            } else {
                tree.set(target.path, linkNode(member.link, uid, gid));
            }
            break;
        }
        case package::EntryType::Hardlink: {
            QString linkName = member.link;
            while (linkName.startsWith('/'))
                linkName.remove(0, 1);
            const Lookup to = tree.resolve(baseDir.path + '/' + linkName, false);
            if (to.err != Err::None || !to.node) {
                fail(QStringLiteral("tar-hardlink-missing"),
                     QStringLiteral("tar: %1: Cannot hard link to %2: No such file or directory")
                         .arg(member.rawName, q(member.link)));
                break;
            }
            if (!clear("hard link"))
                break;
            tree.set(target.path, to.node);
            break;
        }
        case package::EntryType::Other: {
            if (!clear("mknod"))
                break;
            auto node = std::make_shared<Inode>();
            node->kind = member.fileType == S_IFCHR    ? Kind::CharDevice
                         : member.fileType == S_IFBLK  ? Kind::BlockDevice
                         : member.fileType == S_IFSOCK ? Kind::Socket
                                                       : Kind::Fifo;
            node->mode = uint(member.mode);
            node->uid = uid;
            node->gid = gid;
            tree.set(target.path, node);
            break;
        }
        }
    }
    for (const auto& [path, link] : delayedLinks) {
        const Node now = tree.at(path);
        if (now && now->kind == Kind::File)
            tree.set(path, linkNode(link, now->uid, now->gid));
    }
    for (const QString& missing : only) {
        if (!found.contains(missing))
            fail(QStringLiteral("tar-member-not-found"),
                 QStringLiteral("tar: %1: Not found in archive").arg(missing));
    }
    return out;
}

namespace {

// An uncompressed archive as tar reads it: whole 512-byte blocks only. A shorter tail is never seen, so an
// archive cut inside a member's header ends quietly before that member.
QByteArray wholeBlocks(const QByteArray& data)
{
    static const QVector<QByteArray> compressed{QByteArray("\x1f\x8b"),
                                                QByteArray("BZh"),
                                                QByteArray("\xfd"
                                                           "7zXZ",
                                                           5),
                                                QByteArray("\x28\xb5\x2f\xfd"),
                                                QByteArray("LZIP"),
                                                QByteArray("\x1f\x9d")};
    for (const QByteArray& magic : compressed)
        if (data.startsWith(magic))
            return data;
    return data.left(data.size() / 512 * 512);
}

Outcome tar(const QStringList& args, Context& c)
{
    QString archive, folder = QStringLiteral("."), unknownOption;
    bool extracting = false;
    QStringList members;
    for (int i = 0; i < args.size(); ++i) {
        const QString& arg = args[i];
        if (arg.size() < 2 || !arg.startsWith('-') || arg.startsWith(QLatin1String("--"))) {
            if (arg.startsWith(QLatin1String("--")))
                unknownOption = arg;
            else
                members << arg;
            continue;
        }
        for (int k = 1; k < arg.size(); ++k) {
            const QChar letter = arg[k];
            if (letter == 'x') {
                extracting = true;
            } else if (letter == 'f' || letter == 'C') {
                const QString value = k + 1 < arg.size() ? arg.mid(k + 1) : args.value(++i);
                (letter == 'f' ? archive : folder) = value;
                break;
            } else if (!QStringLiteral("vpojJz").contains(letter)) {
                unknownOption = arg;
            }
        }
    }
    if (!unknownOption.isEmpty() || !extracting)
        return unknown(QStringLiteral("tar %1: not modelled").arg(args.join(' ')));
    const Lookup a = c.tree.resolve(archive, true);
    if (a.err != Err::None || !a.node)
        return failure(a.err == Err::None ? QStringLiteral("tar-archive-missing")
                                          : pathRule(QStringLiteral("tar-archive"), a.err, archive),
                       QStringLiteral("tar: %1: Cannot open: %2")
                           .arg(archive, errorText(a.err != Err::None ? a.err : Err::NoEnt)));
    if (a.node->kind == Kind::Directory)
        return failure(QStringLiteral("tar-archive-folder"),
                       QStringLiteral("tar: %1: Cannot read: Is a directory").arg(archive));
    if (const package::Package* read = c.archives.value(a.node->sha256))
        return extract(*read, folder, members, c);
    if (!a.node->known)
        return unknown(
            QStringLiteral("%1 is one of the instrument's files: its content is not known").arg(archive));
    QString error;
    package::Package partial;
    const auto read = package::readBytes(wholeBlocks(a.node->data), error, &partial);
    Outcome out = extract(read ? *read : partial, folder, members, c);
    if (!read && (out.exit == Exit::Success || out.rule == QLatin1String("tar-member-not-found")))
        out = failure(partial.entries.empty() ? QStringLiteral("tar-not-archive")
                                              : QStringLiteral("tar-corrupt"),
                      partial.entries.empty() ? QStringLiteral("tar: This does not look like a tar archive")
                                              : QStringLiteral("tar: %1").arg(error));
    return out;
}

// ---- the instrument's mount, flash and SD card tools (the virtual instrument's stubs)

Outcome mount(const QStringList& args, Context& c)
{
    if (args.size() == 3 && args[1] == QLatin1String("-o") && args[2] == QLatin1String("remount,rw")) {
        if (args[0] == QLatin1String("/") ||
            (args[0] == QLatin1String("ubi0:rootfs") && c.profile.bootsFromNand)) {
            c.tree.setWritable(QStringLiteral("/"), true);
            return {};
        }
        return failure(QStringLiteral("remount-fails"),
                       QStringLiteral("mount: %1: mount point not mounted or bad option.").arg(args[0]));
    }
    if (args.size() != 2)
        return unknown(QStringLiteral("mount %1: not modelled").arg(args.join(' ')));
    if (!c.media.contains(args[0]))
        return failure(QStringLiteral("mount-fails"),
                       QStringLiteral("mount: special device %1 does not exist.").arg(args[0]));
    const Lookup dir = c.tree.resolve(args[1], true);
    if (!dir.node || dir.node->kind != Kind::Directory || c.tree.isMountPoint(dir.path))
        return failure(QStringLiteral("mount-fails"),
                       QStringLiteral("mount: %1: mount point busy or missing").arg(args[1]));
    c.tree.setWritable(dir.path, true);
    const auto file = c.media.value(args[0]);
    c.tree.set(join(dir.path, file.first), file.second);
    return {};
}

Outcome umount(const QStringList& args, Context& c)
{
    if (args.size() != 1)
        return unknown(QStringLiteral("umount %1: not modelled").arg(args.join(' ')));
    const Lookup dir = c.tree.resolve(args[0], true);
    if (!dir.node)
        return failure(QStringLiteral("umount-fails"),
                       QStringLiteral("umount: %1: no mount point specified.").arg(args[0]));
    if (!c.tree.isMountPoint(dir.path) || dir.path == QLatin1String("/") || dir.path == QLatin1String("/tmp"))
        return failure(QStringLiteral("umount-fails"),
                       QStringLiteral("umount: %1: not mounted.").arg(args[0]));
    for (const QString& path : c.tree.below(dir.path))
        c.tree.remove(path);
    c.tree.unmount(dir.path);
    return {};
}

// A file the flash and card tools read: a regular file (links followed) with its content.
const Inode* imageFile(const QString& path, Context& c)
{
    const Lookup l = c.tree.resolve(path, true);
    return l.err == Err::None && l.node && l.node->kind == Kind::File ? l.node.get() : nullptr;
}

Outcome missingImage(const QString& tool, const QString& path)
{
    return failure(QStringLiteral("image-missing"), QStringLiteral("%1: cannot open %2").arg(tool, q(path)));
}

qint64 mtdSize(const QString& device, Context& c)
{
    return device.startsWith(QLatin1String("/dev/mtd")) ? c.profile.partitions.value(device) : 0;
}

void writeStart(Partition& p, const Inode& image, int line)
{
    p.line = line;
    if (!image.known) {
        p.content.clear();
        p.whole = false;
        return;
    }
    if (p.content.size() < image.data.size())
        p.content.resize(image.data.size());
    std::copy(image.data.begin(), image.data.end(), p.content.begin());
}

// The flash tools take their arguments in one shape only (the updater's own command lines); anything
// else, such as a path split at a blank, ends in their usage message.
Outcome usage(const QString& tool, const QStringList& args)
{
    return failure(QStringLiteral("flash-tool-usage"),
                   QStringLiteral("%1: unexpected arguments: %2").arg(tool, args.join(QLatin1Char(' '))));
}

Outcome sdimage(const QStringList& args, Context& c)
{
    if (args.size() != 4 || args[0] != QLatin1String("-f") || args[2] != QLatin1String("-d"))
        return usage(QStringLiteral("sdimage"), args);
    if (args[3] != QLatin1String("/dev/mmcblk0"))
        return failure(QStringLiteral("sdimage-fails"),
                       QStringLiteral("sdimage: %1: no such SD card").arg(args[3]));
    const Inode* image = imageFile(args[1], c);
    if (!image)
        return missingImage(QStringLiteral("sdimage"), args[1]);
    writeStart(c.partitions[args[3]], *image, c.line);
    return {};
}

Outcome flashEraseall(const QStringList& args, Context& c)
{
    if (args.size() != 1 || hasOption(args))
        return usage(QStringLiteral("flash_eraseall"), args);
    const qint64 size = mtdSize(args[0], c);
    if (size <= 0)
        return failure(QStringLiteral("flash-device-missing"),
                       QStringLiteral("flash_eraseall: %1: unable to open").arg(args[0]));
    c.partitions[args[0]] = {QByteArray(int(size), char(0xFF)), true, c.line};
    return {};
}

Outcome nandwrite(const QStringList& args, Context& c)
{
    QStringList rest = args;
    const bool pad = rest.removeAll(QStringLiteral("-p")) > 0;
    if (rest.size() != 2 || hasOption(rest))
        return usage(QStringLiteral("nandwrite"), args);
    const qint64 size = mtdSize(rest[0], c);
    if (size <= 0)
        return failure(QStringLiteral("flash-device-missing"),
                       QStringLiteral("nandwrite: %1: unable to open").arg(rest[0]));
    const Inode* image = imageFile(rest[1], c);
    if (!image)
        return missingImage(QStringLiteral("nandwrite"), rest[1]);
    const qint64 page = c.profile.nandPage > 0 ? c.profile.nandPage : 2048;
    if (image->size % page != 0 && !pad)
        return failure(QStringLiteral("image-not-page-aligned"),
                       QStringLiteral("nandwrite: input file is not page-aligned"));
    const qint64 padded = (image->size + page - 1) / page * page;
    if (padded > size)
        return failure(QStringLiteral("image-too-large"),
                       QStringLiteral("nandwrite: image %1 bytes, NAND partition only %2 bytes")
                           .arg(image->size)
                           .arg(size));
    Partition& p = c.partitions[rest[0]];
    const bool erased = p.whole && p.content.size() >= padded &&
                        std::all_of(p.content.begin(), p.content.begin() + int(padded),
                                    [](char b) { return b == char(0xFF); });
    if (!erased)
        return failure(QStringLiteral("flash-not-erased"),
                       QStringLiteral("nandwrite: %1: pages not erased before writing").arg(rest[0]));
    writeStart(p, *image, c.line);
    return {};
}

Outcome ubiformat(const QStringList& args, Context& c)
{
    if (args.size() != 3 || args[1] != QLatin1String("-f"))
        return usage(QStringLiteral("ubiformat"), args);
    const qint64 size = mtdSize(args[0], c);
    if (size <= 0)
        return failure(QStringLiteral("flash-device-missing"),
                       QStringLiteral("ubiformat: %1: unable to open").arg(args[0]));
    const Inode* image = imageFile(args[2], c);
    if (!image)
        return failure(QStringLiteral("image-missing-after-erase"),
                       QStringLiteral("ubiformat: cannot open file \"%1\"").arg(args[2]));
    if (image->size > size)
        return failure(QStringLiteral("image-too-large"),
                       QStringLiteral("ubiformat: image %1 bytes does not fit into %2 (%3 bytes)")
                           .arg(image->size)
                           .arg(args[0])
                           .arg(size));
    Partition& p = c.partitions[args[0]];
    p = {QByteArray(int(size), char(0xFF)), true, c.line};
    writeStart(p, *image, c.line);
    return {};
}

using Model = std::function<Outcome(const QStringList&, Context&)>;

const QMap<QString, Model>& programs()
{
    static const QMap<QString, Model> table{
        {QStringLiteral("cp"), cp},
        {QStringLiteral("rm"), rm},
        {QStringLiteral("tar"), tar},
        {QStringLiteral("mount"), mount},
        {QStringLiteral("umount"), umount},
        {QStringLiteral("sync"), [](const QStringList&, Context&) { return Outcome{}; }},
        {QStringLiteral("modprobe"), [](const QStringList&, Context&) { return Outcome{}; }},
        {QStringLiteral("echo"), [](const QStringList&, Context&) { return Outcome{}; }},
        {QStringLiteral("sdimage"), sdimage},
        {QStringLiteral("flash_eraseall"), flashEraseall},
        {QStringLiteral("nandwrite"), nandwrite},
        {QStringLiteral("ubiformat"), ubiformat},
    };
    return table;
}

// The status a shell script ends with, when it can be read off the script: one that only runs true, false
// or ':' and exits, or one that ends in "exit N" with no other way out before it (no "set -e", "exec" or
// earlier "exit"). `effects` tells whether it runs anything else (whose effects the model does not know),
// `syncs` whether sync is the last command that can write (a plain "sync" line, which succeeds).
std::optional<int> plainScriptExit(const QByteArray& script, bool& effects, bool& syncs)
{
    static const QRegularExpression exitLine(QStringLiteral("^exit(?:\\s+(\\d+))?$"));
    static const QRegularExpression otherWayOut(QStringLiteral("\\b(exit|exec|set\\s+-\\w*e|trap)\\b"));
    int status = 0;
    effects = syncs = false;
    const QList<QByteArray> lines = script.split('\n');
    for (int i = 1; i < lines.size(); ++i) {
        const QString text = QString::fromUtf8(lines[i]).trimmed();
        if (text.isEmpty() || text.startsWith('#'))
            continue;
        if (text == QLatin1String("true") || text == QLatin1String(":")) {
            status = 0;
        } else if (text == QLatin1String("sync")) {
            status = 0;
            syncs = true;
        } else if (text == QLatin1String("false")) {
            status = 1;
        } else if (const auto m = exitLine.match(text); m.hasMatch()) {
            return m.captured(1).isEmpty() ? status : m.captured(1).toInt() & 0xFF;
        } else if (otherWayOut.match(text).hasMatch()) {
            syncs = false;
            return std::nullopt;
        } else {
            effects = true; // a command of its own: what it does is not known, only that the script goes on
            status = -1;
            syncs = false;
        }
    }
    return status >= 0 ? std::optional<int>(status) : std::nullopt;
}

Outcome notStarted(const QString& rule, const QString& message)
{
    Outcome out = failure(rule, message, Exit::NotStarted);
    out.traced = false;
    return out;
}

// Programs start only while the loader and their libraries can be reached (checked when the profile
// names them and the instrument had them at the start).
bool programsCanStart(const Context& c)
{
    QStringList needed = c.profile.libraryPaths;
    if (!c.profile.loader.isEmpty())
        needed << c.profile.loader;
    for (const QString& path : needed) {
        const Lookup now = c.tree.resolve(path, true);
        if (now.err == Err::None && now.node)
            continue;
        if (c.tree.resolvedAtStart(path))
            return false;
    }
    return true;
}

Outcome brokenInstrument()
{
    return notStarted(
        QStringLiteral("instrument-broken"),
        QStringLiteral("the instrument's loader or libraries can no longer be reached: no program starts"));
}

} // namespace

Outcome execute(const QString& path, const QStringList& args, Context& c)
{
    if (!programsCanStart(c))
        return brokenInstrument();
    const Lookup l = c.tree.resolve(path, true);
    if (l.err != Err::None || !l.node)
        return notStarted(
            l.err == Err::None ? QStringLiteral("exec-missing")
                               : pathRule(QStringLiteral("exec"), l.err, path),
            QStringLiteral("%1: %2").arg(path, errorText(l.err != Err::None ? l.err : Err::NoEnt)));
    if (l.node->kind != Kind::File || !(l.node->mode & 0111))
        return notStarted(l.node->kind == Kind::Directory ? QStringLiteral("exec-folder")
                                                          : QStringLiteral("exec-not-executable"),
                          QStringLiteral("%1: Permission denied").arg(path));
    if (!l.node->program.isEmpty() && programs().contains(l.node->program)) {
        Outcome out = programs().value(l.node->program)(args, c);
        out.argv = (QStringList{l.node->program} + args).join(' ');
        return out;
    }
    if (!l.node->known) {
        Outcome out = unknown(QStringLiteral("%1 is one of the instrument's programs").arg(path));
        out.traced = false;
        return out;
    }
    const QByteArray& data = l.node->data;
    // The kernel reads the first 128 bytes of a script for its #! line.
    if (const auto header = payload::readScriptHeader(data.left(128))) {
        const QString& interpreter = header->interpreter;
        const Lookup i =
            interpreter.isEmpty() ? Lookup{Err::NoEnt, {}, {}, false} : c.tree.resolve(interpreter, true);
        if (i.err != Err::None || !i.node || i.node->kind != Kind::File || !(i.node->mode & 0111))
            return notStarted(
                interpreter.endsWith('\r') ? QStringLiteral("script-crlf")
                                           : QStringLiteral("script-interpreter-missing"),
                QStringLiteral("%1: the interpreter '%2' cannot be started").arg(path, interpreter));
        Outcome out;
        bool effects = false, syncs = false;
        const std::optional<int> status = plainScriptExit(data, effects, syncs);
        if (!status)
            out = unknown(
                QStringLiteral("%1 runs commands of its own and its exit status cannot be read off it")
                    .arg(path));
        else if (*status != 0)
            out = failure(QStringLiteral("script-fails"),
                          QStringLiteral("%1 exits with %2").arg(path).arg(*status));
        if (effects)
            c.notes.push_back(
                {QStringLiteral("script-effects"),
                 QStringLiteral("%1 runs commands of its own: what they change is not predicted").arg(path)});
        if (syncs)
            c.notes.push_back({QStringLiteral("script-syncs"), QStringLiteral("%1 ends in sync").arg(path)});
        out.traced = false;
        return out;
    }
    if (payload::looksLikeElf(data)) {
        QString error;
        const auto image = payload::readElf(data, error);
        if (image && (image->elfClass != c.profile.elfClass || image->machineName != c.profile.machine))
            return notStarted(QStringLiteral("elf-machine"),
                              QStringLiteral("%1: Exec format error (an %2, not a %3 program)")
                                  .arg(path, image->describe(), payload::machineTitle(c.profile.machine)));
        Outcome out = unknown(QStringLiteral("%1 is a program of the package").arg(path));
        out.traced = false;
        return out;
    }
    return notStarted(QStringLiteral("script-no-interpreter"),
                      QStringLiteral("%1: Exec format error").arg(path));
}

Outcome run(const QString& commandLine, Context& c)
{
    const QStringList argv = QProcess::splitCommand(commandLine);
    if (argv.isEmpty())
        return notStarted(QStringLiteral("command-empty"),
                          QStringLiteral("an empty command line cannot be started"));
    const QString& program = argv[0];
    const QStringList args = argv.mid(1);
    Outcome out;
    if (!programsCanStart(c)) {
        out = brokenInstrument();
    } else if (program.contains('/')) {
        out = execute(program, args, c);
    } else if (programs().contains(program)) {
        out = programs().value(program)(args, c);
        out.traced = program != QLatin1String("echo"); // the instrument's own echo, no stub or wrapper
    } else {
        return notStarted(QStringLiteral("command-not-found"),
                          QStringLiteral("%1: command not found").arg(program));
    }
    if (out.argv.isEmpty())
        out.argv = argv.join(' ');
    return out;
}

} // namespace target
