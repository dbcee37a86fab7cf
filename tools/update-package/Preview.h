#pragma once
// preview: the package on the virtual instrument with the real updater (VirtualInstrument.h), and the
// comparison of what the message view shows with what lint predicted, command by command. Several
// packages are one session: one running updater takes them one after another, as a technician inserts
// one stick after the other, and each is predicted from where the one before left the instrument.

#include "Prediction.h"

#include <QString>
#include <QStringList>
#include <QVector>

namespace preview {

struct Package
{
    QString archive; // the file that goes onto the medium
    package::Package read;
    QString archiveName; // its name on the medium when it was packed from a folder
};

struct Options
{
    QVector<Package> packages; // in the order they go in
    // The job's state folder: view.txt, trace.log, rootfs/, end.png, ...; for several packages the
    // session's (the instrument after the last one), each package's view, trace and screenshots in
    // package-N/ below it.
    QString out;
    QString build;   // build tree with the updater, the simulator and the probe
    QString profile; // the instrument profile the virtual instrument is built from
    bool pcJob = false;
    bool json = false;      // the result as JSON on stdout; the progress and the readable result on stderr
    int timeoutSeconds = 0; // a job not ended then is stopped; 0: 1200 s (120 if predicted to hang)
};

// Runs the preview and prints as it goes; returns the exit status (0: every package as predicted, 1: a
// difference, a change no line asks for, or a package that could not be compared; 2: nothing could run).
int run(const Options& options, const profile::Profile& profile);

} // namespace preview
