#include "DeviceFiles.h"

#include "Instrument.h"

#include <fcntl.h>

#include <algorithm>

namespace sim {

void setFolder(struct stat* st)
{
    st->st_mode = S_IFDIR | 0755;
    st->st_nlink = 2;
}

void setFile(struct stat* st, mode_t mode, off_t size)
{
    st->st_mode = S_IFREG | mode;
    st->st_size = size;
}

std::string failureText(int error)
{
    return error ? " -> " + Instrument::errorName(error) : "";
}

std::string accessName(int flags)
{
    switch (flags & O_ACCMODE) {
    case O_RDONLY:
        return "rdonly";
    case O_WRONLY:
        return "wronly";
    default:
        return "rdwr";
    }
}

std::string_view Snapshot::part(std::size_t size, std::uint64_t offset,
                                const std::function<std::string()>& produce)
{
    if (offset == 0 || !m_taken) {
        m_text = produce();
        m_taken = true;
    }
    const std::size_t from = std::min<std::uint64_t>(m_text.size(), offset);
    return std::string_view(m_text).substr(from, size);
}

} // namespace sim
