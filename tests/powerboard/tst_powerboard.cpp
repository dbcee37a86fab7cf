// PowerBoardManager against the power board peer model over a pty: what goes out, acknowledgement and
// resending, and how the board's frames are reassembled, checked and answered.

#include "../support/PtyPair.h"
#include "PowerBoardManager.h"
#include "PowerBoardPeer.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QSocketNotifier>
#include <QtTest>

#include <memory>

using sim::Bytes;
namespace pb = sim::powerboard;

const auto qt = [](const Bytes& b) { return QByteArray::fromStdString({b.begin(), b.end()}); };
const auto raw = [](const QByteArray& a) { return Bytes(a.begin(), a.end()); };
const auto frame = [](int id, const QByteArray& p) { return qt(pb::encodeFrame(std::uint8_t(id), raw(p))); };
const auto ack = [](int id) { return qt(pb::ackFrame(std::uint8_t(id))); };
const auto nak = [](int id) { return qt(pb::nakFrame(std::uint8_t(id))); };
// The frame as the manager passes it up: id, then length, payload and checksum unstuffed.
const auto unstuffed = [](int id, const QByteArray& payload) {
    return char(id) + qt(*pb::unstuff(raw(frame(id, payload).mid(2).chopped(1))));
};

// Debug output of the code under test, kept for comparison; everything else goes to QtTest.
static QStringList g_debug;
static QtMessageHandler g_previousHandler = nullptr;

// One line: a manager on the pty slave, the peer model on the master. Whatever the peer has to say is
// delivered chunk by chunk, each chunk only after the manager has read the one before.
class Link
{
public:
    Link()
    {
        if (!pty.isOpen())
            return;
        manager = std::make_unique<PowerBoardManager>(pty.slavePath());
        m_tty = manager->findChild<QIODevice*>();
        m_notifier = std::make_unique<QSocketNotifier>(pty.master(), QSocketNotifier::Read);
        QObject::connect(m_notifier.get(), &QSocketNotifier::activated, [this] { pump(); });
        QObject::connect(manager.get(), &PowerBoardManager::packetReceived,
                         [this](const QByteArray& packet) { received << packet; });
        QObject::connect(manager.get(), &PowerBoardManager::txComplete, [this] { ++completed; });
        QObject::connect(manager.get(), &PowerBoardManager::txFailed, [this] { ++failed; });
    }

    // Hands the manager the raw bytes given, then what the peer has to say.
    bool send(const QByteArray& bytes = {})
    {
        if (!bytes.isEmpty())
            peer.sendRaw(raw(bytes));
        for (const Bytes& chunk : peer.takeOutput()) {
            QSignalSpy arrived(m_tty, &QIODevice::readyRead);
            if (!pty.writeMaster(qt(chunk)) || !arrived.wait(10000))
                return false;
        }
        m_hostAfterDelivery = host.size();
        return true;
    }

    // Waits until the peer has seen count frames from the host.
    bool waitForFrames(std::size_t count, int timeoutMs = 10000)
    {
        return QTest::qWaitFor([&] { return peer.frames().size() >= count; }, timeoutMs) &&
               peer.frames().size() == count;
    }

    // NAKs host frames first..last (counted from 1) as each arrives; then, unless the last NAK gives up,
    // waits for the one resend.
    bool nakFrames(std::size_t first, std::size_t last, bool resent = true)
    {
        for (std::size_t n = first; n <= last; ++n)
            if (!waitForFrames(n) || !send(nak(4)))
                return false;
        return !resent || waitForFrames(last + 1);
    }

    // The manager answers inside its handler of what it read, so once a delivery is done its answer
    // already waits on the line: silent means nothing waits there and nothing came since.
    bool hostStaysSilent() const
    {
        pollfd pending{pty.master(), POLLIN, 0};
        return ::poll(&pending, 1, 0) == 0 && host.size() == m_hostAfterDelivery;
    }

    PtyPair pty;
    sim::PowerBoardPeer peer;
    std::unique_ptr<PowerBoardManager> manager;
    QByteArray host;               // every byte the host sent
    QList<QByteArray> received;    // every packet the manager passed up
    int completed = 0, failed = 0; // txComplete and txFailed so far

private:
    void pump()
    {
        m_notifier->setEnabled(false);
        const QByteArray got = pty.readMaster(0, 0);
        host += got;
        peer.receive(raw(got));
        send();
        m_notifier->setEnabled(true);
    }

    std::unique_ptr<QSocketNotifier> m_notifier;
    QIODevice* m_tty = nullptr;
    int m_hostAfterDelivery = 0;
};

class TestPowerBoard : public QObject
{
    Q_OBJECT

    std::unique_ptr<Link> m_link;

private slots:
    void init()
    {
        m_link = std::make_unique<Link>();
        REQUIRE_PTY(m_link->pty);
        g_debug.clear();
        g_previousHandler = qInstallMessageHandler(
            [](QtMsgType type, const QMessageLogContext& context, const QString& message) {
                if (type == QtDebugMsg)
                    g_debug << message;
                else if (g_previousHandler)
                    g_previousHandler(type, context, message);
            });
    }

    void cleanup()
    {
        qInstallMessageHandler(g_previousHandler);
        // Two start bytes reset the shared receive state: a failed test leaks no half frame.
        if (m_link->manager)
            m_link->send("\x02\x02");
        m_link.reset();
    }

    // 124 commands, each answered with an ACK: ids 4..126, then 4 again.
    void sendsCommandsAndAdvancesTheIdOnEachAck()
    {
        const std::pair<void (*)(PowerBoardManager&), QByteArray> commands[] = {
            {[](auto& m) { m.sendGetVersionCommand(); }, "SV"},
            {[](auto& m) { m.sendGetCalDataCommand(); }, "SRC"},
            // Only "S" of "SCD", then minute 45, hour 13, day 7, month 3, year 2024 (LE), the text "AA"
            // with its 32-bit length 3 (LE) and NUL.
            {[](auto& m) {
                 m.sendSetCalDataCommand(QDateTime({2024, 3, 7}, {13, 45, 30}));
             },
             QByteArray::fromHex("53 2d 0d 07 03 e8 07 03 00 00 00 41 41 00")},
            {[](auto& m) { m.sendStartTestCommand(0); }, QByteArray("T\x00", 2)},
            {[](auto& m) { m.sendStartTestCommand(2); }, QByteArray("T\x02", 2)},
            {[](auto& m) { m.sendStopTestCommand(); }, "T0"},
            {[](auto& m) { m.sendSendDataCommand(); }, "SD"},
        };
        QByteArray expected;
        for (int i = 0; i < 124; ++i) {
            const auto& [send, payload] = commands[i % 7];
            send(*m_link->manager);
            QVERIFY2(QTest::qWaitFor([&] { return m_link->completed == i + 1; }, 10000),
                     qPrintable(QString("no ACK round trip for command %1").arg(i)));
            expected += frame(4 + i % 123, payload);
            QCOMPARE(m_link->host, expected);
        }
        QVERIFY(m_link->hostStaysSilent()); // and the loop's last check: 124 completed
        QCOMPARE(g_debug, QVector<QString>(124, "received ack: ").toList());
    }

    void nakResendsUntilTheFourthFailure()
    {
        Link& link = *m_link;
        link.peer.setSilent(true);
        link.manager->sendGetVersionCommand();
        // Three NAKs: three resends, one failure short of giving up.
        QVERIFY(link.nakFrames(1, 3));
        // An ACK for another id: nothing is sent, nothing completes, but the retry count starts again.
        QVERIFY(link.send(ack(9)));
        QVERIFY(link.hostStaysSilent());
        QCOMPARE(link.completed, 0);
        QVERIFY(link.nakFrames(4, 6));
        QCOMPARE(link.failed, 0);
        QVERIFY(link.send(nak(4))); // the fourth failure gives up
        QCOMPARE(link.failed, 1);
        QVERIFY(link.hostStaysSilent());

        // Giving up clears the count too; the id stays, as nothing was acknowledged.
        link.manager->sendGetCalDataCommand();
        QVERIFY(link.nakFrames(8, 11, false));
        QCOMPARE(link.failed, 2);
        QCOMPARE(link.host, frame(4, "SV").repeated(7) + frame(4, "SRC").repeated(4));
        QVERIFY(link.send(ack(4)));
        QCOMPARE(link.completed, 1);

        // Commands do not wait for an ACK: the second goes out at once, under the same id, and replaces
        // the first. Its ACK completes it; the next command takes the next id.
        link.host.clear();
        link.manager->sendGetVersionCommand();
        link.manager->sendGetCalDataCommand();
        // Both are out before the ACK: 13 frames now, and the last host check below shows which.
        QVERIFY(link.waitForFrames(13));
        QVERIFY(link.send(ack(5)));
        QCOMPARE(link.completed, 2);
        QVERIFY(link.hostStaysSilent());
        link.manager->sendSendDataCommand();
        QVERIFY(link.waitForFrames(14));
        QCOMPARE(link.host, frame(5, "SV") + frame(5, "SRC") + frame(6, "SD"));
        const QString n = "received nak: ", a = "received ack: ";
        QCOMPARE(g_debug, (QStringList{n, n, n, a, n, n, n, n, n, n, n, n, a, a}));
    }

    // The only test that waits for the 5 s acknowledgement timer: two links run side by side, so one timer
    // period covers a resend on time-out and giving up on time-out, and a second one shows that neither
    // abandoned frame goes out again.
    void timeOutResendsAndGivesUp()
    {
        Link& here = *m_link;
        Link there;
        here.peer.setSilent(true);
        there.peer.setSilent(true);
        // Here two failures by NAK, there three.
        here.manager->sendGetVersionCommand();
        QVERIFY(here.nakFrames(1, 2));
        there.manager->sendGetCalDataCommand();
        QVERIFY(there.nakFrames(1, 3));
        QElapsedTimer clock;
        clock.start();

        // 5 s of silence after the last resend: the third failure resends here, the fourth gives up there.
        QVERIFY(here.waitForFrames(4, 8000));
        QVERIFY2(clock.elapsed() >= 4500, qPrintable(QString("resent after %1 ms").arg(clock.elapsed())));
        QVERIFY(QTest::qWaitFor([&] { return there.failed == 1; }, 3000));
        QVERIFY2(clock.elapsed() >= 4500, qPrintable(QString("gave up after %1 ms").arg(clock.elapsed())));
        QCOMPARE(here.failed, 0);
        QVERIFY(here.send(nak(4))); // here the fourth failure
        QCOMPARE(here.failed, 1);

        // Another timer period: nothing more on either line.
        QTest::qWait(5500);
        QCOMPARE(here.host, frame(4, "SV").repeated(4));
        QCOMPARE(there.host, frame(4, "SRC").repeated(4));
        QCOMPARE(here.failed, 1);
        QCOMPARE(there.failed, 1);
    }

    void reassemblesSplitFramesAndAcksRepeatsWithoutPassingThemUp()
    {
        // Every byte that needs escaping, cut into reads of three bytes. A fresh link takes the first frame
        // whatever its valid id; the same frame again is ACKed again.
        const QByteArray payload = QByteArray("V\x02\x03\x7f") + "1.0";
        m_link->peer.setChunkSize(3);
        m_link->peer.sendFrame(raw(payload));
        m_link->peer.repeatLastFrame();
        m_link->peer.sendFrame(raw("D2"));
        QVERIFY(m_link->send());

        QCOMPARE(m_link->received, (QList<QByteArray>{unstuffed(4, payload), unstuffed(5, "D2")}));
        QTRY_COMPARE(m_link->host, ack(4) + ack(4) + ack(5));
        QCOMPARE(g_debug, QStringList{"same packet: "});
    }

    void dropsChunksWithSeveralStartBytes()
    {
        // Two whole frames in one read while waiting for a start: both are dropped, unanswered.
        QVERIFY(m_link->send(frame(4, "A") + frame(5, "B")));
        QVERIFY(m_link->hostStaysSilent());
        QVERIFY(m_link->send(frame(6, "C")));
        QCOMPARE(m_link->received, QList<QByteArray>{unstuffed(6, "C")}); // and nothing of A or B

        // A start byte in the middle of a frame: the partial frame and that read are lost; the tail of the
        // lost frame has no start byte and is dropped too.
        const QByteArray d = frame(7, "D");
        QVERIFY(m_link->send(d.left(3)));
        QVERIFY(m_link->send(frame(8, "E")));
        QVERIFY(m_link->send(d.mid(3)));
        QCOMPARE(m_link->received.size(), 1);
        QVERIFY(m_link->send(frame(8, "E")));
        QCOMPARE(m_link->received, (QList<QByteArray>{unstuffed(6, "C"), unstuffed(8, "E")}));
        QTRY_COMPARE(m_link->host, ack(6) + ack(8));
    }

    void naksBadFrames_data()
    {
        QTest::addColumn<QByteArray>("wire");
        QTest::addColumn<int>("nakId");
        QTest::addColumn<QString>("reason");

        QTest::newRow("id 200") << frame(200, "V1") << 200 << "invalid id: ";
        // The id byte is unstuffed with the rest: 7F (id) 7F F2 (length 2) reads as 7F F2, then as id 02.
        QTest::newRow("id 127") << frame(127, "V1") << 2 << "invalid id: ";
        QTest::newRow("id 1") << frame(1, "V1") << 1 << "invalid id: ";
        QTest::newRow("length 601") << qt(pb::encodeFrame(4, 601, raw("V1"), 0x0304)) << 4
                                    << "invalid length: ";
        const std::uint16_t good = pb::checksum(5, raw("V1"));
        QTest::newRow("checksum off by one")
            << qt(pb::encodeFrame(5, 2, raw("V1"), good + 1)) << 5 << "invalid checksum: ";
        QTest::newRow("cut short") << QByteArray::fromHex("02 06 05 00 41 03") << 6 << "invalid checksum: ";
        // The board's 16-bit sum has wrapped; the unbounded sum on this side never matches it.
        QTest::newRow("sum above 65535") << frame(4, QByteArray(300, '\xff')) << 4 << "invalid checksum: ";
        // 7F F2 in the data is sent as 7F 7F F2; undoing the doubled escape first turns it into 02.
        QTest::newRow("escape then F2 in data") << frame(4, "\x7f\xf2") << 4 << "invalid checksum: ";
    }

    void naksBadFrames()
    {
        QFETCH(QByteArray, wire);
        QFETCH(int, nakId);
        QFETCH(QString, reason);
        QVERIFY(m_link->send(wire));
        QTRY_COMPARE(m_link->host, nak(nakId));
        QVERIFY(m_link->received.isEmpty());
        QCOMPARE(g_debug, QStringList({reason, "sent Nak: "}));
    }

    void receiveStateIsSharedByInstances()
    {
        Link there;
        // This instance sees the start of a frame; the other one then takes a frame without its start byte,
        // and this instance the end of its own frame, which it now drops.
        const QByteArray here = frame(4, "P1");
        QVERIFY(m_link->send(here.left(4)));
        QVERIFY(there.send(frame(5, "P2").mid(1)));
        QVERIFY(m_link->send(here.mid(4)));

        QVERIFY(m_link->received.isEmpty());
        QCOMPARE(there.received, QList<QByteArray>{unstuffed(5, "P2")});
        QTRY_COMPARE(there.host, ack(5));
        QVERIFY(m_link->hostStaysSilent());
    }
};

QTEST_GUILESS_MAIN(TestPowerBoard)
#include "tst_powerboard.moc"
