// The power board peer model against frames worked out by hand from the protocol.

#include "PowerBoardPeer.h"

#include <QtTest>

#include <cstring>

using sim::Bytes;
using sim::PowerBoardPeer;
namespace pb = sim::powerboard;

namespace {
Bytes bytes(const char* hex)
{
    const QByteArray raw = QByteArray::fromHex(hex);
    return Bytes(raw.begin(), raw.end());
}

Bytes text(const char* s)
{
    return Bytes(s, s + std::strlen(s));
}

Bytes joined(const std::vector<Bytes>& chunks)
{
    Bytes all;
    for (const Bytes& chunk : chunks)
        all.insert(all.end(), chunk.begin(), chunk.end());
    return all;
}

QByteArray hex(const Bytes& b)
{
    return QByteArray(reinterpret_cast<const char*>(b.data()), int(b.size())).toHex(' ');
}
} // namespace

class TestPowerBoardPeer : public QObject
{
    Q_OBJECT

private slots:
    void encodesFrames_data();
    void encodesFrames();
    void checksumWrapsAt16Bits();
    void acceptsGoodFramesSplitAnyhow();
    void naksBadFrames_data();
    void naksBadFrames();
    void decodesEscapesInOnePass();
    void faultInjection();
    void ownFrames();
};

void TestPowerBoardPeer::encodesFrames_data()
{
    QTest::addColumn<int>("id");
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<QByteArray>("wire");

    // 1+04+02+00+53+56 = 0xB0; the length byte 02 is escaped.
    QTest::newRow("SV id 4") << 4 << QByteArray("SV") << QByteArray("02047ff20053 56b00003");
    // 1+05+03+00+53+52+43 = 0xF1; the length byte 03 is escaped.
    QTest::newRow("SRC id 5") << 5 << QByteArray("SRC") << QByteArray("02057ff30053 5243f10003");
    // 1+06+01+00+7F = 0x87; the escape byte itself is doubled.
    QTest::newRow("escape in payload") << 6 << QByteArray("\x7f") << QByteArray("020601007f7f870003");
    // 1+04+03+00+FF+FF+FC = 0x0302: length and both checksum bytes need escaping.
    QTest::newRow("checksum 0x0302") << 4 << QByteArray("\xff\xff\xfc")
                                     << QByteArray("02047ff300fffffc7ff27ff303");
    // 1+7E+02+00+54+03 = 0xD8; id 126 is sent as it is.
    QTest::newRow("T 3 id 126") << 126 << QByteArray("T\x03") << QByteArray("027e7ff200547ff3d80003");
}

void TestPowerBoardPeer::encodesFrames()
{
    QFETCH(int, id);
    QFETCH(QByteArray, payload);
    QFETCH(QByteArray, wire);
    const Bytes frame = pb::encodeFrame(std::uint8_t(id), Bytes(payload.begin(), payload.end()));
    QCOMPARE(hex(frame), hex(bytes(wire.replace(' ', "").constData())));
}

void TestPowerBoardPeer::checksumWrapsAt16Bits()
{
    // 1+04+2C+01 + 300*FF = 76550 = 0x12B06: the sender keeps 0x2B06.
    const Bytes payload(300, 0xFF);
    QCOMPARE(pb::checksum(4, payload), std::uint16_t(0x2B06));
    const Bytes frame = pb::encodeFrame(4, payload);
    QCOMPARE(frame.size(), size_t(1 + 1 + 2 + 300 + 2 + 1));
    QCOMPARE(hex(Bytes(frame.end() - 3, frame.end())), QByteArray("06 2b 03"));

    PowerBoardPeer peer;
    peer.receive(frame);
    QCOMPARE(peer.commands(), std::vector<Bytes>{payload});
}

void TestPowerBoardPeer::acceptsGoodFramesSplitAnyhow()
{
    const Bytes sv = bytes("02047ff2005356b00003");
    for (size_t cut = 0; cut <= sv.size(); ++cut) {
        PowerBoardPeer peer;
        peer.receive(Bytes{0x55, 0xAA}); // line noise before the frame
        peer.receive(Bytes(sv.begin(), sv.begin() + long(cut)));
        peer.receive(Bytes(sv.begin() + long(cut), sv.end()));
        QCOMPARE(peer.commands(), std::vector<Bytes>{text("SV")});
        QCOMPARE(peer.strayBytes(), size_t(2));
        QCOMPARE(hex(joined(peer.takeOutput())), QByteArray("02 06 04 03"));
        QCOMPARE(peer.frames().at(0).id, std::uint8_t(4));
        QCOMPARE(hex(peer.frames().at(0).wire), hex(sv));
    }

    // An ACK or NAK from the host is a control, not a command.
    PowerBoardPeer peer;
    // Their id is not stuffed: 02 and 03 there are ids, not frame bytes.
    peer.receive(bytes("02060703021508030215020302060303"));
    QCOMPARE(peer.controls().size(), size_t(4));
    QVERIFY(peer.controls()[0].ack && peer.controls()[0].id == 7);
    QVERIFY(!peer.controls()[1].ack && peer.controls()[1].id == 8);
    QVERIFY(!peer.controls()[2].ack && peer.controls()[2].id == 2);
    QVERIFY(peer.controls()[3].ack && peer.controls()[3].id == 3);
    QVERIFY(peer.frames().empty());
    QVERIFY(!peer.hasOutput());
}

void TestPowerBoardPeer::naksBadFrames_data()
{
    QTest::addColumn<QByteArray>("wire");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("answer");

    using S = PowerBoardPeer::Status;
    QTest::newRow("id 1") << QByteArray("02 01 7ff2 00 5356 ad00 03") << int(S::BadId)
                          << QByteArray("02 15 01 03");
    QTest::newRow("id 127") << QByteArray("02 7f 7ff2 00 5356 2b01 03") << int(S::BadId)
                            << QByteArray("02 15 7f 03");
    QTest::newRow("checksum off by one")
        << QByteArray("02 04 7ff2 00 5356 af00 03") << int(S::BadChecksum) << QByteArray("02 15 04 03");
    QTest::newRow("length 3, 2 carried")
        << QByteArray("02 04 7ff3 00 5356 b100 03") << int(S::BadLength) << QByteArray("02 15 04 03");
    QTest::newRow("unknown escape") << QByteArray("02 04 7ff2 00 7f41 b000 03") << int(S::BadStuffing)
                                    << QByteArray("02 15 04 03");
    QTest::newRow("no checksum") << QByteArray("02 04 00 00 03") << int(S::TooShort)
                                 << QByteArray("02 15 04 03");
}

void TestPowerBoardPeer::naksBadFrames()
{
    QFETCH(QByteArray, wire);
    QFETCH(int, status);
    QFETCH(QByteArray, answer);
    PowerBoardPeer peer;
    peer.receive(bytes(wire.replace(' ', "").constData()));
    QCOMPARE(peer.frames().size(), size_t(1));
    QCOMPARE(int(peer.frames()[0].status), status);
    QVERIFY(peer.commands().empty());
    QCOMPARE(hex(joined(peer.takeOutput())), answer);
}

void TestPowerBoardPeer::decodesEscapesInOnePass()
{
    // Payload 7F F2: sent as 7F 7F F2 and read back as 7F F2, never as 02.
    const Bytes payload{0x7F, 0xF2};
    const Bytes frame = pb::encodeFrame(9, payload);
    QCOMPARE(hex(frame), QByteArray("02 09 7f f2 00 7f 7f f2 7d 01 03"));
    QCOMPARE(pb::unstuff(bytes("7f7ff2")), std::optional<Bytes>(payload));
    QCOMPARE(pb::unstuff(bytes("7f")), std::optional<Bytes>());
    PowerBoardPeer peer;
    peer.receive(frame);
    QCOMPARE(peer.commands(), std::vector<Bytes>{payload});
}

void TestPowerBoardPeer::faultInjection()
{
    const Bytes sv = pb::encodeFrame(4, text("SV"));
    PowerBoardPeer peer;

    peer.nakNext(2);
    peer.receive(sv);
    peer.receive(sv);
    peer.receive(sv);
    QCOMPARE(hex(joined(peer.takeOutput())), QByteArray("02 15 04 03 02 15 04 03 02 06 04 03"));
    QCOMPARE(int(peer.frames()[1].status), int(PowerBoardPeer::Status::Refused));
    QCOMPARE(peer.commands().size(), size_t(1));

    // The same frame again (the host missed the ACK): ACKed again, recorded once as a command.
    peer.receive(sv);
    QCOMPARE(hex(joined(peer.takeOutput())), QByteArray("02 06 04 03"));
    QVERIFY(peer.frames().back().repeat);
    // Another command with the same id is new.
    peer.receive(pb::encodeFrame(4, text("SD")));
    QCOMPARE(peer.commands(), (std::vector<Bytes>{text("SV"), text("SD")}));

    // Silent: neither ACK nor NAK.
    peer.takeOutput();
    peer.setSilent(true);
    peer.receive(pb::encodeFrame(5, text("T0")));
    peer.receive(bytes("02040000000003"));
    QVERIFY(!peer.hasOutput());
    QCOMPARE(int(peer.frames()[peer.frames().size() - 2].status), int(PowerBoardPeer::Status::Ignored));
    peer.setSilent(false);

    // A start byte inside a frame abandons it.
    peer.receive(bytes("020600"));
    peer.receive(pb::encodeFrame(6, text("SRC")));
    QCOMPARE(peer.commands().back(), text("SRC"));
}

void TestPowerBoardPeer::ownFrames()
{
    PowerBoardPeer peer;
    peer.sendFrame(text("V1"));
    peer.repeatLastFrame();
    peer.sendFrame(126, text("X"));
    peer.sendFrame(text("Y"));
    const std::vector<Bytes> out = peer.takeOutput();
    QCOMPARE(out.size(), size_t(4));
    QCOMPARE(hex(out[0]), hex(pb::encodeFrame(4, text("V1"))));
    QCOMPARE(hex(out[1]), hex(out[0]));
    QCOMPARE(hex(out[2]), hex(pb::encodeFrame(126, text("X"))));
    QCOMPARE(hex(out[3]), hex(pb::encodeFrame(4, text("Y")))); // 126 is followed by 4

    peer.setChunkSize(3);
    peer.sendFrame(text("HELLO"));
    const std::vector<Bytes> chunks = peer.takeOutput();
    const Bytes hello = pb::encodeFrame(5, text("HELLO"));
    QCOMPARE(hello.size(), size_t(13)); // checksum 0x017F: its low byte is escaped
    QCOMPARE(chunks.size(), size_t(5));
    for (const Bytes& chunk : chunks)
        QVERIFY(chunk.size() <= 3);
    QCOMPARE(hex(joined(chunks)), hex(hello));

    peer.sendRaw(bytes("0202"));
    QCOMPARE(hex(joined(peer.takeOutput())), QByteArray("02 02"));
}

QTEST_GUILESS_MAIN(TestPowerBoardPeer)
#include "tst_powerboardpeer.moc"
