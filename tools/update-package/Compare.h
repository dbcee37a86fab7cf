#pragma once
// The prediction against what the virtual instrument showed and holds after the job, keyed by the
// command-list line. The trace is aligned with the predicted events in order (a longest common
// subsequence), so one difference does not make every later line disagree; an event that came in
// another place than predicted is one difference of order on its line. Changes of the root nobody
// predicted (a folder's mode, a link replaced, a file written through a link) are differences too.

#include "InstrumentState.h"
#include "Prediction.h"

#include <QString>
#include <QVector>

namespace compare {

struct Difference
{
    int line = 0; // command-list line; 0 before the list (or no line predicted it), -1 after it
    QString what; // "view", "run", "order", "exit", "root", "partition", "pic", "end"
    QString predicted, observed;
};

struct Result
{
    QVector<Difference> differences;
    QVector<Difference> unsure; // differences where the prediction said it cannot know (not counted)
    bool agrees() const { return differences.isEmpty(); }
};

// One event of the trace: "view COLOUR TEXT", "run ARGV" with its exit status, unescaped.
struct TraceEvent
{
    bool run = false;
    QString colour, text;
    int exit = 0;
    bool exited = false;
};
QVector<TraceEvent> parseTrace(const QVector<QString>& lines);

Result compare(const predict::Prediction& prediction, const state::Snapshot& snapshot);

// Changes of the root no line asks for, whether predicted or not: a folder's mode or owner, a link
// replaced or removed, a file written that no line names (through a link, say). `line` is the line whose
// predicted writes hold the path, 0 when none does.
struct Damage
{
    int line = 0;
    QString path, what;
};
QVector<Damage> damage(const predict::Prediction& prediction, const state::Snapshot& snapshot);

// "line 3 (APP:/mainApp): exit of cp ...: predicted succeeds, observed exit 1", one a line.
QString text(const predict::Prediction& prediction, const Result& result);

} // namespace compare
