#pragma once
// The PIC18F4620's configuration bytes (0x300000..0x30000D): which bits exist and what an erased chip
// reads. From the device data sheet's configuration-bit summary (the "default/unprogrammed value" column);
// bytes 0x300000, 0x300004 and 0x300007 are not implemented, and unimplemented bits read 0 (DS39622, 4.6
// "Blank Check": "Unused (reserved) Configuration bits will read '0'"). This is the project's one copy of
// the table: the PIC model masks with it, and the tools that judge HEX files read it here (the
// pic18f4620config library).

#include <array>
#include <cstdint>

namespace sim::pic18f4620 {

struct ConfigByte
{
    std::uint32_t address;
    const char* name;          // the data sheet's register name, "" for an unimplemented byte
    std::uint8_t implemented;  // bits that exist; the others read 0 and ignore writes
    std::uint8_t unprogrammed; // value after a chip or configuration erase
};

inline constexpr std::uint32_t configAddress = 0x300000;
inline constexpr std::size_t configSize = 14;

inline constexpr std::array<ConfigByte, configSize> configBytes{{
    {0x300000, "", 0x00, 0x00},
    {0x300001, "CONFIG1H", 0xCF, 0x07},
    {0x300002, "CONFIG2L", 0x1F, 0x1F},
    {0x300003, "CONFIG2H", 0x1F, 0x1F},
    {0x300004, "", 0x00, 0x00},
    {0x300005, "CONFIG3H", 0x87, 0x83},
    {0x300006, "CONFIG4L", 0xC5, 0x85},
    {0x300007, "", 0x00, 0x00},
    {0x300008, "CONFIG5L", 0x0F, 0x0F},
    {0x300009, "CONFIG5H", 0xC0, 0xC0},
    {0x30000A, "CONFIG6L", 0x0F, 0x0F},
    {0x30000B, "CONFIG6H", 0xE0, 0xE0},
    {0x30000C, "CONFIG7L", 0x0F, 0x0F},
    {0x30000D, "CONFIG7H", 0x40, 0x40},
}};

// The entry for an address inside the configuration space, or nullptr.
constexpr const ConfigByte* configByte(std::uint32_t address)
{
    return address >= configAddress && address - configAddress < configSize
               ? &configBytes[address - configAddress]
               : nullptr;
}

// Protection bits, as offsets into the configuration bytes and a bit mask; a protection is on while its
// bit reads 0. The data sheet's summary of code protection registers: CONFIG5L/H hold CP0..CP3, CPB, CPD;
// CONFIG6L/H hold WRT0..WRT3, WRTB, WRTC, WRTD; CONFIG7L/H hold EBTR0..EBTR3, EBTRB.
struct ConfigBit
{
    std::uint8_t offset;
    std::uint8_t mask;
};
// CONFIG5L..CONFIG7H: every implemented bit from this offset on is a protection bit.
inline constexpr std::uint8_t protectionOffset = 0x08;
inline constexpr ConfigBit CPD{0x09, 0x80};
inline constexpr ConfigBit WRTD{0x0B, 0x80};
inline constexpr ConfigBit WRTC{0x0B, 0x20};

// The program memory blocks and the bulk erase code (0x3C0005:0x3C0004) that erases each. A block's CP,
// WRT and EBTR bits sit at the same position of CONFIG5, CONFIG6 and CONFIG7 (low byte for blocks 0..3,
// bit 6 of the high byte for the boot block).
struct CodeBlock
{
    const char* name;
    std::uint32_t from, to; // [from, to)
    std::uint16_t eraseCode;
    std::uint8_t high; // 0: CONFIGxL, 1: CONFIGxH
    std::uint8_t mask;
    constexpr ConfigBit cp() const { return {std::uint8_t(protectionOffset + high), mask}; }
    constexpr ConfigBit wrt() const { return {std::uint8_t(protectionOffset + 2 + high), mask}; }
    constexpr ConfigBit ebtr() const { return {std::uint8_t(protectionOffset + 4 + high), mask}; }
};
inline constexpr std::array<CodeBlock, 5> codeBlocks{{
    {"boot block", 0x0000, 0x0800, 0x0081, 1, 0x40},
    {"block 0", 0x0800, 0x4000, 0x0180, 0, 0x01},
    {"block 1", 0x4000, 0x8000, 0x0280, 0, 0x02},
    {"block 2", 0x8000, 0xC000, 0x0480, 0, 0x04},
    {"block 3", 0xC000, 0x10000, 0x0880, 0, 0x08},
}};

// The block holding a program memory address, or nullptr above 64 KB.
constexpr const CodeBlock* codeBlock(std::uint32_t address)
{
    for (const CodeBlock& block : codeBlocks) {
        if (address >= block.from && address < block.to)
            return &block;
    }
    return nullptr;
}

} // namespace sim::pic18f4620
