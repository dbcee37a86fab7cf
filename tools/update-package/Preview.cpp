#include "Preview.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
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

QString firstLine(const QString& text)
{
    return trimmedEnd(text.section(QLatin1Char('\n'), 0, 0));
}

bool isFailureLine(const QString& line)
{
    return line.startsWith(QLatin1String("Failed - ")) || line == grammar::picEraseError;
}

bool isPercentage(const QString& line)
{
    static const QRegularExpression percent(QStringLiteral("^\\d+%\\s*$"));
    return percent.match(line).hasMatch();
}

QString readText(const QString& path)
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

// The models' line about one command in verify-update's report.
QString modelsSay(const QString& verify, const QString& command)
{
    if (command.isEmpty())
        return QString();
    for (const QString& line : verify.split(QLatin1Char('\n'))) {
        const QString text = line.trimmed();
        const int at = text.indexOf(command + QLatin1String(": "));
        if (at > 0 && text.left(at).trimmed().size() <= 7)
            return text;
    }
    return QString();
}

} // namespace

bool Agreement::agrees() const
{
    return endAgrees &&
           std::all_of(lines.begin(), lines.end(), [](const LineVerdict& l) { return l.agrees; });
}

Agreement compare(const model::Analysis& analysis, const QString& viewText)
{
    Agreement result;
    const QStringList view = viewText.split(QLatin1Char('\n'));
    for (int i = view.size() - 1; i >= 0 && result.endSeen.isEmpty(); --i)
        result.endSeen = trimmedEnd(view[i]);
    result.endExpected = analysis.expectedEnd();
    result.endAgrees = !result.endExpected.isEmpty() && result.endSeen.startsWith(result.endExpected);
    if (!analysis.packageStop.isEmpty())
        return result;

    // After "Command list: " the updater echoes every line once; the commands' own lines follow.
    int cursor = view.indexOf(QStringLiteral("Command list: "));
    cursor = cursor < 0 ? view.size() : cursor + 1 + analysis.lines.size();
    QVector<int> heads;
    for (const model::Line& line : analysis.lines) {
        int found = -1;
        for (int j = cursor; j < view.size() && found < 0; ++j) {
            if (trimmedEnd(view[j]) == firstLine(line.head) ||
                (line.headIsFailure && view[j].simplified() == line.head.simplified()))
                found = j;
        }
        heads << found;
        if (found >= 0)
            cursor = found + 1;
    }
    int finalising = view.lastIndexOf(trimmedEnd(grammar::finalising));
    if (finalising < 0)
        finalising = view.size();
    for (int i = 0; i < analysis.lines.size(); ++i) {
        const model::Line& line = analysis.lines[i];
        LineVerdict verdict;
        verdict.line = line.number;
        verdict.command = line.text;
        verdict.headSeen = heads[i] >= 0;
        // Red lines are HTML paragraphs: the view shows their blanks and line breaks collapsed.
        for (const QString& failure : line.failures)
            verdict.failuresExpected << failure.simplified();
        if (verdict.headSeen) {
            int end = finalising;
            for (int k = i + 1; k < heads.size(); ++k) {
                if (heads[k] >= 0) {
                    end = heads[k];
                    break;
                }
            }
            for (int j = heads[i] + 1; j < end; ++j) {
                if (isFailureLine(view[j].simplified()))
                    verdict.failuresSeen << view[j].simplified();
            }
        }
        verdict.agrees = verdict.headSeen && verdict.failuresSeen == verdict.failuresExpected;
        result.lines << verdict;
    }
    return result;
}

QString repoDir()
{
    return QStringLiteral(PROJECT_SOURCE_DIR);
}

QString defaultBuildDir()
{
    const QString fromEnv = qEnvironmentVariable("UPDATER_BUILD_DIR");
    return fromEnv.isEmpty() ? QStringLiteral(PROJECT_BINARY_DIR) : fromEnv;
}

int run(const Options& options, const model::Analysis& analysis)
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
              .arg(analysis.packageName, options.pcJob ? "PC" : "memory-stick", out));
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

    const QString verify = readText(out + "/verify.txt");
    const Agreement agreement = compare(analysis, view);
    print(QStringLiteral("\n== per command: lint's prediction, the view, the models' verdict"));
    for (int i = 0; i < agreement.lines.size(); ++i) {
        const LineVerdict& v = agreement.lines[i];
        const QString seen = !v.headSeen ? QStringLiteral("not in the view")
                             : v.failuresSeen.isEmpty() && !analysis.lines[i].headIsFailure
                                 ? QStringLiteral("no failure")
                                 : QStringLiteral("failed");
        print(QStringLiteral("line %1 %2\n    lint: %3; view: %4; %5\n    models: %6")
                  .arg(v.line)
                  .arg(v.command, model::effectName(analysis.lines[i].effect), seen,
                       v.agrees ? QStringLiteral("agrees") : QStringLiteral("DISAGREES"),
                       modelsSay(verify, v.command).isEmpty() ? QStringLiteral("(nothing)")
                                                              : modelsSay(verify, v.command)));
    }
    print(QStringLiteral("end: %1 (lint predicted \"%2\": %3)")
              .arg(agreement.endSeen,
                   agreement.endExpected.isEmpty() ? QStringLiteral("no end") : agreement.endExpected,
                   agreement.endAgrees ? QStringLiteral("agrees") : QStringLiteral("DISAGREES")));
    print(
        QStringLiteral("screenshots: %1/end.png (end of the job), %1/menu.png (back at the menu)").arg(out));
    return agreement.endSeen.startsWith(grammar::updateComplete) ? 0 : 1;
}

} // namespace preview
