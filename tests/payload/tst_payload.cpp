// The payload checks of update-package: every rule on a payload made by the real tool that triggers it and
// on one that does not (tests/payload/make-payloads.sh makes them), against a small instrument profile.
#include "../support/TestFiles.h"

#include "payload/Check.h"
#include "payload/ElfImage.h"

#include <QtTest>

using namespace testfiles;
using payload::Role;

Q_DECLARE_METATYPE(payload::Role)

namespace {

const QString repo = PROJECT_SOURCE_DIR;

} // namespace

class PayloadTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_payloads;
    profile::Profile m_profile;

    // A package holding the one payload, at /<name> below firmware_update/, with the mode given.
    package::Package packageOf(const QString& file, int mode)
    {
        package::Package pkg;
        package::Entry entry;
        entry.name = package::topFolder + '/' + QFileInfo(file).fileName();
        entry.mode = mode;
        entry.data = readAll(m_payloads + '/' + file);
        entry.size = entry.data.size();
        if (entry.data.isEmpty())
            qFatal("no payload %s", qPrintable(file));
        pkg.entries.push_back(entry);
        return pkg;
    }

    QVector<payload::Finding> findings(const QString& file, Role role, int mode = 0755,
                                       const QString& device = QString())
    {
        const package::Package pkg = packageOf(file, mode);
        return payload::check(pkg, pkg.entries.front(), role, m_profile, device);
    }

    static QString list(const QVector<payload::Finding>& found)
    {
        QStringList lines;
        for (const payload::Finding& f : found)
            lines << f.ruleId + ": " + f.message;
        return lines.isEmpty() ? QStringLiteral("(no findings)") : lines.join('\n');
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        m_payloads = m_dir.path() + "/payloads";
        const Run made =
            run("bash", {repo + "/tests/payload/make-payloads.sh", m_payloads}, QString(), 600000);
        QVERIFY2(made.exitCode == 0, qPrintable(made.out + made.err));
        QString error;
        const auto read = profile::read(repo + "/tests/payload/instrument.profile", error);
        QVERIFY2(read, qPrintable(error));
        m_profile = *read;
    }

    // One row that triggers each rule, one that does not (text: what the message must say).
    void rule_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<Role>("role");
        QTest::addColumn<int>("mode");
        QTest::addColumn<QString>("device"); // empty: the role's NAND partition
        QTest::addColumn<QString>("rule");
        QTest::addColumn<QString>("text"); // empty: the rule must not fire

        const auto row = [](const char* name, const QString& file, Role role, const QString& rule,
                            const QString& text, int mode = 0755, const QString& device = QString()) {
            QTest::newRow(name) << file << role << mode << device << rule << text;
        };
        // Programs
        row("program-format: text as APP", "script/no-header", Role::Application, "program-format",
            "neither an ELF program nor a script");
        row("program-format: ELF program", "elf/arm-dynamic", Role::Application, "program-format", "");
        row("exec-not-executable: SCRIPT 644", "script/sh", Role::Script, "exec-not-executable",
            "not executable (mode 0644)", 0644);
        row("exec-not-executable: SCRIPT 755", "script/sh", Role::Script, "exec-not-executable", "");
        row("script-no-interpreter: SCRIPT without #!", "script/no-header", Role::Script,
            "script-no-interpreter", "neither an ELF program nor a script");
        row("script-no-interpreter: SCRIPT with #!", "script/sh", Role::Script, "script-no-interpreter", "");
        row("program-mode: UPDATER 644 is copied anew", "elf/arm-dynamic", Role::Updater, "program-mode",
            "the copy at /arm-dynamic is new", 0644);
        row("program-mode: APP 644 over an existing /home/mainApp", "elf/arm-dynamic", Role::Application,
            "program-mode", "", 0644);
        row("elf-format: truncated program", "elf/arm-truncated", Role::Application, "elf-format",
            "truncated: its ");
        row("elf-format: whole program", "elf/arm-static", Role::Application, "elf-format", "");
        row("elf-type: object file as APP", "elf/arm-object", Role::Application, "elf-type",
            "ELF 32-bit ARM relocatable object, not a program");
        row("elf-type: library as FILE", "elf/arm-library", Role::RootFile, "elf-type", "", 0644);
        row("elf-machine: host build", "elf/x86-64", Role::Application, "elf-machine",
            "/x86-64 is an ELF 64-bit x86-64 program; the instrument runs ELF 32-bit ARM hard-float "
            "programs");
        row("elf-machine: executable FILE built on the host", "elf/x86-64", Role::RootFile, "elf-machine",
            "ELF 64-bit x86-64 program");
        row("elf-machine: cross build", "elf/arm-dynamic", Role::Application, "elf-machine", "");
        row("elf-float-abi: soft-float", "elf/arm-soft-float", Role::Updater, "elf-float-abi",
            "ELF 32-bit ARM soft-float program; the instrument runs ELF 32-bit ARM hard-float programs: its "
            "loader "
            "does not start a soft-float program");
        row("elf-float-abi: hard-float", "elf/arm-static", Role::Updater, "elf-float-abi", "");
        row("elf-interpreter: loader missing", "elf/arm-missing-loader", Role::Application, "elf-interpreter",
            "asks for the loader /lib/ld-missing.so.1, which the instrument lacks");
        row("elf-interpreter: the instrument's loader", "elf/arm-dynamic", Role::Application,
            "elf-interpreter", "");
        row("elf-interpreter-other: another loader there", "elf/arm-other-loader", Role::Application,
            "elf-interpreter-other", "asks for the loader /lib/ld-linux.so.3; the instrument's programs use");
        row("elf-interpreter-other: static", "elf/arm-static", Role::Application, "elf-interpreter-other",
            "");
        // Scripts
        row("script-interpreter-missing: bash missing", "script/bash", Role::Script,
            "script-interpreter-missing", "needs /bin/bash, which the instrument lacks");
        row("script-interpreter-missing: python3 through env", "script/env-python3", Role::Script,
            "script-interpreter-missing", "runs 'python3' through env");
        row("script-interpreter-missing: no path", "script/relative", Role::Script,
            "script-interpreter-missing", "names 'sh', not an absolute path");
        row("script-interpreter-missing: /bin/sh through two links", "script/sh", Role::Script,
            "script-interpreter-missing", "");
        row("script-interpreter-missing: /sbin/sh through a link with ..", "script/sbin-sh", Role::Script,
            "script-interpreter-missing", "");
        row("script-interpreter-missing: sh through env", "script/env-sh", Role::Script,
            "script-interpreter-missing", "");
        row("script-crlf: DOS line ends", "script/crlf", Role::Script, "script-crlf",
            "ends in a carriage return (DOS line ends)");
        row("script-crlf: executable FILE with DOS line ends", "script/crlf", Role::RootFile, "script-crlf",
            "carriage return");
        row("script-crlf: Unix line ends", "script/sh", Role::Script, "script-crlf", "");
        // Kernels
        row("uimage-format: raw kernel", "kernel/raw", Role::Kernel, "uimage-format",
            "/raw is raw data, not a U-Boot image");
        row("uimage-format: vmlinux", "kernel/vmlinux", Role::Kernel, "uimage-format", "an ELF file");
        row("uimage-format: mkimage's", "kernel/good.uImage", Role::Kernel, "uimage-format", "");
        row("uimage-truncated: length past the end", "kernel/truncated.uImage", Role::Kernel,
            "uimage-truncated", "announces 1048576 bytes of data, the file holds 1048476");
        row("uimage-truncated: whole", "kernel/trailing.uImage", Role::Kernel, "uimage-truncated", "");
        row("uimage-header-crc: flipped name byte", "kernel/header-crc.uImage", Role::Kernel,
            "uimage-header-crc", "Bad Header Checksum");
        row("uimage-header-crc: good", "kernel/data-crc.uImage", Role::Kernel, "uimage-header-crc", "");
        row("uimage-data-crc: flipped data byte", "kernel/data-crc.uImage", Role::Kernel, "uimage-data-crc",
            "Bad Data CRC");
        row("uimage-data-crc: good", "kernel/header-crc.uImage", Role::Kernel, "uimage-data-crc", "");
        row("uimage-arch: x86", "kernel/x86.uImage", Role::Kernel, "uimage-arch",
            "a kernel image for x86 (mkimage -A x86); the instrument is arm");
        row("uimage-arch: arm", "kernel/netbsd.uImage", Role::Kernel, "uimage-arch", "");
        row("uimage-os: netbsd", "kernel/netbsd.uImage", Role::Kernel, "uimage-os", "the OS 'netbsd'");
        row("uimage-os: linux", "kernel/x86.uImage", Role::Kernel, "uimage-os", "");
        row("uimage-type: ramdisk", "kernel/ramdisk.uImage", Role::Kernel, "uimage-type",
            "a U-Boot ramdisk image, not a kernel");
        row("uimage-type: kernel_noload", "kernel/noload.uImage", Role::Kernel, "uimage-type", "");
        row("uimage-trailing: bytes after the data", "kernel/trailing.uImage", Role::Kernel,
            "uimage-trailing", "has 9 bytes after the 1048576 bytes");
        row("uimage-trailing: exact", "kernel/good.uImage", Role::Kernel, "uimage-trailing", "");
        row("image-too-large: kernel 3 MiB into mtd0", "kernel/big.uImage", Role::Kernel, "image-too-large",
            "/dev/mtd0 holds 2 MiB");
        row("image-too-large: kernel 3 MiB onto the SD card", "kernel/big.uImage", Role::Kernel,
            "image-too-large", "", 0644, "/dev/mmcblk0");
        // UBI images
        row("ubi-format: UBIFS without ubinize", "ubi/rootfs.ubifs", Role::RootImage, "ubi-format",
            "a UBIFS image (mkfs.ubifs's output, not yet made into a UBI image by ubinize)");
        row("ubi-format: kernel image", "kernel/good.uImage", Role::RootImage, "ubi-format", "raw data");
        row("ubi-format: ubinize's", "ubi/good.ubi", Role::RootImage, "ubi-format", "");
        row("ubi-header-crc: flipped erase counter", "ubi/corrupt.ubi", Role::RootImage, "ubi-header-crc",
            "block 1: erase-counter header CRC");
        row("ubi-header-crc: good", "ubi/good.ubi", Role::RootImage, "ubi-header-crc", "");
        row("ubi-erase-block: 256 KiB", "ubi/block-256k.ubi", Role::RootImage, "ubi-erase-block",
            "made for erase blocks of 256 KiB; the NAND's are 128 KiB (ubinize -p 131072)");
        row("ubi-erase-block: cut short", "ubi/cut.ubi", Role::RootImage, "ubi-erase-block",
            "not a whole erase block");
        row("ubi-erase-block: 128 KiB", "ubi/subpage.ubi", Role::RootImage, "ubi-erase-block", "");
        row("ubi-page: 4096", "ubi/page-4096.ubi", Role::RootImage, "ubi-page",
            "made for 4096-byte pages (volume header at byte 4096, data at 8192");
        row("ubi-page: 2048 with 512-byte sub-pages", "ubi/subpage.ubi", Role::RootImage, "ubi-page", "");
        row("image-too-large: UBI image larger than mtd1", "ubi/big.ubi", Role::RootImage, "image-too-large",
            "/dev/mtd1 holds 8 MiB");
        row("ubi-size: volume of 10 MiB", "ubi/reserved.ubi", Role::RootImage, "ubi-size",
            "volumes need 83 erase blocks and UBI 4 more; /dev/mtd1 has 64");
        row("ubi-size: fits", "ubi/good.ubi", Role::RootImage, "ubi-size", "");
        row("image-too-large: UBI image fits", "ubi/good.ubi", Role::RootImage, "image-too-large", "");
        row("ubi-volume: named data", "ubi/data-volume.ubi", Role::RootImage, "ubi-volume",
            "no volume named rootfs (volumes: data)");
        row("ubi-volume: rootfs", "ubi/good.ubi", Role::RootImage, "ubi-volume", "");
        // Modules
        row("tar-corrupt: cut short", "modules/truncated.tar", Role::Modules, "tar-corrupt",
            "cannot be read to its end");
        row("tar-corrupt: 4 GiB member cut short", "modules/huge-cut.tar", Role::Modules, "tar-corrupt",
            "cannot be read to its end");
        row("tar-corrupt: whole", "modules/good.tar", Role::Modules, "tar-corrupt", "");
        row("tar-not-archive: a kernel image as modules", "kernel/good.uImage", Role::Modules,
            "tar-not-archive", "good.uImage cannot be read to its end");
        row("tar-not-archive: tar's", "modules/good.tar", Role::Modules, "tar-not-archive", "");
        row("modules-release: only another release", "modules/only-other-release.tar", Role::Modules,
            "modules-release", "holds no file under lib/modules/4.19.0-instrument/");
        row("modules-release: ours", "modules/other-release.tar", Role::Modules, "modules-release", "");
        row("modules-other-release: 5.10.0-other too", "modules/other-release.tar", Role::Modules,
            "modules-other-release", "also holds modules for 5.10.0-other");
        row("modules-other-release: ours only", "modules/good.tar", Role::Modules, "modules-other-release",
            "");
        row("modules-vermagic: built for 5.10.0-other", "modules/vermagic.tar", Role::Modules,
            "modules-vermagic", "keypad.ko is built for the kernel 5.10.0-other");
        row("modules-vermagic: none", "modules/no-vermagic.tar", Role::Modules, "modules-vermagic",
            "has no vermagic");
        row("modules-vermagic: ours", "modules/good.tar", Role::Modules, "modules-vermagic", "");
        row("elf-machine: host-built module", "modules/x86-module.tar", Role::Modules, "elf-machine",
            "is an ELF 64-bit x86-64 relocatable object; the instrument's kernel loads ELF 32-bit ARM "
            "modules only");
        row("elf-type: program as module", "modules/program-module.tar", Role::Modules, "elf-type",
            "not a kernel module");
        row("elf-format: 4 GiB module", "modules/huge-sparse.tar", Role::Modules, "elf-format",
            "4294967296 bytes, too large for a kernel module");
        row("modules-dep: no modules.dep", "modules/no-dep.tar", Role::Modules, "modules-dep",
            "has no lib/modules/4.19.0-instrument/modules.dep");
        row("modules-dep: depmod's", "modules/good.tar", Role::Modules, "modules-dep", "");
        row("tar-replaces-link: folder lib/", "modules/folders.tar", Role::Modules, "tar-replaces-link",
            "the folder lib/ replaces the link /lib -> usr/lib on the instrument with a folder: the 7 "
            "entries under "
            "/lib are gone from there, /lib/ld-linux-armhf.so.3 among them");
        row("tar-replaces-link: files only", "modules/outside.tar", Role::Modules, "tar-replaces-link", "");
        row("modules-outside: etc/modules-load.d", "modules/outside.tar", Role::Modules, "modules-outside",
            "also writes /etc/modules-load.d/instrument.conf");
        row("modules-outside: lib/modules only", "modules/good.tar", Role::Modules, "modules-outside", "");
        row("tar-changes-folder: etc/ 0700", "modules/folder-mode.tar", Role::Modules, "tar-changes-folder",
            "gives the instrument's /etc the mode 0700");
        row("tar-changes-folder: no folders", "modules/outside.tar", Role::Modules, "tar-changes-folder", "");
    }

    void rule()
    {
        QFETCH(QString, file);
        QFETCH(Role, role);
        QFETCH(int, mode);
        QFETCH(QString, device);
        QFETCH(QString, rule);
        QFETCH(QString, text);
        const QVector<payload::Finding> found = findings(file, role, mode, device);
        const auto hit = std::find_if(found.begin(), found.end(),
                                      [&](const payload::Finding& f) { return f.ruleId == rule; });
        if (text.isEmpty()) {
            QVERIFY2(hit == found.end(), qPrintable(list(found)));
            return;
        }
        QVERIFY2(hit != found.end(), qPrintable(list(found)));
        QVERIFY2(hit->message.contains(text), qPrintable(hit->message));
    }

    // The payloads of a good package raise nothing at all.
    void clean_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<Role>("role");
        QTest::newRow("APP dynamic") << "elf/arm-dynamic" << Role::Application;
        QTest::newRow("UPDATER static") << "elf/arm-static" << Role::Updater;
        QTest::newRow("FILE library") << "elf/arm-library" << Role::RootFile;
        QTest::newRow("SCRIPT sh") << "script/sh" << Role::Script;
        QTest::newRow("KERNEL") << "kernel/good.uImage" << Role::Kernel;
        QTest::newRow("IMAGE") << "ubi/good.ubi" << Role::RootImage;
        QTest::newRow("IMAGE with sub-pages") << "ubi/subpage.ubi" << Role::RootImage;
        QTest::newRow("MODULES") << "modules/good.tar" << Role::Modules;
    }

    void clean()
    {
        QFETCH(QString, file);
        QFETCH(Role, role);
        const QVector<payload::Finding> found = findings(file, role);
        QVERIFY2(found.isEmpty(), qPrintable(list(found)));
    }

    // Findings carry the severity of their rule, and every rule is tested above.
    void severities()
    {
        const auto found =
            findings("elf/x86-64", Role::Application) + findings("kernel/trailing.uImage", Role::Kernel);
        QCOMPARE(found.size(), 2);
        QCOMPARE(found[0].severity, payload::Severity::Error);
        QCOMPARE(found[1].severity, payload::Severity::Warning);
    }

    // What the first error of a payload means at the next power-on (empty: nothing, or only warnings).
    void powerOn_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<Role>("role");
        QTest::addColumn<QString>("effect");
        QTest::newRow("kernel data CRC")
            << "kernel/data-crc.uImage" << Role::Kernel << "the instrument does not boot";
        QTest::newRow("UBI page") << "ubi/page-4096.ubi" << Role::RootImage << "the instrument does not boot";
        QTest::newRow("folder lib/ over the link")
            << "modules/folders.tar" << Role::Modules << "the instrument does not boot";
        QTest::newRow("module vermagic")
            << "modules/vermagic.tar" << Role::Modules << "the instrument boots without its kernel modules";
        QTest::newRow("host-built application")
            << "elf/x86-64" << Role::Application << "the main application does not start";
        QTest::newRow("soft-float updater")
            << "elf/arm-soft-float" << Role::Updater << "the updater does not start";
        QTest::newRow("script with DOS line ends") << "script/crlf" << Role::Script << "";
        QTest::newRow("bytes after the kernel: a warning") << "kernel/trailing.uImage" << Role::Kernel << "";
    }

    void powerOn()
    {
        QFETCH(QString, file);
        QFETCH(Role, role);
        QFETCH(QString, effect);
        const QVector<payload::Finding> found = findings(file, role);
        QVERIFY2(!found.isEmpty(), "the payload raised nothing");
        QCOMPARE(payload::atPowerOn(found.first(), role), effect);
    }

    // A payload over the tool's reading limit is judged by its size alone.
    void unreadPayload()
    {
        package::Package pkg;
        package::Entry entry;
        entry.name = package::topFolder + "/rootfs.ubi";
        entry.size = package::keepLimit + 1;
        pkg.entries.push_back(entry);
        QStringList rules;
        for (const payload::Finding& f : payload::check(pkg, entry, Role::RootImage, m_profile))
            rules << f.ruleId;
        QCOMPARE(rules, (QStringList{"image-too-large", "payload-unread"}));
    }

    // A script's interpreter may come with the package itself.
    void interpreterInThePackage()
    {
        package::Package pkg = packageOf("script/bash", 0755);
        package::Entry bash = pkg.entries.front();
        bash.name = package::topFolder + "/bin/bash";
        pkg.entries.push_back(bash);
        QVERIFY(payload::check(pkg, pkg.entries.front(), Role::Script, m_profile).isEmpty());
    }

    void describe_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<Role>("role");
        QTest::addColumn<QString>("text");
        QTest::newRow("program") << "elf/arm-dynamic" << Role::Application
                                 << "ELF 32-bit ARM hard-float program, loader /lib/ld-linux-armhf.so.3";
        QTest::newRow("kernel")
            << "kernel/good.uImage" << Role::Kernel
            << "U-Boot image 'Linux-4.19.0-instrument': arm linux kernel, 1048576 bytes of "
               "data, CRCs good";
        QTest::newRow("root image")
            << "ubi/good.ubi" << Role::RootImage
            << "UBI image: 16 erase blocks of 128 KiB, volume header at 2048, data at "
               "4096, volumes: rootfs";
        QTest::newRow("modules")
            << "modules/other-release.tar" << Role::Modules
            << "tar archive: 12 members, modules: 1 for 4.19.0-instrument, 1 for 5.10.0-other";
    }

    void describe()
    {
        QFETCH(QString, file);
        QFETCH(Role, role);
        QFETCH(QString, text);
        const package::Package pkg = packageOf(file, 0755);
        QCOMPARE(payload::describe(pkg.entries.front(), role), text);
    }
};

QTEST_GUILESS_MAIN(PayloadTest)
#include "tst_payload.moc"
