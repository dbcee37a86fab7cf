// update-package: build, lint, inspect and preview firmware update packages.
#include "InstrumentState.h"
#include "Package.h"
#include "Prediction.h"
#include "Preview.h"
#include "Report.h"
#include "Risk.h"
#include "VirtualInstrument.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QTextStream>
#include <cstdio>

namespace {

const char* const usage = R"(usage:
  update-package build DIR -o FILE [--force]   pack DIR as the package's firmware_update/ folder
  update-package lint PACKAGE|DIR [--json] [--profile FILE]
                                               what the updater will get wrong, line by line
  update-package inspect PACKAGE|DIR [--json] [--profile FILE]
                                               what the updater will show, run and write for each line
  update-package preview PACKAGE [--pc] [--out DIR] [--profile FILE]
                                               run it on the virtual instrument with the real updater
  update-package rules [--json]                the rules lint applies, with their severity
  update-package state DIR                     what a job on the virtual instrument left in its folder
--profile: the instrument to predict for (default: the virtual instrument's profile)
exit status: 0 fine, 1 errors found (preview: the instrument differs from the prediction), 2 unusable
input or usage)";

int say(FILE* stream, const QString& text, int status)
{
    QTextStream(stream) << text << (text.endsWith('\n') ? "" : "\n");
    return status;
}

struct Arguments
{
    QString command;
    QStringList positional;
    QStringList flags;
    QString output, out, profile;
    bool ok = true;
};

Arguments parse(const QStringList& args)
{
    Arguments a;
    for (int i = 1; i < args.size(); ++i) {
        const QString& arg = args[i];
        if (arg == "-o" || arg == "--out" || arg == "--profile") {
            if (i + 1 >= args.size()) {
                a.ok = false;
                break;
            }
            (arg == "-o" ? a.output : arg == "--out" ? a.out : a.profile) = args[++i];
        } else if (arg.startsWith("--")) {
            a.flags << arg;
        } else if (a.command.isEmpty()) {
            a.command = arg;
        } else {
            a.positional << arg;
        }
    }
    return a;
}

// The one package or folder a subcommand works on; on failure `status` is the exit status.
std::optional<package::Package> load(const Arguments& a, int& status)
{
    status = 2;
    if (a.positional.size() != 1) {
        say(stderr, usage, 2);
        return std::nullopt;
    }
    QString error;
    auto pkg = package::read(a.positional[0], error);
    if (!pkg)
        say(stderr, QStringLiteral("update-package: %1").arg(error), 2);
    return pkg;
}

// The instrument profile named by --profile, or the default one.
std::optional<profile::Profile> instrumentProfile(const Arguments& a)
{
    QString error;
    auto p = profile::read(a.profile.isEmpty() ? profile::defaultPath() : a.profile, error);
    if (!p)
        say(stderr, QStringLiteral("update-package: %1").arg(error), 2);
    return p;
}

void write(const QByteArray& text)
{
    fwrite(text.constData(), 1, size_t(text.size()), stdout);
}

int build(const Arguments& a)
{
    const QString folder = a.positional.value(0);
    if (a.output.isEmpty() || folder.isEmpty())
        return say(stderr, usage, 2);
    if (!QFileInfo(folder).isDir())
        return say(stderr, QStringLiteral("update-package build: %1 is not a folder").arg(folder), 2);
    const QString target = QFileInfo(a.output).absoluteFilePath();
    if (!package::nameMatches(QFileInfo(target).fileName()))
        return say(
            stderr,
            QStringLiteral("update-package build: the updater would not find '%1': the name must match "
                           "*M_firmware_update*.tar.bz2, e.g. ProductM_firmware_update_1.0.tar.bz2")
                .arg(QFileInfo(target).fileName()),
            1);
    if (target.startsWith(QDir(folder).absolutePath() + '/'))
        return say(
            stderr,
            QStringLiteral("update-package build: %1 lies inside %2: write it elsewhere").arg(target, folder),
            1);
    QString error;
    const auto pkg = package::read(folder, error);
    if (!pkg)
        return say(stderr, QStringLiteral("update-package: %1").arg(error), 2);
    for (const package::Entry& entry : pkg->entries) {
        if (entry.type == package::EntryType::Symlink &&
            !QDir::cleanPath(QFileInfo('/' + entry.name).path() + '/' + entry.link)
                 .startsWith('/' + package::topFolder + '/'))
            return say(
                stderr,
                QStringLiteral("update-package build: %1 points out of the folder (%2): not packed")
                    .arg(QDir(folder).filePath(entry.name.mid(package::topFolder.size() + 1)), entry.link),
                1);
    }
    const auto profile = instrumentProfile(a);
    if (!profile)
        return 2;
    predict::Options options;
    options.archiveName = QFileInfo(target).fileName();
    const predict::Prediction prediction = predict::predict(*pkg, *profile, options);
    if (!prediction.findings.isEmpty())
        say(stderr, report::lintText(prediction), 0);
    if (prediction.hasErrors() && !a.flags.contains("--force"))
        return say(
            stderr,
            QStringLiteral("update-package build: %1 not written: lint found errors (--force writes it "
                           "anyway)")
                .arg(target),
            1);
    if (!package::write(*pkg, folder, target, error))
        return say(stderr, QStringLiteral("update-package build: %1").arg(error), 2);
    return say(stdout,
               QStringLiteral("wrote %1 (%2)").arg(target, package::sizeText(QFileInfo(target).size())), 0);
}

int lintOrInspect(const Arguments& a)
{
    int status = 0;
    const auto pkg = load(a, status);
    if (!pkg)
        return status;
    const auto profile = instrumentProfile(a);
    if (!profile)
        return 2;
    const predict::Prediction prediction = predict::predict(*pkg, *profile);
    const bool json = a.flags.contains("--json");
    if (a.command == "lint") {
        write(json ? report::lintJson(prediction) : report::lintText(prediction).toUtf8());
        return prediction.hasErrors() ? 1 : 0;
    }
    write(json ? report::inspectJson(*pkg, prediction) : report::inspectText(*pkg, prediction).toUtf8());
    return 0;
}

int runPreview(const Arguments& a)
{
    int status = 0;
    const auto pkg = load(a, status);
    if (!pkg)
        return status;
    if (pkg->folder)
        return say(stderr, "update-package preview: give a package file (update-package build makes one)", 2);
    preview::Options options;
    options.package = a.positional[0];
    options.pcJob = a.flags.contains("--pc");
    options.build = instrument::defaultBuildDir();
    options.profile = a.profile.isEmpty() ? profile::defaultPath() : a.profile;
    QString base = QFileInfo(options.package).fileName();
    base.chop(base.endsWith(".tar.bz2", Qt::CaseInsensitive) ? 8 : 0);
    options.out = a.out.isEmpty() ? base + "-preview" : a.out;
    const auto profile = instrumentProfile(a);
    if (!profile)
        return 2;
    predict::Options how;
    how.pcJob = options.pcJob;
    return preview::run(options, predict::predict(*pkg, *profile, how));
}

int showState(const Arguments& a)
{
    if (a.positional.size() != 1)
        return say(stderr, usage, 2);
    QString error;
    const auto snapshot = state::read(a.positional[0], error);
    if (!snapshot)
        return say(stderr, "update-package state: " + error, 2);
    return say(stdout, state::text(*snapshot), 0);
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    if (app.arguments().value(1) == "risk")
        return riskCommand(app.arguments().mid(2));
    const Arguments a = parse(app.arguments());
    if (!a.ok)
        return say(stderr, usage, 2);
    for (const QString& flag : a.flags) {
        if (!QStringList{"--json", "--force", "--pc"}.contains(flag))
            return say(stderr, QStringLiteral("update-package: unknown option %1\n%2").arg(flag, usage), 2);
    }
    if (a.command == "build")
        return build(a);
    if (a.command == "lint" || a.command == "inspect")
        return lintOrInspect(a);
    if (a.command == "preview")
        return runPreview(a);
    if (a.command == "rules" && a.positional.isEmpty()) {
        write(a.flags.contains("--json") ? report::rulesJson() : report::rulesText().toUtf8());
        return 0;
    }
    if (a.command == "state")
        return showState(a);
    return say(stderr, usage, 2);
}
