#pragma once
// For test programs that run inside sim/sandbox --instrument: the simulated devices sit at their target
// paths and the instrument's control files under $SIM_CONTROL (/run/sim).

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QStringList>
#include <QtTest>

namespace siminstrument {

inline QString controlPath(const QString& name)
{
    return qEnvironmentVariable("SIM_CONTROL", "/run/sim") + "/" + name;
}

inline bool available()
{
    return QFile::exists(controlPath("log"));
}

inline QByteArray read(const QString& name)
{
    QFile file(controlPath(name));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.readAll();
}

// Control writes go straight through; the file system answers each write on its own.
inline bool write(const QString& name, const QByteArray& data)
{
    QFile file(controlPath(name));
    return file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && file.write(data) == data.size();
}

inline QStringList lines(const QString& name)
{
    return QString::fromLatin1(read(name)).split('\n', Qt::SkipEmptyParts);
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

// In initTestCase(): skip loudly without the instrument, but fail under CI, which must run everything.
#define SIM_REQUIRE_INSTRUMENT()                                                                             \
    do {                                                                                                     \
        if (!siminstrument::available()) {                                                                   \
            const char* why = "the simulated instrument is not mounted: run this test through "              \
                              "sim/sandbox --instrument (ctest does)";                                       \
            if (qEnvironmentVariable("CI") == "true")                                                        \
                QFAIL(why);                                                                                  \
            QSKIP(why);                                                                                      \
        }                                                                                                    \
    } while (false)
