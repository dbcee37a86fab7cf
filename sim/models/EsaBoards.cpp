#include "EsaBoards.h"

#include "ControlText.h"

namespace sim {

namespace esa {

std::uint16_t crc16(std::string_view data)
{
    std::uint16_t crc = 0;
    for (unsigned char byte : data) {
        crc ^= static_cast<std::uint16_t>(byte << 8);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 0x8000) ? static_cast<std::uint16_t>((crc << 1) ^ 0x1021)
                                 : static_cast<std::uint16_t>(crc << 1);
    }
    return crc;
}

std::string packet(std::uint8_t number, std::string_view data)
{
    std::string block(data.substr(0, blockSize));
    block.resize(blockSize, '\x1A');
    const std::uint16_t crc = crc16(block);
    std::string out;
    out += SOH;
    out += static_cast<char>(number);
    out += static_cast<char>(0xFF - number);
    out += block;
    out += static_cast<char>(crc >> 8);
    out += static_cast<char>(crc & 0xFF);
    return out;
}

} // namespace esa

EsaBoards::EsaBoards(std::size_t flashSize, std::size_t eepromSize) : m_sizes{flashSize, eepromSize}
{
    reset();
}

const char* EsaBoards::name(EsaBoard board)
{
    return board == EsaBoard::Io ? "io" : "measurement";
}

const char* EsaBoards::name(EsaMemory memory)
{
    return memory == EsaMemory::Flash ? "flash" : "eeprom";
}

const char* EsaBoards::name(State state)
{
    switch (state) {
    case State::Application:
        return "application";
    case State::BootLoader:
        return "boot-loader";
    case State::Receiving:
        return "receiving";
    }
    return "?";
}

void EsaBoards::reset()
{
    for (Unit& u : m_units) {
        u = Unit();
        for (std::size_t m = 0; m < 2; ++m)
            u.memories[m].assign(m_sizes[m], static_cast<char>(erasedByte));
    }
    clearLog();
}

std::string EsaBoards::contents(EsaBoard board, EsaMemory memory) const
{
    const Unit& u = unit(board);
    const auto m = static_cast<std::size_t>(memory);
    return u.memories[m].substr(0, u.written[m]);
}

const std::string& EsaBoards::memory(EsaBoard board, EsaMemory memory) const
{
    return unit(board).memories[static_cast<std::size_t>(memory)];
}

void EsaBoards::eraseMemory(EsaBoard board, EsaMemory memory)
{
    Unit& u = unit(board);
    const auto m = static_cast<std::size_t>(memory);
    u.memories[m].assign(m_sizes[m], static_cast<char>(erasedByte));
    u.written[m] = 0;
}

std::vector<std::string> EsaBoards::received(std::string_view bytes, bool selectLevel)
{
    // The select line routes the whole line to one board; the other one hears nothing.
    const EsaBoard board = boardSelectedBy(selectLevel);
    std::vector<std::string> out;
    for (char byte : bytes)
        take(board, byte, out);
    flushIgnored(board);
    return out;
}

void EsaBoards::take(EsaBoard board, char byte, std::vector<std::string>& out)
{
    Unit& u = unit(board);
    ++u.counters.bytesFromHost;
    if (!u.packet.empty()) {
        u.packet += byte;
        if (u.packet.size() == (u.packet[0] == esa::STX ? esa::longPacketSize : esa::packetSize))
            packetComplete(board, out);
        return;
    }
    const bool silent = u.faults.silentAt >= 0 && u.block >= static_cast<std::size_t>(u.faults.silentAt);

    switch (u.state) {
    case State::Application:
        if (byte == esa::BOOT_REQUEST) {
            flushIgnored(board);
            ++u.counters.bootRequests;
            u.state = State::BootLoader;
            logLine(board, '<', std::string_view(&byte, 1), "boot");
            return;
        }
        break;
    case State::BootLoader:
        if (byte == esa::BOOT_REQUEST) {
            flushIgnored(board);
            ++u.counters.bootRequests;
            logLine(board, '<', std::string_view(&byte, 1), "boot again");
            return;
        }
        if (byte == esa::SELECT_FLASH || byte == esa::SELECT_EEPROM) {
            flushIgnored(board);
            const EsaMemory memory = byte == esa::SELECT_FLASH ? EsaMemory::Flash : EsaMemory::Eeprom;
            ++(memory == EsaMemory::Flash ? u.counters.flashSelects : u.counters.eepromSelects);
            logLine(board, '<', std::string_view(&byte, 1), name(memory));
            u.state = State::Receiving;
            u.target = memory;
            u.expected = 0;
            u.block = 0;
            u.nakDone = false;
            u.written[static_cast<std::size_t>(memory)] = 0;
            if (!u.faults.silentStart) {
                ++u.counters.crcRequests;
                reply(board, std::string(1, esa::CRC_REQUEST), out);
            }
            return;
        }
        break;
    case State::Receiving:
        if (byte == esa::SOH || byte == esa::STX) {
            flushIgnored(board);
            u.packet = byte;
            return;
        }
        if (byte == esa::EOT) {
            flushIgnored(board);
            ++u.counters.eots;
            ++u.counters.transfersCompleted;
            logLine(board, '<', std::string_view(&byte, 1), "eot");
            u.state = State::BootLoader;
            if (!silent)
                reply(board, u.faults.eotReply, out);
            return;
        }
        break;
    }
    ++u.counters.ignoredBytes;
    u.ignored += byte;
}

void EsaBoards::packetComplete(EsaBoard board, std::vector<std::string>& out)
{
    Unit& u = unit(board);
    const std::string p = std::move(u.packet);
    u.packet.clear();
    const std::string label = "block " + std::to_string(u.block);

    if (u.faults.silentAt >= 0 && u.block >= static_cast<std::size_t>(u.faults.silentAt)) {
        ++u.counters.blocksUnanswered;
        logLine(board, '<', p, label + " unanswered");
        return;
    }

    const auto number = static_cast<std::uint8_t>(p[1]);
    const auto complement = static_cast<std::uint8_t>(p[2]);
    const std::string_view data = std::string_view(p).substr(3, p.size() - 5);
    const auto crc = static_cast<std::uint16_t>((static_cast<unsigned char>(p[p.size() - 2]) << 8) |
                                                static_cast<unsigned char>(p[p.size() - 1]));
    const auto m = static_cast<std::size_t>(u.target);
    const std::size_t offset = u.block * esa::blockSize;
    // The block stored last, which the host sends again when our ACK did not reach it.
    const bool repeatsLast = u.block > 0 && number == static_cast<std::uint8_t>(u.expected - 1);

    const char* fault = nullptr;
    if (p[0] == esa::STX) {
        ++u.counters.unsupported1k;
        fault = "unsupported-1k";
    } else if (complement != static_cast<std::uint8_t>(0xFF - number)) {
        ++u.counters.badComplement;
        fault = "bad-complement";
    } else if (esa::crc16(data) != crc) {
        ++u.counters.badCrc;
        fault = "bad-crc";
    } else if (repeatsLast) {
        ++u.counters.duplicates;
        logLine(board, '<', p, "block " + std::to_string(u.block - 1) + " duplicate");
        reply(board, std::string(1, esa::ACK), out);
        return;
    } else if (number != u.expected) {
        ++u.counters.badNumber;
        fault = "bad-number";
    } else if (offset + esa::blockSize > u.memories[m].size()) {
        ++u.counters.beyondMemory;
        fault = "beyond-memory";
    } else if (!u.nakDone && u.faults.nakAt >= 0 && u.block == static_cast<std::size_t>(u.faults.nakAt)) {
        u.nakDone = true;
        fault = "refused";
    }

    if (fault) {
        ++u.counters.blocksRefused;
        logLine(board, '<', p, label + " " + fault);
        reply(board, std::string(1, esa::NAK), out);
        return;
    }

    u.memories[m].replace(offset, esa::blockSize, data);
    u.written[m] = offset + esa::blockSize;
    ++u.block;
    ++u.expected; // wraps 255 -> 0
    ++u.counters.blocksAccepted;
    logLine(board, '<', p, label + " ok");
    reply(board, std::string(1, esa::ACK), out);
}

void EsaBoards::reply(EsaBoard board, const std::string& bytes, std::vector<std::string>& out)
{
    if (bytes.empty())
        return;
    Unit& u = unit(board);
    const std::string all = u.faults.stray + bytes;
    u.counters.bytesToHost += all.size();
    logLine(board, '>', all, {});
    if (u.faults.splitReplies) {
        for (char byte : all)
            out.emplace_back(1, byte);
    } else {
        out.push_back(all);
    }
}

void EsaBoards::flushIgnored(EsaBoard board)
{
    Unit& u = unit(board);
    if (u.ignored.empty())
        return;
    logLine(board, '<', u.ignored, "ignored");
    u.ignored.clear();
}

void EsaBoards::logLine(EsaBoard board, char direction, std::string_view bytes, const std::string& what)
{
    std::string line = name(board);
    line += ' ';
    line += direction;
    line += ' ';
    line += hexBytes(bytes);
    if (!what.empty())
        line += " [" + what + "]";
    m_log.push_back(std::move(line));
    while (m_log.size() > m_logLimit)
        m_log.pop_front();
}

std::string EsaBoards::logText() const
{
    std::string text;
    for (const std::string& line : m_log) {
        text += line;
        text += '\n';
    }
    return text;
}

void EsaBoards::clearLog()
{
    m_log.clear();
}

} // namespace sim
