#pragma once
// What the updater will do with a package, line by line, predicted from the command table: the view's
// lines, the target commands, the PIC memory written, and the findings of lint.

#include "CommandGrammar.h"
#include "Package.h"

#include <QStringList>
#include <QVector>

namespace model {

enum class Severity
{
    Warning,
    Error
};

// What a line does on the instrument, as far as the message view and the models can tell.
enum class Effect
{
    Done,   // does what the line says (possibly with warnings)
    Fails,  // red failure lines in the view
    Silent, // no failure shown, but the line does not do what it says (skipped or something else)
    Hangs,  // the updater waits forever
};

struct Finding
{
    Severity severity = Severity::Error;
    int line = 0;    // command-list line, 0 for the package as a whole
    QString command; // the line as written
    QString message;
};

struct PicMemory
{
    QStringList programmed; // address ranges written and verified
    QStringList skipped;    // address ranges the updater passes over, with the reason
    QStringList config;     // configuration bytes written: "0x300001 CONFIG1H = 0x02"
};

struct Line
{
    int number = 0;
    QString text;
    QString keyword, argument;
    const grammar::Command* command = nullptr; // nullptr: bad format or unknown command
    QString head;                              // the first view line of this command
    QStringList failures; // red lines after the head (a red head counts as a failure too)
    bool headIsFailure = false;
    Effect effect = Effect::Done;
    QStringList runs;   // target command lines, in order (those predicted to fail included)
    QStringList writes; // what it changes on the instrument
    QString payload;    // the archive entry it reads
    PicMemory pic;
};

struct Analysis
{
    QString packageName;
    QVector<Line> lines;
    QVector<Finding> findings;
    QString packageStop; // the red text that ends the job before any command, empty when the list runs
    bool hasErrors() const;
    // The start of the view's last line at the end of the job; empty when the updater never gets there.
    QString expectedEnd() const;
};

Analysis analyse(const package::Package& pkg);

QString effectName(Effect effect);

} // namespace model
