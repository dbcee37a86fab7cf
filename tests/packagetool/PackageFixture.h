#pragma once
// Test packages for update-package: a clean base folder made with the real tools (gpasm, the cross
// compiler, mkimage, depmod and tar; tests/packagetool/make-base-payloads.sh), variants of it, Intel HEX
// records written by hand where no tool makes the fault, and runs of the tool's binary.

#include "../support/TestFiles.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QTemporaryDir>
#include <QtTest>

namespace fixture {

using namespace testfiles;

inline const QString repo = PROJECT_SOURCE_DIR;
inline const QString tool = PROJECT_BINARY_DIR "/tools/update-package/update-package";
// The instrument the fast tests predict for (the virtual instrument's profile is the preview's).
inline const QString testProfile = PROJECT_SOURCE_DIR "/tests/packagetool/instrument.profile";

// The clean command list over every base file: each variant changes a line or adds one.
inline const QString baseConfig = QStringLiteral("APP:/mainApp\nFILE:/etc/x.conf\nKERNEL:/uImage\n"
                                                 "MODULES:/modules.tar\nSCRIPT:/post.sh\nPIC:/board.hex\n");

// A file of a variant; a path ending in '/' makes an empty folder instead.
struct FileSpec
{
    QByteArray data;
    int mode = 0644;
};
using Files = QMap<QString, FileSpec>;

// What srec_cat makes of the arguments, as Intel HEX.
inline QByteArray srecCat(const QStringList& args)
{
    return run("srec_cat", args + QStringList{"-o", "-", "-Intel"}).out.toLatin1();
}

// The bytes from..to (exclusive) all set to value, by srec_cat.
inline QByteArray filled(const QString& from, const QString& to, const QString& value,
                         const QString& more = {})
{
    return srecCat(QStringList{"-generate", from, to, "-constant", value} +
                   more.split(' ', Qt::SkipEmptyParts));
}

struct Lint
{
    int exitCode = -1;
    QStringList findings; // "rule:line:severity"
    QString text;         // the raw output, for failure messages
    QJsonObject json;
    bool has(const QString& rule, int line) const
    {
        return std::any_of(findings.begin(), findings.end(), [&](const QString& f) {
            return f.startsWith(QString("%1:%2:").arg(rule).arg(line));
        });
    }
    int count(const QString& rule) const
    {
        return int(std::count_if(findings.begin(), findings.end(),
                                 [&](const QString& f) { return f.startsWith(rule + ':'); }));
    }
    // Empty for a clean result, else what was wrong.
    QString problems() const
    {
        return exitCode == 0 && findings.isEmpty() ? QString()
                                                   : QString("exit %1: %2").arg(exitCode).arg(text);
    }
};

inline Lint lint(const QString& path, const QString& profile = testProfile)
{
    const Run r = run(tool, {"lint", path, "--json", "--profile", profile});
    Lint l{r.exitCode, {}, r.out + r.err, QJsonDocument::fromJson(r.out.toUtf8()).object()};
    for (const QJsonValue v : l.json.value("findings").toArray()) {
        const QJsonObject o = v.toObject();
        l.findings << QString("%1:%2:%3")
                          .arg(o.value("rule").toString())
                          .arg(o.value("line").toInt())
                          .arg(o.value("severity").toString());
    }
    return l;
}

// The base folder: every payload made by a real tool, as the instrument will take it.
class BasePackage
{
public:
    QTemporaryDir dir;
    QString base;
    QString payloads; // make-base-payloads.sh's output: mainApp, uImage, modules.tar, rootfs.ubi, modroot/

    // A payload made for the instrument, to put into a variant.
    QByteArray payload(const QString& name) const { return readAll(payloads + '/' + name); }

    bool make()
    {
        base = dir.path() + "/base";
        payloads = dir.path() + "/payloads";
        const Run made = run("bash", {repo + "/tests/packagetool/make-base-payloads.sh", payloads});
        if (made.exitCode != 0) {
            qWarning("%s", qPrintable(made.err));
            return false;
        }
        writeFile(base + "/mainApp", payload("mainApp"), 0755);
        writeFile(base + "/etc/x.conf", "mode=field\n");
        writeFile(base + "/uImage", payload("uImage"));
        writeFile(base + "/modules.tar", payload("modules.tar"));
        writeFile(base + "/post.sh", "#!/bin/sh\nexit 0\n", 0755);
        writeFile(base + "/update_config", baseConfig.toUtf8());
        if (run("gpasm", {"-p18f4620", "-o", base + "/board.hex", repo + "/sample/pic/board.asm"}, dir.path())
                .exitCode != 0)
            return false;
        for (const QString& listing : QDir(base).entryList({"board.cod", "board.lst"}))
            QFile::remove(base + '/' + listing);
        return true;
    }

    // A copy of the base folder with the files written; config "<none>" leaves update_config out.
    QString variant(const QString& name, const QString& config, const Files& changes)
    {
        const QString folder = dir.path() + "/v/" + name;
        QDir(folder).removeRecursively();
        QDir().mkpath(dir.path() + "/v");
        if (run("cp", {"-a", base, folder}).exitCode != 0)
            return QString();
        for (auto it = changes.begin(); it != changes.end(); ++it) {
            if (it.key().endsWith('/'))
                QDir().mkpath(folder + '/' + it.key());
            else
                writeFile(folder + '/' + it.key(), it->data, it->mode);
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
        return run(tool, {"build", folder, "-o", target, "--force", "--profile", testProfile}).exitCode == 0
                   ? target
                   : QString();
    }
};

} // namespace fixture

Q_DECLARE_METATYPE(fixture::Files)
