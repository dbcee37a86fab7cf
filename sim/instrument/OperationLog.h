#pragma once
// The instrument's operation log: one line per file operation on the simulated devices, oldest first,
// the last `limit` of them. A PIC run makes millions of GPIO reads and writes, so those are kept as small
// fixed records and spelled out only when someone reads the log; other operations are kept as text.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

class OperationLog
{
public:
    enum class Transfer : std::uint8_t
    {
        Read,
        Write
    };

    // A file as the log names it ("gpio5/value"), kept once; transfers refer to it by this number.
    std::uint32_t fileId(std::string_view name);

    void add(std::string line);
    // "read NAME[ @OFFSET] "BYTES"", "read NAME -> ERROR" or "write NAME "BYTES"[ -> ERROR]": the bytes
    // moved (read) or offered (write), error 0 for success.
    void addTransfer(Transfer kind, std::uint32_t file, std::string_view bytes, std::uint64_t offset,
                     int error);

    std::string text() const; // one line each, "(N older lines dropped)" first when the limit dropped some
    void clear();
    void setLimit(std::size_t lines) { m_limit = lines; }

private:
    static constexpr std::size_t inlineBytes = 12;

    // 24 bytes: a whole GPIO read or write without an allocation.
    struct Record
    {
        std::uint32_t file = 0;
        std::uint32_t offset = 0;
        std::uint16_t error = 0;
        bool text = false; // the line is the next one of m_texts
        Transfer kind = Transfer::Read;
        std::uint8_t size = 0;
        char bytes[inlineBytes] = {};
    };

    std::string transferLine(Transfer kind, std::string_view file, std::string_view bytes,
                             std::uint64_t offset, int error) const;
    void push(const Record& record);

    std::deque<Record> m_records;
    std::deque<std::string> m_texts; // the text lines of m_records, in the same order
    std::vector<std::string> m_files;
    std::size_t m_limit = 1000000;
    std::uint64_t m_dropped = 0;
};

} // namespace sim
