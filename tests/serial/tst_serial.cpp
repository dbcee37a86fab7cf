// TtyHandler on a pseudo-terminal held by the test: line settings, what reaches the wire, reads that never
// block, the input flush at open, and a missing device.

#include "../support/PtyPair.h"
#include "TtyHandler.h"

#include <QSignalSpy>
#include <QSocketNotifier>
#include <QtTest>

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

// Every write() of this program is recorded (linked with --wrap=write), so the tests can tell how many
// system calls a send took.
namespace {
struct WriteCall
{
    int fd;
    size_t size;
};
std::mutex g_writesMutex;
std::vector<WriteCall> g_writes;
} // namespace

extern "C" ssize_t __real_write(int fd, const void* buf, size_t count);
extern "C" ssize_t __wrap_write(int fd, const void* buf, size_t count)
{
    {
        std::lock_guard<std::mutex> lock(g_writesMutex);
        g_writes.push_back({fd, count});
    }
    return __real_write(fd, buf, count);
}

namespace {
void clearWrites()
{
    std::lock_guard<std::mutex> lock(g_writesMutex);
    g_writes.clear();
}

// Sizes of the writes made to the given tty since the last clearWrites().
std::vector<size_t> writesTo(const QString& ttyPath)
{
    std::lock_guard<std::mutex> lock(g_writesMutex);
    std::vector<size_t> sizes;
    for (const WriteCall& call : g_writes) {
        char name[256] = {};
        if (call.fd >= 0 && ttyname_r(call.fd, name, sizeof(name)) == 0 && ttyPath == name)
            sizes.push_back(call.size);
    }
    return sizes;
}

QByteArray allByteValues(int count)
{
    QByteArray bytes;
    for (int i = 0; i < count; ++i)
        bytes.append(char(i & 0xFF));
    return bytes;
}

int openDescriptorsOn(const QString& path)
{
    int count = 0;
    const QDir fds("/proc/self/fd");
    for (const QFileInfo& entry : fds.entryInfoList(QDir::System | QDir::NoDotAndDotDot))
        if (entry.symLinkTarget() == path)
            ++count;
    return count;
}
} // namespace

// Should a read on the handler wait for data, this supplies some after a while: the read then returns
// bytes that were not there when it started, and the test fails instead of hanging.
class UnblockLater
{
public:
    explicit UnblockLater(const PtyPair& pty)
        : m_thread([this, &pty] {
              std::unique_lock<std::mutex> lock(m_mutex);
              if (m_cv.wait_for(lock, std::chrono::seconds(3), [this] { return m_done; }))
                  return;
              // A read waiting for a minimum count would wait again after these bytes: drop the minimum.
              termios tio{};
              tcgetattr(pty.slave(), &tio);
              tio.c_cc[VMIN] = 0;
              tio.c_cc[VTIME] = 0;
              tcsetattr(pty.slave(), TCSANOW, &tio);
              pty.writeMaster("late");
          })
    {
    }
    ~UnblockLater()
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_done = true;
        }
        m_cv.notify_one();
        m_thread.join();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_cv;
    bool m_done = false;
    std::thread m_thread;
};

class TestSerial : public QObject
{
    Q_OBJECT

private slots:
    void opensRaw115200And8N1();
    void readsNeverBlock();
    void sendsEachMessageInOneUnchangedWrite();
    void receivesBytesUnchanged();
    void discardsBytesReceivedBeforeOpening();
    void missingDeviceIsOpenButInert();
};

void TestSerial::opensRaw115200And8N1()
{
    PtyPair pty;
    REQUIRE_PTY(pty);
    // Start from a cooked line at another speed, so every setting must come from the handler.
    termios cooked{};
    QCOMPARE(tcgetattr(pty.slave(), &cooked), 0);
    cooked.c_iflag = ICRNL | IXON | IXOFF | ISTRIP | INPCK | PARMRK;
    cooked.c_oflag = OPOST | ONLCR;
    cooked.c_lflag = ICANON | ECHO | ISIG | IEXTEN;
    cooked.c_cflag = CS7 | PARENB | CSTOPB | CREAD | HUPCL | CRTSCTS;
    cooked.c_cc[VMIN] = 1;
    cooked.c_cc[VTIME] = 5;
    cfsetspeed(&cooked, B9600);
    QCOMPARE(tcsetattr(pty.slave(), TCSANOW, &cooked), 0);

    const int before = openDescriptorsOn(pty.slavePath());
    {
        TtyHandler tty(pty.slavePath());
        QVERIFY(tty.isOpen());
        QCOMPARE(tty.openMode(), QIODevice::ReadWrite);
        QCOMPARE(tty.findChildren<QSocketNotifier*>().size(), 1);
        QCOMPARE(openDescriptorsOn(pty.slavePath()), before + 1);

        termios tio{};
        QCOMPARE(tcgetattr(pty.slave(), &tio), 0);
        QCOMPARE(tio.c_cflag, tcflag_t(B115200 | CS8 | CREAD | CLOCAL));
        QCOMPARE(tio.c_cflag, tcflag_t(0x18B2));
        QCOMPARE(tio.c_iflag, tcflag_t(IGNPAR));
        QCOMPARE(tio.c_oflag, tcflag_t(0));
        QCOMPARE(tio.c_lflag, tcflag_t(0));
        QCOMPARE(int(tio.c_cc[VMIN]), 0);
        QCOMPARE(int(tio.c_cc[VTIME]), 0);
        QCOMPARE(cfgetospeed(&tio), speed_t(B115200));
    }
    // The descriptor goes with the handler.
    QCOMPARE(openDescriptorsOn(pty.slavePath()), before);
}

void TestSerial::sendsEachMessageInOneUnchangedWrite()
{
    PtyPair pty;
    REQUIRE_PTY(pty);
    TtyHandler tty(pty.slavePath());

    clearWrites();
    tty.sendString("B");
    QCOMPARE(writesTo(pty.slavePath()), std::vector<size_t>{1});
    QCOMPARE(pty.readMaster(1000), QByteArray("\x42"));

    // A block of the board loader: every byte value a line discipline could touch (CR, LF, XON/XOFF,
    // interrupt characters) must go out as it is, in one system call.
    const QByteArray block = allByteValues(133);
    clearWrites();
    tty.sendByteArray(block);
    QCOMPARE(writesTo(pty.slavePath()), std::vector<size_t>{133});
    QCOMPARE(pty.readMaster(1000), block);

    // No terminator is added to text.
    clearWrites();
    tty.sendString("2C");
    QCOMPARE(writesTo(pty.slavePath()), std::vector<size_t>{2});
    QCOMPARE(pty.readMaster(1000), QByteArray("2C"));
}

void TestSerial::receivesBytesUnchanged()
{
    PtyPair pty;
    REQUIRE_PTY(pty);
    TtyHandler tty(pty.slavePath());
    QSignalSpy readyRead(&tty, &QIODevice::readyRead);

    const QByteArray all = allByteValues(256);
    QVERIFY(pty.writeMaster(all));
    QByteArray got;
    UnblockLater guard(pty);
    while (got.size() < all.size() && (readyRead.count() > 0 || readyRead.wait(2000))) {
        readyRead.clear();
        got += tty.readAll();
    }
    QCOMPARE(got.toHex(), all.toHex());
    // Nothing echoed back to the sender.
    QCOMPARE(pty.readMaster(100), QByteArray());
}

void TestSerial::readsNeverBlock()
{
    PtyPair pty;
    REQUIRE_PTY(pty);
    TtyHandler tty(pty.slavePath());

    QByteArray first;
    qint64 single = -2;
    {
        UnblockLater guard(pty);
        first = tty.readAll();
        char byte = 0;
        single = tty.read(&byte, 1);
    }
    QCOMPARE(first, QByteArray());
    QCOMPARE(single, qint64(0));

    // A small read fills the device's buffer; readAll then returns the rest at once, from the buffer,
    // without waiting on the empty tty.
    QSignalSpy readyRead(&tty, &QIODevice::readyRead);
    QVERIFY(pty.writeMaster("xyz"));
    QVERIFY(readyRead.wait(2000));
    UnblockLater guard(pty);
    QCOMPARE(tty.read(1), QByteArray("x"));
    QCOMPARE(tty.readAll(), QByteArray("yz"));
    QCOMPARE(tty.readAll(), QByteArray());
}

void TestSerial::discardsBytesReceivedBeforeOpening()
{
    PtyPair pty;
    REQUIRE_PTY(pty);
    QVERIFY(pty.writeMaster("stale"));
    QVERIFY2(pty.waitSlaveReadable(2000), "the bytes never reached the tty");

    TtyHandler tty(pty.slavePath());
    QSignalSpy readyRead(&tty, &QIODevice::readyRead);
    QVERIFY(pty.writeMaster("fresh"));
    QVERIFY(readyRead.wait(2000));
    UnblockLater guard(pty);
    QCOMPARE(tty.readAll(), QByteArray("fresh"));
}

void TestSerial::missingDeviceIsOpenButInert()
{
    clearWrites();
    TtyHandler tty("/nonexistent/ttyS1");
    QVERIFY(tty.isOpen());
    QCOMPARE(tty.openMode(), QIODevice::ReadWrite);
    QVERIFY(tty.findChildren<QSocketNotifier*>().isEmpty());

    tty.sendString("B");
    tty.sendByteArray(allByteValues(133));
    {
        std::lock_guard<std::mutex> lock(g_writesMutex);
        for (const WriteCall& call : g_writes)
            QVERIFY2(call.fd >= 0 && !isatty(call.fd), "a send reached write() without an open tty");
    }
    char buf[16];
    QCOMPARE(tty.read(buf, sizeof(buf)), qint64(-1));
    QCOMPARE(tty.readAll(), QByteArray());
    QCOMPARE(tty.write("B"), qint64(-1));
}

QTEST_GUILESS_MAIN(TestSerial)
#include "tst_serial.moc"
