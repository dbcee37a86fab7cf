#include "UImage.h"

#include <QtEndian>
#include <zlib.h>

namespace payload {
namespace {

struct Code
{
    quint8 value;
    const char* name;
};

// The codes of U-Boot's legacy image header, named as mkimage's -A, -O and -T take them.
constexpr Code archs[] = {{1, "alpha"},    {2, "arm"},     {3, "x86"},         {4, "ia64"},   {5, "mips"},
                          {6, "mips64"},   {7, "powerpc"}, {8, "s390"},        {9, "sh"},     {10, "sparc"},
                          {11, "sparc64"}, {12, "m68k"},   {14, "microblaze"}, {15, "nios2"}, {22, "arm64"},
                          {23, "arc"},     {24, "x86_64"}, {25, "xtensa"},     {26, "riscv"}};
constexpr Code oses[] = {{1, "openbsd"}, {2, "netbsd"},   {3, "freebsd"},
                         {5, "linux"},   {14, "vxworks"}, {16, "qnx"},
                         {17, "u-boot"}, {18, "rtems"},   {25, "arm-trusted-firmware"},
                         {26, "tee"},    {27, "opensbi"}, {28, "efi"}};
constexpr Code types[] = {{1, "standalone"}, {2, "kernel"},   {3, "ramdisk"},
                          {4, "multi"},      {5, "firmware"}, {6, "script"},
                          {7, "filesystem"}, {8, "flat_dt"},  {14, "kernel_noload"}};

template <size_t N> QString nameOf(const Code (&table)[N], quint8 value)
{
    for (const Code& c : table)
        if (c.value == value)
            return QString::fromLatin1(c.name);
    return QString::number(value);
}

quint32 crc(const char* data, qint64 size)
{
    uLong sum = crc32(0L, Z_NULL, 0);
    // zlib takes at most 4 GiB a call; payloads are far smaller, but the loop costs nothing.
    for (qint64 done = 0; done < size;) {
        const uInt chunk = uInt(qMin<qint64>(size - done, 1 << 30));
        sum = crc32(sum, reinterpret_cast<const Bytef*>(data + done), chunk);
        done += chunk;
    }
    return quint32(sum);
}

quint32 be32(const QByteArray& data, int offset)
{
    return qFromBigEndian<quint32>(data.constData() + offset);
}

} // namespace

std::optional<UImage> readUImage(const QByteArray& data)
{
    if (data.size() < UImage::headerSize || be32(data, 0) != UImage::magic)
        return std::nullopt;
    UImage image;
    image.headerCrc = be32(data, 4);
    image.time = be32(data, 8);
    image.dataSize = be32(data, 12);
    image.load = be32(data, 16);
    image.entry = be32(data, 20);
    image.dataCrc = be32(data, 24);
    image.os = quint8(data[28]);
    image.arch = quint8(data[29]);
    image.type = quint8(data[30]);
    image.compression = quint8(data[31]);
    const QByteArray name = data.mid(32, 32);
    image.name = QString::fromLatin1(name.left(name.indexOf('\0')));

    QByteArray header = data.left(UImage::headerSize);
    qToBigEndian<quint32>(0, header.data() + 4); // the header CRC is taken with its own field zero
    image.headerCrcOk = crc(header.constData(), header.size()) == image.headerCrc;
    const qint64 available = data.size() - UImage::headerSize;
    image.complete = qint64(image.dataSize) <= available;
    if (image.complete) {
        image.dataCrcOk = crc(data.constData() + UImage::headerSize, image.dataSize) == image.dataCrc;
        image.trailing = available - image.dataSize;
    }
    return image;
}

QString identifyKernelFile(const QByteArray& data)
{
    if (data.startsWith("\x7f"
                        "ELF"))
        return QStringLiteral("an ELF file (a vmlinux, which no boot loader starts)");
    if (data.size() >= 0x30 && qFromLittleEndian<quint32>(data.constData() + 0x24) == 0x016F2818)
        return QStringLiteral("a zImage (an ARM kernel without the U-Boot header)");
    if (data.size() >= 0x3C && data.mid(0x38, 4) == "ARM\x64")
        return QStringLiteral("an arm64 kernel Image");
    if (data.startsWith("\xd0\x0d\xfe\xed"))
        return QStringLiteral("a flattened device tree or FIT image");
    if (data.startsWith("\x1f\x8b"))
        return QStringLiteral("gzip data");
    if (data.startsWith("UBI#"))
        return QStringLiteral("a UBI image");
    if (data.size() < UImage::headerSize && data.size() >= 4 && be32(data, 0) == UImage::magic)
        return QStringLiteral("a U-Boot header cut short (%1 of 64 bytes)").arg(data.size());
    return QStringLiteral("raw data");
}

QString uImageArchName(quint8 arch)
{
    return nameOf(archs, arch);
}

QString uImageOsName(quint8 os)
{
    return nameOf(oses, os);
}

QString uImageTypeName(quint8 type)
{
    return nameOf(types, type);
}

quint8 uImageArchFor(const QString& machine)
{
    static const struct
    {
        const char* machine;
        quint8 arch;
    } map[] = {{"arm", 2}, {"aarch64", 22}, {"x86-64", 24}, {"i386", 3}, {"riscv", 26}, {"mips", 5}};
    for (const auto& m : map)
        if (machine == QLatin1String(m.machine))
            return m.arch;
    return 0;
}

} // namespace payload
