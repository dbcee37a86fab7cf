#pragma once
// The target's commands as the updater runs them: one command line, split as the toolkit splits it,
// started without a shell. Each command (cp, rm, tar, the flash and mount tools, a package's script) is
// modelled once here, against the file system model, with the tools' own semantics (GNU coreutils cp and
// rm, GNU tar extracting as root, the instrument's flash tools). What a command does wrong is named by a
// rule id, so lint reads the outcome instead of guessing it again.

#include "InstrumentProfile.h"
#include "Package.h"
#include "RootModel.h"

#include <QHash>

#include <QMap>
#include <QString>
#include <QStringList>
#include <QVector>

namespace target {

enum class Exit
{
    Success,
    Failure,
    NotStarted, // the program could not be started (QProcess::execute gives -2)
    Unknown,    // the model cannot tell (a package's own program, an option it does not know)
};

// Something a command does that the line did not ask for (a link replaced, a folder's mode changed).
struct Note
{
    QString rule;
    QString message;
};

struct Outcome
{
    Exit exit = Exit::Success;
    bool traced = true; // started through PATH, so the trace records it
    QString rule;       // why it fails, as a rule id
    QString message;    // the tool's own words for it
    QString argv;       // the program's name and arguments joined by blanks, as the trace shows them
};

// A partition's content after the commands so far: the whole of it, or a known start of it.
struct Partition
{
    QByteArray content;
    bool whole = false;
    int line = 0; // the command-list line that wrote it last
};

struct Context
{
    rootfs::Tree& tree;
    const profile::Profile& profile;
    QMap<QString, Partition>& partitions;
    QVector<Note>& notes;
    // Media that can be mounted: device -> the file on it (name, inode).
    QMap<QString, QPair<QString, rootfs::Node>> media;
    // Archives already read, by the sha256 of their inode (the package itself is read once).
    QHash<QByteArray, const package::Package*> archives;
    int line = 0; // the command-list line running, for the partitions it writes
};

// The one place that runs a command line: split, found and started as QProcess::execute does.
Outcome run(const QString& commandLine, Context& context);

// What a file the updater starts as a program does; `path` is absolute.
Outcome execute(const QString& path, const QStringList& args, Context& context);

// GNU tar extracting `archive` (its bytes) into the folder `base`, as root; `only` limits it to these
// members. Used for the package itself and for a modules archive.
Outcome extract(const package::Package& archive, const QString& base, const QStringList& only,
                Context& context);

} // namespace target
