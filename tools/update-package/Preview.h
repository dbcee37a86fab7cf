#pragma once
// preview: the package on the virtual instrument with the real updater (through scripts/demo.sh), and
// the comparison of what the message view shows with what lint predicted, command by command.

#include "UpdaterModel.h"

#include <QString>
#include <QStringList>
#include <QVector>

namespace preview {

struct LineVerdict
{
    int line = 0;
    QString command;
    bool headSeen = false;        // the command's first line was found in the view
    QStringList failuresSeen;     // red failure lines in its part of the view
    QStringList failuresExpected; // what lint predicted there
    bool agrees = false;
};

struct Agreement
{
    QVector<LineVerdict> lines;
    QString endSeen;     // the view's last line
    QString endExpected; // lint's prediction
    bool endAgrees = false;
    bool agrees() const;
};

// Splits the view at each command's first line and compares its failure lines with the prediction.
Agreement compare(const model::Analysis& analysis, const QString& viewText);

struct Options
{
    QString package;
    QString out;   // results: view.txt, verify.txt, end.png, menu.png
    QString build; // build tree with the updater, the simulator and the probe
    bool pcJob = false;
};

// Runs the preview and prints as it goes; returns the exit status (0: the view ends in "Update complete").
int run(const Options& options, const model::Analysis& analysis);

QString repoDir();
QString defaultBuildDir();

} // namespace preview
