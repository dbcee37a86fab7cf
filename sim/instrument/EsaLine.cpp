#include "EsaLine.h"

#include "ControlText.h"

#include <cerrno>
#include <iostream>
#include <sstream>

namespace sim {

std::string EsaPeer::received(std::string_view bytes, std::uint64_t nowNs)
{
    const std::vector<std::string> chunks = m_boards.received(bytes, m_gpio.level(selectLine, nowNs));
    std::string now;
    for (const std::string& chunk : chunks) {
        // The first piece goes at once unless earlier pieces still wait; the others follow one by one.
        if (now.empty() && m_pending.empty() && &chunk == &chunks.front()) {
            now = chunk;
            continue;
        }
        const std::uint64_t after = m_pending.empty() ? nowNs : m_pending.back().at;
        m_pending.push_back({after + splitGapNs, chunk});
    }
    return now;
}

std::optional<std::uint64_t> EsaPeer::nextDeadline() const
{
    if (m_pending.empty())
        return std::nullopt;
    return m_pending.front().at;
}

void EsaPeer::reset()
{
    m_pending.clear();
}

std::string EsaPeer::timer(std::uint64_t nowNs)
{
    if (m_pending.empty() || m_pending.front().at > nowNs)
        return {};
    std::string out = std::move(m_pending.front().bytes);
    m_pending.pop_front();
    // A late wake-up must not merge two pieces into one read.
    if (!m_pending.empty() && m_pending.front().at < nowNs + splitGapNs)
        m_pending.front().at = nowNs + splitGapNs;
    return out;
}

namespace {

// A block index from 0, or -1 for never.
bool parseCount(const std::string& text, int* value)
{
    if (text == "-1") {
        *value = -1;
        return true;
    }
    const std::optional<std::uint64_t> number = parseNumber(text, 10, 1000000);
    if (!number)
        return false;
    *value = static_cast<int>(*number);
    return true;
}

bool parseHexBytes(std::istringstream& words, std::string* bytes)
{
    bytes->clear();
    std::string word;
    while (words >> word) {
        const std::optional<std::uint64_t> value =
            word.size() <= 2 ? parseNumber(word, 16, 0xFF) : std::nullopt;
        if (!value)
            return false;
        *bytes += static_cast<char>(*value);
    }
    return true;
}

// " 0a ff" after a key, nothing for no bytes.
std::string bytesAfterKey(const std::string& bytes)
{
    return bytes.empty() ? std::string() : " " + hexBytes(bytes);
}

const char* faultSyntax = "clear | nak-at K | silent-at K | silent-start [on|off] | split [on|off] | "
                          "stray [HEX...] | eot-reply [HEX...]  (K: block index from 0, -1 for never)";

} // namespace

bool applyEsaFault(EsaFaults& faults, const std::string& line, std::string* error)
{
    std::istringstream words(line);
    std::string key, value;
    words >> key;
    auto flag = [&](bool* target) {
        std::string word;
        if (!(words >> word))
            word = "on";
        std::string rest;
        if ((word != "on" && word != "off") || (words >> rest)) {
            *error = "'" + key + "' takes on or off, not '" + line + "'";
            return false;
        }
        *target = word == "on";
        return true;
    };
    auto count = [&](int* target) {
        std::string word, rest;
        if (!(words >> word) || (words >> rest) || !parseCount(word, target)) {
            *error = "'" + key + "' takes one block index (0 or more, -1 for never), not '" + line + "'";
            return false;
        }
        return true;
    };
    auto bytes = [&](std::string* target) {
        if (!parseHexBytes(words, target)) {
            *error = "'" + key + "' takes bytes in hex separated by blanks, not '" + line + "'";
            return false;
        }
        return true;
    };

    if (key == "clear")
        faults = EsaFaults();
    else if (key == "nak-at")
        return count(&faults.nakAt);
    else if (key == "silent-at")
        return count(&faults.silentAt);
    else if (key == "silent-start")
        return flag(&faults.silentStart);
    else if (key == "split")
        return flag(&faults.splitReplies);
    else if (key == "stray")
        return bytes(&faults.stray);
    else if (key == "eot-reply")
        return bytes(&faults.eotReply);
    else {
        *error = "unknown fault '" + line + "'; one of: " + faultSyntax;
        return false;
    }
    return true;
}

std::string esaFaultsText(const EsaFaults& faults)
{
    return "nak-at " + std::to_string(faults.nakAt) + "\nsilent-at " + std::to_string(faults.silentAt) +
           "\nsilent-start " + (faults.silentStart ? "on" : "off") + "\nsplit " +
           (faults.splitReplies ? "on" : "off") + "\nstray" + bytesAfterKey(faults.stray) + "\neot-reply" +
           bytesAfterKey(faults.eotReply) + "\n";
}

namespace {

std::string countersText(const EsaCounters& c)
{
    std::string text;
    auto add = [&text](const char* key, std::uint64_t value) {
        text += key;
        text += '=';
        text += std::to_string(value);
        text += '\n';
    };
    add("boot-requests", c.bootRequests);
    add("flash-selects", c.flashSelects);
    add("eeprom-selects", c.eepromSelects);
    add("crc-requests", c.crcRequests);
    add("blocks-accepted", c.blocksAccepted);
    add("blocks-refused", c.blocksRefused);
    add("duplicates", c.duplicates);
    add("blocks-unanswered", c.blocksUnanswered);
    add("bad-number", c.badNumber);
    add("bad-complement", c.badComplement);
    add("bad-crc", c.badCrc);
    add("beyond-memory", c.beyondMemory);
    add("unsupported-1k", c.unsupported1k);
    add("eots", c.eots);
    add("transfers-completed", c.transfersCompleted);
    add("ignored-bytes", c.ignoredBytes);
    add("bytes-from-host", c.bytesFromHost);
    add("bytes-to-host", c.bytesToHost);
    return text;
}

// A bad line refuses the whole write; the reason goes to the server's stderr.
int writeFaults(EsaFaults& target, const std::string& path, std::string_view text)
{
    EsaFaults faults = target;
    std::istringstream lines{std::string(text)};
    std::string line;
    while (std::getline(lines, line)) {
        if (line.find_first_not_of(" \t\r") == std::string::npos)
            continue;
        std::string error;
        if (!applyEsaFault(faults, line, &error)) {
            std::cerr << "sim-instrument: " << path << ": " << error << "\n";
            return -EINVAL;
        }
    }
    target = faults;
    return 0;
}

void addBoardFiles(ControlRegistry& control, EsaBoards& boards, EsaBoard board)
{
    const std::string folder = std::string("esa/") + EsaBoards::name(board) + "/";
    for (EsaMemory memory : {EsaMemory::Flash, EsaMemory::Eeprom}) {
        control.add(folder + EsaBoards::name(memory),
                    {[&boards, board, memory] { return boards.contents(board, memory); },
                     [&boards, board, memory](std::string_view) {
                         boards.eraseMemory(board, memory);
                         return 0;
                     },
                     false, "raw bytes the last transfer wrote there (whole blocks); any write erases"});
    }
    control.add(folder + "state",
                {[&boards, board] { return std::string(EsaBoards::name(boards.state(board))) + "\n"; },
                 {},
                 false,
                 "application, boot-loader or receiving"});
    control.add(folder + "counters", {[&boards, board] { return countersText(boards.counters(board)); },
                                      {},
                                      false,
                                      "protocol counters since start or reset, key=value"});
    const std::string faultsPath = "control/" + folder + "faults";
    control.add(folder + "faults", {[&boards, board] { return esaFaultsText(boards.faults(board)); },
                                    [&boards, board, faultsPath](std::string_view text) {
                                        return writeFaults(boards.faults(board), faultsPath, text);
                                    },
                                    false, std::string("fault injection, one per line: ") + faultSyntax});
}

} // namespace

bool installEsaBoards(Instrument& instrument, std::string* error)
{
    if (instrument.serialPeer()) {
        *error = "the serial line already has a device";
        return false;
    }
    auto boards = std::make_shared<EsaBoards>();
    instrument.keep(boards);
    instrument.setSerialPeer(std::make_unique<EsaPeer>(instrument.gpio(), *boards));
    instrument.onReset([b = boards.get()] { b->reset(); });

    ControlRegistry& control = instrument.control();
    EsaBoards& model = *boards;
    control.add("esa/log", {[&model] { return model.logText(); },
                            [&model](std::string_view) {
                                model.clearLog();
                                return 0;
                            },
                            false,
                            "serial bytes per protocol unit: '<board> < hex [what]' from the host, "
                            "'<board> > hex' to it; any write clears"});
    addBoardFiles(control, model, EsaBoard::Io);
    addBoardFiles(control, model, EsaBoard::Measurement);
    return true;
}

} // namespace sim
