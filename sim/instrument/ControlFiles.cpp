#include "ControlFiles.h"

#include <fcntl.h>

namespace sim {

namespace {

class ControlOpenFile : public OpenFile
{
public:
    ControlOpenFile(const ControlRegistry& registry, std::uint64_t index)
        : m_registry(registry), m_index(index)
    {
    }

    std::string logName() const override { return {}; }

    int read(std::size_t size, std::uint64_t offset, std::string* out) override
    {
        *out = m_snapshot.part(size, offset, file().read);
        return 0;
    }

    int write(std::string_view data, std::uint64_t offset) override
    {
        if (!file().wholeFile)
            return file().write(data);
        const std::size_t at = static_cast<std::size_t>(offset);
        if (m_pending.size() < at + data.size())
            m_pending.resize(at + data.size());
        m_pending.replace(at, data.size(), data);
        m_dirty = true;
        return 0;
    }

    int flush() override
    {
        if (!m_dirty)
            return 0;
        m_dirty = false;
        const int rc = file().write(m_pending);
        m_pending.clear();
        return rc;
    }

private:
    // Looked up on each use: a file may be replaced in the registry while open.
    const ControlFile& file() const { return *m_registry.node(m_index)->file; }

    const ControlRegistry& m_registry;
    std::uint64_t m_index;
    Snapshot m_snapshot;
    std::string m_pending; // whole-file writes, delivered on flush
    bool m_dirty = false;
};

} // namespace

std::optional<Inode> ControlFiles::lookup(Inode parent, std::string_view name)
{
    if (const auto child = m_in.control().child(parent - inode::controlBase, name))
        return inode::controlBase + *child;
    return std::nullopt;
}

bool ControlFiles::attributes(Inode ino, struct stat* st)
{
    const ControlRegistry::Node* n = node(ino);
    if (!n)
        return false;
    if (n->folder)
        setFolder(st);
    else
        setFile(st, (n->file->read ? 0444 : 0) | (n->file->write ? 0200 : 0));
    return true;
}

bool ControlFiles::list(Inode folder, std::vector<DirEntry>* entries)
{
    const ControlRegistry::Node* n = node(folder);
    if (!n || !n->folder)
        return false;
    for (std::uint64_t child : m_in.control().children(folder - inode::controlBase)) {
        const std::string& path = m_in.control().node(child)->path;
        entries->push_back({path.substr(path.rfind('/') + 1), inode::controlBase + child});
    }
    return true;
}

int ControlFiles::open(Inode ino, int flags, std::unique_ptr<OpenFile>* file)
{
    const ControlRegistry::Node* n = node(ino);
    if (!n || n->folder)
        return n ? -EISDIR : -ENOENT;
    const int access = flags & O_ACCMODE;
    if ((access != O_WRONLY && !n->file->read) || (access != O_RDONLY && !n->file->write))
        return -EACCES;
    *file = std::make_unique<ControlOpenFile>(m_in.control(), ino - inode::controlBase);
    return 0;
}

int ControlFiles::truncate(Inode ino)
{
    const ControlRegistry::Node* n = node(ino);
    if (n && !n->folder && n->file->write && !n->file->wholeFile)
        return n->file->write({});
    return 0;
}

} // namespace sim
