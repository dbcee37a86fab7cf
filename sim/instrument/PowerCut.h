#pragma once
// A power cut at a GPIO line change (control/cut), for the risk of a PIC step: armed with N, the first N
// line changes from then on (accepted value or direction writes) are made and the next is not; from there
// the power is off, nothing reaches a device any more and the server stops the process that wrote. The
// device models keep what they had done up to the cut (a PIC's erased blocks and programmed rows).

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sim {

class PowerCut
{
public:
    // A line change is about to be made: false when the power is off, and then it is not made.
    bool lineChange();
    bool isOff() const { return m_off; }
    std::uint64_t changes() const { return m_changes; }

    // The control file: reads "changes N" and "armed N" or "cut N"; takes "after N" or "off".
    std::string text() const;
    int write(std::string_view text); // 0 or -EINVAL
    void reset();                     // power on, not armed, no change counted

private:
    std::optional<std::uint64_t> m_after;
    std::uint64_t m_changes = 0;
    bool m_off = false;
};

} // namespace sim
