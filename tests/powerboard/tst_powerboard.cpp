// PowerBoardManager against the power board peer model, over a pseudo-terminal: what goes out on the
// wire, acknowledgement and resending, and how the board's frames are reassembled, checked and answered.

#include "../support/PtyPair.h"
#include "PowerBoardManager.h"
#include "PowerBoardPeer.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QSocketNotifier>
#include <QtTest>

#include <memory>

using sim::Bytes;
using sim::PowerBoardPeer;
namespace pb = sim::powerboard;

namespace {
Bytes toBytes(const QByteArray& a)
{
    return Bytes(a.begin(), a.end());
}

QByteArray toQt(const Bytes& b)
{
    return QByteArray(reinterpret_cast<const char*>(b.data()), int(b.size()));
}

QByteArray hex(const QByteArray& a)
{
    return a.toHex(' ');
}

QByteArray frame(int id, const QByteArray& payload)
{
    return toQt(pb::encodeFrame(std::uint8_t(id), toBytes(payload)));
}

// The frame as the manager passes it up: id, length, payload and checksum, unstuffed.
QByteArray unstuffedFrame(int id, const QByteArray& payload)
{
    const std::uint16_t sum = pb::checksum(std::uint8_t(id), toBytes(payload));
    QByteArray out;
    out.append(char(id)).append(char(payload.size() & 0xFF)).append(char(payload.size() >> 8));
    out.append(payload).append(char(sum & 0xFF)).append(char(sum >> 8));
    return out;
}

// Debug output of the code under test, kept for comparison; everything else goes to QtTest.
QStringList g_debug;
QtMessageHandler g_previousHandler = nullptr;
void captureDebug(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    if (type == QtDebugMsg)
        g_debug << message;
    else if (g_previousHandler)
        g_previousHandler(type, context, message);
}
} // namespace

// The board end of the line: a pty master whose traffic goes through the peer model. Whatever the peer
// has to say is delivered chunk by chunk, each chunk only after the manager has read the one before.
class PeerLink
{
public:
    PeerLink()
    {
        if (!m_pty.isOpen())
            return;
        m_notifier = std::make_unique<QSocketNotifier>(m_pty.master(), QSocketNotifier::Read);
        QObject::connect(m_notifier.get(), &QSocketNotifier::activated, [this] { pump(); });
    }

    PtyPair& pty() { return m_pty; }
    PowerBoardPeer& peer() { return m_peer; }
    QByteArray hostBytes() const { return m_host; }
    void clearHostBytes() { m_host.clear(); }

    void attach(QObject* manager) { m_tty = manager->findChild<QIODevice*>(); }

    bool deliver()
    {
        for (const Bytes& chunk : m_peer.takeOutput()) {
            QSignalSpy arrived(m_tty, &QIODevice::readyRead);
            if (!m_pty.writeMaster(toQt(chunk)) || !arrived.wait(2000))
                return false;
        }
        return true;
    }

    // Waits until the peer has seen count frames from the host.
    bool waitForFrames(std::size_t count, int timeoutMs = 2000)
    {
        QElapsedTimer clock;
        clock.start();
        while (m_peer.frames().size() < count && clock.elapsed() < timeoutMs)
            QTest::qWait(5);
        return m_peer.frames().size() == count;
    }

    bool deliverRaw(const QByteArray& chunk)
    {
        m_peer.sendRaw(toBytes(chunk));
        return deliver();
    }

private:
    void pump()
    {
        m_notifier->setEnabled(false);
        const QByteArray got = m_pty.readMaster(0, 0);
        m_host += got;
        m_peer.receive(toBytes(got));
        deliver();
        m_notifier->setEnabled(true);
    }

    PtyPair m_pty;
    PowerBoardPeer m_peer;
    std::unique_ptr<QSocketNotifier> m_notifier;
    QIODevice* m_tty = nullptr;
    QByteArray m_host;
};

class TestPowerBoard : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void framesCommandsOnTheWire_data();
    void framesCommandsOnTheWire();
    void ackAdvancesTheIdAndWrapsAfter126();
    void nakResendsUntilTheFourthFailure();
    void commandsDoNotWaitForTheAck();
    void timeOutResendsAndGivesUp();
    void reassemblesSplitFramesAndAcksThem();
    void dropsChunksWithSeveralStartBytes();
    void naksBadFrames_data();
    void naksBadFrames();
    void acksRepeatedFrameWithoutPassingItUp();
    void receiveStateIsSharedByInstances();

private:
    // Lets the line settle and reports whether the host stayed silent meanwhile.
    bool hostStaysSilent(int ms = 200);

    std::unique_ptr<PeerLink> m_link;
    std::unique_ptr<PowerBoardManager> m_manager;
};

void TestPowerBoard::init()
{
    m_link = std::make_unique<PeerLink>();
    REQUIRE_PTY(m_link->pty());
    m_manager = std::make_unique<PowerBoardManager>(m_link->pty().slavePath());
    m_link->attach(m_manager.get());
    g_debug.clear();
    g_previousHandler = qInstallMessageHandler(captureDebug);
}

void TestPowerBoard::cleanup()
{
    qInstallMessageHandler(g_previousHandler);
    if (m_manager) {
        // Two start bytes bring the receive state, shared by all instances, back to waiting in any
        // case, so a failed test cannot leak a half frame into the next.
        m_link->peer().setSilent(false);
        m_link->deliverRaw("\x02\x02");
    }
    m_manager.reset();
    m_link.reset();
}

bool TestPowerBoard::hostStaysSilent(int ms)
{
    const QByteArray before = m_link->hostBytes();
    QTest::qWait(ms);
    return m_link->hostBytes() == before;
}

enum Command
{
    GetVersion,
    GetCalData,
    SetCalData,
    StartTest0,
    StartTest2,
    StopTest,
    SendData
};

void TestPowerBoard::framesCommandsOnTheWire_data()
{
    QTest::addColumn<int>("command");
    QTest::addColumn<QByteArray>("payload");

    QTest::newRow("get version") << int(GetVersion) << QByteArray("SV");
    QTest::newRow("get cal data") << int(GetCalData) << QByteArray("SRC");
    // Only "S" of "SCD", then minute 45, hour 13, day 7, month 3, year 2024 (LE), the text "AA" with its
    // 32-bit length 3 (LE) and NUL.
    QTest::newRow("set cal data") << int(SetCalData)
                                  << QByteArray::fromHex("53 2d 0d 07 03 e8 07 03 00 00 00 41 41 00");
    QTest::newRow("start test 0") << int(StartTest0) << QByteArray("T\x00", 2);
    QTest::newRow("start test 2") << int(StartTest2) << QByteArray("T\x02", 2);
    QTest::newRow("stop test") << int(StopTest) << QByteArray("T0");
    QTest::newRow("send data") << int(SendData) << QByteArray("SD");
}

void TestPowerBoard::framesCommandsOnTheWire()
{
    QFETCH(int, command);
    QFETCH(QByteArray, payload);
    QSignalSpy complete(m_manager.get(), &PowerBoardManager::txComplete);

    switch (Command(command)) {
    case GetVersion:
        m_manager->sendGetVersionCommand();
        break;
    case GetCalData:
        m_manager->sendGetCalDataCommand();
        break;
    case SetCalData:
        m_manager->sendSetCalDataCommand(QDateTime(QDate(2024, 3, 7), QTime(13, 45, 30)));
        break;
    case StartTest0:
        m_manager->sendStartTestCommand(0);
        break;
    case StartTest2:
        m_manager->sendStartTestCommand(2);
        break;
    case StopTest:
        m_manager->sendStopTestCommand();
        break;
    case SendData:
        m_manager->sendSendDataCommand();
        break;
    }
    QVERIFY(complete.wait(2000));

    if (command == GetVersion)
        QCOMPARE(hex(m_link->hostBytes()), hex(QByteArray::fromHex("02 04 7f f2 00 53 56 b0 00 03")));
    QCOMPARE(hex(m_link->hostBytes()), hex(frame(4, payload)));
    QCOMPARE(m_link->peer().commands(), std::vector<Bytes>{toBytes(payload)});
    QVERIFY(hostStaysSilent());
    QCOMPARE(complete.count(), 1);
    QCOMPARE(g_debug, QStringList{"received ack: "});
}

void TestPowerBoard::ackAdvancesTheIdAndWrapsAfter126()
{
    QSignalSpy complete(m_manager.get(), &PowerBoardManager::txComplete);
    for (int i = 0; i < 124; ++i) {
        m_manager->sendGetVersionCommand();
        QVERIFY2(complete.wait(2000), qPrintable(QString("no ACK round trip for command %1").arg(i)));
    }
    const auto& frames = m_link->peer().frames();
    QCOMPARE(frames.size(), size_t(124));
    for (int i = 0; i < 123; ++i)
        QCOMPARE(int(frames[size_t(i)].id), 4 + i);
    QCOMPARE(int(frames[123].id), 4);
    QCOMPARE(m_link->peer().commands().size(), size_t(124));
    QCOMPARE(g_debug.count("received ack: "), 124);
}

void TestPowerBoard::nakResendsUntilTheFourthFailure()
{
    QSignalSpy complete(m_manager.get(), &PowerBoardManager::txComplete);
    QSignalSpy failed(m_manager.get(), &PowerBoardManager::txFailed);
    m_link->peer().setSilent(true);
    const auto nak = [&] { return m_link->deliverRaw(toQt(pb::nakFrame(4))); };
    m_manager->sendGetVersionCommand();
    QVERIFY(m_link->waitForFrames(1));

    // Three NAKs: three resends, one failure short of giving up.
    for (std::size_t n = 2; n <= 4; ++n) {
        QVERIFY(nak());
        QVERIFY(m_link->waitForFrames(n));
    }
    // An ACK for some other frame: nothing is sent, nothing completes, the id stays...
    QVERIFY(m_link->deliverRaw(toQt(pb::ackFrame(9))));
    QVERIFY(hostStaysSilent());
    QCOMPARE(complete.count(), 0);
    // ...but the retry count starts again: three more resends before the fourth failure gives up.
    for (std::size_t n = 5; n <= 7; ++n) {
        QVERIFY(nak());
        QVERIFY(m_link->waitForFrames(n));
    }
    QCOMPARE(failed.count(), 0);
    QVERIFY(nak());
    QCOMPARE(failed.count(), 1);
    QVERIFY(hostStaysSilent());
    for (const auto& f : m_link->peer().frames())
        QCOMPARE(hex(toQt(f.wire)), hex(frame(4, "SV")));

    // Giving up clears the count too; the id stays, as nothing was acknowledged.
    m_manager->sendGetCalDataCommand();
    for (std::size_t n = 8; n <= 11; ++n) {
        QVERIFY(m_link->waitForFrames(n));
        QCOMPARE(hex(toQt(m_link->peer().frames().back().wire)), hex(frame(4, "SRC")));
        QVERIFY(nak());
    }
    QCOMPARE(failed.count(), 2);
    QVERIFY(m_link->deliverRaw(toQt(pb::ackFrame(4))));
    QCOMPARE(complete.count(), 1);
    m_manager->sendGetCalDataCommand();
    QVERIFY(m_link->waitForFrames(12));
    QCOMPARE(hex(toQt(m_link->peer().frames().back().wire)), hex(frame(5, "SRC")));
    QCOMPARE(g_debug.count("received nak: "), 11);
    QCOMPARE(g_debug.count("received ack: "), 2);
    QCOMPARE(g_debug.size(), 13);
}

void TestPowerBoard::commandsDoNotWaitForTheAck()
{
    QSignalSpy complete(m_manager.get(), &PowerBoardManager::txComplete);
    m_link->peer().setSilent(true);
    // The second command goes out at once, under the same id, and replaces the first.
    m_manager->sendGetVersionCommand();
    m_manager->sendGetCalDataCommand();
    QVERIFY(m_link->waitForFrames(2));
    QCOMPARE(hex(m_link->hostBytes()), hex(frame(4, "SV") + frame(4, "SRC")));

    m_link->clearHostBytes();
    QVERIFY(m_link->deliverRaw(toQt(pb::ackFrame(4))));
    QCOMPARE(complete.count(), 1);
    QVERIFY(hostStaysSilent());
    m_manager->sendSendDataCommand();
    QVERIFY(m_link->waitForFrames(3));
    QCOMPARE(hex(m_link->hostBytes()), hex(frame(5, "SD")));
}

// The only test that waits for the 5 s acknowledgement timer: two links run side by side, so one timer
// period covers a resend on time-out and giving up on time-out, and a second one shows that neither
// abandoned frame goes out again.
void TestPowerBoard::timeOutResendsAndGivesUp()
{
    PeerLink otherLink;
    PowerBoardManager other(otherLink.pty().slavePath());
    otherLink.attach(&other);
    QSignalSpy failed(m_manager.get(), &PowerBoardManager::txFailed);
    QSignalSpy otherFailed(&other, &PowerBoardManager::txFailed);
    m_link->peer().setSilent(true);
    otherLink.peer().setSilent(true);

    // This link: two failures by NAK. The other: three.
    m_manager->sendGetVersionCommand();
    for (std::size_t n = 1; n <= 2; ++n) {
        QVERIFY(m_link->waitForFrames(n));
        QVERIFY(m_link->deliverRaw(toQt(pb::nakFrame(4))));
    }
    QVERIFY(m_link->waitForFrames(3));
    other.sendGetCalDataCommand();
    for (std::size_t n = 1; n <= 3; ++n) {
        QVERIFY(otherLink.waitForFrames(n));
        QVERIFY(otherLink.deliverRaw(toQt(pb::nakFrame(4))));
    }
    QVERIFY(otherLink.waitForFrames(4));
    QElapsedTimer clock;
    clock.start();

    // 5 s of silence after the last resend: the third failure resends here, the fourth gives up there.
    QVERIFY(m_link->waitForFrames(4, 8000));
    QVERIFY2(clock.elapsed() >= 4500, qPrintable(QString("resent after %1 ms").arg(clock.elapsed())));
    QVERIFY(otherFailed.count() == 1 || otherFailed.wait(3000));
    QVERIFY2(clock.elapsed() >= 4500, qPrintable(QString("gave up after %1 ms").arg(clock.elapsed())));
    QCOMPARE(failed.count(), 0);
    // A NAK now is this link's fourth failure.
    QVERIFY(m_link->deliverRaw(toQt(pb::nakFrame(4))));
    QCOMPARE(failed.count(), 1);

    // Another timer period: nothing more on either line.
    const QByteArray sentHere = m_link->hostBytes();
    const QByteArray sentThere = otherLink.hostBytes();
    QTest::qWait(5500);
    QCOMPARE(hex(m_link->hostBytes()), hex(sentHere));
    QCOMPARE(hex(otherLink.hostBytes()), hex(sentThere));
    QCOMPARE(hex(sentHere), hex(frame(4, "SV").repeated(4)));
    QCOMPARE(hex(sentThere), hex(frame(4, "SRC").repeated(4)));
    QCOMPARE(failed.count(), 1);
    QCOMPARE(otherFailed.count(), 1);
}

void TestPowerBoard::reassemblesSplitFramesAndAcksThem()
{
    QSignalSpy received(m_manager.get(), &PowerBoardManager::packetReceived);
    // Every byte that needs escaping, cut into reads of three bytes.
    const QByteArray payload("V\x02\x03\x7f"
                             "1.0");
    m_link->peer().setChunkSize(3);
    m_link->peer().sendFrame(toBytes(payload));
    QVERIFY(m_link->deliver());

    QCOMPARE(received.count(), 1);
    QCOMPARE(hex(received.at(0).at(0).toByteArray()), hex(unstuffedFrame(4, payload)));
    QTRY_COMPARE(m_link->peer().controls().size(), size_t(1));
    QVERIFY(m_link->peer().controls()[0].ack);
    QCOMPARE(int(m_link->peer().controls()[0].id), 4);
    QCOMPARE(hex(m_link->hostBytes()), hex("\x02\x06\x04\x03"));
    QVERIFY(g_debug.isEmpty());
}

void TestPowerBoard::dropsChunksWithSeveralStartBytes()
{
    QSignalSpy received(m_manager.get(), &PowerBoardManager::packetReceived);

    // Two whole frames in one read while waiting for a start: both are dropped, unanswered.
    QVERIFY(m_link->deliverRaw(frame(4, "A") + frame(5, "B")));
    QVERIFY(hostStaysSilent());
    QCOMPARE(received.count(), 0);
    QVERIFY(m_link->deliverRaw(frame(6, "C")));
    QCOMPARE(received.count(), 1);

    // A start byte in the middle of a frame: the partial frame and that read are lost; the tail of the
    // lost frame has no start byte and is dropped too.
    const QByteArray d = frame(7, "D");
    QVERIFY(m_link->deliverRaw(d.left(3)));
    QVERIFY(m_link->deliverRaw(frame(8, "E")));
    QVERIFY(m_link->deliverRaw(d.mid(3)));
    QCOMPARE(received.count(), 1);
    QVERIFY(m_link->deliverRaw(frame(8, "E")));
    QCOMPARE(received.count(), 2);
    QCOMPARE(hex(received.at(0).at(0).toByteArray()), hex(unstuffedFrame(6, "C")));
    QCOMPARE(hex(received.at(1).at(0).toByteArray()), hex(unstuffedFrame(8, "E")));
    QTRY_COMPARE(hex(m_link->hostBytes()), hex(toQt(pb::ackFrame(6)) + toQt(pb::ackFrame(8))));
}

void TestPowerBoard::naksBadFrames_data()
{
    QTest::addColumn<QByteArray>("wire");
    QTest::addColumn<int>("nakId");
    QTest::addColumn<QString>("reason");

    QTest::newRow("id 200") << frame(200, "V1") << 200 << "invalid id: ";
    // The id byte is unstuffed with the rest: 7F (id) 7F F2 (length 2) reads as 7F F2, then as id 02.
    QTest::newRow("id 127") << frame(127, "V1") << 2 << "invalid id: ";
    QTest::newRow("id 1") << frame(1, "V1") << 1 << "invalid id: ";
    QTest::newRow("length 601") << toQt(pb::encodeFrame(4, 601, toBytes("V1"), 0x0304)) << 4
                                << "invalid length: ";
    const std::uint16_t good = pb::checksum(5, toBytes("V1"));
    QTest::newRow("checksum off by one")
        << toQt(pb::encodeFrame(5, 2, toBytes("V1"), good + 1)) << 5 << "invalid checksum: ";
    QTest::newRow("cut short") << QByteArray::fromHex("02 06 05 00 41 03") << 6 << "invalid checksum: ";
    // The board's 16-bit sum has wrapped; the unbounded sum on this side never matches it.
    QTest::newRow("sum above 65535") << frame(4, QByteArray(300, '\xff')) << 4 << "invalid checksum: ";
    // 7F F2 in the data is sent as 7F 7F F2; undoing the doubled escape first turns it into 02.
    QTest::newRow("escape then F2 in data") << frame(4, "\x7f\xf2") << 4 << "invalid checksum: ";
}

void TestPowerBoard::naksBadFrames()
{
    QFETCH(QByteArray, wire);
    QFETCH(int, nakId);
    QFETCH(QString, reason);
    QSignalSpy received(m_manager.get(), &PowerBoardManager::packetReceived);

    QVERIFY(m_link->deliverRaw(wire));
    QTRY_COMPARE(hex(m_link->hostBytes()), hex(toQt(pb::nakFrame(std::uint8_t(nakId)))));
    QCOMPARE(received.count(), 0);
    QCOMPARE(g_debug, QStringList({reason, "sent Nak: "}));
}

void TestPowerBoard::acksRepeatedFrameWithoutPassingItUp()
{
    QSignalSpy received(m_manager.get(), &PowerBoardManager::packetReceived);
    // A fresh link takes the first frame whatever its valid id.
    m_link->peer().sendFrame(toBytes("D1"));
    QVERIFY(m_link->deliver());
    m_link->peer().repeatLastFrame();
    QVERIFY(m_link->deliver());
    m_link->peer().sendFrame(toBytes("D2"));
    QVERIFY(m_link->deliver());

    QCOMPARE(received.count(), 2);
    QCOMPARE(hex(received.at(0).at(0).toByteArray()), hex(unstuffedFrame(4, "D1")));
    QCOMPARE(hex(received.at(1).at(0).toByteArray()), hex(unstuffedFrame(5, "D2")));
    QTRY_COMPARE(m_link->peer().controls().size(), size_t(3));
    QCOMPARE(hex(m_link->hostBytes()),
             hex(toQt(pb::ackFrame(4)) + toQt(pb::ackFrame(4)) + toQt(pb::ackFrame(5))));
    QCOMPARE(g_debug, QStringList{"same packet: "});
}

void TestPowerBoard::receiveStateIsSharedByInstances()
{
    PeerLink otherLink;
    PowerBoardManager other(otherLink.pty().slavePath());
    otherLink.attach(&other);
    QSignalSpy receivedHere(m_manager.get(), &PowerBoardManager::packetReceived);
    QSignalSpy receivedThere(&other, &PowerBoardManager::packetReceived);

    // This instance sees the start of a frame; the other one then takes a frame without its start byte,
    // and this instance the end of its own frame, which it now drops.
    const QByteArray here = frame(4, "P1");
    QVERIFY(m_link->deliverRaw(here.left(4)));
    QVERIFY(otherLink.deliverRaw(frame(5, "P2").mid(1)));
    QVERIFY(m_link->deliverRaw(here.mid(4)));

    QCOMPARE(receivedHere.count(), 0);
    QCOMPARE(receivedThere.count(), 1);
    QCOMPARE(hex(receivedThere.at(0).at(0).toByteArray()), hex(unstuffedFrame(5, "P2")));
    QTRY_COMPARE(hex(otherLink.hostBytes()), hex(toQt(pb::ackFrame(5))));
    QVERIFY(hostStaysSilent());
}

QTEST_GUILESS_MAIN(TestPowerBoard)
#include "tst_powerboard.moc"
