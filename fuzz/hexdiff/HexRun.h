#pragma once
// One HEX file both ways: the package tool's prediction (pic::program) and the updater's own PicProgrammer
// on the PIC18F4620 model, in-process on the fuzz targets' line bank and virtual clock. What is compared
// is what the instrument shows afterwards: success or failure, the HEX line where the run stopped, the
// whole flash, the configuration cells, the row and configuration writes the chip performed, and that ID
// locations and EEPROM stay untouched.
//
// The real run is the update step's order: constructor, bulk erase, blank check, the lines restored as on
// eraseDone, programPic. The blank check reads 64 KB over the lines (millions of line operations, about
// half a second here), so by default it is taken from the model's own reads instead; Erase::OnTheLines runs
// it as the updater does, to show the shortcut changes nothing.
#include "PicProgram.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace hexdiff {

struct Outcome
{
    bool programmed = false;
    int stoppedAtLine = 0; // the HEX line whose record ended the run; 0 when it ran to the end
    pic::Memory memory;
    int rowWrites = 0;
    int configWrites = 0;
    QStringList untouchedWritten; // "ID locations", "EEPROM": written, though nothing should write them
    bool eraseFailed = false;
};

enum class Erase
{
    FromModel,
    OnTheLines
};

// Attaches the PIC model to the line bank; needs a QCoreApplication. Idempotent.
void setUp();

Outcome predicted(const QByteArray& hexText, const pic::Memory& before);
Outcome onUpdater(const QByteArray& hexText, const pic::Memory& before, Erase erase = Erase::FromModel);

// What differs, one line each; empty when the two agree.
QStringList differences(const Outcome& predicted, const Outcome& updater);

// Drops runs of lines while the file still disagrees (the same first difference kind), within a budget.
QByteArray shrinkByLines(const QByteArray& hexText, const pic::Memory& before);

} // namespace hexdiff
