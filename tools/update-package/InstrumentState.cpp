#include "InstrumentState.h"

#include <QCryptographicHash>
#include <QFile>
#include <QSet>
#include <QTextStream>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace state {
namespace {

using profile::Kind;

constexpr const char* partitionNames[] = {"mtd0", "mtd1", "mmcblk0"};

QByteArray encoded(const QString& path)
{
    return QFile::encodeName(path);
}

Kind kindOf(mode_t mode)
{
    switch (mode & S_IFMT) {
    case S_IFDIR:
        return Kind::Directory;
    case S_IFLNK:
        return Kind::Symlink;
    case S_IFCHR:
        return Kind::CharDevice;
    case S_IFBLK:
        return Kind::BlockDevice;
    case S_IFIFO:
        return Kind::Fifo;
    case S_IFSOCK:
        return Kind::Socket;
    default:
        return Kind::File;
    }
}

std::optional<struct stat> lstatOf(const QString& path)
{
    struct stat info
    {
    };
    if (::lstat(encoded(path).constData(), &info) != 0)
        return std::nullopt;
    return info;
}

QString linkTarget(const QString& path)
{
    QByteArray buffer(4096, '\0');
    const ssize_t n = ::readlink(encoded(path).constData(), buffer.data(), size_t(buffer.size()));
    return n < 0 ? QString() : QFile::decodeName(buffer.left(int(n)));
}

Before describe(const QString& path, const struct stat& info)
{
    Before b;
    b.kind = kindOf(info.st_mode);
    b.mode = info.st_mode & 07777;
    b.uid = info.st_uid;
    b.gid = info.st_gid;
    b.size = b.kind == Kind::File ? qint64(info.st_size) : 0;
    if (b.kind == Kind::Symlink)
        b.target = linkTarget(path);
    return b;
}

bool sameAttributes(const Before& a, const Before& b)
{
    return a.kind == b.kind && a.mode == b.mode && a.uid == b.uid && a.gid == b.gid && a.target == b.target;
}

// The file's content hash, read without following a link (O_NOFOLLOW) and without blocking on a fifo.
std::optional<QByteArray> contentHash(const QString& path)
{
    const int fd = ::open(encoded(path).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return std::nullopt;
    QFile file;
    if (!file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        ::close(fd);
        return std::nullopt;
    }
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!hash.addData(&file))
        return std::nullopt;
    return hash.result();
}

bool isWhiteout(const struct stat& info)
{
    return S_ISCHR(info.st_mode) && info.st_rdev == makedev(0, 0);
}

bool isOpaque(const QString& path)
{
    for (const char* name : {"trusted.overlay.opaque", "user.overlay.opaque"}) {
        char value = 0;
        if (::lgetxattr(encoded(path).constData(), name, &value, 1) == 1 && value == 'y')
            return true;
    }
    return false;
}

// Names in a folder, "." and ".." left out; an unreadable folder is an error.
std::optional<QStringList> namesIn(const QString& folder, QString& error)
{
    DIR* dir = ::opendir(encoded(folder).constData());
    if (!dir) {
        error = QStringLiteral("cannot list %1: %2").arg(folder, QString::fromLocal8Bit(strerror(errno)));
        return std::nullopt;
    }
    QStringList names;
    while (const dirent* entry = ::readdir(dir)) {
        const QByteArray name(entry->d_name);
        if (name != "." && name != "..")
            names << QFile::decodeName(name);
    }
    ::closedir(dir);
    names.sort();
    return names;
}

QString joined(const QString& folder, const QString& name)
{
    return folder.endsWith('/') ? folder + name : folder + '/' + name;
}

// The root before the job: what the upper layer held when the job started (the sandbox's own mount
// points), else the overlay's lower layers, top first.
class LowerRoot
{
public:
    LowerRoot(QStringList layers, QHash<QString, profile::Entry> atStart)
        : m_layers(std::move(layers)), m_atStart(std::move(atStart))
    {
    }

    // True when the path is as it was at the job's start (the size counts for files).
    bool unchangedSinceStart(const QString& path, const Before& now) const
    {
        const auto it = m_atStart.constFind(path);
        return it != m_atStart.constEnd() && sameAttributes(now, startOf(*it)) && now.size == it->size;
    }

    std::optional<Before> find(const QString& path) const
    {
        const auto it = m_atStart.constFind(path);
        if (it != m_atStart.constEnd())
            return startOf(*it);
        const auto found = lookUp(path);
        if (!found)
            return std::nullopt;
        const QString at = found->first() + path;
        const auto info = lstatOf(at);
        return info ? std::optional<Before>(describe(at, *info)) : std::nullopt;
    }

    // The names a folder had (what a whiteout or an opaque folder hid left out).
    QStringList names(const QString& path) const
    {
        QSet<QString> all;
        if (const auto found = lookUp(path)) {
            for (const QString& layer : *found) {
                QString ignored;
                if (const auto names = namesIn(layer + path, ignored))
                    for (const QString& name : *names)
                        if (!all.contains(name) && lookUp(joined(path, name)))
                            all.insert(name);
            }
        }
        QStringList sorted = all.values();
        sorted.sort();
        return sorted;
    }

private:
    static Before startOf(const profile::Entry& e)
    {
        return {e.kind, e.mode, e.uid, e.gid, e.size, e.target};
    }

    // The path as the overlay merges the layers, one name at a time and never through a link: the
    // layers that make it up, top first (a folder may span several; anything else is the top one's).
    // Nothing when it is absent or hidden by a whiteout.
    std::optional<QStringList> lookUp(const QString& path) const
    {
        QStringList layers = m_layers;
        QString at;
        bool folder = true; // what `at` names so far
        for (const QString& name : path.split(QLatin1Char('/'), Qt::SkipEmptyParts)) {
            if (!folder)
                return std::nullopt; // a name below something that is not a folder
            at += QLatin1Char('/') + name;
            QStringList below;
            for (const QString& layer : layers) {
                const auto info = lstatOf(layer + at);
                if (!info)
                    continue;
                if (isWhiteout(*info))
                    break;
                if (!S_ISDIR(info->st_mode)) {
                    if (below.isEmpty()) {
                        below << layer;
                        folder = false;
                    }
                    break;
                }
                below << layer;
                if (isOpaque(layer + at))
                    break;
            }
            if (below.isEmpty())
                return std::nullopt;
            layers = below;
        }
        return layers;
    }

    QStringList m_layers;
    QHash<QString, profile::Entry> m_atStart;
};

class UpperReader
{
public:
    UpperReader(QString upper, const LowerRoot& lower) : m_upper(std::move(upper)), m_lower(lower) {}

    bool read(QVector<Node>& nodes, QString& error)
    {
        const auto root = lstatOf(m_upper);
        if (!root || !S_ISDIR(root->st_mode)) {
            error = QStringLiteral("%1 is not a folder: no root layer to read").arg(m_upper);
            return false;
        }
        if (!visit(QStringLiteral("/"), *root, false, nodes, error))
            return false;
        std::sort(nodes.begin(), nodes.end(), [](const Node& a, const Node& b) { return a.path < b.path; });
        return true;
    }

private:
    QString upperPath(const QString& path) const { return path == "/" ? m_upper : m_upper + path; }

    // One path of the upper layer; `hidden` when an opaque folder above hides what the root had below it.
    bool visit(const QString& path, const struct stat& info, bool hidden, QVector<Node>& nodes,
               QString& error)
    {
        const QString at = upperPath(path);
        const auto before = m_lower.find(path);
        if (isWhiteout(info)) {
            addRemoved(path, nodes);
            return true;
        }
        const Before now = describe(at, info);
        Node node{path, false, now.kind, now.mode, now.uid, now.gid, now.size, now.target, {}, before};
        if (now.kind == Kind::File) {
            const auto hash = contentHash(at);
            if (!hash) {
                error = QStringLiteral("cannot read %1: %2").arg(at, QString::fromLocal8Bit(strerror(errno)));
                return false;
            }
            node.sha256 = *hash;
        }
        // A folder is there for what changed below it unless it is new or itself changed.
        const bool listed = now.kind == Kind::Directory ? !before || !sameAttributes(now, *before)
                                                        : !m_lower.unchangedSinceStart(path, now);
        if (listed)
            nodes << node;
        if (now.kind != Kind::Directory)
            return true;

        hidden = hidden || isOpaque(at);
        const auto names = namesIn(at, error);
        if (!names)
            return false;
        for (const QString& name : *names) {
            const auto child = lstatOf(joined(at, name));
            if (!child) {
                error = QStringLiteral("cannot read %1: %2")
                            .arg(joined(at, name), QString::fromLocal8Bit(strerror(errno)));
                return false;
            }
            if (!visit(joined(path, name), *child, hidden, nodes, error))
                return false;
        }
        if (hidden) {
            // What the root had here and the upper layer does not show is gone.
            for (const QString& name : m_lower.names(path))
                if (!names->contains(name))
                    addRemoved(joined(path, name), nodes);
        }
        return true;
    }

    // A path the root had is gone, and with a folder everything the root had below it.
    void addRemoved(const QString& path, QVector<Node>& nodes) const
    {
        const auto before = m_lower.find(path);
        if (!before) // a whiteout over nothing only hides a name that never was
            return;
        nodes << removedNode(path, before);
        if (before->kind == Kind::Directory)
            for (const QString& name : m_lower.names(path))
                addRemoved(joined(path, name), nodes);
    }

    static Node removedNode(const QString& path, const std::optional<Before>& before)
    {
        Node node;
        node.path = path;
        node.removed = true;
        if (before) {
            node.kind = before->kind;
            node.mode = before->mode;
            node.uid = before->uid;
            node.gid = before->gid;
            node.size = before->size;
            node.target = before->target;
        }
        node.before = before;
        return node;
    }

    QString m_upper;
    const LowerRoot& m_lower;
};

// Owners as the instrument's root sees them. A sandbox in a user namespace leaves its id maps (as
// /proc/PID/uid_map has them: inside, outside, count) beside the layers, whose owners are the host's.
class IdMap
{
public:
    bool read(const QString& path, QString& error)
    {
        QFile file(path);
        if (!file.exists())
            return true;
        if (!file.open(QIODevice::ReadOnly)) {
            error = QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
            return false;
        }
        for (const QByteArray& line : file.readAll().split('\n')) {
            const QList<QByteArray> f = line.simplified().split(' ');
            if (line.trimmed().isEmpty())
                continue;
            bool ok[3] = {false, false, false};
            const Range r{f.value(0).toUInt(&ok[0]), f.value(1).toUInt(&ok[1]), f.value(2).toUInt(&ok[2])};
            if (f.size() != 3 || !ok[0] || !ok[1] || !ok[2]) {
                error = QStringLiteral("%1: '%2' is not 'inside outside count'")
                            .arg(path, QString::fromUtf8(line));
                return false;
            }
            m_ranges << r;
        }
        return true;
    }

    uint inside(uint hostId) const
    {
        for (const Range& r : m_ranges)
            if (hostId >= r.outside && hostId - r.outside < r.count)
                return r.inside + (hostId - r.outside);
        return m_ranges.isEmpty() ? hostId : 65534; // the overflow id, as the kernel shows an unmapped one
    }

private:
    struct Range
    {
        uint inside, outside, count;
    };
    QVector<Range> m_ranges;
};

QStringList lowerLayers(const QString& stateDir)
{
    QFile file(stateDir + "/lowerdirs");
    if (!file.open(QIODevice::ReadOnly))
        return {QString()}; // the host's root: paths as they are
    QStringList layers = QString::fromUtf8(file.readAll()).trimmed().split(':', Qt::SkipEmptyParts);
    for (QString& layer : layers)
        while (layer.endsWith('/'))
            layer.chop(1);
    return layers;
}

std::optional<QByteArray> readWhole(const QString& path, QString& error)
{
    QFile file(path);
    if (!file.exists())
        return QByteArray();
    if (!file.open(QIODevice::ReadOnly)) {
        error = QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
        return std::nullopt;
    }
    return file.readAll();
}

} // namespace

QString unescaped(const QString& text)
{
    QString out;
    out.reserve(text.size());
    for (int i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size()) {
            ++i;
            out += text[i] == 'n' ? QChar('\n') : text[i];
        } else {
            out += text[i];
        }
    }
    return out;
}

namespace {

QString modeText(uint mode)
{
    return QStringLiteral("%1").arg(mode, 4, 8, QLatin1Char('0'));
}

QString attributesText(Kind kind, uint mode, uint uid, uint gid, qint64 size, const QString& target)
{
    QString text =
        QStringLiteral("%1 %2 %3:%4").arg(profile::kindName(kind), modeText(mode)).arg(uid).arg(gid);
    if (kind == Kind::File)
        text += QStringLiteral(" %1 bytes").arg(size);
    if (kind == Kind::Symlink)
        text += QStringLiteral(" -> %1").arg(profile::escapePath(target));
    return text;
}

QString hashText(const QByteArray& data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex());
}

} // namespace

std::optional<Snapshot> read(const QString& stateDir, QString& error)
{
    if (!lstatOf(stateDir) || !S_ISDIR(lstatOf(stateDir)->st_mode)) {
        error = QStringLiteral("%1 is not a job's state folder").arg(stateDir);
        return std::nullopt;
    }
    Snapshot s;
    QHash<QString, profile::Entry> atStart;
    if (QFile::exists(stateDir + "/rootfs.start")) {
        const auto start = profile::read(stateDir + "/rootfs.start", error);
        if (!start)
            return std::nullopt;
        atStart = start->entries;
    }
    const LowerRoot lower(lowerLayers(stateDir), atStart);
    if (!UpperReader(stateDir + "/rootfs", lower).read(s.root, error))
        return std::nullopt;
    IdMap uids, gids;
    if (!uids.read(stateDir + "/uid_map", error) || !gids.read(stateDir + "/gid_map", error))
        return std::nullopt;
    for (Node& node : s.root) {
        node.uid = uids.inside(node.uid);
        node.gid = gids.inside(node.gid);
        if (node.before) {
            node.before->uid = uids.inside(node.before->uid);
            node.before->gid = gids.inside(node.before->gid);
        }
    }
    for (const char* name : partitionNames) {
        const QString path = stateDir + "/media/" + name;
        if (!QFile::exists(path))
            continue;
        const auto content = readWhole(path, error);
        if (!content)
            return std::nullopt;
        s.partitions.insert(QStringLiteral("/dev/") + name, *content);
    }
    const auto flash = readWhole(stateDir + "/pic/flash", error);
    const auto config = flash ? readWhole(stateDir + "/pic/config", error) : std::nullopt;
    const auto trace = config ? readWhole(stateDir + "/trace.log", error) : std::nullopt;
    const auto view = trace ? readWhole(stateDir + "/view.txt", error) : std::nullopt;
    const auto outcome = view ? readWhole(stateDir + "/outcome", error) : std::nullopt;
    if (!outcome)
        return std::nullopt;
    s.picFlash = *flash;
    s.picConfig = *config;
    for (const QByteArray& line : trace->split('\n'))
        if (!line.isEmpty())
            s.trace << QString::fromUtf8(line);
    s.outcome = QString::fromUtf8(*outcome).trimmed();
    if (s.outcome.isEmpty())
        s.outcome = QStringLiteral("not ended: no outcome recorded");
    s.ended = s.outcome == QLatin1String("ended");
    // The probe saves the view once the job has ended; before that, the trace tells what it held.
    s.view = view->isEmpty() ? viewFromTrace(s.trace) : QString::fromUtf8(*view);
    return s;
}

Snapshot since(const Snapshot& before, const Snapshot& now)
{
    const auto stateOf = [](const Node& n) { return Before{n.kind, n.mode, n.uid, n.gid, n.size, n.target}; };
    const auto same = [&](const Node& a, const Node& b) {
        return a.removed == b.removed && (a.removed || (sameAttributes(stateOf(a), stateOf(b)) &&
                                                        a.size == b.size && a.sha256 == b.sha256));
    };
    QHash<QString, const Node*> earlier;
    for (const Node& n : before.root)
        earlier.insert(n.path, &n);
    Snapshot s = now;
    s.root.clear();
    s.trace = now.trace.mid(before.trace.size());
    if (!now.ended) // no saved view: the trace's, from this job's start
        s.view = viewFromTrace(s.trace);
    QSet<QString> seen;
    for (const Node& n : now.root) {
        seen.insert(n.path);
        const Node* e = earlier.value(n.path);
        if (e && same(*e, n))
            continue;
        Node changed = n;
        if (e) {
            changed.before = e->removed ? std::nullopt : std::optional<Before>(stateOf(*e));
            if (n.removed && !e->removed) { // what was removed is what the earlier job left
                changed = *e;
                changed.removed = true;
                changed.sha256.clear();
                changed.before = stateOf(*e);
            }
        }
        s.root << changed;
    }
    // Back to what the start had: a path an earlier job made and this one removed.
    for (const Node& e : before.root) {
        if (seen.contains(e.path) || e.removed)
            continue;
        Node back = e;
        back.removed = !e.before;
        back.sha256.clear();
        if (e.before) {
            back.kind = e.before->kind;
            back.mode = e.before->mode;
            back.uid = e.before->uid;
            back.gid = e.before->gid;
            back.size = e.before->size;
            back.target = e.before->target;
        }
        back.before = stateOf(e);
        s.root << back;
    }
    std::sort(s.root.begin(), s.root.end(), [](const Node& a, const Node& b) { return a.path < b.path; });
    return s;
}

QString viewFromTrace(const QVector<QString>& trace)
{
    QStringList appends;
    for (const QString& line : trace) {
        if (line.startsWith(QLatin1String("view "))) {
            appends << unescaped(line.section(' ', 2));
        } else if (line == QLatin1String("undo")) {
            if (!appends.isEmpty())
                appends.removeLast();
        } else if (line == QLatin1String("clear")) {
            appends.clear();
        }
    }
    return appends.isEmpty() ? QString() : appends.join('\n') + '\n';
}

QString text(const Snapshot& s)
{
    QString out;
    QTextStream t(&out);
    t << "root: " << s.root.size() << " paths changed\n";
    for (const Node& n : s.root) {
        if (n.removed) {
            t << "  - " << profile::escapePath(n.path) << "  was "
              << (n.before ? attributesText(n.before->kind, n.before->mode, n.before->uid, n.before->gid,
                                            n.before->size, n.before->target)
                           : QStringLiteral("unknown"))
              << '\n';
            continue;
        }
        t << (n.before ? "  ~ " : "  + ") << profile::escapePath(n.path) << "  "
          << attributesText(n.kind, n.mode, n.uid, n.gid, n.size, n.target);
        if (!n.sha256.isEmpty())
            t << " sha256 " << n.sha256.toHex();
        if (n.before && !sameAttributes({n.kind, n.mode, n.uid, n.gid, n.size, n.target}, *n.before))
            t << "  was "
              << attributesText(n.before->kind, n.before->mode, n.before->uid, n.before->gid, n.before->size,
                                n.before->target);
        t << '\n';
    }
    t << "partitions:\n";
    for (auto it = s.partitions.begin(); it != s.partitions.end(); ++it)
        t << "  " << it.key() << "  " << it->size() << " bytes sha256 " << hashText(*it) << '\n';
    if (s.picFlash.isEmpty()) {
        t << "pic: none\n";
    } else {
        const auto programmed = std::count_if(s.picFlash.begin(), s.picFlash.end(),
                                              [](char byte) { return uchar(byte) != 0xFF; });
        t << "pic flash: " << s.picFlash.size() << " bytes, " << programmed << " not erased, sha256 "
          << hashText(s.picFlash) << '\n';
        t << "pic config: " << s.picConfig.toHex(' ') << '\n';
    }
    int commands = 0;
    for (const QString& line : s.trace)
        commands += line.startsWith(QLatin1String("run ")) ? 1 : 0;
    t << "trace: " << s.trace.size() << " lines, " << commands << " commands of the updater\n";
    t << "outcome: " << s.outcome << '\n';
    return out;
}

} // namespace state
