#include "VirtualInstrument.h"

#include "Installation.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <memory>

#include <sched.h>

namespace instrument {
namespace {

constexpr int unavailableStatus = 77; // the sandbox's word for a machine without namespaces or FUSE

// New lines of a growing trace file, as they are completed.
class TraceFollower
{
public:
    explicit TraceFollower(const QString& path) : m_file(path) {}

    // The new lines go to `progress` (when given).
    void poll(const std::function<void(const QString&)>& progress)
    {
        if (!m_file.isOpen() && !m_file.open(QIODevice::ReadOnly))
            return;
        m_pending += m_file.readAll();
        for (int end; (end = m_pending.indexOf('\n')) >= 0;) {
            if (progress)
                progress(QString::fromUtf8(m_pending.left(end)));
            m_pending.remove(0, end + 1);
        }
    }

private:
    QFile m_file;
    QByteArray m_pending;
};

} // namespace

QVector<int> usableCpus()
{
    QVector<int> cpus;
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof set, &set) == 0)
        for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu)
            if (CPU_ISSET(cpu, &set))
                cpus << cpu;
    return cpus;
}

QString defaultBuildDir()
{
    return installation::buildDir();
}

namespace {

// A batch, or with `sessionDir` a session.
bool runJobs(const QVector<Job>& jobs, const QString& sessionDir, const Done& done, QString& error,
             const Options& options, bool* unavailable)
{
    if (unavailable)
        *unavailable = false;
    const QString build = options.build.isEmpty() ? defaultBuildDir() : options.build;
    QTemporaryDir scratch;
    if (!scratch.isValid()) {
        error = QStringLiteral("cannot make a temporary folder: %1").arg(scratch.errorString());
        return false;
    }
    int timeout = 0;
    QStringList args{installation::dataDir() + QStringLiteral("/scripts/technician.sh"), "--build", build};
    if (!options.screens)
        args << "--no-screens";
    const int cpu = options.cpu >= 0 ? options.cpu : sched_getcpu();
    if (cpu >= 0)
        args << "--cpu" << QString::number(cpu);
    const bool session = !sessionDir.isEmpty();
    if (session && !QDir().mkpath(sessionDir)) {
        error = QStringLiteral("cannot make the folder %1").arg(sessionDir);
        return false;
    }
    if (session) {
        args << "--session" << QFileInfo(sessionDir).absoluteFilePath();
        QFile::remove(sessionDir + "/trace.log"); // an earlier run's, which the follower must not take
    }
    QStringList outs;
    for (int i = 0; i < jobs.size(); ++i) {
        const Job& job = jobs[i];
        if (!job.package.isEmpty() && !QFileInfo(job.package).isFile()) {
            error = QStringLiteral("no package file at %1").arg(job.package);
            return false;
        }
        const QString out = job.outDir.isEmpty() ? scratch.filePath(QString::number(i)) : job.outDir;
        if (!QDir().mkpath(out)) {
            error = QStringLiteral("cannot make the folder %1").arg(out);
            return false;
        }
        outs << QFileInfo(out).absoluteFilePath();
        args << (job.pcJob ? "pc" : "stick")
             << (job.package.isEmpty() ? QStringLiteral("none") : QFileInfo(job.package).absoluteFilePath())
             << outs.last();
        timeout = qMax(timeout, job.timeoutSeconds);
    }
    if (jobs.isEmpty())
        return true;
    args.insert(1, "--timeout");
    args.insert(2, QString::number(timeout));

    QProcess technician;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    if (!jobs.first().profile.isEmpty())
        environment.insert("SIM_PROFILE", jobs.first().profile);
    technician.setProcessEnvironment(environment);
    technician.start("bash", args);
    if (!technician.waitForStarted()) {
        error = QStringLiteral("cannot start bash for %1: %2").arg(args.first(), technician.errorString());
        return false;
    }
    // The technician says "done OUT" after each job; the trace of the job under way is followed meanwhile.
    // A session's state is read while the technician waits for the word to go on.
    int next = 0;
    std::unique_ptr<TraceFollower> follower;
    std::optional<state::Snapshot> sessionSoFar;
    QByteArray lines, said;
    const auto collect = [&] {
        said += technician.readAllStandardError();
        lines += technician.readAllStandardOutput();
        for (int end; (end = lines.indexOf('\n')) >= 0;) {
            const QString line = QString::fromUtf8(lines.left(end));
            lines.remove(0, end + 1);
            if (!line.startsWith(QLatin1String("done ")) || next >= jobs.size())
                continue;
            if (follower)
                follower->poll(jobs[next].progress);
            if (!session)
                follower.reset();
            QString readError;
            auto snapshot = state::read(session ? sessionDir : outs[next], readError);
            if (session && snapshot) {
                const state::Snapshot now = *snapshot;
                if (sessionSoFar)
                    snapshot = state::since(*sessionSoFar, now);
                sessionSoFar = now;
            }
            done(next, snapshot, readError);
            if (session)
                technician.write("next\n");
            ++next;
        }
        if (!follower && next < jobs.size() && (session || jobs[next].progress))
            follower = std::make_unique<TraceFollower>((session ? sessionDir : outs[next]) + "/trace.log");
        if (follower && next < jobs.size())
            follower->poll(jobs[next].progress);
    };
    while (technician.state() != QProcess::NotRunning) {
        technician.waitForReadyRead(200);
        collect();
    }
    collect();
    if (technician.exitStatus() != QProcess::NormalExit || technician.exitCode() == unavailableStatus ||
        next < jobs.size()) {
        if (unavailable)
            *unavailable = technician.exitCode() == unavailableStatus;
        error = QStringLiteral("the virtual instrument stopped after %1 of %2 jobs (exit status %3): %4")
                    .arg(next)
                    .arg(jobs.size())
                    .arg(technician.exitCode())
                    .arg(QString::fromUtf8(said).trimmed());
        return false;
    }
    return true;
}

} // namespace

bool runBatch(const QVector<Job>& jobs, const Done& done, QString& error, const Options& options,
              bool* unavailable)
{
    return runJobs(jobs, QString(), done, error, options, unavailable);
}

bool runSession(const QVector<Job>& jobs, const QString& session, const Done& done, QString& error,
                const Options& options, bool* unavailable)
{
    return runJobs(jobs, session, done, error, options, unavailable);
}

std::optional<state::Snapshot> run(const Job& job, QString& error, const Options& options, bool* unavailable)
{
    std::optional<state::Snapshot> result;
    QString jobError;
    const bool ran = runBatch(
        {job},
        [&](int, const std::optional<state::Snapshot>& snapshot, const QString& readError) {
            result = snapshot;
            jobError = readError;
        },
        error, options, unavailable);
    if (ran && !result)
        error = jobError;
    return ran ? result : std::nullopt;
}

} // namespace instrument
