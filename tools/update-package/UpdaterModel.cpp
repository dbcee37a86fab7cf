#include "UpdaterModel.h"

#include "IntelHex.h"
#include "Pic18f4620Config.h"

#include <QBuffer>
#include <QDir>
#include <QFileInfo>
#include <QSet>
#include <QTextStream>
#include <archive.h>
#include <archive_entry.h>
#include <array>
#include <memory>

namespace model {
namespace {

using grammar::Action;
using grammar::SystemType;
using hex::hexNumber;

constexpr int hexFindingLimit = 12; // per HEX file; the rest are counted

// The lint pass over one package: the updater's state as the command list runs, and the findings.
class Analyser
{
public:
    explicit Analyser(const package::Package& pkg) : m_pkg(pkg) {}

    Analysis run();

private:
    const package::Package& m_pkg;
    Analysis m_result;
    SystemType m_systemType = SystemType::Nand;
    int m_systemLine = 0; // the SYSTEM line that set the current type
    bool m_rootWritable = false;
    QSet<QString> m_used; // archive entries a command reads

    void add(Severity severity, int line, const QString& command, const QString& message)
    {
        m_result.findings.push_back({severity, line, command, message});
    }
    // The first reason the job ends before the command list is the one the view shows.
    void stop(const QString& text)
    {
        if (m_result.packageStop.isEmpty())
            m_result.packageStop = text;
    }
    void error(const Line& line, const QString& message)
    {
        add(Severity::Error, line.number, line.text, message);
    }
    void warning(const Line& line, const QString& message)
    {
        add(Severity::Warning, line.number, line.text, message);
    }
    void fail(Line& line, const QString& message)
    {
        line.failures << fill(line, line.command->failure);
        line.effect = Effect::Fails;
        error(line, message);
    }
    // The PIC failure line names the index as a number (0 when the index text is not one).
    static void picFailed(Line& line)
    {
        line.failures
            << QString::fromLatin1(line.command->failure).arg(line.keyword.mid(3).toInt()).arg(line.argument);
        line.effect = Effect::Fails;
    }
    static QString fill(const Line& line, const char* text)
    {
        return QString::fromLatin1(text).arg(line.argument);
    }

    void checkArchive();
    QStringList readCommandList();
    void analyseLine(Line& line);
    const package::Entry* payload(Line& line, bool splitAtBlanks);
    bool remount(Line& line, const QString& step);
    void system(Line& line);
    void app(Line& line);
    void kernel(Line& line);
    void image(Line& line);
    bool rootFile(Line& line);
    void updater(Line& line);
    void modules(Line& line);
    void script(Line& line);
    void pic(Line& line);
    void picRecords(Line& line, const QString& file, const hex::File& hexFile);
    void unusedPayloads();
};

// The archive entry the updater's path "/tmp/firmware_update" + argument names; empty when that path
// does not lie inside the package (no leading '/', or '..' climbing out).
QString entryName(const QString& argument)
{
    const QString path = QDir::cleanPath(grammar::unpacked + argument);
    if (!argument.startsWith('/') || !path.startsWith(grammar::unpacked + '/'))
        return QString();
    return package::topFolder + path.mid(grammar::unpacked.size());
}

bool climbsOut(const QString& name)
{
    return name.split(QLatin1Char('/')).contains(QStringLiteral(".."));
}

void Analyser::checkArchive()
{
    const Line whole{};
    if (!m_pkg.folder) {
        if (!package::nameMatches(m_pkg.fileName)) {
            error(whole,
                  QStringLiteral("the updater looks for exactly one file named *M_firmware_update*.tar.bz2 "
                                 "and will report \"%1\": rename the package, e.g. to "
                                 "ProductM_firmware_update_1.0.tar.bz2")
                      .arg(grammar::noPackage));
            stop(grammar::noPackage);
        }
        if (m_pkg.compression != QLatin1String("bzip2"))
            warning(whole,
                    QStringLiteral("compressed with %1, not bzip2: the instrument's tar unpacks it all the "
                                   "same, but update-package build writes bzip2")
                        .arg(m_pkg.compression));
    }
    for (const package::Entry& entry : m_pkg.entries) {
        if (climbsOut(entry.name)) {
            error(whole, QStringLiteral("entry '%1' climbs out of the folder: tar refuses it and the updater "
                                        "reports \"%2\" without running any command")
                             .arg(entry.name, grammar::extractFailed));
            stop(grammar::extractFailed);
            continue;
        }
        if (entry.name.startsWith('/')) {
            warning(whole,
                    QStringLiteral("entry '%1' has an absolute name: tar strips the leading '/' and unpacks "
                                   "it below /tmp")
                        .arg(entry.name));
            continue;
        }
        if (entry.name != package::topFolder && !entry.name.startsWith(package::topFolder + '/')) {
            warning(whole,
                    QStringLiteral("entry '%1' lies outside firmware_update/: it is unpacked into /tmp but "
                                   "no command can name it")
                        .arg(entry.name));
            continue;
        }
        if (entry.type == package::EntryType::Symlink) {
            const QString target = QDir::cleanPath(QFileInfo(QLatin1Char('/') + entry.name).path() +
                                                   QLatin1Char('/') + entry.link);
            if (entry.link.startsWith('/') || !target.startsWith(QLatin1Char('/') + package::topFolder + '/'))
                error(whole,
                      QStringLiteral("link '%1' points out of the package (%2): a command naming it reads "
                                     "the instrument's own file")
                          .arg(entry.name, entry.link));
        } else if (entry.type == package::EntryType::Other) {
            warning(whole,
                    QStringLiteral("entry '%1' is neither a file, a folder nor a link").arg(entry.name));
        }
        if (entry.size >= qint64(1) << 30)
            error(whole,
                  QStringLiteral("%1 is %2: the package is unpacked into /tmp, which lives in the memory of "
                                 "the instrument's 32-bit board; unpacking fails with \"%3\"")
                      .arg(entry.name, package::sizeText(entry.size), grammar::extractFailed));
    }
}

QStringList Analyser::readCommandList()
{
    const Line whole{};
    const package::Entry* list = m_pkg.find(package::commandListPath);
    if (!list || list->type != package::EntryType::File) {
        error(whole,
              QStringLiteral("no firmware_update/update_config: the updater reports \"%1\" and runs no "
                             "command")
                  .arg(grammar::noCommandList));
        stop(grammar::noCommandList);
        return {};
    }
    m_used.insert(list->name);
    if (!list->kept()) {
        error(whole, QStringLiteral("update_config is %1: far too large for a command list, not read")
                         .arg(package::sizeText(list->size)));
        return {};
    }
    // Read exactly as the updater reads it: a text-mode device and QTextStream::readLine.
    QByteArray bytes = list->data;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly | QIODevice::Text);
    QTextStream stream(&buffer);
    QStringList lines;
    while (!stream.atEnd())
        lines << stream.readLine();
    for (const char c : list->data) {
        if (uchar(c) >= 0x80) {
            warning(whole,
                    QStringLiteral("update_config holds bytes that are not ASCII: paths must match the "
                                   "package's names byte for byte"));
            break;
        }
    }
    if (lines.isEmpty())
        warning(whole,
                QStringLiteral("the command list is empty: the updater changes nothing and reports \"%1\"")
                    .arg(grammar::updateComplete));
    return lines;
}

const package::Entry* Analyser::payload(Line& line, bool splitAtBlanks)
{
    QString arg = line.argument;
    if (splitAtBlanks) {
        // The target command line is split at blanks (quotes group): only trailing blanks are harmless.
        while (!arg.isEmpty() && arg.back().isSpace())
            arg.chop(1);
        if (arg.contains(QLatin1Char('"')) ||
            std::any_of(arg.begin(), arg.end(), [](QChar c) { return c.isSpace(); })) {
            fail(line,
                 QStringLiteral("the argument holds a blank or a quote: the target command line is split "
                                "there, so the command gets the wrong arguments; remove it"));
            return nullptr;
        }
        if (arg != line.argument)
            warning(line, QStringLiteral("the argument ends in a blank: the target command line drops it"));
    }
    if (!arg.startsWith('/')) {
        fail(line,
             QStringLiteral("the argument must begin with '/': the updater appends it to %1, which gives "
                            "%1%2")
                 .arg(grammar::unpacked, arg));
        return nullptr;
    }
    const QString name = entryName(arg);
    if (name.isEmpty()) {
        fail(line, QStringLiteral("the argument names %1, outside the package")
                       .arg(QDir::cleanPath(grammar::unpacked + arg)));
        return nullptr;
    }
    const package::Entry* entry = m_pkg.find(name);
    line.payload = name;
    if (!entry) {
        fail(line, QStringLiteral("the package has no %1: the command fails; add the file or fix the path")
                       .arg(name));
        return nullptr;
    }
    m_used.insert(name);
    if (entry->type == package::EntryType::Directory) {
        fail(line, QStringLiteral("%1 is a folder, not a file: the command fails").arg(name));
        return nullptr;
    }
    return entry;
}

// Runs the remount step; false when it fails (unknown system type).
bool Analyser::remount(Line& line, const QString& step)
{
    const QString command = grammar::remount(m_systemType);
    line.runs << (command.isEmpty() ? QStringLiteral("(empty command line)") : command);
    if (!command.isEmpty()) {
        m_rootWritable = true;
        return true;
    }
    fail(line,
         QStringLiteral("%1 fails: line %2 left the system type unknown, so the remount command is empty")
             .arg(step)
             .arg(m_systemLine));
    return false;
}

void Analyser::system(Line& line)
{
    const QString& arg = line.argument;
    line.head = (arg == QLatin1String("SDCARD") || arg == QLatin1String("NAND"))
                    ? grammar::systemSet.arg(arg)
                    : grammar::systemUnknown.arg(arg);
    m_systemLine = line.number;
    if (arg == QLatin1String("SDCARD")) {
        m_systemType = SystemType::SdCard;
        return;
    }
    m_systemType = SystemType::Unknown;
    line.effect = Effect::Silent;
    error(
        line,
        arg == QLatin1String("NAND")
            ? QStringLiteral("SYSTEM:NAND sets the unknown system type, not NAND: later KERNEL lines are "
                             "skipped, IMAGE fails and APP, FILE, UPDATER fail to remount; a NAND package "
                             "leaves the SYSTEM line out")
            : QStringLiteral("unknown system type '%1': later KERNEL lines are skipped, IMAGE fails and APP, "
                             "FILE, UPDATER fail to remount; use SDCARD, or no SYSTEM line for NAND")
                  .arg(arg));
}

void Analyser::app(Line& line)
{
    remount(line, QStringLiteral("the remount before the copy"));
    line.runs << grammar::copyApp.arg(line.argument);
    line.writes << QStringLiteral("/home/mainApp");
    payload(line, true);
}

void Analyser::kernel(Line& line)
{
    if (m_systemType == SystemType::Unknown) {
        line.effect = Effect::Silent;
        error(line,
              QStringLiteral("skipped without a word: line %1 left the system type unknown, so the kernel is "
                             "not written and the line counts as done")
                  .arg(m_systemLine));
        return;
    }
    if (m_systemType == SystemType::SdCard) {
        line.runs << grammar::sdKernel.arg(line.argument);
        line.writes << QStringLiteral("/dev/mmcblk0");
    } else {
        line.runs << grammar::eraseKernel << grammar::nandKernel.arg(line.argument);
        line.writes << QStringLiteral("/dev/mtd0");
    }
    if (!payload(line, true) && m_systemType == SystemType::Nand)
        error(line, QStringLiteral("the kernel partition /dev/mtd0 is erased before the write fails"));
}

void Analyser::image(Line& line)
{
    if (m_systemType != SystemType::Nand) {
        line.failures << grammar::imageWrongType.arg(line.argument);
        line.effect = Effect::Fails;
        error(line,
              m_systemType == SystemType::SdCard
                  ? QStringLiteral("IMAGE runs on NAND systems only: after SYSTEM:SDCARD (line %1) it fails "
                                   "with \"Wrong System type\"")
                        .arg(m_systemLine)
                  : QStringLiteral("line %1 left the system type unknown: IMAGE fails with \"Wrong System "
                                   "type\"")
                        .arg(m_systemLine));
        return;
    }
    line.runs << grammar::copyFormatter << grammar::copyImage.arg(line.argument);
    if (!payload(line, true))
        return;
    line.runs << grammar::eraseRoot << grammar::formatRoot.arg(line.argument);
    line.writes << QStringLiteral("/dev/mtd1");
    if (line.argument.lastIndexOf('/') > 0)
        fail(line,
             QStringLiteral("the image must lie in the package's top folder: it is copied to /tmp under its "
                            "own name but formatted from /tmp%1, which does not exist, after /dev/mtd1 was "
                            "already erased")
                 .arg(line.argument));
}

// updateRootfs: unmount the card, remount, copy to the same absolute path. False when it fails.
bool Analyser::rootFile(Line& line)
{
    line.runs << grammar::unmountCard;
    if (!remount(line, QStringLiteral("the remount before the copy")))
        return false;
    line.runs << grammar::copyRootFile.arg(line.argument);
    line.writes << line.argument;
    return payload(line, true) != nullptr;
}

void Analyser::updater(Line& line)
{
    line.runs << grammar::removeFile.arg(line.argument);
    if (!m_rootWritable)
        fail(line, QStringLiteral("\"rm %1\" runs before the remount, while the root file system is still "
                                  "read-only: it fails (put an APP or FILE line first)")
                       .arg(line.argument));
    rootFile(line);
}

// Lists a tar archive held in memory; false when it cannot be read.
bool tarMembers(const QByteArray& data, QStringList& names)
{
    std::unique_ptr<archive, decltype(&archive_read_free)> a(archive_read_new(), archive_read_free);
    archive_read_support_filter_all(a.get());
    archive_read_support_format_tar(a.get());
    archive_read_support_format_gnutar(a.get());
    if (archive_read_open_memory(a.get(), data.constData(), size_t(data.size())) != ARCHIVE_OK)
        return false;
    archive_entry* header = nullptr;
    int r = ARCHIVE_OK;
    while ((r = archive_read_next_header(a.get(), &header)) == ARCHIVE_OK || r == ARCHIVE_WARN) {
        QString name = QString::fromUtf8(archive_entry_pathname(header));
        if (archive_entry_filetype(header) == AE_IFDIR && !name.endsWith('/'))
            name += '/';
        names << name;
        if (archive_read_data_skip(a.get()) < ARCHIVE_WARN)
            return false;
    }
    return r == ARCHIVE_EOF && !names.isEmpty();
}

void Analyser::modules(Line& line)
{
    line.runs << grammar::removeModules;
    if (!m_rootWritable) {
        fail(line,
             QStringLiteral("no earlier APP, FILE or UPDATER line has remounted the root file system "
                            "read-write, so \"rm -r /lib/modules/\" fails; put the line after one of them"));
        return;
    }
    line.runs << grammar::unpackModules.arg(line.argument);
    line.writes << QStringLiteral("/lib/modules/");
    const package::Entry* entry = payload(line, true);
    if (!entry || !entry->kept())
        return;
    QStringList names;
    if (!tarMembers(entry->data, names)) {
        fail(line, QStringLiteral("%1 is not a tar archive: tar fails after the old modules were removed")
                       .arg(entry->name));
        return;
    }
    int modules = 0;
    for (QString name : names) {
        while (name.startsWith(QLatin1String("./")))
            name.remove(0, 2);
        if (name == QLatin1String("lib/"))
            warning(line,
                    QStringLiteral("the archive holds the folder lib/ itself: unpacked over /, it replaces a "
                                   "/lib that is a link; list files only"));
        else if (name.startsWith(QLatin1String("lib/modules/")) && !name.endsWith('/'))
            ++modules;
        else if (!name.startsWith(QLatin1String("lib/")))
            warning(line,
                    QStringLiteral("'%1' in the modules archive lands at /%1 on the instrument").arg(name));
    }
    if (modules == 0) {
        line.effect = Effect::Silent;
        error(line,
              QStringLiteral("the archive holds no file under lib/modules/: the old modules are removed and "
                             "none are installed (paths must be lib/modules/...)"));
    }
}

void Analyser::script(Line& line)
{
    line.runs << grammar::runScript.arg(line.argument);
    const package::Entry* entry = payload(line, true);
    if (!entry || entry->type != package::EntryType::File)
        return;
    if ((entry->mode & 0111) == 0) {
        fail(line,
             QStringLiteral("%1 is not executable: the updater starts it directly and fails; set its mode "
                            "to 755")
                 .arg(entry->name));
        return;
    }
    const QByteArray head = entry->data.left(256);
    if (head.startsWith("\x7f"
                        "ELF"))
        return;
    if (!head.startsWith("#!")) {
        fail(line, QStringLiteral("%1 has no interpreter line: started directly it cannot run; begin it with "
                                  "#!/bin/sh")
                       .arg(entry->name));
        return;
    }
    const QByteArray interpreter = head.mid(2, head.indexOf('\n') < 0 ? -1 : head.indexOf('\n') - 2);
    if (interpreter.endsWith('\r'))
        fail(line,
             QStringLiteral("%1 ends its interpreter line with a carriage return: the interpreter is not "
                            "found; save it with Unix line ends")
                 .arg(entry->name));
    else if (!interpreter.trimmed().startsWith('/'))
        fail(line, QStringLiteral("%1: the interpreter line must name an absolute path").arg(entry->name));
}

void Analyser::pic(Line& line)
{
    const QString index = line.keyword.mid(3);
    line.head = QString::fromLatin1(line.command->progress).arg(index, line.argument);
    const int number = index.toInt();
    const auto failPic = [&](const QString& message) {
        picFailed(line);
        error(line, message);
    };
    if (line.keyword != QLatin1String("PIC") && !line.keyword.startsWith(QLatin1String("PIC")))
        warning(line,
                QStringLiteral("the keyword only contains PIC: the updater takes it as a PIC command with "
                               "index text '%1'")
                    .arg(index));
    else if (!index.isEmpty() && QString::number(number) != index)
        warning(line,
                QStringLiteral("the index '%1' is not a number: the updater shows PIC[0] on failure (the "
                               "index is not used otherwise)")
                    .arg(index));
    const QString name = entryName(line.argument);
    const package::Entry* entry = name.isEmpty() ? nullptr : m_pkg.find(name);
    line.payload = name;
    if (!entry) {
        failPic(QStringLiteral("the package has no %1%2: the PIC step fails at once")
                    .arg(grammar::unpacked, line.argument));
        return;
    }
    m_used.insert(name);
    if (entry->type == package::EntryType::Directory) {
        line.effect = Effect::Hangs;
        error(line,
              QStringLiteral("%1 is a folder: the HEX file cannot be opened and the updater waits forever")
                  .arg(name));
        return;
    }
    if (!entry->kept()) {
        failPic(QStringLiteral("%1 is %2: not a HEX file for a 64 KiB PIC, not read")
                    .arg(name, package::sizeText(entry->size)));
        return;
    }
    line.writes << QStringLiteral("PIC flash (bulk erase first)");
    picRecords(line, QFileInfo(name).fileName(), hex::parse(entry->data));
}

// Ranges of addresses as "0xSTART-0xEND", merged when adjacent.
QStringList ranges(QVector<QPair<quint32, quint32>> spans)
{
    std::sort(spans.begin(), spans.end());
    QStringList out;
    for (int i = 0; i < spans.size();) {
        quint32 from = spans[i].first, to = spans[i].second;
        for (++i; i < spans.size() && spans[i].first <= to; ++i)
            to = qMax(to, spans[i].second);
        out << QStringLiteral("%1-%2").arg(hexNumber(from, 4), hexNumber(to - 1, 4));
    }
    return out;
}

// Replays the records the way the updater's programmer reads them.
void Analyser::picRecords(Line& line, const QString& file, const hex::File& hexFile)
{
    int reported = 0, more = 0;
    const auto hexFinding = [&](Severity severity, int hexLine, const QString& message) {
        if (reported++ < hexFindingLimit)
            add(severity, line.number, line.text,
                QStringLiteral("%1:%2: %3").arg(file).arg(hexLine).arg(message));
        else
            ++more;
    };
    for (const hex::Problem& problem : hexFile.problems)
        hexFinding(Severity::Error, problem.line,
                   problem.message +
                       QStringLiteral(": the updater does not check records and uses it as read"));

    std::array<quint8, grammar::flashSize> flash;
    flash.fill(0xFF);
    QVector<QPair<quint32, quint32>> written;
    quint32 base = 0;
    bool lostData = false;
    for (const hex::Record& record : hexFile.records) {
        const int length = record.data.size();
        if (length > grammar::recordBuffer) {
            picFailed(line);
            hexFinding(
                Severity::Error, record.line,
                QStringLiteral("a record of %1 bytes: the updater takes at most %2 and ends the PIC step "
                               "with a failure here; write records of 16 or 32 bytes")
                    .arg(length)
                    .arg(grammar::recordBuffer));
            break;
        }
        if (record.type == hex::ExtendedLinearAddress) {
            const QByteArray upper = record.data + QByteArray(2, '\0'); // a short record reads as zeros here
            base = quint32(quint8(upper[0]) << 24 | quint8(upper[1]) << 16);
            continue;
        }
        if (length == 0)
            continue;
        if (record.type != hex::Data)
            hexFinding(Severity::Error, record.line,
                       QStringLiteral("record type %1: the updater writes its %2 bytes as data at %3")
                           .arg(hexNumber(record.type, 2))
                           .arg(length)
                           .arg(hexNumber(base + record.offset, 6)));
        const quint64 start = quint64(base) + record.offset;
        const quint64 end = start + quint64(length); // one past the last byte
        const QString span =
            QStringLiteral("%1-%2").arg(hexNumber(quint32(start), 4), hexNumber(quint32(end - 1), 4));
        const auto skip = [&](Severity severity, const QString& why) {
            line.pic.skipped << span + QStringLiteral(" (") + why + QLatin1Char(')');
            hexFinding(
                severity, record.line,
                QStringLiteral("%1 bytes at %2 are skipped without a word: %3").arg(length).arg(span, why));
            if (severity == Severity::Error)
                lostData = true;
        };
        if (end >= (quint64(1) << 32)) { // the updater's 32-bit sum would wrap into flash
            skip(Severity::Warning, QStringLiteral("the address runs past 0xFFFFFFFF"));
        } else if (end <= grammar::flashRecordLimit) {
            for (quint64 a = start; a < end; ++a) {
                const quint8 value = quint8(record.data[int(a - start)]);
                if ((flash[a] & value) != value) {
                    picFailed(line);
                    hexFinding(
                        Severity::Error, record.line,
                        QStringLiteral("%1 was already programmed to %2 by an earlier record: flash cannot "
                                       "turn bits back on, so the verify fails and the PIC step ends here")
                            .arg(hexNumber(quint32(a), 4), hexNumber(flash[a], 2)));
                    break;
                }
                flash[a] = value;
            }
            if (line.effect == Effect::Fails)
                break;
            written.push_back({quint32(start), quint32(end)});
        } else if (start < grammar::flashSize) {
            skip(Severity::Error,
                 QStringLiteral("a record touching 0xFFFE or 0xFFFF is never written; keep code "
                                "and data below 0xFFFE"));
        } else if (start >= grammar::idAddress && start < grammar::idAddress + grammar::idSize) {
            skip(Severity::Error, QStringLiteral("the ID locations are never programmed by the updater"));
        } else if (start >= sim::pic18f4620::configAddress && start <= grammar::lastConfigWritten) {
            for (quint64 a = start; a < end; ++a) {
                const auto* config = sim::pic18f4620::configByte(quint32(a));
                if (!config) {
                    line.pic.skipped << QStringLiteral("%1 (beyond the configuration bytes)")
                                            .arg(hexNumber(quint32(a), 6));
                    continue;
                }
                const quint8 value = quint8(record.data[int(a - start)]);
                line.pic.config << QStringLiteral("%1 %2 = %3")
                                       .arg(hexNumber(quint32(a), 6),
                                            *config->name ? QString::fromLatin1(config->name)
                                                          : QStringLiteral("(none)"),
                                            hexNumber(value, 2));
                if (value & ~config->implemented)
                    hexFinding(
                        Severity::Warning, record.line,
                        QStringLiteral("sets configuration bits that do not exist at %1%2: %3 (implemented "
                                       "bits %4)")
                            .arg(hexNumber(quint32(a), 6),
                                 *config->name ? QStringLiteral(" (%1)").arg(config->name) : QString(),
                                 hexNumber(value, 2), hexNumber(config->implemented, 2)));
            }
        } else if (sim::pic18f4620::configByte(quint32(start))) {
            skip(Severity::Error,
                 QStringLiteral("a configuration record starting at 0x30000D is never written; "
                                "start it at 0x30000C or lower"));
        } else if (start >= grammar::eepromAddress && start < grammar::eepromAddress + grammar::eepromSize) {
            skip(Severity::Error, QStringLiteral("EEPROM data is never programmed by the updater"));
        } else {
            skip(Severity::Warning, QStringLiteral("the PIC18F4620 has no programmable memory there"));
        }
    }
    if (more > 0)
        add(Severity::Error, line.number, line.text,
            QStringLiteral("%1: %2 more problems like the ones above").arg(file).arg(more));
    line.pic.programmed = ranges(written);
    if (lostData && line.effect == Effect::Done)
        line.effect = Effect::Silent;
}

void Analyser::analyseLine(Line& line)
{
    const QStringList parts = grammar::split(line.text);
    if (parts.size() != 2) {
        line.head = grammar::badFormat;
        line.headIsFailure = true;
        line.effect = Effect::Fails;
        error(line,
              line.text.isEmpty()
                  ? QStringLiteral("an empty line is a bad command format: the update ends red; remove it")
              : parts.size() == 1
                  ? QStringLiteral("no ':' in the line: a bad command format (there are no comment lines); "
                                   "remove it")
                  : QStringLiteral("%1 colons: a bad command format (an argument cannot contain ':')")
                        .arg(parts.size() - 1));
        return;
    }
    line.keyword = parts[0];
    line.argument = parts[1];
    line.command = grammar::match(line.keyword);
    if (!line.command) {
        line.head = grammar::unknownCommand.arg(line.keyword, line.argument);
        line.headIsFailure = true;
        line.effect = Effect::Fails;
        const grammar::Command* meant = grammar::match(line.keyword.trimmed().toUpper());
        error(line, meant
                        ? QStringLiteral("unknown command '%1' (keywords are upper case and take no blanks): "
                                         "write %2")
                              .arg(line.keyword, QLatin1String(meant->keyword))
                        : QStringLiteral("unknown command '%1'").arg(line.keyword));
        return;
    }
    if (line.command->progress)
        line.head = fill(line, line.command->progress);
    if (line.command->action != Action::System) // the file is meant, whether or not the line reaches it
        m_used.insert(entryName(line.argument.trimmed()));
    switch (line.command->action) {
    case Action::System:
        return system(line);
    case Action::App:
        return app(line);
    case Action::Kernel:
        return kernel(line);
    case Action::Image:
        return image(line);
    case Action::File:
        rootFile(line);
        return;
    case Action::Updater:
        return updater(line);
    case Action::Modules:
        return modules(line);
    case Action::Script:
        return script(line);
    case Action::Pic:
        return pic(line);
    case Action::Esa:
        line.failures << grammar::esaDisabled << fill(line, line.command->failure);
        line.effect = Effect::Fails;
        if (line.keyword != QLatin1String(line.command->keyword))
            warning(line, QStringLiteral("the keyword only contains %1").arg(line.command->keyword));
        error(line,
              QStringLiteral("every ESA line fails in this updater: ESA loading is switched off (\"%1\"); "
                             "load the board another way and remove the line")
                  .arg(grammar::esaDisabled));
        return;
    }
}

void Analyser::unusedPayloads()
{
    for (const package::Entry& entry : m_pkg.entries) {
        if (entry.type == package::EntryType::File && entry.name.startsWith(package::topFolder + '/') &&
            !m_used.contains(entry.name))
            warning(Line{}, QStringLiteral("%1 is not named by any command").arg(entry.name));
    }
}

Analysis Analyser::run()
{
    m_result.packageName = m_pkg.folder ? m_pkg.origin : m_pkg.fileName;
    checkArchive();
    const QStringList texts = readCommandList();
    for (int i = 0; i < texts.size(); ++i) {
        Line line;
        line.number = i + 1;
        line.text = texts[i];
        analyseLine(line);
        m_result.lines.push_back(line);
    }
    if (m_pkg.find(package::commandListPath))
        unusedPayloads();
    std::stable_sort(m_result.findings.begin(), m_result.findings.end(),
                     [](const Finding& a, const Finding& b) { return a.line < b.line; });
    return m_result;
}

} // namespace

bool Analysis::hasErrors() const
{
    return std::any_of(findings.begin(), findings.end(),
                       [](const Finding& f) { return f.severity == Severity::Error; });
}

QString Analysis::expectedEnd() const
{
    if (!packageStop.isEmpty())
        return packageStop;
    const auto has = [&](Effect effect) {
        return std::any_of(lines.begin(), lines.end(),
                           [&](const Line& line) { return line.effect == effect; });
    };
    return has(Effect::Hangs)   ? QString()
           : has(Effect::Fails) ? grammar::updateFailed
                                : grammar::updateComplete;
}

Analysis analyse(const package::Package& pkg)
{
    return Analyser(pkg).run();
}

QString effectName(Effect effect)
{
    switch (effect) {
    case Effect::Done:
        return QStringLiteral("done");
    case Effect::Fails:
        return QStringLiteral("fails");
    case Effect::Silent:
        return QStringLiteral("silently not done");
    case Effect::Hangs:
        return QStringLiteral("hangs");
    }
    return QString();
}

} // namespace model
