#pragma once
// Packages run on the virtual instrument with a power cut, for the power-cut tests: one job per cut rule
// (sim/README.md, `cut`), all in one batch, skipped loudly where the machine lacks the sandbox (never
// under CI).

#include "../support/TestFiles.h"
#include "VirtualInstrument.h"

#include <QtTest>

namespace cutruns {

// A job of `package` whose state goes to `outDir`; `rule` empty: no cut. `picBefore`: the PIC's flash at
// the start (an older program), empty: a blank PIC.
inline instrument::Job job(const QString& package, const QString& outDir, const QString& rule,
                           const QByteArray& picBefore = {})
{
    instrument::Job job;
    job.package = package;
    job.outDir = outDir;
    QDir(outDir).removeRecursively();
    if (!rule.isEmpty())
        testfiles::writeFile(outDir + "/cut", rule.toUtf8() + "\n");
    if (!picBefore.isEmpty())
        testfiles::writeFile(outDir + "/pic-before/flash", picBefore);
    return job;
}

// Runs the jobs; `take` gets each job's state. False with a skip or a failure recorded.
inline bool runJobs(const QVector<instrument::Job>& jobs,
                    const std::function<void(int, const state::Snapshot&)>& take)
{
    QString error;
    bool unavailable = false;
    QStringList problems;
    const bool ran = instrument::runBatch(
        jobs,
        [&](int i, const std::optional<state::Snapshot>& s, const QString& e) {
            if (s)
                take(i, *s);
            else
                problems << e;
        },
        error, {QString(), false}, &unavailable);
    if (unavailable && qEnvironmentVariable("CI") != "true") {
        QTest::qSkip(qPrintable("SKIPPED - the virtual instrument is unavailable on this machine: " + error),
                     __FILE__, __LINE__);
        return false;
    }
    [&] {
        QVERIFY2(ran, qPrintable(error));
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join('\n')));
    }();
    return ran && problems.isEmpty();
}

// The updater's commands in the order it ran them (the trace's "run" lines), as a cut rule counts them.
inline QStringList commandsOf(const state::Snapshot& s)
{
    QStringList commands;
    for (const QString& line : s.trace)
        if (line.startsWith("run "))
            commands << state::unescaped(line.mid(4));
    return commands;
}

} // namespace cutruns
