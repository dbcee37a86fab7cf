#include "Exposure.h"

#include "Prediction.h"
#include "Rules.h"

#include <QFileInfo>
#include <QMap>
#include <QSet>

namespace exposure {
namespace {

using poweron::Class;

// The board's figures: raw NAND from a typical 2 Gbit SLC part's data sheet (block erase tBERS 2 ms, page
// program tPROG 250 us, 2048-byte pages moved at about 40 MB/s: 50 us), the SD card at its speed class's
// minimum (class 4, 4 MB/s). Everything else (file copies into the page cache, the PIC step's mandated
// waits and timers) is taken as measured.
constexpr double eraseBlockS = 0.002, pageS = 0.00025 + 0.00005, sdBytesPerS = 4e6;
constexpr qint64 page = 2048, pagesPerBlock = 64;

using PayloadSize = std::function<qint64(const QString&)>;

QStringList lastWord(const QStringList& words)
{
    return words.size() > 1 ? QStringList{words.last()} : QStringList();
}

QStringList operands(const QStringList& words)
{
    QStringList paths;
    for (int i = 1; i < words.size(); ++i)
        if (!words[i].startsWith('-'))
            paths << words[i];
    return paths;
}

QStringList unpackFolder(const QStringList& words)
{
    const int c = words.indexOf("-C");
    return {c < 0 ? QStringLiteral("/") : words.value(c + 1)}; // the updater's working folder is /
}

QStringList firstArgument(const QStringList& words)
{
    return words.size() > 1 ? QStringList{words[1]} : QStringList();
}

QStringList sdCard(const QStringList& words)
{
    const int d = words.indexOf("-d");
    return d < 0 ? QStringList() : QStringList{words.value(d + 1)};
}

std::optional<double> eraseSeconds(const QStringList& words, const PayloadSize&)
{
    return (words.value(1) == "/dev/mtd1" ? 64 : 16) * eraseBlockS; // 8 MiB and 2 MiB partitions
}

std::optional<double> pagesSeconds(const QStringList& words, const PayloadSize& size)
{
    return double(size(words.value(2))) / double(page) * pageS;
}

std::optional<double> formatSeconds(const QStringList&, const PayloadSize&)
{
    return 64 * (eraseBlockS + double(pagesPerBlock) * pageS); // each block erased and written
}

std::optional<double> sdSeconds(const QStringList& words, const PayloadSize& size)
{
    const int f = words.indexOf("-f");
    return double(size(words.value(f + 1))) / sdBytesPerS;
}

std::optional<double> asMeasured(const QStringList&, const PayloadSize&)
{
    return std::nullopt;
}

QStringList wordsOf(const QString& argv)
{
    return argv.split(' ', Qt::SkipEmptyParts);
}

QString partName(const QString& device)
{
    return (device == "/dev/mtd1" ? QStringLiteral("root volume ") : QStringLiteral("kernel partition ")) +
           device;
}

// A thing a line can leave half done, the line that last wrote it and what losing it means.
struct Part
{
    QString what;
    Class cls = Class::Unchanged;
    int line = 0;
    QString meaning; // for a root file: what its loss does
};

struct Walked // one line: its own parts and those earlier lines left to the write-back
{
    QVector<Part> own, pending;
    bool minutes = false;
};

// Adds a part, or takes the newer line's word for one already there.
void addPart(QVector<Part>& parts, const Part& part)
{
    for (Part& p : parts)
        if (p.what == part.what) {
            p = part;
            return;
        }
    parts << part;
}

// The command list line by line: what each line's commands and PIC step can leave half done, and what
// the write-back may still take then (the power-on check's rule: once a root file is written after the
// last sync, every root file the list changed; a cached device written after it).
QVector<Walked> walk(const predict::Prediction& p)
{
    QVector<Walked> out;
    QVector<Part> files, devices;
    bool dirty = false;
    for (const predict::Line& line : p.lines) {
        Walked w;
        QVector<Part> ownFiles, ownDevices; // what goes to the write-back
        const auto file = [&](const QString& path) {
            if (path.startsWith("/tmp") || path.isEmpty())
                return;
            Part part{path, Class::Unchanged, line.number, {}};
            part.cls = poweron::ifLost(path, p.updater, &part.meaning);
            addPart(w.own, part);
            addPart(ownFiles, part);
        };
        for (const predict::Write& write : line.writes)
            file(write.path);
        for (const predict::Event& e : p.events) {
            const Writer* writer =
                e.type == predict::Event::Type::Run && e.line == line.number ? writerOf(e.text) : nullptr;
            if (!writer || e.exit == predict::Exit::NotStarted ||
                (e.exit == predict::Exit::Failure && !writer->partOnFailure))
                continue;
            for (const QString& target : targetsOf(e.text)) {
                if (!writer->partition) {
                    file(target);
                    continue;
                }
                const Part part{partName(target), poweron::partitionIfLost, line.number, {}};
                addPart(w.own, part);
                if (writer->cached)
                    addPart(ownDevices, part);
            }
        }
        const bool script = line.command && line.command->action == grammar::Action::Script;
        const bool picStarted = line.command && line.command->action == grammar::Action::Pic &&
                                std::any_of(p.events.begin(), p.events.end(), [&](const predict::Event& e) {
                                    return e.line == line.number && e.type == predict::Event::Type::View &&
                                           e.text.startsWith(QLatin1String("Erasing PIC"));
                                });
        if (picStarted)
            addPart(w.own, {QStringLiteral("PIC flash"), poweron::picIfLost, line.number, {}});
        w.minutes = picStarted;
        // A script's time counts as writing root files (what it writes is not known).
        dirty = dirty || !ownFiles.isEmpty() || script;
        if (dirty)
            w.pending = files;
        w.pending += devices;
        out << w;
        for (const Part& part : ownFiles)
            addPart(files, part);
        for (const Part& part : ownDevices)
            addPart(devices, part);
        if (line.syncs) {
            dirty = false;
            devices.clear();
        }
    }
    return out;
}

Class worstOf(const QVector<Part>& parts, const Part** which = nullptr)
{
    Class worst = Class::Unchanged;
    for (const Part& part : parts)
        if (part.cls > worst) {
            worst = part.cls;
            if (which)
                *which = &part;
        }
    return worst;
}

QString describe(const Part& part)
{
    return part.meaning.isEmpty() ? part.what : QStringLiteral("%1 (%2)").arg(part.what, part.meaning);
}

// The error findings of a prediction, by rule and line text (line numbers change with the order).
QSet<QString> errorsOf(const predict::Prediction& p)
{
    QSet<QString> errors;
    for (const predict::Finding& f : p.findings)
        if (rules::severityOf(f.rule) == rules::Severity::Error)
            errors << f.rule + '\t' + f.command;
    return errors;
}

// The flash tools write a partition raw (the NAND keeps what it was given); sdimage writes the SD card
// through its block device, which the kernel caches like the root file system.
const std::vector<Writer>& writers()
{
    static const std::vector<Writer> table = {
        {"cp", false, true, false, lastWord, asMeasured},
        {"rm", false, true, false, operands, asMeasured},
        {"tar", false, true, true, unpackFolder, asMeasured},
        {"flash_eraseall", true, false, true, firstArgument, eraseSeconds},
        {"nandwrite", true, false, true, firstArgument, pagesSeconds},
        {"ubiformat", true, false, true, firstArgument, formatSeconds},
        {"sdimage", true, true, true, sdCard, sdSeconds},
    };
    return table;
}

} // namespace

const char* const boardSource = "board: NAND block erase 2 ms, page program 0.3 ms (typical SLC NAND data "
                                "sheet), SD card 4 MB/s (speed class 4); the rest as measured";

const Writer* writerOf(const QString& argv)
{
    const QString tool = QFileInfo(argv.section(' ', 0, 0)).fileName();
    for (const Writer& writer : writers())
        if (tool == QLatin1String(writer.tool))
            return &writer;
    return nullptr;
}

QStringList targetsOf(const QString& argv)
{
    const Writer* writer = writerOf(argv);
    if (!writer)
        return {};
    QStringList targets;
    for (const QString& target : writer->targets(wordsOf(argv)))
        if (!target.isEmpty() && !target.startsWith("/tmp"))
            targets << target;
    return targets;
}

double boardSeconds(const QString& argv, double measured, const PayloadSize& payloadSize)
{
    const Writer* writer = writerOf(argv);
    const std::optional<double> board = writer ? writer->board(wordsOf(argv), payloadSize) : std::nullopt;
    return board ? *board : measured;
}

QVector<LineClass> classes(const predict::Prediction& prediction)
{
    QVector<LineClass> out;
    for (const Walked& w : walk(prediction)) {
        const Part* own = nullptr;
        const Part* pending = nullptr;
        const Class ownClass = worstOf(w.own, &own);
        const Class carried = worstOf(w.pending, &pending);
        LineClass c;
        c.worst = std::max(ownClass, carried);
        if (carried > ownClass)
            c.why = QStringLiteral("%1: written by line %2, not synced yet")
                        .arg(describe(*pending))
                        .arg(pending->line);
        else if (own)
            c.why = describe(*own);
        out << c;
    }
    return out;
}

QVector<predict::Finding> orderFindings(const predict::Prediction& p, const Reorder& reordered)
{
    // Each line whose unsynced part keeps a long line in a worse class: the first and last such line.
    struct Window
    {
        Part part;
        int first = 0, last = 0; // indices into the lines
    };
    QMap<int, Window> windows; // by the index of the line to move
    const QVector<Walked> lines = walk(p);
    for (int i = 0; i < lines.size(); ++i) {
        if (!lines[i].minutes)
            continue;
        const Class own = worstOf(lines[i].own);
        for (const Part& part : lines[i].pending) {
            if (part.cls < Class::Unrepairable || part.cls <= own)
                continue;
            const int source = part.line - 1;
            if (!windows.contains(source))
                windows.insert(source, {part, i, i});
            windows[source].last = i;
        }
    }
    QVector<predict::Finding> findings;
    for (auto it = windows.begin(); it != windows.end(); ++it) {
        const predict::Line& line = p.lines[it.key()];
        const Window& w = it.value();
        const int longLine = p.lines[w.last].number;
        QStringList moved;
        for (int i = 0; i < p.lines.size(); ++i) {
            if (i != it.key())
                moved << p.lines[i].text;
            if (i == w.last)
                moved << line.text;
        }
        QString broken;
        if (const auto after = reordered(moved)) {
            const QSet<QString> before = errorsOf(p);
            for (const predict::Finding& f : after->findings)
                if (rules::severityOf(f.rule) == rules::Severity::Error &&
                    !before.contains(f.rule + '\t' + f.command)) {
                    broken = QStringLiteral("[%1] fail (%2)").arg(f.command, f.rule);
                    break;
                }
        }
        const bool unbootable = w.part.cls == Class::Unbootable;
        QString message =
            QStringLiteral("%1 may come back lost until the next sync, so the PIC step of line %2 "
                           "keeps the instrument %3 for its minutes: ")
                .arg(describe(w.part), QString::number(p.lines[w.first].number), poweron::name(w.part.cls));
        if (broken.isEmpty())
            message += QStringLiteral("move this line after line %1").arg(longLine);
        else
            message += QStringLiteral("moving this line after line %1 would make %2, so put a SCRIPT line "
                                      "whose script ends in sync right before line %3")
                           .arg(QString::number(longLine), broken, QString::number(p.lines[w.first].number));
        findings.push_back({unbootable ? QStringLiteral("order-unbootable-window")
                                       : QStringLiteral("order-unrepairable-window"),
                            line.number, line.text, message});
    }
    return findings;
}

} // namespace exposure
