#include "Prediction.h"

#include "Exposure.h"
#include "IntelHex.h"
#include "Rules.h"
#include "ViewText.h"
#include "payload/Check.h"

#include <QBuffer>
#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QSet>
#include <QTextStream>

namespace predict {
namespace {

using grammar::Action;
using grammar::SystemType;
using rootfs::Kind;
using target::Outcome;

const QString endComplete =
    QStringLiteral("Update complete, restart the system or press F1 to return to the main screen\n");
const QString endFailed =
    QStringLiteral("Some of the updates failed, press F1 to return to the main screen\n");
const QString noPackageLine =
    QStringLiteral("Could not find update file, press F1 to return to the main screen\n");
const QString extractFailedLine =
    QStringLiteral("Failed to extract update files, press F1 to return to the main screen\n");
const QString noCommandListLine =
    QStringLiteral("Failed to open update file, press F1 to return to the main screen\n");

bool hasBlank(const QString& text)
{
    return std::any_of(text.begin(), text.end(), [](QChar c) { return c.isSpace() || c == '"'; });
}

// The updater's job on one package: the technician's keys, the unpacking, the command list.
class Job
{
public:
    Job(const package::Package& pkg, const profile::Profile& profile, const Options& options)
        : m_pkg(pkg),
          m_tree(startTree(profile, options.after)), m_context{*m_tree, profile, m_result.partitions,
                                                               m_notes, {},      {},
                                                               0}
    {
        if (const Prediction* after = options.after) {
            m_systemType = after->systemType;
            m_result.partitions = after->partitions;
            for (target::Partition& partition : m_result.partitions)
                partition.line = 0; // written before this job
            m_result.pic = after->pic;
            m_result.picKnown = after->picKnown;
        }
        m_result.pcJob = options.pcJob;
        m_result.updater = profile.updater;
        m_name = !options.archiveName.isEmpty() ? options.archiveName
                 : pkg.folder                   ? QStringLiteral("PackageM_firmware_update.tar.bz2")
                                                : pkg.fileName;
        m_result.packageName = pkg.folder && options.archiveName.isEmpty() ? pkg.origin : m_name;
    }

    Prediction run();

private:
    static std::shared_ptr<rootfs::Tree> startTree(const profile::Profile& profile, const Prediction* after)
    {
        if (!after)
            return std::make_shared<rootfs::Tree>(profile);
        auto tree = std::make_shared<rootfs::Tree>(*after->root);
        tree->startHere();
        return tree;
    }

    const package::Package& m_pkg;
    Prediction m_result;
    std::shared_ptr<rootfs::Tree> m_tree;
    QVector<target::Note> m_notes;
    target::Context m_context;
    QString m_name;
    SystemType m_systemType = SystemType::Nand;
    int m_systemLine = 0; // 0: the type came from an earlier package or is the updater's first
    QString systemSetter() const
    {
        return m_systemLine > 0 ? QStringLiteral("line %1").arg(m_systemLine)
                                : QStringLiteral("an earlier package");
    }
    Line* m_line = nullptr; // the line running
    QSet<QString> m_read;   // paths of the unpacked package that commands name
    bool m_hung = false, m_unknown = false;

    bool m_afterList = false;
    int lineNumber() const { return m_afterList ? -1 : m_line ? m_line->number : 0; }

    view::Emulator m_view;
    void view(const QString& text, Colour colour = Colour::Plain, bool replace = false)
    {
        Event e;
        e.line = lineNumber();
        e.colour = colour;
        e.text = text;
        const QString appended =
            colour == Colour::Plain
                ? text
                : QStringLiteral("<p style=\"color:%1\">%2</p>").arg(colourName(colour), text);
        const view::Shown shown = replace ? m_view.setText(appended) : m_view.append(appended);
        e.shown = shown.text;
        e.shownColour = shown.colour;
        m_result.events.push_back(e);
    }
    void red(const QString& text) { view(text, Colour::Red); }

    void finding(const QString& rule, const QString& message)
    {
        m_result.findings.push_back({rule, lineNumber(), m_line ? m_line->text : QString(), message});
    }

    // Runs one command line; `counted`: its failure fails the step (and is a finding).
    bool command(const QString& commandLine, bool counted = true);
    void notes();
    QString refine(const QString& rule) const;

    void preamble();
    bool unpack();
    QStringList commandList();
    void commandLine(Line& line);
    bool remount();
    bool step(bool ok)
    {
        if (!ok && m_line->command && m_line->command->failure)
            red(QString::fromLatin1(m_line->command->failure).arg(m_line->argument));
        m_line->failed = m_line->failed || !ok;
        return ok;
    }
    void system(Line& line);
    void kernel(Line& line);
    void image(Line& line);
    bool rootFile(const QString& argument);
    void modules(Line& line);
    void picStep(Line& line);
    void payloadChecks(Line& line);
    void packageChecks();
    void unusedPayloads();
    void recordWrites(QVector<Write>& writes);
};

QString Job::refine(const QString& rule) const
{
    if (!m_line || !m_line->command || rule == QLatin1String("instrument-broken"))
        return rule;
    const QString& arg = m_line->argument;
    QString trimmed = arg;
    while (!trimmed.isEmpty() && trimmed.back().isSpace())
        trimmed.chop(1);
    if (hasBlank(trimmed))
        return QStringLiteral("arg-blank");
    if (!arg.isEmpty() && !arg.startsWith('/') && m_line->command->action != Action::Updater)
        return QStringLiteral("arg-no-slash");
    if (rule.endsWith(QLatin1String("-trailing-slash")))
        return QStringLiteral("arg-trailing-slash");
    if (rule.endsWith(QLatin1String("-dotdot")))
        return QStringLiteral("arg-dotdot");
    return rule;
}

bool Job::command(const QString& commandLine, bool counted)
{
    m_context.line = lineNumber();
    const Outcome out = target::run(commandLine, m_context);
    Event e;
    e.type = Event::Type::Run;
    e.line = lineNumber();
    e.text = out.argv;
    e.command = commandLine;
    e.exit = out.exit;
    e.traced = out.traced;
    m_result.events.push_back(e);
    notes();
    if (out.exit == Exit::Unknown) {
        m_unknown = true;
        if (m_line)
            m_line->uncertain = true;
        finding(QStringLiteral("model-unknown"), out.message);
        return true;
    }
    if (out.exit != Exit::Success && counted)
        finding(refine(out.rule), QStringLiteral("\"%1\" fails: %2").arg(commandLine, out.message));
    return out.exit == Exit::Success;
}

void Job::notes()
{
    for (const target::Note& note : m_notes) {
        if (note.rule == QLatin1String("script-effects")) { // not a finding: the comparison allows for it
            if (m_line)
                m_line->scriptEffects = true;
            continue;
        }
        if (note.rule == QLatin1String("script-syncs")) { // not a finding: the write-back ends there
            if (m_line)
                m_line->syncs = true;
            continue;
        }
        finding(note.rule, note.message);
    }
    m_notes.clear();
}

// The paths a step left other than the instrument had them, sorted.
void Job::recordWrites(QVector<Write>& writes)
{
    QStringList paths = m_tree->takeTouched();
    paths.sort();
    for (const QString& path : paths) {
        const rootfs::Node now = m_tree->at(path);
        if (!rootfs::sameState(now, m_tree->original(path)))
            writes.push_back({path, now});
    }
}

// The technician's keys up to the mounted medium (the virtual instrument's stick has one partition).
void Job::preamble()
{
    const auto unmountAll = [&] {
        for (const char* dir : {"/mnt/update", "/run/media/mmcblk0p6", "/run/media/sda1"})
            command(QStringLiteral("umount ") + QLatin1String(dir), false);
    };
    // The package on the medium; tar reads it as the package already read.
    auto archive = std::make_shared<rootfs::Inode>();
    archive->known = true;
    archive->size = m_pkg.folder ? 0 : QFileInfo(m_pkg.origin).size();
    archive->sha256 =
        QCryptographicHash::hash("package:" + m_pkg.origin.toUtf8(), QCryptographicHash::Sha256);
    m_context.archives.insert(archive->sha256, &m_pkg);
    if (m_result.pcJob) {
        m_context.media.insert(QStringLiteral("/dev/mmcblk0p6"), {m_name, archive});
        view(QStringLiteral("Attach the unit to the PC via the USB cable provided then press F1\n"),
             Colour::Plain, true);
        unmountAll();
        view(QStringLiteral("Initialising PC connection"));
        command(QStringLiteral("modprobe g_mass_storage file=/dev/mmcblk0p6 removable=1"), false);
        view(QStringLiteral("Copy the firmware_update_tar.bz2 file to the unit and press F1\n"));
        unmountAll();
        command(QStringLiteral("modprobe -r g_mass_storage"), false);
        view(QStringLiteral("Processing update\n"));
        command(QStringLiteral("mount /dev/mmcblk0p6 /mnt/update"), false);
    } else {
        m_context.media.insert(QStringLiteral("/dev/sda1"), {m_name, archive});
        view(QStringLiteral(
                 "Insert a memory stick containing the update_firmware.tar.bz2 file into the unit then "
                 "press F1\n"),
             Colour::Plain, true);
        unmountAll();
        view(QStringLiteral("Processing update\n"));
        command(QStringLiteral("echo 1 > /sys/bus/usb/devices/1-1.2/bConfigurationValue"), false);
        if (!command(QStringLiteral("mount /dev/sda /mnt/update"), false))
            command(QStringLiteral("mount /dev/sda1 /mnt/update"), false);
    }
}

// The package found, unpacked and its command list opened; false when the job ends there.
bool Job::unpack()
{
    view(QStringLiteral("Extracting update, please do not interrupt...\n"));
    // QDir's listing: the name pattern (any case), hidden names left out.
    if (!package::nameMatches(m_name) || m_name.startsWith('.')) {
        finding(QStringLiteral("package-name"),
                QStringLiteral(
                    "the updater looks for exactly one file named *M_firmware_update*.tar.bz2 and "
                    "will report \"%1\": rename the package, e.g. to ProductM_firmware_update_1.0.tar.bz2")
                    .arg(grammar::noPackage));
        red(noPackageLine);
        m_result.end = End::NoPackage;
        return false;
    }
    const QString extract = QStringLiteral("tar -xf /mnt/update/") + m_name + QStringLiteral(" -C /tmp");
    m_context.line = 0;
    const Outcome out = target::run(extract, m_context);
    Event e;
    e.type = Event::Type::Run;
    e.text = out.argv;
    e.command = extract;
    e.exit = out.exit;
    m_result.events.push_back(e);
    notes();
    if (out.exit != Exit::Success) {
        if (hasBlank(m_name))
            finding(QStringLiteral("package-name-blank"),
                    QStringLiteral("the updater runs \"%1\", which is split at the blank: %2")
                        .arg(extract, out.message));
        else
            finding(out.rule, QStringLiteral("unpacking the package fails: %1").arg(out.message));
        red(extractFailedLine);
        m_result.end = End::ExtractFailed;
        return false;
    }
    recordWrites(m_result.preambleWrites);
    view(QStringLiteral("Reading update file\nCommand list: "));
    return true;
}

// Read as the updater reads it: a text-mode device and QTextStream::readLine.
QStringList Job::commandList()
{
    const rootfs::Lookup l = m_tree->resolve(grammar::unpacked + QStringLiteral("/update_config"), true);
    if (l.err != rootfs::Err::None || !l.node || l.node->kind != Kind::File) {
        const bool missing = !m_pkg.find(package::commandListPath);
        finding(
            missing ? QStringLiteral("command-list-missing") : QStringLiteral("command-list-unreadable"),
            QStringLiteral(
                "no readable firmware_update/update_config: the updater reports \"%1\" and runs no command")
                .arg(grammar::noCommandList));
        red(noCommandListLine);
        m_result.end = End::NoCommandList;
        return {};
    }
    m_read.insert(l.path);
    if (!l.node->known) {
        finding(QStringLiteral("model-unknown"),
                QStringLiteral("update_config is a link to one of the instrument's files"));
        m_result.end = End::Unknown;
        return {};
    }
    QByteArray bytes = l.node->data;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly | QIODevice::Text);
    QTextStream stream(&buffer);
    QStringList lines;
    while (!stream.atEnd())
        lines << stream.readLine();
    if (std::any_of(bytes.begin(), bytes.end(), [](char c) { return uchar(c) >= 0x80; }))
        finding(QStringLiteral("command-list-not-ascii"),
                QStringLiteral(
                    "update_config holds bytes that are not ASCII: paths must match the package's names "
                    "byte for byte"));
    if (lines.isEmpty())
        finding(QStringLiteral("command-list-empty"),
                QStringLiteral("the command list is empty: the updater changes nothing and reports \"%1\"")
                    .arg(grammar::updateComplete));
    return lines;
}

bool Job::remount()
{
    const QString line = grammar::remount(m_systemType);
    m_context.line = lineNumber();
    const Outcome out = target::run(line, m_context);
    Event e;
    e.type = Event::Type::Run;
    e.line = lineNumber();
    e.text = out.argv;
    e.command = line;
    e.exit = out.exit;
    e.traced = out.traced;
    m_result.events.push_back(e);
    if (out.exit == Exit::Success)
        return true;
    if (out.rule == QLatin1String("instrument-broken"))
        finding(out.rule, QStringLiteral("\"%1\" cannot start: %2").arg(line, out.message));
    else if (line.isEmpty())
        finding(
            QStringLiteral("remount-unknown-type"),
            QStringLiteral("the remount fails: %1 left the system type unknown, so its command line is empty")
                .arg(systemSetter()));
    else
        finding(QStringLiteral("remount-fails"), QStringLiteral("\"%1\" fails: %2").arg(line, out.message));
    return false;
}

void Job::system(Line& line)
{
    const QString& arg = line.argument;
    const bool known = arg == QLatin1String("SDCARD") || arg == QLatin1String("NAND");
    view(known ? grammar::systemSet.arg(arg) : grammar::systemUnknown.arg(arg));
    m_systemLine = line.number;
    m_systemType = arg == QLatin1String("SDCARD") ? SystemType::SdCard : SystemType::Unknown;
    if (arg == QLatin1String("NAND"))
        finding(QStringLiteral("system-nand"),
                QStringLiteral(
                    "SYSTEM:NAND sets the unknown system type, not NAND: later KERNEL lines are skipped, "
                    "IMAGE fails and APP, FILE, UPDATER fail to remount; a NAND package leaves the SYSTEM "
                    "line out"));
    else if (!known)
        finding(QStringLiteral("system-unknown"),
                QStringLiteral(
                    "unknown system type '%1': later KERNEL lines are skipped, IMAGE fails and APP, FILE, "
                    "UPDATER fail to remount; use SDCARD, or no SYSTEM line for NAND")
                    .arg(arg));
}

void Job::kernel(Line& line)
{
    const QString& arg = line.argument;
    if (m_systemType == SystemType::Unknown) {
        finding(
            QStringLiteral("kernel-skipped"),
            QStringLiteral("skipped without a word: %1 left the system type unknown, so the kernel is not "
                           "written and the line counts as done")
                .arg(systemSetter()));
        return;
    }
    if (m_systemType == SystemType::SdCard) {
        step(command(grammar::sdKernel.arg(arg)));
        return;
    }
    step(command(grammar::eraseKernel) && command(grammar::nandKernel.arg(arg)));
}

void Job::image(Line& line)
{
    const QString& arg = line.argument;
    if (m_systemType != SystemType::Nand) {
        red(grammar::imageWrongType.arg(arg));
        line.failed = true;
        finding(
            QStringLiteral("image-wrong-type"),
            m_systemType == SystemType::SdCard
                ? QStringLiteral("IMAGE works on NAND systems only: after SYSTEM:SDCARD (%1) it fails with "
                                 "\"Wrong System type\"")
                      .arg(systemSetter())
                : QStringLiteral("%1 left the system type unknown: IMAGE fails with \"Wrong System type\"")
                      .arg(systemSetter()));
        return;
    }
    const int before = m_result.findings.size();
    const bool ok = command(grammar::copyFormatter) && command(grammar::copyImage.arg(arg)) &&
                    command(grammar::eraseRoot) && command(grammar::formatRoot.arg(arg));
    if (!ok)
        red(QString::fromLatin1(line.command->failure).arg(arg));
    line.failed = !ok;
    // ubiformat misses an image that was copied to /tmp under its own name only.
    if (!ok && m_result.findings.size() > before && arg.lastIndexOf('/') > 0 &&
        m_result.findings.back().rule == QLatin1String("image-missing-after-erase"))
        m_result.findings.back().rule = QStringLiteral("image-subfolder");
}

bool Job::rootFile(const QString& argument)
{
    command(grammar::unmountCard, false);
    return remount() && command(grammar::copyRootFile.arg(argument));
}

void Job::modules(Line& line)
{
    step(command(grammar::removeModules) && command(grammar::unpackModules.arg(line.argument)));
}

void Job::picStep(Line& line)
{
    const QString index = line.keyword.mid(3);
    const int number = index.toInt(nullptr, 10);
    view(QStringLiteral("Updating PIC %1 with file: %2").arg(index, line.argument));
    if (!index.isEmpty() && QString::number(number) != index)
        finding(QStringLiteral("pic-index-text"),
                QStringLiteral("the progress line shows the index as '%1', a failure line as PIC[%2]")
                    .arg(index)
                    .arg(number));
    const auto failed = [&] {
        red(QStringLiteral("Failed - Updating PIC[%1] with file %2")
                .arg(QString::number(number), line.argument));
        line.failed = true;
    };
    const QString path = grammar::unpacked + line.argument;
    const rootfs::Lookup l = m_tree->resolve(path, true);
    if (l.err != rootfs::Err::None || !l.node) {
        finding(QStringLiteral("pic-file-missing"),
                QStringLiteral("%1 does not exist: the PIC step fails at once").arg(path));
        failed();
        return;
    }
    m_read.insert(l.path);
    view(QStringLiteral("Erasing PIC: "));
    view(QStringLiteral("0% "), Colour::Orange);
    const pic::Memory before = m_result.picKnown ? m_result.pic : pic::blankChip();
    m_result.picProgrammed = m_result.picKnown = true;
    m_result.pic = pic::program(QByteArray(), before).memory; // the erase
    view(QStringLiteral("PIC Erase Complete\nProgramming PIC: "));
    view(QStringLiteral("0% "), Colour::Orange);
    if (l.node->kind == Kind::Directory) {
        finding(QStringLiteral("pic-folder-hangs"),
                QStringLiteral(
                    "%1 is a folder: the PIC is erased, the folder cannot be read as HEX and the updater "
                    "waits forever")
                    .arg(path));
        line.hangs = m_hung = true;
        return;
    }
    if (!l.node->known) {
        finding(QStringLiteral("model-unknown"),
                QStringLiteral("%1 is one of the instrument's files").arg(path));
        line.uncertain = m_unknown = true;
        return;
    }
    const QString file = path.mid(path.lastIndexOf('/') + 1);
    const hex::File strict = hex::parse(l.node->data);
    for (const hex::Problem& p : strict.problems) {
        if (p.rule != QLatin1String("hex-record-type")) // the replay below names what such records do
            finding(p.rule, QStringLiteral("%1:%2: %3").arg(file).arg(p.line).arg(p.message));
    }
    const pic::Result result = pic::program(l.node->data, before);
    for (const pic::Note& note : result.notes)
        finding(note.rule, QStringLiteral("%1:%2: %3").arg(file).arg(note.hexLine).arg(note.message));
    m_result.pic = result.memory;
    line.picWritten = result.written;
    for (int i = 0; i < result.memory.config.size(); ++i) {
        if (result.memory.config[i] != before.config[i])
            line.picConfig << QStringLiteral("%1 = %2").arg(
                hex::hexNumber(0x300000 + quint32(i), 6), hex::hexNumber(quint8(result.memory.config[i]), 2));
    }
    if (!result.programmed)
        failed();
}

void Job::commandLine(Line& line)
{
    const QStringList parts = grammar::split(line.text);
    if (parts.size() != 2) {
        red(grammar::badFormat);
        line.failed = true;
        finding(line.text.isEmpty() ? QStringLiteral("line-empty")
                : parts.size() == 1 ? QStringLiteral("line-no-colon")
                                    : QStringLiteral("line-colons"),
                line.text.isEmpty()
                    ? QStringLiteral("an empty line is a bad command format: the update ends red; remove it")
                : parts.size() == 1
                    ? QStringLiteral(
                          "no ':' in the line: a bad command format (there are no comment lines); remove it")
                    : QStringLiteral("%1 colons: a bad command format (an argument cannot contain ':')")
                          .arg(parts.size() - 1));
        return;
    }
    line.keyword = parts[0];
    line.argument = parts[1];
    line.command = grammar::match(line.keyword);
    if (!line.command) {
        red(grammar::unknownCommand.arg(line.keyword, line.argument));
        line.failed = true;
        const grammar::Command* meant = grammar::match(line.keyword.trimmed().toUpper());
        finding(QStringLiteral("keyword-unknown"),
                meant ? QStringLiteral(
                            "unknown command '%1' (keywords are upper case and take no blanks): write %2")
                            .arg(line.keyword, QLatin1String(meant->keyword))
                      : QStringLiteral("unknown command '%1'").arg(line.keyword));
        return;
    }
    if (line.command->match == grammar::Match::Contains &&
        line.keyword != QLatin1String(line.command->keyword) &&
        !(line.command->action == Action::Pic && line.keyword.startsWith(QLatin1String("PIC"))))
        finding(QStringLiteral("keyword-contains"),
                QStringLiteral("the keyword '%1' only contains %2: the updater takes it as that command")
                    .arg(line.keyword, QLatin1String(line.command->keyword)));
    const QString& arg = line.argument;
    if (line.command->action != Action::System) {
        const rootfs::Lookup named = m_tree->resolve(grammar::unpacked + arg, true);
        line.payload = named.path;
        m_read.insert(named.path);
        m_read.insert(m_tree->resolve(grammar::unpacked + arg, false).path);
        m_read.insert(m_tree->resolve(grammar::unpacked + arg.trimmed(), true).path);
    }
    if (line.command->progress && line.command->action != Action::Pic)
        view(QString::fromLatin1(line.command->progress).arg(arg));
    const int findingsBefore = m_result.findings.size();
    switch (line.command->action) {
    case Action::System:
        system(line);
        break;
    case Action::App:
        step(remount());
        step(command(grammar::copyApp.arg(arg)));
        break;
    case Action::Kernel:
        kernel(line);
        break;
    case Action::Image:
        image(line);
        break;
    case Action::File:
        step(rootFile(arg));
        break;
    case Action::Updater:
        step(command(grammar::removeFile.arg(arg)));
        step(rootFile(arg));
        break;
    case Action::Modules:
        modules(line);
        break;
    case Action::Script:
        step(command(grammar::runScript.arg(arg)));
        break;
    case Action::Pic:
        picStep(line);
        break;
    case Action::Esa:
        red(grammar::esaDisabled);
        step(false);
        finding(QStringLiteral("esa-disabled"),
                QStringLiteral(
                    "every ESA line fails in this updater: ESA loading is switched off (\"%1\"); load the "
                    "board another way and remove the line")
                    .arg(grammar::esaDisabled));
        break;
    }
    QString trimmed = arg;
    while (!trimmed.isEmpty() && trimmed.back().isSpace())
        trimmed.chop(1);
    const bool failedHere =
        std::any_of(m_result.findings.begin() + findingsBefore, m_result.findings.end(),
                    [](const Finding& f) { return rules::severityOf(f.rule) == rules::Severity::Error; });
    if (trimmed != arg && !hasBlank(trimmed) && !failedHere && line.command->action != Action::System)
        finding(QStringLiteral("arg-trailing-blank"),
                QStringLiteral(
                    "the argument ends in a blank: the view shows it, the target command line drops it"));
    payloadChecks(line);
}

// The package's file the line names, judged as the instrument will use it (payload/Check.h). A rule the
// line's commands already broke is not reported twice.
void Job::payloadChecks(Line& line)
{
    const auto role = payload::roleOf(line.keyword);
    const QString unpacked = grammar::unpacked + '/';
    if (!role || !line.payload.startsWith(unpacked))
        return;
    const package::Entry* entry = m_pkg.find(package::topFolder + '/' + line.payload.mid(unpacked.size()));
    if (!entry)
        return;
    line.payloadKind = payload::describe(*entry, *role);
    const QString device = payload::deviceFor(*role, m_systemType == SystemType::SdCard);
    for (const payload::Finding& f : payload::check(m_pkg, *entry, *role, m_context.profile, device)) {
        const bool reported =
            std::any_of(m_result.findings.begin(), m_result.findings.end(),
                        [&](const Finding& o) { return o.line == line.number && o.rule == f.ruleId; });
        if (!reported)
            finding(f.ruleId, f.message);
    }
}

void Job::packageChecks()
{
    if (!m_pkg.folder && m_pkg.compression != QLatin1String("bzip2"))
        finding(
            QStringLiteral("package-compression"),
            QStringLiteral("compressed with %1, not bzip2: the instrument's tar unpacks it all the same, but "
                           "update-package build writes bzip2")
                .arg(m_pkg.compression));
    for (const package::Entry& entry : m_pkg.entries) {
        if (entry.rawName.startsWith('/'))
            finding(
                QStringLiteral("package-member-absolute"),
                QStringLiteral(
                    "member '%1' has an absolute name: tar strips the leading '/' and unpacks it below /tmp")
                    .arg(entry.rawName));
        if (entry.name != package::topFolder && !entry.name.startsWith(package::topFolder + '/') &&
            !entry.name.split('/').contains(QStringLiteral("..")) && entry.name != QLatin1String("."))
            finding(QStringLiteral("package-member-outside"),
                    QStringLiteral(
                        "member '%1' lies outside firmware_update/: it is unpacked into /tmp but no command "
                        "can name it")
                        .arg(entry.name));
        if (entry.type == package::EntryType::Symlink) {
            const QString target =
                entry.link.startsWith('/')
                    ? entry.link
                    : QStringLiteral("/tmp/") + entry.name.section('/', 0, -2) + '/' + entry.link;
            if (entry.link.startsWith('/') || !QDir::cleanPath(target).startsWith(grammar::unpacked + '/'))
                finding(
                    QStringLiteral("package-link-outside"),
                    QStringLiteral("link '%1' points out of the package (%2): a command naming it reads the "
                                   "instrument's own file")
                        .arg(entry.name, entry.link));
        }
        if (entry.size >= qint64(1) << 30)
            finding(QStringLiteral("package-large-member"),
                    QStringLiteral(
                        "%1 is %2: the package is unpacked into /tmp, which lives in the instrument's memory")
                        .arg(entry.name, package::sizeText(entry.size)));
    }
}

void Job::unusedPayloads()
{
    for (const package::Entry& entry : m_pkg.entries) {
        const QString path = QStringLiteral("/tmp/") + entry.name;
        if (entry.type == package::EntryType::File && entry.name.startsWith(package::topFolder + '/') &&
            !m_read.contains(path))
            finding(QStringLiteral("payload-unused"),
                    QStringLiteral("%1 is not named by any command").arg(entry.name));
    }
}

Prediction Job::run()
{
    packageChecks();
    preamble();
    m_tree->takeTouched();
    if (unpack()) {
        const QStringList texts = commandList();
        if (m_result.end == End::Complete) {
            for (const QString& text : texts)
                view(text);
            view(QStringLiteral("\n"));
            m_result.lines.reserve(texts.size()); // m_line points into it
            for (int i = 0; i < texts.size(); ++i) {
                m_result.lines.push_back(Line{});
                m_line = &m_result.lines.back();
                m_line->number = i + 1;
                m_line->text = texts[i];
                m_tree->setLine(m_line->number);
                commandLine(*m_line);
                recordWrites(m_line->writes);
                for (auto it = m_result.partitions.begin(); it != m_result.partitions.end(); ++it) {
                    if (it->line == m_line->number && !m_line->partitions.contains(it.key()))
                        m_line->partitions << it.key();
                }
                if (m_hung)
                    break;
            }
            m_line = nullptr;
            m_afterList = true;
            m_tree->setLine(-1);
            if (m_hung) {
                m_result.end = End::Hang;
            } else {
                const bool failed = std::any_of(m_result.lines.begin(), m_result.lines.end(),
                                                [](const Line& l) { return l.failed; });
                view(grammar::finalising);
                command(QStringLiteral("sync"), false);
                view(QStringLiteral("Removing temporary files\n"));
                if (m_result.pcJob)
                    command(QStringLiteral("sync"), false);
                command(QStringLiteral("umount /mnt/update"), false);
                m_result.end = failed ? End::Failed : m_unknown ? End::Unknown : End::Complete;
                if (failed)
                    red(endFailed);
                else
                    view(endComplete, Colour::Green);
                if (m_result.end == End::Unknown)
                    m_result.events.back().optional = true;
            }
            m_afterList = false;
            unusedPayloads();
        }
    }
    m_result.root = m_tree;
    m_result.systemType = m_systemType;
    m_result.systemLine = m_systemLine;
    std::stable_sort(m_result.findings.begin(), m_result.findings.end(),
                     [](const Finding& a, const Finding& b) { return a.line < b.line; });
    return m_result;
}

} // namespace

bool Prediction::hasErrors() const
{
    return std::any_of(findings.begin(), findings.end(),
                       [](const Finding& f) { return rules::severityOf(f.rule) == rules::Severity::Error; });
}

QString Prediction::unknownEnd() const
{
    if (end == End::Hang)
        return QStringLiteral("the updater is predicted to wait forever in it");
    for (const Line& line : lines) {
        if (line.scriptEffects || line.uncertain)
            return QString::fromLatin1(line.scriptEffects
                                           ? "line %1 (%2) runs a script whose own commands are not predicted"
                                           : "the outcome of line %1 (%2) cannot be predicted")
                .arg(line.number)
                .arg(line.text);
    }
    if (end == End::Unknown)
        return QStringLiteral("its end cannot be predicted");
    return QString();
}

QString Prediction::endText() const
{
    switch (end) {
    case End::Complete:
        return grammar::updateComplete;
    case End::Failed:
        return grammar::updateFailed;
    case End::NoPackage:
        return grammar::noPackage;
    case End::ExtractFailed:
        return grammar::extractFailed;
    case End::NoCommandList:
        return grammar::noCommandList;
    case End::Hang:
    case End::Unknown:
        break;
    }
    return QString();
}

Prediction predict(const package::Package& pkg, const profile::Profile& profile, const Options& options)
{
    Prediction prediction = Job(pkg, profile, options).run();
    // The order warnings: moving a line is advised only when the list with it moved adds no error.
    const auto reordered = [&](const QStringList& list) -> std::optional<Prediction> {
        package::Package moved = pkg;
        const auto entry =
            std::find_if(moved.entries.begin(), moved.entries.end(),
                         [](const package::Entry& e) { return e.name == package::commandListPath; });
        if (entry == moved.entries.end() || !entry->kept())
            return std::nullopt;
        entry->data = (list.join('\n') + '\n').toUtf8();
        entry->size = entry->data.size();
        entry->sha256 = QCryptographicHash::hash(entry->data, QCryptographicHash::Sha256);
        return Job(moved, profile, options).run();
    };
    prediction.findings += exposure::orderFindings(prediction, reordered);
    std::stable_sort(prediction.findings.begin(), prediction.findings.end(),
                     [](const Finding& a, const Finding& b) { return a.line < b.line; });
    return prediction;
}

QString colourName(Colour colour)
{
    switch (colour) {
    case Colour::Plain:
        return QStringLiteral("plain");
    case Colour::Red:
        return QStringLiteral("red");
    case Colour::Green:
        return QStringLiteral("green");
    case Colour::Orange:
        return QStringLiteral("orange");
    }
    return QString();
}

QString exitName(Exit exit)
{
    switch (exit) {
    case Exit::Success:
        return QStringLiteral("succeeds");
    case Exit::Failure:
        return QStringLiteral("fails");
    case Exit::NotStarted:
        return QStringLiteral("cannot start");
    case Exit::Unknown:
        return QStringLiteral("unknown");
    }
    return QString();
}

QString endName(End end)
{
    switch (end) {
    case End::Complete:
        return QStringLiteral("complete");
    case End::Failed:
        return QStringLiteral("failed");
    case End::NoPackage:
        return QStringLiteral("no package");
    case End::ExtractFailed:
        return QStringLiteral("extraction failed");
    case End::NoCommandList:
        return QStringLiteral("no command list");
    case End::Hang:
        return QStringLiteral("hangs");
    case End::Unknown:
        return QStringLiteral("unknown");
    }
    return QString();
}

QString escaped(const QString& text)
{
    QString out = text;
    out.replace(QLatin1Char('\\'), QStringLiteral("\\\\"));
    out.replace(QLatin1Char('\n'), QStringLiteral("\\n"));
    return out;
}

} // namespace predict
