// PowerBoardManager against the power board peer model over a pty: what goes out, acknowledgement and
// resending, and how the board's frames are reassembled, checked and answered. The resends on the 5 s
// acknowledgement timer: tst_powerboard_timeout.

#include "../support/DebugCapture.h"
#include "PowerBoardLink.h"

class TestPowerBoard : public QObject
{
    Q_OBJECT

    std::unique_ptr<Link> m_link;
    std::unique_ptr<DebugCapture> m_debug;

private slots:
    void init()
    {
        m_link = std::make_unique<Link>();
        REQUIRE_PTY(m_link->pty);
        m_debug = std::make_unique<DebugCapture>();
    }

    void cleanup()
    {
        m_debug.reset();
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
        QCOMPARE(m_debug->messages(), QVector<QString>(124, "received ack: ").toList());
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
        QCOMPARE(m_debug->messages(), (QStringList{n, n, n, a, n, n, n, n, n, n, n, n, a, a}));
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
        QCOMPARE(m_debug->messages(), QStringList{"same packet: "});
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
        QCOMPARE(m_debug->messages(), QStringList({reason, "sent Nak: "}));
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
