#pragma once
// What the fuzz targets share: the seams that keep them off real devices and real time, a byte reader for
// structured inputs and the check that turns a broken invariant into a finding.
//
// The seams are link-time only (see CMakeLists.txt); the product's objects are the updater's own:
// - GpioPinController is implemented on an in-process GpioLineBank (LineBankGpio.cpp), so no sysfs file
//   is touched;
// - std::chrono::steady_clock::now, used by the programmer's busy waits, is a virtual clock that jumps
//   ahead on every call, so a 6 ms wait costs a few calls and the model still sees the real durations;
// - open/read/write/close on the serial device path go to a scripted line instead of a tty;
// - QProcess::execute records the command line and runs nothing.

#include "GpioLineBank.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

// Reports a broken invariant with the input's context and aborts, which libFuzzer records as a crash.
#define FUZZ_CHECK(condition, what)                                                                          \
    do {                                                                                                     \
        if (!(condition))                                                                                    \
            fuzzsupport::fail(__FILE__, __LINE__, #condition, what);                                         \
    } while (false)

namespace fuzzsupport {

[[noreturn]] void fail(const char* file, int line, const char* condition, const QString& what);

// Qt's debug chatter of the product would dominate the run time; warnings and worse still show.
void silenceDebugMessages();

// For the targets that build the progress screen: a widget application on the offscreen platform, with
// the screen's serial line (/dev/ttyS1) on the scripted line instead of a real port.
void startScreenApplication(int* argc, char*** argv);

// Monotonic virtual time in nanoseconds, shared by the clock seam and the line bank.
std::uint64_t nowNs();
void advanceNs(std::uint64_t ns);

// The bank that LineBankGpio's pins act on.
sim::GpioLineBank& lineBank();

// The scripted serial line: the product opens devicePath() (any path registered here) and gets a
// descriptor that never becomes readable on its own; deliver() hands it the next chunk and raises
// the handler's notification, as the tty's read notifier would.
class SerialLine
{
public:
    static SerialLine& instance();
    void setDevicePath(const std::string& path) { m_path = path; }
    const std::string& devicePath() const { return m_path; }
    // Bytes waiting for the product's next reads (a chunk as the port delivers it).
    void setPending(const QByteArray& bytes) { m_pending = bytes; }
    bool hasPending() const { return !m_pending.isEmpty(); }
    // Every byte the product wrote, one entry per write call.
    QList<QByteArray>& writes() { return m_writes; }
    // Called on every write, after it was recorded (a board that answers at once).
    void onWrite(std::function<void(const QByteArray&)> handler) { m_onWrite = std::move(handler); }
    void clear();

    // For the wrapped system calls.
    bool isLine(int fd) const { return fd >= 0 && fd == m_fd; }
    int open();
    long read(void* buffer, std::size_t size);
    long write(const void* buffer, std::size_t size);
    void closed() { m_fd = -1; }

private:
    std::string m_path;
    int m_fd = -1;
    int m_quietPipe[2] = {-1, -1};
    QByteArray m_pending;
    QList<QByteArray> m_writes;
    std::function<void(const QByteArray&)> m_onWrite;
};

// Every QProcess::execute of the product: the command line, and the exit status the seam returned.
struct ExecutedCommand
{
    QString commandLine;
    int status;
};
QList<ExecutedCommand>& executedCommands();
// Decides each command's exit status (default: 0, success).
void setCommandStatus(std::function<int(const QString&)> status);

// Takes bytes from the front of a fuzz input; past its end everything reads as 0.
class ByteReader
{
public:
    ByteReader(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}
    bool atEnd() const { return m_pos >= m_size; }
    std::uint8_t byte() { return atEnd() ? 0 : m_data[m_pos++]; }
    QByteArray bytes(std::size_t count);
    QByteArray rest() { return bytes(m_size - m_pos); }

private:
    const std::uint8_t* m_data;
    std::size_t m_size;
    std::size_t m_pos = 0;
};

// A scratch file holding the input, for code that takes a file name.
QString writeScratchFile(const QString& name, const QByteArray& contents);

} // namespace fuzzsupport

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
