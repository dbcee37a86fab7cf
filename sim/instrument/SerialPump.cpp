#include "SerialPump.h"

#include <fcntl.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace sim {

SerialPump::~SerialPump()
{
    for (int fd : {m_master, m_slave}) {
        if (fd >= 0)
            ::close(fd);
    }
}

bool SerialPump::open(std::string* slavePath, std::string* error)
{
    char name[256] = {};
    if (openpty(&m_master, &m_slave, name, nullptr, nullptr) != 0) {
        *error = std::string("cannot open a pseudo-terminal: ") + std::strerror(errno);
        return false;
    }
    // Raw from the start, so nothing is echoed or translated before the updater sets the line up.
    termios tio{};
    tcgetattr(m_slave, &tio);
    cfmakeraw(&tio);
    tcsetattr(m_slave, TCSANOW, &tio);
    fcntl(m_master, F_SETFL, fcntl(m_master, F_GETFL) | O_NONBLOCK);
    fcntl(m_master, F_SETFD, FD_CLOEXEC);
    fcntl(m_slave, F_SETFD, FD_CLOEXEC);
    *slavePath = name;
    return true;
}

pollfd SerialPump::pollEntry() const
{
    if (m_master < 0)
        return {-1, 0, 0};
    return {m_master, short(POLLIN | (m_out.empty() ? 0 : POLLOUT)), 0};
}

// Nanosecond resolution: a paced line releases bytes every 87 us at 115200 baud, and a wake-up rounded to
// whole milliseconds would slow it noticeably.
bool SerialPump::timeout(timespec* timeout) const
{
    const SerialPeer* peer = m_in.serialPeer();
    if (m_master < 0 || !peer)
        return false;
    const auto deadline = peer->nextDeadline();
    if (!deadline)
        return false;
    const std::uint64_t now = Instrument::nowNs();
    const std::uint64_t wait = *deadline <= now ? 0 : std::min<std::uint64_t>(*deadline - now, 60000000000u);
    timeout->tv_sec = static_cast<time_t>(wait / 1000000000u);
    timeout->tv_nsec = static_cast<long>(wait % 1000000000u);
    return true;
}

void SerialPump::serve(short revents)
{
    if (revents & POLLIN) {
        char buf[4096];
        const ssize_t n = ::read(m_master, buf, sizeof buf);
        // Without a peer the line is a sink, so the updater's writes never block.
        SerialPeer* peer = m_in.serialPeer();
        if (n > 0 && peer)
            send(peer->received(std::string_view(buf, static_cast<std::size_t>(n)), Instrument::nowNs()));
    }
    if ((revents & POLLOUT) && !m_out.empty())
        send({});
    if (SerialPeer* peer = m_in.serialPeer()) {
        const auto deadline = peer->nextDeadline();
        const std::uint64_t now = Instrument::nowNs();
        if (deadline && *deadline <= now)
            send(peer->timer(now));
    }
}

void SerialPump::flush()
{
    m_out.clear();
    if (m_master >= 0) {
        tcflush(m_master, TCIFLUSH);
        tcflush(m_slave, TCIFLUSH);
    }
}

void SerialPump::send(const std::string& bytes)
{
    m_out += bytes;
    while (!m_out.empty()) {
        const ssize_t n = ::write(m_master, m_out.data(), m_out.size());
        if (n <= 0)
            break; // full: poll waits for room
        m_out.erase(0, static_cast<std::size_t>(n));
    }
}

} // namespace sim
