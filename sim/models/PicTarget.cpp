#include "PicTarget.h"

#include <algorithm>

namespace sim {

namespace {
constexpr std::uint8_t bitMask(int bit)
{
    return static_cast<std::uint8_t>(1u << bit);
}

using pic18f4620::CodeBlock;
using pic18f4620::ConfigBit;
} // namespace

const std::vector<int>& PicTarget::lines()
{
    static const std::vector<int> all{PGD, MCLR, PGC, POWER, PGM};
    return all;
}

PicTarget::PicTarget()
    : m_flash(flashSize, 0xFF), m_id(idSize, 0xFF), m_config(configSize), m_eeprom(eepromSize, 0xFF)
{
    for (const pic18f4620::ConfigByte& byte : pic18f4620::configBytes)
        m_config[byte.address - configAddress] = byte.unprogrammed;
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

bool PicTarget::protectionOn(ConfigBit bit) const
{
    return !(m_config[bit.offset] & bit.mask);
}

// A code-protected block reads 0 from outside: "CPn bits inhibit external reads and writes" (data sheet
// 23.5.1), and DS39622's checksum tables count nothing for protected blocks. EBTRn only
// governs table reads run by the chip's own code in another block, which the model does not execute.
bool PicTarget::codeProtected(std::uint32_t address) const
{
    const CodeBlock* block = pic18f4620::codeBlock(address);
    return block && protectionOn(block->cp());
}

// ID locations, configuration bytes and the device ID "read out normally, even after code protection"
// (DS39622, 2.3).
std::uint8_t PicTarget::readMemory(std::uint32_t address) const
{
    address &= 0x3FFFFF;
    if (address < flashSize)
        return codeProtected(address) ? 0 : m_flash[address];
    if (address >= idAddress && address < idAddress + idSize)
        return m_id[address - idAddress];
    if (const pic18f4620::ConfigByte* byte = pic18f4620::configByte(address))
        return m_config[address - configAddress] & byte->implemented;
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
    // TBLRD *, *+, *-, +*: the byte at the pointer (moved before or after the read) into TABLAT.
    const int before = m_command == 0xB ? 1 : 0;
    const int after = m_command == 0x9 ? 1 : m_command == 0xA ? -1 : 0;
    if (m_command != 0x2) { // 0x2 shifts out TABLAT as it is
        setTablePointer(m_tblptr + static_cast<std::uint32_t>(before));
        if (codeProtected(m_tblptr))
            ++m_counters.protectedReads;
        m_reg[TABLAT] = readMemory(m_tblptr);
        setTablePointer(m_tblptr + static_cast<std::uint32_t>(after));
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
    // Data sheet 23.5.2: "CPD inhibits external reads and writes of data EEPROM. WRTD inhibits internal and
    // external writes"; a refused write never starts, so WR stays clear.
    const bool eepromReadable = !protectionOn(pic18f4620::CPD);
    if ((value & bitMask(RD)) && dataEeprom) {
        const std::uint16_t address =
            static_cast<std::uint16_t>((m_reg[EEADRH] << 8 | m_reg[EEADR]) % eepromSize);
        m_reg[EEDATA] = eepromReadable ? m_eeprom[address] : 0;
        ++(eepromReadable ? m_counters.eepromReads : m_counters.protectedReads);
    }
    if ((value & wrBit) && !(old & wrBit) && (next & bitMask(WREN))) {
        if (dataEeprom && (!eepromReadable || protectionOn(pic18f4620::WRTD))) {
            ++m_counters.protectedWrites;
        } else if (dataEeprom) {
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
        // DS39622 3.1.3: a row can be erased "provided the block is not code or write-protected"; 3.4: the
        // ID locations are modified like code memory, so their row erases too.
        if (m_armedAddress == idAddress) {
            std::fill(m_id.begin(), m_id.end(), 0xFF);
            ++m_counters.rowErases;
        } else if (m_armedAddress < flashSize) {
            if (rowWritable(m_armedAddress)) {
                eraseFlash(m_armedAddress, m_armedAddress + rowSize);
                ++m_counters.rowErases;
            }
        } else {
            ++m_counters.protocolErrors;
        }
        m_reg[EECON1] &= static_cast<std::uint8_t>(~(bitMask(WR) | bitMask(FREE)));
        return;
    }
    if (m_armedConfig) {
        if (m_armedAddress >= configAddress && m_armedAddress < configAddress + configSize)
            programConfig(m_armedAddress - configAddress, m_armedByte);
        else
            ++m_counters.protocolErrors;
        return;
    }
    if (m_armedAddress < flashSize) {
        if (rowWritable(m_armedAddress)) {
            for (std::uint32_t i = 0; i < rowSize; ++i)
                programCell(m_flash[m_armedAddress + i], m_armedAddress + i, m_buffer[i]);
            ++m_counters.rowsWritten;
        }
    } else if (m_armedAddress == idAddress) {
        for (std::uint32_t i = 0; i < idSize; ++i)
            m_id[i] &= m_buffer[i];
        ++m_counters.idWrites;
    } else {
        ++m_counters.protocolErrors;
    }
    clearWriteBuffer();
}

// "CPn bits inhibit external reads and writes. A block of user memory may be protected from table writes
// if the WRTn Configuration bit is '0'" (data sheet 23.5.1).
bool PicTarget::rowWritable(std::uint32_t rowAddress)
{
    const CodeBlock* block = pic18f4620::codeBlock(rowAddress);
    if (protectionOn(block->cp()) || protectionOn(block->wrt())) {
        ++m_counters.protectedWrites;
        return false;
    }
    return true;
}

// WRTC write-protects the configuration registers (data sheet 23.5.3). Data sheet 23.5.1: "Code protection
// bits may only be written to a '0' from a '1' state ... only set to '1' by a full chip erase or block
// erase".
void PicTarget::programConfig(std::uint32_t offset, std::uint8_t data)
{
    if (protectionOn(pic18f4620::WRTC)) {
        ++m_counters.protectedWrites;
        return;
    }
    std::uint8_t& cell = m_config[offset];
    const std::uint8_t oneWay =
        offset >= pic18f4620::protectionOffset ? pic18f4620::configBytes[offset].implemented : 0;
    cell = static_cast<std::uint8_t>((data & ~oneWay) | (cell & data & oneWay));
    ++m_counters.configWrites;
}

void PicTarget::eraseFlash(std::uint32_t from, std::uint32_t to)
{
    std::fill(m_flash.begin() + from, m_flash.begin() + to, 0xFF);
    for (const auto& [address, value] : m_nonBlank) {
        if (address >= from && address < to)
            m_flash[address] = value;
    }
}

void PicTarget::unprotect(ConfigBit bit)
{
    m_config[bit.offset] |= bit.mask;
}

// DS39622 3.1.1: "Bulk Erase operations will also clear any code-protect settings associated with the
// memory block being erased"; only a chip erase or a block's own erase sets its protection bits again.
void PicTarget::bulkErase(std::uint16_t code)
{
    const auto block = std::find_if(pic18f4620::codeBlocks.begin(), pic18f4620::codeBlocks.end(),
                                    [code](const CodeBlock& b) { return b.eraseCode == code; });
    if (block != pic18f4620::codeBlocks.end()) {
        eraseFlash(block->from, block->to);
        for (const ConfigBit bit : {block->cp(), block->wrt(), block->ebtr()})
            unprotect(bit);
    } else if (code == ERASE_CHIP) {
        eraseFlash(0, flashSize);
        std::fill(m_id.begin(), m_id.end(), 0xFF);
        std::fill(m_eeprom.begin(), m_eeprom.end(), 0xFF);
        for (std::uint32_t i = 0; i < configSize; ++i)
            m_config[i] = pic18f4620::configBytes[i].unprogrammed;
    } else if (code == ERASE_EEPROM) {
        std::fill(m_eeprom.begin(), m_eeprom.end(), 0xFF);
        unprotect(pic18f4620::CPD);
        unprotect(pic18f4620::WRTD);
    } else if (code == ERASE_CONFIG) { // the protection bits stay, as data sheet 23.5.1 has it
        for (std::uint32_t i = 0; i < pic18f4620::protectionOffset; ++i)
            m_config[i] = pic18f4620::configBytes[i].unprogrammed;
    } else {
        ++m_counters.protocolErrors;
        return;
    }
    ++m_counters.bulkErases;
}

} // namespace sim
