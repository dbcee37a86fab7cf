#include "Preview.h"

#include "Compare.h"
#if __has_include("VirtualInstrument.h")
#include "VirtualInstrument.h"
#define PREVIEW_RUNS_THE_INSTRUMENT 1
#endif

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
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

[[maybe_unused]] bool isPercentage(const QString& line)
{
    static const QRegularExpression percent(QStringLiteral("^\\d+%\\s*$"));
    return percent.match(line).hasMatch();
}

[[maybe_unused]] QString readText(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

void print(const QString& text)
{
    QTextStream(stdout) << text << '\n';
    fflush(stdout);
}

// Follows the probe's dumps of the message view while the job runs and prints what is new.
class ViewFollower
{
public:
    explicit ViewFollower(const QString& path) : m_file(path) {}

    void poll(qint64 elapsedMs)
    {
        if (!m_file.isOpen() && !m_file.open(QIODevice::ReadOnly))
            return;
        m_pending += QString::fromUtf8(m_file.readAll());
        const int end = m_pending.lastIndexOf(QLatin1String("\nview-end"));
        if (end < 0)
            return;
        const int begin = m_pending.lastIndexOf(QLatin1String("view-begin\n"), end);
        if (begin < 0)
            return;
        const QStringList lines = m_pending.mid(begin + 11, end - begin - 11).split(QLatin1Char('\n'));
        m_pending = m_pending.mid(end + 9);
        const QString stamp = QStringLiteral("[%1s] ").arg(elapsedMs / 1000, 4);
        QStringList text;
        for (const QString& line : lines) {
            if (!isPercentage(line) && !trimmedEnd(line).isEmpty())
                text << trimmedEnd(line);
        }
        for (int i = m_printed; i < text.size(); ++i) {
            print(stamp + text[i]);
            m_percentStep = -1;
        }
        m_printed = qMax(m_printed, int(text.size()));
        if (!lines.isEmpty() && isPercentage(lines.back())) {
            const int step = trimmedEnd(lines.back()).chopped(1).toInt() / 25;
            if (step > m_percentStep) {
                print(stamp + QStringLiteral("  ") + trimmedEnd(lines.back()));
                m_percentStep = step;
            }
        }
    }

private:
    QFile m_file;
    QString m_pending;
    int m_printed = 0;
    int m_percentStep = -1;
};

} // namespace

QString repoDir()
{
    return QStringLiteral(PROJECT_SOURCE_DIR);
}

QString defaultBuildDir()
{
    const QString fromEnv = qEnvironmentVariable("UPDATER_BUILD_DIR");
    return fromEnv.isEmpty() ? QStringLiteral(PROJECT_BINARY_DIR) : fromEnv;
}

#ifdef PREVIEW_RUNS_THE_INSTRUMENT
// The package on the virtual instrument, then the prediction against what it shows and holds.
int run(const Options& options, const predict::Prediction& prediction)
{
    QDir().mkpath(options.out);
    const QString out = QFileInfo(options.out).absoluteFilePath();
    print(QStringLiteral("preview: %1 on the virtual instrument (%2 job), results in %3")
              .arg(prediction.packageName, options.pcJob ? "PC" : "memory-stick", out));
    instrument::Job job;
    job.package = QFileInfo(options.package).absoluteFilePath();
    job.pcJob = options.pcJob;
    job.profile = options.profile;
    job.outDir = out;
    if (prediction.end == predict::End::Hang)
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
    const compare::Result result = compare::compare(prediction, *snapshot);
    print(QStringLiteral("\n== the prediction against the instrument, line by line"));
    QSet<int> differing;
    for (const compare::Difference& d : result.differences)
        differing.insert(d.line);
    for (const predict::Line& line : prediction.lines)
        print(QStringLiteral("line %1 %2: %3")
                  .arg(line.number)
                  .arg(line.text, differing.contains(line.number) ? QStringLiteral("DIFFERS")
                                                                  : QStringLiteral("as predicted")));
    const QString differences = compare::text(prediction, result);
    if (!differences.isEmpty())
        print(QStringLiteral("\n") + trimmedEnd(differences));
    print(QStringLiteral("\n%1 difference%2 (end predicted: %3)")
              .arg(result.differences.size())
              .arg(result.differences.size() == 1 ? "" : "s")
              .arg(predict::endName(prediction.end)));
    return result.agrees() ? 0 : 1;
}
#else
int run(const Options& options, const predict::Prediction& prediction)
{
    for (const char* part :
         {"updater/updater", "sim/instrument/sim-instrument", "sim/probe/plugins/generic/libprobe.so"}) {
        if (!QFileInfo::exists(options.build + '/' + part)) {
            print(QStringLiteral(
                      "update-package preview: %1/%2 is missing: build it first (scripts/update-package "
                      "builds what preview needs)")
                      .arg(options.build, part));
            return 2;
        }
    }
    QDir().mkpath(options.out);
    const QString out = QFileInfo(options.out).absoluteFilePath();
    for (const char* stale : {"view.txt", "verify.txt", "end.png", "menu.png", "probe.txt"})
        QFile::remove(out + '/' + stale);

    print(QStringLiteral("preview: %1 on the virtual instrument (%2 job), results in %3")
              .arg(prediction.packageName, options.pcJob ? "PC" : "memory-stick", out));
    QProcess demo;
    QStringList args{repoDir() + "/scripts/demo.sh",
                     "--package",
                     QFileInfo(options.package).absoluteFilePath(),
                     "--out",
                     out,
                     "--build",
                     options.build};
    if (options.pcJob)
        args << "--pc";
    demo.setStandardOutputFile(out + "/preview.log");
    demo.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    demo.setWorkingDirectory(repoDir());
    demo.start("bash", args);
    ViewFollower follower(out + "/probe.txt");
    QElapsedTimer clock;
    clock.start();
    while (!demo.waitForFinished(1000))
        follower.poll(clock.elapsed());
    follower.poll(clock.elapsed());

    const QString view = readText(out + "/view.txt");
    if (view.isEmpty()) {
        print(QStringLiteral("preview: the job did not reach its end (see %1/preview.log and %1/updater.log)")
                  .arg(out));
        return 1;
    }
    print(QStringLiteral("\n== the message view at the end of the job"));
    print(trimmedEnd(view));

    QString endSeen;
    for (const QString& line : view.split(QLatin1Char('\n')))
        if (!trimmedEnd(line).isEmpty())
            endSeen = trimmedEnd(line);
    const QString expected = prediction.endText();
    const bool agrees = !expected.isEmpty() && endSeen.startsWith(expected);
    print(QStringLiteral("end: %1 (predicted \"%2\": %3)")
              .arg(endSeen, expected.isEmpty() ? QStringLiteral("no end") : expected,
                   agrees ? QStringLiteral("agrees") : QStringLiteral("DISAGREES")));
    print(
        QStringLiteral("screenshots: %1/end.png (end of the job), %1/menu.png (back at the menu)").arg(out));
    return agrees ? 0 : 1;
}
#endif

} // namespace preview
