// The PIC18F4620 model driven through the GPIO line bank by a small host of its own on a simulated clock.
// Expected values are the documents' own: DS39622 (PIC18F2XXX/4XXX flash programming) and the data sheet.

#include "PicControl.h"
#include "PicTarget.h"

#include <QtTest>

#include <cerrno>
#include <numeric>
#include <optional>
#include <vector>

using sim::PicTarget;
using namespace std::string_literals;
using Bytes = std::vector<std::uint8_t>;
Q_DECLARE_METATYPE(Bytes)

namespace {

constexpr int PGD = PicTarget::PGD, MCLR = PicTarget::MCLR, PGC = PicTarget::PGC, POWER = PicTarget::POWER,
              PGM = PicTarget::PGM;

// The data sheet's configuration bits of the PIC18F4620, 300000h..30000Dh.
const Bytes unprogrammedConfig{0x00, 0x07, 0x1F, 0x1F, 0x00, 0x83, 0x85,
                               0x00, 0x0F, 0xC0, 0x0F, 0xE0, 0x0F, 0x40};
const Bytes implementedConfig{0x00, 0xCF, 0x1F, 0x1F, 0x00, 0x87, 0xC5,
                              0x00, 0x0F, 0xC0, 0x0F, 0xE0, 0x0F, 0x40};

// A programmer whose every line-bank file operation takes 100 ns; powers the chip and enters the mode.
struct Host
{
    explicit Host(PicTarget& target) : pic(target)
    {
        bank.attach(PicTarget::lines(), &pic);
        for (int line : PicTarget::lines())
            bank.exportLine(line);
        out(POWER, true);
        enter();
    }

    PicTarget& pic;
    sim::GpioLineBank bank;
    std::uint64_t now = 1'000'000'000;

    std::uint64_t tick() { return now += 100; }
    void out(int line, bool level)
    {
        if (bank.state(line)->direction != sim::Direction::Out)
            bank.writeDirection(line, "out", tick());
        bank.writeValue(line, level ? "1" : "0", tick());
    }
    void release(int line) { bank.writeDirection(line, "in", tick()); }
    bool sample() { return bank.readValue(PGD, tick()) == "1\n"; }
    // MCLR and PGM pulsed so that MCLR rises pgmSetup after PGM; the first clock may follow dataHold later.
    void enter(std::uint64_t pgmSetup = PicTarget::P15, std::uint64_t dataHold = PicTarget::P12)
    {
        for (int line : {MCLR, PGD, PGC, PGM})
            out(line, false);
        out(PGM, true);
        now += pgmSetup;
        out(MCLR, true);
        now += dataHold;
    }
    // One clock with PGD at the bit; PGC held high for `high` ns, then low for `low` ns.
    void clock(bool bit, std::uint64_t high = 0, std::uint64_t low = 0)
    {
        out(PGD, bit);
        out(PGC, true);
        now += high;
        out(PGC, false);
        now += low;
    }
    void bits(std::uint32_t value, int count)
    {
        for (int i = 0; i < count; ++i)
            clock((value >> i) & 1);
    }
    void command(std::uint32_t cmd, std::uint16_t operand) { bits(cmd | operand << 4, 20); }
    void cores(std::initializer_list<std::uint16_t> words)
    {
        for (std::uint16_t word : words)
            command(0x0, word);
    }
    void setPointer(std::uint32_t at) // MOVLW/MOVWF into TBLPTRU, TBLPTRH, TBLPTRL
    {
        for (int reg : {0xF8, 0xF7, 0xF6})
            cores({std::uint16_t(0x0E00 | ((at >> (8 * (reg - 0xF6))) & 0xFF)), std::uint16_t(0x6E00 | reg)});
    }
    // A read command: 8 clocks with PGD low, then PGD released and 8 bits sampled after each falling edge.
    std::uint8_t read(std::uint8_t cmd)
    {
        bits(cmd, 12); // the command, then 8 zeros
        release(PGD);
        std::uint8_t value = 0;
        for (int i = 0; i < 8; ++i) {
            out(PGC, true);
            out(PGC, false);
            value |= std::uint8_t(sample() << i);
        }
        out(PGD, false);
        return value;
    }
    Bytes readFrom(std::uint32_t address, int count)
    {
        setPointer(address);
        Bytes bytes(std::size_t(count), 0);
        for (std::uint8_t& byte : bytes)
            byte = read(0x9);
        return bytes;
    }
    // MOVF reg,W; MOVWF TABLAT; NOP; then TABLAT shifted out.
    std::uint8_t readRegister(std::uint8_t reg)
    {
        cores({std::uint16_t(0x5000 | reg), 0x6EF5, 0x0000});
        return read(0x2);
    }
    // NOP whose 4th clock is held high for the programming time, then low for the discharge time.
    void programmingNop(std::uint64_t high = PicTarget::P9, std::uint64_t low = PicTarget::P10)
    {
        bits(0, 3);
        clock(false, high, low);
        bits(0, 16);
    }
    // A flash row (or, with cfgs, one configuration word) loaded into the write buffer and programmed; the
    // programming NOP's 4th clock high for `hold`, then low for `low`.
    void write(std::uint32_t at, const Bytes& data, bool cfgs = false, std::uint64_t hold = PicTarget::P9,
               std::uint64_t low = PicTarget::P10)
    {
        cores({0x8EA6, std::uint16_t(cfgs ? 0x8CA6 : 0x9CA6)}); // BSF EECON1,EEPGD; BSF/BCF EECON1,CFGS
        setPointer(at);
        for (std::size_t i = 0; i < data.size(); i += 2)
            command(i + 2 < data.size() ? 0xD : 0xF, std::uint16_t(data[i] | data[i + 1] << 8));
        programmingNop(hold, low);
    }
    // DS39622 table 3-2: the code to 3C0005h and 3C0004h, a NOP, a NOP whose operand waits P11 + P10.
    void bulkErase(std::uint16_t code, std::uint64_t hold = PicTarget::P11 + PicTarget::P10)
    {
        setPointer(0x3C0005);
        command(0xC, std::uint16_t((code >> 8) * 0x0101));
        setPointer(0x3C0004);
        command(0xC, std::uint16_t((code & 0xFF) * 0x0101));
        bits(0, 24); // the NOP and the next one's command
        now += hold;
        bits(0, 16);
    }
    void eepromAddress(std::uint16_t address) // EEPGD and CFGS clear, then EEADR and EEADRH
    {
        cores({0x9EA6, 0x9CA6, std::uint16_t(0x0E00 | (address & 0xFF)), 0x6EA9,
               std::uint16_t(0x0E00 | address >> 8), 0x6EAA});
    }
    void fillMemory(std::uint8_t value)
    {
        for (Bytes* memory : {&pic.flash(), &pic.idLocations(), &pic.eeprom()})
            std::fill(memory->begin(), memory->end(), value);
    }
};

// A bulk erase code and what it erases: flash from..to, the data EEPROM, the ID locations.
struct BulkErase
{
    int code, from, to;
    bool eeprom, id;
    std::uint64_t hold = PicTarget::P11 + PicTarget::P10; // from the last NOP's 4th clock to its operand
};

// A configuration byte written, then an operation at an address; a read expects the byte read, any other
// operation 1 if it is refused.
constexpr int Read = 0, Write = 1, RowErase = 2, ConfigWrite = 3, EepromWrite = 4;
struct Guard
{
    int config, value, operation, address, expected;
};

Bytes operator+(Bytes a, const Bytes& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Bytes slice(const Bytes& v, std::size_t from, std::size_t n)
{
    return {v.begin() + long(from), v.begin() + long(from + n)};
}

} // namespace

Q_DECLARE_METATYPE(BulkErase)
Q_DECLARE_METATYPE(Guard)

class TestPicModel : public QObject
{
    Q_OBJECT

private slots:
    // A fresh chip for every function, powered and in programming mode.
    void init()
    {
        host.reset();
        pic = PicTarget();
        host.emplace(pic);
    }

    void entryNeedsPowerPgmAndSetupTimesAndResetsFraming()
    {
        host->out(POWER, false);
        host->enter();
        QVERIFY2(!pic.inProgrammingMode(), "an unpowered chip cannot enter programming mode");

        host->out(POWER, true);
        host->enter(1'000); // PGM set up only 1 us before MCLR rises
        QVERIFY(!pic.inProgrammingMode());
        QCOMPARE(pic.counters().p15Violations, 1u);
        host->enter(PicTarget::P15, 500); // first clock 0.5 us after MCLR
        host->cores({0x0E12});
        QVERIFY(!pic.inProgrammingMode());
        QCOMPARE(pic.counters().p12Violations, 1u);

        host->enter();
        QVERIFY(pic.inProgrammingMode());
        host->setPointer(0x123456);
        QCOMPARE(pic.tablePointer(), 0x123456u & 0x3FFFFF);
        host->out(MCLR, false); // reset: table pointer cleared, mode left
        QVERIFY(!pic.inProgrammingMode());
        QCOMPARE(pic.tablePointer(), 0u);
        host->out(PGM, true); // MCLR released to the pull-up while PGM is high enters the mode as well
        host->release(MCLR);
        QVERIFY(pic.inProgrammingMode());
        host->out(PGM, false); // dropping PGM ends it; losing power too
        QVERIFY(!pic.inProgrammingMode());
        host->enter();
        host->out(POWER, false);
        QVERIFY(!pic.inProgrammingMode() && !pic.powered());

        // Stray clocks shift the command framing until the next entry resets it.
        host->out(POWER, true);
        host->enter();
        pic.flash()[0x10] = 0xA5;
        host->bits(0, 4);
        host->setPointer(0x10);
        QVERIFY(pic.tablePointer() != 0x10);
        host->enter();
        QCOMPARE(host->readFrom(0x10, 1)[0], std::uint8_t(0xA5));
    }

    void tableReadsAndReadBitTiming()
    {
        pic.setDeviceId(0x2765);
        pic.idLocations()[7] = 0x5A;
        QCOMPARE(host->readFrom(0x3FFFFE, 2), (Bytes{0x65, 0x27})); // DEVID1 first
        QCOMPARE(host->readFrom(0x200007, 1)[0], std::uint8_t(0x5A));
        // Nothing after the last configuration byte, no flash above 64 KB.
        QCOMPARE(host->readFrom(0x30000D, 3), (Bytes{0x40, 0, 0}));
        QCOMPARE(host->readFrom(0xFFFE, 4), (Bytes{0xFF, 0xFF, 0, 0}));

        // Each bit is valid from the rising edge and held after the falling edge.
        pic.flash()[0] = 0x81;
        host->setPointer(0);
        host->bits(0x9, 12);
        host->release(PGD);
        std::vector<bool> samples; // each bit while PGC is high, then after it falls
        for (int i = 0; i < 8; ++i) {
            host->out(PGC, true);
            samples.push_back(host->sample());
            host->out(PGC, false);
            samples.push_back(host->sample());
        }
        QCOMPARE(samples, (std::vector<bool>{1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1}));
        host->out(PGD, false); // the next command's first clock ends the device's drive
        host->out(PGC, true);
        QVERIFY(!pic.drivenLevel(PGD, host->tick()).has_value());
        host->out(PGC, false);
        host->bits(0, 19);
        QCOMPARE(pic.counters().busContention, 0u);

        host->command(0x9, 0); // a host that keeps driving PGD during the read fights the device
        QCOMPARE(pic.counters().busContention, 8u);
    }

    // DS39622 table 3-1 on the PIC18F4620's memory map.
    void bulkEraseCodes_data()
    {
        QTest::addColumn<BulkErase>("c");
        QTest::newRow("chip erase") << BulkErase{0x3F8F, 0x0000, 0x10000, true, true};
        QTest::newRow("data EEPROM") << BulkErase{0x0084, 0, 0, true, false};
        QTest::newRow("boot block") << BulkErase{0x0081, 0x0000, 0x0800, false, false};
        QTest::newRow("configuration bits") << BulkErase{0x0082, 0, 0, false, false};
        QTest::newRow("block 0") << BulkErase{0x0180, 0x0800, 0x4000, false, false};
        QTest::newRow("block 1") << BulkErase{0x0280, 0x4000, 0x8000, false, false};
        QTest::newRow("block 2") << BulkErase{0x0480, 0x8000, 0xC000, false, false};
        QTest::newRow("block 3") << BulkErase{0x0880, 0xC000, 0x10000, false, false};
        QTest::newRow("a hold short of P11 erases nothing")
            << BulkErase{0x0081, 0, 0, false, false, PicTarget::P11 - 100'000};
        QTest::newRow("an unknown code erases nothing") << BulkErase{0x1234, 0, 0, false, false};
    }

    void bulkEraseCodes()
    {
        QFETCH(BulkErase, c);
        host->fillMemory(0x00);
        host->bulkErase(std::uint16_t(c.code), c.hold);
        Bytes flash(0x10000, 0x00);
        std::fill(flash.begin() + c.from, flash.begin() + c.to, 0xFF);
        QCOMPARE(pic.flash(), flash);
        QCOMPARE(pic.eeprom(), Bytes(1024, c.eeprom ? 0xFF : 0x00));
        QCOMPARE(pic.idLocations(), Bytes(8, c.id ? 0xFF : 0x00));
        // The hold is measured either way; a short one is the only timing fault, 1234h is no code.
        const bool held = c.hold >= PicTarget::P11, known = c.code != 0x1234;
        QCOMPARE(pic.holds().eraseNs.size(), std::size_t(1));
        QCOMPARE(pic.counters().p11Violations, held ? 0u : 1u);
        QCOMPARE(pic.counters().timingViolations(), pic.counters().p11Violations);
        QCOMPARE(pic.counters().protocolErrors, known ? 0u : 1u);
        QCOMPARE(pic.counters().bulkErases, held && known ? 1u : 0u);
    }

    // Unused configuration bits read 0 (DS39622 4.6). A configuration erase keeps code protection; a block's
    // erase clears its own ("Bulk Erase operations will also clear any code-protect settings",
    // DS39622 3.1.1).
    void erasedConfigurationReadsUnprogrammedValues_data()
    {
        QTest::addColumn<int>("code"); // 0: none, a fresh chip
        QTest::addColumn<Bytes>("before");
        QTest::addColumn<Bytes>("expected");
        const Bytes unprotected{0, 0, 0, 0, 0, 0, 0, 0, 0x0F, 0xC0, 0x0F, 0xE0, 0x0F, 0x40};
        QTest::newRow("fresh chip") << 0 << Bytes() << unprogrammedConfig;
        // CONFIG5L..CONFIG7H after the unprogrammed first eight bytes; `on`: every protection on.
        const auto p = [](const Bytes& protection) { return slice(unprogrammedConfig, 0, 8) + protection; };
        const Bytes on = p(Bytes(6, 0x00));
        QTest::newRow("chip erase of all zeros") << 0x3F8F << Bytes(14, 0x00) << unprogrammedConfig;
        QTest::newRow("configuration erase") << 0x0082 << unprotected << unprogrammedConfig;
        QTest::newRow("configuration erase keeps code protection") << 0x0082 << Bytes(14, 0x00) << on;
        QTest::newRow("boot: CPB WRTB EBTRB") << 0x0081 << on << p({0x00, 0x40, 0x00, 0x40, 0x00, 0x40});
        QTest::newRow("block 0: CP0 WRT0 EBTR0") << 0x0180 << on << p({0x01, 0x00, 0x01, 0x00, 0x01, 0x00});
        QTest::newRow("block 3: CP3 WRT3 EBTR3") << 0x0880 << on << p({0x08, 0x00, 0x08, 0x00, 0x08, 0x00});
        QTest::newRow("data EEPROM: CPD WRTD") << 0x0084 << on << p({0x00, 0x80, 0x00, 0x80, 0x00, 0x00});
        QTest::newRow("chip erase: everything") << 0x3F8F << on << unprogrammedConfig;
    }

    void erasedConfigurationReadsUnprogrammedValues()
    {
        QFETCH(int, code);
        QFETCH(Bytes, before);
        QFETCH(Bytes, expected);
        if (!before.empty())
            pic.config() = before;
        if (code)
            host->bulkErase(std::uint16_t(code));
        QCOMPARE(host->readFrom(0x300000, 14), expected);
        host->out(POWER, false); // and after a power cycle
        host->out(POWER, true);
        host->enter();
        QCOMPARE(host->readFrom(0x300000, 14), expected);
    }

    // One configuration byte per write, from the word's half that matches the address; CP bits only clear.
    void configurationReadsImplementedBitsOnly_data()
    {
        QTest::addColumn<int>("address");
        QTest::addColumn<Bytes>("words"); // low and high byte of each word written, in order
        QTest::addColumn<int>("expected");
        const Bytes ones{0xFF, 0xFF};
        for (int i = 0; i < 14; ++i)
            QTest::addRow("%X all ones", 0x300000 + i) << 0x300000 + i << ones << int(implementedConfig[i]);
        QTest::newRow("even address takes the low half") << 0x300002 << Bytes{0x15, 0xEE} << 0x15;
        QTest::newRow("odd address takes the high half") << 0x300003 << Bytes{0xEE, 0x0A} << 0x0A;
        QTest::newRow("CONFIG1H bits 4 and 5 do not exist") << 0x300001 << Bytes{0x32, 0x32} << 0x02;
        QTest::newRow("ordinary bits go back to 1") << 0x300006 << Bytes{0x00, 0x00, 0x85, 0x85} << 0x85;
        QTest::newRow("CP bits cannot go back to 1") << 0x300008 << Bytes{0x05, 0x05, 0x0F, 0x0F} << 0x05;
        QTest::newRow("CPB and CPD cannot go back to 1") << 0x300009 << Bytes{0x00, 0x40, 0xC0, 0xC0} << 0x40;
    }

    void configurationReadsImplementedBitsOnly()
    {
        QFETCH(int, address);
        QFETCH(Bytes, words);
        QFETCH(int, expected);
        for (std::size_t i = 0; i < words.size(); i += 2)
            host->write(std::uint32_t(address), slice(words, i, 2), true);
        QCOMPARE(host->readFrom(std::uint32_t(address), 1)[0], std::uint8_t(expected));
        QCOMPARE(pic.counters().configWrites, words.size() / 2);
        QCOMPARE(pic.counters().protocolErrors, 0u);
    }

    void rowWritesUseBufferAndOnlyClearBits()
    {
        Bytes row(64);
        std::iota(row.begin(), row.end(), 3);
        host->write(0x1040, row);
        QCOMPARE(slice(pic.flash(), 0x103F, 66), Bytes{0xFF} + row + Bytes{0xFF});
        QCOMPARE(pic.counters().rowsWritten, 1u);

        // 8 bytes at 0x38: the rest of the row stays as it was (the buffer was reset to 0xFF after the
        // write).
        host->write(0x0038, slice(row, 8, 8));
        QCOMPARE(slice(pic.flash(), 0x00, 0x40), Bytes(0x38, 0xFF) + slice(row, 8, 8));

        // Programming only clears bits: 0x0F over 0xF0 gives 0x00; 0xFF leaves a cell alone.
        host->write(0x2000, {0xF0, 0xFF});
        host->write(0x2000, {0x0F, 0x0F});
        QCOMPARE(slice(pic.flash(), 0x2000, 2), (Bytes{0x00, 0x0F}));
        host->write(0x200000, {1, 2, 3, 4, 5, 6, 7, 8}); // ID locations take a row write too (DS39622 3.4)
        QCOMPARE(pic.idLocations(), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
        QCOMPARE(pic.counters().timingViolations(), 0u);

        // A hold shorter than P9 writes nothing, and the rejected buffer is not carried into a later write.
        host->write(0x0100, {0x12, 0x34}, false, PicTarget::P9 - 10'000);
        QCOMPARE(pic.counters().p9Violations, 1u);
        host->write(0x0104, {0x56, 0x78});
        QCOMPARE(slice(pic.flash(), 0x100, 6), (Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0x56, 0x78}));

        // A discharge time shorter than P10 is counted but the row is written.
        host->write(0x0200, {0x11, 0x22}, false, PicTarget::P9, 10'000);
        QCOMPARE(pic.flash()[0x200], std::uint8_t(0x11));
        QCOMPARE(pic.counters().p10Violations, 1u);

        host->write(0x300003, {0x00, 0x00}); // without CFGS a configuration address is no configuration write
        QCOMPARE(pic.counters().configWrites, 0u);
    }

    // DS39622 3.1.3: one 64-byte row, the pointer anywhere in it; 3.4: the ID locations' row as well.
    void rowErase_data()
    {
        QTest::addColumn<int>("pointer");
        QTest::addColumn<int>("flashFrom"); // first erased flash byte; -1: the ID locations' row instead
        QTest::newRow("flash row, pointer inside it") << 0x0450 << 0x0440;
        QTest::newRow("ID locations") << 0x200000 << -1;
        QTest::newRow("ID locations, pointer inside the row") << 0x200005 << -1;
    }

    void rowErase()
    {
        QFETCH(int, pointer);
        QFETCH(int, flashFrom);
        host->fillMemory(0x00);
        host->cores({0x8EA6, 0x9CA6, 0x84A6}); // EEPGD, CFGS off, WREN
        host->setPointer(std::uint32_t(pointer));
        host->cores({0x88A6, 0x82A6}); // FREE, WR
        QVERIFY(pic.eecon1() & 0x02);
        host->programmingNop();

        Bytes flash(0x10000, 0x00);
        if (flashFrom >= 0)
            std::fill_n(flash.begin() + flashFrom, 64, 0xFF);
        QCOMPARE(pic.flash(), flash);
        QCOMPARE(pic.idLocations(), Bytes(8, flashFrom < 0 ? 0xFF : 0x00));
        QCOMPARE(pic.counters().rowErases, 1u);
        QCOMPARE(pic.counters().protocolErrors, 0u);
        QCOMPARE(pic.eecon1() & 0x12, 0); // WR and FREE cleared
    }

    void eepromReadAndSelfTimedWrite()
    {
        pic.eeprom()[0x3A5] = 0x5C;
        host->eepromAddress(0x3A5);
        host->cores({0x80A6}); // RD
        QCOMPARE(host->readRegister(0xA8), std::uint8_t(0x5C));

        host->eepromAddress(0x011);
        host->cores({0x0E77, 0x6EA8, 0x82A6}); // EEDATA = 0x77; WR without WREN starts nothing
        QCOMPARE(host->readRegister(0xA6) & 0x02, 0);
        host->cores({0x84A6, 0x82A6}); // WREN, WR
        QCOMPARE(host->readRegister(0xA6) & 0x02, 0x02);
        QCOMPARE(pic.eeprom()[0x11], std::uint8_t(0xFF));
        host->now += PicTarget::P11;
        QCOMPARE(host->readRegister(0xA6) & 0x02, 0);
        QCOMPARE(pic.eeprom()[0x11], std::uint8_t(0x77));
        QCOMPARE(pic.counters().eepromWrites, 1u);

        host->eepromAddress(0x020); // a reset during the self-timed write aborts it
        host->cores({0x0E33, 0x6EA8, 0x84A6, 0x82A6});
        host->out(MCLR, false);
        QCOMPARE(pic.eeprom()[0x20], std::uint8_t(0xFF));
        QCOMPARE(pic.counters().eepromWritesAborted, 1u);
    }

    // Data sheet 23.5.1: "CPn bits inhibit external reads and writes"; EBTRn only the chip's own reads.
    // DS39622 2.3: ID, configuration and device ID "read out normally, even after code protection".
    // Data sheet 23.5.1-23.5.3 (CPn/WRTn, CPD/WRTD, WRTC); DS39622 3.1.3: no row erase in a protected
    // block. The ID locations belong to no block.
    void codeProtection_data()
    {
        QTest::addColumn<Guard>("c");
        const auto row = [](const char* name, Guard guard) { QTest::newRow(name) << guard; };
        row("CP0 hides block 0 at 0800h", {0x300008, 0x0E, Read, 0x0800, 0x00});
        row("CP0 hides block 0 at 3FFFh", {0x300008, 0x0E, Read, 0x3FFF, 0x00});
        row("CP0 leaves the boot block", {0x300008, 0x0E, Read, 0x07FF, 0xA5});
        row("CP0 leaves block 1", {0x300008, 0x0E, Read, 0x4000, 0xA5});
        row("CP1 hides block 1", {0x300008, 0x0D, Read, 0x7FFF, 0x00});
        row("CP2 hides block 2", {0x300008, 0x0B, Read, 0x8000, 0x00});
        row("CP3 hides block 3", {0x300008, 0x07, Read, 0xFFFF, 0x00});
        row("CPB hides the boot block", {0x300009, 0x80, Read, 0x0000, 0x00});
        row("WRT0 alone hides nothing", {0x30000A, 0x0E, Read, 0x0800, 0xA5});
        row("EBTR0 hides nothing from the programmer", {0x30000C, 0x0E, Read, 0x0800, 0xA5});
        row("ID locations read under protection", {0x300008, 0x00, Read, 0x200003, 0x5A});
        row("configuration reads under protection", {0x300008, 0x00, Read, 0x300008, 0x00});
        row("device ID reads under code protection", {0x300009, 0x00, Read, 0x3FFFFF, 0x0C});
        row("WRT0 refuses a row write in block 0", {0x30000A, 0x0E, Write, 0x0800, 1});
        row("WRT0 leaves block 1 writable", {0x30000A, 0x0E, Write, 0x4000, 0});
        row("CP1 refuses a row write in block 1", {0x300008, 0x0D, Write, 0x4040, 1});
        row("WRTB refuses a row write in the boot block", {0x30000B, 0xA0, Write, 0x0000, 1});
        row("EBTR0 refuses no write", {0x30000C, 0x0E, Write, 0x0800, 0});
        row("WRT2 refuses a row erase", {0x30000A, 0x0B, RowErase, 0x8000, 1});
        row("CP3 refuses a row erase", {0x300008, 0x07, RowErase, 0xFFC0, 1});
        row("ID row erasable under protection", {0x300008, 0x00, RowErase, 0x200000, 0});
        row("ID locations writable under protection", {0x300008, 0x00, Write, 0x200000, 0});
        row("WRTC refuses configuration writes", {0x30000B, 0xC0, ConfigWrite, 0x300001, 1});
        row("configuration writable while WRTC is 1", {0x30000B, 0xE0, ConfigWrite, 0x300001, 0});
        row("WRTD refuses EEPROM writes", {0x30000B, 0x60, EepromWrite, 0x10, 1});
        row("CPD refuses EEPROM writes", {0x300009, 0x40, EepromWrite, 0x10, 1});
    }

    void codeProtection()
    {
        QFETCH(Guard, c);
        host->fillMemory(0xA5); // the device ID is the model's own, 0C07h

        std::fill(pic.idLocations().begin(), pic.idLocations().end(), 0x5A);
        host->write(std::uint32_t(c.config), {std::uint8_t(c.value), std::uint8_t(c.value)}, true);
        const Bytes before = pic.flash() + pic.idLocations() + pic.eeprom() + pic.config();
        const auto a = std::uint32_t(c.address);
        if (c.operation == Read) {
            QCOMPARE(host->readFrom(a, 1)[0], std::uint8_t(c.expected));
            QCOMPARE(pic.counters().protectedReads, c.expected == 0 && a < 0x10000 ? 1u : 0u);
        } else if (c.operation == Write)
            host->write(a, {0x00, 0x00});
        else if (c.operation == RowErase) { // DS39622 table 3-3, as in rowErase()
            host->cores({0x8EA6, 0x9CA6, 0x84A6});
            host->setPointer(a);
            host->cores({0x88A6, 0x82A6});
            host->programmingNop();
        } else if (c.operation == ConfigWrite)
            host->write(a, {0x00, 0x00}, true);
        else { // EEDATA = 0, WREN, WR; then the self-timed write is left to finish
            host->eepromAddress(std::uint16_t(a));
            host->cores({0x0E00, 0x6EA8, 0x84A6, 0x82A6});
            host->now += PicTarget::P11;
        }
        // A read, even a hidden one, and a refused write leave every cell as it was.
        const bool unchanged = c.operation == Read || c.expected == 1;
        QCOMPARE(pic.flash() + pic.idLocations() + pic.eeprom() + pic.config() == before, unchanged);
        QCOMPARE(pic.counters().protectedWrites, c.operation == Read ? 0u : unsigned(c.expected));
        QCOMPARE(pic.counters().protocolErrors, 0u);
        QCOMPARE(pic.counters().timingViolations(), 0u);
    }

    void faultsNonBlankStuckAndAbsent()
    {
        QCOMPARE(sim::applyFaultText(pic, "nonblank 0x0200 0x7E\nstuck 0x0300 0x81\n"), ""s);
        host->fillMemory(0x00);
        host->bulkErase(0x0081);
        QCOMPARE(slice(pic.flash(), 0x200, 2), (Bytes{0x7E, 0xFF}));
        host->write(0x0300, {0x00, 0x00});
        QCOMPARE(slice(pic.flash(), 0x300, 2), (Bytes{0x81, 0x00})); // bits 7 and 0 ignore programming

        QCOMPARE(sim::applyFaultText(pic, "nodevice"), ""s);
        QVERIFY(!pic.inProgrammingMode());
        host->enter();
        QVERIFY(!pic.inProgrammingMode());
        QCOMPARE(host->read(0x9), std::uint8_t(0xFF)); // PGD floats high
        QCOMPARE(sim::faultText(pic), "nodevice\ndevid 0x0c07\nnonblank 0x0200 0x7e\nstuck 0x0300 0x81\n"s);
        QCOMPARE(sim::applyFaultText(pic, "clear\ndevid 0x0E81"), ""s);
        QVERIFY(pic.present() && pic.nonBlankCells().empty() && pic.stuckBits().empty());
        QCOMPARE(pic.deviceId(), std::uint16_t(0x0E81));
    }

    void badFaultLinesChangeNothing_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("error");
        QTest::newRow("address above flash")
            << QString("clear\nstuck 0x10000 1")
            << "faults line 2: address '0x10000' is not a program flash address (0 to 0xFFFF)";
        QTest::newRow("value above a byte")
            << QString("nonblank 5 256") << "faults line 1: '256' is not a byte (0 to 0xFF)";
        QTest::newRow("unknown command after a comment and a blank line")
            << QString("# comment\n\nexplode")
            << "faults line 3: unknown command 'explode' (expected nonblank, stuck, nodevice, device, devid "
               "or clear)";
        QTest::newRow("missing argument") << QString("devid") << "faults line 1: 'devid' takes ID";
        QTest::newRow("device ID above 16 bits")
            << QString("devid 0x10000") << "faults line 1: '0x10000' is not a 16-bit device ID";
    }

    void badFaultLinesChangeNothing()
    {
        QFETCH(QString, text);
        QFETCH(QString, error);
        pic.setDeviceId(0x0E81);
        QCOMPARE(QString::fromStdString(sim::applyFaultText(pic, text.toStdString())), error);
        QCOMPARE(pic.deviceId(), std::uint16_t(0x0E81));
        QVERIFY(pic.stuckBits().empty());
    }

    void controlFilesReadAndSteerTheModel()
    {
        sim::Instrument instrument;
        const std::shared_ptr<PicTarget> pic = sim::installPic(instrument);
        auto file = [&](const char* name) -> const sim::ControlFile& {
            const auto folder = instrument.control().child(0, "pic");
            return *instrument.control().node(*instrument.control().child(*folder, name))->file;
        };
        // The model sits on the bank's lines 2 to 6.
        QCOMPARE(instrument.gpio().exportLine(5), 0);
        QCOMPARE(instrument.gpio().writeDirection(5, "high", 1000), 0);
        QVERIFY(pic->powered());

        // The table of configuration bits as the data sheet gives it, for tools that judge HEX files.
        QCOMPARE(file("config-bits").read(),
                 "300000 - 00 00\n300001 CONFIG1H cf 07\n300002 CONFIG2L 1f 1f\n300003 CONFIG2H 1f 1f\n"
                 "300004 - 00 00\n300005 CONFIG3H 87 83\n300006 CONFIG4L c5 85\n300007 - 00 00\n"
                 "300008 CONFIG5L 0f 0f\n300009 CONFIG5H c0 c0\n30000a CONFIG6L 0f 0f\n"
                 "30000b CONFIG6H e0 e0\n30000c CONFIG7L 0f 0f\n30000d CONFIG7H 40 40\n"s);
        QCOMPARE(file("flash").write(std::string(100, '\0')), -EINVAL); // not the whole image
        QCOMPARE(file("config.hex").read(), "0000: 00 07 1f 1f 00 83 85 00 0f c0 0f e0 0f 40\n"s);
        QCOMPARE(file("config.hex").write("0001: 12 34\n000d: 56\n"), 0);
        QCOMPARE(pic->config(),
                 (Bytes{0x00, 0x12, 0x34, 0x1F, 0x00, 0x83, 0x85, 0x00, 0x0F, 0xC0, 0x0F, 0xE0, 0x0F, 0x56}));
        // A bad line changes nothing, not even the good lines before it; the error says what and where.
        QCOMPARE(file("config.hex").write("0000: 11\n000d: 00 00\n"), -EINVAL);
        QCOMPARE(pic->config()[0], std::uint8_t(0x00));
        const auto dump = [&](const char* text) {
            return sim::applyHexDump(text, pic->config(), "pic/config.hex");
        };
        QCOMPARE(dump("0000: 0g"), "pic/config.hex line 1: '0g' is not a hex byte"s);
        QCOMPARE(dump("000d: 00 00"), "pic/config.hex line 1: offset 14 is past the end (14 bytes)"s);
        QCOMPARE(dump("zz: 00"), "pic/config.hex line 1: offset 'zz' is not hexadecimal"s);
        QCOMPARE(file("faults").write("stuck 0x10 0x01\nexplode\n"), -EINVAL);
        QVERIFY(pic->stuckBits().empty());
        QCOMPARE(file("faults").write("stuck 0x10 0x01\n"), 0);
        QCOMPARE(file("faults").read(), "device\ndevid 0x0c07\nstuck 0x0010 0x01\n"s);
    }

private:
    PicTarget pic;
    std::optional<Host> host;
};

QTEST_APPLESS_MAIN(TestPicModel)
#include "tst_pic_model.moc"
