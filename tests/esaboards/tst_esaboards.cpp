// The ESA boards' boot loader model: boot request, memory selection, XMODEM-CRC packets numbered from 0,
// repeated and 1K blocks, routing by the select line, the fault syntax, the byte log; and the paced line
// it runs behind, which a reset silences.
#include "EsaBoards.h"
#include "EsaLine.h"
#include "Instrument.h"
#include "PacedLine.h"

#include <QtTest>

using namespace sim;
using State = EsaBoards::State;

constexpr bool IO = false, MEASUREMENT = true; // select-line levels
const QStringList C{"43"}, ACK{"06"}, NAK{"15"};

// What the boards answer to bytes from the host, each reply piece as hex text: {"55", "aa 06"}.
const auto rx = [](EsaBoards& boards, const std::string& bytes, bool level = IO) {
    QStringList out;
    for (const std::string& piece : boards.received(bytes, level))
        out << QByteArray(piece.data(), int(piece.size())).toHex(' ');
    return out;
};

// 128 bytes that differ from block to block.
const auto blockData = [](int index) {
    std::string data;
    for (int i = 0; i < 128; ++i)
        data += char((index * 7 + i * 13) & 0xFF);
    return data;
};

// A packet written out byte by byte from the protocol, independent of the model's own helper.
const auto rawPacket = [](int number, int complement, const std::string& data, quint16 crc) {
    return std::string{'\x01', char(number), char(complement)} + data +
           std::string{char(crc >> 8), char(crc)};
};

// Puts the selected board into its boot loader and starts a load into memory.
const auto start = [](EsaBoards& boards, bool level, char select = '2') {
    return rx(boards, std::string("B") + select, level); // "B" has no answer
};

class EsaBoardsTest : public QObject
{
    Q_OBJECT

private slots:
    void crcAndPacketLayout()
    {
        QCOMPARE(esa::crc16("123456789"), quint16(0x31C3));
        QCOMPARE(esa::crc16(std::string(128, '\xFF')), quint16(0xEDA9));
        QCOMPARE(esa::packet(5, "A"), rawPacket(5, 0xFA, "A" + std::string(127, '\x1A'), 0xF2DD));
    }

    void bootRequestAndSelectLine()
    {
        EsaBoards boards;
        QVERIFY(boards.received("B", IO).empty()); // "B" has no answer
        QCOMPARE(boards.state(EsaBoard::Io), State::BootLoader);
        QCOMPARE(boards.state(EsaBoard::Measurement), State::Application);
        QCOMPARE(rx(boards, "3"), C);
        QCOMPARE(boards.state(EsaBoard::Io), State::Receiving);
        QCOMPARE(boards.counters(EsaBoard::Io).eepromSelects, 1u);
        QCOMPARE(boards.counters(EsaBoard::Measurement).bytesFromHost, 0u);

        // The application ignores everything but "B", which may come with the selection in one chunk.
        QVERIFY(boards.received("23\x01\x04", MEASUREMENT).empty());
        QCOMPARE(boards.state(EsaBoard::Measurement), State::Application);
        QCOMPARE(boards.counters(EsaBoard::Measurement).ignoredBytes, 4u);
        QCOMPARE(rx(boards, "B2", MEASUREMENT), C);

        // Each packet goes to the board the select line picks.
        QCOMPARE(rx(boards, esa::packet(0, "io")), ACK);
        QCOMPARE(rx(boards, esa::packet(0, "m"), MEASUREMENT), ACK);
        QCOMPARE(boards.contents(EsaBoard::Io, EsaMemory::Eeprom).substr(0, 2), std::string("io"));
        QCOMPARE(boards.contents(EsaBoard::Measurement, EsaMemory::Flash).substr(0, 1), std::string("m"));
        QVERIFY(boards.contents(EsaBoard::Io, EsaMemory::Flash).empty());
    }

    void transferStoresBlocksAndStaysInTheBootLoader()
    {
        EsaBoards boards;
        QCOMPARE(start(boards, IO), C);
        std::string image;
        for (int i = 0; i < 257; ++i) { // numbered from 0, 255 followed by 0
            QCOMPARE(rx(boards, esa::packet(quint8(i), blockData(i))), ACK);
            image += blockData(i);
        }
        // Block 256 (numbered 0) once more is a repeat, block 0 of the transfer is not looked for again.
        QCOMPARE(rx(boards, esa::packet(0, blockData(1))), ACK);
        QCOMPARE(rx(boards, esa::packet(2, blockData(2))), NAK);
        QCOMPARE(rx(boards, "\x04"), ACK);
        QCOMPARE(boards.contents(EsaBoard::Io, EsaMemory::Flash), image);
        QVERIFY(boards.contents(EsaBoard::Io, EsaMemory::Eeprom).empty());
        QCOMPARE(boards.counters(EsaBoard::Io).transfersCompleted, 1u);
        QCOMPARE(boards.state(EsaBoard::Io), State::BootLoader);

        // A second load needs no new "B"; it rewrites from address 0.
        QCOMPARE(rx(boards, "2"), C);
        QCOMPARE(rx(boards, esa::packet(0, "x")), ACK);
        QCOMPARE(boards.contents(EsaBoard::Io, EsaMemory::Flash), "x" + std::string(127, '\x1A'));
        QCOMPARE(boards.memory(EsaBoard::Io, EsaMemory::Flash).substr(128, 128), blockData(1));

        // Packets split anyhow are reassembled.
        start(boards, MEASUREMENT, '3');
        QStringList replies;
        for (char byte : esa::packet(0, blockData(0)) + esa::packet(1, blockData(1)))
            replies << rx(boards, std::string(1, byte), MEASUREMENT);
        QCOMPARE(replies, ACK + ACK);
        QCOMPARE(boards.contents(EsaBoard::Measurement, EsaMemory::Eeprom), blockData(0) + blockData(1));
    }

    void badPacketsAreRefusedAndNotStored()
    {
        const std::tuple<int, int, int, const char*> packets[] = {
            {1, 0xFE, 0, "bad-number"},     // numbered from 1
            {255, 0x00, 0, "bad-number"},   // before the first block there is none to repeat
            {0, 0xFE, 0, "bad-complement"}, // the complement of 1
            {0, 0xFF, 0x0100, "bad-crc"},   // CRC high byte
            {0, 0xFF, 0x0001, "bad-crc"},   // CRC low byte
        };
        const std::string data = blockData(0);
        for (const auto& [number, complement, crcXor, reason] : packets) {
            EsaBoards boards;
            start(boards, IO);
            QCOMPARE(rx(boards, rawPacket(number, complement, data, quint16(esa::crc16(data) ^ crcXor))),
                     NAK);
            QVERIFY(boards.contents(EsaBoard::Io, EsaMemory::Flash).empty());
            const std::deque<std::string>& log = boards.log();
            QCOMPARE(QString::fromStdString(log[log.size() - 2]).section('[', -1),
                     QString("block 0 %1]").arg(reason));
            QCOMPARE(log.back(), std::string("io > 15"));
            // The same block is still expected.
            QCOMPARE(rx(boards, esa::packet(0, data)), ACK);
            QCOMPARE(boards.counters(EsaBoard::Io).blocksRefused, 1u);
        }

        EsaBoards small(256, 128); // a block beyond the memory is refused
        start(small, IO, '3');
        QCOMPARE(rx(small, esa::packet(0, "e")), ACK);
        QCOMPARE(rx(small, esa::packet(1, "e")), NAK);
        QCOMPARE(small.counters(EsaBoard::Io).beyondMemory, 1u);
    }

    // The host sends a block again when the board's ACK did not reach it: the receiver answers ACK and
    // keeps what it stored. Any other number, or a damaged repeat, is refused.
    void repeatedBlock_data()
    {
        QTest::addColumn<QByteArray>("packet"); // sent after blocks 0 and 1 were stored
        QTest::addColumn<QStringList>("reply");
        QTest::addColumn<QString>("logged");
        const auto qt = [](const std::string& bytes) { return QByteArray::fromStdString(bytes); };
        const std::string again = blockData(1);
        QTest::newRow("block 1 again") << qt(esa::packet(1, again)) << ACK << "block 1 duplicate]";
        QTest::newRow("block 1 again, other data")
            << qt(esa::packet(1, blockData(9))) << ACK << "block 1 duplicate]";
        QTest::newRow("block 0 again") << qt(esa::packet(0, blockData(0))) << NAK << "block 2 bad-number]";
        QTest::newRow("block 1 again, damaged")
            << qt(rawPacket(1, 0xFE, again, quint16(esa::crc16(again) ^ 1))) << NAK << "block 2 bad-crc]";
    }

    void repeatedBlock()
    {
        QFETCH(QByteArray, packet);
        QFETCH(QStringList, reply);
        QFETCH(QString, logged);
        EsaBoards boards;
        start(boards, IO);
        QCOMPARE(rx(boards, esa::packet(0, blockData(0))), ACK);
        QCOMPARE(rx(boards, esa::packet(1, blockData(1))), ACK);
        QCOMPARE(rx(boards, packet.toStdString()), reply);
        QVERIFY(QString::fromStdString(boards.log()[boards.log().size() - 2]).endsWith(logged));
        QCOMPARE(boards.counters(EsaBoard::Io).duplicates, quint64(reply == ACK));
        QCOMPARE(rx(boards, esa::packet(2, blockData(2))), ACK); // the load goes on with block 2
        QCOMPARE(boards.contents(EsaBoard::Io, EsaMemory::Flash), blockData(0) + blockData(1) + blockData(2));
    }

    // A 1K block (STX) is not part of this variant: the whole packet is refused, and the EOT, memory
    // selects and block starts among its bytes are data, not commands.
    void oneKBlockIsRefusedWhole_data()
    {
        QTest::addColumn<int>("stored"); // good blocks before the 1K one
        QTest::addColumn<bool>("byteByByte");
        QTest::newRow("in place of block 0") << 0 << false;
        QTest::newRow("in place of block 2") << 2 << false;
        QTest::newRow("in place of block 1, split into single bytes") << 1 << true;
    }

    void oneKBlockIsRefusedWhole()
    {
        QFETCH(int, stored);
        QFETCH(bool, byteByByte);
        // EOT, the memory selects, a boot request and block starts, over and over.
        const std::string commands{'\x04', '2', '3', 'B', '\x01', '\x02', '\x15'};
        std::string data;
        while (data.size() < 1024)
            data += commands;
        data.resize(1024);
        const std::string longPacket = std::string{'\x02', char(stored), char(255 - stored)} + data +
                                       std::string{char(esa::crc16(data) >> 8), char(esa::crc16(data))};

        EsaBoards boards;
        start(boards, IO);
        std::string image;
        for (int i = 0; i < stored; ++i) {
            QCOMPARE(rx(boards, esa::packet(quint8(i), blockData(i))), ACK);
            image += blockData(i);
        }
        QStringList replies;
        if (byteByByte) {
            for (char byte : longPacket)
                replies << rx(boards, std::string(1, byte));
        } else {
            replies = rx(boards, longPacket);
        }
        QCOMPARE(replies, NAK);
        QCOMPARE(boards.state(EsaBoard::Io), State::Receiving);
        QCOMPARE(boards.contents(EsaBoard::Io, EsaMemory::Flash), image);
        const EsaCounters& counters = boards.counters(EsaBoard::Io);
        QCOMPARE(counters.unsupported1k, 1u);
        QCOMPARE(counters.eots + counters.ignoredBytes + counters.flashSelects + counters.eepromSelects, 1u);
        QVERIFY(QString::fromStdString(boards.log()[boards.log().size() - 2])
                    .endsWith(QString("block %1 unsupported-1k]").arg(stored)));
        QCOMPARE(rx(boards, esa::packet(quint8(stored), blockData(stored))), ACK);
        QCOMPARE(boards.contents(EsaBoard::Io, EsaMemory::Flash), image + blockData(stored));
    }

    void faultControlSyntax()
    {
        EsaFaults faults;
        std::string error;
        for (const char* line : {"nak-at 4", "split", "stray 55 0a", "eot-reply"})
            QVERIFY2(applyEsaFault(faults, line, &error), line);
        QCOMPARE(esaFaultsText(faults),
                 std::string("nak-at 4\nsilent-at -1\nsilent-start off\nsplit on\nstray 55 0a\neot-reply\n"));
        for (const char* bad : {"nak-at", "nak-at x", "nak-at 1 2", "split maybe", "stray 100", "jam"}) {
            error.clear();
            QVERIFY2(!applyEsaFault(faults, bad, &error), bad);
            QVERIFY2(error.find(std::string(bad).substr(0, 4)) != std::string::npos, error.c_str());
        }
        QVERIFY(applyEsaFault(faults, "clear", &error));
        QCOMPARE(faults.nakAt, -1);
        QCOMPARE(faults.eotReply, std::string("\x06"));
    }

    // A reset silences the line: split replies still queued (50 ms apart), and bytes still on a paced
    // wire, never reach the host after it.
    void resetDropsRepliesOnTheirWay_data()
    {
        QTest::addColumn<bool>("paced");
        QTest::newRow("replies split apart") << false;
        QTest::newRow("on a line paced at 1200 baud") << true;
    }

    void resetDropsRepliesOnTheirWay()
    {
        QFETCH(bool, paced);
        Instrument instrument;
        EsaBoards boards;
        std::unique_ptr<SerialPeer> peer = std::make_unique<EsaPeer>(instrument.gpio(), boards);
        if (paced)
            peer = std::make_unique<PacedLine>(std::move(peer), 120);
        instrument.setSerialPeer(std::move(peer));
        SerialPeer& line = *instrument.serialPeer();
        boards.faults(EsaBoard::Measurement).splitReplies = true; // the select line is undriven: 1
        boards.faults(EsaBoard::Measurement).stray = std::string(39, '\x55');

        std::uint64_t now = 1000000;
        std::string heard = line.received("B2", now);
        while (heard.empty()) { // the first piece: at once, or once "B2" and the piece crossed the wire
            now = *line.nextDeadline();
            heard += line.timer(now);
        }
        QCOMPARE(heard, std::string("\x55"));
        QVERIFY(line.nextDeadline()); // 39 more pieces on their way

        instrument.reset();
        QVERIFY(!line.nextDeadline());
        QCOMPARE(line.timer(now + 10000000000u), std::string());
        // The line itself works on: the next packet is answered, and only that.
        boards.faults(EsaBoard::Measurement).stray.clear();
        heard = line.received(esa::packet(0, "a"), now);
        while (line.nextDeadline())
            heard += line.timer(*line.nextDeadline());
        QCOMPARE(heard, std::string("\x06"));
    }

    // At 11520 bytes/s a byte takes 86806 ns: a packet reaches the board after 133 byte times and its
    // ACK the host one byte time later; the first reply piece goes at once, the next after a gap.
    void pacedLineTakesEachByteItsTime()
    {
        GpioLineBank gpio;
        EsaBoards boards;
        PacedLine line(std::make_unique<EsaPeer>(gpio, boards), 11520);
        const std::uint64_t byte = line.byteNs();
        QCOMPARE(byte, std::uint64_t(86806));

        QVERIFY(line.received("B2", 1000).empty());
        QCOMPARE(*line.nextDeadline(), 1000 + byte);
        QVERIFY(line.timer(1000 + byte).empty()); // "B" arrived: no answer
        QVERIFY(line.timer(1000 + 2 * byte).empty());
        QCOMPARE(*line.nextDeadline(), 1000 + 3 * byte);
        QCOMPARE(line.timer(1000 + 3 * byte), std::string("C"));

        const std::uint64_t t0 = 10000000;
        line.received(esa::packet(0, "a"), t0);
        QVERIFY(line.timer(t0 + 132 * byte).empty());
        QCOMPARE(boards.counters(EsaBoard::Measurement).blocksAccepted, 0u);
        // Woken late: the board still answered when the last byte arrived.
        QVERIFY(line.timer(t0 + 133 * byte + 10).empty());
        QCOMPARE(*line.nextDeadline(), t0 + 134 * byte);
        QCOMPARE(line.timer(t0 + 134 * byte), std::string("\x06"));
        QVERIFY(!line.nextDeadline());

        // A split reply: the second piece waits for the gap on top of its own byte time.
        boards.faults(EsaBoard::Measurement).stray = "\x55";
        boards.faults(EsaBoard::Measurement).splitReplies = true;
        const std::uint64_t t1 = 40000000;
        line.received(esa::packet(1, "b"), t1);
        QCOMPARE(line.timer(t1 + 134 * byte), std::string("\x55"));
        QCOMPARE(*line.nextDeadline(), t1 + 133 * byte + EsaPeer::splitGapNs);
        QCOMPARE(line.timer(t1 + 133 * byte + EsaPeer::splitGapNs), std::string());
        QCOMPARE(line.timer(t1 + 134 * byte + EsaPeer::splitGapNs), std::string("\x06"));
    }
};

QTEST_APPLESS_MAIN(EsaBoardsTest)
#include "tst_esaboards.moc"
