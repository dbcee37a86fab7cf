// TtyHandler on a pseudo-terminal held by the test: line settings, what reaches the wire, reads that never
// block, the input flush at open, and a missing device.

#include "../support/PtyPair.h"
#include "TtyHandler.h"

#include <QSignalSpy>
#include <QSocketNotifier>
#include <QtTest>

#include <csignal>
#include <vector>

extern "C" ssize_t __real_write(int fd, const void* buf, size_t count);

// Every write() of this program is recorded (linked with --wrap=write), so the tests can tell how many
// system calls a send took and where they went.
static std::vector<std::pair<int, size_t>> g_writes; // descriptor, size

const auto allByteValues = [](int count) {
    QByteArray bytes;
    for (int i = 0; i < count; ++i)
        bytes.append(char(i & 0xFF));
    return bytes;
};

static const PtyPair* g_alarmPty = nullptr; // the line an alarm unblocks

extern "C" ssize_t __wrap_write(int fd, const void* buf, size_t count)
{
    g_writes.emplace_back(fd, count);
    return __real_write(fd, buf, count);
}

class TestSerial : public QObject
{
    Q_OBJECT

private slots:
    void opensRaw115200And8N1()
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

        TtyHandler tty(pty.slavePath());
        QCOMPARE(tty.openMode(), QIODevice::ReadWrite); // open, for reading and writing
        termios tio{};
        QCOMPARE(tcgetattr(pty.slave(), &tio), 0);
        const char* format = "cflag %#o iflag %#o oflag %#o lflag %#o VMIN %d VTIME %d speed %#o";
        QCOMPARE(QString::asprintf(format, tio.c_cflag, tio.c_iflag, tio.c_oflag, tio.c_lflag, tio.c_cc[VMIN],
                                   tio.c_cc[VTIME], cfgetospeed(&tio)),
                 QString::asprintf(format, B115200 | CS8 | CREAD | CLOCAL, IGNPAR, 0, 0, 0, 0, B115200));
    }

    // A boot request, a loader block with every byte value a line discipline could touch (CR, LF,
    // XON/XOFF, interrupt characters) and text: each goes out as it is, in one system call, unterminated.
    void sendsEachMessageInOneUnchangedWrite()
    {
        PtyPair pty;
        REQUIRE_PTY(pty);
        TtyHandler tty(pty.slavePath());
        const QByteArray block = allByteValues(133);
        for (const QByteArray& message : {QByteArray("B"), block, QByteArray("2C")}) {
            g_writes.clear();
            message == block ? tty.sendByteArray(message) : tty.sendString(message);
            QList<int> sizes; // of the writes to the tty
            for (const auto& [fd, size] : g_writes) {
                char name[256] = {};
                if (ttyname_r(fd, name, sizeof(name)) == 0 && pty.slavePath() == name)
                    sizes << int(size);
            }
            QCOMPARE(sizes, QList<int>{message.size()});
            QCOMPARE(pty.readMaster(1000), message);
        }
    }

    void readsOnlyFreshBytesAndNeverBlocks()
    {
        PtyPair pty;
        REQUIRE_PTY(pty);
        // Bytes waiting before the handler opens the line are discarded.
        QVERIFY(pty.writeMaster("stale"));
        QVERIFY2(pty.waitSlaveReadable(2000), "the bytes never reached the tty");
        TtyHandler tty(pty.slavePath());
        QSignalSpy readyRead(&tty, &QIODevice::readyRead);
        // Should a read on the handler wait for data, an alarm supplies some after 3 s: the read then
        // returns bytes that were not there when it started, and the test fails instead of hanging.
        g_alarmPty = &pty;
        struct sigaction action = {};
        action.sa_handler = [](int) {
            // A read waiting for a minimum count would wait again after these bytes: drop the minimum.
            termios tio{};
            tcgetattr(g_alarmPty->slave(), &tio);
            tio.c_cc[VMIN] = 0;
            tio.c_cc[VTIME] = 0;
            tcsetattr(g_alarmPty->slave(), TCSANOW, &tio);
            __real_write(g_alarmPty->master(), "late", 4);
        };
        action.sa_flags = SA_RESTART; // the waiting read goes on and gets the bytes
        sigaction(SIGALRM, &action, nullptr);
        alarm(3);
        const auto disarm = qScopeGuard([] { alarm(0); });
        QCOMPARE(tty.readAll(), QByteArray());
        char byte = 0;
        QCOMPARE(tty.read(&byte, 1), qint64(0));

        // Every byte value arrives unchanged; nothing is echoed back.
        const QByteArray all = allByteValues(256);
        QVERIFY(pty.writeMaster(all));
        QByteArray got;
        while (got.size() < all.size() && (readyRead.count() > 0 || readyRead.wait(2000))) {
            readyRead.clear();
            got += tty.readAll();
        }
        QCOMPARE(got, all);
        QCOMPARE(pty.readMaster(100), QByteArray());

        // A small read fills the device's buffer; readAll then returns the rest at once, from the buffer,
        // without waiting on the empty tty.
        QVERIFY(pty.writeMaster("xyz"));
        QVERIFY(readyRead.wait(2000));
        QCOMPARE(tty.read(1), QByteArray("x"));
        QCOMPARE(tty.readAll(), QByteArray("yz"));
        QCOMPARE(tty.readAll(), QByteArray());
    }

    void missingDeviceIsOpenButInert()
    {
        g_writes.clear();
        TtyHandler tty("/nonexistent/ttyS1");
        QCOMPARE(tty.openMode(), QIODevice::ReadWrite); // open, for reading and writing
        QVERIFY(tty.findChildren<QSocketNotifier*>().isEmpty());

        tty.sendString("B");
        tty.sendByteArray(allByteValues(133));
        for (const auto& [fd, size] : g_writes)
            QVERIFY2(fd >= 0 && !isatty(fd), "a send reached write() without an open tty");
        char buf[16];
        QCOMPARE(tty.read(buf, sizeof(buf)), qint64(-1));
        QCOMPARE(tty.readAll(), QByteArray());
        QCOMPARE(tty.write("B"), qint64(-1));
    }
};

QTEST_GUILESS_MAIN(TestSerial)
#include "tst_serial.moc"
