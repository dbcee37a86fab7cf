#include "FuzzSupport.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QtGlobal>

#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace fuzzsupport {

namespace {
// Starts away from zero, as a monotonic clock does.
std::uint64_t g_nowNs = 1'000'000'000;
// What one clock reading costs in virtual time: a busy wait of 6 ms takes 120 readings.
const std::uint64_t CLOCK_READ_NS = 50'000;

QtMessageHandler g_previousHandler = nullptr;
void dropDebug(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    if (type != QtDebugMsg && type != QtInfoMsg)
        g_previousHandler(type, context, message);
}

std::function<int(const QString&)> g_commandStatus;
} // namespace

void fail(const char* file, int line, const char* condition, const QString& what)
{
    std::fprintf(stderr, "\nINVARIANT BROKEN at %s:%d: %s\n  %s\n", file, line, condition, qPrintable(what));
    std::fflush(stderr);
    std::abort();
}

void silenceDebugMessages()
{
    g_previousHandler = qInstallMessageHandler(dropDebug);
}

std::uint64_t nowNs()
{
    return g_nowNs;
}

void advanceNs(std::uint64_t ns)
{
    g_nowNs += ns;
}

void startScreenApplication(int* argc, char*** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    static QApplication app(*argc, *argv);
    silenceDebugMessages();
    SerialLine::instance().setDevicePath("/dev/ttyS1");
}

sim::GpioLineBank& lineBank()
{
    static sim::GpioLineBank bank;
    return bank;
}

SerialLine& SerialLine::instance()
{
    static SerialLine line;
    return line;
}

void SerialLine::clear()
{
    m_pending.clear();
    m_writes.clear();
    m_onWrite = nullptr;
}

int SerialLine::open()
{
    // The read end of a pipe nobody writes to: a real descriptor that never turns readable by itself, so
    // only deliver() raises a notification. termios calls on it fail, which the product ignores.
    if (m_quietPipe[0] < 0 && ::pipe(m_quietPipe) != 0)
        return -1;
    m_fd = ::dup(m_quietPipe[0]);
    return m_fd;
}

long SerialLine::read(void* buffer, std::size_t size)
{
    const std::size_t count = std::min(size, std::size_t(m_pending.size()));
    std::memcpy(buffer, m_pending.constData(), count);
    m_pending.remove(0, int(count));
    return long(count);
}

long SerialLine::write(const void* buffer, std::size_t size)
{
    const QByteArray bytes(static_cast<const char*>(buffer), int(size));
    m_writes << bytes;
    if (m_onWrite)
        m_onWrite(bytes);
    return long(size);
}

QList<ExecutedCommand>& executedCommands()
{
    static QList<ExecutedCommand> commands;
    return commands;
}

void setCommandStatus(std::function<int(const QString&)> status)
{
    g_commandStatus = std::move(status);
}

QByteArray ByteReader::bytes(std::size_t count)
{
    count = std::min(count, m_size - std::min(m_pos, m_size));
    const QByteArray taken(reinterpret_cast<const char*>(m_data + m_pos), int(count));
    m_pos += count;
    return taken;
}

QString writeScratchFile(const QString& name, const QByteArray& contents)
{
    // In memory where there is a tmpfs for it; one file per process, rewritten for every input.
    const QString dir = QDir("/dev/shm").exists() ? "/dev/shm" : QDir::tempPath();
    const QString path = QString("%1/updater-fuzz-%2-%3").arg(dir).arg(::getpid()).arg(name);
    static QStringList made;
    if (!made.contains(path)) {
        made << path;
        if (made.size() == 1)
            std::atexit([] {
                for (const QString& file : made)
                    QFile::remove(file);
            });
    }
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(contents) != contents.size())
        fail(__FILE__, __LINE__, "scratch file written", path);
    return path;
}

} // namespace fuzzsupport

using fuzzsupport::SerialLine;

// ---- link-time seams (the targets link with -Wl,--wrap=SYMBOL for each) ----------------------------------

extern "C" {

int __real_open(const char* path, int flags, ...);
ssize_t __real_read(int fd, void* buffer, size_t size);
ssize_t __real_write(int fd, const void* buffer, size_t size);
int __real_close(int fd);

int __real_open64(const char* path, int flags, ...);

static int openSerialOr(int (*realOpen)(const char*, int, ...), const char* path, int flags, mode_t mode)
{
    SerialLine& line = SerialLine::instance();
    if (path && !line.devicePath().empty() && line.devicePath() == path)
        return line.open();
    return realOpen(path, flags, mode);
}

int __wrap_open(const char* path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) ? mode_t(va_arg(args, int)) : 0;
    va_end(args);
    return openSerialOr(__real_open, path, flags, mode);
}

// Where large-file support renames open (32-bit builds), the serial device is caught here.
int __wrap_open64(const char* path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) ? mode_t(va_arg(args, int)) : 0;
    va_end(args);
    return openSerialOr(__real_open64, path, flags, mode);
}

ssize_t __wrap_read(int fd, void* buffer, size_t size)
{
    SerialLine& line = SerialLine::instance();
    return line.isLine(fd) ? line.read(buffer, size) : __real_read(fd, buffer, size);
}

ssize_t __wrap_write(int fd, const void* buffer, size_t size)
{
    SerialLine& line = SerialLine::instance();
    return line.isLine(fd) ? line.write(buffer, size) : __real_write(fd, buffer, size);
}

int __wrap_close(int fd)
{
    SerialLine& line = SerialLine::instance();
    if (line.isLine(fd))
        line.closed();
    return __real_close(fd);
}

// QProcess::execute(const QString&): recorded, nothing runs. An empty command line cannot start (-2).
int __wrap__ZN8QProcess7executeERK7QString(const QString& commandLine)
{
    int status = commandLine.trimmed().isEmpty() ? -2 : 0;
    if (status == 0 && fuzzsupport::g_commandStatus)
        status = fuzzsupport::g_commandStatus(commandLine);
    fuzzsupport::executedCommands() << fuzzsupport::ExecutedCommand{commandLine, status};
    return status;
}

#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wreturn-type-c-linkage"
#endif
// std::chrono::steady_clock::now(): the virtual clock, declared with the real return type so the calling
// convention is the library's on every platform.
std::chrono::steady_clock::time_point __wrap__ZNSt6chrono3_V212steady_clock3nowEv() noexcept
{
    fuzzsupport::advanceNs(fuzzsupport::CLOCK_READ_NS);
    return std::chrono::steady_clock::time_point(std::chrono::nanoseconds(fuzzsupport::nowNs()));
}
#if defined(__clang__)
#pragma clang diagnostic pop
#endif

} // extern "C"
