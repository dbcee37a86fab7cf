#include "OperationLog.h"

#include "DeviceFiles.h"
#include "Instrument.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace sim {

std::uint32_t OperationLog::fileId(std::string_view name)
{
    const auto it = std::find(m_files.begin(), m_files.end(), name);
    if (it != m_files.end())
        return static_cast<std::uint32_t>(it - m_files.begin());
    m_files.emplace_back(name);
    return static_cast<std::uint32_t>(m_files.size() - 1);
}

std::string OperationLog::transferLine(Transfer kind, std::string_view file, std::string_view bytes,
                                       std::uint64_t offset, int error) const
{
    std::string line(kind == Transfer::Read ? "read " : "write ");
    line += file;
    if (kind == Transfer::Read && error) // a failed read moved nothing
        return line + failureText(error);
    if (kind == Transfer::Read && offset)
        line += " @" + std::to_string(offset);
    return line + " " + Instrument::quote(bytes) + failureText(error);
}

void OperationLog::push(const Record& record)
{
    m_records.push_back(record);
    if (m_records.size() <= m_limit)
        return;
    if (m_records.front().text)
        m_texts.pop_front();
    m_records.pop_front();
    ++m_dropped;
}

void OperationLog::add(std::string line)
{
    m_texts.push_back(std::move(line));
    Record record;
    record.text = true;
    push(record);
}

void OperationLog::addTransfer(Transfer kind, std::uint32_t file, std::string_view bytes,
                               std::uint64_t offset, int error)
{
    if (bytes.size() > inlineBytes || offset > std::numeric_limits<std::uint32_t>::max() || error < 0 ||
        error > std::numeric_limits<std::uint16_t>::max()) {
        add(transferLine(kind, m_files.at(file), bytes, offset, error));
        return;
    }
    Record record;
    record.file = file;
    record.offset = static_cast<std::uint32_t>(offset);
    record.error = static_cast<std::uint16_t>(error);
    record.kind = kind;
    record.size = static_cast<std::uint8_t>(bytes.size());
    std::memcpy(record.bytes, bytes.data(), bytes.size());
    push(record);
}

std::string OperationLog::text() const
{
    std::string text;
    if (m_dropped)
        text = "(" + std::to_string(m_dropped) + " older lines dropped)\n";
    auto nextText = m_texts.begin();
    for (const Record& r : m_records) {
        if (r.text)
            text += *nextText++;
        else
            text +=
                transferLine(r.kind, m_files[r.file], std::string_view(r.bytes, r.size), r.offset, r.error);
        text += '\n';
    }
    return text;
}

void OperationLog::clear()
{
    m_records.clear();
    m_texts.clear();
    m_dropped = 0;
}

} // namespace sim
