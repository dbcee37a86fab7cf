#include "Rules.h"

#include <cstring>

namespace payload {

const QVector<Rule>& rules()
{
    static const QVector<Rule> table = {
        {"payload-unread", Severity::Warning, "a payload too large for the tool to read was not checked"},
        {"program-format", Severity::Error, "a program is neither an ELF file nor a script with #!"},
        {"program-mode", Severity::Error, "a program lands on the instrument without execute permission"},
        {"elf-format", Severity::Error, "an ELF file is truncated or cannot be read"},
        {"elf-type", Severity::Error,
         "an object of the wrong kind: a program that is not executable, a "
         "module that is not a relocatable object"},
        {"elf-machine", Severity::Error, "ELF class or machine other than the instrument's"},
        {"elf-float-abi", Severity::Error, "ARM float ABI other than the instrument's"},
        {"elf-interpreter", Severity::Error,
         "the dynamic loader a program names is missing on the instrument"},
        {"elf-interpreter-other", Severity::Warning,
         "a program names a loader that exists, but is not the one of the instrument's programs"},
        {"script-interpreter", Severity::Error, "a script's interpreter is missing on the instrument"},
        {"script-cr", Severity::Error, "a script's #! line ends in a carriage return"},
        {"uimage-format", Severity::Error, "the kernel is not a legacy U-Boot image (zImage, ELF, raw data)"},
        {"uimage-truncated", Severity::Error, "the kernel image's length field runs past the file"},
        {"uimage-header-crc", Severity::Error, "the kernel image's header CRC is wrong"},
        {"uimage-data-crc", Severity::Error, "the kernel image's data CRC is wrong"},
        {"uimage-arch", Severity::Error, "the kernel image is for another CPU architecture"},
        {"uimage-os", Severity::Error, "the kernel image is for another operating system"},
        {"uimage-type", Severity::Error, "the image is not a kernel (ramdisk, script, firmware, ...)"},
        {"uimage-trailing", Severity::Warning, "bytes after the kernel image's data"},
        {"kernel-size", Severity::Error, "the kernel does not fit its partition"},
        {"modules-archive", Severity::Error, "the modules archive cannot be read to its end"},
        {"modules-release", Severity::Error, "no module for the instrument's kernel release"},
        {"modules-other-release", Severity::Warning,
         "modules for a kernel release the instrument does not run"},
        {"modules-vermagic", Severity::Error,
         "a module built for another kernel release, or with no vermagic"},
        {"modules-dep", Severity::Warning, "no modules.dep: modprobe cannot find the modules by name"},
        {"modules-replaces-link", Severity::Error,
         "unpacked over /, the archive replaces a link of the "
         "instrument with a folder"},
        {"modules-outside", Severity::Warning, "the archive writes files outside lib/modules/"},
        {"modules-changes-folder", Severity::Warning,
         "unpacked over /, the archive changes the mode or owner of an instrument folder"},
        {"ubi-format", Severity::Error, "the root image is not a UBI image"},
        {"ubi-header-crc", Severity::Error, "a UBI header is corrupt"},
        {"ubi-erase-block", Severity::Error, "the UBI image is for another erase-block size"},
        {"ubi-page", Severity::Error, "the UBI image is for another NAND page size"},
        {"ubi-size", Severity::Error, "the UBI image does not fit its partition"},
        {"ubi-volume", Severity::Error, "the UBI image has no volume named rootfs"},
    };
    return table;
}

Finding finding(const char* ruleId, const QString& message)
{
    for (const Rule& rule : rules())
        if (std::strcmp(rule.id, ruleId) == 0)
            return {QString::fromLatin1(rule.id), rule.severity, message};
    qFatal("payload rule %s is not in the table", ruleId);
}

} // namespace payload
