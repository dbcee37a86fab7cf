#pragma once
// What a power cut can take, without cutting: which target commands write something a cut can leave half
// done (root files and the SD card through the kernel's cache, the NAND partitions raw), how long they take
// on the board, and, for a predicted command list, the class a cut during each line leaves, with the
// write-back carried from line to line until a sync. risk takes its cut points, its board windows and the
// power-on check's write-back from the same table; lint's order warnings and preview's per-line classes
// read the lines' classes.

#include "PowerOn.h"

#include <QStringList>
#include <QVector>
#include <functional>
#include <optional>

namespace predict {
struct Finding;
struct Prediction;
} // namespace predict

namespace exposure {

struct Writer // a target command that writes something a cut can leave half done
{
    const char* tool;
    bool partition;     // writes a device (kernel or root partition, SD card), else root files
    bool cached;        // written back lazily by the kernel: may be lost at a cut until a sync
    bool partOnFailure; // a failure may come after part of the work (cp and rm fail before they write)
    QStringList (*targets)(const QStringList& words); // what it writes (including /tmp)
    // Its duration on the board from the data-sheet figures (boardSource); nothing: as measured.
    std::optional<double> (*board)(const QStringList& words,
                                   const std::function<qint64(const QString&)>& payloadSize);
};

// The writer a command line starts (by its program's file name), or nullptr.
const Writer* writerOf(const QString& argv);
// What the command line writes outside /tmp: root paths, or the device of a partition writer.
QStringList targetsOf(const QString& argv);

// Where the board's figures come from, for the reports.
extern const char* const boardSource;
// The command's duration on the board; `measured` where no figure is known. `payloadSize` gives the size
// of a file of the unpacked package by its path on the instrument.
double boardSeconds(const QString& argv, double measured,
                    const std::function<qint64(const QString&)>& payloadSize);

struct LineClass
{
    // The worst a cut during the line leaves: what its own commands or PIC step can leave half done, and
    // what earlier lines wrote and no sync has made safe yet (the power-on check's "worst").
    poweron::Class worst = poweron::Class::Unchanged;
    QString why; // the part that gives it
};

// One entry a line of the prediction. A script's own writes are not known (its time counts as writing,
// as in the power-on check); a script whose last command is sync ends the write-back.
QVector<LineClass> classes(const predict::Prediction& prediction);

// Lint's order warnings: a line whose unsynced writes keep the instrument unrepairable or unbootable
// through a later line that takes minutes. `reordered` predicts the same package with another command
// list, to check that moving the line breaks nothing.
using Reorder = std::function<std::optional<predict::Prediction>(const QStringList& commandList)>;
QVector<predict::Finding> orderFindings(const predict::Prediction& prediction, const Reorder& reordered);

} // namespace exposure
