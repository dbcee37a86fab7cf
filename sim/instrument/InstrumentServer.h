#pragma once
// Puts an Instrument where the updater looks: a FUSE file system (gpio/ like /sys/class/gpio, i2c-1
// like /dev/i2c-1, control/ for tests) and a pseudo-terminal whose slave plays /dev/ttyS1. One thread
// serves everything from one poll loop, one request at a time, so the models see operations in the
// order the updater made them. A test may host it in-process: mount, then run() on a thread.

#include "Instrument.h"

#include <memory>
#include <string>

namespace sim {

struct ServerOptions
{
    std::string mountPoint;
    bool allowOther = false; // let other users in (needs root, or user_allow_other)
    bool fuseDebug = false;  // libfuse's request trace on stderr
};

class InstrumentServer
{
public:
    explicit InstrumentServer(Instrument& instrument);
    ~InstrumentServer(); // unmounts and closes everything still open
    InstrumentServer(const InstrumentServer&) = delete;
    InstrumentServer& operator=(const InstrumentServer&) = delete;

    // Each returns false with a message in *error on failure.
    bool mount(const ServerOptions& options, std::string* error);
    // A raw pty; the server keeps the slave open so the line survives the updater closing it.
    bool openPty(std::string* slavePath, std::string* error);
    // SIGTERM, SIGINT and SIGHUP end run() (they are blocked in the calling thread and read in the loop).
    bool stopOnSignals(std::string* error);

    // Serves until stop(), a signal from stopOnSignals or an unmount from outside; then unmounts.
    // Returns 0, or -errno when the loop failed.
    int run();
    void stop(); // from any thread or a signal handler
    void unmount();

    struct Impl; // the file system's state, reached from the libfuse callbacks

private:
    std::unique_ptr<Impl> m_impl;
};

} // namespace sim
