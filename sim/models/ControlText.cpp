#include "ControlText.h"

namespace sim {

std::optional<std::uint64_t> parseNumber(std::string_view word, int base, std::uint64_t max)
{
    if (base == 0) {
        const bool hex = word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X');
        if (hex)
            word.remove_prefix(2);
        base = hex ? 16 : 10;
    }
    if (word.empty())
        return std::nullopt;
    std::uint64_t value = 0;
    for (const char c : word) {
        int digit = base;
        if (c >= '0' && c <= '9')
            digit = c - '0';
        else if (c >= 'a' && c <= 'f')
            digit = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F')
            digit = c - 'A' + 10;
        if (digit >= base ||
            value > (max - static_cast<std::uint64_t>(digit)) / static_cast<std::uint64_t>(base))
            return std::nullopt;
        value = value * static_cast<std::uint64_t>(base) + static_cast<std::uint64_t>(digit);
    }
    return value;
}

std::string hexBytes(const std::uint8_t* data, std::size_t size)
{
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(size * 3);
    for (std::size_t i = 0; i < size; ++i) {
        if (i)
            text += ' ';
        text += digits[data[i] >> 4];
        text += digits[data[i] & 0x0F];
    }
    return text;
}

} // namespace sim
