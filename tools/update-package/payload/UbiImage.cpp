#include "UbiImage.h"

#include <QtEndian>
#include <zlib.h>

namespace payload {
namespace {

constexpr int headerSize = 64;
constexpr quint32 layoutVolume = 0x7FFFEFFF;
constexpr int vtblRecordSize = 172;
constexpr int maxVolumes = 128;
constexpr qint64 minPeb = qint64(4) * 1024, maxPeb = qint64(4) * 1024 * 1024;

quint32 be32(const char* p)
{
    return qFromBigEndian<quint32>(p);
}

quint32 ubiCrc(const char* data, int size)
{
    return ~quint32(crc32(0L, reinterpret_cast<const Bytef*>(data), uInt(size)));
}

// A header of `size` bytes at `p` whose last four bytes are the CRC of the rest.
bool crcOk(const char* p, int size)
{
    return ubiCrc(p, size - 4) == be32(p + size - 4);
}

bool erased(const char* p, int size)
{
    for (int i = 0; i < size; ++i)
        if (quint8(p[i]) != 0xFF)
            return false;
    return true;
}

quint32 alignUp(quint32 value, quint32 to)
{
    return (value + to - 1) / to * to;
}

void readVolumeTable(const char* p, qint64 size, UbiImage& image)
{
    const int records = int(qMin<qint64>(maxVolumes, size / vtblRecordSize));
    for (int i = 0; i < records; ++i) {
        const char* record = p + ptrdiff_t(i) * vtblRecordSize;
        if (!crcOk(record, vtblRecordSize)) {
            image.corrupt << QStringLiteral("volume table record %1: CRC").arg(i);
            continue;
        }
        const quint32 reserved = be32(record);
        if (reserved == 0)
            continue;
        const int nameLength = qMin(int(qFromBigEndian<quint16>(record + 14)), 127);
        image.volumes.append({i, QString::fromUtf8(record + 16, nameLength), reserved});
    }
    image.volumeTableFound = true;
}

} // namespace

std::optional<UbiImage> readUbi(const QByteArray& data)
{
    const char* base = data.constData();
    const qint64 size = data.size();
    if (size < headerSize || !data.startsWith("UBI#"))
        return std::nullopt;
    UbiImage image;
    image.vidHeaderOffset = be32(base + 16);
    image.dataOffset = be32(base + 20);
    // The next erase-counter header (its magic: a corrupt CRC is reported below) gives the block size.
    for (qint64 candidate = minPeb; candidate <= maxPeb && candidate + headerSize <= size; candidate *= 2) {
        if (data.mid(int(candidate), 4) == "UBI#") {
            image.pebSize = candidate;
            break;
        }
    }
    if (image.pebSize == 0) // a single block: its size is the file's
        image.pebSize = size;
    image.pebs = size / image.pebSize;
    image.leftOver = size % image.pebSize;
    const bool offsetsUsable = image.dataOffset >= image.vidHeaderOffset + headerSize &&
                               image.vidHeaderOffset >= headerSize && image.dataOffset < image.pebSize;

    for (qint64 block = 0; block < image.pebs; ++block) {
        const char* peb = base + block * image.pebSize;
        if (!data.mid(int(block * image.pebSize), 4).startsWith("UBI#")) {
            image.corrupt << QStringLiteral("block %1: no erase-counter header").arg(block);
            continue;
        }
        if (!crcOk(peb, headerSize)) {
            image.corrupt << QStringLiteral("block %1: erase-counter header CRC").arg(block);
            continue;
        }
        if (be32(peb + 16) != image.vidHeaderOffset || be32(peb + 20) != image.dataOffset)
            image.corrupt << QStringLiteral("block %1: header offsets differ from block 0's").arg(block);
        if (!offsetsUsable)
            continue;
        const char* vid = peb + image.vidHeaderOffset;
        if (erased(vid, headerSize))
            continue; // a free block
        if (qstrncmp(vid, "UBI!", 4) != 0 || !crcOk(vid, headerSize)) {
            image.corrupt << QStringLiteral("block %1: volume header %2")
                                 .arg(block)
                                 .arg(qstrncmp(vid, "UBI!", 4) != 0 ? "magic" : "CRC");
            continue;
        }
        if (be32(vid + 8) == layoutVolume && !image.volumeTableFound)
            readVolumeTable(peb + image.dataOffset, image.pebSize - image.dataOffset, image);
    }
    return image;
}

QString identifyRootImageFile(const QByteArray& data)
{
    if (data.startsWith("\x31\x18\x10\x06"))
        return QStringLiteral(
            "a UBIFS image (mkfs.ubifs's output, not yet made into a UBI image by ubinize)");
    if (data.startsWith("hsqs"))
        return QStringLiteral("a squashfs image");
    if (data.size() >= 1082 && quint8(data[1080]) == 0x53 && quint8(data[1081]) == 0xEF)
        return QStringLiteral("an ext2/3/4 file system image");
    if (data.size() >= 262 && data.mid(257, 5) == "ustar")
        return QStringLiteral("a tar archive");
    if (data.startsWith("\x1f\x8b") || data.startsWith("BZh"))
        return QStringLiteral("compressed data");
    if (data.startsWith("UBI#"))
        return QStringLiteral("a UBI erase-counter header cut short");
    return QStringLiteral("raw data");
}

QVector<QPair<quint32, quint32>> ubiOffsetsFor(quint32 page)
{
    QVector<QPair<quint32, quint32>> offsets;
    for (quint32 subpage = page; subpage >= 512 && subpage * 8 >= page; subpage /= 2)
        offsets.append({subpage, alignUp(subpage + headerSize, page)});
    if (offsets.isEmpty() && page > 0) // pages below 512 bytes have no sub-pages
        offsets.append(
            {qMax<quint32>(page, headerSize), alignUp(qMax<quint32>(page, headerSize) + headerSize, page)});
    return offsets;
}

quint32 ubiPageFor(quint32 vidHeaderOffset, quint32 dataOffset)
{
    for (quint32 page = 256; page <= 64 * 1024; page *= 2)
        if (ubiOffsetsFor(page).contains({vidHeaderOffset, dataOffset}))
            return page;
    return 0;
}

} // namespace payload
