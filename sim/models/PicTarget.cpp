#include "PicTarget.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <sstream>

namespace sim {

namespace {
constexpr std::uint8_t bitMask(int bit)
{
    return static_cast<std::uint8_t>(1u << bit);
}

// Decimal, or hexadecimal with a 0x prefix.
std::optional<std::uint32_t> parseNumber(const std::string& text)
{
    if (text.empty())
        return std::nullopt;
    int base = 10;
    std::size_t start = 0;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        start = 2;
    }
    std::uint64_t value = 0;
    for (std::size_t i = start; i < text.size(); ++i) {
        const char c = text[i];
        int digit;
        if (c >= '0' && c <= '9')
            digit = c - '0';
        else if (base == 16 && c >= 'a' && c <= 'f')
            digit = c - 'a' + 10;
        else if (base == 16 && c >= 'A' && c <= 'F')
            digit = c - 'A' + 10;
        else
            return std::nullopt;
        value = value * base + digit;
        if (value > 0xFFFFFFFFu)
            return std::nullopt;
    }
    return static_cast<std::uint32_t>(value);
}

std::string hex(std::uint32_t value, int width)
{
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%0*X", width, value);
    return buf;
}
} // namespace

const std::vector<int>& PicTarget::lines()
{
    static const std::vector<int> all{PGD, MCLR, PGC, POWER, PGM};
    return all;
}

PicTarget::PicTarget()
    : m_flash(flashSize, 0xFF), m_id(idSize, 0xFF), m_config(configSize, 0xFF), m_eeprom(eepromSize, 0xFF)
{
    clearWriteBuffer();
}

void PicTarget::setNonBlankAfterErase(std::uint32_t address, std::uint8_t value)
{
    m_nonBlank[address] = value;
}

void PicTarget::setStuckBits(std::uint32_t address, std::uint8_t mask)
{
    m_stuck[address] = mask;
}

void PicTarget::setPresent(bool present)
{
    m_present = present;
    if (!present) {
        m_mode = false;
        m_drive.reset();
    }
}

void PicTarget::clearFaults()
{
    m_nonBlank.clear();
    m_stuck.clear();
    setPresent(true);
}

void PicTarget::resetCounters()
{
    m_counters = Counters{};
    m_holds = Holds{};
}

std::uint8_t PicTarget::readMemory(std::uint32_t address) const
{
    address &= 0x3FFFFF;
    if (address < flashSize)
        return m_flash[address];
    if (address >= idAddress && address < idAddress + idSize)
        return m_id[address - idAddress];
    if (address >= configAddress && address < configAddress + configSize)
        return m_config[address - configAddress];
    if (address == devIdAddress)
        return static_cast<std::uint8_t>(m_deviceId & 0xFF);
    if (address == devIdAddress + 1)
        return static_cast<std::uint8_t>(m_deviceId >> 8);
    return 0; // unimplemented
}

// ---- lines
// -------------------------------------------------------------------------------------------------

bool PicTarget::wireLevel(int line) const
{
    const auto out = m_hostOut.find(line);
    if (out != m_hostOut.end() && out->second) {
        const auto level = m_hostLevel.find(line);
        return level != m_hostLevel.end() && level->second;
    }
    switch (line) {
    case MCLR:
        return true; // the board's pull-up
    case PGD:
        return m_drive.value_or(true);
    default:
        return false; // PGC and PGM float low; an undriven power line is off
    }
}

void PicTarget::lineChanged(int line, const LineState& state, std::uint64_t nowNs)
{
    ++m_counters.lineEvents;
    settle(nowNs);
    m_hostOut[line] = state.direction == Direction::Out;
    m_hostLevel[line] = state.hostLevel;
    const bool level = wireLevel(line);

    switch (line) {
    case POWER:
        if (level && !m_powered)
            powerUp();
        else if (!level && m_powered)
            powerDown(nowNs);
        break;
    case PGM:
        if (level && !m_pgmLevel)
            m_pgmRiseNs = nowNs;
        else if (!level && m_pgmLevel && m_mode)
            reset(nowNs); // dropping PGM ends low-voltage programming
        m_pgmLevel = level;
        break;
    case MCLR:
        if (!level && m_mclrLevel) {
            if (m_powered)
                reset(nowNs);
        } else if (level && !m_mclrLevel) {
            enterMode(nowNs);
        }
        m_mclrLevel = level;
        break;
    case PGC:
        if (level != m_pgcLevel) {
            m_pgcLevel = level;
            if (m_mode) {
                if (level)
                    clockRise(nowNs);
                else
                    clockFall(nowNs);
            }
        }
        break;
    default:
        break; // PGD is sampled on clock edges
    }
}

std::optional<bool> PicTarget::drivenLevel(int line, std::uint64_t nowNs)
{
    if (line != PGD)
        return std::nullopt;
    settle(nowNs);
    ++m_counters.pgdReads;
    if (!m_present || !m_powered || !m_mode)
        return std::nullopt;
    return m_drive;
}

// ---- power, reset and mode entry
// ---------------------------------------------------------------------------

void PicTarget::settle(std::uint64_t nowNs)
{
    if (m_eepromWritePending && nowNs >= m_eepromWriteDoneNs) {
        m_eeprom[m_eepromWriteAddress] = m_eepromWriteData;
        ++m_counters.eepromWrites;
        m_eepromWritePending = false;
        m_reg[EECON1] &= static_cast<std::uint8_t>(~bitMask(WR));
    }
    m_nowNs = nowNs;
}

void PicTarget::clearState()
{
    if (m_eepromWritePending) {
        ++m_counters.eepromWritesAborted;
        m_eepromWritePending = false;
    }
    m_mode = false;
    m_awaitFirstClock = false;
    m_reg.fill(0);
    m_w = 0;
    m_tblptr = 0;
    clearWriteBuffer();
    m_eraseLow = m_eraseHigh = 0;
    m_phase = Phase::Command;
    m_bit = 0;
    m_command = 0;
    m_operand = 0;
    m_drive.reset();
    m_armed = Armed::None;
    m_discharging = false;
    m_erase = Erase::None;
}

void PicTarget::powerUp()
{
    m_powered = true;
    ++m_counters.powerUps;
    clearState();
}

void PicTarget::powerDown(std::uint64_t nowNs)
{
    settle(nowNs);
    clearState();
    m_powered = false;
}

void PicTarget::reset(std::uint64_t nowNs)
{
    settle(nowNs);
    clearState();
    ++m_counters.resets;
}

void PicTarget::enterMode(std::uint64_t nowNs)
{
    // Program/verify mode starts when MCLR rises while PGM is high and PGC, PGD are low.
    if (!m_present || !m_powered || !m_pgmLevel)
        return;
    if (m_pgcLevel || wireLevel(PGD)) {
        ++m_counters.protocolErrors;
        return;
    }
    if (nowNs - m_pgmRiseNs < P15) {
        ++m_counters.p15Violations;
        return;
    }
    clearState();
    m_mode = true;
    m_awaitFirstClock = true;
    m_modeEntryNs = nowNs;
    ++m_counters.modeEntries;
}

// ---- serial engine
// -----------------------------------------------------------------------------------------

void PicTarget::clockRise(std::uint64_t nowNs)
{
    ++m_counters.clocks;
    if (m_awaitFirstClock) {
        m_awaitFirstClock = false;
        const std::uint64_t hold = nowNs - m_modeEntryNs;
        m_holds.entryNs.push_back(hold);
        if (hold < P12) {
            ++m_counters.p12Violations;
            clearState(); // data clocked in too early: the mode is not entered
            return;
        }
    }
    if (m_discharging) {
        m_discharging = false;
        const std::uint64_t low = nowNs - m_fallNs;
        m_holds.dischargeNs.push_back(low);
        if (low < P10)
            ++m_counters.p10Violations;
    }
    if (m_erase == Erase::Holding) {
        m_erase = Erase::None;
        const std::uint64_t hold = nowNs - m_fallNs;
        m_holds.eraseNs.push_back(hold);
        if (hold >= P11 + P10)
            bulkErase(static_cast<std::uint16_t>(m_eraseHigh << 8 | m_eraseLow));
        else
            ++m_counters.p11Violations;
    }
    m_riseNs = nowNs;
    if (m_phase == Phase::ReadOut) {
        const auto out = m_hostOut.find(PGD);
        if (out != m_hostOut.end() && out->second)
            ++m_counters.busContention;
        m_drive = ((m_outByte >> m_bit) & 1) != 0;
    } else {
        m_drive.reset();
    }
}

void PicTarget::clockFall(std::uint64_t nowNs)
{
    const std::uint64_t highNs = nowNs - m_riseNs;
    m_fallNs = nowNs;
    const bool data = wireLevel(PGD);
    switch (m_phase) {
    case Phase::Command:
        m_command |= static_cast<std::uint8_t>(data) << m_bit;
        if (++m_bit == 4)
            commandLatched(highNs);
        break;
    case Phase::Operand:
        m_operand |= static_cast<std::uint16_t>(static_cast<std::uint16_t>(data) << m_bit);
        if (++m_bit == 16) {
            operandDone();
            m_phase = Phase::Command;
            m_bit = 0;
            m_command = 0;
            m_operand = 0;
        }
        break;
    case Phase::ReadDummy:
        if (++m_bit == 8) {
            startRead();
            m_phase = Phase::ReadOut;
            m_bit = 0;
        }
        break;
    case Phase::ReadOut:
        // The last bit stays on PGD until the next rising edge, so the host may sample after this edge.
        if (++m_bit == 8) {
            m_phase = Phase::Command;
            m_bit = 0;
            m_command = 0;
        }
        break;
    }
}

void PicTarget::commandLatched(std::uint64_t fourthHighNs)
{
    const std::uint8_t cmd = m_command;
    ++m_counters.commands[cmd & 0xF];

    // Programming (or a row erase) happens during the 4th clock of the command after it was armed.
    if (m_armed != Armed::None) {
        if (cmd == 0x0)
            programmingClock(fourthHighNs);
        else
            ++m_counters.protocolErrors;
        m_armed = Armed::None;
        if (cmd != 0x0)
            clearWriteBuffer();
    }
    // A bulk erase runs while the second NOP after the erase code holds PGC low before its operand.
    if (m_erase == Erase::FirstNopDone) {
        if (cmd == 0x0) {
            m_erase = Erase::Holding;
        } else {
            ++m_counters.protocolErrors;
            m_erase = Erase::None;
        }
    } else if (m_erase == Erase::Armed && cmd != 0x0) {
        ++m_counters.protocolErrors;
        m_erase = Erase::None;
    }

    m_bit = 0;
    if (cmd == 0x2 || (cmd & 0xC) == 0x8)
        m_phase = Phase::ReadDummy;
    else
        m_phase = Phase::Operand;
}

void PicTarget::operandDone()
{
    switch (m_command) {
    case 0x0:
        coreInstruction(m_operand);
        break;
    case 0xC:
        tableWrite(m_operand, 0, false);
        break;
    case 0xD:
        tableWrite(m_operand, 2, false);
        break;
    case 0xE:
        tableWrite(m_operand, 2, true);
        break;
    case 0xF:
        tableWrite(m_operand, 0, true);
        break;
    default:
        ++m_counters.protocolErrors; // reserved command
        break;
    }
}

void PicTarget::startRead()
{
    switch (m_command) {
    case 0x8:
        m_reg[TABLAT] = readMemory(m_tblptr);
        break;
    case 0x9:
        m_reg[TABLAT] = readMemory(m_tblptr);
        setTablePointer(m_tblptr + 1);
        break;
    case 0xA:
        m_reg[TABLAT] = readMemory(m_tblptr);
        setTablePointer(m_tblptr - 1);
        break;
    case 0xB:
        setTablePointer(m_tblptr + 1);
        m_reg[TABLAT] = readMemory(m_tblptr);
        break;
    default: // 0x2 shifts out TABLAT as it is
        break;
    }
    m_outByte = m_reg[TABLAT];
}

// ---- core instructions and registers
// -----------------------------------------------------------------------

void PicTarget::coreInstruction(std::uint16_t word)
{
    ++m_counters.coreInstructions;
    const std::uint8_t op = static_cast<std::uint8_t>(word >> 8);
    const std::uint8_t f = static_cast<std::uint8_t>(word & 0xFF);

    if (m_erase == Erase::Armed) // the first NOP after the erase code
        m_erase = word == 0x0000 ? Erase::FirstNopDone : Erase::None;

    if (word == 0x0000)
        return; // NOP
    if (op == 0x0E) {
        m_w = f; // MOVLW
    } else if (op == 0x6E) {
        writeRegister(f, m_w); // MOVWF f (access bank)
    } else if (op == 0x50) {
        m_w = readRegister(f); // MOVF f,W (access bank)
    } else if ((op & 0xF1) == 0x80) {
        writeRegister(f, readRegister(f) | bitMask((op >> 1) & 7)); // BSF f,b
    } else if ((op & 0xF1) == 0x90) {
        writeRegister(f, readRegister(f) & static_cast<std::uint8_t>(~bitMask((op >> 1) & 7))); // BCF f,b
    } else {
        ++m_counters.unknownInstructions;
    }
}

std::uint8_t PicTarget::readRegister(std::uint8_t f)
{
    switch (f) {
    case TBLPTRU:
        return static_cast<std::uint8_t>((m_tblptr >> 16) & 0x3F);
    case TBLPTRH:
        return static_cast<std::uint8_t>(m_tblptr >> 8);
    case TBLPTRL:
        return static_cast<std::uint8_t>(m_tblptr);
    case EECON1:
        settle(m_nowNs);
        return m_reg[EECON1];
    default:
        return m_reg[f];
    }
}

void PicTarget::setTablePointer(std::uint32_t value)
{
    m_tblptr = value & 0x3FFFFF;
}

void PicTarget::writeRegister(std::uint8_t f, std::uint8_t value)
{
    switch (f) {
    case TBLPTRU:
        setTablePointer((m_tblptr & 0x00FFFF) | std::uint32_t(value & 0x3F) << 16);
        return;
    case TBLPTRH:
        setTablePointer((m_tblptr & 0x3F00FF) | std::uint32_t(value) << 8);
        return;
    case TBLPTRL:
        setTablePointer((m_tblptr & 0x3FFF00) | value);
        return;
    case EECON1:
        break;
    default:
        m_reg[f] = value;
        return;
    }

    // EECON1: RD and WR can only be set by software; the hardware clears them.
    const std::uint8_t old = m_reg[EECON1];
    const std::uint8_t wrBit = bitMask(WR);
    std::uint8_t next = static_cast<std::uint8_t>((value & ~(bitMask(RD) | wrBit)) | (old & wrBit));
    const bool dataEeprom = !(next & bitMask(EEPGD)) && !(next & bitMask(CFGS));
    if ((value & bitMask(RD)) && dataEeprom) {
        const std::uint16_t address =
            static_cast<std::uint16_t>((m_reg[EEADRH] << 8 | m_reg[EEADR]) % eepromSize);
        m_reg[EEDATA] = m_eeprom[address];
        ++m_counters.eepromReads;
    }
    if ((value & wrBit) && !(old & wrBit) && (next & bitMask(WREN))) {
        if (dataEeprom) {
            m_eepromWritePending = true;
            m_eepromWriteDoneNs = m_nowNs + P11;
            m_eepromWriteAddress =
                static_cast<std::uint16_t>((m_reg[EEADRH] << 8 | m_reg[EEADR]) % eepromSize);
            m_eepromWriteData = m_reg[EEDATA];
            next |= wrBit;
        } else if ((next & bitMask(EEPGD)) && !(next & bitMask(CFGS)) && (next & bitMask(FREE))) {
            m_armed = Armed::RowErase;
            m_armedAddress = m_tblptr & ~(rowSize - 1);
            next |= wrBit;
        } else {
            ++m_counters.protocolErrors;
        }
    }
    m_reg[EECON1] = next;
}

// ---- table writes, programming and erase
// -------------------------------------------------------------------

void PicTarget::clearWriteBuffer()
{
    m_buffer.fill(0xFF);
}

void PicTarget::tableWrite(std::uint16_t word, int increment, bool startProgramming)
{
    const std::uint8_t low = static_cast<std::uint8_t>(word & 0xFF);
    const std::uint8_t high = static_cast<std::uint8_t>(word >> 8);
    const std::uint32_t ptr = m_tblptr;
    // Even addresses take the low byte of the word, odd ones the high byte.
    const std::uint8_t single = (ptr & 1) ? high : low;

    if (ptr == eraseControlLow || ptr == eraseControlHigh) {
        if (ptr == eraseControlHigh) {
            m_eraseHigh = single;
        } else {
            m_eraseLow = single;
            m_erase = Erase::Armed;
        }
        if (startProgramming)
            ++m_counters.protocolErrors;
    } else if (m_reg[EECON1] & bitMask(CFGS)) {
        if (startProgramming) {
            m_armed = Armed::Program;
            m_armedConfig = true;
            m_armedAddress = ptr;
            m_armedByte = single;
        } else {
            ++m_counters.protocolErrors; // configuration bytes have no write buffer
        }
    } else {
        m_buffer[ptr & (rowSize - 1)] = low;
        m_buffer[(ptr + 1) & (rowSize - 1)] = high;
        if (startProgramming) {
            m_armed = Armed::Program;
            m_armedConfig = false;
            m_armedAddress = ptr & ~(rowSize - 1);
        }
    }
    setTablePointer(ptr + static_cast<std::uint32_t>(increment));
}

void PicTarget::programCell(std::uint8_t& cell, std::uint32_t address, std::uint8_t data)
{
    // Programming can only clear bits; stuck bits keep their level.
    const auto stuck = m_stuck.find(address);
    const std::uint8_t mask = stuck == m_stuck.end() ? 0 : stuck->second;
    cell = static_cast<std::uint8_t>((cell & data & ~mask) | (cell & mask));
}

void PicTarget::programmingClock(std::uint64_t highNs)
{
    m_holds.programNs.push_back(highNs);
    if (highNs < P9) {
        ++m_counters.p9Violations;
        if (m_armed == Armed::RowErase)
            m_reg[EECON1] &= static_cast<std::uint8_t>(~(bitMask(WR) | bitMask(FREE)));
        clearWriteBuffer();
        return;
    }
    m_discharging = true;
    if (m_armed == Armed::RowErase) {
        if (m_armedAddress < flashSize) {
            eraseFlash(m_armedAddress, m_armedAddress + rowSize);
            ++m_counters.rowErases;
        } else {
            ++m_counters.protocolErrors;
        }
        m_reg[EECON1] &= static_cast<std::uint8_t>(~(bitMask(WR) | bitMask(FREE)));
        return;
    }
    if (m_armedConfig) {
        if (m_armedAddress >= configAddress && m_armedAddress < configAddress + configSize) {
            m_config[m_armedAddress - configAddress] = m_armedByte;
            ++m_counters.configWrites;
        } else {
            ++m_counters.protocolErrors;
        }
        return;
    }
    if (m_armedAddress < flashSize) {
        for (std::uint32_t i = 0; i < rowSize; ++i)
            programCell(m_flash[m_armedAddress + i], m_armedAddress + i, m_buffer[i]);
        ++m_counters.rowsWritten;
    } else if (m_armedAddress == idAddress) {
        for (std::uint32_t i = 0; i < idSize; ++i)
            m_id[i] &= m_buffer[i];
        ++m_counters.idWrites;
    } else {
        ++m_counters.protocolErrors;
    }
    clearWriteBuffer();
}

void PicTarget::eraseFlash(std::uint32_t from, std::uint32_t to)
{
    std::fill(m_flash.begin() + from, m_flash.begin() + to, 0xFF);
    for (const auto& [address, value] : m_nonBlank) {
        if (address >= from && address < to)
            m_flash[address] = value;
    }
}

void PicTarget::bulkErase(std::uint16_t code)
{
    switch (code) {
    case ERASE_CHIP:
        eraseFlash(0, flashSize);
        std::fill(m_id.begin(), m_id.end(), 0xFF);
        std::fill(m_config.begin(), m_config.end(), 0xFF);
        std::fill(m_eeprom.begin(), m_eeprom.end(), 0xFF);
        break;
    case ERASE_EEPROM:
        std::fill(m_eeprom.begin(), m_eeprom.end(), 0xFF);
        break;
    case ERASE_BOOT:
        eraseFlash(0x0000, 0x0800);
        break;
    case ERASE_CONFIG:
        std::fill(m_config.begin(), m_config.end(), 0xFF);
        break;
    case ERASE_BLOCK0:
        eraseFlash(0x0800, 0x4000);
        break;
    case ERASE_BLOCK1:
        eraseFlash(0x4000, 0x8000);
        break;
    case ERASE_BLOCK2:
        eraseFlash(0x8000, 0xC000);
        break;
    case ERASE_BLOCK3:
        eraseFlash(0xC000, 0x10000);
        break;
    default:
        ++m_counters.protocolErrors;
        return;
    }
    ++m_counters.bulkErases;
}

// ---- control text
// ------------------------------------------------------------------------------------------

std::string PicTarget::applyFaultText(std::string_view text)
{
    // All lines are checked before any is applied, so a bad line changes nothing.
    std::vector<std::function<void()>> actions;
    std::istringstream in{std::string(text)};
    std::string line;
    int lineNo = 0;
    while (std::getline(in, line)) {
        ++lineNo;
        std::istringstream words(line);
        std::vector<std::string> w;
        for (std::string word; words >> word;)
            w.push_back(word);
        if (w.empty() || w[0][0] == '#')
            continue;
        const std::string where = "faults line " + std::to_string(lineNo) + ": ";
        const std::string cmd = w[0];
        auto argCount = [&](std::size_t n, const char* usage) -> std::string {
            return w.size() == n + 1 ? std::string() : where + "'" + cmd + "' takes " + usage;
        };
        if (cmd == "clear" || cmd == "nodevice" || cmd == "device") {
            if (auto e = argCount(0, "no arguments"); !e.empty())
                return e;
            if (cmd == "clear")
                actions.push_back([this] { clearFaults(); });
            else
                actions.push_back([this, cmd] { setPresent(cmd == "device"); });
        } else if (cmd == "nonblank" || cmd == "stuck") {
            if (auto e = argCount(2, cmd == "stuck" ? "ADDRESS MASK" : "ADDRESS VALUE"); !e.empty())
                return e;
            const auto address = parseNumber(w[1]);
            const auto value = parseNumber(w[2]);
            if (!address || *address >= flashSize)
                return where + "address '" + w[1] + "' is not a program flash address (0 to 0xFFFF)";
            if (!value || *value > 0xFF)
                return where + "'" + w[2] + "' is not a byte (0 to 0xFF)";
            const auto a = *address;
            const auto v = static_cast<std::uint8_t>(*value);
            if (cmd == "stuck")
                actions.push_back([this, a, v] { setStuckBits(a, v); });
            else
                actions.push_back([this, a, v] { setNonBlankAfterErase(a, v); });
        } else if (cmd == "devid") {
            if (auto e = argCount(1, "ID"); !e.empty())
                return e;
            const auto id = parseNumber(w[1]);
            if (!id || *id > 0xFFFF)
                return where + "'" + w[1] + "' is not a 16-bit device ID";
            actions.push_back([this, id] { setDeviceId(static_cast<std::uint16_t>(*id)); });
        } else {
            return where + "unknown command '" + cmd +
                   "' (expected nonblank, stuck, nodevice, device, devid or clear)";
        }
    }
    for (const auto& action : actions)
        action();
    return {};
}

std::string PicTarget::faultText() const
{
    std::string text = m_present ? "device\n" : "nodevice\n";
    text += "devid " + hex(m_deviceId, 4) + "\n";
    for (const auto& [address, value] : m_nonBlank)
        text += "nonblank " + hex(address, 4) + " " + hex(value, 2) + "\n";
    for (const auto& [address, mask] : m_stuck)
        text += "stuck " + hex(address, 4) + " " + hex(mask, 2) + "\n";
    return text;
}

std::vector<std::pair<std::string, std::uint64_t>> PicTarget::counterList() const
{
    const Counters& c = m_counters;
    std::vector<std::pair<std::string, std::uint64_t>> list{
        {"line_events", c.lineEvents},
        {"pgd_reads", c.pgdReads},
        {"clocks", c.clocks},
        {"core_instructions", c.coreInstructions},
        {"unknown_instructions", c.unknownInstructions},
        {"mode_entries", c.modeEntries},
        {"resets", c.resets},
        {"power_ups", c.powerUps},
        {"rows_written", c.rowsWritten},
        {"id_writes", c.idWrites},
        {"config_writes", c.configWrites},
        {"eeprom_writes", c.eepromWrites},
        {"eeprom_reads", c.eepromReads},
        {"bulk_erases", c.bulkErases},
        {"row_erases", c.rowErases},
        {"timing_violations", c.timingViolations()},
        {"p9_violations", c.p9Violations},
        {"p10_violations", c.p10Violations},
        {"p11_violations", c.p11Violations},
        {"p12_violations", c.p12Violations},
        {"p15_violations", c.p15Violations},
        {"eeprom_writes_aborted", c.eepromWritesAborted},
        {"bus_contention", c.busContention},
        {"protocol_errors", c.protocolErrors},
    };
    for (int cmd = 0; cmd < 16; ++cmd) {
        char name[16];
        std::snprintf(name, sizeof name, "command_%X", cmd);
        list.emplace_back(name, c.commands[cmd]);
    }
    return list;
}

} // namespace sim
