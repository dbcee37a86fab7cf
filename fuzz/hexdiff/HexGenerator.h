#pragma once
// Seeded Intel HEX files for the PIC step: the seed files of real tools (gpasm, srec_cat) and files made
// here from records in every region (flash below and above 64 KB, the 0xFFFE edge, configuration, ID
// locations, EEPROM), each then bent into its near misses (odd addresses and lengths, extended linear and
// segment address records, other record types, bad checksums, records longer than the programmer's
// buffer, no end record, CR LF, blank lines, non-hex characters, lower case), and the chip as the step finds
// it (blank, or with configuration and protection bits from earlier firmware).
#include "PicProgram.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

#include <random>

namespace hexdiff {

struct Case
{
    QByteArray text;
    pic::Memory before;
    QStringList how; // the seed or "made", then each mutation applied
};

// Every file of the folders, in name order.
QVector<QByteArray> readSeeds(const QStringList& folders);
// fuzz/hexdiff/seeds and fuzz/corpus/hex of this source tree.
QStringList defaultSeedFolders();

// One data record (types other than 0 too), checksum right.
QByteArray record(quint8 type, quint16 offset, const QByteArray& data);

class Generator
{
public:
    Generator(quint64 seed, QVector<QByteArray> seeds);
    Case next();

private:
    quint32 below(quint32 n) { return n ? quint32(m_random() % n) : 0; }
    bool chance(int percent) { return below(100) < quint32(percent); }
    QByteArray bytes(int count);
    QList<QByteArray> madeFile(QStringList& how);
    QByteArray bigFile(QStringList& how);
    void mutate(QList<QByteArray>& lines, QStringList& how);
    QByteArray joined(const QList<QByteArray>& lines, QStringList& how);
    pic::Memory chipBefore(QStringList& how);

    std::mt19937_64 m_random;
    QVector<QByteArray> m_seeds;
};

} // namespace hexdiff
