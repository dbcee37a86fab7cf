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
QByteArray resultJson(const Options& options, const QString& out, const predict::Prediction& prediction,
                      const state::Snapshot& snapshot, const compare::Result& result)
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
    const QJsonObject json{{"schema", "update-package-preview/1"},
                           {"package", prediction.packageName},
                           {"job", options.pcJob ? "pc" : "stick"},
                           {"outDir", out},
                           {"ended", snapshot.ended},
                           {"endPredicted", predict::endName(prediction.end)},
                           {"view", snapshot.view},
                           {"agrees", result.agrees()},
                           {"differenceCount", int(result.differences.size())},
                           {"lines", lines},
                           {"outsideLines", other}};
    return QJsonDocument(json).toJson();
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

} // namespace

// The package on the virtual instrument, then the prediction against what it shows and holds.
int run(const Options& options, const predict::Prediction& prediction)
{
    humanStream = options.json ? stderr : stdout;
    QDir().mkpath(options.out);
    const QString out = QFileInfo(options.out).absoluteFilePath();
    print(QStringLiteral("preview: %1 on the virtual instrument (%2 job), results in %3")
              .arg(prediction.packageName, options.pcJob ? "PC" : "memory-stick", out));
    instrument::Job job;
    job.package = QFileInfo(options.package).absoluteFilePath();
    job.pcJob = options.pcJob;
    job.profile = options.profile;
    job.outDir = out;
    job.progress = ViewPrinter();
    if (options.timeoutSeconds > 0)
        job.timeoutSeconds = options.timeoutSeconds;
    else if (prediction.end == predict::End::Hang)
        job.timeoutSeconds =
            120; // the prediction is that it never ends: wait long enough to see the PIC erased
    QString error;
    const auto snapshot = instrument::run(job, error);
    if (!snapshot) {
        print(QStringLiteral("preview: the package could not be run: %1").arg(error));
        return 2;
    }
    print(QStringLiteral("\n== the message view at the end of the job"));
    print(trimmedEnd(snapshot->view));
    if (!snapshot->ended)
        print(QStringLiteral("\npreview: the job did not end within %1 s (%2): no screenshot of its end; "
                             "--timeout gives it longer")
                  .arg(job.timeoutSeconds)
                  .arg(snapshot->outcome.trimmed()));
    const compare::Result result = compare::compare(prediction, *snapshot);
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
    const QVector<compare::Damage> damage = compare::damage(prediction, *snapshot);
    if (!damage.isEmpty()) {
        print(QStringLiteral("\n== changes of the instrument's root that no line asks for"));
        for (const compare::Damage& d : damage)
            print(QStringLiteral("%1%2: %3")
                      .arg(d.line > 0 ? QStringLiteral("line %1: ").arg(d.line) : QString(), d.path, d.what));
    }
    print(QStringLiteral("\n%1 difference%2, %3 change%4 no line asks for (end predicted: %5)")
              .arg(result.differences.size())
              .arg(result.differences.size() == 1 ? "" : "s")
              .arg(damage.size())
              .arg(damage.size() == 1 ? "" : "s")
              .arg(predict::endName(prediction.end)));
    if (options.json) {
        const QByteArray json = resultJson(options, out, prediction, *snapshot, result);
        fwrite(json.constData(), 1, size_t(json.size()), stdout);
    }
    return result.agrees() && damage.isEmpty() ? 0 : 1;
}

} // namespace preview
