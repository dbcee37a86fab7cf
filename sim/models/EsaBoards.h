#pragma once
// The two ESA boards (IO and Measurement) on their shared serial line, as their AVR boot loaders see it.
// Pure model: host bytes go in together with the level of the board-select line (GPIO 3: 0 selects the
// IO board, 1 the Measurement board), reply chunks come out; no I/O and no clock.
//
// Protocol: a board running its application enters the boot loader on "B". The boot loader takes "2"
// (application flash) or "3" (EEPROM), answers "C" and receives XMODEM-CRC packets: SOH, block number,
// its complement, 128 data bytes, CRC-16/XMODEM of the data, high byte first. A good packet is stored and
// answered with ACK, a bad one with NAK (and the same block is expected again). These boards number
// blocks from 0, wrapping 255 -> 0. A good packet that repeats the block just stored (its ACK was lost on
// the way back) is answered with ACK and dropped, as the boards' XMODEM receiver documents. 1K blocks
// (STX) are not part of this variant: the whole 1029-byte packet is taken in and refused with NAK, so
// none of its bytes is read as EOT or a memory select. EOT ends the transfer (answered with ACK); the
// boot loader then waits for the next "2"/"3", so a second load needs no new "B". Bytes a state has no
// use for are ignored (and logged).

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

namespace esa {

constexpr char SOH = 0x01;
constexpr char STX = 0x02; // a 1K block, which these boards do not take
constexpr char EOT = 0x04;
constexpr char ACK = 0x06;
constexpr char NAK = 0x15;
constexpr char CRC_REQUEST = 'C';
constexpr char BOOT_REQUEST = 'B';
constexpr char SELECT_FLASH = '2';
constexpr char SELECT_EEPROM = '3';
constexpr std::size_t blockSize = 128;
constexpr std::size_t packetSize = blockSize + 5;
constexpr std::size_t longPacketSize = 1024 + 5;

// CRC-16/XMODEM: polynomial 0x1021, initial value 0, most significant bit first, no final XOR.
std::uint16_t crc16(std::string_view data);
// A packet as these boards expect it; data shorter than a block is padded with 0x1A.
std::string packet(std::uint8_t number, std::string_view data);

} // namespace esa

enum class EsaBoard
{
    Io = 0,
    Measurement = 1
};

enum class EsaMemory
{
    Flash = 0,
    Eeprom = 1
};

// Fault injection, per board. Block indices count the blocks of one transfer from 0.
struct EsaFaults
{
    int nakAt = -1;            // refuse block k with NAK even when it is good (once per transfer)
    int silentAt = -1;         // from block k on answer nothing at all, EOT included (the board hangs)
    bool silentStart = false;  // never answer "C" to a memory selection
    bool splitReplies = false; // every reply byte reaches the host as a read of its own
    std::string stray;         // bytes sent in front of every reply
    std::string eotReply = std::string(1, esa::ACK); // what EOT is answered with (may be empty)
};

struct EsaCounters
{
    std::uint64_t bootRequests = 0;   // "B" received (also in the boot loader, where it does nothing)
    std::uint64_t flashSelects = 0;   // "2" received in the boot loader
    std::uint64_t eepromSelects = 0;  // "3" received in the boot loader
    std::uint64_t crcRequests = 0;    // "C" sent
    std::uint64_t blocksAccepted = 0; // ACKed and stored packets
    std::uint64_t blocksRefused = 0;  // NAKed packets (bad, 1K or by fault)
    std::uint64_t duplicates = 0;     // ACKed repeats of the block just stored, not stored again
    std::uint64_t blocksUnanswered = 0;
    std::uint64_t badNumber = 0;
    std::uint64_t badComplement = 0;
    std::uint64_t badCrc = 0;
    std::uint64_t beyondMemory = 0;
    std::uint64_t unsupported1k = 0; // STX packets
    std::uint64_t eots = 0;
    std::uint64_t transfersCompleted = 0; // EOT after at least the "C"
    std::uint64_t ignoredBytes = 0;
    std::uint64_t bytesFromHost = 0;
    std::uint64_t bytesToHost = 0;
};

class EsaBoards
{
public:
    enum class State
    {
        Application, // running its own program: only "B" matters
        BootLoader,  // waiting for "2" or "3"
        Receiving    // "C" sent, taking packets until EOT
    };

    // Application flash below the boot section of a 128 KB part, and 4 KB of EEPROM.
    static constexpr std::size_t defaultFlashSize = std::size_t{120} * 1024;
    static constexpr std::size_t defaultEepromSize = std::size_t{4} * 1024;
    static constexpr std::uint8_t erasedByte = 0xFF;

    explicit EsaBoards(std::size_t flashSize = defaultFlashSize, std::size_t eepromSize = defaultEepromSize);

    static EsaBoard boardSelectedBy(bool selectLevel)
    {
        return selectLevel ? EsaBoard::Measurement : EsaBoard::Io;
    }
    static const char* name(EsaBoard board);   // "io", "measurement"
    static const char* name(EsaMemory memory); // "flash", "eeprom"
    static const char* name(State state);      // "application", "boot-loader", "receiving"

    // Bytes written by the host, split anyhow, reaching the board that the select level picks. Returns
    // the chunks to hand back, each meant to arrive in a read of its own.
    std::vector<std::string> received(std::string_view bytes, bool selectLevel);

    EsaFaults& faults(EsaBoard board) { return unit(board).faults; }
    const EsaFaults& faults(EsaBoard board) const { return unit(board).faults; }
    const EsaCounters& counters(EsaBoard board) const { return unit(board).counters; }
    State state(EsaBoard board) const { return unit(board).state; }
    // What the last transfer into that memory wrote (whole blocks from address 0), or empty.
    std::string contents(EsaBoard board, EsaMemory memory) const;
    // The whole memory, erased bytes included.
    const std::string& memory(EsaBoard board, EsaMemory memory) const;
    void eraseMemory(EsaBoard board, EsaMemory memory);

    // The byte log: one line per protocol unit, "<board> < <hex> [<what>]" from the host and
    // "<board> > <hex>" to the host, e.g. "io < 42 [boot]", "io < 01 00 ff ... [block 0 ok]", "io > 06".
    const std::deque<std::string>& log() const { return m_log; }
    std::string logText() const;
    void clearLog();
    void setLogLimit(std::size_t lines) { m_logLimit = lines; }

    // Power-on: both boards in their application, memories erased, no faults, counters and log empty.
    void reset();

private:
    struct Unit
    {
        State state = State::Application;
        EsaMemory target = EsaMemory::Flash;
        std::array<std::string, 2> memories;
        std::array<std::size_t, 2> written{}; // extent of the last transfer, per memory
        std::uint8_t expected = 0;            // block number of the next packet
        std::size_t block = 0;                // blocks accepted in this transfer
        bool nakDone = false;                 // the injected NAK of this transfer has been given
        std::string packet;                   // packet being received, from SOH or STX on
        std::string ignored;                  // run of ignored bytes, logged when it ends
        EsaFaults faults;
        EsaCounters counters;
    };

    Unit& unit(EsaBoard board) { return m_units[static_cast<std::size_t>(board)]; }
    const Unit& unit(EsaBoard board) const { return m_units[static_cast<std::size_t>(board)]; }

    void take(EsaBoard board, char byte, std::vector<std::string>& out);
    void packetComplete(EsaBoard board, std::vector<std::string>& out);
    void reply(EsaBoard board, const std::string& bytes, std::vector<std::string>& out);
    void flushIgnored(EsaBoard board);
    void logLine(EsaBoard board, char direction, std::string_view bytes, const std::string& what);

    std::size_t m_sizes[2];
    std::array<Unit, 2> m_units;
    std::deque<std::string> m_log;
    std::size_t m_logLimit = 200000;
};

} // namespace sim
