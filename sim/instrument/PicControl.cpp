#include "PicControl.h"

#include "ControlText.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>

namespace sim {

namespace {

std::string holdSummary(const char* name, std::vector<std::uint64_t> values)
{
    std::string line = name;
    line += " count=" + std::to_string(values.size());
    if (!values.empty()) {
        std::sort(values.begin(), values.end());
        line += " min=" + std::to_string(values.front()) +
                " median=" + std::to_string(values[values.size() / 2]) +
                " max=" + std::to_string(values.back());
    }
    return line + "\n";
}

// A refused control write says why in the log and on the server's stderr; the writer gets EINVAL.
int refuse(Instrument& instrument, const std::string& message)
{
    instrument.log("control: " + message);
    std::cerr << "sim-instrument: " << message << "\n";
    return -EINVAL;
}

// Hex digits of a value, most significant byte first, at least `bytes` bytes: hexDigits(0x3C, 2) = "003c".
std::string hexDigits(std::uint32_t value, int bytes)
{
    std::string text;
    for (int i = bytes - 1; i >= 0; --i) {
        const std::uint8_t byte = static_cast<std::uint8_t>(value >> (8 * i));
        text += hexBytes(&byte, 1);
    }
    return text;
}

void addMemory(Instrument& instrument, const std::shared_ptr<PicTarget>& pic, const std::string& name,
               std::vector<std::uint8_t>& (PicTarget::*region)(), const std::string& what)
{
    PicTarget* p = pic.get();
    const std::string path = "pic/" + name;
    ControlFile binary;
    binary.read = [p, region] {
        const std::vector<std::uint8_t>& bytes = (p->*region)();
        return std::string(bytes.begin(), bytes.end());
    };
    binary.write = [&instrument, p, region, path](std::string_view data) {
        std::vector<std::uint8_t>& bytes = (p->*region)();
        if (data.size() != bytes.size())
            return refuse(instrument, path + ": expected exactly " + std::to_string(bytes.size()) +
                                          " bytes, got " + std::to_string(data.size()));
        std::copy(data.begin(), data.end(), bytes.begin());
        return 0;
    };
    binary.wholeFile = true;
    binary.help = what + " as raw bytes; write the whole image to replace it";
    instrument.control().add(path, std::move(binary));

    ControlFile dump;
    dump.read = [p, region] { return hexDump((p->*region)()); };
    dump.write = [&instrument, p, region, path](std::string_view data) {
        const std::string error = applyHexDump(data, (p->*region)(), path + ".hex");
        return error.empty() ? 0 : refuse(instrument, error);
    };
    dump.wholeFile = true;
    dump.help = what + " as hex dump \"OFFSET: bytes\"; written lines change those bytes";
    instrument.control().add(path + ".hex", std::move(dump));
}

std::vector<std::string> words(const std::string& line)
{
    std::istringstream in(line);
    std::vector<std::string> list;
    for (std::string word; in >> word;)
        list.push_back(word);
    return list;
}

std::string trimmed(std::string_view text)
{
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos)
        return {};
    return std::string(text.substr(first, text.find_last_not_of(" \t\r") - first + 1));
}

} // namespace

std::string hexDump(const std::vector<std::uint8_t>& bytes)
{
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += 16) {
        text += hexDigits(static_cast<std::uint32_t>(at), 2) + ": " +
                hexBytes(bytes.data() + at, std::min<std::size_t>(16, bytes.size() - at)) + "\n";
    }
    return text;
}

std::string applyHexDump(std::string_view text, std::vector<std::uint8_t>& bytes, const std::string& file)
{
    std::vector<std::uint8_t> result = bytes;
    std::istringstream in{std::string(text)};
    std::string line;
    for (int lineNo = 1; std::getline(in, line); ++lineNo) {
        const std::string where = file + " line " + std::to_string(lineNo) + ": ";
        if (trimmed(line).empty())
            continue;
        const auto colon = line.find(':');
        if (colon == std::string::npos)
            return where + "expected \"OFFSET: bytes\"";
        const std::string offsetText = trimmed(std::string_view(line).substr(0, colon));
        const auto offset = parseNumber(offsetText, 16);
        if (!offset)
            return where + "offset '" + offsetText + "' is not hexadecimal";
        std::uint64_t at = *offset;
        for (const std::string& word : words(line.substr(colon + 1))) {
            const auto value = parseNumber(word, 16, 0xFF);
            if (!value || word.size() > 2)
                return where + "'" + word + "' is not a hex byte";
            if (at >= result.size())
                return where + "offset " + std::to_string(at) + " is past the end (" +
                       std::to_string(result.size()) + " bytes)";
            result[at++] = static_cast<std::uint8_t>(*value);
        }
    }
    bytes = std::move(result);
    return {};
}

std::string applyFaultText(PicTarget& pic, std::string_view text)
{
    // All lines are checked before any is applied, so a bad line changes nothing.
    std::vector<std::function<void()>> actions;
    std::istringstream in{std::string(text)};
    std::string line;
    for (int lineNo = 1; std::getline(in, line); ++lineNo) {
        const std::vector<std::string> w = words(line);
        if (w.empty() || w[0][0] == '#')
            continue;
        const std::string where = "faults line " + std::to_string(lineNo) + ": ";
        const std::string& cmd = w[0];
        auto argCount = [&](std::size_t n, const char* usage) -> std::string {
            return w.size() == n + 1 ? std::string() : where + "'" + cmd + "' takes " + usage;
        };
        if (cmd == "clear" || cmd == "nodevice" || cmd == "device") {
            if (auto e = argCount(0, "no arguments"); !e.empty())
                return e;
            if (cmd == "clear")
                actions.push_back([&pic] { pic.clearFaults(); });
            else
                actions.push_back([&pic, present = cmd == "device"] { pic.setPresent(present); });
        } else if (cmd == "nonblank" || cmd == "stuck") {
            if (auto e = argCount(2, cmd == "stuck" ? "ADDRESS MASK" : "ADDRESS VALUE"); !e.empty())
                return e;
            const auto address = parseNumber(w[1], 0, PicTarget::flashSize - 1);
            const auto value = parseNumber(w[2], 0, 0xFF);
            if (!address)
                return where + "address '" + w[1] + "' is not a program flash address (0 to 0xFFFF)";
            if (!value)
                return where + "'" + w[2] + "' is not a byte (0 to 0xFF)";
            const auto a = static_cast<std::uint32_t>(*address);
            const auto v = static_cast<std::uint8_t>(*value);
            if (cmd == "stuck")
                actions.push_back([&pic, a, v] { pic.setStuckBits(a, v); });
            else
                actions.push_back([&pic, a, v] { pic.setNonBlankAfterErase(a, v); });
        } else if (cmd == "devid") {
            if (auto e = argCount(1, "ID"); !e.empty())
                return e;
            const auto id = parseNumber(w[1], 0, 0xFFFF);
            if (!id)
                return where + "'" + w[1] + "' is not a 16-bit device ID";
            actions.push_back([&pic, id = static_cast<std::uint16_t>(*id)] { pic.setDeviceId(id); });
        } else {
            return where + "unknown command '" + cmd +
                   "' (expected nonblank, stuck, nodevice, device, devid or clear)";
        }
    }
    for (const auto& action : actions)
        action();
    return {};
}

std::string faultText(const PicTarget& pic)
{
    std::string text = pic.present() ? "device\n" : "nodevice\n";
    text += "devid 0x" + hexDigits(pic.deviceId(), 2) + "\n";
    for (const auto& [address, value] : pic.nonBlankCells())
        text += "nonblank 0x" + hexDigits(address, 2) + " 0x" + hexDigits(value, 1) + "\n";
    for (const auto& [address, mask] : pic.stuckBits())
        text += "stuck 0x" + hexDigits(address, 2) + " 0x" + hexDigits(mask, 1) + "\n";
    return text;
}

std::string counterText(const PicTarget::Counters& c)
{
    const std::pair<const char*, std::uint64_t> list[] = {
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
        {"protected_reads", c.protectedReads},
        {"protected_writes", c.protectedWrites},
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
    std::string text;
    for (const auto& [name, value] : list)
        text += std::string(name) + " " + std::to_string(value) + "\n";
    for (int cmd = 0; cmd < 16; ++cmd)
        text += "command_" + std::string(1, "0123456789ABCDEF"[cmd]) + " " + std::to_string(c.commands[cmd]) +
                "\n";
    return text;
}

std::string configBitsText()
{
    std::string text;
    for (const pic18f4620::ConfigByte& byte : pic18f4620::configBytes) {
        text += hexDigits(byte.address, 3) + " " + (*byte.name ? byte.name : "-") + " " +
                hexBytes(&byte.implemented, 1) + " " + hexBytes(&byte.unprogrammed, 1) + "\n";
    }
    return text;
}

std::shared_ptr<PicTarget> installPic(Instrument& instrument)
{
    auto pic = std::make_shared<PicTarget>();
    PicTarget* p = pic.get();
    instrument.gpio().attach(PicTarget::lines(), p);
    instrument.keep(pic);
    instrument.onReset([p] { p->resetCounters(); });

    addMemory(instrument, pic, "flash", &PicTarget::flash, "program flash 0x0000..0xFFFF");
    addMemory(
        instrument, pic, "config", &PicTarget::config,
        "configuration cells 0x300000..0x30000D as written (the chip reads them masked by config-bits)");
    addMemory(instrument, pic, "eeprom", &PicTarget::eeprom, "data EEPROM, 1024 bytes");
    addMemory(instrument, pic, "id", &PicTarget::idLocations, "ID locations 0x200000..0x200007");

    ControlFile configBits;
    configBits.read = [] { return configBitsText(); };
    configBits.help = "configuration bytes: \"ADDRESS NAME IMPLEMENTED UNPROGRAMMED\" in hex, \"-\" for none";
    instrument.control().add("pic/config-bits", std::move(configBits));

    ControlFile stats;
    stats.read = [p] {
        std::string text = "powered " + std::to_string(p->powered()) + "\nprogramming_mode " +
                           std::to_string(p->inProgrammingMode()) + "\n" + counterText(p->counters());
        // The server's own CPU time and run-queue wait, so a benchmark can tell load from other processes.
        std::ifstream schedstat("/proc/self/schedstat");
        std::uint64_t cpuNs = 0, waitNs = 0;
        if (schedstat >> cpuNs >> waitNs)
            text += "server_cpu_ns " + std::to_string(cpuNs) + "\nserver_run_delay_ns " +
                    std::to_string(waitNs) + "\n";
        return text;
    };
    stats.write = [p](std::string_view) {
        p->resetCounters();
        return 0;
    };
    stats.help = "power and mode, then the model counters, \"name value\"; any write zeroes the counters";
    instrument.control().add("pic/stats", std::move(stats));

    ControlFile holds;
    holds.read = [p] {
        const PicTarget::Holds& h = p->holds();
        return holdSummary("program", h.programNs) + holdSummary("discharge", h.dischargeNs) +
               holdSummary("erase", h.eraseNs) + holdSummary("entry", h.entryNs);
    };
    holds.help = "holds measured on the wire in ns: programming clock, discharge, erase, MCLR to first clock";
    instrument.control().add("pic/holds", std::move(holds));

    ControlFile faults;
    faults.read = [p] { return faultText(*p); };
    faults.write = [&instrument, p](std::string_view text) {
        const std::string error = applyFaultText(*p, text);
        return error.empty() ? 0 : refuse(instrument, "pic/" + error);
    };
    faults.wholeFile = true;
    faults.help = "lines: nonblank ADDR VALUE | stuck ADDR MASK | nodevice | device | devid ID | clear";
    instrument.control().add("pic/faults", std::move(faults));
    return pic;
}

} // namespace sim
