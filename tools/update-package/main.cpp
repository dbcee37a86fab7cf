// update-package: build, lint, inspect and preview firmware update packages.
#include "InstrumentState.h"
#include "Package.h"
#include "Prediction.h"
#include "Preview.h"
#include "Report.h"
#include "Risk.h"
#include "VirtualInstrument.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTextStream>
#include <cstdio>
#include <functional>

namespace {

const char* const exitStatus =
    "exit status: 0 fine, 1 errors found (preview: the instrument differs from the "
    "prediction), 2 unusable input or usage";

int say(FILE* stream, const QString& text, int status)
{
    QTextStream(stream) << text << (text.endsWith('\n') ? "" : "\n");
    return status;
}

void write(const QByteArray& text)
{
    fwrite(text.constData(), 1, size_t(text.size()), stdout);
}

// The options, each spelt once; a subcommand lists the ones it takes.
QCommandLineOption jsonOption()
{
    return {"json", "Machine-readable output (JSON)."};
}
QCommandLineOption profileOption()
{
    return {"profile", "The instrument to predict for (default: the virtual instrument's profile).", "FILE"};
}
QCommandLineOption outputOption()
{
    return {{"o", "output"}, "Write the package to FILE.", "FILE"};
}
QCommandLineOption forceOption()
{
    return {"force", "Write the package even when lint finds errors, and over an existing file."};
}
QCommandLineOption pcOption()
{
    return {"pc", "Run the PC job (F2) instead of the memory-stick job (F3)."};
}
QCommandLineOption timeoutOption()
{
    return {"timeout", "Stop a job that has not ended after SECONDS (default: 1200).", "SECONDS"};
}
QCommandLineOption outDirOption()
{
    return {"out-dir", "Keep the instrument's state, screenshots and logs in DIR (default: NAME-preview).",
            "DIR"};
}

struct Subcommand;
using Run = std::function<int(const QCommandLineParser&, const Subcommand&)>;

struct Subcommand
{
    QString name;
    QString arguments; // the positional arguments, as the usage line shows them
    int minArguments = 0, maxArguments = 0;
    QString summary;
    QList<QCommandLineOption> options;
    Run run;
    // A subcommand with a parser of its own gets the arguments after its name, the first being
    // "update-package NAME" (the program name QCommandLineParser::process expects).
    std::function<int(const QStringList&)> own;

    QString synopsis() const
    {
        QString line = "update-package " + name;
        for (const QCommandLineOption& o : options) {
            const QString& name = o.names().constFirst();
            line += QStringLiteral(" [%1%2%3]")
                        .arg(name.size() == 1 ? "-" : "--", name,
                             o.valueName().isEmpty() ? QString() : ' ' + o.valueName());
        }
        return arguments.isEmpty() ? line : line + ' ' + arguments;
    }
    int misuse(const QString& what) const
    {
        return say(stderr,
                   QStringLiteral("update-package %1: %2\nusage: %3\n(update-package %1 --help says more)")
                       .arg(name, what, synopsis()),
                   2);
    }
};

// The one package or folder a subcommand works on.
std::optional<package::Package> load(const QString& path)
{
    QString error;
    auto pkg = package::read(path, error);
    if (!pkg)
        say(stderr, QStringLiteral("update-package: %1").arg(error), 2);
    return pkg;
}

QString profilePath(const QCommandLineParser& p)
{
    return p.isSet("profile") ? p.value("profile") : profile::defaultPath();
}

// The instrument profile named by --profile, or the default one.
std::optional<profile::Profile> instrumentProfile(const QCommandLineParser& p)
{
    QString error;
    auto profile = profile::read(profilePath(p), error);
    if (!profile)
        say(stderr, QStringLiteral("update-package: %1").arg(error), 2);
    return profile;
}

QString sha256(const QString& file)
{
    QFile in(file);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    return in.open(QIODevice::ReadOnly) && hash.addData(&in) ? hash.result().toHex() : QString();
}

// A folder's links that point out of it are never packed (not even with --force): tar on the instrument
// would write through them.
bool packable(const package::Package& pkg, const QString& folder, const QString& subcommand)
{
    for (const package::Entry& entry : pkg.entries) {
        if (entry.type == package::EntryType::Symlink &&
            !QDir::cleanPath(QFileInfo('/' + entry.name).path() + '/' + entry.link)
                 .startsWith('/' + package::topFolder + '/')) {
            say(stderr,
                QStringLiteral("update-package %1: %2 points out of the folder (%3): not packed")
                    .arg(subcommand, QDir(folder).filePath(entry.name.mid(package::topFolder.size() + 1)),
                         entry.link),
                0);
            return false;
        }
    }
    return true;
}

void sayLeftOut(const package::Package& pkg, const QString& subcommand)
{
    if (!pkg.leftOut.isEmpty())
        say(stderr,
            QStringLiteral("update-package %1: left out (version-control and editor files): %2")
                .arg(subcommand, pkg.leftOut.join(", ")),
            0);
}

int build(const QCommandLineParser& p, const Subcommand& command)
{
    const QString folder = p.positionalArguments().value(0);
    if (!p.isSet("output"))
        return command.misuse("name the package to write: -o FILE");
    if (!QFileInfo(folder).isDir())
        return say(stderr, QStringLiteral("update-package build: %1 is not a folder").arg(folder), 2);
    const QString target = QFileInfo(p.value("output")).absoluteFilePath();
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
    const bool force = p.isSet("force");
    if (QFileInfo::exists(target) && !force)
        return say(stderr,
                   QStringLiteral("update-package build: %1 exists: not overwritten (--force overwrites it)")
                       .arg(target),
                   1);
    QString error;
    const auto pkg = package::read(folder, error);
    if (!pkg)
        return say(stderr, QStringLiteral("update-package: %1").arg(error), 2);
    if (!packable(*pkg, folder, "build"))
        return 1;
    sayLeftOut(*pkg, "build");
    const auto profile = instrumentProfile(p);
    if (!profile)
        return 2;
    predict::Options options;
    options.archiveName = QFileInfo(target).fileName();
    const predict::Prediction prediction = predict::predict(*pkg, *profile, options);
    if (!prediction.findings.isEmpty())
        say(stderr, report::lintText(prediction), 0);
    if (prediction.hasErrors() && !force)
        return say(
            stderr,
            QStringLiteral("update-package build: %1 not written: lint found errors (--force writes it "
                           "anyway)")
                .arg(target),
            1);
    if (!package::write(*pkg, folder, target, error))
        return say(stderr, QStringLiteral("update-package build: %1").arg(error), 2);
    const qint64 size = QFileInfo(target).size();
    // The checksum line as sha256sum writes it, so that `sha256sum -c` checks a copy.
    return say(stdout,
               QStringLiteral("wrote %1 (%2, %3 bytes)\n%4  %5")
                   .arg(target, package::sizeText(size))
                   .arg(size)
                   .arg(sha256(target), QFileInfo(target).fileName()),
               0);
}

int lintOrInspect(const QCommandLineParser& p, const Subcommand& command)
{
    const auto pkg = load(p.positionalArguments().constFirst());
    if (!pkg)
        return 2;
    const auto profile = instrumentProfile(p);
    if (!profile)
        return 2;
    const predict::Prediction prediction = predict::predict(*pkg, *profile);
    const bool json = p.isSet("json");
    if (command.name == "lint") {
        write(json ? report::lintJson(prediction) : report::lintText(prediction).toUtf8());
        return prediction.hasErrors() ? 1 : 0;
    }
    write(json ? report::inspectJson(*pkg, prediction) : report::inspectText(*pkg, prediction).toUtf8());
    return 0;
}

int runPreview(const QCommandLineParser& p, const Subcommand& command)
{
    const QStringList paths = p.positionalArguments();
    preview::Options options;
    if (p.isSet("timeout")) {
        bool whole = false;
        options.timeoutSeconds = p.value("timeout").toInt(&whole);
        if (!whole || options.timeoutSeconds <= 0)
            return command.misuse(
                QStringLiteral("--timeout takes whole seconds, got '%1'").arg(p.value("timeout")));
    }
    options.pcJob = p.isSet("pc");
    options.json = p.isSet("json");
    options.build = instrument::defaultBuildDir();
    options.profile = profilePath(p);
    QString base = QFileInfo(QDir::cleanPath(QFileInfo(paths.first()).absoluteFilePath())).fileName();
    base.chop(base.endsWith(".tar.bz2", Qt::CaseInsensitive) ? 8 : 0);
    options.out =
        p.isSet("out-dir") ? p.value("out-dir") : base + (paths.size() > 1 ? "-session-preview" : "-preview");
    const auto profile = instrumentProfile(p);
    if (!profile)
        return 2;
    // A folder goes in as build packs it, under a name the updater finds.
    QTemporaryDir packed;
    for (int k = 0; k < paths.size(); ++k) {
        auto pkg = load(paths[k]);
        if (!pkg)
            return 2;
        preview::Package entry{paths[k], *pkg, QString()};
        if (pkg->folder) {
            if (!packable(*pkg, paths[k], "preview"))
                return 1;
            sayLeftOut(*pkg, "preview");
            entry.archive = packed.filePath(QStringLiteral("%1/PreviewM_firmware_update.tar.bz2").arg(k + 1));
            QString error;
            if (!packed.isValid() || !QDir().mkpath(QFileInfo(entry.archive).path()) ||
                !package::write(*pkg, paths[k], entry.archive, error))
                return say(stderr, "update-package preview: cannot pack the folder: " + error, 2);
            entry.archiveName = QFileInfo(entry.archive).fileName();
        }
        options.packages << entry;
    }
    return preview::run(options, *profile);
}

int rules(const QCommandLineParser& p, const Subcommand&)
{
    write(p.isSet("json") ? report::rulesJson() : report::rulesText().toUtf8());
    return 0;
}

int showState(const QCommandLineParser& p, const Subcommand&)
{
    QString error;
    const auto snapshot = state::read(p.positionalArguments().constFirst(), error);
    if (!snapshot)
        return say(stderr, "update-package state: " + error, 2);
    return say(stdout, state::text(*snapshot), 0);
}

const QVector<Subcommand>& subcommands()
{
    // clang-format off
    static const QVector<Subcommand> table{
        {"build", "DIR", 1, 1, "pack DIR as the package's firmware_update/ folder",
         {outputOption(), forceOption(), profileOption()}, build, {}},
        {"lint", "PACKAGE|DIR", 1, 1, "what the updater will get wrong, line by line",
         {jsonOption(), profileOption()}, lintOrInspect, {}},
        {"inspect", "PACKAGE|DIR", 1, 1, "what the updater will show, run and write for each line",
         {jsonOption(), profileOption()}, lintOrInspect, {}},
        {"preview", "PACKAGE|DIR ...", 1, 64, "run it on the virtual instrument with the real updater; several: one session",
         {pcOption(), outDirOption(), timeoutOption(), jsonOption(), profileOption()}, runPreview, {}},
        {"rules", "", 0, 0, "the rules lint applies, with their severity",
         {jsonOption()}, rules, {}},
        {"state", "DIR", 1, 1, "what a job on the virtual instrument left in its folder",
         {}, showState, {}},
        // Subcommands that parse their own arguments: {"NAME", "ARGS", 0, 0, "summary", {}, {}, function}.
        {"risk", "PACKAGE [--json] [--points N] [--out-dir DIR] [--fail-on CLASS]", 0, 0,
         "what a power cut during each line leaves on the instrument", {}, {},
         [](const QStringList& arguments) { return riskCommand(arguments.mid(1)); }},
    };
    // clang-format on
    return table;
}

QString usage()
{
    QString text = "usage: update-package SUBCOMMAND [options] ARGUMENTS\n"
                   "       update-package --help | --version\n\nsubcommands:\n";
    for (const Subcommand& c : subcommands())
        text += QStringLiteral("  %1%2\n").arg(c.name, -10).arg(c.summary);
    return text + "\n`update-package SUBCOMMAND --help` lists its options; man update-package says more.\n" +
           exitStatus + '\n';
}

int dispatch(const QStringList& arguments)
{
    const QString first = arguments.value(1);
    if (first == "--help" || first == "-h")
        return say(stdout, usage(), 0);
    if (first == "--version")
        return say(stdout, QStringLiteral("update-package %1").arg(QCoreApplication::applicationVersion()),
                   0);
    if (first.isEmpty())
        return say(stderr, "update-package: name a subcommand\n" + usage(), 2);
    const auto& table = subcommands();
    const auto command =
        std::find_if(table.begin(), table.end(), [&](const Subcommand& c) { return c.name == first; });
    if (command == table.end())
        return say(stderr,
                   QStringLiteral("update-package: %1 '%2'\n")
                           .arg(first.startsWith('-') ? "unknown option" : "unknown subcommand", first) +
                       usage(),
                   2);
    const QStringList rest = QStringList{"update-package " + command->name} + arguments.mid(2);
    if (command->own)
        return command->own(rest);

    QCommandLineParser parser;
    parser.setApplicationDescription(command->summary + ".\n" + exitStatus + '.');
    const QCommandLineOption help = parser.addHelpOption();
    parser.addOptions(command->options);
    if (!parser.parse(rest))
        return command->misuse(parser.errorText());
    if (parser.isSet(help) || parser.isSet("help-all")) {
        // Qt's first line names the binary's path; the synopsis names the subcommand and its arguments.
        const QString help = parser.helpText();
        return say(stdout, "Usage: " + command->synopsis() + help.mid(help.indexOf('\n')), 0);
    }
    const int given = int(parser.positionalArguments().size());
    if (given < command->minArguments)
        return command->misuse(QStringLiteral("missing %1").arg(command->arguments));
    if (given > command->maxArguments)
        return command->misuse(QStringLiteral("unexpected argument '%1'")
                                   .arg(parser.positionalArguments().value(command->maxArguments)));
    return command->run(parser, *command);
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName("update-package");
    QCoreApplication::setApplicationVersion(QStringLiteral(UPDATE_PACKAGE_VERSION));
    return dispatch(app.arguments());
}
