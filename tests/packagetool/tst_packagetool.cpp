// update-package without the instrument: every lint rule on a package that triggers it and on one that
// does not, the build, inspect, and bad inputs (exit codes, messages, nothing left behind).
#include "PackageFixture.h"

#include <QCryptographicHash>

using namespace fixture;

namespace {

QString withLine(int number, const QString& text)
{
    QStringList lines = baseConfig.split('\n');
    lines[number - 1] = text;
    return lines.join('\n');
}

QStringList folderListing(const QString& path)
{
    QStringList names;
    QDirIterator it(path, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        names << it.next();
    names.sort();
    return names;
}

} // namespace

class PackageToolTest : public QObject
{
    Q_OBJECT

    BasePackage m_base;

    void addRule(const char* name, const QString& config, const Files& files, const QString& cleanConfig,
                 const Files& cleanFiles, const QString& severity, int line, const QString& text)
    {
        QTest::newRow(name) << config << files << cleanConfig << cleanFiles << severity << line << text;
    }
    void addHexRule(const char* name, const QByteArray& hex, const QByteArray& cleanHex,
                    const QString& severity, const QString& text)
    {
        addRule(name, baseConfig, {{"board.hex", file(hex)}}, baseConfig, {{"board.hex", file(cleanHex)}},
                severity, 6, text);
    }

private slots:
    void initTestCase() { QVERIFY2(m_base.make(), "the base package could not be made (gpasm, tar)"); }

    void baseAndSamplePackagesLintClean()
    {
        const Lint folder = lint(m_base.base);
        QVERIFY2(folder.exitCode == 0 && folder.findings.isEmpty(), qPrintable(folder.text));
        const QString packed = m_base.pack(m_base.base, "BaseM_firmware_update_1.tar.bz2");
        const Lint archive = lint(packed);
        QVERIFY2(archive.exitCode == 0 && archive.findings.isEmpty(), qPrintable(archive.text));

        const QString samples = m_base.dir.path() + "/samples";
        QCOMPARE(run("bash", {repo + "/scripts/make-packages.sh", samples}).exitCode, 0);
        const Lint good = lint(samples + "/good/OrsinaM_firmware_update_5.2.tar.bz2");
        QVERIFY2(good.exitCode == 0 && good.findings.isEmpty(), qPrintable(good.text));
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
        QTest::addColumn<QString>("config");
        QTest::addColumn<Files>("files");
        QTest::addColumn<QString>("cleanConfig");
        QTest::addColumn<Files>("cleanFiles");
        QTest::addColumn<QString>("severity");
        QTest::addColumn<int>("line");
        QTest::addColumn<QString>("text");
        const QString base = baseConfig;
        const Files none;
        const QString sd = "SYSTEM:SDCARD\n" + base, nand = "SYSTEM:NAND\n" + base;
        const Files image{{"rootfs.ubifs", file("UBI#")}};

        // The command list's syntax.
        addRule("empty line", base + "\n", none, base, none, "error", 7, "empty line");
        addRule("note line", base + "Check before shipping\n", none, base, none, "error", 7, "no ':'");
        addRule("two colons", withLine(1, "APP:/mainApp:x"), none, base, none, "error", 1, "2 colons");
        addRule("lower-case keyword", withLine(1, "app:/mainApp"), none, base, none, "error", 1, "write APP");
        addRule("blank after keyword", withLine(1, "APP :/mainApp"), none, base, none, "error", 1,
                "write APP");
        addRule("blank before argument", withLine(1, "APP: /mainApp"), none, base, none, "error", 1, "blank");
        addRule("blank after argument", withLine(1, "APP:/mainApp "), none, base, none, "warning", 1,
                "ends in a blank");
        addRule("no leading slash", withLine(1, "APP:mainApp"), none, base, none, "error", 1,
                "must begin with '/'");
        addRule("missing file", withLine(2, "FILE:/etc/y.conf"), none, base, none, "error", 2,
                "has no firmware_update/etc/y.conf");
        addRule("argument leaves the package", withLine(1, "APP:/../mainApp"), none, base, none, "error", 1,
                "outside the package");
        addRule("folder named as a file", withLine(2, "FILE:/etc"), none, base, none, "error", 2,
                "is a folder");
        // The system type and what it does to later lines.
        addRule("SYSTEM:NAND", nand, none, sd, none, "error", 1, "sets the unknown system type");
        addRule("unknown system type", "SYSTEM:EMMC\n" + base, none, base, none, "error", 1,
                "unknown system type 'EMMC'");
        addRule("kernel skipped after NAND", nand, none, sd, none, "error", 4, "skipped without a word");
        addRule("remount fails after NAND", nand, none, sd, none, "error", 2,
                "the remount before the copy fails");
        addRule("image on an SD card system", sd + "IMAGE:/rootfs.ubifs\n", image,
                base + "IMAGE:/rootfs.ubifs\n", image, "error", 8, "NAND systems only");
        addRule("image in a subfolder", base + "IMAGE:/img/rootfs.ubifs\n",
                {{"img/rootfs.ubifs", file("UBI#")}}, base + "IMAGE:/rootfs.ubifs\n", image, "error", 7,
                "top folder");
        // Order: the root file system is read-only until a line remounts it.
        const Files updater{{"usr/bin/updater", file("new updater", 0755)}};
        addRule("updater before any remount", "UPDATER:/usr/bin/updater\n" + base, updater,
                base + "UPDATER:/usr/bin/updater\n", updater, "error", 1, "runs before the remount");
        addRule("modules before any remount", "MODULES:/modules.tar\n" + base, none, base, none, "error", 1,
                "remounted");
        // Payload contents.
        addRule("modules not a tar", base, {{"modules.tar", file("not an archive\n")}}, base, none, "error",
                4, "not a tar archive");
        addRule("script not executable", base, {{"post.sh", file("#!/bin/sh\nexit 0\n", 0644)}}, base, none,
                "error", 5, "not executable");
        addRule("script without interpreter line", base, {{"post.sh", file("exit 0\n", 0755)}}, base, none,
                "error", 5, "no interpreter line");
        addRule("script with DOS line ends", base, {{"post.sh", file("#!/bin/sh\r\nexit 0\r\n", 0755)}}, base,
                none, "error", 5, "carriage return");
        addRule("PIC file missing", withLine(6, "PIC:/other.hex"), none, base, none, "error", 6,
                "fails at once");
        addRule("PIC file is a folder", withLine(6, "PIC:/hexes"), {{"hexes", folder()}}, base, none, "error",
                6, "waits forever");
        addRule("PIC index not a number", withLine(6, "PIC1x:/board.hex"), none,
                withLine(6, "PIC1:/board.hex"), none, "warning", 6, "not a number");
        addRule("keyword only contains PIC", withLine(6, "XPIC2:/board.hex"), none,
                withLine(6, "PIC2:/board.hex"), none, "warning", 6, "only contains PIC");
        addRule("ESA line", base + "ESA_IO_APP:/io.bin\n", {{"io.bin", file("AVR")}}, base, none, "error", 7,
                "every ESA line fails");
        // The package as a whole.
        addRule("unused payload", base, {{"spare.bin", file("x")}}, base, none, "warning", 0,
                "spare.bin is not named");
        addRule("empty command list", "", none, base, none, "warning", 0, "command list is empty");
        addRule("non-ASCII bytes", withLine(2, "FILE:/etc/\xc3\xa4.conf"), {{"etc/\xc3\xa4.conf", file("x")}},
                base, none, "warning", 0, "not ASCII");
        addRule("no command list", "<none>", none, base, none, "error", 0,
                "no firmware_update/update_config");

        // Intel HEX: corrupt files are errors although the updater takes them as they are.
        const QByteArray hex = m_base.baseHex();
        QByteArray badSum = hex;
        badSum.replace(":0400000018EF00F005", ":0400000018EF00F006");
        addHexRule("bad checksum", badSum, hex, "error", "bad checksum 0x06");
        addHexRule("not a record", "12345\n" + hex, hex, "error", "does not begin with ':'");
        addHexRule("unknown record type", hexRecord(0, "\x01\x02", 6) + hex, hex, "error",
                   "unknown record type 0x06");
        addHexRule("start address record",
                   hexRecord(0x40, "\x01\x02") + hexRecord(0, QByteArray("\x00\x00\x01\x00", 4), 5) + hexEnd,
                   hexRecord(0x40, "\x01\x02") + hexEnd, "error", "record type 0x05");
        addHexRule("record after the end", hex + hexRecord(0x100, "\x01\x02"), hex, "error",
                   "after the end-of-file");
        addHexRule("no end record", hex.left(hex.lastIndexOf(":00000001FF")), hex, "error",
                   "no end-of-file record");
        addHexRule(
            "record over 100 bytes", srecCat({"-generate", "0", "0x100", "-constant", "0x12", "-obs=120"}),
            srecCat({"-generate", "0", "0x100", "-constant", "0x12", "-obs=32"}), "error", "at most 100");
        addHexRule("record touching 0xFFFE", srecCat({"-generate", "0xFFF0", "0x10000", "-constant", "0x55"}),
                   srecCat({"-generate", "0xFFE0", "0xFFFE", "-constant", "0x55"}), "error",
                   "touching 0xFFFE");
        addHexRule("beyond the flash", srecCat({"-generate", "0x10000", "0x10010", "-constant", "0x55"}), hex,
                   "warning", "no programmable memory");
        addHexRule("ID locations", srecCat({"-generate", "0x200000", "0x200008", "-constant", "0x55"}), hex,
                   "error", "ID locations");
        addHexRule("EEPROM data", srecCat({"-generate", "0xF00000", "0xF00010", "-constant", "0x55"}), hex,
                   "error", "EEPROM data");
        const QByteArray config = hexRecord(0, QByteArray("\x00\x30", 2), 4);
        addHexRule("CONFIG7H alone", config + hexRecord(0x0D, "\x40") + hexEnd,
                   config + hexRecord(0x0C, "\x0F\x40") + hexEnd, "error", "starting at 0x30000D");
        addHexRule("configuration bits that do not exist",
                   srecCat({"-generate", "0x300000", "0x300002", "-constant", "0xFF"}),
                   srecCat({"-generate", "0x300001", "0x300002", "-constant", "0x02"}), "warning",
                   "do not exist at 0x300000");
        addHexRule("address past 4 GiB",
                   hexRecord(0, "\xFF\xFF", 4) + hexRecord(0xFFFE, "\x01\x02\x03\x04") + hexEnd, hex,
                   "warning", "runs past 0xFFFFFFFF");
        addHexRule("byte programmed twice",
                   hexRecord(0x100, QByteArray("\x00\x00", 2)) + hexRecord(0x100, "\x01\x01") + hexEnd,
                   hexRecord(0x100, QByteArray("\x00\x00", 2)) + hexRecord(0x102, "\x01\x01") + hexEnd,
                   "error", "already programmed");
    }

    void rule()
    {
        QFETCH(QString, config);
        QFETCH(Files, files);
        QFETCH(QString, cleanConfig);
        QFETCH(Files, cleanFiles);
        QFETCH(QString, severity);
        QFETCH(int, line);
        QFETCH(QString, text);
        const QString name = QString(QTest::currentDataTag()).replace(' ', '-');
        const QString faulty =
            m_base.pack(m_base.variant(name, config, files), "FaultyM_firmware_update_" + name + ".tar.bz2");
        QVERIFY(!faulty.isEmpty());
        const Lint found = lint(faulty);
        QVERIFY2(found.has(severity, line, text), qPrintable(found.text));
        const bool errors = std::any_of(found.findings.begin(), found.findings.end(),
                                        [](const Finding& f) { return f.severity == "error"; });
        QCOMPARE(found.exitCode, errors ? 1 : 0);

        const QString clean = m_base.pack(m_base.variant(name + "-clean", cleanConfig, cleanFiles),
                                          "CleanM_firmware_update_" + name + ".tar.bz2");
        const Lint quiet = lint(clean);
        QVERIFY2(quiet.exitCode == 0 && quiet.findings.isEmpty(), qPrintable(quiet.text));
    }

    void commandListReadAsTheUpdaterReadsIt()
    {
        // Text mode drops the carriage return of DOS line ends; a final line feed gives no extra line.
        QString dos = baseConfig;
        dos.replace("\n", "\r\n");
        const Lint l = lint(m_base.variant("dos", dos, {}));
        QVERIFY2(l.exitCode == 0 && l.findings.isEmpty(), qPrintable(l.text));
    }

    void humanOutputIsOneLinePerFinding()
    {
        const QString folder = m_base.variant("human", withLine(1, "APP: /mainApp") + "ESA_M_EEP:/e.bin\n",
                                              {{"e.bin", file("e")}});
        const Run r = run(tool, {"lint", folder});
        QCOMPARE(r.exitCode, 1);
        const QStringList lines = r.out.trimmed().split('\n');
        QVERIFY2(lines.size() == 3, qPrintable(r.out));
        QVERIFY2(lines[0].startsWith(folder + ":1: error: [APP: /mainApp] the argument holds a blank"),
                 qPrintable(r.out));
        QVERIFY2(lines[1].startsWith(folder + ":7: error: [ESA_M_EEP:/e.bin] every ESA line fails"),
                 qPrintable(r.out));
        QCOMPARE(lines[2], folder + ": 2 errors, 0 warnings in 7 commands");
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
        QFile image(folder + "/uImage");
        QVERIFY(image.open(QIODevice::ReadOnly));
        QCOMPARE(kernel.value("payload").toObject().value("sha256").toString(),
                 QString(QCryptographicHash::hash(image.readAll(), QCryptographicHash::Sha256).toHex()));
        QCOMPARE(commands[1].toObject().value("runs").toArray(),
                 (QJsonArray{"mount / -o remount,rw", "cp /tmp/firmware_update/mainApp /home/mainApp"}));
        const QJsonObject pic = commands[6].toObject().value("pic").toObject();
        QCOMPARE(pic.value("programmed").toArray().first().toString(), QString("0x0000-0x0003"));
        QVERIFY(pic.value("config").toArray().contains(QJsonValue("0x300001 CONFIG1H = 0x02")));
        QVERIFY(pic.value("config").toArray().contains(QJsonValue("0x30000D CONFIG7H = 0x40")));
    }

    void buildKeepsModesAndTheTopFolder()
    {
        const QString target = m_base.pack(m_base.base, "ModesM_firmware_update_1.tar.bz2");
        QVERIFY(!target.isEmpty());
        const Run listing = run("tar", {"-tvjf", target});
        QCOMPARE(listing.exitCode, 0);
        for (const QString& line : listing.out.split('\n', Qt::SkipEmptyParts))
            QVERIFY2(line.split(' ', Qt::SkipEmptyParts).last().startsWith("firmware_update"),
                     qPrintable(line));
        QVERIFY2(listing.out.contains(QRegularExpression("-rwxr-xr-x .* firmware_update/post.sh\n")),
                 qPrintable(listing.out));
        QVERIFY2(listing.out.contains(QRegularExpression("-rw-r--r-- .* firmware_update/uImage\n")),
                 qPrintable(listing.out));
    }

    void buildRefuses_data()
    {
        QTest::addColumn<QString>("config");
        QTest::addColumn<Files>("files");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QStringList>("extra");
        QTest::addColumn<QString>("message");
        QTest::newRow("a name the updater would not find")
            << baseConfig << Files{} << "firmware_update.tar.bz2" << QStringList{} << "would not find";
        QTest::newRow("lint errors") << baseConfig + "ESA_M_APP:/m.bin\n"
                                     << Files{{"m.bin", file("m")}} << "LintM_firmware_update_1.tar.bz2"
                                     << QStringList{} << "lint found errors";
        QTest::newRow("a link out of the folder")
            << baseConfig << Files{} << "LinkM_firmware_update_1.tar.bz2"
            << QStringList{"ln", "-s", "../../../etc/passwd", "passwd"} << "points out of";
    }

    void buildRefuses()
    {
        QFETCH(QString, config);
        QFETCH(Files, files);
        QFETCH(QString, name);
        QFETCH(QStringList, extra);
        QFETCH(QString, message);
        const QString folder = m_base.variant("refuse", config, files);
        if (!extra.isEmpty())
            QCOMPARE(run(extra.first(), extra.mid(1), folder).exitCode, 0);
        const QString out = m_base.dir.path() + "/refused";
        QDir(out).removeRecursively();
        QDir().mkpath(out);
        const Run r = run(tool, {"build", folder, "-o", out + '/' + name});
        QCOMPARE(r.exitCode, 1);
        QVERIFY2(r.err.contains(message), qPrintable(r.err));
        QCOMPARE(folderListing(out), QStringList{}); // no package, no temporary file
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
            << tree + "head -c 4000 /dev/urandom > firmware_update/a; tar -cf full "
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
        const QStringList before = folderListing(work.path());
        const Run r = run(tool, {"lint", work.path() + '/' + input});
        QVERIFY2(r.exitCode == exitCode,
                 qPrintable(QString("exit %1: %2%3").arg(r.exitCode).arg(r.out, r.err)));
        QVERIFY2((r.out + r.err).contains(message), qPrintable(r.out + r.err));
        QCOMPARE(folderListing(work.path()), before); // lint writes nothing
    }
};

QTEST_GUILESS_MAIN(PackageToolTest)
#include "tst_packagetool.moc"
