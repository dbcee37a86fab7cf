#include "ElfImage.h"

#include <QList>
#include <elf.h>
#include <gelf.h>
#include <libelf.h>
#include <memory>

namespace payload {
namespace {

struct Machine
{
    int code;
    const char* name;  // the profile's name
    const char* title; // as written in messages
};

constexpr Machine machines[] = {
    {EM_ARM, "arm", "ARM"},       {EM_AARCH64, "aarch64", "AArch64"}, {EM_X86_64, "x86-64", "x86-64"},
    {EM_386, "i386", "i386"},     {EM_RISCV, "riscv", "RISC-V"},      {EM_MIPS, "mips", "MIPS"},
    {EM_PPC, "ppc", "PowerPC"},   {EM_PPC64, "ppc64", "PowerPC 64"},  {EM_S390, "s390", "S/390"},
    {EM_SPARC, "sparc", "SPARC"},
};

using ElfHandle = std::unique_ptr<Elf, decltype(&elf_end)>;

QString libelfError()
{
    return QString::fromUtf8(elf_errmsg(-1));
}

// True when [offset, offset + size) lies inside a file of `fileSize` bytes; otherwise says what runs past.
bool inside(quint64 offset, quint64 size, qint64 fileSize, const QString& what, QString& error)
{
    if (offset <= quint64(fileSize) && size <= quint64(fileSize) - offset)
        return true;
    error = QStringLiteral("truncated: its %1 needs bytes up to %2, the file has %3")
                .arg(what)
                .arg(offset + size)
                .arg(fileSize);
    return false;
}

} // namespace

bool ElfImage::runnable() const
{
    return type == ET_EXEC || type == ET_DYN;
}

QString ElfImage::describe() const
{
    QString kind;
    switch (type) {
    case ET_EXEC:
    case ET_DYN:
        kind = QStringLiteral("program");
        break;
    case ET_REL:
        kind = QStringLiteral("relocatable object");
        break;
    case ET_CORE:
        kind = QStringLiteral("core dump");
        break;
    default:
        kind = QStringLiteral("file of type %1").arg(type);
    }
    const QString abi = floatAbi.isEmpty() ? QString() : floatAbi + QStringLiteral("-float ");
    return QStringLiteral("ELF %1-bit %2 %3%4").arg(elfClass).arg(machineTitle(machineName), abi, kind);
}

bool looksLikeElf(const QByteArray& data)
{
    return data.startsWith(ELFMAG);
}

std::optional<ElfImage> readElf(const QByteArray& data, QString& error)
{
    static const bool initialised = elf_version(EV_CURRENT) != EV_NONE;
    if (!initialised) {
        error = QStringLiteral("libelf cannot be initialised");
        return std::nullopt;
    }
    if (!looksLikeElf(data)) {
        error = QStringLiteral("not an ELF file");
        return std::nullopt;
    }
    // libelf may convert a foreign byte order in place: it gets a copy of its own.
    QByteArray image(data.constData(), data.size());
    const qint64 size = image.size();
    ElfHandle elf(elf_memory(image.data(), size_t(size)), &elf_end);
    GElf_Ehdr header;
    if (!elf || elf_kind(elf.get()) != ELF_K_ELF || !gelf_getehdr(elf.get(), &header)) {
        error = QStringLiteral("unreadable ELF header (%1)").arg(libelfError());
        return std::nullopt;
    }
    ElfImage out;
    out.elfClass = gelf_getclass(elf.get()) == ELFCLASS64 ? 64 : 32;
    out.bigEndian = header.e_ident[EI_DATA] == ELFDATA2MSB;
    out.machine = header.e_machine;
    out.machineName = QStringLiteral("machine %1").arg(header.e_machine);
    for (const Machine& m : machines)
        if (m.code == header.e_machine)
            out.machineName = QString::fromLatin1(m.name);
    out.type = header.e_type;
    out.flags = header.e_flags;
    if (header.e_machine == EM_ARM && (header.e_flags & EF_ARM_EABIMASK) != 0) {
        if (header.e_flags & EF_ARM_ABI_FLOAT_HARD)
            out.floatAbi = QStringLiteral("hard");
        else if (header.e_flags & EF_ARM_ABI_FLOAT_SOFT)
            out.floatAbi = QStringLiteral("soft");
    }

    size_t segments = 0, sections = 0, names = 0;
    if (elf_getphdrnum(elf.get(), &segments) != 0 || elf_getshdrnum(elf.get(), &sections) != 0) {
        error = QStringLiteral("unreadable header tables (%1)").arg(libelfError());
        return std::nullopt;
    }
    if (!inside(header.e_phoff, quint64(segments) * header.e_phentsize, size, "program header table",
                error) ||
        !inside(header.e_shoff, quint64(sections) * header.e_shentsize, size, "section header table", error))
        return std::nullopt;
    for (size_t i = 0; i < segments; ++i) {
        GElf_Phdr segment;
        if (!gelf_getphdr(elf.get(), int(i), &segment)) {
            error = QStringLiteral("unreadable program header %1 (%2)").arg(i).arg(libelfError());
            return std::nullopt;
        }
        if ((segment.p_type == PT_LOAD || segment.p_type == PT_INTERP) &&
            !inside(segment.p_offset, segment.p_filesz, size, QStringLiteral("segment %1").arg(i), error))
            return std::nullopt;
        if (segment.p_type == PT_INTERP) {
            const QByteArray text = image.mid(int(segment.p_offset), int(segment.p_filesz));
            out.interpreter = QString::fromUtf8(text.left(text.indexOf('\0')));
        }
    }
    if (sections > 0 && elf_getshdrstrndx(elf.get(), &names) != 0) {
        error = QStringLiteral("unreadable section names (%1)").arg(libelfError());
        return std::nullopt;
    }
    for (Elf_Scn* section = elf_nextscn(elf.get(), nullptr); section;
         section = elf_nextscn(elf.get(), section)) {
        GElf_Shdr sh;
        if (!gelf_getshdr(section, &sh)) {
            error = QStringLiteral("unreadable section header (%1)").arg(libelfError());
            return std::nullopt;
        }
        const char* name = elf_strptr(elf.get(), names, sh.sh_name);
        if (sh.sh_type == SHT_NOBITS)
            continue;
        if (!inside(sh.sh_offset, sh.sh_size, size,
                    QStringLiteral("section %1")
                        .arg(name ? QString::fromUtf8(name) : QString::number(elf_ndxscn(section))),
                    error))
            return std::nullopt;
        if (name && qstrcmp(name, ".modinfo") == 0)
            out.modinfo = image.mid(int(sh.sh_offset), int(sh.sh_size));
    }
    return out;
}

QString machineTitle(const QString& machineName)
{
    for (const Machine& m : machines)
        if (machineName == QLatin1String(m.name))
            return QString::fromLatin1(m.title);
    return machineName;
}

QString modinfoValue(const QByteArray& modinfo, const QString& key)
{
    const QByteArray prefix = key.toUtf8() + '=';
    for (const QByteArray& item : modinfo.split('\0'))
        if (item.startsWith(prefix))
            return QString::fromUtf8(item.mid(prefix.size()));
    return QString();
}

} // namespace payload
