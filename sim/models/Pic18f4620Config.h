#pragma once
// The PIC18F4620's configuration bytes (0x300000..0x30000D): which bits exist and what an erased chip
// reads. From the device data sheet's configuration-bit summary (the "default/unprogrammed value" column);
// bytes 0x300000, 0x300004 and 0x300007 are not implemented. This is the project's one copy of the table:
// the PIC model masks with it, and the tools that judge HEX files read it from here.

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

} // namespace sim::pic18f4620
