// The PIC18F4620 model against the chip's documented ICSP behaviour, driven in-process by a small host that
// follows the chip's programming sequences (not the updater's code) on a simulated clock.

#include "PicControl.h"
#include "PicTarget.h"

#include <QtTest>

#include <cerrno>
#include <map>
#include <vector>

using sim::PicTarget;

namespace {

class Host
{
public:
    explicit Host(PicTarget& target) : pic(target) {}

    PicTarget& pic;
    std::uint64_t now = 1'000'000'000;
    std::map<int, sim::LineState> lines;

    std::uint64_t tick() { return now += 100; } // every line operation takes 100 ns
    void wait(std::uint64_t ns) { now += ns; }

    void out(int line, bool level)
    {
        sim::LineState& s = lines[line];
        s.direction = sim::Direction::Out;
        s.hostLevel = level;
        pic.lineChanged(line, s, tick());
    }
    void release(int line)
    {
        sim::LineState& s = lines[line];
        s.direction = sim::Direction::In;
        pic.lineChanged(line, s, tick());
    }
    bool sample() { return pic.drivenLevel(PicTarget::PGD, tick()).value_or(true); }

    void powerOn() { out(PicTarget::POWER, true); }
    void enter(std::uint64_t pgmSetup = PicTarget::P15, std::uint64_t dataHold = PicTarget::P12)
    {
        out(PicTarget::MCLR, false);
        out(PicTarget::PGD, false);
        out(PicTarget::PGC, false);
        out(PicTarget::PGM, false);
        out(PicTarget::PGM, true);
        wait(pgmSetup);
        out(PicTarget::MCLR, true);
        wait(dataHold);
    }
    void clock(bool bit)
    {
        out(PicTarget::PGD, bit);
        out(PicTarget::PGC, true);
        out(PicTarget::PGC, false);
    }
    void bits(std::uint32_t value, int count)
    {
        for (int i = 0; i < count; ++i)
            clock((value >> i) & 1);
    }
    void command(std::uint8_t cmd, std::uint16_t operand)
    {
        bits(cmd, 4);
        bits(operand, 16);
    }
    void core(std::uint16_t word) { command(0x0, word); }
    void setPointer(std::uint32_t address)
    {
        core(0x0E00 | ((address >> 16) & 0xFF));
        core(0x6EF8);
        core(0x0E00 | ((address >> 8) & 0xFF));
        core(0x6EF7);
        core(0x0E00 | (address & 0xFF));
        core(0x6EF6);
    }
    // A read command: 8 clocks with PGD low, then PGD released and 8 bits sampled after each falling edge.
    std::uint8_t read(std::uint8_t cmd)
    {
        bits(cmd, 4);
        bits(0, 8);
        release(PicTarget::PGD);
        std::uint8_t value = 0;
        for (int i = 0; i < 8; ++i) {
            out(PicTarget::PGC, true);
            out(PicTarget::PGC, false);
            if (sample())
                value |= std::uint8_t(1u << i);
        }
        out(PicTarget::PGD, false);
        return value;
    }
    std::vector<std::uint8_t> readFrom(std::uint32_t address, int count)
    {
        setPointer(address);
        std::vector<std::uint8_t> bytes;
        for (int i = 0; i < count; ++i)
            bytes.push_back(read(0x9));
        return bytes;
    }
    // NOP whose 4th clock is held high for the programming time, then low for the discharge time.
    void programmingNop(std::uint64_t high = PicTarget::P9, std::uint64_t low = PicTarget::P10)
    {
        bits(0, 3);
        out(PicTarget::PGD, false);
        out(PicTarget::PGC, true);
        wait(high);
        out(PicTarget::PGC, false);
        wait(low);
        bits(0, 16);
    }
    void writeRow(std::uint32_t address, const std::vector<std::uint8_t>& data,
                  std::uint64_t hold = PicTarget::P9)
    {
        core(0x8EA6); // BSF EECON1, EEPGD
        core(0x9CA6); // BCF EECON1, CFGS
        setPointer(address);
        const std::size_t n = data.size();
        for (std::size_t i = 0; i + 2 < n; i += 2)
            command(0xD, std::uint16_t(data[i] | data[i + 1] << 8));
        command(0xF, std::uint16_t(data[n - 2] | data[n - 1] << 8));
        programmingNop(hold);
    }
    void writeConfig(std::uint32_t address, std::uint16_t word, std::uint64_t hold = PicTarget::P9)
    {
        core(0x8EA6); // BSF EECON1, EEPGD
        core(0x8CA6); // BSF EECON1, CFGS
        setPointer(address);
        command(0xF, word);
        programmingNop(hold);
    }
    void bulkErase(std::uint16_t code, std::uint64_t hold = PicTarget::P11 + PicTarget::P10)
    {
        setPointer(0x3C0005);
        command(0xC, std::uint16_t((code >> 8) * 0x0101));
        setPointer(0x3C0004);
        command(0xC, std::uint16_t((code & 0xFF) * 0x0101));
        core(0x0000);
        bits(0, 4);
        wait(hold);
        bits(0, 16);
    }
    void eepromAddress(std::uint16_t address)
    {
        core(0x9EA6); // BCF EECON1, EEPGD
        core(0x9CA6); // BCF EECON1, CFGS
        core(0x0E00 | (address & 0xFF));
        core(0x6EA9); // MOVWF EEADR
        core(0x0E00 | (address >> 8));
        core(0x6EAA); // MOVWF EEADRH
    }
    std::uint8_t readEecon1()
    {
        core(0x50A6); // MOVF EECON1, W
        core(0x6EF5); // MOVWF TABLAT
        core(0x0000);
        return read(0x2);
    }
};

std::vector<std::uint8_t> pattern(std::size_t n, std::uint8_t seed)
{
    std::vector<std::uint8_t> bytes(n);
    for (std::size_t i = 0; i < n; ++i)
        bytes[i] = std::uint8_t(seed + i * 37);
    return bytes;
}

std::vector<std::uint8_t> slice(const std::vector<std::uint8_t>& v, std::size_t from, std::size_t n)
{
    return {v.begin() + long(from), v.begin() + long(from + n)};
}

} // namespace

class TestPicModel : public QObject
{
    Q_OBJECT

private slots:
    void entryNeedsPowerPgmAndSetupTimes();
    void readsDeviceIdConfigAndUnimplemented();
    void readBitHoldsAfterFallingEdgeAndContentionIsCounted();
    void bulkEraseCodesEraseTheirRegionOnly();
    void shortEraseHoldErasesNothing();
    void rowWriteUsesBufferAndOnlyClearsBits();
    void shortProgrammingHoldWritesNothing();
    void configBytesTakeLowOrHighHalf();
    void rowEraseClearsOneRow();
    void eepromReadAndSelfTimedWrite();
    void resetDuringEepromWriteAbortsIt();
    void faultsNonBlankStuckAndAbsent();
    void faultTextReportsBadLines();
    void partialCommandMisalignsUntilReset();
    void controlFilesReadAndSteerTheModel();
};

void TestPicModel::entryNeedsPowerPgmAndSetupTimes()
{
    PicTarget pic;
    Host host(pic);
    host.enter();
    QVERIFY2(!pic.inProgrammingMode(), "an unpowered chip cannot enter programming mode");

    host.powerOn();
    host.enter(1'000); // PGM set up only 1 us before MCLR rises
    QVERIFY(!pic.inProgrammingMode());
    QCOMPARE(pic.counters().p15Violations, 1u);

    host.enter(PicTarget::P15, 500); // first clock 0.5 us after MCLR
    host.core(0x0E12);
    QVERIFY(!pic.inProgrammingMode());
    QCOMPARE(pic.counters().p12Violations, 1u);

    host.enter();
    QVERIFY(pic.inProgrammingMode());
    host.setPointer(0x123456);
    QCOMPARE(pic.tablePointer(), 0x123456u & 0x3FFFFF);

    // MCLR low resets: table pointer cleared, mode left.
    host.out(PicTarget::MCLR, false);
    QVERIFY(!pic.inProgrammingMode());
    QCOMPARE(pic.tablePointer(), 0u);

    // Releasing MCLR to the pull-up while PGM is high enters the mode as well.
    host.out(PicTarget::PGM, true);
    host.release(PicTarget::MCLR);
    QVERIFY(pic.inProgrammingMode());

    // Dropping PGM ends it; losing power too.
    host.out(PicTarget::PGM, false);
    QVERIFY(!pic.inProgrammingMode());
    host.enter();
    host.out(PicTarget::POWER, false);
    QVERIFY(!pic.inProgrammingMode());
    QVERIFY(!pic.powered());
}

void TestPicModel::readsDeviceIdConfigAndUnimplemented()
{
    PicTarget pic;
    Host host(pic);
    pic.setDeviceId(0x2765);
    pic.config()[0x01] = 0x0F;
    pic.config()[0x0D] = 0x40;
    pic.idLocations()[7] = 0x5A;
    host.powerOn();
    host.enter();

    QCOMPARE(host.readFrom(0x3FFFFE, 2), (std::vector<std::uint8_t>{0x65, 0x27}));
    const auto config = host.readFrom(0x300000, 16);
    QCOMPARE(config[0x01], std::uint8_t(0x0F));
    QCOMPARE(config[0x0D], std::uint8_t(0x40));
    QCOMPARE(config[0x0E], std::uint8_t(0)); // beyond the 14 configuration bytes
    QCOMPARE(host.readFrom(0x200007, 1)[0], std::uint8_t(0x5A));
    QCOMPARE(host.readFrom(0x010000, 2), (std::vector<std::uint8_t>{0, 0})); // no flash above 64 KB
    QCOMPARE(host.readFrom(0xFFFE, 2), (std::vector<std::uint8_t>{0xFF, 0xFF}));

    // TBLRD* leaves the pointer, TBLRD*- decrements, TBLRD+* pre-increments.
    pic.flash()[0x100] = 1;
    pic.flash()[0x101] = 2;
    pic.flash()[0x102] = 3;
    host.setPointer(0x101);
    QCOMPARE(host.read(0x8), std::uint8_t(2));
    QCOMPARE(host.read(0xA), std::uint8_t(2));
    QCOMPARE(host.read(0xB), std::uint8_t(2));
    QCOMPARE(host.read(0xB), std::uint8_t(3));
    QCOMPARE(pic.counters().commands[0x9], 2u + 16u + 1u + 2u + 2u);
}

void TestPicModel::readBitHoldsAfterFallingEdgeAndContentionIsCounted()
{
    PicTarget pic;
    Host host(pic);
    pic.flash()[0] = 0x81;
    host.powerOn();
    host.enter();
    host.setPointer(0);
    host.bits(0x9, 4);
    host.bits(0, 8);
    host.release(PicTarget::PGD);
    std::vector<bool> whileHigh, afterFall;
    for (int i = 0; i < 8; ++i) {
        host.out(PicTarget::PGC, true);
        whileHigh.push_back(host.sample());
        host.out(PicTarget::PGC, false);
        afterFall.push_back(host.sample());
    }
    const std::vector<bool> expected{true, false, false, false, false, false, false, true};
    QCOMPARE(whileHigh, expected);
    QCOMPARE(afterFall, expected);
    // The next command's first clock ends the device's drive.
    host.out(PicTarget::PGD, false);
    host.out(PicTarget::PGC, true);
    QVERIFY(!pic.drivenLevel(PicTarget::PGD, host.tick()).has_value());
    host.out(PicTarget::PGC, false);
    host.bits(0, 19); // finish that NOP
    QCOMPARE(pic.counters().busContention, 0u);

    // A host that keeps driving PGD during the read fights the device.
    host.bits(0x9, 4);
    host.bits(0, 16);
    QCOMPARE(pic.counters().busContention, 8u);
}

void TestPicModel::bulkEraseCodesEraseTheirRegionOnly()
{
    struct Case
    {
        std::uint16_t code;
        std::uint32_t from, to;
    };
    const std::vector<Case> cases{{PicTarget::ERASE_BOOT, 0x0000, 0x0800},
                                  {PicTarget::ERASE_BLOCK0, 0x0800, 0x4000},
                                  {PicTarget::ERASE_BLOCK1, 0x4000, 0x8000},
                                  {PicTarget::ERASE_BLOCK2, 0x8000, 0xC000},
                                  {PicTarget::ERASE_BLOCK3, 0xC000, 0x10000}};
    for (const Case& c : cases) {
        PicTarget pic;
        std::fill(pic.flash().begin(), pic.flash().end(), 0x00);
        std::fill(pic.config().begin(), pic.config().end(), 0x00);
        Host host(pic);
        host.powerOn();
        host.enter();
        host.bulkErase(c.code);
        for (std::uint32_t a :
             {0x0000u, 0x07FFu, 0x0800u, 0x3FFFu, 0x4000u, 0x7FFFu, 0x8000u, 0xBFFFu, 0xC000u, 0xFFFFu}) {
            const bool inside = a >= c.from && a < c.to;
            QVERIFY2(pic.flash()[a] == (inside ? 0xFF : 0x00),
                     qPrintable(QString("code %1 address %2").arg(c.code, 4, 16).arg(a, 4, 16)));
        }
        QCOMPARE(pic.config()[0], std::uint8_t(0x00));
        QCOMPARE(pic.counters().bulkErases, 1u);
    }

    PicTarget pic;
    std::fill(pic.flash().begin(), pic.flash().end(), 0x00);
    std::fill(pic.config().begin(), pic.config().end(), 0x00);
    std::fill(pic.eeprom().begin(), pic.eeprom().end(), 0x00);
    Host host(pic);
    host.powerOn();
    host.enter();
    host.bulkErase(PicTarget::ERASE_EEPROM);
    QCOMPARE(pic.eeprom()[1023], std::uint8_t(0xFF));
    QCOMPARE(pic.flash()[0], std::uint8_t(0x00));
    host.bulkErase(PicTarget::ERASE_CONFIG);
    QCOMPARE(pic.config()[13], std::uint8_t(0xFF));
    QCOMPARE(pic.flash()[0], std::uint8_t(0x00));
    host.bulkErase(PicTarget::ERASE_CHIP);
    QVERIFY(std::all_of(pic.flash().begin(), pic.flash().end(), [](std::uint8_t b) { return b == 0xFF; }));
    host.bulkErase(0x1234);
    QCOMPARE(pic.counters().bulkErases, 3u);
    QCOMPARE(pic.counters().protocolErrors, 1u);
}

void TestPicModel::shortEraseHoldErasesNothing()
{
    PicTarget pic;
    std::fill(pic.flash().begin(), pic.flash().end(), 0x00);
    Host host(pic);
    host.powerOn();
    host.enter();
    host.bulkErase(PicTarget::ERASE_BOOT, PicTarget::P11 - 100'000);
    QCOMPARE(pic.flash()[0], std::uint8_t(0x00));
    QCOMPARE(pic.counters().p11Violations, 1u);
    QCOMPARE(pic.counters().bulkErases, 0u);
    QCOMPARE(pic.holds().eraseNs.size(), std::size_t(1));
}

void TestPicModel::rowWriteUsesBufferAndOnlyClearsBits()
{
    PicTarget pic;
    Host host(pic);
    host.powerOn();
    host.enter();
    const auto row = pattern(64, 3);
    host.writeRow(0x1040, row);
    QCOMPARE(slice(pic.flash(), 0x1040, 64), row);
    QCOMPARE(pic.flash()[0x103F], std::uint8_t(0xFF));
    QCOMPARE(pic.flash()[0x1080], std::uint8_t(0xFF));
    QCOMPARE(pic.counters().rowsWritten, 1u);

    // 8 bytes at 0x38: the rest of the row stays as it was (the buffer was reset to 0xFF after the write).
    const auto part = pattern(8, 100);
    host.writeRow(0x0038, part);
    QCOMPARE(slice(pic.flash(), 0x38, 8), part);
    QCOMPARE(slice(pic.flash(), 0x00, 0x38), std::vector<std::uint8_t>(0x38, 0xFF));

    // Programming only clears bits: 0x0F over 0xF0 gives 0x00; 0xFF leaves a cell alone.
    host.writeRow(0x2000, {0xF0, 0xFF});
    host.writeRow(0x2000, {0x0F, 0x0F});
    QCOMPARE(pic.flash()[0x2000], std::uint8_t(0x00));
    QCOMPARE(pic.flash()[0x2001], std::uint8_t(0x0F));

    // ID locations take a row write too.
    host.writeRow(PicTarget::idAddress, {1, 2, 3, 4, 5, 6, 7, 8});
    QCOMPARE(pic.idLocations(), (std::vector<std::uint8_t>{1, 2, 3, 4, 5, 6, 7, 8}));
    QCOMPARE(pic.counters().timingViolations(), 0u);
}

void TestPicModel::shortProgrammingHoldWritesNothing()
{
    PicTarget pic;
    Host host(pic);
    host.powerOn();
    host.enter();
    host.writeRow(0x0100, {0x12, 0x34}, PicTarget::P9 - 10'000);
    QCOMPARE(pic.flash()[0x100], std::uint8_t(0xFF));
    QCOMPARE(pic.counters().p9Violations, 1u);
    // The rejected buffer is gone: a later write of other bytes does not carry it along.
    host.writeRow(0x0104, {0x56, 0x78});
    QCOMPARE(pic.flash()[0x100], std::uint8_t(0xFF));
    QCOMPARE(pic.flash()[0x104], std::uint8_t(0x56));

    // A discharge time shorter than P10 is counted but the row is written.
    host.core(0x8EA6);
    host.setPointer(0x0200);
    host.command(0xF, 0x2211);
    host.bits(0, 3);
    host.out(PicTarget::PGC, true);
    host.wait(PicTarget::P9);
    host.out(PicTarget::PGC, false);
    host.wait(10'000);
    host.bits(0, 16);
    QCOMPARE(pic.flash()[0x200], std::uint8_t(0x11));
    QCOMPARE(pic.counters().p10Violations, 1u);
}

void TestPicModel::configBytesTakeLowOrHighHalf()
{
    PicTarget pic;
    Host host(pic);
    host.powerOn();
    host.enter();
    host.writeConfig(0x300000, 0xAA55);
    host.writeConfig(0x300001, 0xAA55);
    host.writeConfig(0x30000D, 0x8181);
    QCOMPARE(pic.config()[0], std::uint8_t(0x55));
    QCOMPARE(pic.config()[1], std::uint8_t(0xAA));
    QCOMPARE(pic.config()[13], std::uint8_t(0x81));
    QCOMPARE(pic.counters().configWrites, 3u);
    host.writeConfig(0x300002, 0x1111, PicTarget::P9 / 2);
    QCOMPARE(pic.config()[2], std::uint8_t(0xFF));

    // Without CFGS the same address is not a configuration write.
    host.core(0x9CA6);
    host.setPointer(0x300003);
    host.command(0xF, 0x0000);
    host.programmingNop();
    QCOMPARE(pic.config()[3], std::uint8_t(0xFF));
}

void TestPicModel::rowEraseClearsOneRow()
{
    PicTarget pic;
    std::fill(pic.flash().begin(), pic.flash().end(), 0x00);
    Host host(pic);
    host.powerOn();
    host.enter();
    host.core(0x8EA6); // EEPGD
    host.core(0x9CA6); // CFGS off
    host.core(0x84A6); // WREN
    host.setPointer(0x0450);
    host.core(0x88A6); // FREE
    host.core(0x82A6); // WR
    QVERIFY(pic.eecon1() & 0x02);
    host.programmingNop();
    QCOMPARE(slice(pic.flash(), 0x440, 64), std::vector<std::uint8_t>(64, 0xFF));
    QCOMPARE(pic.flash()[0x43F], std::uint8_t(0x00));
    QCOMPARE(pic.flash()[0x480], std::uint8_t(0x00));
    QCOMPARE(pic.counters().rowErases, 1u);
    QCOMPARE(pic.eecon1() & 0x12, 0); // WR and FREE cleared
}

void TestPicModel::eepromReadAndSelfTimedWrite()
{
    PicTarget pic;
    pic.eeprom()[0x3A5] = 0x5C;
    Host host(pic);
    host.powerOn();
    host.enter();
    host.eepromAddress(0x3A5);
    host.core(0x80A6); // BSF EECON1, RD
    host.core(0x50A8); // MOVF EEDATA, W
    host.core(0x6EF5); // MOVWF TABLAT
    host.core(0x0000);
    QCOMPARE(host.read(0x2), std::uint8_t(0x5C));

    host.eepromAddress(0x011);
    host.core(0x0E77);
    host.core(0x6EA8); // MOVWF EEDATA
    host.core(0x82A6); // WR without WREN: nothing starts
    QCOMPARE(host.readEecon1() & 0x02, 0);
    host.core(0x84A6); // WREN
    host.core(0x82A6); // WR
    QCOMPARE(host.readEecon1() & 0x02, 0x02);
    QCOMPARE(pic.eeprom()[0x11], std::uint8_t(0xFF));
    host.wait(PicTarget::P11);
    QCOMPARE(host.readEecon1() & 0x02, 0);
    QCOMPARE(pic.eeprom()[0x11], std::uint8_t(0x77));
    QCOMPARE(pic.counters().eepromWrites, 1u);
}

void TestPicModel::resetDuringEepromWriteAbortsIt()
{
    PicTarget pic;
    Host host(pic);
    host.powerOn();
    host.enter();
    host.eepromAddress(0x020);
    host.core(0x0E33);
    host.core(0x6EA8);
    host.core(0x84A6);
    host.core(0x82A6);
    host.out(PicTarget::MCLR, false);
    QCOMPARE(pic.eeprom()[0x20], std::uint8_t(0xFF));
    QCOMPARE(pic.counters().eepromWritesAborted, 1u);
}

void TestPicModel::faultsNonBlankStuckAndAbsent()
{
    PicTarget pic;
    QCOMPARE(pic.applyFaultText("nonblank 0x0200 0x7E\nstuck 0x0300 0x81\n"), std::string());
    std::fill(pic.flash().begin(), pic.flash().end(), 0x00);
    Host host(pic);
    host.powerOn();
    host.enter();
    host.bulkErase(PicTarget::ERASE_BOOT);
    QCOMPARE(pic.flash()[0x200], std::uint8_t(0x7E));
    QCOMPARE(pic.flash()[0x201], std::uint8_t(0xFF));
    host.writeRow(0x0300, {0x00, 0x00});
    QCOMPARE(pic.flash()[0x300], std::uint8_t(0x81)); // bits 7 and 0 ignore programming
    QCOMPARE(pic.flash()[0x301], std::uint8_t(0x00));

    QCOMPARE(pic.applyFaultText("nodevice"), std::string());
    QVERIFY(!pic.inProgrammingMode());
    host.enter();
    QVERIFY(!pic.inProgrammingMode());
    QCOMPARE(host.read(0x9), std::uint8_t(0xFF)); // PGD floats high

    QCOMPARE(pic.faultText(),
             std::string("nodevice\ndevid 0x0C07\nnonblank 0x0200 0x7E\nstuck 0x0300 0x81\n"));
    QCOMPARE(pic.applyFaultText("clear\ndevid 0x0E81"), std::string());
    QVERIFY(pic.present());
    QVERIFY(pic.nonBlankCells().empty() && pic.stuckBits().empty());
    QCOMPARE(pic.deviceId(), std::uint16_t(0x0E81));
}

void TestPicModel::faultTextReportsBadLines()
{
    PicTarget pic;
    QCOMPARE(pic.applyFaultText("clear\nstuck 0x10000 1"),
             std::string("faults line 2: address '0x10000' is not a program flash address (0 to 0xFFFF)"));
    QCOMPARE(pic.applyFaultText("nonblank 5 256"),
             std::string("faults line 1: '256' is not a byte (0 to 0xFF)"));
    QCOMPARE(
        pic.applyFaultText("# comment\n\nexplode"),
        std::string("faults line 3: unknown command 'explode' (expected nonblank, stuck, nodevice, device, "
                    "devid or clear)"));
    QCOMPARE(pic.applyFaultText("devid"), std::string("faults line 1: 'devid' takes ID"));
    QCOMPARE(pic.applyFaultText("devid 0x12345"),
             std::string("faults line 1: '0x12345' is not a 16-bit device ID"));
}

void TestPicModel::partialCommandMisalignsUntilReset()
{
    PicTarget pic;
    pic.flash()[0x10] = 0xA5;
    Host host(pic);
    host.powerOn();
    host.enter();
    host.bits(0, 4); // four stray clocks
    host.setPointer(0x10);
    QVERIFY(pic.tablePointer() != 0x10);

    host.enter(); // a reset brings the framing back
    QCOMPARE(host.readFrom(0x10, 1)[0], std::uint8_t(0xA5));
}

void TestPicModel::controlFilesReadAndSteerTheModel()
{
    sim::Instrument instrument;
    const std::shared_ptr<PicTarget> pic = sim::installPic(instrument);
    auto file = [&](const char* name) -> const sim::ControlFile& {
        const auto folder = instrument.control().child(0, "pic");
        const auto node = instrument.control().child(*folder, name);
        return *instrument.control().node(*node)->file;
    };

    // The model sits on the bank's lines 2 to 6.
    sim::GpioLineBank& bank = instrument.gpio();
    QCOMPARE(bank.exportLine(5), 0);
    QCOMPARE(bank.writeDirection(5, "high", 1000), 0);
    QVERIFY(pic->powered());

    pic->flash()[0x11] = 0xAB;
    const std::string flash = file("flash").read();
    QCOMPARE(flash.size(), std::size_t(0x10000));
    QCOMPARE(std::uint8_t(flash[0x11]), std::uint8_t(0xAB));
    QCOMPARE(file("flash").write(std::string(100, '\0')), -EINVAL); // not the whole image
    QCOMPARE(pic->flash()[0], std::uint8_t(0xFF));

    QCOMPARE(file("config.hex").read(), std::string("0000: ff ff ff ff ff ff ff ff ff ff ff ff ff ff\n"));
    QCOMPARE(file("config.hex").write("0001: 12 34\n000d: 56\n"), 0);
    QCOMPARE(pic->config()[1], std::uint8_t(0x12));
    QCOMPARE(pic->config()[2], std::uint8_t(0x34));
    QCOMPARE(pic->config()[13], std::uint8_t(0x56));
    // A bad line changes nothing, not even the good lines before it.
    QCOMPARE(file("config.hex").write("0000: 00\n000d: 00 00\n"), -EINVAL);
    QCOMPARE(pic->config()[0], std::uint8_t(0xFF));
    QCOMPARE(sim::applyHexDump("0000: 0g", pic->config(), "pic/config.hex"),
             std::string("pic/config.hex line 1: '0g' is not a hex byte"));
    QCOMPARE(sim::applyHexDump("000d: 00 00", pic->config(), "pic/config.hex"),
             std::string("pic/config.hex line 1: offset 14 is past the end (14 bytes)"));

    QCOMPARE(file("faults").write("stuck 0x10 0x01\nexplode\n"), -EINVAL);
    QVERIFY(pic->stuckBits().empty());
    QCOMPARE(file("faults").write("stuck 0x10 0x01\n"), 0);
    QCOMPARE(pic->stuckBits().at(0x10), std::uint8_t(0x01));
    QVERIFY(file("stats").read().find("power_ups 1\n") != std::string::npos);
    QCOMPARE(file("stats").write("0"), 0);
    QVERIFY(file("stats").read().find("power_ups 0\n") != std::string::npos);
}

QTEST_APPLESS_MAIN(TestPicModel)
#include "tst_pic_model.moc"
