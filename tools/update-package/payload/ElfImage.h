#pragma once
// What an ELF file says about the platform it runs on: class, machine, ARM float ABI, the dynamic loader
// it asks for and, for kernel modules, the .modinfo section. Read with libelf from memory.

#include <QByteArray>
#include <QString>
#include <optional>

namespace payload {

struct ElfImage
{
    int elfClass = 0; // 32 or 64
    bool bigEndian = false;
    int machine = 0;     // e_machine
    QString machineName; // as the instrument profile names machines: "arm", "x86-64", ...
    int type = 0;        // e_type: ET_EXEC, ET_DYN, ET_REL, ...
    quint32 flags = 0;
    QString floatAbi;    // "hard" or "soft" when an ARM EABI file declares one, else ""
    QString interpreter; // PT_INTERP; empty for a static program
    QByteArray modinfo;  // the .modinfo section of a kernel module

    bool runnable() const; // an executable or a position-independent one
    // "ELF 64-bit x86-64 program", "ELF 32-bit ARM hard-float program", "ELF 32-bit ARM relocatable object"
    QString describe() const;
};

bool looksLikeElf(const QByteArray& data);

// Reads the file; on failure (not ELF, truncated, a header pointing past the end) returns nothing and sets
// `error` to what is wrong.
std::optional<ElfImage> readElf(const QByteArray& data, QString& error);

// The machine as people write it ("ARM", "x86-64") for a profile's machine name ("arm", "x86-64").
QString machineTitle(const QString& machineName);

// The value of "key=value" in a .modinfo section (NUL-separated strings); empty when absent.
QString modinfoValue(const QByteArray& modinfo, const QString& key);

} // namespace payload
