#pragma once
// The power-on check: how the instrument comes back after a power cut, judged from the state the cut left
// alone (it never runs the updater again). What "new" means comes from the state a whole run of the same
// package leaves, what "old" means from the instrument before the update (for the PIC, whose memory is
// always there). Each thing the update changes is old, new or lost:
//   kernel partition  a whole U-Boot image (header and data CRCs hold) or lost: the instrument does not boot
//                     (on the SD card written through the kernel's cache: lost until a sync, by the
//                     write-back)
//   root volume       the whole UBI image as the run wrote it, or lost: the instrument does not boot
//   root files        whole and as the run left them; the updater and what it needs to run (the loader,
//                     libraries, the commands it runs) lost: no stick can repair it; the application,
//                     modules and other files lost: the update again repairs them
//   PIC flash/config  old, new, blank or partly programmed (lost: the update again reprograms it)
// /tmp is a RAM file system: nothing of it outlives the cut.

#include "InstrumentState.h"

#include <QSet>
#include <QString>
#include <QVector>
#include <optional>

namespace poweron {

enum class Class // better first: a larger value is worse
{
    Updated,
    Unchanged,
    Repairable,
    Unrepairable,
    Unbootable,
};

QString name(Class c); // "updated", "unchanged", ...
std::optional<Class> fromName(const QString& name);

struct Part // one thing the update changes
{
    enum State
    {
        Old,
        New,
        Lost,
    };
    QString what; // "/home/mainApp", "kernel partition /dev/mtd0", "PIC flash"
    State state = Old;
    Class ifLost = Class::Repairable;
    QString why; // for a lost part: what is wrong
};

struct Verdict
{
    Class cls = Class::Unchanged;
    QString why;
    QVector<Part> parts;
};

struct Reference
{
    state::Snapshot before;               // the instrument before the update (a cut before its first command)
    state::Snapshot after;                // a whole run of the package
    QString updater = "/usr/bin/updater"; // where the updater is installed (the profile's)
};

// What losing each kind of part means. A root file: unrepairable for the updater and what it needs to run
// (`meaning` says which), repairable for anything else.
inline constexpr Class partitionIfLost = Class::Unbootable, picIfLost = Class::Repairable;
Class ifLost(const QString& path, const QString& updater, QString* meaning = nullptr);

// The class of the state as the cut left it.
Verdict check(const state::Snapshot& cut, const Reference& reference);

// What may be lost at the cut by the write-back (exposure::Writer::cached): when the trace shows a root
// file written after the last completed sync (cp, tar, rm outside /tmp, or a script), every changed root
// file; and each cached device (the SD card) written after it. Nothing after a final sync.
QSet<QString> unsynced(const state::Snapshot& cut);

// The worst state the write-back allows: every unsynced file that changed comes back empty, an unsynced
// device with old and new sectors mixed.
Verdict worstWithWriteBack(const state::Snapshot& cut, const Reference& reference);

} // namespace poweron
