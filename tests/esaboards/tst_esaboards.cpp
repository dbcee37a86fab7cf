// The ESA boards' boot loader model against the protocol: boot request and memory selection, XMODEM-CRC
// packets numbered from 0, ACK/NAK decisions, routing by the select line, fault injection, the byte log;
// and the paced line that the benchmark runs the model behind.
#include "EsaBoards.h"
#include "EsaLine.h"
#include "PacedLine.h"

#include <QtTest>

#include <string>
#include <vector>

using sim::EsaBoard;
using sim::EsaBoards;
using sim::EsaMemory;
using Chunks = std::vector<std::string>;

namespace {

constexpr bool IO_LEVEL = false;
constexpr bool MEASUREMENT_LEVEL = true;

const std::string ACK(1, '\x06');
const std::string NAK(1, '\x15');
const std::string C = "C";

// Chunks as hex text, so a failed comparison shows the bytes.
QStringList hex(const Chunks& chunks)
{
    QStringList out;
    for (const std::string& c : chunks)
        out << QByteArray(c.data(), int(c.size())).toHex(' ');
    return out;
}

QStringList hexOf(std::initializer_list<std::string> chunks)
{
    return hex(Chunks(chunks));
}

// 128 bytes that differ from block to block.
std::string blockData(int index)
{
    std::string data;
    for (int i = 0; i < 128; ++i)
        data += char((index * 7 + i * 13) & 0xFF);
    return data;
}

// A packet written out byte by byte from the protocol, independent of the model's own helper.
std::string rawPacket(int number, int complement, const std::string& data, quint16 crc)
{
    std::string p;
    p += '\x01';
    p += char(number);
    p += char(complement);
    p += data;
    p += char(crc >> 8);
    p += char(crc & 0xFF);
    return p;
}

// Puts the selected board into its boot loader and starts a load into memory.
Chunks start(EsaBoards& boards, bool level, char select = '2')
{
    boards.received("B", level);
    return boards.received(std::string(1, select), level);
}

} // namespace

class EsaBoardsTest : public QObject
{
    Q_OBJECT

private slots:
    void crcAndPacketLayout()
    {
        QCOMPARE(sim::esa::crc16("123456789"), quint16(0x31C3));
        QCOMPARE(sim::esa::crc16(""), quint16(0));
        QCOMPARE(sim::esa::crc16(std::string(128, '\x1A')), quint16(0xF8B0));
        QCOMPARE(sim::esa::crc16(std::string(128, '\xFF')), quint16(0xEDA9));

        const std::string p = sim::esa::packet(5, "A");
        QCOMPARE(p.size(), size_t(133));
        QCOMPARE(p, rawPacket(5, 0xFA, "A" + std::string(127, '\x1A'), 0xF2DD));
    }

    void bootRequestReachesOnlyTheSelectedBoard()
    {
        EsaBoards boards;
        QVERIFY(boards.received("B", IO_LEVEL).empty()); // "B" has no answer
        QCOMPARE(boards.state(EsaBoard::Io), EsaBoards::State::BootLoader);
        QCOMPARE(boards.state(EsaBoard::Measurement), EsaBoards::State::Application);

        QCOMPARE(hex(boards.received("3", IO_LEVEL)), hexOf({C}));
        QCOMPARE(boards.state(EsaBoard::Io), EsaBoards::State::Receiving);
        QCOMPARE(boards.counters(EsaBoard::Io).eepromSelects, 1u);
        QCOMPARE(boards.counters(EsaBoard::Measurement).bytesFromHost, 0u);
    }

    void applicationIgnoresEverythingButTheBootRequest()
    {
        EsaBoards boards;
        QVERIFY(boards.received("23\x01\x04", MEASUREMENT_LEVEL).empty());
        QCOMPARE(boards.state(EsaBoard::Measurement), EsaBoards::State::Application);
        QCOMPARE(boards.counters(EsaBoard::Measurement).ignoredBytes, 4u);
        // "B" and the selection in one chunk, as a host sends them without a pause.
        QCOMPARE(hex(boards.received("B2", MEASUREMENT_LEVEL)), hexOf({C}));
    }

    void transferStoresBlocksAndStaysInTheBootLoader()
    {
        EsaBoards boards;
        QCOMPARE(hex(start(boards, IO_LEVEL)), hexOf({C}));
        std::string image;
        for (int i = 0; i < 3; ++i) {
            QCOMPARE(hex(boards.received(sim::esa::packet(quint8(i), blockData(i)), IO_LEVEL)), hexOf({ACK}));
            image += blockData(i);
        }
        QCOMPARE(hex(boards.received("\x04", IO_LEVEL)), hexOf({ACK}));
        QCOMPARE(boards.contents(EsaBoard::Io, EsaMemory::Flash), image);
        QVERIFY(boards.contents(EsaBoard::Io, EsaMemory::Eeprom).empty());
        QCOMPARE(boards.counters(EsaBoard::Io).transfersCompleted, 1u);
        QCOMPARE(boards.state(EsaBoard::Io), EsaBoards::State::BootLoader);

        // A second load needs no new "B"; it rewrites from address 0.
        QCOMPARE(hex(boards.received("2", IO_LEVEL)), hexOf({C}));
        QCOMPARE(hex(boards.received(sim::esa::packet(0, "x"), IO_LEVEL)), hexOf({ACK}));
        QCOMPARE(boards.contents(EsaBoard::Io, EsaMemory::Flash), "x" + std::string(127, '\x1A'));
        QCOMPARE(boards.memory(EsaBoard::Io, EsaMemory::Flash).substr(128, 128), blockData(1));
    }

    void packetsSplitAnyhowAreReassembled()
    {
        EsaBoards boards;
        start(boards, MEASUREMENT_LEVEL, '3');
        const std::string stream = sim::esa::packet(0, blockData(0)) + sim::esa::packet(1, blockData(1));
        Chunks replies;
        for (char byte : stream) {
            const Chunks r = boards.received(std::string(1, byte), MEASUREMENT_LEVEL);
            replies.insert(replies.end(), r.begin(), r.end());
        }
        QCOMPARE(hex(replies), hexOf({ACK, ACK}));
        QCOMPARE(boards.contents(EsaBoard::Measurement, EsaMemory::Eeprom), blockData(0) + blockData(1));
    }

    void badPacketsAreRefusedAndNotStored_data()
    {
        QTest::addColumn<int>("number");
        QTest::addColumn<int>("complement");
        QTest::addColumn<int>("crcXor");
        QTest::addColumn<QString>("reason");
        QTest::newRow("numbered from 1") << 1 << 0xFE << 0 << "bad-number";
        QTest::newRow("complement") << 0 << 0xFE << 0 << "bad-complement";
        QTest::newRow("crc high byte") << 0 << 0xFF << 0x0100 << "bad-crc";
        QTest::newRow("crc low byte") << 0 << 0xFF << 0x0001 << "bad-crc";
    }

    void badPacketsAreRefusedAndNotStored()
    {
        QFETCH(int, number);
        QFETCH(int, complement);
        QFETCH(int, crcXor);
        QFETCH(QString, reason);
        EsaBoards boards;
        start(boards, IO_LEVEL);
        const std::string data = blockData(0);
        const quint16 crc = quint16(sim::esa::crc16(data) ^ crcXor);
        QCOMPARE(hex(boards.received(rawPacket(number, complement, data, crc), IO_LEVEL)), hexOf({NAK}));
        QVERIFY(boards.contents(EsaBoard::Io, EsaMemory::Flash).empty());
        const std::deque<std::string>& log = boards.log();
        QVERIFY(QString::fromStdString(log[log.size() - 2]).endsWith("[block 0 " + reason + "]"));
        QCOMPARE(log.back(), std::string("io > 15"));
        // The same block is still expected.
        QCOMPARE(hex(boards.received(sim::esa::packet(0, data), IO_LEVEL)), hexOf({ACK}));
        QCOMPARE(boards.counters(EsaBoard::Io).blocksRefused, 1u);
    }

    void blockNumbersWrapFrom255To0()
    {
        EsaBoards boards;
        start(boards, IO_LEVEL);
        for (int i = 0; i < 257; ++i)
            QCOMPARE(hex(boards.received(sim::esa::packet(quint8(i), blockData(i)), IO_LEVEL)), hexOf({ACK}));
        QCOMPARE(boards.contents(EsaBoard::Io, EsaMemory::Flash).size(), size_t(257 * 128));
        QCOMPARE(boards.contents(EsaBoard::Io, EsaMemory::Flash).substr(256 * 128), blockData(256));
        // After 0 comes 1 again, not 256 % 256 twice.
        QCOMPARE(hex(boards.received(sim::esa::packet(0, blockData(0)), IO_LEVEL)), hexOf({NAK}));
    }

    void blocksBeyondTheMemoryAreRefused()
    {
        EsaBoards boards(256, 128);
        start(boards, IO_LEVEL, '3');
        QCOMPARE(hex(boards.received(sim::esa::packet(0, "e"), IO_LEVEL)), hexOf({ACK}));
        QCOMPARE(hex(boards.received(sim::esa::packet(1, "e"), IO_LEVEL)), hexOf({NAK}));
        QCOMPARE(boards.counters(EsaBoard::Io).beyondMemory, 1u);
    }

    void selectLineRoutesEachByte()
    {
        EsaBoards boards;
        start(boards, IO_LEVEL);
        start(boards, MEASUREMENT_LEVEL, '3');
        QCOMPARE(hex(boards.received(sim::esa::packet(0, "io"), IO_LEVEL)), hexOf({ACK}));
        QCOMPARE(hex(boards.received(sim::esa::packet(0, "m"), MEASUREMENT_LEVEL)), hexOf({ACK}));
        QCOMPARE(boards.contents(EsaBoard::Io, EsaMemory::Flash).substr(0, 2), std::string("io"));
        QCOMPARE(boards.contents(EsaBoard::Measurement, EsaMemory::Eeprom).substr(0, 1), std::string("m"));
        QVERIFY(boards.contents(EsaBoard::Measurement, EsaMemory::Flash).empty());
    }

    void injectedFaults()
    {
        EsaBoards boards;
        boards.faults(EsaBoard::Io).nakAt = 1;
        start(boards, IO_LEVEL);
        QCOMPARE(hex(boards.received(sim::esa::packet(0, "a"), IO_LEVEL)), hexOf({ACK}));
        QCOMPARE(hex(boards.received(sim::esa::packet(1, "b"), IO_LEVEL)), hexOf({NAK}));
        QCOMPARE(hex(boards.received(sim::esa::packet(1, "b"), IO_LEVEL)), hexOf({ACK})); // once only

        boards.reset();
        boards.faults(EsaBoard::Io).silentAt = 1;
        start(boards, IO_LEVEL);
        QCOMPARE(hex(boards.received(sim::esa::packet(0, "a"), IO_LEVEL)), hexOf({ACK}));
        QVERIFY(boards.received(sim::esa::packet(1, "b"), IO_LEVEL).empty());
        QVERIFY(boards.received("\x04", IO_LEVEL).empty());
        QCOMPARE(boards.counters(EsaBoard::Io).blocksUnanswered, 1u);

        boards.reset();
        boards.faults(EsaBoard::Measurement).silentStart = true;
        QVERIFY(start(boards, MEASUREMENT_LEVEL).empty());

        boards.reset();
        boards.faults(EsaBoard::Io).stray = "\x55\xAA";
        QCOMPARE(hex(start(boards, IO_LEVEL)), hexOf({"\x55\xAA" + C}));
        boards.faults(EsaBoard::Io).splitReplies = true;
        QCOMPARE(hex(boards.received(sim::esa::packet(0, "a"), IO_LEVEL)), hexOf({"\x55", "\xAA", ACK}));

        boards.reset();
        boards.faults(EsaBoard::Io).eotReply = "\x06\x43";
        start(boards, IO_LEVEL);
        QCOMPARE(hex(boards.received("\x04", IO_LEVEL)), hexOf({"\x06\x43"}));
        boards.faults(EsaBoard::Io).eotReply.clear();
        boards.received("2", IO_LEVEL);
        QVERIFY(boards.received("\x04", IO_LEVEL).empty());
    }

    void byteLogNamesEveryUnit()
    {
        EsaBoards boards;
        boards.received("xB", IO_LEVEL);
        boards.received("B2", IO_LEVEL);
        boards.received(sim::esa::packet(0, std::string(128, '\x1A')), IO_LEVEL);
        boards.received("\x04", IO_LEVEL);
        std::vector<std::string> expected = {"io < 78 [ignored]", "io < 42 [boot]", "io < 42 [boot again]",
                                             "io < 32 [flash]", "io > 43"};
        const std::vector<std::string> log(boards.log().begin(), boards.log().end());
        QCOMPARE(log.size(), size_t(9));
        QVERIFY(std::equal(expected.begin(), expected.end(), log.begin()));
        QVERIFY(log[5].rfind("io < 01 00 ff 1a 1a", 0) == 0);
        QVERIFY(log[5].find("1a f8 b0 [block 0 ok]") != std::string::npos);
        QCOMPARE(log[6], std::string("io > 06"));
        QCOMPARE(log[7], std::string("io < 04 [eot]"));
        QCOMPARE(log[8], std::string("io > 06"));
    }

    void faultControlSyntax()
    {
        sim::EsaFaults faults;
        std::string error;
        QVERIFY(sim::applyEsaFault(faults, "nak-at 4", &error));
        QVERIFY(sim::applyEsaFault(faults, "split", &error));
        QVERIFY(sim::applyEsaFault(faults, "stray 55 0a", &error));
        QVERIFY(sim::applyEsaFault(faults, "eot-reply", &error));
        QCOMPARE(faults.nakAt, 4);
        QVERIFY(faults.splitReplies);
        QCOMPARE(faults.stray, std::string("\x55\x0a"));
        QVERIFY(faults.eotReply.empty());
        QCOMPARE(sim::esaFaultsText(faults),
                 std::string("nak-at 4\nsilent-at -1\nsilent-start off\nsplit on\nstray 55 0a\neot-reply\n"));
        for (const char* bad : {"nak-at", "nak-at x", "nak-at 1 2", "split maybe", "stray 100", "jam"}) {
            error.clear();
            QVERIFY2(!sim::applyEsaFault(faults, bad, &error), bad);
            QVERIFY2(error.find(std::string(bad).substr(0, 4)) != std::string::npos, error.c_str());
        }
        QVERIFY(sim::applyEsaFault(faults, "clear", &error));
        QCOMPARE(faults.nakAt, -1);
        QCOMPARE(faults.eotReply, ACK);
    }

    // At 11520 bytes/s a byte takes 86806 ns: a packet reaches the board after 133 byte times and its
    // ACK the host one byte time later; the first reply piece goes at once, the next after a gap.
    void pacedLineTakesEachByteItsTime()
    {
        sim::GpioLineBank gpio;
        EsaBoards boards;
        sim::PacedLine line(std::make_unique<sim::EsaPeer>(gpio, boards), 11520);
        const std::uint64_t byte = line.byteNs();
        QCOMPARE(byte, std::uint64_t(86806));

        QVERIFY(line.received("B2", 1000).empty());
        QCOMPARE(*line.nextDeadline(), 1000 + byte);
        QVERIFY(line.timer(1000 + byte).empty()); // "B" arrived: no answer
        QVERIFY(line.timer(1000 + 2 * byte).empty());
        QCOMPARE(*line.nextDeadline(), 1000 + 3 * byte);
        QCOMPARE(line.timer(1000 + 3 * byte), C);

        const std::uint64_t t0 = 10000000;
        line.received(sim::esa::packet(0, "a"), t0);
        QVERIFY(line.timer(t0 + 132 * byte).empty());
        QCOMPARE(boards.counters(EsaBoard::Measurement).blocksAccepted, 0u);
        // Woken late: the board still answered when the last byte arrived.
        QVERIFY(line.timer(t0 + 133 * byte + 10).empty());
        QCOMPARE(*line.nextDeadline(), t0 + 134 * byte);
        QCOMPARE(line.timer(t0 + 134 * byte), ACK);
        QVERIFY(!line.nextDeadline());

        // A split reply: the second piece waits for the gap on top of its own byte time.
        boards.faults(EsaBoard::Measurement).stray = "\x55";
        boards.faults(EsaBoard::Measurement).splitReplies = true;
        const std::uint64_t t1 = 40000000;
        line.received(sim::esa::packet(1, "b"), t1);
        QCOMPARE(line.timer(t1 + 134 * byte), std::string("\x55"));
        QCOMPARE(*line.nextDeadline(), t1 + 133 * byte + sim::EsaPeer::splitGapNs);
        QCOMPARE(line.timer(t1 + 133 * byte + sim::EsaPeer::splitGapNs), std::string());
        QCOMPARE(line.timer(t1 + 134 * byte + sim::EsaPeer::splitGapNs), ACK);
    }
};

QTEST_APPLESS_MAIN(EsaBoardsTest)
#include "tst_esaboards.moc"
