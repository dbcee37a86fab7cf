#pragma once
// The serial line: a raw pseudo-terminal whose slave plays /dev/ttyS1. Bytes from the master go to the
// instrument's serial peer, its answers (at once or at its deadlines) back to the master; without a peer
// the line is a sink. The server keeps the slave open so the line survives the updater closing it.

#include "Instrument.h"

#include <poll.h>

#include <ctime>
#include <string>

namespace sim {

class SerialPump
{
public:
    explicit SerialPump(Instrument& instrument) : m_in(instrument) {}
    ~SerialPump();
    SerialPump(const SerialPump&) = delete;
    SerialPump& operator=(const SerialPump&) = delete;

    bool open(std::string* slavePath, std::string* error);

    // What the poll loop waits for (fd -1 without a line), and the wake-up of the peer's next deadline.
    pollfd pollEntry() const;
    bool timeout(timespec* timeout) const;
    // After the poll: moves what is ready either way and runs the peer's due deadline.
    void serve(short revents);
    // Drops every byte still on its way in either direction: ours not yet written, the updater's not yet
    // read by us, and ours not yet read by the updater.
    void flush();

private:
    void send(const std::string& bytes);

    Instrument& m_in;
    int m_master = -1;
    int m_slave = -1;
    std::string m_out; // bytes for the updater waiting for room in the pty
};

} // namespace sim
