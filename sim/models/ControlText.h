#pragma once
// Numbers and bytes as the simulator's text spells them (control files, logs, options). Everything parses
// and prints through these, so a value reads back the way it was written.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sim {

// A whole word as an unsigned number: decimal, or hexadecimal with a 0x prefix (base 0), or plain digits
// of the given base. Empty words, stray characters and values above `max` give nothing.
std::optional<std::uint64_t> parseNumber(std::string_view word, int base = 0, std::uint64_t max = UINT64_MAX);

// "0a ff 10": two lower-case digits a byte, one blank between bytes.
std::string hexBytes(const std::uint8_t* data, std::size_t size);
inline std::string hexBytes(std::string_view bytes)
{
    return hexBytes(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

} // namespace sim
