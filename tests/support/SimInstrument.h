#pragma once
// The one client of the simulated instrument's control files, for tests and benchmarks that run inside
// sim/sandbox --instrument: the devices sit at their target paths, the control files under $SIM_CONTROL
// (/run/sim). Plain QtCore, so that benchmarks use it too; SIM_REQUIRE_INSTRUMENT is for QtTest programs.

#include <QFile>
#include <QRegularExpression>
#include <QStringList>

#include <map>

namespace siminstrument {

inline QString controlPath(const QString& name)
{
    return qEnvironmentVariable("SIM_CONTROL", "/run/sim") + "/" + name;
}

// True when the control file exists: "log" for the instrument, "pic/flash" or "esa/log" for its parts.
inline bool available(const QString& name = "log")
{
    return QFile::exists(controlPath(name));
}

inline QByteArray read(const QString& name)
{
    QFile file(controlPath(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// One unbuffered write; the server may refuse the text only when the file is closed, so that counts too.
inline bool write(const QString& name, const QByteArray& data)
{
    QFile file(controlPath(name));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) || file.write(data) != data.size())
        return false;
    file.close();
    return file.error() == QFileDevice::NoError;
}

inline QStringList lines(const QString& name)
{
    return QString::fromLatin1(read(name)).split('\n', Qt::SkipEmptyParts);
}

// The counters of a file of "name value" or "name=value" lines (pic/stats, stats).
inline std::map<QString, double> counters(const QString& name)
{
    std::map<QString, double> values;
    for (const QString& line : lines(name)) {
        const int at = line.indexOf(QRegularExpression("[ =]"));
        if (at > 0)
            values[line.left(at)] = line.mid(at + 1).trimmed().toDouble();
    }
    return values;
}

// One counter, or -1 when the file has none of that name.
inline qint64 counter(const QString& name, const QString& key)
{
    const auto values = counters(name);
    return values.count(key) ? qint64(values.at(key)) : -1;
}

inline QStringList log()
{
    return lines("log");
}

inline void clearLog()
{
    write("log", "clear");
}

// Fresh start: no exported line, expander at power-on, empty log and bus record, no refused opens.
inline void reset()
{
    write("reset", "1");
}

} // namespace siminstrument

// In initTestCase(): skip loudly without the instrument (or the named part of it), but fail under CI,
// which must run everything.
#define SIM_REQUIRE_INSTRUMENT(...)                                                                          \
    do {                                                                                                     \
        if (!siminstrument::available(__VA_ARGS__)) {                                                        \
            const char* why = "the simulated instrument (or the part this test needs) is not mounted: run "  \
                              "this test through sim/sandbox --instrument as ctest does (needs FUSE and "    \
                              "namespaces)";                                                                 \
            if (qEnvironmentVariable("CI") == "true")                                                        \
                QFAIL(why);                                                                                  \
            QSKIP(why);                                                                                      \
        }                                                                                                    \
    } while (false)
