#include "InstrumentProfile.h"

#include "Installation.h"

#include <QFile>
#include <QTextStream>

namespace profile {
namespace {

struct KindLetter
{
    char letter;
    Kind kind;
    const char* name;
};

// The letters of find's %y, which scripts/capture-profile.sh prints.
constexpr KindLetter kinds[] = {
    {'d', Kind::Directory, "folder"},
    {'f', Kind::File, "file"},
    {'l', Kind::Symlink, "link"},
    {'c', Kind::CharDevice, "char device"},
    {'b', Kind::BlockDevice, "block device"},
    {'p', Kind::Fifo, "fifo"},
    {'s', Kind::Socket, "socket"},
};

bool toNumber(const QString& text, qint64& value, int base = 10)
{
    bool ok = false;
    value = text.toLongLong(&ok, base);
    return ok && value >= 0;
}

} // namespace

const Entry* Profile::find(const QString& path) const
{
    const auto it = entries.constFind(path);
    return it == entries.constEnd() ? nullptr : &*it;
}

QString escapePath(const QString& path)
{
    QString out;
    for (const QChar c : path) {
        if (c == ' ' || c == '\t' || c == '\n' || c == '\\')
            out += QStringLiteral("\\%1").arg(c.unicode(), 3, 8, QLatin1Char('0'));
        else
            out += c;
    }
    return out;
}

QString unescapePath(const QString& text, bool* ok)
{
    QString out;
    bool good = true;
    for (int i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            out += text[i];
            continue;
        }
        bool digits = false;
        const int code = text.mid(i + 1, 3).toInt(&digits, 8);
        if (!digits || text.mid(i + 1, 3).size() != 3) {
            good = false;
            break;
        }
        out += QChar(code);
        i += 3;
    }
    if (ok)
        *ok = good;
    return out;
}

QString kindName(Kind kind)
{
    for (const KindLetter& k : kinds)
        if (k.kind == kind)
            return QLatin1String(k.name);
    return QString();
}

std::optional<Profile> read(const QString& file, QString& error)
{
    QFile source(file);
    if (!source.open(QIODevice::ReadOnly)) {
        error = QStringLiteral("cannot read the instrument profile %1: %2").arg(file, source.errorString());
        return std::nullopt;
    }
    Profile p;
    p.origin = file;
    QTextStream in(&source);
    int number = 0;
    bool formatSeen = false;
    const auto bad = [&](const QString& why) {
        error = QStringLiteral("%1:%2: %3").arg(file).arg(number).arg(why);
        return std::nullopt;
    };
    while (!in.atEnd()) {
        const QString line = in.readLine();
        ++number;
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        const QStringList f = line.split(QLatin1Char(' '));
        const QString& key = f[0];
        if (!formatSeen) {
            if (key != QLatin1String("format") || f.value(1) != QLatin1String("1"))
                return bad(QStringLiteral("not an instrument profile: the first line must be 'format 1'"));
            formatSeen = true;
            continue;
        }
        if (key == QLatin1String("entry")) {
            // entry KIND MODE UID GID SIZE PATH [TARGET]
            qint64 mode = 0, uid = 0, gid = 0, size = 0;
            if (f.size() < 7 || f[1].size() != 1 || !toNumber(f[2], mode, 8) || !toNumber(f[3], uid) ||
                !toNumber(f[4], gid) || !toNumber(f[5], size))
                return bad(QStringLiteral("an entry is 'entry KIND MODE UID GID SIZE PATH [TARGET]'"));
            Entry e;
            const auto kind = std::find_if(std::begin(kinds), std::end(kinds),
                                           [&](const KindLetter& k) { return k.letter == f[1][0]; });
            if (kind == std::end(kinds))
                return bad(QStringLiteral("unknown kind '%1' (one of d f l c b p s)").arg(f[1]));
            bool ok = false;
            e.kind = kind->kind;
            e.mode = uint(mode);
            e.uid = uint(uid);
            e.gid = uint(gid);
            e.size = size;
            e.path = unescapePath(f[6], &ok);
            if (!ok || !e.path.startsWith('/') || (e.path.size() > 1 && e.path.endsWith('/')))
                return bad(QStringLiteral("'%1' is not an absolute path without a trailing '/'").arg(f[6]));
            if ((e.kind == Kind::Symlink) != (f.size() == 8))
                return bad(QStringLiteral("a link, and only a link, has a target after its path"));
            if (f.size() == 8)
                e.target = unescapePath(f[7], &ok);
            if (!ok || f.size() > 8)
                return bad(QStringLiteral("too many fields or a bad escape in '%1'").arg(line));
            p.entries.insert(e.path, e);
        } else if (key == QLatin1String("mount")) {
            if (f.size() != 3 || !f[1].startsWith('/') ||
                (f[2] != QLatin1String("ro") && f[2] != QLatin1String("rw")))
                return bad(QStringLiteral("a mount is 'mount PATH ro|rw'"));
            p.mounts.insert(unescapePath(f[1]), f[2] == QLatin1String("rw"));
        } else if (key == QLatin1String("user") || key == QLatin1String("group")) {
            qint64 id = 0;
            if (f.size() != 3 || !toNumber(f[2], id))
                return bad(QStringLiteral("'%1' is '%1 NAME ID'").arg(key));
            (key == QLatin1String("user") ? p.users : p.groups).insert(f[1], uint(id));
        } else if (key == QLatin1String("partition")) {
            qint64 size = 0;
            if (f.size() != 3 || !f[1].startsWith(QLatin1String("/dev/")) || !toNumber(f[2], size))
                return bad(QStringLiteral("a partition is 'partition /dev/NAME BYTES'"));
            p.partitions.insert(f[1], size);
        } else if (f.size() != 2) {
            return bad(QStringLiteral("'%1' takes one value").arg(key));
        } else if (key == QLatin1String("kernel-release")) {
            p.kernelRelease = f[1];
        } else if (key == QLatin1String("machine")) {
            p.machine = f[1];
        } else if (key == QLatin1String("elf-class")) {
            qint64 v = 0;
            if (!toNumber(f[1], v) || (v != 32 && v != 64))
                return bad(QStringLiteral("elf-class is 32 or 64"));
            p.elfClass = int(v);
        } else if (key == QLatin1String("float-abi")) {
            p.floatAbi = f[1];
        } else if (key == QLatin1String("library-path")) {
            p.libraryPaths << unescapePath(f[1]);
        } else if (key == QLatin1String("loader")) {
            p.loader = f[1];
        } else if (key == QLatin1String("updater")) {
            p.updater = f[1];
        } else if (key == QLatin1String("umask")) {
            qint64 v = 0;
            if (!toNumber(f[1], v, 8) || v > 0777)
                return bad(QStringLiteral("umask is an octal mode such as 0022"));
            p.umask = uint(v);
        } else if (key == QLatin1String("boots-from")) {
            if (f[1] != QLatin1String("nand") && f[1] != QLatin1String("sdcard"))
                return bad(QStringLiteral("boots-from is nand or sdcard"));
            p.bootsFromNand = f[1] == QLatin1String("nand");
        } else if (key == QLatin1String("nand-page") || key == QLatin1String("nand-erase-block")) {
            qint64 v = 0;
            if (!toNumber(f[1], v) || v == 0)
                return bad(QStringLiteral("%1 is a size in bytes").arg(key));
            (key == QLatin1String("nand-page") ? p.nandPage : p.nandEraseBlock) = v;
        } else {
            return bad(QStringLiteral("unknown key '%1'").arg(key));
        }
    }
    if (!formatSeen) {
        error = QStringLiteral("%1: empty, not an instrument profile").arg(file);
        return std::nullopt;
    }
    // The instrument's root is mounted read-only and /tmp is a memory file system, unless the profile says
    // more.
    if (!p.mounts.contains(QStringLiteral("/")))
        p.mounts.insert(QStringLiteral("/"), false);
    if (!p.mounts.contains(QStringLiteral("/tmp")))
        p.mounts.insert(QStringLiteral("/tmp"), true);
    p.users.insert(QStringLiteral("root"), 0);
    p.groups.insert(QStringLiteral("root"), 0);
    if (!p.find(QStringLiteral("/"))) {
        error = QStringLiteral("%1: the listing has no entry for '/'").arg(file);
        return std::nullopt;
    }
    return p;
}

QString defaultPath()
{
    return installation::dataDir() + QStringLiteral("/sim/profile/instrument.profile");
}

} // namespace profile
