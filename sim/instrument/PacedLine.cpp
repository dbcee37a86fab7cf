#include "PacedLine.h"

#include <algorithm>

namespace sim {

PacedLine::PacedLine(std::unique_ptr<SerialPeer> device, std::uint64_t bytesPerSecond)
    : m_device(std::move(device)), m_byteNs((1000000000u + bytesPerSecond / 2) / bytesPerSecond)
{
}

std::string PacedLine::received(std::string_view bytes, std::uint64_t nowNs)
{
    for (char byte : bytes) {
        m_toDeviceFree = std::max(m_toDeviceFree, nowNs) + m_byteNs;
        m_toDevice.push_back({m_toDeviceFree, byte});
    }
    return {};
}

void PacedLine::toHost(std::string_view bytes, std::uint64_t fromNs)
{
    for (char byte : bytes) {
        m_toHostFree = std::max(m_toHostFree, fromNs) + m_byteNs;
        m_toHost.push_back({m_toHostFree, byte});
    }
}

void PacedLine::reset()
{
    m_toDevice.clear();
    m_toHost.clear();
    m_toDeviceFree = m_toHostFree = 0;
    m_device->reset();
}

std::optional<std::uint64_t> PacedLine::nextDeadline() const
{
    std::optional<std::uint64_t> next = m_device->nextDeadline();
    for (const auto* queue : {&m_toDevice, &m_toHost}) {
        if (!queue->empty() && (!next || queue->front().at < *next))
            next = queue->front().at;
    }
    return next;
}

std::string PacedLine::timer(std::uint64_t nowNs)
{
    // The device sees what has arrived by now, stamped with the time the last byte of it arrived, so
    // a late wake-up here does not delay its answer on the simulated wire.
    std::string arrived;
    std::uint64_t arrivedAt = 0;
    while (!m_toDevice.empty() && m_toDevice.front().at <= nowNs) {
        arrived += m_toDevice.front().byte;
        arrivedAt = m_toDevice.front().at;
        m_toDevice.pop_front();
    }
    if (!arrived.empty())
        toHost(m_device->received(arrived, arrivedAt), arrivedAt);

    if (const auto due = m_device->nextDeadline(); due && *due <= nowNs)
        toHost(m_device->timer(nowNs), *due);

    std::string out;
    while (!m_toHost.empty() && m_toHost.front().at <= nowNs) {
        out += m_toHost.front().byte;
        m_toHost.pop_front();
    }
    return out;
}

} // namespace sim
