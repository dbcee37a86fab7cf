#pragma once
// A serial line with a speed: wraps the device on the far end so that every byte takes its time on the
// wire in both directions (10 bit times per byte for 8N1). The device gets the host's bytes only once
// they have fully arrived, and its answers reach the host byte by byte at the same rate. Both directions
// run at once (full duplex); a byte waits only for the one before it in its own direction.

#include "SerialPeer.h"

#include <cstdint>
#include <deque>
#include <memory>

namespace sim {

class PacedLine : public SerialPeer
{
public:
    PacedLine(std::unique_ptr<SerialPeer> device, std::uint64_t bytesPerSecond);

    std::string received(std::string_view bytes, std::uint64_t nowNs) override;
    std::optional<std::uint64_t> nextDeadline() const override;
    std::string timer(std::uint64_t nowNs) override;
    void reset() override;

    std::uint64_t byteNs() const { return m_byteNs; }

private:
    struct TimedByte
    {
        std::uint64_t at; // when its stop bit has passed
        char byte;
    };

    void toHost(std::string_view bytes, std::uint64_t fromNs);

    std::unique_ptr<SerialPeer> m_device;
    std::uint64_t m_byteNs;
    std::deque<TimedByte> m_toDevice;
    std::deque<TimedByte> m_toHost;
    std::uint64_t m_toDeviceFree = 0; // when the host->device direction is idle again
    std::uint64_t m_toHostFree = 0;
};

} // namespace sim
