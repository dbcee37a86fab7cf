#pragma once
// A strict Intel HEX reader: every record is checked (mark, hex digits, length, checksum, type, the
// address records' shape). Records are kept as written, with their line numbers, so a caller can replay
// them the way a particular programmer reads them.

#include <QByteArray>
#include <QString>
#include <QVector>

namespace hex {

enum RecordType : quint8
{
    Data = 0,
    EndOfFile = 1,
    ExtendedSegmentAddress = 2,
    StartSegmentAddress = 3,
    ExtendedLinearAddress = 4,
    StartLinearAddress = 5,
};

struct Record
{
    int line = 0;
    quint8 type = 0;
    quint16 offset = 0;
    QByteArray data;
    bool checksumOk = true;
};

struct Problem
{
    int line = 0; // 0: the file as a whole
    QString rule; // the lint rule it falls under
    QString message;
};

struct File
{
    QVector<Record> records; // well-formed records (a wrong checksum still counts as well formed)
    QVector<Problem> problems;
};

File parse(const QByteArray& text);

// "0x" and at least `digits` upper-case hex digits.
QString hexNumber(quint32 value, int digits);

} // namespace hex
