// The power board peer model against frames worked out by hand from the protocol.

#include "PowerBoardPeer.h"

#include <QtTest>

using namespace sim;
using Status = PowerBoardPeer::Status;
namespace pb = sim::powerboard;

const auto text = [](const QByteArray& s) { return Bytes(s.begin(), s.end()); };
const auto bytes = [](const QByteArray& hex) { return text(QByteArray::fromHex(hex)); };

// Chunks as hex text, joined by " | ", so a failed comparison shows the bytes and where a chunk ends.
const auto hexOf = [](const std::vector<Bytes>& chunks) {
    QByteArrayList all;
    for (const Bytes& chunk : chunks)
        all << QByteArray(reinterpret_cast<const char*>(chunk.data()), int(chunk.size())).toHex(' ');
    return all.join(" | ");
};

class TestPowerBoardPeer : public QObject
{
    Q_OBJECT

private slots:
    void encodesFrames()
    {
        const std::tuple<int, QByteArray, QByteArray> frames[] = {
            // 1+04+02+00+53+56 = 0xB0; the length byte 02 is escaped.
            {4, "SV", "02 04 7f f2 00 53 56 b0 00 03"},
            // 1+05+03+00+53+52+43 = 0xF1; the length byte 03 is escaped.
            {5, "SRC", "02 05 7f f3 00 53 52 43 f1 00 03"},
            // 1+06+01+00+7F = 0x87; the escape byte itself is doubled.
            {6, "\x7f", "02 06 01 00 7f 7f 87 00 03"},
            // 1+04+03+00+FF+FF+FC = 0x0302: length and both checksum bytes need escaping.
            {4, "\xff\xff\xfc", "02 04 7f f3 00 ff ff fc 7f f2 7f f3 03"},
            // 1+7E+02+00+54+03 = 0xD8; id 126 is sent as it is.
            {126, QByteArray("T\x03"), "02 7e 7f f2 00 54 7f f3 d8 00 03"},
            // 7F F2 in the data is sent as 7F 7F F2 (1+09+02+00+7F+F2 = 0x017D).
            {9, "\x7f\xf2", "02 09 7f f2 00 7f 7f f2 7d 01 03"},
        };
        for (const auto& [id, payload, wire] : frames)
            QCOMPARE(hexOf({pb::encodeFrame(std::uint8_t(id), text(payload))}), wire);

        // Unstuffing goes left to right in one pass: 7F 7F F2 is 7F F2, never 02.
        QCOMPARE(pb::unstuff(bytes("7f7ff2")), std::optional<Bytes>(bytes("7ff2")));
        QCOMPARE(pb::unstuff(bytes("7f")), std::optional<Bytes>());

        // 1+04+2C+01 + 300*FF = 76550 = 0x12B06: the sender keeps 0x2B06.
        const Bytes payload(300, 0xFF);
        QCOMPARE(pb::checksum(4, payload), std::uint16_t(0x2B06));
        QVERIFY(hexOf({pb::encodeFrame(4, payload)}).endsWith("ff 06 2b 03"));
    }

    void acceptsGoodFramesSplitAnyhow()
    {
        const Bytes sv = bytes("02047ff2005356b00003");
        for (size_t cut = 0; cut <= sv.size(); ++cut) {
            PowerBoardPeer peer;
            peer.receive(Bytes{0x55, 0xAA}); // line noise before the frame
            peer.receive(Bytes(sv.begin(), sv.begin() + long(cut)));
            peer.receive(Bytes(sv.begin() + long(cut), sv.end()));
            QCOMPARE(peer.commands(), std::vector<Bytes>{text("SV")});
            QCOMPARE(peer.strayBytes(), size_t(2));
            QCOMPARE(hexOf(peer.takeOutput()), QByteArray("02 06 04 03"));
        }

        // Frames whose checksum wrapped at 16 bits, or with an escaped escape in the data.
        PowerBoardPeer peer;
        for (const Bytes& payload : {Bytes(300, 0xFF), bytes("7ff2")}) {
            peer.receive(pb::encodeFrame(9, payload));
            QCOMPARE(peer.commands().back(), payload);
        }

        // ACK and NAK from the host are controls, not commands; their id is not stuffed: 02 and 03 there
        // are ids, not frame bytes.
        peer.takeOutput();
        peer.receive(bytes("02060703021508030215020302060303"));
        QString controls;
        for (const PowerBoardPeer::Control& control : peer.controls())
            controls += QString(control.ack ? "ACK %1 " : "NAK %1 ").arg(control.id);
        QCOMPARE(controls, QString("ACK 7 NAK 8 NAK 2 ACK 3 "));
        QCOMPARE(peer.frames().size(), size_t(2));
        QVERIFY(!peer.hasOutput());
    }

    void naksBadFrames()
    {
        const std::tuple<const char*, Status, const char*> frames[] = {
            {"02 01 7ff2 00 5356 ad00 03", Status::BadId, "02 15 01 03"},       // id 1
            {"02 7f 7ff2 00 5356 2b01 03", Status::BadId, "02 15 7f 03"},       // id 127
            {"02 04 7ff2 00 5356 af00 03", Status::BadChecksum, "02 15 04 03"}, // checksum off by one
            {"02 04 7ff3 00 5356 b100 03", Status::BadLength, "02 15 04 03"},   // length 3, 2 carried
            {"02 04 7ff2 00 7f41 b000 03", Status::BadStuffing, "02 15 04 03"}, // unknown escape
            {"02 04 00 00 03", Status::TooShort, "02 15 04 03"},                // no checksum
        };
        for (const auto& [wire, status, answer] : frames) {
            PowerBoardPeer peer;
            peer.receive(bytes(wire));
            QVERIFY2(peer.frames().size() == 1 && peer.frames()[0].status == status, wire);
            QVERIFY(peer.commands().empty());
            QCOMPARE(hexOf(peer.takeOutput()), QByteArray(answer));
        }
    }

    // The same frame again (the host missed the ACK) is ACKed again and recorded once; another command
    // with the same id is new.
    void repeatedFrame()
    {
        const Bytes sv = pb::encodeFrame(4, text("SV"));
        PowerBoardPeer peer;
        peer.receive(sv);
        peer.receive(sv);
        QCOMPARE(hexOf(peer.takeOutput()), QByteArray("02 06 04 03 | 02 06 04 03"));
        QVERIFY(peer.frames().back().repeat);
        peer.receive(pb::encodeFrame(4, text("SD")));
        QCOMPARE(peer.commands(), (std::vector<Bytes>{text("SV"), text("SD")}));
    }

    void ownFrames()
    {
        PowerBoardPeer peer;
        peer.sendFrame(text("V1"));
        peer.repeatLastFrame();
        peer.sendFrame(126, text("X"));
        peer.sendFrame(text("Y")); // 126 is followed by 4
        const Bytes v1 = pb::encodeFrame(4, text("V1"));
        QCOMPARE(hexOf(peer.takeOutput()),
                 hexOf({v1, v1, pb::encodeFrame(126, text("X")), pb::encodeFrame(4, text("Y"))}));

        // Checksum 0x017F: its low byte is escaped, 13 bytes in chunks of 3 (the last one byte).
        peer.setChunkSize(3);
        peer.sendFrame(text("HELLO"));
        QCOMPARE(hexOf(peer.takeOutput()), QByteArray("02 05 05 | 00 48 45 | 4c 4c 4f | 7f 7f 01 | 03"));

        peer.sendRaw(bytes("0202"));
        QCOMPARE(hexOf(peer.takeOutput()), QByteArray("02 02"));
    }
};

QTEST_GUILESS_MAIN(TestPowerBoardPeer)
#include "tst_powerboardpeer.moc"
