#pragma once
// Test packages for update-package: a clean base folder made with the real tools (gpasm, tar), variants
// of it, Intel HEX records written by hand where no tool makes the fault, and runs of the tool's binary.

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>
#include <csignal>
#include <sys/stat.h>

namespace fixture {

inline const QString repo = PROJECT_SOURCE_DIR;
inline const QString tool = PROJECT_BINARY_DIR "/tools/update-package/update-package";

// The clean command list over every base file: each variant changes a line or adds one.
inline const QString baseConfig = QStringLiteral("APP:/mainApp\nFILE:/etc/x.conf\nKERNEL:/uImage\n"
                                                 "MODULES:/modules.tar\nSCRIPT:/post.sh\nPIC:/board.hex\n");

struct FileSpec
{
    enum Kind
    {
        File,
        Folder,
        Remove
    } kind = File;
    QByteArray data;
    int mode = 0644;
};
using Files = QMap<QString, FileSpec>;

inline FileSpec file(const QByteArray& data, int mode = 0644)
{
    return {FileSpec::File, data, mode};
}
inline FileSpec folder()
{
    return {FileSpec::Folder, {}, 0755};
}
inline FileSpec removed()
{
    return {FileSpec::Remove, {}, 0};
}

struct Run
{
    int exitCode = -1;
    QString out, err;
};

inline Run run(const QString& program, const QStringList& args, const QString& workDir = QString(),
               int timeoutMs = 120000)
{
    QProcess p;
    if (!workDir.isEmpty())
        p.setWorkingDirectory(workDir);
    p.start(program, args);
    Run r;
    if (!p.waitForFinished(timeoutMs)) {
        // A program started through setsid leads its own group: end the whole group, which lets the
        // sandbox below it clean up its mounts.
        if (program == QLatin1String("setsid"))
            ::kill(-pid_t(p.processId()), SIGTERM);
        else
            p.kill();
        p.waitForFinished(60000);
    }
    p.waitForFinished();
    r.exitCode = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.out = QString::fromUtf8(p.readAllStandardOutput());
    r.err = QString::fromUtf8(p.readAllStandardError());
    return r;
}

inline QString readText(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

// One Intel HEX record with a correct checksum unless told otherwise.
inline QByteArray record(quint8 type, quint16 offset, const QByteArray& data)
{
    QByteArray bytes;
    bytes.append(char(data.size()))
        .append(char(offset >> 8))
        .append(char(offset & 0xFF))
        .append(char(type))
        .append(data);
    quint8 sum = 0;
    for (char c : bytes)
        sum += quint8(c);
    bytes.append(char(quint8(-sum)));
    return ':' + bytes.toHex().toUpper() + '\n';
}
inline const QByteArray endOfFile = ":00000001FF\n";

inline bool writeFile(const QString& path, const QByteArray& data, int mode = 0644)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly) || f.write(data) != data.size())
        return false;
    f.close();
    return ::chmod(QFile::encodeName(path).constData(), mode_t(mode)) == 0;
}

struct Finding
{
    QString severity;
    int line = 0;
    QString message;
};

struct Lint
{
    int exitCode = -1;
    QVector<Finding> findings;
    QString text; // the raw output, for failure messages
    bool has(const QString& severity, int line, const QString& text) const
    {
        return std::any_of(findings.begin(), findings.end(), [&](const Finding& f) {
            return f.severity == severity && f.line == line && f.message.contains(text);
        });
    }
};

inline Lint lint(const QString& path)
{
    const Run r = run(tool, {"lint", path, "--json"});
    Lint l;
    l.exitCode = r.exitCode;
    l.text = r.out + r.err;
    for (const QJsonValue v : QJsonDocument::fromJson(r.out.toUtf8()).object().value("findings").toArray()) {
        const QJsonObject o = v.toObject();
        l.findings.push_back(
            {o.value("severity").toString(), o.value("line").toInt(), o.value("message").toString()});
    }
    return l;
}

// The base folder: every payload made by a real tool where one exists.
class BasePackage
{
public:
    QTemporaryDir dir;
    QString base;

    bool make()
    {
        base = dir.path() + "/base";
        QDir().mkpath(base + "/etc");
        QByteArray app("\x7f"
                       "ELF stand-in for the application\n");
        QByteArray kernel;
        for (int i = 0; i < 4096; ++i)
            kernel.append(char((i * 7 + 3) & 0xFF));
        if (!writeFile(base + "/mainApp", app, 0755) || !writeFile(base + "/etc/x.conf", "mode=field\n") ||
            !writeFile(base + "/uImage", kernel) ||
            !writeFile(base + "/post.sh", "#!/bin/sh\nexit 0\n", 0755))
            return false;
        const QString modules = dir.path() + "/modroot/lib/modules/4.19.0-instrument/extra";
        if (!writeFile(modules + "/keypad.ko", "module\n"))
            return false;
        if (run("tar", {"-cf", base + "/modules.tar", "lib/modules/4.19.0-instrument/extra/keypad.ko"},
                dir.path() + "/modroot")
                .exitCode != 0)
            return false;
        if (run("gpasm", {"-p18f4620", "-o", base + "/board.hex", repo + "/sample/pic/board.asm"}, dir.path())
                .exitCode != 0)
            return false;
        for (const QString& junk : QDir(base).entryList({"board.cod", "board.lst"}))
            QFile::remove(base + '/' + junk);
        return writeFile(base + "/update_config", baseConfig.toUtf8());
    }

    QByteArray baseHex() const
    {
        QFile f(base + "/board.hex");
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }

    // A copy of the base folder with the changes applied; config "<none>" leaves update_config out.
    QString variant(const QString& name, const QString& config, const Files& changes)
    {
        const QString folder = dir.path() + "/v/" + name;
        QDir(folder).removeRecursively();
        QDir().mkpath(dir.path() + "/v");
        if (run("cp", {"-a", base, folder}).exitCode != 0)
            return QString();
        for (auto it = changes.begin(); it != changes.end(); ++it) {
            const QString path = folder + '/' + it.key();
            if (it->kind == FileSpec::Remove)
                QFile::remove(path);
            else if (it->kind == FileSpec::Folder)
                QDir().mkpath(path);
            else
                writeFile(path, it->data, it->mode);
        }
        if (config == "<none>")
            QFile::remove(folder + "/update_config");
        else
            writeFile(folder + "/update_config", config.toUtf8());
        return folder;
    }

    // Packs a folder with the tool's build (--force: faulty packages are the point).
    QString pack(const QString& folder, const QString& name)
    {
        const QString target = dir.path() + "/p/" + name;
        QDir().mkpath(dir.path() + "/p");
        QFile::remove(target);
        const Run r = run(tool, {"build", folder, "-o", target, "--force"});
        return r.exitCode == 0 ? target : QString();
    }
};

} // namespace fixture

Q_DECLARE_METATYPE(fixture::Files)
