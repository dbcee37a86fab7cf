#pragma once
// A bank of GPIO lines with sysfs semantics, and the attach point for device models.
// Pure model: no I/O. Time is passed in by the caller (monotonic nanoseconds).

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

enum class Direction
{
    In,
    Out
};

struct LineState
{
    Direction direction = Direction::In;
    bool hostLevel = false; // level the host drives while the line is an output
    std::uint64_t valueWrites = 0;
    std::uint64_t valueReads = 0;
    std::uint64_t directionWrites = 0;
    std::uint64_t rejectedWrites = 0; // value or direction writes refused with an error
};

// A device wired to some lines of the bank (for example a PIC's ICSP pins).
class GpioDevice
{
public:
    virtual ~GpioDevice() = default;
    // The host changed an attached line: a new driven level or a new direction. Called for every
    // accepted value or direction write (also one that repeats the level) and when an unexport
    // releases a line (it then arrives as an input).
    virtual void lineChanged(int line, const LineState& state, std::uint64_t nowNs) = 0;
    // The level the device puts on an attached line, or nothing when it leaves the line undriven.
    virtual std::optional<bool> drivenLevel(int line, std::uint64_t nowNs) = 0;
};

// Totals over the bank's whole life (per-line counters start again with each export).
struct BankTotals
{
    std::uint64_t exports = 0;
    std::uint64_t unexports = 0;
    std::uint64_t valueWrites = 0;
    std::uint64_t valueReads = 0;
    std::uint64_t directionWrites = 0;
    std::uint64_t rejected = 0; // every operation answered with an error
};

class GpioLineBank
{
public:
    // Each operation returns 0 or a negative errno value, as the sysfs file would.
    int exportLine(int line); // -EBUSY when already exported, -EINVAL for a line outside the bank
    int unexportLine(int line, std::uint64_t nowNs = 0); // -EINVAL when not exported
    // The export/unexport files take the number as text, parsed like the kernel does (see parseInteger).
    int exportLine(std::string_view text);
    int unexportLine(std::string_view text, std::uint64_t nowNs = 0);
    int writeDirection(int line, std::string_view text, std::uint64_t nowNs); // in, out, high, low
    int writeValue(int line, std::string_view text, std::uint64_t nowNs);     // -EPERM on an input
    // The level as sysfs reads it: the driven level of an output; for an input the attached device's
    // level, or 1 (pulled up) when nothing drives it.
    bool level(int line, std::uint64_t nowNs);
    std::string readValue(int line, std::uint64_t nowNs); // "0\n" or "1\n"; counts a read
    std::string readDirection(int line) const;            // "in\n" or "out\n"

    bool isExported(int line) const;
    const LineState* state(int line) const; // null when not exported
    std::vector<int> exportedLines() const;
    const BankTotals& totals() const { return m_totals; }

    // Unexports every line (attached devices see their lines released) and zeroes the totals.
    void reset(std::uint64_t nowNs);

    void attach(const std::vector<int>& lines, GpioDevice* device);
    GpioDevice* deviceAt(int line) const; // null when nothing is attached

    // Integer text as sysfs attributes take it: optional sign, 0x/0 prefixes for hex/octal, one
    // optional trailing newline; nothing else.
    static std::optional<long> parseInteger(std::string_view text);

    static constexpr int maxLine = 511;

private:
    int refuse(int error);
    void notify(int line, const LineState& state, std::uint64_t nowNs);

    std::map<int, LineState> m_lines;
    std::map<int, GpioDevice*> m_devices;
    BankTotals m_totals;
};

} // namespace sim
