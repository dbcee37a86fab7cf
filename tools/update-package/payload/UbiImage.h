#pragma once
// A UBI image as ubinize writes it and ubiformat puts it on NAND: whole physical erase blocks (PEBs), each
// beginning with a 64-byte erase-counter header (magic "UBI#", the offsets of the volume header and of the
// data, CRC) and, where mapped, a 64-byte volume-identifier header ("UBI!"). The layout volume's blocks hold
// the volume table. All big-endian; the CRC is zlib's CRC-32 without the final inversion.

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>
#include <optional>

namespace payload {

struct UbiVolume
{
    int id = 0;
    QString name;
    quint32 reservedPebs = 0;
};

struct UbiImage
{
    qint64 pebSize = 0;          // the distance between erase-counter headers
    quint32 vidHeaderOffset = 0; // of the first block's erase-counter header
    quint32 dataOffset = 0;
    qint64 pebs = 0;            // whole blocks in the file
    qint64 leftOver = 0;        // bytes after the last whole block
    QStringList corrupt;        // "block 3: erase-counter header CRC", ...
    QVector<UbiVolume> volumes; // from the volume table; empty when none was found
    bool volumeTableFound = false;
};

// The image when the file begins with an erase-counter header; nothing otherwise.
std::optional<UbiImage> readUbi(const QByteArray& data);

// What a file that is not a UBI image is: "a UBIFS image ...", "a squashfs image", ... or "raw data".
QString identifyRootImageFile(const QByteArray& data);

// The (volume header, data) offsets UBI uses in each block of a NAND with this page size, one pair for each
// sub-page size it may have (page, page/2, page/4, page/8, not below 512).
QVector<QPair<quint32, quint32>> ubiOffsetsFor(quint32 page);

// The smallest page size whose UBI offsets are these; 0 when none is.
quint32 ubiPageFor(quint32 vidHeaderOffset, quint32 dataOffset);

} // namespace payload
