#pragma once
// Files the tests read and make, runs of the real tools that make them, and hand-written Intel HEX records
// for the faults no tool produces.

#include <QDir>
#include <QProcess>

#include <csignal>
#include <sys/stat.h>

namespace testfiles {

inline QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Writes the file and the folders above it. A test that cannot make its own input stops at once.
inline void writeFile(const QString& path, const QByteArray& bytes, mode_t mode = 0644)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size())
        qFatal("cannot write %s", qPrintable(path));
    file.close();
    if (::chmod(QFile::encodeName(path).constData(), mode) != 0)
        qFatal("cannot set the mode of %s", qPrintable(path));
}

struct Run
{
    int exitCode = -1; // -1: crashed or timed out
    QString out, err;
};

inline Run run(const QString& program, const QStringList& args, const QString& workDir = QString(),
               int timeoutMs = 120000)
{
    QProcess process;
    process.setWorkingDirectory(workDir);
    process.start(program, args);
    if (!process.waitForFinished(timeoutMs)) {
        // A program started through setsid leads its own group: end the whole group, which lets a sandbox
        // below it clean up its mounts.
        if (program == QLatin1String("setsid"))
            ::kill(-pid_t(process.processId()), SIGTERM);
        else
            process.kill();
        process.waitForFinished(60000);
    }
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

// One Intel HEX record; a non-zero checksumError makes its checksum wrong by that much.
inline QByteArray hexRecord(quint16 offset, const QByteArray& data, quint8 type = 0, quint8 checksumError = 0)
{
    const QByteArray raw =
        QByteArray(1, char(data.size())) + char(offset >> 8) + char(offset) + char(type) + data;
    quint8 sum = checksumError;
    for (char c : raw)
        sum = quint8(sum - quint8(c));
    return ':' + (raw + char(sum)).toHex().toUpper() + '\n';
}

inline const QByteArray hexEnd = ":00000001FF\n";

} // namespace testfiles
