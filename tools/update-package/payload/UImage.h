#pragma once
// The legacy U-Boot image the instrument's boot loader starts: a 64-byte big-endian header (magic, header
// CRC, size, addresses, data CRC, OS, architecture, type, compression, name) before the kernel. The CRCs
// are zlib's CRC-32.

#include <QByteArray>
#include <QString>
#include <optional>

namespace payload {

struct UImage
{
    static constexpr int headerSize = 64;
    static constexpr quint32 magic = 0x27051956;
    static constexpr quint8 typeKernel = 2, typeKernelNoLoad = 14, osLinux = 5;

    quint32 headerCrc = 0, time = 0, dataSize = 0, load = 0, entry = 0, dataCrc = 0;
    quint8 os = 0, arch = 0, type = 0, compression = 0;
    QString name;

    bool headerCrcOk = false;
    bool complete = false;  // the file holds all dataSize bytes
    bool dataCrcOk = false; // only when complete
    qint64 trailing = 0;    // bytes after the data

    bool isKernel() const { return type == typeKernel || type == typeKernelNoLoad; }
};

// The image when the file begins with the U-Boot magic and holds a whole header; nothing otherwise.
std::optional<UImage> readUImage(const QByteArray& data);

// What a file that is not a uImage is: "a zImage (an ARM kernel without the U-Boot header)", "an ELF
// file", ... or "raw data".
QString identifyKernelFile(const QByteArray& data);

// Names of the header's fields as mkimage writes them ("arm", "linux", "kernel"); "N" when unknown.
QString uImageArchName(quint8 arch);
QString uImageOsName(quint8 os);
QString uImageTypeName(quint8 type);
// The header's architecture code for a profile's machine ("arm" -> 2); 0 when it has none.
quint8 uImageArchFor(const QString& machine);

} // namespace payload
