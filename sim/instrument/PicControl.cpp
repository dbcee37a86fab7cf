#include "PicControl.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
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

} // namespace

std::string hexDump(const std::vector<std::uint8_t>& bytes)
{
    std::string text;
    char buf[24];
    for (std::size_t at = 0; at < bytes.size(); at += 16) {
        std::snprintf(buf, sizeof buf, "%04zx:", at);
        text += buf;
        for (std::size_t i = at; i < std::min(bytes.size(), at + 16); ++i) {
            std::snprintf(buf, sizeof buf, " %02x", bytes[i]);
            text += buf;
        }
        text += '\n';
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
        const auto colon = line.find(':');
        if (line.find_first_not_of(" \t\r") == std::string::npos)
            continue;
        if (colon == std::string::npos)
            return where + "expected \"OFFSET: bytes\"";
        std::size_t used = 0;
        unsigned long offset = 0;
        try {
            offset = std::stoul(line.substr(0, colon), &used, 16);
        } catch (...) {
            used = 0;
        }
        if (used == 0)
            return where + "offset '" + line.substr(0, colon) + "' is not hexadecimal";
        std::istringstream words(line.substr(colon + 1));
        for (std::string word; words >> word; ++offset) {
            if (word.size() > 2 || word.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
                return where + "'" + word + "' is not a hex byte";
            if (offset >= result.size())
                return where + "offset " + std::to_string(offset) + " is past the end (" +
                       std::to_string(result.size()) + " bytes)";
            result[offset] = static_cast<std::uint8_t>(std::stoul(word, nullptr, 16));
        }
    }
    bytes = std::move(result);
    return {};
}

std::shared_ptr<PicTarget> installPic(Instrument& instrument)
{
    auto pic = std::make_shared<PicTarget>();
    PicTarget* p = pic.get();
    instrument.gpio().attach(PicTarget::lines(), p);
    instrument.keep(pic);
    instrument.onReset([p] { p->resetCounters(); });

    addMemory(instrument, pic, "flash", &PicTarget::flash, "program flash 0x0000..0xFFFF");
    addMemory(instrument, pic, "config", &PicTarget::config, "configuration bytes 0x300000..0x30000D");
    addMemory(instrument, pic, "eeprom", &PicTarget::eeprom, "data EEPROM, 1024 bytes");
    addMemory(instrument, pic, "id", &PicTarget::idLocations, "ID locations 0x200000..0x200007");

    ControlFile stats;
    stats.read = [p] {
        std::string text = "powered " + std::to_string(p->powered()) + "\nprogramming_mode " +
                           std::to_string(p->inProgrammingMode()) + "\n";
        for (const auto& [name, value] : p->counterList())
            text += name + " " + std::to_string(value) + "\n";
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
    faults.read = [p] { return p->faultText(); };
    faults.write = [&instrument, p](std::string_view text) {
        const std::string error = p->applyFaultText(text);
        return error.empty() ? 0 : refuse(instrument, "pic/" + error);
    };
    faults.wholeFile = true;
    faults.help = "lines: nonblank ADDR VALUE | stuck ADDR MASK | nodevice | device | devid ID | clear";
    instrument.control().add("pic/faults", std::move(faults));
    return pic;
}

} // namespace sim
