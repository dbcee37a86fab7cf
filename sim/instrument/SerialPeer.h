#pragma once
// The device on the far end of the simulated serial line (/dev/ttyS1). The server owns the pty master:
// it hands every chunk the updater wrote to received() and sends back what the peer returns. Paced
// output (a reply dribbled out over time, a frame sent on its own) goes through the timer hook.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sim {

class SerialPeer
{
public:
    virtual ~SerialPeer() = default;
    // Bytes that arrived from the updater; returns bytes to send back at once (may be empty).
    virtual std::string received(std::string_view bytes, std::uint64_t nowNs) = 0;
    // Absolute monotonic time at which timer() wants to run next, or nothing.
    virtual std::optional<std::uint64_t> nextDeadline() const { return std::nullopt; }
    // Called at or after the deadline; returns bytes to send.
    virtual std::string timer(std::uint64_t nowNs)
    {
        (void)nowNs;
        return {};
    }
    // control/reset: drop whatever is still on its way (queued replies, bytes on the wire), so that
    // nothing from before the reset reaches the host after it.
    virtual void reset() {}
};

} // namespace sim
