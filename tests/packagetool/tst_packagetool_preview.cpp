// The main test of update-package: for each package, the real updater on the virtual instrument (run by
// `update-package preview`) does what the tool predicted, line by line, and the prediction names the
// rules the row is about. Slow: every row runs a whole update in the sandbox.
#include "PackageFixture.h"
#include "Prediction.h"
#include "Preview.h"

using namespace fixture;

class PackagePreviewTest : public QObject
{
    Q_OBJECT

    BasePackage m_base;

private slots:
    void initTestCase()
    {
        const Run sandbox = run(repo + "/sim/sandbox", {"--", "true"});
        if (sandbox.exitCode == 77)
            QSKIP(qPrintable("the sandbox is not available on this machine, previews cannot run: " +
                             sandbox.err));
        QVERIFY2(sandbox.exitCode == 0, qPrintable(sandbox.err));
        QVERIFY2(m_base.make(),
                 "the base package could not be made (gpasm, the cross compiler, mkimage, tar)");
    }

    void previewAgreesWithLint_data()
    {
        QTest::addColumn<QString>("package");
        QTest::addColumn<QString>("expectedEnd");
        QTest::addColumn<QStringList>("rules"); // rule ids the prediction must name

        // The arguments and instrument paths of the examples: used as written, never tidied.
        const QString examples = "APP:/mainApp\nAPP:/mainApp/\nFILE:/etc/x.conf/\nAPP:/nosuchdir/../mainApp\n"
                                 "FILE:/opt/instrument/x\nUPDATER:/usr/bin/nosuch\nPIC01:/long.hex\n";
        QTest::newRow("examples")
            << m_base.pack(m_base.variant("examples", examples,
                                          {{"opt/instrument/x", {"x"}},
                                           {"usr/bin/nosuch", {m_base.payload("mainApp"), 0755}},
                                           {"long.hex", {filled("0", "0x100", "0x12", "-obs=120")}}}),
                           "ExamplesM_firmware_update_1.tar.bz2")
            << "Some of the updates failed"
            << QStringList{"arg-trailing-slash", "arg-dotdot",     "cp-target-missing",
                           "rm-target-missing",  "pic-index-text", "hex-record-too-long"};
        QTest::newRow("blank in the archive's name")
            << m_base.pack(m_base.base, "Orsina M_firmware_update 5.3.tar.bz2")
            << "Failed to extract update files" << QStringList{"package-name-blank"};

        QTest::newRow("clean") << m_base.pack(m_base.base, "CleanM_firmware_update_1.tar.bz2")
                               << "Update complete" << QStringList();

        // Every kind of failing line, the system type's effect on later lines, and a HEX record the
        // programmer refuses; one PIC run.
        const QString lines =
            "MODULES:/modules.tar\nAPP:/mainApp\n\napp:/mainApp\nAPP: /mainApp\n"
            "FILE:/etc/missing.conf\nSCRIPT:/noexec.sh\nSCRIPT:/noshebang.sh\n"
            "IMAGE:/img/rootfs.ubifs\nESA_M_EEP:/e.bin\nSYSTEM:SDCARD\nIMAGE:/rootfs.ubifs\n"
            "KERNEL:/uImage\nSYSTEM:NAND\nKERNEL:/uImage\nFILE:/etc/x.conf\nAPP:/mainApp\n"
            "SCRIPT:/post.sh\nPIC:/long.hex\n";
        const Files files{{"noexec.sh", {"#!/bin/sh\nexit 0\n", 0644}},
                          {"noshebang.sh", {"exit 0\n", 0755}},
                          {"img/rootfs.ubifs", {m_base.payload("rootfs.ubi")}},
                          {"rootfs.ubifs", {m_base.payload("rootfs.ubi")}},
                          {"e.bin", {"EEPROM"}},
                          {"long.hex", {filled("0", "0x100", "0x12", "-obs=120")}}};
        QTest::newRow("failing lines")
            << m_base.pack(m_base.variant("lines", lines, files), "LinesM_firmware_update_1.tar.bz2")
            << "Some of the updates failed"
            << QStringList{"root-read-only",  "line-empty",           "keyword-unknown",
                           "arg-blank",       "exec-not-executable",  "script-no-interpreter",
                           "image-subfolder", "esa-disabled",         "image-wrong-type",
                           "kernel-skipped",  "remount-unknown-type", "hex-record-too-long"};

        // Records the programmer passes over without a word, and a wrong checksum it takes as it is.
        QByteArray skips =
            srecCat({m_base.base + "/board.hex", "-Intel", "-generate", "0xFFF0", "0x10000", "-constant",
                     "0x55", "-generate", "0xF00000", "0xF00010", "-constant", "0x11"});
        const int line = skips.indexOf(":040008001FEF00F0F6");
        QVERIFY(line >= 0);
        skips.replace(line, 19, ":040008001FEF00F0F7");
        QTest::newRow("silent skips")
            << m_base.pack(m_base.variant("skips", "PIC:/skips.hex\n", {{"skips.hex", {skips}}}),
                           "SkipsM_firmware_update_1.tar.bz2")
            << "Update complete" << QStringList{"hex-flash-end", "hex-eeprom", "hex-checksum"};

        // The package as a whole: the updater stops before the command list.
        const QString misnamed = m_base.dir.path() + "/p/firmware_update.tar.bz2"; // build refuses the name
        const QString renamed = m_base.pack(m_base.base, "RenamedM_firmware_update_1.tar.bz2");
        QVERIFY2(QFile::rename(renamed, misnamed), qPrintable(renamed + " -> " + misnamed));
        QTest::newRow("misnamed") << misnamed << "Could not find update file" << QStringList{"package-name"};
        const QString climbing = m_base.dir.path() + "/p/ClimbM_firmware_update_1.tar.bz2";
        QCOMPARE(run("tar",
                     {"-cjf", climbing, "--transform", "s,^base/update_config$,firmware_update/../../x,",
                      "--transform", "s,^base,firmware_update,", "base"},
                     m_base.dir.path())
                     .exitCode,
                 0);
        QTest::newRow("climbs out") << climbing << "Failed to extract update files"
                                    << QStringList{"tar-member-dotdot"};
    }

    void previewAgreesWithLint()
    {
        QFETCH(QString, package);
        QFETCH(QString, expectedEnd);
        QFETCH(QStringList, rules);
        QVERIFY(QFileInfo::exists(package));
        QString error;
        const auto pkg = package::read(package, error);
        QVERIFY2(pkg, qPrintable(error));
        const auto instrument = profile::read(profile::defaultPath(), error);
        QVERIFY2(instrument, qPrintable(error));
        const predict::Prediction prediction = predict::predict(*pkg, *instrument);
        QCOMPARE(prediction.endText(), expectedEnd);
        for (const QString& rule : rules)
            QVERIFY2(std::any_of(prediction.findings.begin(), prediction.findings.end(),
                                 [&](const predict::Finding& f) { return f.rule == rule; }),
                     qPrintable(rule));

        const QString out = m_base.dir.path() + "/preview-" + QTest::currentDataTag();
        const Run preview =
            run("setsid", {tool, "preview", package, "--out-dir", out}, QString(), 25 * 60 * 1000);
        const QString view = QString::fromUtf8(readAll(out + "/view.txt"));
        const QString report = preview.out + preview.err;
        QVERIFY2(!view.isEmpty(), qPrintable(report));
        QVERIFY2(preview.exitCode == 0, qPrintable(report.right(4000)));

        // The red lines of the whole view, in order, are exactly the predicted ones (the view collapses
        // a paragraph's blanks and line breaks).
        QStringList predicted, seen;
        for (const predict::Event& e : prediction.events)
            if (e.type == predict::Event::Type::View && e.colour == predict::Colour::Red && e.line != 0)
                predicted << e.text.simplified();
        const QRegularExpression red(
            "^(Failed - |Bad command format\\.|Unknown command: |PIC Erase Error|Some of)");
        for (const QString& line :
             view.split('\n').mid(view.split('\n').indexOf("Command list: ") + 1 + prediction.lines.size()))
            if (red.match(line.simplified()).hasMatch())
                seen << line.simplified();
        QCOMPARE(seen, predicted);
    }

    // Damage the tool predicts is still damage: preview names each change of the root no line asks for
    // and exits 1, though the instrument did what was predicted.
    void previewReportsDamage_data()
    {
        QTest::addColumn<QString>("config");
        QTest::addColumn<QString>("modules"); // shell commands in an empty folder making modules.tar in $1
        QTest::addColumn<QString>("damage");  // the report's line
        const QString module = "mkdir -p t/usr/lib/modules/4.19.0-instrument/extra && echo m > "
                               "t/usr/lib/modules/4.19.0-instrument/extra/k.ko && ";
        QTest::newRow("the mode of the root folder")
            << "FILE:/etc/x.conf\nMODULES:/modules.tar\n"
            << module + "chmod 700 t && tar -cf \"$1\" -C t ."
            << "line 2: /: the folder's mode and owner changed from 0755 0:0 to 0700 0:0";
        QTest::newRow("a link of the root replaced")
            << "FILE:/etc/x.conf\nMODULES:/modules.tar\n"
            << "mkdir -p t/lib/modules/4.19.0-instrument/extra && echo m > "
               "t/lib/modules/4.19.0-instrument/extra/k.ko && tar -cf \"$1\" -C t lib"
            << "line 2: /lib: the link to usr/lib was replaced by a folder";
        QTest::newRow("a file written through a link")
            << "FILE:/etc/os-release\n"
            << QString()
            << "line 1: /usr/lib/os-release: written, though no line names it (a write through a link?)";
    }

    void previewReportsDamage()
    {
        QFETCH(QString, config);
        QFETCH(QString, modules);
        QFETCH(QString, damage);
        const QString name = QString(QTest::currentDataTag()).replace(' ', '-');
        const QString folder = m_base.variant(name, config, {{"etc/os-release", {"ID=instrument\n"}}});
        if (!modules.isEmpty()) {
            const QString scratch = m_base.dir.path() + "/modules-" + name;
            QVERIFY(QDir().mkpath(scratch));
            const Run made = run("sh", {"-ec", modules, "sh", folder + "/modules.tar"}, scratch);
            QVERIFY2(made.exitCode == 0, qPrintable(made.err));
        }
        const QString package = m_base.pack(folder, name + "M_firmware_update_1.tar.bz2");
        QVERIFY(!package.isEmpty());
        const Run preview =
            run("setsid", {tool, "preview", package, "--out-dir", m_base.dir.path() + "/d-" + name},
                QString(), 10 * 60 * 1000);
        const QString report = preview.out + preview.err;
        QVERIFY2(report.contains("\n0 differences,"), qPrintable(report));
        QVERIFY2(report.contains("== changes of the instrument's root that no line asks for\n"),
                 qPrintable(report));
        QVERIFY2(report.contains('\n' + damage + '\n'), qPrintable(report));
        QCOMPARE(preview.exitCode, 1);
    }
};

QTEST_GUILESS_MAIN(PackagePreviewTest)
#include "tst_packagetool_preview.moc"
