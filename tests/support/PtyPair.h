#pragma once
// A pseudo-terminal for serial tests: the test holds the master, the code under test opens the slave by
// its path. The slave is set raw and kept open by the pair, so the line neither echoes nor hangs up while
// the code under test opens and closes it.

#include <QtTest>

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

class PtyPair
{
public:
    PtyPair()
    {
        char name[4096] = {}; // PATH_MAX: openpty writes the slave's path without a size
        if (openpty(&m_master, &m_slave, name, nullptr, nullptr) != 0) {
            m_error = QString("openpty failed: %1").arg(std::strerror(errno));
            return;
        }
        m_path = QString::fromLocal8Bit(name);
        termios tio{};
        tcgetattr(m_slave, &tio);
        cfmakeraw(&tio);
        tcsetattr(m_slave, TCSANOW, &tio);
    }
    ~PtyPair()
    {
        for (int fd : {m_master, m_slave})
            if (fd >= 0)
                ::close(fd);
    }
    PtyPair(const PtyPair&) = delete;
    PtyPair& operator=(const PtyPair&) = delete;

    bool isOpen() const { return !m_path.isEmpty(); }
    QString error() const { return m_error; }
    int master() const { return m_master; }
    int slave() const { return m_slave; }
    QString slavePath() const { return m_path; }

    bool writeMaster(const QByteArray& bytes) const
    {
        qsizetype done = 0;
        while (done < bytes.size()) {
            const ssize_t n = ::write(m_master, bytes.constData() + done, size_t(bytes.size() - done));
            if (n < 0 && errno != EINTR)
                return false;
            done += n > 0 ? n : 0;
        }
        return true;
    }

    // What the slave side wrote: waits up to timeoutMs for the first byte, then takes all that arrives
    // with gaps shorter than settleMs.
    QByteArray readMaster(int timeoutMs, int settleMs = 20) const
    {
        QByteArray out;
        int wait = timeoutMs;
        pollfd pfd{m_master, POLLIN, 0};
        while (::poll(&pfd, 1, wait) > 0 && (pfd.revents & POLLIN)) {
            char buf[4096];
            const ssize_t n = ::read(m_master, buf, sizeof(buf));
            if (n <= 0)
                break;
            out.append(buf, int(n));
            wait = settleMs;
        }
        return out;
    }

    // True once bytes written to the master wait in the slave's input queue.
    bool waitSlaveReadable(int timeoutMs) const
    {
        pollfd pfd{m_slave, POLLIN, 0};
        return ::poll(&pfd, 1, timeoutMs) > 0 && (pfd.revents & POLLIN);
    }

private:
    int m_master = -1;
    int m_slave = -1;
    QString m_path;
    QString m_error;
};

// Pseudo-terminals may be missing in a stripped container; in CI they must be there.
#define REQUIRE_PTY(pty)                                                                                     \
    do {                                                                                                     \
        if (!(pty).isOpen()) {                                                                               \
            const QByteArray why =                                                                           \
                "needs a pseudo-terminal (/dev/ptmx, /dev/pts): " + (pty).error().toLocal8Bit();             \
            if (qEnvironmentVariable("CI") == "true")                                                        \
                QFAIL(why.constData());                                                                      \
            QSKIP(why.constData());                                                                          \
        }                                                                                                    \
    } while (false)
