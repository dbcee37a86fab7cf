#pragma once
// preview: the package on the virtual instrument with the real updater (VirtualInstrument.h), and the
// comparison of what the message view shows with what lint predicted, command by command.

#include "Prediction.h"

#include <QString>
#include <QStringList>
#include <QVector>

namespace preview {

struct Options
{
    QString package;
    QString out;     // the job's state folder: view.txt, trace.log, rootfs/, end.png, ...
    QString build;   // build tree with the updater, the simulator and the probe
    QString profile; // the instrument profile the virtual instrument is built from
    bool pcJob = false;
    bool json = false;      // the result as JSON on stdout; the progress and the readable result on stderr
    int timeoutSeconds = 0; // a job not ended then is stopped; 0: 1200 s (120 if predicted to hang)
};

// Runs the preview and prints as it goes; returns the exit status (0: the view ends in "Update complete").
int run(const Options& options, const predict::Prediction& prediction);

} // namespace preview
