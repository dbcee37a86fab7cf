// update-package without the instrument: every lint rule on a package that triggers it and on one that
// does not, the build, inspect, and bad inputs (exit codes, messages, nothing left behind).
#include "Compare.h"
#include "Exposure.h"
#include "PackageFixture.h"
#include "Report.h"

using namespace fixture;

struct Rule
{
    QString config, cleanConfig, rule;
    Files files, cleanFiles;
    int line;
};

// A folder the build must refuse to pack: shell runs in it first, name is the package asked for.
struct Refusal
{
    QString config, shell, name, message;
    Files files;
};

Q_DECLARE_METATYPE(Rule)
Q_DECLARE_METATYPE(Refusal)

class PackageToolTest : public QObject
{
    Q_OBJECT

    BasePackage m_base;

    static QString withLine(int number, const QString& text)
    {
        QStringList lines = baseConfig.split('\n');
        lines[number - 1] = text;
        return lines.join('\n');
    }
    // Every name in the folder and below, sorted: ".\n" alone for an empty one.
    static QString listing(const QString& path) { return run("sh", {"-c", "find . | sort"}, path).out; }

    // One rule: the faulty package and the finding it must give, then a clean one (the base by default).
    static void add(const char* name, const QString& rule, int line, const QString& config,
                    const Files& files = {}, const QString& cleanConfig = baseConfig,
                    const Files& cleanFiles = {})
    {
        QTest::newRow(name) << Rule{config, cleanConfig, rule, files, cleanFiles, line};
    }
    // A rule on the PIC's HEX file; without a clean file the base one is the clean case.
    static void addHex(const char* name, const QString& rule, const QByteArray& hex,
                       const QByteArray& cleanHex = {})
    {
        add(name, rule, 6, baseConfig, {{"board.hex", {hex}}}, baseConfig,
            cleanHex.isEmpty() ? Files{} : Files{{"board.hex", {cleanHex}}});
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(m_base.make(),
                 "the base package could not be made (gpasm, the cross compiler, mkimage, tar)");
    }

    // The base folder, its package (modes and the top folder kept), the base with DOS line ends (text mode
    // drops the carriage return; a final line feed gives no extra line) and the samples.
    void cleanPackagesLintClean()
    {
        QCOMPARE(lint(m_base.base).problems(), QString());
        const QString packed = m_base.pack(m_base.base, "BaseM_firmware_update_1.tar.bz2");
        QCOMPARE(lint(packed).problems(), QString());
        const Run listing = run("tar", {"-tvjf", packed});
        QCOMPARE(listing.exitCode, 0);
        for (const QString& line : listing.out.split('\n', Qt::SkipEmptyParts))
            QVERIFY2(line.split(' ', Qt::SkipEmptyParts).last().startsWith("firmware_update"),
                     qPrintable(line));
        QVERIFY2(listing.out.contains(QRegularExpression("-rwxr-xr-x .* firmware_update/post.sh\n")),
                 qPrintable(listing.out));
        QVERIFY2(listing.out.contains(QRegularExpression("-rw-r--r-- .* firmware_update/uImage\n")),
                 qPrintable(listing.out));
        QCOMPARE(lint(m_base.variant("dos", QString(baseConfig).replace("\n", "\r\n"), {})).problems(),
                 QString());

        const QString samples = m_base.dir.path() + "/samples";
        QCOMPARE(run("bash", {repo + "/scripts/make-packages.sh", samples}).exitCode, 0);
        QCOMPARE(lint(samples + "/good/OrsinaM_firmware_update_5.2.tar.bz2").problems(), QString());
        QCOMPARE(lint(samples + "/nand/OrsinaM_firmware_update_5.2n.tar.bz2").problems(), QString());
        // The failing sample fails exactly where it is meant to.
        const Lint failing = lint(samples + "/failing/OrsinaM_firmware_update_5.2f.tar.bz2");
        QCOMPARE(failing.exitCode, 1);
        QVERIFY2(failing.has("cp-source-missing", 2), qPrintable(failing.text));
        QVERIFY(failing.has("line-no-colon", 3));
        QVERIFY(failing.has("esa-disabled", 4));
        QVERIFY(failing.findings.filter(QRegularExpression("^[^:]*:5:error$")).isEmpty());
    }

    void rule_data()
    {
        QTest::addColumn<Rule>("r");
        const QString base = baseConfig;
        const QString nand = "SYSTEM:NAND\n" + base;
        // On an SD card the kernel waits in the cache until the final sync: it goes after the PIC step.
        const QString sd = "SYSTEM:SDCARD\n" + QString(base).remove("KERNEL:/uImage\n") + "KERNEL:/uImage\n";
        const QByteArray ubi = m_base.payload("rootfs.ubi"), program = m_base.payload("mainApp");
        const Files image{{"rootfs.ubifs", {ubi}}};

        // The command list's syntax.
        add("empty line", "line-empty", 7, base + "\n");
        add("note line", "line-no-colon", 7, base + "Check before shipping\n");
        add("two colons", "line-colons", 1, withLine(1, "APP:/mainApp:x"));
        add("lower-case keyword", "keyword-unknown", 1, withLine(1, "app:/mainApp"));
        add("blank after keyword", "keyword-unknown", 1, withLine(1, "APP :/mainApp"));
        add("blank before argument", "arg-blank", 1, withLine(1, "APP: /mainApp"));
        add("blank after argument", "arg-trailing-blank", 1, withLine(1, "APP:/mainApp "));
        add("no leading slash", "arg-no-slash", 1, withLine(1, "APP:mainApp"));
        add("missing file", "cp-source-missing", 2, withLine(2, "FILE:/etc/y.conf"));
        add("argument leaves the package", "cp-source-missing", 1, withLine(1, "APP:/../mainApp"));
        add("folder named as a file", "cp-source-folder", 2, withLine(2, "FILE:/etc"));
        // Arguments are used as written, never tidied first.
        add("trailing slash on APP", "arg-trailing-slash", 1, withLine(1, "APP:/mainApp/"));
        add("trailing slash on FILE", "arg-trailing-slash", 2, withLine(2, "FILE:/etc/x.conf/"));
        add("'..' through a missing folder", "arg-dotdot", 1, withLine(1, "APP:/nosuchdir/../mainApp"));
        // What the instrument holds.
        add("target folder missing", "cp-target-missing", 7, base + "FILE:/opt/instrument/x\n",
            {{"opt/instrument/x", {"x"}}}, base + "FILE:/opt/x\n", {{"opt/x", {"x"}}});
        add("updater target missing", "rm-target-missing", 7, base + "UPDATER:/usr/bin/updater2\n",
            {{"usr/bin/updater2", {program, 0755}}}, base + "UPDATER:/usr/bin/updater\n",
            {{"usr/bin/updater", {program, 0755}}});
        add("FILE over the running updater", "cp-target-running", 7, base + "FILE:/usr/bin/updater\n",
            {{"usr/bin/updater", {program, 0755}}}, base + "UPDATER:/usr/bin/updater\n",
            {{"usr/bin/updater", {program, 0755}}});
        // The system type and what it does to later lines.
        add("SYSTEM:NAND", "system-nand", 1, nand, {}, sd);
        add("unknown system type", "system-unknown", 1, "SYSTEM:EMMC\n" + base);
        add("kernel skipped after NAND", "kernel-skipped", 4, nand, {}, sd);
        add("remount fails after NAND", "remount-unknown-type", 2, nand, {}, sd);
        add("image on an SD card system", "image-wrong-type", 8, sd + "IMAGE:/rootfs.ubifs\n", image,
            base + "IMAGE:/rootfs.ubifs\n", image);
        add("image in a subfolder", "image-subfolder", 7, base + "IMAGE:/img/rootfs.ubifs\n",
            {{"img/rootfs.ubifs", {ubi}}}, base + "IMAGE:/rootfs.ubifs\n", image);
        // Order: the root file system is read-only until a line remounts it.
        const Files updater{{"usr/bin/updater", {program, 0755}}};
        add("updater before any remount", "root-read-only", 1, "UPDATER:/usr/bin/updater\n" + base, updater,
            base + "UPDATER:/usr/bin/updater\n", updater);
        add("modules before any remount", "root-read-only", 1, "MODULES:/modules.tar\n" + base);
        // Order against a power cut: what waits for the final sync must not wait through a PIC step.
        const QString beforePic = QString(base).replace("PIC:", "UPDATER:/usr/bin/updater\nPIC:");
        add("updater before a PIC step", "order-unrepairable-window", 6, beforePic, updater,
            base + "UPDATER:/usr/bin/updater\n", updater);
        const Files tar{{"usr/bin/tar", {program, 0755}}, {"sync.sh", {"#!/bin/sh\nsync\n", 0755}}};
        add("a tool the updater needs before a PIC step", "order-unrepairable-window", 1,
            "FILE:/usr/bin/tar\nSCRIPT:/sync.sh\n" + base, tar,
            "FILE:/usr/bin/tar\n" + QString(base).replace("PIC:", "SCRIPT:/sync.sh\nPIC:"), tar);
        add("SD-card kernel before a PIC step", "order-unbootable-window", 4, "SYSTEM:SDCARD\n" + base, {},
            sd);
        // Payload contents.
        add("modules not a tar", "tar-not-archive", 4, base, {{"modules.tar", {"not an archive\n"}}});
        // A modules archive with the folder member lib/ replaces the link /lib: nothing starts after it.
        const QString withFolders = m_base.dir.path() + "/modules-with-folders.tar";
        QCOMPARE(run("tar", {"-cf", withFolders, "lib"}, m_base.payloads + "/modroot").exitCode, 0);
        const Files libFolder{{"modules.tar", {readAll(withFolders)}}};
        add("modules archive replacing /lib", "tar-replaces-link", 4, base, libFolder);
        add("nothing starts after /lib is replaced", "instrument-broken", 5, base, libFolder);
        add("script not executable", "exec-not-executable", 5, base,
            {{"post.sh", {"#!/bin/sh\nexit 0\n", 0644}}});
        add("script without interpreter line", "script-no-interpreter", 5, base,
            {{"post.sh", {"exit 0\n", 0755}}});
        add("script with DOS line ends", "script-crlf", 5, base,
            {{"post.sh", {"#!/bin/sh\r\nexit 0\r\n", 0755}}});
        add("script exits non-zero", "script-fails", 5, base, {{"post.sh", {"#!/bin/sh\nexit 3\n", 0755}}});
        // Payloads judged as the instrument will use them (tests/payload has a row for each such rule).
        add("application built for the host", "elf-machine", 1, base,
            {{"mainApp", {m_base.payload("mainApp-x86-64"), 0755}}});
        add("kernel without its U-Boot header", "uimage-format", 3, base,
            {{"uImage", {m_base.payload("zImage")}}});
        // The PIC line.
        add("PIC file missing", "pic-file-missing", 6, withLine(6, "PIC:/other.hex"));
        add("PIC file is a folder", "pic-folder-hangs", 6, withLine(6, "PIC:/hexes"), {{"hexes/", {}}});
        add("PIC: names the package folder", "pic-folder-hangs", 6, withLine(6, "PIC:"));
        add("PIC:/ names the package folder", "pic-folder-hangs", 6, withLine(6, "PIC:/"));
        add("PIC1:/. names the package folder", "pic-folder-hangs", 6, withLine(6, "PIC1:/."));
        add("PIC index not a number", "pic-index-text", 6, withLine(6, "PIC1x:/board.hex"), {},
            withLine(6, "PIC1:/board.hex"));
        add("PIC index with a leading zero", "pic-index-text", 6, withLine(6, "PIC01:/board.hex"), {},
            withLine(6, "PIC1:/board.hex"));
        add("keyword only contains PIC", "keyword-contains", 6, withLine(6, "XPIC2:/board.hex"), {},
            withLine(6, "PIC2:/board.hex"));
        add("ESA line", "esa-disabled", 7, base + "ESA_IO_APP:/io.bin\n", {{"io.bin", {"AVR"}}});
        // The package as a whole.
        add("unused payload", "payload-unused", 0, base, {{"spare.bin", {"x"}}});
        add("empty command list", "command-list-empty", 0, "");
        add("non-ASCII bytes", "command-list-not-ascii", 0, withLine(2, "FILE:/etc/\xc3\xa4.conf"),
            {{"etc/\xc3\xa4.conf", {"x"}}});
        add("no command list", "command-list-missing", 0, "<none>");

        // Intel HEX, as the programmer reads it.
        const QByteArray hex = readAll(m_base.base + "/board.hex");
        QByteArray badSum = hex;
        badSum.replace(":0400000018EF00F005", ":0400000018EF00F006");
        addHex("bad checksum", "hex-checksum", badSum);
        addHex("not a record", "hex-malformed", "12345\n" + hex);
        addHex("unknown record type", "hex-record-type", hexRecord(0x40, "\x01\x02", 6) + hex);
        addHex("start address record", "hex-record-type",
               hexRecord(0x40, "\x01\x02") + hexRecord(0, QByteArray("\x00\x00\x01\x00", 4), 5) + hexEnd,
               hexRecord(0x40, "\x01\x02") + hexEnd);
        addHex("record after the end", "hex-after-end", hex + hexRecord(0x100, "\x01\x02"));
        addHex("no end record", "hex-no-end", hex.left(hex.lastIndexOf(":00000001FF")));
        addHex("record over 100 bytes", "hex-record-too-long", filled("0", "0x100", "0x12", "-obs=120"),
               filled("0", "0x100", "0x12", "-obs=32"));
        addHex("record touching 0xFFFE", "hex-flash-end", filled("0xFFF0", "0x10000", "0x55"),
               filled("0xFFE0", "0xFFFE", "0x55"));
        addHex("beyond the flash", "hex-outside-memory", filled("0x10000", "0x10010", "0x55"));
        addHex("ID locations", "hex-id-locations", filled("0x200000", "0x200008", "0x55"));
        addHex("EEPROM data", "hex-eeprom", filled("0xF00000", "0xF00010", "0x55"));
        const QByteArray config = hexRecord(0, QByteArray("\x00\x30", 2), 4);
        addHex("CONFIG7H alone", "hex-config-late", config + hexRecord(0x0D, "\x40") + hexEnd,
               config + hexRecord(0x0C, "\x0F\x40") + hexEnd);
        addHex("configuration bits that do not exist", "hex-config-bits",
               filled("0x300000", "0x300002", "0xFF"), filled("0x300001", "0x300002", "0x02"));
        addHex("address past 4 GiB", "hex-outside-memory",
               hexRecord(0, "\xFF\xFF", 4) + hexRecord(0xFFFE, "\x01\x02\x03\x04") + hexEnd);
        addHex("byte programmed twice", "hex-verify-fails",
               hexRecord(0x100, QByteArray("\x00\x00", 2)) + hexRecord(0x100, "\x01\x01") + hexEnd,
               hexRecord(0x100, QByteArray("\x00\x00", 2)) + hexRecord(0x102, "\x01\x01") + hexEnd);
    }

    void rule()
    {
        QFETCH(Rule, r);
        const QString name =
            QString(QTest::currentDataTag()).replace(QRegularExpression("[^A-Za-z0-9]"), "-");
        const QString faulty = m_base.pack(m_base.variant(name, r.config, r.files),
                                           "FaultyM_firmware_update_" + name + ".tar.bz2");
        QVERIFY(!faulty.isEmpty());
        const Lint found = lint(faulty);
        QVERIFY2(found.has(r.rule, r.line), qPrintable(found.text));
        QCOMPARE(found.exitCode, found.findings.filter(QRegularExpression(":error$")).isEmpty() ? 0 : 1);
        const QString clean = m_base.pack(m_base.variant(name + "-clean", r.cleanConfig, r.cleanFiles),
                                          "CleanM_firmware_update_" + name + ".tar.bz2");
        QCOMPARE(lint(clean).problems(), QString());
    }

    // An order warning says what to change: the move, or a sync when the move would break a later line.
    void orderWarningSaysWhatToChange_data()
    {
        QTest::addColumn<QString>("config");
        QTest::addColumn<QString>("advice");
        QTest::newRow("move it")
            << QString(baseConfig).replace("PIC:", "UPDATER:/usr/bin/updater\nPIC:")
            << ":6: warning: order-unrepairable-window: [UPDATER:/usr/bin/updater] "
               "/usr/bin/updater (the updater does not start) may come back lost until the "
               "next sync, so the PIC step of line 7 keeps the instrument unrepairable for "
               "its minutes: move this line after line 7\n";
        // Only the FILE line remounts the root before MODULES: after the PIC step it would come too late.
        QTest::newRow("sync instead")
            << "FILE:/usr/bin/tar\nMODULES:/modules.tar\nAPP:/mainApp\nFILE:/etc/x.conf\nKERNEL:/uImage\n"
               "SCRIPT:/post.sh\nPIC:/board.hex\n"
            << ":1: warning: order-unrepairable-window: [FILE:/usr/bin/tar] /usr/bin/tar (the updater needs "
               "it) "
               "may come back lost until the next sync, so the PIC step of line 7 keeps the instrument "
               "unrepairable for its minutes: moving this line after line 7 would make "
               "[MODULES:/modules.tar] "
               "fail (root-read-only), so put a SCRIPT line whose script ends in sync right before line 7\n";
    }

    void orderWarningSaysWhatToChange()
    {
        QFETCH(QString, config);
        QFETCH(QString, advice);
        const QString folder = m_base.variant("advice", config,
                                              {{"usr/bin/updater", {m_base.payload("mainApp"), 0755}},
                                               {"usr/bin/tar", {m_base.payload("mainApp"), 0755}}});
        const Run r = run(tool, {"lint", folder, "--profile", testProfile});
        QVERIFY2(r.out.contains(folder + advice), qPrintable(r.out));
    }

    // The class preview shows beside each line: the worst a cut during it leaves, with the write-back of
    // what earlier lines wrote (tests/risk checks it against real cuts).
    void lineClasses_data()
    {
        QTest::addColumn<QString>("config");
        QTest::addColumn<QStringList>("classes");
        QTest::newRow("base") << baseConfig << QStringList{"repairable", "repairable", "unbootable",
                                                           "repairable", "repairable", "repairable"};
        QTest::newRow("the updater, then a PIC step")
            << "APP:/mainApp\nUPDATER:/usr/bin/updater\nPIC:/board.hex\n"
            << QStringList{"repairable", "unrepairable", "unrepairable"};
        QTest::newRow("a copy that fails writes nothing") << "SYSTEM:SDCARD\nFILE:/etc/missing.conf\n"
                                                          << QStringList{"unchanged", "unchanged"};
        QTest::newRow("an SD-card kernel until the end")
            << "SYSTEM:SDCARD\nKERNEL:/uImage\nSCRIPT:/post.sh\nSYSTEM:SDCARD\n"
            << QStringList{"unchanged", "unbootable", "unbootable", "unbootable"};
        QTest::newRow("an SD-card kernel until a script's sync")
            << "SYSTEM:SDCARD\nKERNEL:/uImage\nSCRIPT:/sync.sh\nSYSTEM:SDCARD\n"
            << QStringList{"unchanged", "unbootable", "unbootable", "unchanged"};
        QTest::newRow("the NAND kernel is written raw") << "KERNEL:/uImage\nSYSTEM:SDCARD\n"
                                                        << QStringList{"unbootable", "unchanged"};
    }

    void lineClasses()
    {
        QFETCH(QString, config);
        QFETCH(QStringList, classes);
        QString error;
        const auto pkg = package::read(m_base.variant("classes", config,
                                                      {{"usr/bin/updater", {m_base.payload("mainApp"), 0755}},
                                                       {"sync.sh", {"#!/bin/sh\nsync\n", 0755}}}),
                                       error);
        const auto instrument = profile::read(testProfile, error);
        QVERIFY2(pkg && instrument, qPrintable(error));
        QStringList found;
        for (const exposure::LineClass& c : exposure::classes(predict::predict(*pkg, *instrument)))
            found << poweron::name(c.worst);
        QCOMPARE(found, classes);
    }

    void humanOutputIsOneLinePerFinding()
    {
        const QString folder =
            m_base.variant("human", withLine(1, "APP: /mainApp") + "ESA_M_EEP:/e.bin\n", {{"e.bin", {"e"}}});
        const Run r = run(tool, {"lint", folder, "--profile", testProfile});
        QCOMPARE(r.exitCode, 1);
        QCOMPARE(
            r.out,
            folder +
                ":1: error: arg-blank: [APP: /mainApp] \"cp /tmp/firmware_update /mainApp /home/mainApp\" "
                "fails: cp: target '/home/mainApp': Not a directory\n" +
                folder +
                ":7: error: esa-disabled: [ESA_M_EEP:/e.bin] every ESA line fails in this updater: ESA "
                "loading is switched off (\"Failed - AVR updates not enabled\"); load the "
                "board another way and remove the line\n" +
                folder + ": 2 errors, 0 warnings in 7 commands\n");
    }

    // A payload fault the updater's own commands run into too is one finding, not one from each.
    void payloadFindingsAreNotRepeated_data()
    {
        QTest::addColumn<QString>("rule");
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<int>("mode");
        QTest::newRow("script-crlf") << "script-crlf" << QByteArray("#!/bin/sh\r\nexit 0\r\n") << 0755;
        QTest::newRow("script-no-interpreter") << "script-no-interpreter" << QByteArray("exit 0\n") << 0755;
        QTest::newRow("exec-not-executable")
            << "exec-not-executable" << QByteArray("#!/bin/sh\nexit 0\n") << 0644;
        QTest::newRow("script-interpreter-missing")
            << "script-interpreter-missing" << QByteArray("#!/bin/bash\nexit 0\n") << 0755;
    }

    void payloadFindingsAreNotRepeated()
    {
        QFETCH(QString, rule);
        QFETCH(QByteArray, script);
        QFETCH(int, mode);
        const Lint found = lint(m_base.variant("once-" + rule, baseConfig, {{"post.sh", {script, mode}}}));
        QVERIFY2(found.has(rule, 5), qPrintable(found.text));
        QCOMPARE(found.count(rule), 1);
    }

    // The application built by the host's compiler: lint names what it is and what the instrument runs.
    void hostBuiltApplication()
    {
        const QString folder =
            m_base.variant("host", baseConfig, {{"mainApp", {m_base.payload("mainApp-x86-64"), 0755}}});
        const Run r = run(tool, {"lint", folder, "--profile", testProfile});
        QCOMPARE(r.exitCode, 1);
        QCOMPARE(r.out,
                 folder +
                     ":1: error: elf-machine: [APP:/mainApp] /mainApp is an ELF 64-bit x86-64 program; the "
                     "instrument runs ELF 32-bit ARM hard-float programs: it cannot start there\n" +
                     folder + ": 1 error, 0 warnings in 6 commands\n");
    }

    // A HEX file full of data the programmer passes over: every record is a finding in JSON, of one
    // severity, and the human output names a few and counts the rest.
    void repeatedFindingsAreAllInJsonAndCountedInText()
    {
        const QByteArray above = filled("0x10000", "0x10200", "0x55"); // 16 records above 64 KB
        const QString folder = m_base.variant("repeats", baseConfig, {{"board.hex", {above}}});
        const Lint found = lint(folder);
        QCOMPARE(found.count("hex-outside-memory"), 16);
        QCOMPARE(found.findings.filter(":warning").filter("hex-outside-memory").size(), 0);
        QCOMPARE(found.json.value("schema").toInt(), 1);
        QCOMPARE(found.json.value("counts").toObject().value("errors").toInt(), 16);
        const Run text = run(tool, {"lint", folder, "--profile", testProfile});
        QCOMPARE(text.out.count(": error: hex-outside-memory: "), 4); // three shown, then the count
        QVERIFY2(text.out.contains(":6: error: hex-outside-memory: and 13 more like this"),
                 qPrintable(text.out));
    }

    // Every rule a finding can name is listed, once, with its severity and a sentence.
    void rulesAreListed()
    {
        const Run r = run(tool, {"rules", "--json"});
        QCOMPARE(r.exitCode, 0);
        QSet<QString> ids;
        for (const QJsonValue v : QJsonDocument::fromJson(r.out.toUtf8()).object().value("rules").toArray()) {
            const QJsonObject o = v.toObject();
            QVERIFY2(!ids.contains(o.value("id").toString()), qPrintable(o.value("id").toString()));
            ids.insert(o.value("id").toString());
            QVERIFY(QStringList({"error", "warning"}).contains(o.value("severity").toString()));
            QVERIFY(o.value("sentence").toString().endsWith('.'));
        }
        QVERIFY(ids.contains("pic-folder-hangs") && ids.contains("arg-trailing-slash"));
        // The ids this test program expects are all there.
        QTest::setMainSourcePath(__FILE__);
        const QString source = QString::fromUtf8(readAll(QFINDTESTDATA("tst_packagetool.cpp")));
        const QRegularExpression quoted(
            "\"((?:hex|arg|cp|rm|tar|exec|script|pic|line|keyword|package|payload|"
            "command|system|remount|root|kernel|image|esa|elf|uimage|ubi|modules|program|order)-[a-z0-9-]+)"
            "\"");
        for (auto it = quoted.globalMatch(source); it.hasNext();) {
            const QString id = it.next().captured(1);
            QVERIFY2(ids.contains(id), qPrintable(id + " is not listed by update-package rules"));
        }
    }

    // The name the updater's tar command is built from: a blank splits it (lint says so, build refuses).
    void blankInTheArchiveName()
    {
        const QString packed = m_base.pack(m_base.base, "Orsina M_firmware_update 5.3.tar.bz2");
        QVERIFY(!packed.isEmpty());
        const Lint found = lint(packed);
        QVERIFY2(found.has("package-name-blank", 0), qPrintable(found.text));
        QCOMPARE(found.exitCode, 1);
        QTemporaryDir out;
        const Run build =
            run(tool, {"build", m_base.base, "-o", out.path() + "/Orsina M_firmware_update 5.3.tar.bz2",
                       "--profile", testProfile});
        QCOMPARE(build.exitCode, 1);
        QVERIFY2(build.err.contains("package-name-blank"), qPrintable(build.err));
    }

    void inspectNamesTheTargetCommandsAndThePayloads()
    {
        const QString folder = m_base.variant("inspect", "SYSTEM:SDCARD\n" + baseConfig, {});
        const Run r = run(tool, {"inspect", folder, "--json", "--profile", testProfile});
        QCOMPARE(r.exitCode, 0);
        const QJsonObject report = QJsonDocument::fromJson(r.out.toUtf8()).object();
        QCOMPARE(report.value("schema").toInt(), 1);
        const QJsonArray commands = report.value("commands").toArray();
        QCOMPARE(commands.size(), 7);
        const QJsonArray kernel = commands[3].toObject().value("events").toArray();
        QCOMPARE(kernel[1].toObject().value("run").toString(),
                 QString("sdimage -f /tmp/firmware_update/uImage -d /dev/mmcblk0"));
        const QJsonObject app = commands[1].toObject();
        QCOMPARE(app.value("events").toArray()[2].toObject().value("run").toString(),
                 QString("cp /tmp/firmware_update/mainApp /home/mainApp"));
        const QJsonObject written = app.value("writes").toArray().first().toObject();
        QCOMPARE(written.value("path").toString(), QString("/home/mainApp"));
        QCOMPARE(written.value("mode").toString(), QString("0755"));
        QCOMPARE(
            written.value("sha256").toString(),
            QString(
                QCryptographicHash::hash(readAll(folder + "/mainApp"), QCryptographicHash::Sha256).toHex()));
        // What each payload is, as the instrument will take it, and a line's payload findings.
        QCOMPARE(app.value("payloadKind").toString(),
                 QString("ELF 32-bit ARM hard-float program, loader /lib/ld-linux-armhf.so.3"));
        QVERIFY2(commands[3]
                     .toObject()
                     .value("payloadKind")
                     .toString()
                     .startsWith("U-Boot image 'Linux-4.19.0-instrument': arm linux kernel, 4096 bytes of "
                                 "data, CRCs good"),
                 qPrintable(commands[3].toObject().value("payloadKind").toString()));
        QCOMPARE(commands[4].toObject().value("payloadKind").toString(),
                 QString("tar archive: 11 members, modules: 1 for 4.19.0-instrument"));
        QCOMPARE(app.value("findings").toArray().size(), 0);
        const QString host = m_base.variant("inspect-host", baseConfig,
                                            {{"mainApp", {m_base.payload("mainApp-x86-64"), 0755}}});
        const Run text = run(tool, {"inspect", host, "--profile", testProfile});
        QVERIFY2(text.out.contains(
                     "\n  payload:    ELF 64-bit x86-64 program, loader /lib64/ld-linux-x86-64.so.2\n"
                     "  findings:   error: elf-machine: /mainApp is an ELF 64-bit x86-64 program"),
                 qPrintable(text.out));
        const QJsonObject pic = commands[6].toObject().value("pic").toObject();
        QVERIFY(pic.value("programmed").toString().startsWith("0x0000-0x0003"));
        QVERIFY(pic.value("config").toArray().contains(QJsonValue("0x300001 = 0x02")));
        QCOMPARE(report.value("end").toString(), QString("complete"));
    }

    // The comparison on a snapshot made from the prediction itself, then changed in one place: exactly one
    // difference, on the line that place belongs to (the alignment keeps the other lines agreeing).
    void comparisonKeysDifferencesByLine_data()
    {
        QTest::addColumn<QString>("change");
        QTest::addColumn<QString>("expected"); // "LINE WHAT", empty: agrees
        QTest::newRow("none") << ""
                              << "";
        QTest::newRow("a command's exit") << "exit cp /tmp/firmware_update/etc/x.conf /etc/x.conf"
                                          << "2 exit";
        QTest::newRow("an extra red line") << "red after nandwrite"
                                           << "3 view";
        QTest::newRow("a missing view line") << "drop Updating Linux modules with: /modules.tar"
                                             << "4 view";
        QTest::newRow("a progress line after its command")
            << "later Updating Linux modules with: /modules.tar"
            << "4 order";
        QTest::newRow("the mode of /") << "root / 0700"
                                       << "0 root";
        QTest::newRow("the application's content") << "root /home/mainApp content"
                                                   << "1 root";
        QTest::newRow("a PIC flash byte") << "pic"
                                          << "6 pic";
        QTest::newRow("a partition") << "partition"
                                     << "3 partition";
        QTest::newRow("the technician's F1 after the end") << "after the end"
                                                           << "";
    }

    void comparisonKeysDifferencesByLine()
    {
        QFETCH(QString, change);
        QFETCH(QString, expected);
        QString error;
        const auto pkg = package::read(m_base.base, error);
        const auto instrument = profile::read(testProfile, error);
        QVERIFY2(pkg && instrument, qPrintable(error));
        const predict::Prediction p = predict::predict(*pkg, *instrument);
        QCOMPARE(p.end, predict::End::Complete);

        state::Snapshot s;
        s.ended = true;
        QString late; // a view line that comes after the next command instead
        for (const predict::Event& e : p.events) {
            if (e.type == predict::Event::Type::View) {
                const QString line = "view " + e.shownColour + ' ' + predict::escaped(e.shown);
                if (change == "later " + e.text)
                    late = line;
                else if (change != "drop " + e.text)
                    s.trace << line;
            } else if (e.traced) {
                s.trace << "run " + e.text
                        << QString("exit %1").arg(e.exit == predict::Exit::Success ? 0 : 1);
                if (change == "exit " + e.text)
                    s.trace.back() = "exit 1";
                if (change == "red after nandwrite" && e.text.startsWith("nandwrite"))
                    s.trace << "view red Failed - something";
                if (!late.isEmpty())
                    s.trace << std::exchange(late, QString());
            }
        }
        for (auto it = p.root->changed().begin(); it != p.root->changed().end(); ++it) {
            const rootfs::Node node = p.root->at(it.key());
            state::Node n;
            n.path = it.key();
            n.removed = !node;
            if (node)
                n = {it.key(),  false,      node->kind,   node->mode,   node->uid,
                     node->gid, node->size, node->target, node->sha256, std::nullopt};
            if (change == "root /home/mainApp content" && n.path == "/home/mainApp")
                n.sha256 = QByteArray(32, 'x');
            s.root << n;
        }
        if (change == "after the end")
            s.trace << "run umount /mnt/update"
                    << "exit 32";
        if (change == "root / 0700")
            s.root.prepend({"/", false, profile::Kind::Directory, 0700, 0, 0, 0, {}, {}, std::nullopt});
        for (auto it = p.partitions.begin(); it != p.partitions.end(); ++it)
            s.partitions.insert(it.key(), it->content);
        if (change == "partition")
            s.partitions["/dev/mtd0"][10] = 'X';
        s.picFlash = p.pic.flash;
        s.picConfig = p.pic.config;
        if (change == "pic")
            s.picFlash[0x100] = 0;

        const compare::Result result = compare::compare(p, s);
        QStringList found;
        for (const compare::Difference& d : result.differences)
            found << QString("%1 %2").arg(d.line).arg(d.what);
        QCOMPARE(found.join(", "), expected);
    }

    // A package after another in one run of the updater starts where that one ended: the system type
    // its SYSTEM line set, the root with what it installed and what it unpacked into /tmp.
    void predictionStartsWhereTheOneBeforeEnded_data()
    {
        QTest::addColumn<QString>("first");
        QTest::addColumn<Files>("files");
        QTest::addColumn<QString>("second");
        QTest::addColumn<QString>("command"); // run by the second only after the first
        QTest::addColumn<QString>("end");     // of the second after the first
        QTest::newRow("the system type") << "SYSTEM:SDCARD\n"
                                         << Files() << "KERNEL:/uImage\n"
                                         << "sdimage -f /tmp/firmware_update/uImage -d /dev/mmcblk0"
                                         << "complete";
        // The second package lacks the file: the copy takes the one the first left in /tmp.
        QTest::newRow("a file the first installed")
            << "FILE:/etc/session.conf\n"
            << Files{{"etc/session.conf", {"session\n"}}} << "UPDATER:/etc/session.conf\n"
            << "cp /tmp/firmware_update/etc/session.conf /etc/session.conf"
            << "complete";
    }

    void predictionStartsWhereTheOneBeforeEnded()
    {
        QFETCH(QString, first);
        QFETCH(Files, files);
        QFETCH(QString, second);
        QFETCH(QString, command);
        QFETCH(QString, end);
        const QString tag = QString(QTest::currentDataTag()).replace(' ', '-');
        QString error;
        const auto instrument = profile::read(testProfile, error);
        const auto one = package::read(m_base.variant(tag + "-1", first, files), error);
        QVERIFY2(instrument && one, qPrintable(error));
        // The second is unpacked over the first: a file of the base it also has would hide the point.
        const QString folder = m_base.dir.path() + "/v/" + tag + "-2";
        writeFile(folder + "/update_config", second.toUtf8());
        writeFile(folder + "/uImage", m_base.payload("uImage"));
        const auto two = package::read(folder, error);
        QVERIFY2(two, qPrintable(error));

        const predict::Prediction before = predict::predict(*one, *instrument);
        QCOMPARE(before.unknownEnd(), QString());
        predict::Options options;
        options.after = &before;
        const predict::Prediction chained = predict::predict(*two, *instrument, options);
        const predict::Prediction alone = predict::predict(*two, *instrument);
        const auto runs = [&](const predict::Prediction& p) {
            return std::any_of(p.events.begin(), p.events.end(), [&](const predict::Event& e) {
                return e.type == predict::Event::Type::Run && e.text == command &&
                       e.exit == predict::Exit::Success;
            });
        };
        QVERIFY2(runs(chained), qPrintable(report::inspectText(*two, chained)));
        QVERIFY(!runs(alone));
        QCOMPARE(predict::endName(chained.end), end);
        QCOMPARE(chained.systemType, before.systemType);
        QCOMPARE(chained.systemLine, 0);
        // What the first unpacked stays in /tmp, and is not the second's change.
        QVERIFY(chained.root->at("/tmp/firmware_update/etc/x.conf"));
        QVERIFY(!chained.root->changed().contains("/tmp/firmware_update/etc/x.conf"));
    }

    // A script's own commands leave the root unknown: no package can be predicted after it.
    void noPredictionAfterAnUnknownEnd()
    {
        QString error;
        const auto instrument = profile::read(testProfile, error);
        const auto pkg = package::read(m_base.variant("effects", "SCRIPT:/post.sh\n",
                                                      {{"post.sh", {"#!/bin/sh\nrm -f /etc/x\n", 0755}}}),
                                       error);
        QVERIFY2(instrument && pkg, qPrintable(error));
        QCOMPARE(predict::predict(*pkg, *instrument).unknownEnd(),
                 QString("line 1 (SCRIPT:/post.sh) runs a script whose own commands are not predicted"));
    }

    void buildRefuses_data()
    {
        QTest::addColumn<Refusal>("r");
        const auto refuse = [](const char* name, const QString& config, const QString& shell,
                               const QString& package, const QString& message, const Files& files = {}) {
            QTest::newRow(name) << Refusal{config, shell, package, message, files};
        };
        refuse("a name the updater would not find", baseConfig, "", "firmware_update.tar.bz2",
               "would not find");
        refuse("lint errors", baseConfig + "ESA_M_APP:/m.bin\n", "", "LintM_firmware_update_1.tar.bz2",
               "lint found errors", {{"m.bin", {"m"}}});
        refuse("a link out of the folder", baseConfig, "ln -s ../../../etc/passwd passwd",
               "LinkM_firmware_update_1.tar.bz2", "points out of");
    }

    void buildRefuses()
    {
        QFETCH(Refusal, r);
        const QString folder = m_base.variant("refuse", r.config, r.files);
        if (!r.shell.isEmpty())
            QCOMPARE(run("sh", {"-c", r.shell}, folder).exitCode, 0);
        QTemporaryDir out;
        const Run build =
            run(tool, {"build", folder, "-o", out.path() + '/' + r.name, "--profile", testProfile});
        QCOMPARE(build.exitCode, 1);
        QVERIFY2(build.err.contains(r.message), qPrintable(build.err));
        QCOMPARE(listing(out.path()), QString(".\n")); // no package, no temporary file
    }

    void badInput_data()
    {
        QTest::addColumn<QString>("make"); // a shell script run in an empty folder; the input is $in
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("message");
        const QString pkg = "tar -cjf $in firmware_update; ";
        const QString tree =
            "mkdir -p firmware_update && printf 'APP:/a\\n' > firmware_update/update_config && "
            "printf '#!/bin/sh\\n' > firmware_update/a; "; // an application the instrument can start
        QTest::newRow("no such file") << "true" << 2 << "no such file";
        QTest::newRow("not an archive") << "echo 'just text' > $in" << 2 << "not a readable tar archive";
        QTest::newRow("truncated archive")
            << tree + "head -c 4000 /dev/zero > firmware_update/a; tar -cf full "
                      "firmware_update; head -c 3000 full > $in"
            << 2 << "truncated";
        QTest::newRow("2 GiB entry, header only")
            << "python3 -c \"import tarfile, bz2; t = tarfile.TarInfo('firmware_update/big.bin'); t.size = 2 "
               "<< 30; "
               "open('$in', 'wb').write(bz2.compress(t.tobuf(tarfile.GNU_FORMAT)))\""
            << 2 << "truncated or corrupt archive inside entry 'firmware_update/big.bin'";
        QTest::newRow("2 GiB sparse entry")
            << tree + "truncate -s 2G firmware_update/big.bin; tar -S -cjf $in firmware_update" << 0
            << "package-large-member";
        QTest::newRow("no command list")
            << "mkdir firmware_update; echo x > firmware_update/a; " + pkg << 1 << "command-list-missing";
        QTest::newRow("entry climbing out")
            << tree + "tar -cjf $in --transform 's,^firmware_update/a$,firmware_update/../../a,' "
                      "firmware_update"
            << 1 << "tar-member-dotdot";
        QTest::newRow("absolute entry") << tree + "tar -cjPf $in firmware_update $PWD/firmware_update/a" << 0
                                        << "package-member-absolute";
        QTest::newRow("entry outside firmware_update")
            << tree + "echo x > extra; tar -cjf $in firmware_update extra" << 0 << "package-member-outside";
        QTest::newRow("gzip instead of bzip2")
            << tree + "tar -czf $in firmware_update" << 0 << "package-compression";
    }

    void badInput()
    {
        QFETCH(QString, make);
        QFETCH(int, exitCode);
        QFETCH(QString, message);
        QTemporaryDir work;
        const QString input = "XM_firmware_update_1.tar.bz2";
        QCOMPARE(run("bash", {"-c", "set -e; in=" + input + "; " + make}, work.path()).exitCode, 0);
        const QString before = listing(work.path());
        const Run r = run(tool, {"lint", work.path() + '/' + input, "--profile", testProfile});
        QVERIFY2(r.exitCode == exitCode,
                 qPrintable(QString("exit %1: %2%3").arg(r.exitCode).arg(r.out, r.err)));
        QVERIFY2((r.out + r.err).contains(message), qPrintable(r.out + r.err));
        QCOMPARE(listing(work.path()), before); // lint writes nothing
    }
};

QTEST_GUILESS_MAIN(PackageToolTest)
#include "tst_packagetool.moc"
