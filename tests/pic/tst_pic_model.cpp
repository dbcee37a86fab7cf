// The PIC18F4620 model against the chip's documented ICSP behaviour, driven in-process by a small host that
// follows the chip's programming sequences (not the updater's code) on a simulated clock.

#include "PicControl.h"
#include "PicTarget.h"

#include <QtTest>

#include <cerrno>
#include <map>
#include <numeric>
#include <vector>

using sim::PicTarget;
using Bytes = std::vector<std::uint8_t>;

namespace {

constexpr int PGD = PicTarget::PGD, MCLR = PicTarget::MCLR, PGC = PicTarget::PGC, POWER = PicTarget::POWER,
              PGM = PicTarget::PGM;

// A programmer on a simulated clock where every line operation takes 100 ns. It powers the chip and enters
// programming mode unless told not to.
struct Host
{
    explicit Host(PicTarget& target, bool ready = true) : pic(target)
    {
        if (ready) {
            out(POWER, true);
            enter();
        }
    }

    PicTarget& pic;
    std::uint64_t now = 1'000'000'000;
    std::map<int, sim::LineState> lines;

    std::uint64_t tick() { return now += 100; }
    void set(int line, sim::Direction direction, bool level)
    {
        lines[line] = {direction, level};
        pic.lineChanged(line, lines[line], tick());
    }
    void out(int line, bool level) { set(line, sim::Direction::Out, level); }
    void release(int line) { set(line, sim::Direction::In, false); }
    bool sample() { return pic.drivenLevel(PGD, tick()).value_or(true); }
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
    void setPointer(std::uint32_t address) // MOVLW/MOVWF into TBLPTRU, TBLPTRH, TBLPTRL
    {
        for (int reg : {0xF8, 0xF7, 0xF6})
            cores({std::uint16_t(0x0E00 | ((address >> (8 * (reg - 0xF6))) & 0xFF)),
                   std::uint16_t(0x6E00 | reg)});
    }
    // A read command: 8 clocks with PGD low, then PGD released and 8 bits sampled after each falling edge.
    std::uint8_t read(std::uint8_t cmd)
    {
        bits(cmd, 4);
        bits(0, 8);
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
        Bytes bytes;
        while (count--)
            bytes.push_back(read(0x9));
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
    // A flash row (or, with cfgs, one configuration word) loaded into the write buffer and programmed.
    void write(std::uint32_t address, const Bytes& data, bool cfgs = false,
               std::uint64_t hold = PicTarget::P9)
    {
        cores({0x8EA6, std::uint16_t(cfgs ? 0x8CA6 : 0x9CA6)}); // BSF EECON1,EEPGD; BSF/BCF EECON1,CFGS
        setPointer(address);
        for (std::size_t i = 0; i < data.size(); i += 2)
            command(i + 2 < data.size() ? 0xD : 0xF, std::uint16_t(data[i] | data[i + 1] << 8));
        programmingNop(hold);
    }
    void bulkErase(std::uint16_t code, std::uint64_t hold = PicTarget::P11 + PicTarget::P10)
    {
        setPointer(0x3C0005);
        command(0xC, std::uint16_t((code >> 8) * 0x0101));
        setPointer(0x3C0004);
        command(0xC, std::uint16_t((code & 0xFF) * 0x0101));
        cores({0x0000});
        bits(0, 4);
        now += hold;
        bits(0, 16);
    }
    void eepromAddress(std::uint16_t address) // EEPGD and CFGS clear, then EEADR and EEADRH
    {
        cores({0x9EA6, 0x9CA6, std::uint16_t(0x0E00 | (address & 0xFF)), 0x6EA9,
               std::uint16_t(0x0E00 | address >> 8), 0x6EAA});
    }
    void zeroMemory()
    {
        for (Bytes* memory : {&pic.flash(), &pic.config(), &pic.eeprom()})
            std::fill(memory->begin(), memory->end(), 0x00);
    }
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

class TestPicModel : public QObject
{
    Q_OBJECT

private slots:
    void entryNeedsPowerPgmAndSetupTimesAndResetsFraming();
    void tableReadsAndReadBitTiming();
    void bulkEraseCodesEraseTheirRegionOnly();
    void rowWritesUseBufferAndOnlyClearBitsConfigTakesHalfWord();
    void rowEraseClearsOneRow();
    void eepromReadAndSelfTimedWrite();
    void faultsNonBlankStuckAndAbsent();
    void controlFilesReadAndSteerTheModel();
};

void TestPicModel::entryNeedsPowerPgmAndSetupTimesAndResetsFraming()
{
    PicTarget pic;
    Host host(pic, false);
    host.enter();
    QVERIFY2(!pic.inProgrammingMode(), "an unpowered chip cannot enter programming mode");

    host.out(POWER, true);
    host.enter(1'000); // PGM set up only 1 us before MCLR rises
    QVERIFY(!pic.inProgrammingMode());
    QCOMPARE(pic.counters().p15Violations, 1u);
    host.enter(PicTarget::P15, 500); // first clock 0.5 us after MCLR
    host.cores({0x0E12});
    QVERIFY(!pic.inProgrammingMode());
    QCOMPARE(pic.counters().p12Violations, 1u);

    host.enter();
    QVERIFY(pic.inProgrammingMode());
    host.setPointer(0x123456);
    QCOMPARE(pic.tablePointer(), 0x123456u & 0x3FFFFF);
    host.out(MCLR, false); // reset: table pointer cleared, mode left
    QVERIFY(!pic.inProgrammingMode());
    QCOMPARE(pic.tablePointer(), 0u);
    host.out(PGM, true); // MCLR released to the pull-up while PGM is high enters the mode as well
    host.release(MCLR);
    QVERIFY(pic.inProgrammingMode());
    host.out(PGM, false); // dropping PGM ends it; losing power too
    QVERIFY(!pic.inProgrammingMode());
    host.enter();
    host.out(POWER, false);
    QVERIFY(!pic.inProgrammingMode() && !pic.powered());

    // Stray clocks shift the command framing until the next entry resets it.
    host.out(POWER, true);
    host.enter();
    pic.flash()[0x10] = 0xA5;
    host.bits(0, 4);
    host.setPointer(0x10);
    QVERIFY(pic.tablePointer() != 0x10);
    host.enter();
    QCOMPARE(host.readFrom(0x10, 1)[0], std::uint8_t(0xA5));
}

void TestPicModel::tableReadsAndReadBitTiming()
{
    PicTarget pic;
    Host host(pic);
    pic.setDeviceId(0x2765);
    pic.config()[0x01] = 0x0F;
    pic.config()[0x0D] = 0x40;
    pic.idLocations()[7] = 0x5A;
    QCOMPARE(host.readFrom(0x3FFFFE, 2), (Bytes{0x65, 0x27}));
    const Bytes config = host.readFrom(0x300000, 16); // the last two lie beyond the 14 configuration bytes
    QCOMPARE(slice(config, 0x0C, 4), (Bytes{0xFF, 0x40, 0, 0}));
    QCOMPARE(config[0x01], std::uint8_t(0x0F));
    QCOMPARE(host.readFrom(0x200007, 1)[0], std::uint8_t(0x5A));
    QCOMPARE(host.readFrom(0xFFFE, 4), (Bytes{0xFF, 0xFF, 0, 0})); // no flash above 64 KB

    // Each bit is valid from the rising edge and held after the falling edge.
    pic.flash()[0] = 0x81;
    host.setPointer(0);
    host.bits(0x9, 4);
    host.bits(0, 8);
    host.release(PGD);
    std::vector<bool> whileHigh, afterFall;
    for (int i = 0; i < 8; ++i) {
        host.out(PGC, true);
        whileHigh.push_back(host.sample());
        host.out(PGC, false);
        afterFall.push_back(host.sample());
    }
    const std::vector<bool> expected{true, false, false, false, false, false, false, true};
    QCOMPARE(whileHigh, expected);
    QCOMPARE(afterFall, expected);
    host.out(PGD, false); // the next command's first clock ends the device's drive
    host.out(PGC, true);
    QVERIFY(!pic.drivenLevel(PGD, host.tick()).has_value());
    host.out(PGC, false);
    host.bits(0, 19);
    QCOMPARE(pic.counters().busContention, 0u);

    host.command(0x9, 0); // a host that keeps driving PGD during the read fights the device
    QCOMPARE(pic.counters().busContention, 8u);
}

void TestPicModel::bulkEraseCodesEraseTheirRegionOnly()
{
    const std::tuple<std::uint16_t, std::uint32_t, std::uint32_t, bool, bool> cases[] = {
        // code, flash erased from..to, configuration erased, EEPROM erased
        {PicTarget::ERASE_BOOT, 0x0000, 0x0800, false, false},
        {PicTarget::ERASE_BLOCK0, 0x0800, 0x4000, false, false},
        {PicTarget::ERASE_BLOCK1, 0x4000, 0x8000, false, false},
        {PicTarget::ERASE_BLOCK2, 0x8000, 0xC000, false, false},
        {PicTarget::ERASE_BLOCK3, 0xC000, 0x10000, false, false},
        {PicTarget::ERASE_CONFIG, 0, 0, true, false},
        {PicTarget::ERASE_EEPROM, 0, 0, false, true},
        {PicTarget::ERASE_CHIP, 0, 0x10000, true, true}};
    for (const auto& [code, from, to, config, eeprom] : cases) {
        PicTarget pic;
        Host host(pic);
        host.zeroMemory();
        host.bulkErase(code);
        const QString what = QString("code %1 at %2").arg(code, 4, 16, QChar('0'));
        for (std::uint32_t a :
             {0x0000u, 0x07FFu, 0x0800u, 0x3FFFu, 0x4000u, 0x7FFFu, 0x8000u, 0xBFFFu, 0xC000u, 0xFFFFu})
            QVERIFY2(pic.flash()[a] == (a >= from && a < to ? 0xFF : 0x00), qPrintable(what.arg(a, 4, 16)));
        QVERIFY2(pic.config()[13] == (config ? 0xFF : 0x00), qPrintable(what.arg("config")));
        QVERIFY2(pic.eeprom()[1023] == (eeprom ? 0xFF : 0x00), qPrintable(what.arg("EEPROM")));
        QCOMPARE(pic.counters().bulkErases, 1u);
    }

    PicTarget pic;
    Host host(pic);
    host.zeroMemory();
    host.bulkErase(PicTarget::ERASE_BOOT, PicTarget::P11 - 100'000); // a hold short of P11 erases nothing
    QCOMPARE(pic.flash()[0], std::uint8_t(0x00));
    QCOMPARE(pic.counters().p11Violations, 1u);
    QCOMPARE(pic.holds().eraseNs.size(), std::size_t(1));
    host.bulkErase(0x1234);
    QCOMPARE(pic.counters().protocolErrors, 1u);
    QCOMPARE(pic.counters().bulkErases, 0u);
}

void TestPicModel::rowWritesUseBufferAndOnlyClearBitsConfigTakesHalfWord()
{
    PicTarget pic;
    Host host(pic);
    Bytes row(64);
    std::iota(row.begin(), row.end(), 3);
    host.write(0x1040, row);
    QCOMPARE(slice(pic.flash(), 0x103F, 66), Bytes{0xFF} + row + Bytes{0xFF});
    QCOMPARE(pic.counters().rowsWritten, 1u);

    // 8 bytes at 0x38: the rest of the row stays as it was (the buffer was reset to 0xFF after the write).
    host.write(0x0038, slice(row, 8, 8));
    QCOMPARE(slice(pic.flash(), 0x38, 8), slice(row, 8, 8));
    QCOMPARE(slice(pic.flash(), 0x00, 0x38), Bytes(0x38, 0xFF));

    // Programming only clears bits: 0x0F over 0xF0 gives 0x00; 0xFF leaves a cell alone.
    host.write(0x2000, {0xF0, 0xFF});
    host.write(0x2000, {0x0F, 0x0F});
    QCOMPARE(slice(pic.flash(), 0x2000, 2), (Bytes{0x00, 0x0F}));
    host.write(PicTarget::idAddress, {1, 2, 3, 4, 5, 6, 7, 8}); // ID locations take a row write too
    QCOMPARE(pic.idLocations(), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
    QCOMPARE(pic.counters().timingViolations(), 0u);

    // A hold shorter than P9 writes nothing, and the rejected buffer is not carried into a later write.
    host.write(0x0100, {0x12, 0x34}, false, PicTarget::P9 - 10'000);
    QCOMPARE(pic.counters().p9Violations, 1u);
    host.write(0x0104, {0x56, 0x78});
    QCOMPARE(slice(pic.flash(), 0x100, 6), (Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0x56, 0x78}));

    // A discharge time shorter than P10 is counted but the row is written.
    host.cores({0x8EA6});
    host.setPointer(0x0200);
    host.command(0xF, 0x2211);
    host.programmingNop(PicTarget::P9, 10'000);
    QCOMPARE(pic.flash()[0x200], std::uint8_t(0x11));
    QCOMPARE(pic.counters().p10Violations, 1u);

    // Configuration bytes (CFGS set) are written one at a time: even addresses take the low half of the word.
    host.write(0x300000, {0x55, 0xAA}, true);
    host.write(0x300001, {0x55, 0xAA}, true);
    host.write(0x30000D, {0x81, 0x81}, true);
    QCOMPARE(slice(pic.config(), 0, 3), (Bytes{0x55, 0xAA, 0xFF}));
    QCOMPARE(pic.config()[13], std::uint8_t(0x81));
    QCOMPARE(pic.counters().configWrites, 3u);
    host.write(0x300003, {0x00, 0x00}); // without CFGS the same address is not a configuration write
    QCOMPARE(pic.config()[3], std::uint8_t(0xFF));
}

void TestPicModel::rowEraseClearsOneRow()
{
    PicTarget pic;
    Host host(pic);
    host.zeroMemory();
    host.cores({0x8EA6, 0x9CA6, 0x84A6}); // EEPGD, CFGS off, WREN
    host.setPointer(0x0450);
    host.cores({0x88A6, 0x82A6}); // FREE, WR
    QVERIFY(pic.eecon1() & 0x02);
    host.programmingNop();
    QCOMPARE(slice(pic.flash(), 0x43F, 66), Bytes{0x00} + Bytes(64, 0xFF) + Bytes{0x00});
    QCOMPARE(pic.counters().rowErases, 1u);
    QCOMPARE(pic.eecon1() & 0x12, 0); // WR and FREE cleared
}

void TestPicModel::eepromReadAndSelfTimedWrite()
{
    PicTarget pic;
    pic.eeprom()[0x3A5] = 0x5C;
    Host host(pic);
    host.eepromAddress(0x3A5);
    host.cores({0x80A6}); // RD
    QCOMPARE(host.readRegister(0xA8), std::uint8_t(0x5C));

    host.eepromAddress(0x011);
    host.cores({0x0E77, 0x6EA8, 0x82A6}); // EEDATA = 0x77; WR without WREN starts nothing
    QCOMPARE(host.readRegister(0xA6) & 0x02, 0);
    host.cores({0x84A6, 0x82A6}); // WREN, WR
    QCOMPARE(host.readRegister(0xA6) & 0x02, 0x02);
    QCOMPARE(pic.eeprom()[0x11], std::uint8_t(0xFF));
    host.now += PicTarget::P11;
    QCOMPARE(host.readRegister(0xA6) & 0x02, 0);
    QCOMPARE(pic.eeprom()[0x11], std::uint8_t(0x77));
    QCOMPARE(pic.counters().eepromWrites, 1u);

    host.eepromAddress(0x020); // a reset during the self-timed write aborts it
    host.cores({0x0E33, 0x6EA8, 0x84A6, 0x82A6});
    host.out(MCLR, false);
    QCOMPARE(pic.eeprom()[0x20], std::uint8_t(0xFF));
    QCOMPARE(pic.counters().eepromWritesAborted, 1u);
}

void TestPicModel::faultsNonBlankStuckAndAbsent()
{
    PicTarget pic;
    QCOMPARE(pic.applyFaultText("nonblank 0x0200 0x7E\nstuck 0x0300 0x81\n"), std::string());
    Host host(pic);
    host.zeroMemory();
    host.bulkErase(PicTarget::ERASE_BOOT);
    QCOMPARE(slice(pic.flash(), 0x200, 2), (Bytes{0x7E, 0xFF}));
    host.write(0x0300, {0x00, 0x00});
    QCOMPARE(slice(pic.flash(), 0x300, 2), (Bytes{0x81, 0x00})); // bits 7 and 0 ignore programming

    QCOMPARE(pic.applyFaultText("nodevice"), std::string());
    QVERIFY(!pic.inProgrammingMode());
    host.enter();
    QVERIFY(!pic.inProgrammingMode());
    QCOMPARE(host.read(0x9), std::uint8_t(0xFF)); // PGD floats high
    QCOMPARE(pic.faultText(),
             std::string("nodevice\ndevid 0x0C07\nnonblank 0x0200 0x7E\nstuck 0x0300 0x81\n"));
    QCOMPARE(pic.applyFaultText("clear\ndevid 0x0E81"), std::string());
    QVERIFY(pic.present() && pic.nonBlankCells().empty() && pic.stuckBits().empty());
    QCOMPARE(pic.deviceId(), std::uint16_t(0x0E81));

    // Bad lines are reported with their number and change nothing.
    const std::pair<const char*, const char*> bad[] = {
        {"clear\nstuck 0x10000 1", "line 2: address '0x10000' is not a program flash address (0 to 0xFFFF)"},
        {"# comment\n\nexplode",
         "line 3: unknown command 'explode' (expected nonblank, stuck, nodevice, device, devid or clear)"},
        {"devid", "line 1: 'devid' takes ID"}};
    for (const auto& [text, error] : bad)
        QCOMPARE(pic.applyFaultText(text), "faults " + std::string(error));
    QCOMPARE(pic.deviceId(), std::uint16_t(0x0E81));
}

void TestPicModel::controlFilesReadAndSteerTheModel()
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

    QCOMPARE(file("flash").write(std::string(100, '\0')), -EINVAL); // not the whole image
    QCOMPARE(file("config.hex").read(), std::string("0000: ff ff ff ff ff ff ff ff ff ff ff ff ff ff\n"));
    QCOMPARE(file("config.hex").write("0001: 12 34\n000d: 56\n"), 0);
    QCOMPARE(pic->config(),
             (Bytes{0xFF, 0x12, 0x34, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x56}));
    // A bad line changes nothing, not even the good lines before it; the error says what and where.
    QCOMPARE(file("config.hex").write("0000: 00\n000d: 00 00\n"), -EINVAL);
    QCOMPARE(pic->config()[0], std::uint8_t(0xFF));
    QCOMPARE(sim::applyHexDump("0000: 0g", pic->config(), "pic/config.hex"),
             std::string("pic/config.hex line 1: '0g' is not a hex byte"));
    QCOMPARE(sim::applyHexDump("000d: 00 00", pic->config(), "pic/config.hex"),
             std::string("pic/config.hex line 1: offset 14 is past the end (14 bytes)"));
    QCOMPARE(file("faults").write("stuck 0x10 0x01\nexplode\n"), -EINVAL);
    QVERIFY(pic->stuckBits().empty());
}

QTEST_APPLESS_MAIN(TestPicModel)
#include "tst_pic_model.moc"
