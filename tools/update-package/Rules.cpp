#include "Rules.h"

namespace rules {

const std::vector<Rule>& all()
{
    using S = Severity;
    static const std::vector<Rule> table = {
        // The package as a whole.
        {"package-name", S::Error,
         "The archive's name does not match *M_firmware_update*.tar.bz2: the updater finds no package."},
        {"package-name-blank", S::Error,
         "The archive's name holds a blank or a quote: the updater's tar command is split there and "
         "extraction fails."},
        {"package-compression", S::Warning,
         "The archive is not compressed with bzip2; the instrument's tar unpacks it all the same."},
        {"package-member-outside", S::Warning,
         "A member lies outside firmware_update/: it is unpacked into /tmp, where no command names it."},
        {"package-member-absolute", S::Warning,
         "A member has an absolute name: tar strips the leading '/' and unpacks it below /tmp."},
        {"package-link-outside", S::Warning,
         "A link in the package points outside it: a command naming it reads the instrument's own file."},
        {"package-large-member", S::Warning,
         "A member of a gigabyte or more is unpacked into /tmp, which lives in the instrument's memory."},
        {"payload-unused", S::Warning, "A file of the package is named by no command."},
        {"command-list-missing", S::Error,
         "There is no firmware_update/update_config: the updater runs no command."},
        {"command-list-unreadable", S::Error,
         "update_config is not a file the updater can read: it runs no command."},
        {"command-list-empty", S::Warning,
         "The command list is empty: the updater changes nothing and reports success."},
        {"command-list-not-ascii", S::Warning,
         "update_config holds bytes that are not ASCII: paths must match the package's names byte for byte."},
        // tar, unpacking the package or a modules archive.
        {"tar-member-dotdot", S::Error, "A member's name contains '..': tar skips it and fails."},
        {"tar-hardlink-missing", S::Error, "A hard link names a member that is not there: tar fails."},
        {"tar-member-over-folder", S::Error, "A member would replace a folder that is not empty: tar fails."},
        {"tar-member-path", S::Error,
         "A member's folder cannot be made (a file or a read-only folder is in the way): tar fails."},
        {"tar-not-archive", S::Error, "The file is not a tar archive: tar fails."},
        {"tar-corrupt", S::Error,
         "The archive is truncated or corrupt: tar fails after the members before the damage."},
        {"tar-member-not-found", S::Error,
         "tar is asked for a member the archive does not hold (a blank split the command): it fails."},
        {"tar-archive-missing", S::Error, "The archive tar is given does not exist: it fails."},
        {"tar-archive-not-folder", S::Error, "The archive's path goes through a file: tar fails."},
        {"tar-archive-trailing-slash", S::Error, "The archive's path ends in '/': tar fails."},
        {"tar-archive-dotdot", S::Error,
         "The archive's path climbs with '..' through a folder that does not exist: tar fails."},
        {"tar-archive-folder", S::Error, "The archive tar is given is a folder: it fails."},
        {"tar-folder-missing", S::Error, "The folder tar unpacks into does not exist: it fails."},
        {"tar-replaces-link", S::Error,
         "A folder or file of the archive replaces one of the instrument's links (such as /lib): everything "
         "that went through the link breaks."},
        {"tar-changes-folder", S::Error,
         "A folder member changes the mode or owner of one of the instrument's folders (such as / or /tmp)."},
        // The command list's syntax and the updater's dispatch.
        {"line-empty", S::Error, "An empty line is a bad command format: the update ends red."},
        {"line-no-colon", S::Error,
         "A line without ':' is a bad command format (there are no comment lines): the update ends red."},
        {"line-colons", S::Error,
         "A line with more than one ':' is a bad command format (an argument cannot hold a colon)."},
        {"keyword-unknown", S::Error,
         "The keyword is none the updater knows (keywords are upper case, without blanks): the line fails."},
        {"keyword-contains", S::Warning,
         "The keyword only contains PIC or an ESA keyword: the updater takes it as that command."},
        {"arg-blank", S::Error,
         "The argument holds a blank, a tab or a quote: the target command line is split there and the "
         "command fails."},
        {"arg-trailing-blank", S::Warning,
         "The argument ends in a blank: the view shows it, the target command line drops it."},
        {"arg-no-slash", S::Error,
         "The argument does not begin with '/': the updater glues it to /tmp/firmware_update and names "
         "another file."},
        {"arg-trailing-slash", S::Error, "The argument ends in '/' but names a file: the command fails."},
        {"arg-dotdot", S::Error,
         "The argument climbs with '..' through a folder that does not exist: the command fails (the path is "
         "not tidied first)."},
        {"system-nand", S::Error,
         "SYSTEM:NAND sets the unknown system type, not NAND: later KERNEL lines are skipped, IMAGE fails "
         "and APP, FILE, UPDATER fail to remount."},
        {"system-unknown", S::Error,
         "An unknown system type: later KERNEL lines are skipped, IMAGE fails and APP, FILE, UPDATER fail to "
         "remount."},
        {"remount-unknown-type", S::Error,
         "The system type is unknown, so the remount command is empty and fails."},
        {"remount-fails", S::Error,
         "The remount command does not find the root file system on this instrument."},
        {"root-read-only", S::Error,
         "The root file system is still read-only: no earlier APP, FILE or UPDATER line remounted it."},
        {"kernel-skipped", S::Error,
         "KERNEL after SYSTEM:NAND or an unknown type writes nothing and counts as done."},
        {"image-wrong-type", S::Error,
         "IMAGE works on NAND systems only: it fails with \"Wrong System type\"."},
        {"image-subfolder", S::Error,
         "The image must lie in the package's top folder: ubiformat looks for it at /tmp plus the whole "
         "argument, after /dev/mtd1 was erased."},
        {"image-missing", S::Error, "The image or kernel file the flash tool is given does not exist."},
        {"image-missing-after-erase", S::Error,
         "ubiformat does not find the image after /dev/mtd1 was already erased."},
        {"image-too-large", S::Error, "The image is larger than its partition: the write fails."},
        {"image-not-page-aligned", S::Error,
         "The kernel image is not a whole number of NAND pages: nandwrite fails."},
        {"flash-not-erased", S::Error, "nandwrite writes over pages that are not erased: it fails."},
        {"flash-device-missing", S::Error, "The flash partition does not exist on this instrument."},
        {"sdimage-fails", S::Error, "sdimage is given a device that is not the SD card."},
        {"flash-tool-usage", S::Error,
         "A flash tool gets arguments it does not take (a blank in the argument splits it): it fails."},
        {"esa-disabled", S::Error, "Every ESA line fails: ESA loading is switched off in this updater."},
        {"instrument-broken", S::Error,
         "An earlier line made the instrument's loader or libraries unreachable: no program starts any "
         "more."},
        {"command-not-found", S::Error, "The command line names a program the instrument does not have."},
        {"command-empty", S::Error, "The command line is empty and cannot be started."},
        // cp (APP, FILE, UPDATER, IMAGE).
        {"cp-source-missing", S::Error, "The file the line names is not in the package: cp fails."},
        {"cp-source-not-folder", S::Error,
         "A folder on the way to the line's file is a file in the package: cp fails."},
        {"cp-source-trailing-slash", S::Error, "The source path ends in '/' but names a file: cp fails."},
        {"cp-source-dotdot", S::Error,
         "The source path climbs with '..' through a folder that does not exist: cp fails."},
        {"cp-source-link-loop", S::Error, "The source path goes round a loop of links: cp fails."},
        {"cp-source-folder", S::Error, "The line names a folder, not a file: cp fails."},
        {"cp-target-missing", S::Error,
         "The folder the file is copied into does not exist on the instrument: cp fails (nothing creates "
         "it)."},
        {"cp-target-not-folder", S::Error,
         "A folder on the way to the target is a file on the instrument: cp fails."},
        {"cp-target-trailing-slash", S::Error, "The target ends in '/' and is no folder: cp fails."},
        {"cp-target-dotdot", S::Error,
         "The target climbs with '..' through a folder that does not exist: cp fails."},
        {"cp-target-link-loop", S::Error, "The target path goes round a loop of links: cp fails."},
        {"cp-target-dangling-link", S::Error,
         "The target is a link to nothing: cp does not write through it and fails."},
        {"cp-target-folder", S::Error, "The target is a folder: cp cannot put a file in its place."},
        {"cp-same-file", S::Error,
         "Source and target are the same file (a link in the package points at the target): cp fails."},
        {"cp-target-running", S::Error,
         "The target is the running updater's program: cp fails with \"Text file busy\" (UPDATER removes it "
         "first)."},
        {"cp-missing-operand", S::Error, "cp is given too few arguments: it fails."},
        {"cp-extra-operand", S::Error,
         "cp is given more than two arguments and the last is no folder: it fails."},
        {"write-through-link", S::Warning, "The target is a link: cp writes the file it points to."},
        // rm (UPDATER, MODULES).
        {"rm-target-missing", S::Error,
         "The file rm should remove does not exist on the instrument: rm fails."},
        {"rm-target-not-folder", S::Error,
         "A folder on the way to the file rm should remove is a file: rm fails."},
        {"rm-target-trailing-slash", S::Error,
         "The path rm is given ends in '/' but names a file: rm fails."},
        {"rm-target-dotdot", S::Error,
         "The path rm is given climbs with '..' through a folder that does not exist: rm fails."},
        {"rm-target-link-loop", S::Error, "The path rm is given goes round a loop of links: rm fails."},
        {"rm-target-folder", S::Error, "rm without -r is given a folder: it fails."},
        {"rm-dot", S::Error, "rm refuses a path ending in '.' or '..'."},
        {"rm-root", S::Error, "rm refuses to remove '/'."},
        {"rm-missing-operand", S::Error, "rm is given no path: it fails."},
        // Programs the updater starts (SCRIPT, /tmp/ubiformat).
        {"exec-missing", S::Error, "The program or script does not exist: it cannot be started."},
        {"exec-not-folder", S::Error, "A folder on the way to the script is a file: it cannot be started."},
        {"exec-trailing-slash", S::Error, "The script's path ends in '/': it cannot be started."},
        {"exec-dotdot", S::Error,
         "The script's path climbs with '..' through a folder that does not exist: it cannot be started."},
        {"exec-link-loop", S::Error, "The script's path goes round a loop of links: it cannot be started."},
        {"exec-folder", S::Error, "The script is a folder: it cannot be started."},
        {"exec-not-executable", S::Error,
         "The script is not executable (no x bit in its mode): it cannot be started."},
        {"script-no-interpreter", S::Error,
         "The script has no #! interpreter line: started directly, it cannot run."},
        {"script-interpreter-missing", S::Error,
         "The script's interpreter does not exist on the instrument: it cannot be started."},
        {"script-crlf", S::Error,
         "The script's interpreter line ends in a carriage return: the interpreter is not found."},
        {"script-fails", S::Error, "The script exits with a non-zero status: the line fails."},
        {"model-unknown", S::Warning,
         "The tool cannot predict this step (a program of the package, or a file of the instrument whose "
         "content it does not know)."},
        // Payloads, read as the instrument will use them (the instrument profile's platform and flash).
        {"payload-unread", S::Warning,
         "A payload is too large for the tool to read: only its size was checked."},
        {"program-format", S::Error,
         "The application or updater is neither an ELF program nor a script with a #! line: it cannot "
         "start."},
        {"program-mode", S::Error,
         "The application or updater lands on the instrument without execute permission: it cannot start."},
        {"elf-format", S::Error, "An ELF file is truncated or cannot be read: it cannot be run or loaded."},
        {"elf-type", S::Error,
         "An ELF file of the wrong kind: a program that is not executable, or a module that is not a "
         "relocatable object."},
        {"elf-machine", S::Error,
         "A program or module is built for another ELF class or machine than the instrument's: it cannot "
         "run there."},
        {"elf-float-abi", S::Error,
         "A program uses another ARM float ABI than the instrument's: its loader does not start it."},
        {"elf-interpreter", S::Error,
         "The dynamic loader a program asks for does not exist on the instrument: it cannot start."},
        {"elf-interpreter-other", S::Warning,
         "A program asks for a loader that exists but is not the one the instrument's programs use."},
        {"uimage-format", S::Error,
         "The kernel is not a legacy U-Boot image (a zImage, an ELF file, raw data): the instrument does "
         "not boot."},
        {"uimage-truncated", S::Error,
         "The kernel image's length field runs past the file: the boot loader refuses it."},
        {"uimage-header-crc", S::Error,
         "The kernel image's header CRC is wrong: the boot loader refuses it."},
        {"uimage-data-crc", S::Error, "The kernel image's data CRC is wrong: the boot loader refuses it."},
        {"uimage-arch", S::Error,
         "The kernel image is for another CPU architecture: the instrument does not boot."},
        {"uimage-os", S::Error,
         "The kernel image is for another operating system: the instrument does not boot."},
        {"uimage-type", S::Error,
         "The U-Boot image is not a kernel (a ramdisk, a script, firmware): the instrument does not boot."},
        {"uimage-trailing", S::Warning,
         "Bytes follow the kernel image's data: they are written and never used."},
        {"ubi-format", S::Error,
         "The root image is not a UBI image: ubiformat refuses it after /dev/mtd1 was erased."},
        {"ubi-header-crc", S::Error,
         "A UBI header of the root image is corrupt: ubiformat or the kernel refuses it."},
        {"ubi-erase-block", S::Error,
         "The UBI image is made for another erase-block size than the NAND's: ubiformat refuses it."},
        {"ubi-page", S::Error,
         "The UBI image is made for another NAND page size: the kernel does not attach it."},
        {"ubi-size", S::Error,
         "The UBI image's volumes need more erase blocks than the root partition has: the kernel does not "
         "attach it."},
        {"ubi-volume", S::Error,
         "The UBI image has no volume named rootfs: the kernel finds no root file system."},
        {"modules-release", S::Error,
         "The modules archive holds nothing for the instrument's kernel release: after \"rm -r "
         "/lib/modules/\" it has no modules."},
        {"modules-other-release", S::Warning,
         "The modules archive also holds modules for a kernel release the instrument does not run."},
        {"modules-vermagic", S::Error,
         "A module is built for another kernel release, or has no vermagic: the kernel refuses to load it."},
        {"modules-dep", S::Warning,
         "The modules archive has no modules.dep: modprobe cannot find the modules by name."},
        {"modules-outside", S::Warning,
         "The modules archive, unpacked over /, also writes files outside lib/modules/."},
        // The order of the lines against a power cut (Exposure.h): the root file system and the SD card are
        // synced only at the list's end, and a PIC step takes minutes.
        {"order-unrepairable-window", S::Warning,
         "The updater or a file it needs is written before a PIC step and synced only after it: a cut during "
         "the step's minutes may leave it empty, so move that line after the PIC steps."},
        {"order-unbootable-window", S::Warning,
         "An SD-card kernel is written before a PIC step and synced only after it: a cut during the step's "
         "minutes may leave the card's kernel half old, so move the KERNEL line after the PIC steps."},
        // The PIC step.
        {"pic-file-missing", S::Error, "The HEX file is not in the package: the PIC step fails at once."},
        {"pic-folder-hangs", S::Error,
         "The HEX path names a folder: the PIC is erased, the folder cannot be read and the updater waits "
         "forever."},
        {"pic-index-text", S::Warning,
         "The PIC index is not written as a plain number: the progress line shows it as written, a failure "
         "line as a number."},
        {"hex-record-too-long", S::Error,
         "A HEX record longer than 100 bytes ends the PIC step with a failure."},
        {"hex-verify-fails", S::Error,
         "A HEX record does not read back as written (flash bits cannot be turned back on, or the block is "
         "protected): the PIC step fails."},
        {"hex-record-type", S::Error,
         "A record that is not data (or extended linear address) is written as data at its offset."},
        {"hex-flash-end", S::Error, "A record touching 0xFFFE or 0xFFFF is passed over without a word."},
        {"hex-id-locations", S::Error, "ID location data is passed over without a word."},
        {"hex-eeprom", S::Error, "EEPROM data is passed over without a word."},
        {"hex-config-late", S::Error,
         "A configuration record starting at 0x30000D is passed over without a word."},
        {"hex-outside-memory", S::Error,
         "Data where the PIC18F4620 has no memory the programmer writes (above 64 KB of flash, past "
         "0x30000D) is passed over."},
        {"hex-config-bits", S::Warning,
         "A configuration byte sets bits that do not exist: they read back as 0."},
        {"hex-malformed", S::Error,
         "A HEX line is not a well-formed record: the programmer reads its fields by position and writes "
         "what it finds."},
        {"hex-checksum", S::Warning,
         "A HEX record's checksum is wrong: the programmer does not check it and writes the record as it "
         "is."},
        {"hex-after-end", S::Warning,
         "Records follow the end-of-file record: the programmer writes them all the same."},
        {"hex-no-end", S::Warning, "The HEX file has no end-of-file record: it may be cut short."},
        {"hex-empty-line", S::Warning, "An empty line in the HEX file; the programmer passes over it."},
    };
    return table;
}

const Rule* find(const QString& id)
{
    for (const Rule& rule : all()) {
        if (id == QLatin1String(rule.id))
            return &rule;
    }
    return nullptr;
}

Severity severityOf(const QString& id)
{
    const Rule* rule = find(id);
    return rule ? rule->severity : Severity::Error;
}

QString severityName(Severity severity)
{
    return severity == Severity::Error ? QStringLiteral("error") : QStringLiteral("warning");
}

} // namespace rules
