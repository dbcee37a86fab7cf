#include "RootModel.h"

#include <QCryptographicHash>

namespace rootfs {

QString errorText(Err err)
{
    switch (err) {
    case Err::None:
        return QString();
    case Err::NoEnt:
        return QStringLiteral("No such file or directory");
    case Err::NotDir:
        return QStringLiteral("Not a directory");
    case Err::IsDir:
        return QStringLiteral("Is a directory");
    case Err::Loop:
        return QStringLiteral("Too many levels of symbolic links");
    case Err::ReadOnly:
        return QStringLiteral("Read-only file system");
    case Err::Exists:
        return QStringLiteral("File exists");
    case Err::NotEmpty:
        return QStringLiteral("Directory not empty");
    case Err::TextBusy:
        return QStringLiteral("Text file busy");
    case Err::Access:
        return QStringLiteral("Permission denied");
    case Err::NoExec:
        return QStringLiteral("Exec format error");
    }
    return QString();
}

bool sameState(const Node& a, const Node& b)
{
    if (!a || !b)
        return !a && !b;
    if (a == b)
        return true;
    return a->kind == b->kind && a->mode == b->mode && a->uid == b->uid && a->gid == b->gid &&
           a->target == b->target &&
           (a->kind != Kind::File || (a->known == b->known && a->size == b->size && a->sha256 == b->sha256));
}

QString parentOf(const QString& path)
{
    const int slash = path.lastIndexOf('/');
    return slash <= 0 ? QStringLiteral("/") : path.left(slash);
}

QString join(const QString& folder, const QString& name)
{
    return folder == QLatin1String("/") ? '/' + name : folder + '/' + name;
}

Node fileNode(const QByteArray& data, uint mode, uint uid, uint gid)
{
    auto node = std::make_shared<Inode>();
    node->kind = Kind::File;
    node->mode = mode;
    node->uid = uid;
    node->gid = gid;
    node->size = data.size();
    node->data = data;
    node->sha256 = QCryptographicHash::hash(data, QCryptographicHash::Sha256);
    node->known = true;
    return node;
}

Node folderNode(uint mode, uint uid, uint gid)
{
    auto node = std::make_shared<Inode>();
    node->kind = Kind::Directory;
    node->mode = mode;
    node->uid = uid;
    node->gid = gid;
    return node;
}

Node linkNode(const QString& target, uint uid, uint gid)
{
    auto node = std::make_shared<Inode>();
    node->kind = Kind::Symlink;
    node->mode = 0777;
    node->uid = uid;
    node->gid = gid;
    node->target = target;
    node->size = target.toUtf8().size();
    return node;
}

Tree::Tree(const profile::Profile& profile)
{
    for (const profile::Entry& e : profile.entries) {
        auto node = std::make_shared<Inode>();
        node->kind = e.kind;
        node->mode = e.mode;
        node->uid = e.uid;
        node->gid = e.gid;
        node->size = e.size;
        node->target = e.target;
        node->running = e.path == profile.updater;
        static const QStringList programFolders{"/usr/bin/", "/usr/sbin/", "/bin/", "/sbin/"};
        if (e.kind == Kind::File && (e.mode & 0111) &&
            std::any_of(programFolders.begin(), programFolders.end(),
                        [&](const QString& folder) { return parentOf(e.path) + '/' == folder; }))
            node->program = e.path.mid(e.path.lastIndexOf('/') + 1);
        m_nodes.insert(e.path, node);
    }
    // The memory file systems start empty whatever the listing says below them.
    for (auto it = profile.mounts.begin(); it != profile.mounts.end(); ++it) {
        m_mounts.insert(it.key(), it.value());
        if (!m_nodes.contains(it.key()))
            m_nodes.insert(it.key(), folderNode(it.key() == QLatin1String("/tmp") ? 01777 : 0755));
    }
    m_original = m_profile = m_nodes;
}

void Tree::startHere()
{
    m_original = m_nodes;
    m_changed.clear();
    m_touched.clear();
    m_line = 0;
}

bool Tree::writable(const QString& path) const
{
    QString mount = path;
    for (;;) {
        const auto it = m_mounts.constFind(mount);
        if (it != m_mounts.constEnd())
            return *it;
        if (mount == QLatin1String("/"))
            return false;
        mount = parentOf(mount);
    }
}

void Tree::setWritable(const QString& mountPoint, bool writable)
{
    m_mounts.insert(mountPoint, writable);
}

Lookup Tree::resolve(const QString& path, bool follow, const QString& cwd) const
{
    Lookup result;
    if (path.isEmpty()) {
        result.err = Err::NoEnt;
        return result;
    }
    result.trailingSlash = path.size() > 1 && path.endsWith('/');
    QStringList pending = path.split('/', Qt::SkipEmptyParts);
    QString current = path.startsWith('/') ? QStringLiteral("/") : cwd;
    int links = 0;
    if (pending.isEmpty()) {
        result.path = current;
        result.node = at(current);
        return result;
    }
    while (!pending.isEmpty()) {
        const QString name = pending.takeFirst();
        const bool last = pending.isEmpty();
        QString next;
        if (name == QLatin1String("."))
            next = current;
        else if (name == QLatin1String(".."))
            next = parentOf(current);
        else
            next = join(current, name);
        const Node node = at(next);
        if (!node) {
            result.err = last ? Err::None : Err::NoEnt;
            result.path = next;
            return result;
        }
        if (node->kind == Kind::Symlink && (!last || follow || result.trailingSlash)) {
            if (++links > 40 || node->target.isEmpty()) {
                result.err = node->target.isEmpty() ? Err::NoEnt : Err::Loop;
                result.path = next;
                return result;
            }
            pending = node->target.split('/', Qt::SkipEmptyParts) + pending;
            if (node->target.startsWith('/'))
                current = QStringLiteral("/");
            if (pending.isEmpty()) { // a link to "/"
                result.path = current;
                result.node = at(current);
                return result;
            }
            continue;
        }
        if (!last) {
            if (node->kind != Kind::Directory) {
                result.err = Err::NotDir;
                result.path = next;
                return result;
            }
            current = next;
            continue;
        }
        result.path = next;
        result.node = node;
        if (result.trailingSlash && node->kind != Kind::Directory)
            result.err = Err::NotDir;
    }
    return result;
}

bool Tree::resolvedAtStart(const QString& path) const
{
    Tree start = *this;
    start.m_nodes = m_profile;
    const Lookup l = start.resolve(path, true);
    return l.err == Err::None && l.node;
}

void Tree::set(const QString& path, const Node& node)
{
    m_nodes.insert(path, node);
    m_changed.insert(path, m_line);
    m_touched << path;
}

void Tree::remove(const QString& path)
{
    if (m_nodes.remove(path) > 0) {
        m_changed.insert(path, m_line);
        m_touched << path;
    }
}

QStringList Tree::takeTouched()
{
    QStringList out = m_touched;
    out.removeDuplicates();
    m_touched.clear();
    return out;
}

void Tree::replaceInode(const Node& old, const Node& replacement)
{
    for (auto it = m_nodes.begin(); it != m_nodes.end(); ++it) {
        if (it.value() == old) {
            it.value() = replacement;
            m_changed.insert(it.key(), m_line);
            m_touched << it.key();
        }
    }
}

QStringList Tree::below(const QString& folder) const
{
    const QString prefix = folder == QLatin1String("/") ? folder : folder + '/';
    QStringList out;
    for (auto it = m_nodes.lowerBound(prefix); it != m_nodes.end() && it.key().startsWith(prefix); ++it) {
        if (it.key() != folder)
            out << it.key();
    }
    // Sorted by path, a folder comes before its entries: the deepest paths sort last by depth below.
    std::stable_sort(out.begin(), out.end(),
                     [](const QString& a, const QString& b) { return a.count('/') < b.count('/'); });
    return out;
}

QStringList Tree::children(const QString& folder) const
{
    QStringList out;
    const int depth = folder == QLatin1String("/") ? 1 : folder.count('/') + 1;
    for (const QString& path : below(folder)) {
        if (path.count('/') == depth)
            out << path;
    }
    return out;
}

} // namespace rootfs
