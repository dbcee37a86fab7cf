#pragma once
// The PIC step as the updater's programmer performs it on the PIC18F4620: a bulk erase of the program
// memory, then the HEX file read line by line the way the programmer reads it (fields by position, no
// checks), each record written where the programmer writes it, verified, or passed over. The chip's side
// (flash bits only cleared by programming, configuration cells, code and write protection) follows the
// configuration table the PIC model uses.

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QVector>

namespace pic {

struct Note
{
    QString rule;
    int hexLine = 0;
    QString message;
};

struct Range
{
    quint32 from = 0, to = 0; // [from, to)
};

struct Memory
{
    QByteArray flash;  // 64 KiB of program memory
    QByteArray config; // the 14 configuration cells as written
};

// The chip as the virtual instrument starts it: erased flash, unprogrammed configuration.
Memory blankChip();

struct Result
{
    bool programmed = false; // the programmer reports success
    int stoppedAtLine = 0;   // the HEX line whose record ended the run (0: it ran to the end)
    Memory memory;           // after erase and programming
    QVector<Range> written;  // program memory records written and verified
    int rowWrites = 0;       // 64-byte rows the chip programmed (protected rows are not)
    int configWrites = 0;    // configuration bytes the chip took (none while WRTC protects them)
    QVector<Note> notes;     // what the programmer does that the file did not mean
};

// Bulk erase of `before`, then the file programmed into it.
Result program(const QByteArray& hexText, const Memory& before);

QString rangeText(const QVector<Range>& ranges);

} // namespace pic
