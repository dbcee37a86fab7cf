#pragma once
// Runs packages on the virtual instrument with the real, unmodified updater: scripts/technician.sh plays
// the technician from outside the sandbox's root (keys through the probe inside the updater), and the
// state reader reads what each job left. One instrument serves a whole batch; every job gets a fresh
// root, fresh media and the instrument as at its start, unless the batch is a session: one running
// updater takes the jobs one after another, as a technician inserts one stick after the other.

#include "InstrumentState.h"

#include <QString>
#include <QVector>
#include <functional>
#include <optional>

namespace instrument {

struct Job
{
    QString package; // the archive; empty: nothing on the medium
    bool pcJob = false;
    QString profile; // the instrument profile (given to the sandbox as SIM_PROFILE)
    QString outDir;  // the job's state folder, kept; empty: a temporary one, removed after reading
    int timeoutSeconds = 1200;
    // Called with each new trace line while the job runs (for a live view); may be empty.
    std::function<void(const QString&)> progress;
};

struct Options
{
    QString build;       // build tree with the updater, the instrument and the probe; empty: the default
    bool screens = true; // screenshots at the end and back at the menu (a batch saves the time)
    // The CPU the instrument, the updater and the target commands share; -1: the one this process runs on.
    // A GPIO operation is a round trip between the updater and the simulator: on one CPU it hands over
    // without waking another, about five times faster than spread over two.
    int cpu = -1;
};

// The CPUs this process may run on, in order (one lane of instruments on each).
QVector<int> usableCpus();

// Runs the real updater in the sandbox on a fresh instrument: inserts the package, plays the technician
// (F3 F1, or F2 F1 ... F1), waits for the end or the time-out, reads the state. Never throws. A job that
// did not end still has a snapshot (its `outcome` says why); no snapshot means the instrument could not
// run or its state could not be read, and `error` says which. `unavailable` (if given) is set when the
// machine lacks what the sandbox needs.
std::optional<state::Snapshot> run(const Job& job, QString& error, const Options& options = {},
                                   bool* unavailable = nullptr);

// The jobs in order on one instrument; `done` gets each job's index and result as soon as it is read.
// Returns false (with `error`) when the batch itself could not run to its end.
using Done =
    std::function<void(int index, const std::optional<state::Snapshot>& snapshot, const QString& error)>;
bool runBatch(const QVector<Job>& jobs, const Done& done, QString& error, const Options& options = {},
              bool* unavailable = nullptr);

// The jobs as one session (scripts/technician.sh --session), the instrument's state in the folder
// `session`: one running updater takes them one after another, as a technician inserts one stick after
// the other; it keeps what it holds (its system type), the root keeps what a job left. A job's snapshot
// is what that job changed (state::since); its outDir gets its view, outcome, trace and screenshots. A
// job that does not end ends the session (false, and `error` says after which job).
bool runSession(const QVector<Job>& jobs, const QString& session, const Done& done, QString& error,
                const Options& options = {}, bool* unavailable = nullptr);

QString defaultBuildDir();

} // namespace instrument
