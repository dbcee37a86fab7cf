#include "Preview.h"

#include "Compare.h"
#include "Exposure.h"
#include "VirtualInstrument.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QTextStream>
#include <cstdio>

namespace preview {
namespace {

QString trimmedEnd(QString text)
{
    while (!text.isEmpty() && text.back().isSpace())
        text.chop(1);
    return text;
}

// Where the human-readable lines go: stdout, or stderr when stdout carries the JSON result.
FILE* humanStream = stdout;

void print(const QString& text)
{
    QTextStream(humanStream) << text << '\n';
    fflush(humanStream);
}

QJsonObject differenceJson(const compare::Difference& d)
{
    return {{"line", d.line}, {"what", d.what}, {"predicted", d.predicted}, {"observed", d.observed}};
}

// The result, one entry a command-list line, with the differences that do not belong to a line apart.
QJsonObject resultJson(const Options& options, const QString& name, const QString& out,
                       const predict::Prediction& prediction, const state::Snapshot& snapshot,
                       const compare::Result& result)
{
    QJsonArray lines, other;
    const QVector<exposure::LineClass> classes = exposure::classes(prediction);
    for (int i = 0; i < prediction.lines.size(); ++i) {
        const predict::Line& line = prediction.lines[i];
        QJsonArray differences;
        for (const compare::Difference& d : result.differences)
            if (d.line == line.number)
                differences.append(differenceJson(d));
        lines.append(QJsonObject{{"line", line.number},
                                 {"text", line.text},
                                 {"agrees", differences.isEmpty()},
                                 {"class", poweron::name(classes[i].worst)},
                                 {"differences", differences}});
    }
    for (const compare::Difference& d : result.differences)
        if (d.line <= 0)
            other.append(differenceJson(d));
    return QJsonObject{{"schema", "update-package-preview/1"},
                       {"package", name},
                       {"job", options.pcJob ? "pc" : "stick"},
                       {"outDir", out},
                       {"ended", snapshot.ended},
                       {"endPredicted", predict::endName(prediction.end)},
                       {"view", snapshot.view},
                       {"agrees", result.agrees()},
                       {"differenceCount", int(result.differences.size())},
                       {"lines", lines},
                       {"outsideLines", other}};
}

// Prints the view's lines as the trace reports them, stamped with the seconds since the start; of the
// percentages only every quarter, so a PIC step shows its pace without flooding the terminal.
class ViewPrinter
{
public:
    void operator()(const QString& traceLine)
    {
        if (!traceLine.startsWith(QLatin1String("view ")))
            return;
        const QString colour = traceLine.section(QLatin1Char(' '), 1, 1);
        const QString text = trimmedEnd(state::unescaped(traceLine.section(QLatin1Char(' '), 2)));
        const QString stamp = QStringLiteral("[%1s] ").arg(m_clock.elapsed() / 1000, 4);
        if (colour == QLatin1String("orange")) {
            const int step = text.chopped(text.endsWith('%') ? 1 : 0).toInt() / 25;
            if (step > m_percentStep)
                print(stamp + QStringLiteral("  ") + text);
            m_percentStep = qMax(m_percentStep, step);
            return;
        }
        m_percentStep = -1;
        for (const QString& line : text.split(QLatin1Char('\n')))
            if (!trimmedEnd(line).isEmpty())
                print(stamp + trimmedEnd(line));
    }

private:
    QElapsedTimer m_clock = [] {
        QElapsedTimer t;
        t.start();
        return t;
    }();
    int m_percentStep = -1;
};

// One package of the preview: its prediction (none when it cannot start where the one before left the
// instrument) and what came of it.
struct Item
{
    QString name;
    std::optional<predict::Prediction> prediction;
    QString unpredicted; // why there is no prediction
    // The SYSTEM line of an earlier package whose system type the updater still holds at the start.
    struct Setter
    {
        QString type, text; // "SD card", "SYSTEM:SDCARD"
        int package = 0, line = 0;
    };
    std::optional<Setter> inherits;
    QString outDir;
    bool ran = false, agrees = false;
    QString summary; // the session's line for it
    QJsonObject json;
};

QString systemTypeName(grammar::SystemType type)
{
    switch (type) {
    case grammar::SystemType::SdCard:
        return QStringLiteral("SD card");
    case grammar::SystemType::Nand:
        return QStringLiteral("NAND");
    case grammar::SystemType::Unknown:
        break;
    }
    return QStringLiteral("unknown");
}

// The predictions in order, each from where the one before left the instrument (the updater keeps its
// system type, the root what a package installed and unpacked); none after one whose end is unknown.
QVector<Item> predictAll(const Options& options, const profile::Profile& profile)
{
    QVector<Item> items(options.packages.size());
    std::optional<Item::Setter> setter; // the last SYSTEM line so far
    for (int k = 0; k < items.size(); ++k) {
        const Package& pkg = options.packages[k];
        Item& item = items[k];
        predict::Options how;
        how.pcJob = options.pcJob;
        how.archiveName = pkg.archiveName;
        const Item* before = k > 0 ? &items[k - 1] : nullptr;
        if (before && !before->prediction) {
            item.unpredicted = QStringLiteral("package %1 before it could not be predicted").arg(k);
        } else if (before && !before->prediction->unknownEnd().isEmpty()) {
            item.unpredicted = QStringLiteral("it cannot start where package %1 left the instrument: %2")
                                   .arg(k)
                                   .arg(before->prediction->unknownEnd());
        } else {
            how.after = before ? &*before->prediction : nullptr;
            item.prediction = predict::predict(pkg.read, profile, how);
            if (before)
                item.inherits = setter;
            const predict::Prediction& p = *item.prediction;
            if (p.systemLine > 0)
                setter = Item::Setter{systemTypeName(p.systemType), p.lines[p.systemLine - 1].text, k + 1,
                                      p.systemLine};
        }
        // A folder by the path given (it goes onto the medium under a name of the tool's).
        item.name = pkg.read.folder ? pkg.read.origin : QFileInfo(pkg.archive).fileName();
    }
    return items;
}

// What one package's job showed and left, against its prediction: the view, the comparison line by
// line, the changes no line asks for and the counts. Sets the item's result and its JSON.
void report(const Options& options, const state::Snapshot& snapshot, int timeoutSeconds, Item& item)
{
    item.ran = true;
    print(QStringLiteral("\n== the message view at the end of the job"));
    print(trimmedEnd(snapshot.view));
    if (!snapshot.ended)
        print(QStringLiteral("\npreview: the job did not end within %1 s (%2): no screenshot of its end; "
                             "--timeout gives it longer")
                  .arg(timeoutSeconds)
                  .arg(snapshot.outcome.trimmed()));
    if (!item.prediction) {
        item.summary = QStringLiteral("not compared: %1").arg(item.unpredicted);
        item.json = QJsonObject{{"package", item.name}, {"outDir", item.outDir},   {"ran", true},
                                {"compared", false},    {"why", item.unpredicted}, {"ended", snapshot.ended},
                                {"view", snapshot.view}};
        return;
    }
    const predict::Prediction& prediction = *item.prediction;
    const compare::Result result = compare::compare(prediction, snapshot);
    print(QStringLiteral("\n== the prediction against the instrument, line by line"));
    QSet<int> differing;
    for (const compare::Difference& d : result.differences)
        differing.insert(d.line);
    // Beside each verdict the class a power cut during the line leaves (the model risk measures).
    const QVector<exposure::LineClass> classes = exposure::classes(prediction);
    for (int i = 0; i < prediction.lines.size(); ++i)
        print(QStringLiteral("line %1 %2: %3 (power cut: %4)")
                  .arg(prediction.lines[i].number)
                  .arg(prediction.lines[i].text,
                       differing.contains(prediction.lines[i].number) ? QStringLiteral("DIFFERS")
                                                                      : QStringLiteral("as predicted"),
                       poweron::name(classes[i].worst)));
    const QString differences = compare::text(prediction, result);
    if (!differences.isEmpty())
        print(QStringLiteral("\n") + trimmedEnd(differences));
    const QVector<compare::Damage> damage = compare::damage(prediction, snapshot);
    if (!damage.isEmpty()) {
        print(QStringLiteral("\n== changes of the instrument's root that no line asks for"));
        for (const compare::Damage& d : damage)
            print(QStringLiteral("%1%2: %3")
                      .arg(d.line > 0 ? QStringLiteral("line %1: ").arg(d.line) : QString(), d.path, d.what));
    }
    item.summary = QStringLiteral("%1 difference%2, %3 change%4 no line asks for (end predicted: %5)")
                       .arg(result.differences.size())
                       .arg(result.differences.size() == 1 ? "" : "s")
                       .arg(damage.size())
                       .arg(damage.size() == 1 ? "" : "s")
                       .arg(predict::endName(prediction.end));
    print(QStringLiteral("\n") + item.summary);
    item.agrees = result.agrees() && damage.isEmpty();
    item.json = resultJson(options, item.name, item.outDir, prediction, snapshot, result);
}

int timeoutFor(const Options& options, const Item& item)
{
    if (options.timeoutSeconds > 0)
        return options.timeoutSeconds;
    // Predicted never to end: long enough to see the PIC erased.
    return item.prediction && item.prediction->end == predict::End::Hang ? 120
                                                                         : instrument::Job().timeoutSeconds;
}

instrument::Job jobFor(const Options& options, const Package& pkg, const Item& item)
{
    instrument::Job job;
    job.package = QFileInfo(pkg.archive).absoluteFilePath();
    job.pcJob = options.pcJob;
    job.profile = options.profile;
    job.outDir = item.outDir;
    job.progress = ViewPrinter();
    job.timeoutSeconds = timeoutFor(options, item);
    return job;
}

void writeJson(const QJsonObject& json)
{
    const QByteArray text = QJsonDocument(json).toJson();
    fwrite(text.constData(), 1, size_t(text.size()), stdout);
}

// One package on a fresh virtual instrument.
int runOne(const Options& options, const QString& out, Item& item)
{
    print(QStringLiteral("preview: %1 on the virtual instrument (%2 job), results in %3")
              .arg(item.name, options.pcJob ? "PC" : "memory-stick", out));
    item.outDir = out;
    const instrument::Job job = jobFor(options, options.packages.first(), item);
    QString error;
    const auto snapshot = instrument::run(job, error);
    if (!snapshot) {
        print(QStringLiteral("preview: the package could not be run: %1").arg(error));
        return 2;
    }
    report(options, *snapshot, job.timeoutSeconds, item);
    if (options.json)
        writeJson(item.json);
    return item.agrees ? 0 : 1;
}

void announce(const QVector<Item>& items, int k)
{
    print(QStringLiteral("\n== package %1 of %2: %3").arg(k + 1).arg(items.size()).arg(items[k].name));
    if (!items[k].prediction)
        print(QStringLiteral("preview: package %1 is not compared: %2").arg(k + 1).arg(items[k].unpredicted));
    if (const auto& from = items[k].inherits)
        print(QStringLiteral("preview: package %1 starts with the system type %2 that line %3 of package %4 "
                             "(%5) set: the updater keeps it until it restarts")
                  .arg(k + 1)
                  .arg(from->type)
                  .arg(from->line)
                  .arg(from->package)
                  .arg(from->text));
}

// The packages one after another in one session of one running updater.
int runSession(const Options& options, const QString& out, QVector<Item>& items)
{
    print(
        QStringLiteral("preview: %1 packages in one session on the virtual instrument (%2 jobs, one running "
                       "updater), results in %3")
            .arg(items.size())
            .arg(options.pcJob ? "PC" : "memory-stick", out));
    QVector<instrument::Job> jobs;
    int timeout = 0;
    for (int k = 0; k < items.size(); ++k) {
        items[k].outDir = QDir(out).filePath(QStringLiteral("package-%1").arg(k + 1));
        jobs << jobFor(options, options.packages[k], items[k]);
        timeout = qMax(timeout, jobs.last().timeoutSeconds);
    }
    announce(items, 0);
    QString error, stopped; // why the session ended early
    instrument::runSession(
        jobs, out,
        [&](int k, const std::optional<state::Snapshot>& snapshot, const QString& readError) {
            if (snapshot)
                report(options, *snapshot, timeout, items[k]);
            else {
                items[k].summary = "the instrument's state could not be read: " + readError;
                print(QStringLiteral("preview: ") + items[k].summary);
            }
            if (snapshot && !snapshot->ended)
                stopped = QStringLiteral("package %1 did not end").arg(k + 1);
            else if (k + 1 < items.size())
                announce(items, k + 1);
        },
        error);
    const bool anyRan = std::any_of(items.begin(), items.end(), [](const Item& i) { return i.ran; });
    if (!anyRan) {
        print(QStringLiteral("preview: the session could not be run: %1").arg(error));
        return 2;
    }
    if (stopped.isEmpty() && !error.isEmpty())
        stopped = error;
    print(QStringLiteral("\n== the session"));
    QJsonArray results;
    bool agrees = true;
    for (int k = 0; k < items.size(); ++k) {
        Item& item = items[k];
        if (!item.ran) {
            if (item.summary.isEmpty())
                item.summary = QStringLiteral("not run: %1").arg(stopped);
            item.json = QJsonObject{{"package", item.name}, {"ran", false}, {"why", item.summary}};
        } else if (item.prediction) {
            item.json.insert("ran", true);
            item.json.insert("compared", true);
            if (const auto& from = item.inherits)
                item.json.insert("inheritsSystemType", QJsonObject{{"type", from->type},
                                                                   {"package", from->package},
                                                                   {"line", from->line},
                                                                   {"text", from->text}});
        }
        print(QStringLiteral("package %1 %2: %3").arg(k + 1).arg(item.name, item.summary));
        agrees = agrees && item.agrees;
        results.append(item.json);
    }
    if (options.json)
        writeJson(QJsonObject{{"schema", "update-package-preview-session/1"},
                              {"job", options.pcJob ? "pc" : "stick"},
                              {"outDir", out},
                              {"agrees", agrees},
                              {"packages", results}});
    return agrees ? 0 : 1;
}

} // namespace

int run(const Options& options, const profile::Profile& profile)
{
    humanStream = options.json ? stderr : stdout;
    QDir().mkpath(options.out);
    const QString out = QFileInfo(options.out).absoluteFilePath();
    QVector<Item> items = predictAll(options, profile);
    return items.size() == 1 ? runOne(options, out, items.first()) : runSession(options, out, items);
}

} // namespace preview
