// update-package without the instrument: every lint rule on a package that triggers it and on one that
// does not, the build, inspect, and bad inputs (exit codes, messages, nothing left behind).
#include "PackageFixture.h"

using namespace fixture;

struct Rule
{
    QString config, cleanConfig, severity, text;
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
    static void add(const char* name, const QString& severity, int line, const QString& text,
                    const QString& config, const Files& files = {}, const QString& cleanConfig = baseConfig,
                    const Files& cleanFiles = {})
    {
        QTest::newRow(name) << Rule{config, cleanConfig, severity, text, files, cleanFiles, line};
    }
    // A rule on the PIC's HEX file; without a clean file the base one is the clean case.
    static void addHex(const char* name, const QString& severity, const QString& text, const QByteArray& hex,
                       const QByteArray& cleanHex = {})
    {
        add(name, severity, 6, text, baseConfig, {{"board.hex", {hex}}}, baseConfig,
            cleanHex.isEmpty() ? Files{} : Files{{"board.hex", {cleanHex}}});
    }

private slots:
    void initTestCase() { QVERIFY2(m_base.make(), "the base package could not be made (gpasm, tar)"); }

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
        // The failing sample fails exactly where it is meant to.
        const Lint failing = lint(samples + "/failing/OrsinaM_firmware_update_5.2f.tar.bz2");
        QCOMPARE(failing.exitCode, 1);
        QVERIFY(failing.has("error", 2, "has no firmware_update/etc/calibration.conf"));
        QVERIFY(failing.has("error", 3, "no ':'"));
        QVERIFY(failing.has("error", 4, "every ESA line fails"));
        QVERIFY(!failing.has("error", 5, ""));
    }

    void rule_data()
    {
        QTest::addColumn<Rule>("r");
        const QString base = baseConfig;
        const QString sd = "SYSTEM:SDCARD\n" + base, nand = "SYSTEM:NAND\n" + base;
        const Files image{{"rootfs.ubifs", {"UBI#"}}};

        // The command list's syntax.
        add("empty line", "error", 7, "empty line", base + "\n");
        add("note line", "error", 7, "no ':'", base + "Check before shipping\n");
        add("two colons", "error", 1, "2 colons", withLine(1, "APP:/mainApp:x"));
        add("lower-case keyword", "error", 1, "write APP", withLine(1, "app:/mainApp"));
        add("blank after keyword", "error", 1, "write APP", withLine(1, "APP :/mainApp"));
        add("blank before argument", "error", 1, "blank", withLine(1, "APP: /mainApp"));
        add("blank after argument", "warning", 1, "ends in a blank", withLine(1, "APP:/mainApp "));
        add("no leading slash", "error", 1, "must begin with '/'", withLine(1, "APP:mainApp"));
        add("missing file", "error", 2, "has no firmware_update/etc/y.conf", withLine(2, "FILE:/etc/y.conf"));
        add("argument leaves the package", "error", 1, "outside the package", withLine(1, "APP:/../mainApp"));
        add("folder named as a file", "error", 2, "is a folder", withLine(2, "FILE:/etc"));
        // The system type and what it does to later lines.
        add("SYSTEM:NAND", "error", 1, "sets the unknown system type", nand, {}, sd);
        add("unknown system type", "error", 1, "unknown system type 'EMMC'", "SYSTEM:EMMC\n" + base);
        add("kernel skipped after NAND", "error", 4, "skipped without a word", nand, {}, sd);
        add("remount fails after NAND", "error", 2, "the remount before the copy fails", nand, {}, sd);
        add("image on an SD card system", "error", 8, "NAND systems only", sd + "IMAGE:/rootfs.ubifs\n",
            image, base + "IMAGE:/rootfs.ubifs\n", image);
        add("image in a subfolder", "error", 7, "top folder", base + "IMAGE:/img/rootfs.ubifs\n",
            {{"img/rootfs.ubifs", {"UBI#"}}}, base + "IMAGE:/rootfs.ubifs\n", image);
        // Order: the root file system is read-only until a line remounts it.
        const Files updater{{"usr/bin/updater", {"new updater", 0755}}};
        add("updater before any remount", "error", 1, "runs before the remount",
            "UPDATER:/usr/bin/updater\n" + base, updater, base + "UPDATER:/usr/bin/updater\n", updater);
        add("modules before any remount", "error", 1, "remounted", "MODULES:/modules.tar\n" + base);
        // Payload contents.
        add("modules not a tar", "error", 4, "not a tar archive", base,
            {{"modules.tar", {"not an archive\n"}}});
        add("script not executable", "error", 5, "not executable", base,
            {{"post.sh", {"#!/bin/sh\nexit 0\n", 0644}}});
        add("script without interpreter line", "error", 5, "no interpreter line", base,
            {{"post.sh", {"exit 0\n", 0755}}});
        add("script with DOS line ends", "error", 5, "carriage return", base,
            {{"post.sh", {"#!/bin/sh\r\nexit 0\r\n", 0755}}});
        add("PIC file missing", "error", 6, "fails at once", withLine(6, "PIC:/other.hex"));
        add("PIC file is a folder", "error", 6, "waits forever", withLine(6, "PIC:/hexes"), {{"hexes/", {}}});
        add("PIC index not a number", "warning", 6, "not a number", withLine(6, "PIC1x:/board.hex"), {},
            withLine(6, "PIC1:/board.hex"));
        add("keyword only contains PIC", "warning", 6, "only contains PIC", withLine(6, "XPIC2:/board.hex"),
            {}, withLine(6, "PIC2:/board.hex"));
        add("ESA line", "error", 7, "every ESA line fails", base + "ESA_IO_APP:/io.bin\n",
            {{"io.bin", {"AVR"}}});
        // The package as a whole.
        add("unused payload", "warning", 0, "spare.bin is not named", base, {{"spare.bin", {"x"}}});
        add("empty command list", "warning", 0, "command list is empty", "");
        add("non-ASCII bytes", "warning", 0, "not ASCII", withLine(2, "FILE:/etc/\xc3\xa4.conf"),
            {{"etc/\xc3\xa4.conf", {"x"}}});
        add("no command list", "error", 0, "no firmware_update/update_config", "<none>");

        // Intel HEX: corrupt files are errors although the updater takes them as they are.
        const QByteArray hex = readAll(m_base.base + "/board.hex");
        QByteArray badSum = hex;
        badSum.replace(":0400000018EF00F005", ":0400000018EF00F006");
        addHex("bad checksum", "error", "bad checksum 0x06", badSum);
        addHex("not a record", "error", "does not begin with ':'", "12345\n" + hex);
        addHex("unknown record type", "error", "unknown record type 0x06", hexRecord(0, "\x01\x02", 6) + hex);
        addHex("start address record", "error", "record type 0x05",
               hexRecord(0x40, "\x01\x02") + hexRecord(0, QByteArray("\x00\x00\x01\x00", 4), 5) + hexEnd,
               hexRecord(0x40, "\x01\x02") + hexEnd);
        addHex("record after the end", "error", "after the end-of-file", hex + hexRecord(0x100, "\x01\x02"));
        addHex("no end record", "error", "no end-of-file record", hex.left(hex.lastIndexOf(":00000001FF")));
        addHex("record over 100 bytes", "error", "at most 100", filled("0", "0x100", "0x12", "-obs=120"),
               filled("0", "0x100", "0x12", "-obs=32"));
        addHex("record touching 0xFFFE", "error", "touching 0xFFFE", filled("0xFFF0", "0x10000", "0x55"),
               filled("0xFFE0", "0xFFFE", "0x55"));
        addHex("beyond the flash", "warning", "no programmable memory", filled("0x10000", "0x10010", "0x55"));
        addHex("ID locations", "error", "ID locations", filled("0x200000", "0x200008", "0x55"));
        addHex("EEPROM data", "error", "EEPROM data", filled("0xF00000", "0xF00010", "0x55"));
        const QByteArray config = hexRecord(0, QByteArray("\x00\x30", 2), 4);
        addHex("CONFIG7H alone", "error", "starting at 0x30000D", config + hexRecord(0x0D, "\x40") + hexEnd,
               config + hexRecord(0x0C, "\x0F\x40") + hexEnd);
        addHex("configuration bits that do not exist", "warning", "do not exist at 0x300000",
               filled("0x300000", "0x300002", "0xFF"), filled("0x300001", "0x300002", "0x02"));
        addHex("address past 4 GiB", "warning", "runs past 0xFFFFFFFF",
               hexRecord(0, "\xFF\xFF", 4) + hexRecord(0xFFFE, "\x01\x02\x03\x04") + hexEnd);
        addHex("byte programmed twice", "error", "already programmed",
               hexRecord(0x100, QByteArray("\x00\x00", 2)) + hexRecord(0x100, "\x01\x01") + hexEnd,
               hexRecord(0x100, QByteArray("\x00\x00", 2)) + hexRecord(0x102, "\x01\x01") + hexEnd);
    }

    void rule()
    {
        QFETCH(Rule, r);
        const QString name = QString(QTest::currentDataTag()).replace(' ', '-');
        const QString faulty = m_base.pack(m_base.variant(name, r.config, r.files),
                                           "FaultyM_firmware_update_" + name + ".tar.bz2");
        QVERIFY(!faulty.isEmpty());
        const Lint found = lint(faulty);
        QVERIFY2(found.has(r.severity, r.line, r.text), qPrintable(found.text));
        QCOMPARE(found.exitCode, found.findings.filter(QRegularExpression("^error:")).isEmpty() ? 0 : 1);
        const QString clean = m_base.pack(m_base.variant(name + "-clean", r.cleanConfig, r.cleanFiles),
                                          "CleanM_firmware_update_" + name + ".tar.bz2");
        QCOMPARE(lint(clean).problems(), QString());
    }

    void humanOutputIsOneLinePerFinding()
    {
        const QString folder =
            m_base.variant("human", withLine(1, "APP: /mainApp") + "ESA_M_EEP:/e.bin\n", {{"e.bin", {"e"}}});
        const Run r = run(tool, {"lint", folder});
        QCOMPARE(r.exitCode, 1);
        QCOMPARE(r.out,
                 folder +
                     ":1: error: [APP: /mainApp] the argument holds a blank or a quote: the target "
                     "command line is split there, so the command gets the wrong arguments; remove it\n" +
                     folder +
                     ":7: error: [ESA_M_EEP:/e.bin] every ESA line fails in this updater: ESA "
                     "loading is switched off (\"Failed - AVR updates not enabled\"); load the "
                     "board another way and remove the line\n" +
                     folder + ": 2 errors, 0 warnings in 7 commands\n");
    }

    void inspectNamesTheTargetCommandsAndThePayloads()
    {
        const QString folder = m_base.variant("inspect", "SYSTEM:SDCARD\n" + baseConfig, {});
        const Run r = run(tool, {"inspect", folder, "--json"});
        QCOMPARE(r.exitCode, 0);
        const QJsonArray commands =
            QJsonDocument::fromJson(r.out.toUtf8()).object().value("commands").toArray();
        QCOMPARE(commands.size(), 7);
        const QJsonObject kernel = commands[3].toObject();
        QCOMPARE(kernel.value("runs").toArray(),
                 QJsonArray{"sdimage -f /tmp/firmware_update/uImage -d /dev/mmcblk0"});
        const QByteArray image = readAll(folder + "/uImage");
        QCOMPARE(kernel.value("payload").toObject().value("sha256").toString(),
                 QString(QCryptographicHash::hash(image, QCryptographicHash::Sha256).toHex()));
        QCOMPARE(commands[1].toObject().value("runs").toArray(),
                 (QJsonArray{"mount / -o remount,rw", "cp /tmp/firmware_update/mainApp /home/mainApp"}));
        const QJsonObject pic = commands[6].toObject().value("pic").toObject();
        QCOMPARE(pic.value("programmed").toArray().first().toString(), QString("0x0000-0x0003"));
        QVERIFY(pic.value("config").toArray().contains(QJsonValue("0x300001 CONFIG1H = 0x02")));
        QVERIFY(pic.value("config").toArray().contains(QJsonValue("0x30000D CONFIG7H = 0x40")));
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
        const Run build = run(tool, {"build", folder, "-o", out.path() + '/' + r.name});
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
            "printf 'a' > firmware_update/a; ";
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
            << tree + "truncate -s 2G firmware_update/big.bin; tar -S -cjf $in firmware_update" << 1
            << "firmware_update/big.bin is 2.0 GiB";
        QTest::newRow("no command list") << "mkdir firmware_update; echo x > firmware_update/a; " + pkg << 1
                                         << "no firmware_update/update_config";
        QTest::newRow("entry climbing out")
            << tree + "tar -cjf $in --transform 's,^firmware_update/a$,firmware_update/../../a,' "
                      "firmware_update"
            << 1 << "climbs out of the folder";
        QTest::newRow("absolute entry")
            << tree + "tar -cjPf $in firmware_update $PWD/firmware_update/a" << 0 << "has an absolute name";
        QTest::newRow("entry outside firmware_update")
            << tree + "echo x > extra; tar -cjf $in firmware_update extra" << 0
            << "lies outside firmware_update/";
        QTest::newRow("gzip instead of bzip2")
            << tree + "tar -czf $in firmware_update" << 0 << "compressed with gzip";
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
        const Run r = run(tool, {"lint", work.path() + '/' + input});
        QVERIFY2(r.exitCode == exitCode,
                 qPrintable(QString("exit %1: %2%3").arg(r.exitCode).arg(r.out, r.err)));
        QVERIFY2((r.out + r.err).contains(message), qPrintable(r.out + r.err));
        QCOMPARE(listing(work.path()), before); // lint writes nothing
    }
};

QTEST_GUILESS_MAIN(PackageToolTest)
#include "tst_packagetool.moc"
