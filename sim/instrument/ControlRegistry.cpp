#include "ControlRegistry.h"

namespace sim {

namespace {
std::string parentOf(const std::string& path)
{
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

} // namespace

ControlRegistry::ControlRegistry()
{
    m_nodes.push_back(Node{"", true, nullptr});
    m_byPath[""] = 0;
}

std::uint64_t ControlRegistry::ensureFolder(const std::string& path)
{
    auto it = m_byPath.find(path);
    if (it != m_byPath.end())
        return it->second;
    ensureFolder(parentOf(path));
    m_nodes.push_back(Node{path, true, nullptr});
    m_byPath[path] = m_nodes.size() - 1;
    return m_nodes.size() - 1;
}

void ControlRegistry::add(const std::string& path, ControlFile file)
{
    auto existing = m_files.find(path);
    if (existing != m_files.end()) {
        *existing->second = std::move(file);
        return;
    }
    ensureFolder(parentOf(path));
    auto stored = std::make_unique<ControlFile>(std::move(file));
    m_nodes.push_back(Node{path, false, stored.get()});
    m_byPath[path] = m_nodes.size() - 1;
    m_files[path] = std::move(stored);
}

const ControlRegistry::Node* ControlRegistry::node(std::uint64_t index) const
{
    return index < m_nodes.size() ? &m_nodes[index] : nullptr;
}

std::optional<std::uint64_t> ControlRegistry::child(std::uint64_t folder, std::string_view name) const
{
    const Node* parent = node(folder);
    if (!parent || !parent->folder)
        return std::nullopt;
    std::string path = parent->path.empty() ? std::string(name) : parent->path + "/" + std::string(name);
    auto it = m_byPath.find(path);
    if (it == m_byPath.end())
        return std::nullopt;
    return it->second;
}

std::vector<std::uint64_t> ControlRegistry::children(std::uint64_t folder) const
{
    std::vector<std::uint64_t> result;
    const Node* parent = node(folder);
    if (!parent || !parent->folder)
        return result;
    for (std::uint64_t i = 1; i < m_nodes.size(); ++i) {
        if (parentOf(m_nodes[i].path) == parent->path)
            result.push_back(i);
    }
    return result;
}

std::string ControlRegistry::listing() const
{
    std::string text;
    for (const auto& [path, file] : m_files) {
        text += path;
        text += file->read ? (file->write ? "  (read/write)" : "  (read)") : "  (write)";
        if (!file->help.empty())
            text += "  " + file->help;
        text += '\n';
    }
    return text;
}

} // namespace sim
