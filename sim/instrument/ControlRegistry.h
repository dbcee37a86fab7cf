#pragma once
// The instrument's control files: a table of paths (with '/' for subfolders, e.g. "pic/flash") to a read
// callback and a write callback. The file system shows them under control/; tests and tools use them to
// look inside the models and to steer them.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

struct ControlFile
{
    // Produces the whole content; called when a reader starts at offset 0. Empty: not readable.
    std::function<std::string()> read;
    // Takes written bytes; returns 0 or a negative errno value. Empty: not writable.
    std::function<int(std::string_view)> write;
    // false: every write() call goes to the callback on its own (like sysfs, offsets ignored);
    // true: the bytes are collected by offset and handed over once when the file is closed.
    bool wholeFile = false;
    std::string help; // one line for the README-style listing in control/help
};

class ControlRegistry
{
public:
    // Adds or replaces a file. Folders on the way are implied by the path.
    void add(const std::string& path, ControlFile file);

    struct Node
    {
        std::string path; // "" for the control folder itself
        bool folder = false;
        const ControlFile* file = nullptr;
    };

    // Nodes are numbered from 0 (the control folder); numbers stay stable while files are added.
    const Node* node(std::uint64_t index) const;
    std::uint64_t size() const { return m_nodes.size(); }
    std::optional<std::uint64_t> child(std::uint64_t folder, std::string_view name) const;
    std::vector<std::uint64_t> children(std::uint64_t folder) const;
    std::string listing() const; // "path  help" per file

    ControlRegistry();

private:
    std::uint64_t ensureFolder(const std::string& path);

    std::vector<Node> m_nodes;
    std::map<std::string, std::uint64_t> m_byPath;
    std::map<std::string, std::unique_ptr<ControlFile>> m_files;
};

} // namespace sim
