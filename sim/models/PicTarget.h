#pragma once
// A PIC18F4620 on the instrument's PIC board, seen through its five lines: board power, MCLR, PGM
// (low-voltage programming enable), PGC and PGD. It models the chip's low-voltage ICSP interface as the
// device documents it: mode entry, 20-clock commands latched on falling PGC edges, the core instructions a
// programmer uses on the table pointer and EECON1, table reads and writes, the 64-byte write buffer, bulk and
// row erase, configuration bytes, data EEPROM, the device ID and code/write protection. Timing minimums
// are checked against the caller's clock; an operation whose hold is too short does not happen and is
// counted. Pure model: no I/O, no text. Time is passed in by the caller (monotonic nanoseconds).

#include "GpioLineBank.h"
#include "Pic18f4620Config.h"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace sim {

class PicTarget : public GpioDevice
{
public:
    // Kernel GPIO numbers of the board's lines.
    enum Line : int
    {
        PGD = 2,
        MCLR = 3,
        PGC = 4,
        POWER = 5,
        PGM = 6
    };
    static const std::vector<int>& lines();

    static constexpr std::uint32_t flashSize = 0x10000;
    static constexpr std::uint32_t idAddress = 0x200000;
    static constexpr std::uint32_t idSize = 8;
    static constexpr std::uint32_t configAddress = pic18f4620::configAddress;
    static constexpr std::uint32_t configSize = pic18f4620::configSize;
    static constexpr std::uint32_t eraseControlLow = 0x3C0004;
    static constexpr std::uint32_t eraseControlHigh = 0x3C0005;
    static constexpr std::uint32_t devIdAddress = 0x3FFFFE;
    static constexpr std::uint32_t eepromSize = 1024;
    static constexpr std::uint32_t rowSize = 64;

    // Timing minimums of the interface, in nanoseconds.
    static constexpr std::uint64_t P9 = 1'000'000;  // PGC high time that programs (4th clock)
    static constexpr std::uint64_t P10 = 100'000;   // PGC low time after programming
    static constexpr std::uint64_t P11 = 5'000'000; // bulk erase / self-timed EEPROM write
    static constexpr std::uint64_t P12 = 2'000;     // MCLR rise to the first PGC rise
    static constexpr std::uint64_t P15 = 2'000;     // PGM rise to MCLR rise

    // Bulk erase codes, 0x3C0005:0x3C0004, besides those of the program memory blocks (codeBlocks).
    enum EraseCode : std::uint16_t
    {
        ERASE_CHIP = 0x3F8F,
        ERASE_EEPROM = 0x0084,
        ERASE_CONFIG = 0x0082,
    };

    struct Counters
    {
        std::uint64_t lineEvents = 0;             // line changes reported by the bank
        std::uint64_t pgdReads = 0;               // level queries of PGD while the host reads it
        std::uint64_t clocks = 0;                 // rising PGC edges in programming mode
        std::array<std::uint64_t, 16> commands{}; // completed commands by their 4-bit code
        std::uint64_t coreInstructions = 0;
        std::uint64_t unknownInstructions = 0;
        std::uint64_t modeEntries = 0;
        std::uint64_t resets = 0;
        std::uint64_t powerUps = 0;
        std::uint64_t rowsWritten = 0;
        std::uint64_t idWrites = 0;
        std::uint64_t configWrites = 0;
        std::uint64_t eepromWrites = 0;
        std::uint64_t eepromReads = 0;
        std::uint64_t bulkErases = 0;
        std::uint64_t rowErases = 0;
        std::uint64_t protectedReads = 0;      // reads that returned 0 for a code-protected block or EEPROM
        std::uint64_t protectedWrites = 0;     // writes and row erases a protection bit ignored
        std::uint64_t p9Violations = 0;        // programming hold too short: nothing written
        std::uint64_t p10Violations = 0;       // discharge time too short (counted only)
        std::uint64_t p11Violations = 0;       // erase hold too short: nothing erased
        std::uint64_t p12Violations = 0;       // clock too soon after MCLR rose: mode not entered
        std::uint64_t p15Violations = 0;       // MCLR rose too soon after PGM: mode not entered
        std::uint64_t eepromWritesAborted = 0; // reset or power loss during a self-timed write
        std::uint64_t busContention = 0;       // device drove PGD while the host drove it too
        std::uint64_t protocolErrors = 0;      // armed operation dropped, unknown erase code, bad target

        std::uint64_t timingViolations() const
        {
            return p9Violations + p10Violations + p11Violations + p12Violations + p15Violations;
        }
    };

    // Holds that the model measured on the wire, for benchmarks.
    struct Holds
    {
        std::vector<std::uint64_t> programNs; // 4th-clock high time of programming commands
        std::vector<std::uint64_t> dischargeNs;
        std::vector<std::uint64_t> eraseNs;
        std::vector<std::uint64_t> entryNs; // MCLR rise to the first clock
    };

    PicTarget();

    void lineChanged(int line, const LineState& state, std::uint64_t nowNs) override;
    std::optional<bool> drivenLevel(int line, std::uint64_t nowNs) override;

    // Memory contents as stored. Configuration cells keep what was written to them; the chip reads them
    // masked by the implemented bits (readMemory).
    std::vector<std::uint8_t>& flash() { return m_flash; }
    std::vector<std::uint8_t>& idLocations() { return m_id; }
    std::vector<std::uint8_t>& config() { return m_config; }
    std::vector<std::uint8_t>& eeprom() { return m_eeprom; }
    const std::vector<std::uint8_t>& flash() const { return m_flash; }
    const std::vector<std::uint8_t>& idLocations() const { return m_id; }
    const std::vector<std::uint8_t>& config() const { return m_config; }
    const std::vector<std::uint8_t>& eeprom() const { return m_eeprom; }
    // What a table read at this address returns: flash (0 in a code-protected block), ID, configuration
    // (implemented bits only), device ID, 0 elsewhere.
    std::uint8_t readMemory(std::uint32_t address) const;
    // Whether a protection bit (pic18f4620::CPD, a code block's cp() ...) is programmed, i.e. reads 0.
    bool protectionOn(pic18f4620::ConfigBit bit) const;
    bool codeProtected(std::uint32_t address) const; // in a program memory block whose CP bit is on

    std::uint16_t deviceId() const { return m_deviceId; }
    void setDeviceId(std::uint16_t id) { m_deviceId = id; }

    // Faults.
    void setNonBlankAfterErase(std::uint32_t address, std::uint8_t value); // a cell no erase reaches
    void setStuckBits(std::uint32_t address, std::uint8_t mask); // bits that keep their level when programmed
    void setPresent(bool present);
    void clearFaults();
    bool present() const { return m_present; }
    const std::map<std::uint32_t, std::uint8_t>& nonBlankCells() const { return m_nonBlank; }
    const std::map<std::uint32_t, std::uint8_t>& stuckBits() const { return m_stuck; }

    bool powered() const { return m_powered; }
    bool inProgrammingMode() const { return m_mode; }
    std::uint32_t tablePointer() const { return m_tblptr; }
    std::uint8_t eecon1() const { return m_reg[EECON1]; }

    const Counters& counters() const { return m_counters; }
    const Holds& holds() const { return m_holds; }
    void resetCounters();

private:
    enum Register : std::uint8_t
    {
        TBLPTRU = 0xF8,
        TBLPTRH = 0xF7,
        TBLPTRL = 0xF6,
        TABLAT = 0xF5,
        EEADRH = 0xAA,
        EEADR = 0xA9,
        EEDATA = 0xA8,
        EECON1 = 0xA6,
    };
    enum Eecon1Bit : std::uint8_t
    {
        RD = 0,
        WR = 1,
        WREN = 2,
        FREE = 4,
        CFGS = 6,
        EEPGD = 7
    };
    enum class Phase
    {
        Command,
        Operand,
        ReadDummy,
        ReadOut
    };
    enum class Armed
    {
        None,
        Program,
        RowErase
    };
    enum class Erase
    {
        None,
        Armed,
        FirstNopDone,
        Holding
    };

    bool wireLevel(int line) const;
    void settle(std::uint64_t nowNs);
    void powerUp();
    void powerDown(std::uint64_t nowNs);
    void reset(std::uint64_t nowNs);
    void clearState();
    void enterMode(std::uint64_t nowNs);
    void clockRise(std::uint64_t nowNs);
    void clockFall(std::uint64_t nowNs);
    void commandLatched(std::uint64_t fourthHighNs);
    void operandDone();
    void startRead();
    void coreInstruction(std::uint16_t word);
    void tableWrite(std::uint16_t word, int increment, bool startProgramming);
    void programmingClock(std::uint64_t highNs);
    void eraseFlash(std::uint32_t from, std::uint32_t to);
    void bulkErase(std::uint16_t code);
    void unprotect(pic18f4620::ConfigBit bit);
    bool rowWritable(std::uint32_t rowAddress);
    void programConfig(std::uint32_t offset, std::uint8_t data);
    std::uint8_t readRegister(std::uint8_t f);
    void writeRegister(std::uint8_t f, std::uint8_t value);
    void setTablePointer(std::uint32_t value);
    void programCell(std::uint8_t& cell, std::uint32_t address, std::uint8_t data);
    void clearWriteBuffer();

    // Contents.
    std::vector<std::uint8_t> m_flash;
    std::vector<std::uint8_t> m_id;
    std::vector<std::uint8_t> m_config;
    std::vector<std::uint8_t> m_eeprom;
    std::uint16_t m_deviceId = 0x0C07;

    // Faults.
    std::map<std::uint32_t, std::uint8_t> m_nonBlank;
    std::map<std::uint32_t, std::uint8_t> m_stuck;
    bool m_present = true;

    // Lines as the host left them.
    std::map<int, bool> m_hostOut;
    std::map<int, bool> m_hostLevel;
    bool m_mclrLevel = true;
    bool m_pgmLevel = false;
    bool m_pgcLevel = false;
    std::uint64_t m_pgmRiseNs = 0;
    std::uint64_t m_nowNs = 0;

    // Device state.
    bool m_powered = false;
    bool m_mode = false;
    bool m_awaitFirstClock = false;
    std::uint64_t m_modeEntryNs = 0;
    std::array<std::uint8_t, 256> m_reg{};
    std::uint8_t m_w = 0;
    std::uint32_t m_tblptr = 0;
    std::array<std::uint8_t, rowSize> m_buffer{};
    bool m_eepromWritePending = false;
    std::uint64_t m_eepromWriteDoneNs = 0;
    std::uint16_t m_eepromWriteAddress = 0;
    std::uint8_t m_eepromWriteData = 0;
    std::uint8_t m_eraseLow = 0;
    std::uint8_t m_eraseHigh = 0;

    // Serial engine.
    Phase m_phase = Phase::Command;
    int m_bit = 0;
    std::uint8_t m_command = 0;
    std::uint16_t m_operand = 0;
    std::uint8_t m_outByte = 0;
    std::optional<bool> m_drive;
    std::uint64_t m_riseNs = 0;
    std::uint64_t m_fallNs = 0;
    Armed m_armed = Armed::None;
    bool m_armedConfig = false;
    std::uint32_t m_armedAddress = 0;
    std::uint8_t m_armedByte = 0;
    bool m_discharging = false;
    Erase m_erase = Erase::None;

    Counters m_counters;
    Holds m_holds;
};

} // namespace sim
