#include "Check.h"

#include "ElfImage.h"
#include "ModulesArchive.h"
#include "ScriptHeader.h"
#include "UImage.h"
#include "UbiImage.h"

#include <QFileInfo>
#include <elf.h>

namespace payload {
namespace {

// A finding of a rule of lint's table, with the rule's severity.
Finding finding(const char* ruleId, const QString& message)
{
    const rules::Rule* rule = rules::find(QLatin1String(ruleId));
    if (!rule)
        qFatal("payload rule %s is not in the rule table", ruleId);
    return {QString::fromLatin1(rule->id), rule->severity, message};
}

const QString rootVolume = QStringLiteral("rootfs"); // the updater remounts ubi0:rootfs
const QStringList searchPath = {"/usr/local/sbin", "/usr/local/bin", "/usr/sbin",
                                "/usr/bin",        "/sbin",          "/bin"};

// The entry a path leads to on the instrument, links followed as the kernel would (at most 40 of them);
// nullptr when the listing has none. `real` is set to the path without links.
const profile::Entry* follow(const profile::Profile& profile, const QString& path, QString* real = nullptr)
{
    QStringList rest = path.split('/', Qt::SkipEmptyParts);
    QString done;
    const profile::Entry* entry = profile.find(QStringLiteral("/"));
    for (int hops = 0; !rest.isEmpty();) {
        const QString part = rest.takeFirst();
        if (part == QLatin1String(".") || part == QLatin1String("..")) {
            done = part == QLatin1String("..") ? done.left(qMax(0, done.lastIndexOf('/'))) : done;
            entry = profile.find(done.isEmpty() ? QStringLiteral("/") : done);
            continue;
        }
        const QString next = done + '/' + part;
        entry = profile.find(next);
        if (!entry)
            return nullptr;
        if (entry->kind == profile::Kind::Symlink) {
            if (++hops > 40)
                return nullptr;
            const QString target = entry->target.startsWith('/') ? entry->target : done + '/' + entry->target;
            rest = target.split('/', Qt::SkipEmptyParts) + rest;
            done.clear();
            entry = profile.find(QStringLiteral("/"));
            continue;
        }
        done = next;
    }
    if (real)
        *real = done.isEmpty() ? QStringLiteral("/") : done;
    return entry;
}

// A path as it is after the links of its folders are followed (the last part left as it is).
QString parentsFollowed(const profile::Profile& profile, const QString& path)
{
    const int slash = path.lastIndexOf('/');
    QString folder;
    if (slash <= 0 || !follow(profile, path.left(slash), &folder))
        return path;
    return (folder == QLatin1String("/") ? QString() : folder) + path.mid(slash);
}

bool runnableOnInstrument(const profile::Profile& profile, const package::Package& pkg, const QString& path)
{
    const profile::Entry* entry = follow(profile, path);
    if (entry && entry->kind == profile::Kind::File && (entry->mode & 0111))
        return true;
    // A program the same package installs with a FILE line.
    const package::Entry* packed = pkg.find(package::topFolder + path);
    return packed && packed->type == package::EntryType::File && (packed->mode & 0111);
}

QString shown(const package::Entry& entry)
{
    return entry.name.mid(package::topFolder.size());
}

QString platform(const profile::Profile& profile)
{
    const QString abi = profile.floatAbi.isEmpty() ? QString() : profile.floatAbi + QStringLiteral("-float ");
    return QStringLiteral("ELF %1-bit %2 %3programs")
        .arg(profile.elfClass)
        .arg(machineTitle(profile.machine), abi);
}

QString mib(qint64 bytes)
{
    return bytes % (qint64(1024) * 1024) == 0 ? QStringLiteral("%1 MiB").arg(bytes / (qint64(1024) * 1024))
           : bytes % 1024 == 0                ? QStringLiteral("%1 KiB").arg(bytes / 1024)
                                              : QStringLiteral("%1 bytes").arg(bytes);
}

enum class ElfUse
{
    Program, // APP, UPDATER, SCRIPT, an executable FILE
    AnyFile, // a FILE that is ELF but not executable (a library)
    Module,  // a member of the modules archive
};

class Checker
{
public:
    Checker(const package::Package& pkg, const profile::Profile& profile) : m_pkg(pkg), m_profile(profile) {}

    QVector<Finding> findings;

    void program(const package::Entry& entry, Role role);
    void kernel(const package::Entry& entry, const QString& device);
    void rootImage(const package::Entry& entry, const QString& device);
    void modules(const package::Entry& entry);
    bool fitsPartition(qint64 size, const QString& device, const QString& name, const char* rule,
                       const QString& consequence);

private:
    const package::Package& m_pkg;
    const profile::Profile& m_profile;

    void add(const char* rule, const QString& message) { findings << finding(rule, message); }
    // The image when it raised no finding.
    std::optional<ElfImage> elf(const QByteArray& data, const QString& name, ElfUse use);
    void checkElf(const ElfImage& image, const QString& name, ElfUse use);
    void script(const ScriptHeader& header, const QString& name);
    void module(const ArchiveMember& member, const QString& memberName, const QString& release);
    void replacedLink(const ArchiveMember& member, const QString& archive, const profile::Entry& link,
                      const QString& path);
};

std::optional<ElfImage> Checker::elf(const QByteArray& data, const QString& name, ElfUse use)
{
    QString error;
    const auto image = readElf(data, error);
    const int before = findings.size();
    if (!image) {
        add("elf-format", QStringLiteral("%1 is not a readable ELF file: %2").arg(name, error));
        return std::nullopt;
    }
    checkElf(*image, name, use);
    return findings.size() == before ? image : std::nullopt;
}

void Checker::checkElf(const ElfImage& image, const QString& name, ElfUse use)
{
    if (image.machineName != m_profile.machine || image.elfClass != m_profile.elfClass) {
        add("elf-machine",
            use == ElfUse::Module
                ? QStringLiteral("%1 is an %2; the instrument's kernel loads ELF %3-bit %4 modules only")
                      .arg(name, image.describe())
                      .arg(m_profile.elfClass)
                      .arg(machineTitle(m_profile.machine))
                : QStringLiteral("%1 is an %2; the instrument runs %3: it cannot start there")
                      .arg(name, image.describe(), platform(m_profile)));
        return;
    }
    if (use == ElfUse::Module) {
        if (image.type != ET_REL)
            add("elf-type",
                QStringLiteral("%1 is an %2, not a kernel module (a relocatable object, as the kernel "
                               "build's .ko files are)")
                    .arg(name, image.describe()));
        return;
    }
    if (use == ElfUse::Program && !image.runnable()) {
        add("elf-type", QStringLiteral("%1 is an %2, not a program: link it into an executable")
                            .arg(name, image.describe()));
        return;
    }
    if (!image.floatAbi.isEmpty() && !m_profile.floatAbi.isEmpty() && image.floatAbi != m_profile.floatAbi) {
        add("elf-float-abi",
            QStringLiteral("%1 is an %2; the instrument runs %3: its loader does not start a "
                           "%4-float program; build it with -mfloat-abi=%5")
                .arg(name, image.describe(), platform(m_profile), image.floatAbi, m_profile.floatAbi));
        return;
    }
    if (image.interpreter.isEmpty() || image.interpreter == m_profile.loader)
        return;
    if (runnableOnInstrument(m_profile, m_pkg, image.interpreter))
        add("elf-interpreter-other",
            QStringLiteral("%1 asks for the loader %2; the instrument's programs use %3")
                .arg(name, image.interpreter, m_profile.loader));
    else
        add("elf-interpreter", QStringLiteral("%1 asks for the loader %2, which the instrument lacks (its "
                                              "programs use %3): it cannot start there")
                                   .arg(name, image.interpreter, m_profile.loader));
}

void Checker::script(const ScriptHeader& header, const QString& name)
{
    if (header.carriageReturn) {
        add("script-crlf",
            QStringLiteral("the #! line of %1 ends in a carriage return (DOS line ends): the "
                           "kernel looks for '%2\\r' and the script cannot start; save it with "
                           "Unix line ends")
                .arg(name, header.interpreter.trimmed()));
        return;
    }
    if (!header.interpreter.startsWith('/')) {
        add("script-interpreter-missing",
            QStringLiteral("the #! line of %1 names '%2', not an absolute path: the kernel cannot start it")
                .arg(name, header.interpreter));
        return;
    }
    if (!runnableOnInstrument(m_profile, m_pkg, header.interpreter)) {
        add("script-interpreter-missing",
            QStringLiteral("%1 needs %2, which the instrument lacks: it cannot start")
                .arg(name, header.interpreter));
        return;
    }
    // "#!/usr/bin/env NAME": env looks NAME up in its search path.
    if (QFileInfo(header.interpreter).fileName() == QLatin1String("env") && !header.argument.isEmpty() &&
        !header.argument.startsWith('-')) {
        const QString command = header.argument.section(' ', 0, 0);
        for (const QString& folder : searchPath)
            if (runnableOnInstrument(m_profile, m_pkg, folder + '/' + command))
                return;
        add("script-interpreter-missing",
            QStringLiteral("%1 runs '%2' through env, and the instrument has no %2 in %3: it cannot start")
                .arg(name, command, searchPath.join(':')));
    }
}

void Checker::program(const package::Entry& entry, Role role)
{
    const QString name = shown(entry);
    const auto header = readScriptHeader(entry.data.left(512));
    if (looksLikeElf(entry.data))
        elf(entry.data, name,
            role == Role::RootFile && !(entry.mode & 0111) ? ElfUse::AnyFile : ElfUse::Program);
    else if (header)
        script(*header, name);
    else if (role != Role::RootFile)
        add(role == Role::Script ? "script-no-interpreter" : "program-format",
            QStringLiteral("%1 is neither an ELF program nor a script beginning with #!: it cannot start")
                .arg(name));

    if (entry.mode & 0111)
        return;
    if (role == Role::Script)
        add("exec-not-executable",
            QStringLiteral("%1 is not executable (mode %2): the updater starts it directly and "
                           "it fails; set its mode to 755")
                .arg(name)
                .arg(entry.mode, 4, 8, QLatin1Char('0')));
    // cp keeps the mode of a file it overwrites; a new file gets the payload's. The updater's own program is
    // removed before the copy, so it is always new.
    const QString target = role == Role::Application ? QStringLiteral("/home/mainApp") : name;
    if ((role == Role::Application && !follow(m_profile, target)) || role == Role::Updater)
        add("program-mode",
            QStringLiteral("%1 is not executable (mode %2): the copy at %3 is new and gets that mode, so the "
                           "instrument cannot start it; set its mode to 755")
                .arg(name)
                .arg(entry.mode, 4, 8, QLatin1Char('0'))
                .arg(target));
}

bool Checker::fitsPartition(qint64 size, const QString& device, const QString& name, const char* rule,
                            const QString& consequence)
{
    const qint64 partition = m_profile.partitions.value(device);
    const qint64 page =
        device.startsWith(QLatin1String("/dev/mtd")) ? qMax<qint64>(1, m_profile.nandPage) : 1;
    const qint64 written = (size + page - 1) / page * page; // nandwrite -p pads the last page
    if (partition <= 0 || written <= partition)
        return true;
    add(rule, QStringLiteral("%1 is %2 bytes; %3 holds %4: %5")
                  .arg(name)
                  .arg(size)
                  .arg(device, mib(partition), consequence));
    return false;
}

void Checker::kernel(const package::Entry& entry, const QString& device)
{
    const QString name = shown(entry);
    fitsPartition(
        entry.size, device, name, "image-too-large",
        QStringLiteral("the write fails after the old kernel was erased and the instrument does not "
                       "boot"));
    if (!entry.kept())
        return;
    const auto image = readUImage(entry.data);
    if (!image) {
        add("uimage-format",
            QStringLiteral("%1 is %2, not a U-Boot image: the boot loader does not start it; "
                           "wrap the kernel with mkimage -A arm -O linux -T kernel -C none")
                .arg(name, identifyKernelFile(entry.data)));
        return;
    }
    if (!image->headerCrcOk) {
        add("uimage-header-crc",
            QStringLiteral(
                "%1 has a wrong header CRC (0x%2): the boot loader stops with 'Bad Header Checksum' "
                "and the instrument does not boot")
                .arg(name)
                .arg(image->headerCrc, 8, 16, QLatin1Char('0')));
        return;
    }
    if (!image->complete)
        add("uimage-truncated",
            QStringLiteral("%1's header announces %2 bytes of data, the file holds %3 after "
                           "the header: the image is cut short and the instrument does "
                           "not boot")
                .arg(name)
                .arg(image->dataSize)
                .arg(entry.data.size() - UImage::headerSize));
    else if (!image->dataCrcOk)
        add("uimage-data-crc", QStringLiteral("%1's data do not match the header's data CRC (0x%2): the boot "
                                              "loader stops with 'Bad Data CRC' and the instrument does not "
                                              "boot")
                                   .arg(name)
                                   .arg(image->dataCrc, 8, 16, QLatin1Char('0')));
    const quint8 arch = uImageArchFor(m_profile.machine);
    if (arch != 0 && image->arch != arch)
        add("uimage-arch", QStringLiteral("%1 is a kernel image for %2 (mkimage -A %2); the instrument is %3")
                               .arg(name, uImageArchName(image->arch), uImageArchName(arch)));
    if (image->os != UImage::osLinux)
        add("uimage-os",
            QStringLiteral("%1 is an image for the OS '%2' (mkimage -O %2); the boot loader boots "
                           "it as Linux only with -O linux")
                .arg(name, uImageOsName(image->os)));
    if (!image->isKernel())
        add("uimage-type", QStringLiteral("%1 is a U-Boot %2 image, not a kernel (mkimage -T kernel): the "
                                          "instrument does not boot")
                               .arg(name, uImageTypeName(image->type)));
    if (image->complete && image->trailing > 0)
        add("uimage-trailing",
            QStringLiteral("%1 has %2 bytes after the %3 bytes its header announces: the boot "
                           "loader ignores them; was another file meant?")
                .arg(name)
                .arg(image->trailing)
                .arg(image->dataSize));
}

void Checker::rootImage(const package::Entry& entry, const QString& device)
{
    const QString name = shown(entry);
    const QString erased = QStringLiteral("flash_eraseall has already erased the root file system, so the "
                                          "instrument does not boot");
    const bool fits = fitsPartition(entry.size, device, name, "image-too-large",
                                    QStringLiteral("ubiformat fails, and ") + erased);
    if (!entry.kept())
        return;
    const auto image = readUbi(entry.data);
    if (!image) {
        add("ubi-format",
            QStringLiteral("%1 is %2, not a UBI image (make it with ubinize): ubiformat refuses it, "
                           "and %3")
                .arg(name, identifyRootImageFile(entry.data), erased));
        return;
    }
    if (!image->corrupt.isEmpty())
        add("ubi-header-crc",
            QStringLiteral("%1 has corrupt UBI headers (%2): ubiformat or the kernel refuses them, and %3")
                .arg(name,
                     image->corrupt.mid(0, 3).join(QStringLiteral(", ")) +
                         (image->corrupt.size() > 3
                              ? QStringLiteral(" and %1 more").arg(image->corrupt.size() - 3)
                              : QString()),
                     erased));
    const qint64 eraseBlock = m_profile.nandEraseBlock;
    if (eraseBlock > 0 && image->pebSize != eraseBlock)
        add("ubi-erase-block",
            QStringLiteral("%1 is made for erase blocks of %2; the NAND's are %3 (ubinize -p "
                           "%4): ubiformat refuses it, and %5")
                .arg(name, mib(image->pebSize), mib(eraseBlock))
                .arg(eraseBlock)
                .arg(erased));
    else if (image->leftOver != 0)
        add("ubi-erase-block",
            QStringLiteral("%1 ends with %2 bytes that are not a whole erase block: ubiformat "
                           "refuses it, and %3")
                .arg(name)
                .arg(image->leftOver)
                .arg(erased));
    const quint32 page = quint32(m_profile.nandPage);
    if (page > 0 && !ubiOffsetsFor(page).contains({image->vidHeaderOffset, image->dataOffset})) {
        const quint32 made = ubiPageFor(image->vidHeaderOffset, image->dataOffset);
        add("ubi-page",
            QStringLiteral("%1 is made for %2 (volume header at byte %3, data at %4 of each block); "
                           "the NAND's pages are %5 bytes (ubinize -m %5): the kernel does not attach "
                           "it and the instrument does not boot")
                .arg(name, made ? QStringLiteral("%1-byte pages").arg(made) : QStringLiteral("no NAND"))
                .arg(image->vidHeaderOffset)
                .arg(image->dataOffset)
                .arg(page));
    }
    QStringList names;
    quint64 reserved = 0;
    for (const UbiVolume& volume : image->volumes) {
        names << volume.name;
        reserved += volume.reservedPebs;
    }
    if (!names.contains(rootVolume))
        add("ubi-volume",
            QStringLiteral("%1 has no volume named %2 (%3): the kernel mounts ubi0:%2 as the root "
                           "file system and the instrument does not boot")
                .arg(name, rootVolume,
                     image->volumeTableFound
                         ? (names.isEmpty() ? QStringLiteral("no volumes")
                                            : QStringLiteral("volumes: ") + names.join(", "))
                         : QStringLiteral("no volume table found")));
    // UBI keeps two blocks for its volume table, one for wear-levelling and one for atomic changes.
    const qint64 partition = m_profile.partitions.value(device);
    if (fits && partition > 0 && image->pebSize == eraseBlock && eraseBlock > 0 &&
        reserved + 4 > quint64(partition / eraseBlock))
        add("ubi-size",
            QStringLiteral("%1's volumes need %2 erase blocks and UBI 4 more; %3 has %4: the kernel "
                           "does not attach it and the instrument does not boot")
                .arg(name)
                .arg(reserved)
                .arg(device)
                .arg(partition / eraseBlock));
}

void Checker::replacedLink(const ArchiveMember& member, const QString& archive, const profile::Entry& link,
                           const QString& path)
{
    QString target;
    follow(m_profile, path, &target);
    int hidden = 0;
    for (const profile::Entry& e : m_profile.entries)
        hidden += e.path.startsWith(target + '/') ? 1 : 0;
    const bool loader = m_profile.loader.startsWith(path + '/');
    add("tar-replaces-link",
        QStringLiteral(
            "%1: the %2 %3 replaces the link %4 -> %5 on the instrument with a folder: the %6 entries "
            "under %4 are gone from there%7; list files only (find lib -type f | tar -cf %8 "
            "--no-recursion -T -)")
            .arg(archive,
                 member.kind == ArchiveMember::Directory ? QStringLiteral("folder")
                                                         : QStringLiteral("member"),
                 member.name + (member.kind == ArchiveMember::Directory ? "/" : ""), path, link.target)
            .arg(hidden)
            .arg(loader
                     ? QStringLiteral(", %1 among them, the loader of every program: no dynamically linked "
                                      "program starts and the instrument does not boot")
                           .arg(m_profile.loader)
                     : QString(),
                 QFileInfo(archive).fileName()));
}

void Checker::module(const ArchiveMember& member, const QString& memberName, const QString& release)
{
    if (member.size > ModulesArchive::moduleLimit) {
        add("elf-format",
            QStringLiteral("%1 is %2 bytes, too large for a kernel module").arg(memberName).arg(member.size));
        return;
    }
    const auto image = elf(member.data, memberName, ElfUse::Module);
    if (!image)
        return;
    const QString vermagic = modinfoValue(image->modinfo, QStringLiteral("vermagic")).trimmed();
    if (vermagic.isEmpty())
        add("modules-vermagic",
            QStringLiteral("%1 has no vermagic in its .modinfo: the kernel refuses to load it")
                .arg(memberName));
    else if (vermagic.section(' ', 0, 0) != release)
        add("modules-vermagic",
            QStringLiteral("%1 is built for the kernel %2 (vermagic '%3'); the instrument runs "
                           "%4: the kernel refuses to load it")
                .arg(memberName, vermagic.section(' ', 0, 0), vermagic, release));
}

void Checker::modules(const package::Entry& entry)
{
    const QString name = shown(entry);
    const ModulesArchive archive = readModulesArchive(entry.data);
    if (!archive.error.isEmpty()) {
        add(archive.members.isEmpty() ? "tar-not-archive" : "tar-corrupt",
            QStringLiteral("%1 cannot be read to its end: %2: tar fails after the old modules "
                           "were removed")
                .arg(name, archive.error));
        if (archive.members.isEmpty())
            return;
    }
    const QString release = m_profile.kernelRelease;
    const QString ours = QStringLiteral("lib/modules/%1/").arg(release);
    QStringList others, outside;
    int installed = 0;
    bool dependencies = false;
    for (const ArchiveMember& member : archive.members) {
        const QString memberName = name + ": " + member.name;
        const QString path = '/' + member.name;
        // tar follows links in the folders above a member, and replaces a link where the member itself is.
        const QString real = parentsFollowed(m_profile, path);
        const profile::Entry* there = m_profile.find(real);
        if (there && there->kind == profile::Kind::Symlink && member.kind != ArchiveMember::Symlink) {
            replacedLink(member, name, *there, real);
        } else if (member.name == QLatin1String("lib/modules") ||
                   member.name.startsWith(QLatin1String("lib/modules/"))) {
            // "rm -r /lib/modules/" ran before: everything here is new.
            const QString memberRelease = member.name.section('/', 2, 2);
            if (!memberRelease.isEmpty() && memberRelease != release && !others.contains(memberRelease))
                others << memberRelease;
            if (!member.name.startsWith(ours) || member.kind != ArchiveMember::File)
                continue;
            ++installed;
            dependencies = dependencies || member.name == ours + QLatin1String("modules.dep");
            if (member.name.endsWith(QLatin1String(".ko")))
                module(member, memberName, release);
        } else if (member.kind != ArchiveMember::Directory) {
            outside << (there ? real + QStringLiteral(" (replacing the instrument's)") : real);
        } else if (there && there->kind == profile::Kind::Directory &&
                   ((there->mode & 07777) != member.mode || there->uid != uint(member.uid) ||
                    there->gid != uint(member.gid))) {
            add("tar-changes-folder",
                QStringLiteral(
                    "%1/ gives the instrument's %2 the mode %3 and owner %4:%5 (it has %6 and %7:%8): "
                    "tar sets a folder's mode and owner from the archive")
                    .arg(memberName, real)
                    .arg(member.mode, 4, 8, QLatin1Char('0'))
                    .arg(member.uid)
                    .arg(member.gid)
                    .arg(there->mode & 07777, 4, 8, QLatin1Char('0'))
                    .arg(there->uid)
                    .arg(there->gid));
        }
    }
    if (installed == 0)
        add("modules-release",
            QStringLiteral("%1 holds no file under %2: \"rm -r /lib/modules/\" removes the old "
                           "modules and the instrument is left with none for its kernel %3%4")
                .arg(name, ours, release,
                     others.isEmpty()
                         ? QString()
                         : QStringLiteral(" (the archive's are for %1)").arg(others.join(", "))));
    else if (!others.isEmpty())
        add("modules-other-release", QStringLiteral("%1 also holds modules for %2; the instrument runs %3")
                                         .arg(name, others.join(", "), release));
    if (installed > 0 && !dependencies)
        add("modules-dep",
            QStringLiteral("%1 has no %2modules.dep: the updater does not run depmod, so modprobe "
                           "cannot load these modules by name; run depmod before packing")
                .arg(name, ours));
    if (!outside.isEmpty())
        add("modules-outside",
            QStringLiteral("%1, unpacked over /, also writes %2%3")
                .arg(name, outside.mid(0, 5).join(", "),
                     outside.size() > 5 ? QStringLiteral(" and %1 more").arg(outside.size() - 5)
                                        : QString()));
}

} // namespace

std::optional<Role> roleOf(const QString& keyword)
{
    static const QHash<QString, Role> roles = {
        {"APP", Role::Application}, {"UPDATER", Role::Updater}, {"FILE", Role::RootFile},
        {"SCRIPT", Role::Script},   {"KERNEL", Role::Kernel},   {"IMAGE", Role::RootImage},
        {"MODULES", Role::Modules},
    };
    const auto it = roles.constFind(keyword);
    return it == roles.constEnd() ? std::nullopt : std::optional<Role>(*it);
}

QString deviceFor(Role role, bool sdCard)
{
    if (role == Role::Kernel)
        return sdCard ? QStringLiteral("/dev/mmcblk0") : QStringLiteral("/dev/mtd0");
    return role == Role::RootImage ? QStringLiteral("/dev/mtd1") : QString();
}

QVector<Finding> check(const package::Package& pkg, const package::Entry& entry, Role role,
                       const profile::Profile& profile, const QString& device)
{
    Checker checker(pkg, profile);
    if (entry.type != package::EntryType::File)
        return {};
    const QString target = device.isEmpty() ? deviceFor(role, false) : device;
    if (!entry.kept()) {
        if (role == Role::Kernel || role == Role::RootImage)
            checker.fitsPartition(
                entry.size, target, shown(entry), "image-too-large",
                QStringLiteral("the write fails after the old one was erased and the instrument "
                               "does not boot"));
        checker.findings << finding(
            "payload-unread", QStringLiteral("%1 is %2 bytes: the tool reads payloads up to %3 and did not "
                                             "check its contents")
                                  .arg(shown(entry))
                                  .arg(entry.size)
                                  .arg(mib(package::keepLimit)));
        return checker.findings;
    }
    switch (role) {
    case Role::Application:
    case Role::Updater:
    case Role::Script:
        checker.program(entry, role);
        break;
    case Role::RootFile:
        if (looksLikeElf(entry.data) || ((entry.mode & 0111) && entry.data.startsWith("#!")))
            checker.program(entry, role);
        break;
    case Role::Kernel:
        checker.kernel(entry, target);
        break;
    case Role::RootImage:
        checker.rootImage(entry, target);
        break;
    case Role::Modules:
        checker.modules(entry);
        break;
    }
    return checker.findings;
}

QString atPowerOn(const Finding& finding, Role role)
{
    if (finding.severity != Severity::Error)
        return QString();
    switch (role) {
    case Role::Kernel:
    case Role::RootImage:
        return QStringLiteral("the instrument does not boot");
    case Role::Modules:
        return finding.ruleId == QLatin1String("tar-replaces-link")
                   ? QStringLiteral("the instrument does not boot")
                   : QStringLiteral("the instrument boots without its kernel modules");
    case Role::Application:
        return QStringLiteral("the main application does not start");
    case Role::Updater:
        return QStringLiteral("the updater does not start");
    case Role::RootFile:
    case Role::Script:
        break;
    }
    return QString();
}

QString describe(const package::Entry& entry, Role role)
{
    if (entry.type != package::EntryType::File || !entry.kept())
        return QString();
    QString error;
    if (looksLikeElf(entry.data)) {
        const auto image = readElf(entry.data, error);
        if (!image)
            return QStringLiteral("unreadable ELF file: ") + error;
        return image->describe() + (image->interpreter.isEmpty()
                                        ? (image->runnable() ? QStringLiteral(", static") : QString())
                                        : QStringLiteral(", loader ") + image->interpreter);
    }
    if (const auto header = readScriptHeader(entry.data.left(512)))
        return QStringLiteral("script for %1").arg(header->interpreter.trimmed());
    if (role == Role::Kernel) {
        const auto image = readUImage(entry.data);
        if (!image)
            return identifyKernelFile(entry.data);
        return QStringLiteral("U-Boot image '%1': %2 %3 %4, %5 bytes of data, CRCs %6")
            .arg(image->name, uImageArchName(image->arch), uImageOsName(image->os),
                 uImageTypeName(image->type))
            .arg(image->dataSize)
            .arg(image->headerCrcOk && image->complete && image->dataCrcOk ? "good" : "wrong");
    }
    if (role == Role::RootImage) {
        const auto image = readUbi(entry.data);
        if (!image)
            return identifyRootImageFile(entry.data);
        QStringList names;
        for (const UbiVolume& volume : image->volumes)
            names << volume.name;
        return QStringLiteral(
                   "UBI image: %1 erase blocks of %2, volume header at %3, data at %4, volumes: %5")
            .arg(image->pebs)
            .arg(mib(image->pebSize))
            .arg(image->vidHeaderOffset)
            .arg(image->dataOffset)
            .arg(names.isEmpty() ? QStringLiteral("none") : names.join(", "));
    }
    if (role == Role::Modules) {
        const ModulesArchive archive = readModulesArchive(entry.data);
        QMap<QString, int> perRelease;
        for (const ArchiveMember& member : archive.members)
            if (member.name.startsWith(QLatin1String("lib/modules/")) &&
                member.name.endsWith(QLatin1String(".ko")))
                ++perRelease[member.name.section('/', 2, 2)];
        QStringList parts;
        for (auto it = perRelease.begin(); it != perRelease.end(); ++it)
            parts << QStringLiteral("%1 for %2").arg(it.value()).arg(it.key());
        return QStringLiteral("tar archive: %1 members, modules: %2")
            .arg(archive.members.size())
            .arg(parts.isEmpty() ? QStringLiteral("none") : parts.join(", "));
    }
    return QString();
}

} // namespace payload
