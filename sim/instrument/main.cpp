// sim-instrument: serves the simulated instrument on a FUSE mount until SIGTERM (see sim/README.md).

#include "ControlText.h"
#include "EsaLine.h"
#include "InstrumentServer.h"
#include "PacedLine.h"
#include "PicControl.h"
#include "PicTarget.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <iostream>
#include <sched.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

// Devices beyond the line bank and the expander: each option installs its model into the instrument
// (attach it to lines, add control files, set the serial peer) before the file system is mounted.
struct Feature
{
    std::string option;
    bool takesValue;
    std::string help;
    std::function<bool(sim::Instrument&, const std::string& value, std::string* error)> install;
};

// "2 (PGD), 3 (MCLR), ..." from the model's own numbering.
std::string picLines()
{
    using sim::PicTarget;
    const std::pair<int, const char*> lines[] = {{PicTarget::PGD, "PGD"},
                                                 {PicTarget::MCLR, "MCLR"},
                                                 {PicTarget::PGC, "PGC"},
                                                 {PicTarget::POWER, "board power"},
                                                 {PicTarget::PGM, "PGM"}};
    std::string text;
    for (const auto& [number, name] : lines)
        text += (text.empty() ? "" : ", ") + std::to_string(number) + " (" + name + ")";
    return text;
}

std::vector<Feature> features()
{
    return {
        {"--pic", false, "a PIC18F4620 on GPIO " + picLines() + "; control/pic/",
         [](sim::Instrument& in, const std::string&, std::string*) {
             sim::installPic(in);
             return true;
         }},
        {"--serial", true, "the device on /dev/ttyS1: esa (the ESA boards' boot loaders; control/esa/)",
         [](sim::Instrument& in, const std::string& device, std::string* error) {
             if (device == "esa")
                 return sim::installEsaBoards(in, error);
             *error = "unknown serial device '" + device + "' (known: esa)";
             return false;
         }},
    };
}

void usage(std::ostream& out)
{
    out << "usage: sim-instrument --mount DIR [--ready FIFO] [--no-pty] [--log-limit N] [--fuse-debug]"
           " [--serial-baud N]";
    for (const Feature& f : features())
        out << " [" << f.option << (f.takesValue ? " VALUE" : "") << "]";
    out << "\n  --mount DIR      mount point; gets gpio/, i2c-1 and control/\n"
           "  --ready FIFO     write \"ready <pty slave>\\n\" there once mounted\n"
           "  --no-pty         no serial line (the ready line then names \"-\")\n"
           "  --log-limit N    keep the last N lines of control/log (default 1000000)\n"
           "  --fuse-debug     trace FUSE requests on stderr\n"
           "  --serial-baud N  pace the serial device's line at N baud, 8N1 (10 bits per byte)\n";
    for (const Feature& f : features())
        out << "  " << f.option << (f.takesValue ? " VALUE" : "") << "  " << f.help << "\n";
}

int fail(const std::string& message)
{
    std::cerr << "sim-instrument: " << message << "\n";
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    sim::Instrument instrument;
    sim::ServerOptions options;
    options.allowOther = geteuid() == 0; // the sandbox's processes must reach the mount
    std::string readyFifo;
    bool pty = true;
    std::vector<std::pair<const Feature*, std::string>> chosen;
    unsigned long long serialBaud = 0;
    const std::vector<Feature> available = features();

    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        auto value = [&](std::string* out) {
            if (i + 1 >= argc)
                return false;
            *out = argv[++i];
            return true;
        };
        if (arg == "--help" || arg == "-h") {
            usage(std::cout);
            return 0;
        } else if (arg == "--mount") {
            if (!value(&options.mountPoint))
                return fail("--mount needs a directory");
        } else if (arg == "--ready") {
            if (!value(&readyFifo))
                return fail("--ready needs a fifo path");
        } else if (arg == "--no-pty") {
            pty = false;
        } else if (arg == "--fuse-debug") {
            options.fuseDebug = true;
        } else if (arg == "--serial-baud") {
            std::string text;
            if (!value(&text))
                return fail("--serial-baud needs a rate in baud");
            serialBaud = sim::parseNumber(text, 10, 100000000).value_or(0);
            if (serialBaud < 10)
                return fail("--serial-baud needs a rate between 10 and 100000000 baud, not '" + text + "'");
        } else if (arg == "--log-limit") {
            std::string text;
            if (!value(&text))
                return fail("--log-limit needs a number of lines");
            const std::uint64_t limit = sim::parseNumber(text, 10).value_or(0);
            if (limit == 0)
                return fail("--log-limit needs a positive number of lines, not '" + text + "'");
            instrument.setLogLimit(limit);
        } else {
            const Feature* feature = nullptr;
            for (const Feature& f : available) {
                if (f.option == arg)
                    feature = &f;
            }
            if (!feature)
                return fail("unknown option '" + arg + "' (see --help)");
            std::string featureValue;
            if (feature->takesValue && !value(&featureValue))
                return fail(arg + " needs a value");
            chosen.emplace_back(feature, featureValue);
        }
    }
    if (options.mountPoint.empty())
        return fail("no mount point given (--mount DIR)");
    struct stat st;
    if (::stat(options.mountPoint.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
        return fail("mount point '" + options.mountPoint + "' is not a directory");

    for (const auto& [feature, featureValue] : chosen) {
        std::string error;
        if (!feature->install(instrument, featureValue, &error))
            return fail(feature->option + ": " + error);
    }
    if (serialBaud) {
        std::unique_ptr<sim::SerialPeer> device = instrument.takeSerialPeer();
        if (!device)
            return fail("--serial-baud needs a device on the line (--serial)");
        instrument.setSerialPeer(std::make_unique<sim::PacedLine>(std::move(device), serialBaud / 10));
        // Bytes are due every few dozen microseconds: a real-time priority keeps the wake-ups on time on
        // a busy machine. Without the privilege the line still works, only less exactly timed.
        sched_param priority{};
        priority.sched_priority = 10;
        if (sched_setscheduler(0, SCHED_FIFO, &priority) != 0)
            std::cerr << "sim-instrument: no real-time priority for the paced line (" << std::strerror(errno)
                      << "); its timing may be late on a busy machine\n";
    }

    sim::InstrumentServer server(instrument);
    std::string error, slave = "-";
    if (!server.stopOnSignals(&error) || (pty && !server.openPty(&slave, &error)))
        return fail(error);
    if (!server.mount(options, &error)) {
        fail(error);
        return 3; // tells the sandbox that FUSE itself is not usable here
    }

    if (!readyFifo.empty()) {
        const int fd = ::open(readyFifo.c_str(), O_WRONLY | O_CLOEXEC);
        const std::string line = "ready " + slave + "\n";
        if (fd < 0 || ::write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
            const std::string reason = std::strerror(errno);
            server.unmount();
            return fail("cannot report readiness on '" + readyFifo + "': " + reason);
        }
        ::close(fd);
    }

    const int rc = server.run();
    if (rc < 0)
        return fail(std::string("serving the file system failed: ") + std::strerror(-rc));
    return 0;
}
