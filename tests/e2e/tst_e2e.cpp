// End to end: the unmodified updater binary in the sandbox with every simulated device, driven by
// scripts/technician.sh through real X key events; packages built from sample/ by the real tools.
#include "../support/TestFiles.h"

#include <QtTest> // with all of QtCore

using namespace testfiles;

namespace {

const QString repo = PROJECT_SOURCE_DIR;
const QString build = PROJECT_BINARY_DIR;

struct Job
{
    int exitCode = -1;
    QString output;   // what the sandbox, the technician script and the verifier printed
    QStringList view; // the message view at the end of the job, line by line
    QString verify;   // the verifier's report
};

} // namespace

// sim/sandbox exits with 77 when the machine lacks namespaces or FUSE; under CI=true it fails instead.
#define RUN_JOB(run, job, packageFile)                                                                       \
    const Job run = runJob(job, packageFile);                                                                \
    if (run.exitCode == 77 && qEnvironmentVariable("CI") != "true")                                          \
    QSKIP(qPrintable("the sandbox is unavailable on this machine:\n" + run.output))

class EndToEndTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_work;

    QString package(const QString& variant)
    {
        const QStringList found = QDir(m_work.path() + "/packages/" + variant).entryList({"*.tar.bz2"});
        return found.size() == 1 ? m_work.path() + "/packages/" + variant + "/" + found.first() : QString();
    }

    Job runJob(const QString& job, const QString& packageFile)
    {
        const QString out = m_work.path() + "/" + job + "-" + QFileInfo(packageFile).baseName();
        QDir().mkpath(out);
        const QString inside = "scripts/technician.sh \"$1\" \"$2\" \"$3\" && "
                               "{ [ \"$2\" = none ] || sim/tools/verify-update > \"$3/verify.txt\"; }";
        const Run sandbox =
            run(repo + "/sim/sandbox",
                QStringList{"--build", build, "--instrument", "--instrument-arg", "--pic", "--instrument-arg",
                            "--serial", "--instrument-arg", "esa", "--cpu", "0", "--bind", m_work.path(),
                            m_work.path(), "--env", "UPDATER_BUILD_DIR=" + build} +
                    QStringList{"--", "bash", "-c", inside, "e2e", job,
                                packageFile.isEmpty() ? "none" : packageFile, out},
                repo, 15 * 60 * 1000);
        return {sandbox.exitCode, sandbox.out + sandbox.err,
                QString::fromUtf8(readAll(out + "/view.txt")).split('\n'),
                QString::fromUtf8(readAll(out + "/verify.txt"))};
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_work.isValid());
        const Run make = run("bash", {repo + "/scripts/make-packages.sh", m_work.path() + "/packages"});
        QVERIFY2(make.exitCode == 0, qPrintable(make.out + make.err));
        // A 4-byte record at 0xFFFFFFFE: its end wraps to 2, which must not make it a flash record.
        const QString wrap = m_work.path() + "/wrap/firmware_update";
        writeFile(wrap + "/update_config", "PIC:/wrap.hex\n");
        writeFile(wrap + "/wrap.hex", ":02000004FFFFFC\n:04FFFE00DEADBEEFC7\n:00000001FF\n");
        QVERIFY(QDir().mkpath(m_work.path() + "/packages/wrap"));
        QCOMPARE(run("tar", {"-cjf", m_work.path() + "/packages/wrap/WrapM_firmware_update_1.tar.bz2", "-C",
                             m_work.path() + "/wrap", "firmware_update"})
                     .exitCode,
                 0);
        QVERIFY(!package("good").isEmpty() && !package("failing").isEmpty() && !package("nand").isEmpty() &&
                !package("wrap").isEmpty());
    }

    void stickUpdateSucceedsAndEveryModelAgrees()
    {
        RUN_JOB(run, "stick", package("good"));
        QVERIFY2(run.exitCode == 0, qPrintable(run.output));
        // The technician's view, in order, with the percentages kept in place under their headings.
        const QStringList expected =
            QString("Processing update\nExtracting update, please do not interrupt...\nReading update file\n"
                    "Command list: \nAPP:/mainApp\nFILE:/etc/instrument.conf\nKERNEL:/uImage\n"
                    "MODULES:/modules.tar\nSCRIPT:/post-update.sh\nPIC:/board.hex\n"
                    "Updating Application with file: /mainApp\n"
                    "Updating root files with folder: /etc/instrument.conf\n"
                    "Updating kernel with file: /uImage\nUpdating Linux modules with: /modules.tar\n"
                    "Running script file: /post-update.sh\nUpdating PIC  with file: /board.hex\n"
                    "Erasing PIC: \n99%\nPIC Erase Complete\nProgramming PIC: ")
                .split('\n');
        QStringList seen = run.view;
        seen.removeAll(QString());
        QVERIFY2(seen.mid(1, expected.size()) == expected, qPrintable(run.view.join('\n')));
        QVERIFY2(seen.last().startsWith("Update complete, restart the system or press F1"),
                 qPrintable(run.view.join('\n')));
        for (const char* agreed :
             {"ok      APP:/mainApp", "ok      FILE:/etc/instrument.conf", "ok      KERNEL:/uImage",
              "ok      MODULES:/modules.tar", "ok      PIC:/board.hex: PIC flash equals the HEX"})
            QVERIFY2(run.verify.contains(agreed), qPrintable(run.verify));
        QVERIFY2(run.verify.contains("  flash_eraseall /dev/mtd0\n  nandwrite /dev/mtd0 "
                                     "/tmp/firmware_update/uImage -p\n  sync\n  umount /mnt/update\n"),
                 qPrintable(run.verify));
    }

    // Other jobs: lines the view must show (one starting with "!" must not), lines of the verifier's report.
    void job_data()
    {
        QTest::addColumn<QString>("job");
        QTest::addColumn<QString>("variant"); // of the sample packages; empty: no package on the stick
        QTest::addColumn<QStringList>("shown");
        QTest::addColumn<QStringList>("verified");
        // What did not fail still happened; the closed ESA gate sent nothing to the boards.
        QTest::newRow("failing package ends red")
            << "stick"
            << "failing"
            << QStringList{"Failed - Updating root files with folder: /etc/calibration.conf",
                           "Bad command format.",
                           "Failed - AVR updates not enabled",
                           "Failed - Updating ESA IO Board Application with file: /io_board.bin",
                           "PIC Erase Complete",
                           "Some of the updates failed, press F1 to return to the main screen",
                           "!Update complete"}
            << QStringList{"ok      APP:/mainApp", "ok      PIC:/board.hex",
                           "ESA boards untouched (boot requests: 0)"};
        QTest::newRow("no package on the stick")
            << "stick"
            << "" << QStringList{"Could not find update file, press F1 to return to the main screen"}
            << QStringList{};
        QTest::newRow("PC update through the transfer partition")
            << "pc"
            << "good" << QStringList{"Initialising PC connection", "Update complete, restart the system"}
            << QStringList{"  modprobe g_mass_storage file=/dev/mmcblk0p6 removable=1\n",
                           "  modprobe -r g_mass_storage\n", "ok      PIC:/board.hex"};
        // The root partition is erased, then written by the copy of ubiformat in /tmp.
        QTest::newRow("NAND kernel and root image")
            << "stick"
            << "nand"
            << QStringList{"Updating root image with file: /rootfs.ubi",
                           "Update complete, restart the system"}
            << QStringList{"ok      KERNEL:/uImage", "ok      IMAGE:/rootfs.ubi: UBI image written to mtd1",
                           "  flash_eraseall /dev/mtd1\n  ubiformat /dev/mtd1 -f /tmp/rootfs.ubi\n"};
        // Flash as erased, the reset vector included: the wrapping record was skipped, not written at 0.
        QTest::newRow("HEX record wrapping past 32 bits")
            << "stick"
            << "wrap" << QStringList{"Programming PIC: ", "Update complete, restart the system"}
            << QStringList{"ok      PIC:/wrap.hex: PIC flash equals the HEX (0 code bytes, rest erased)"};
    }

    void job()
    {
        QFETCH(QString, job);
        QFETCH(QString, variant);
        QFETCH(QStringList, shown);
        QFETCH(QStringList, verified);
        RUN_JOB(run, job, variant.isEmpty() ? QString() : package(variant));
        QVERIFY2(run.exitCode == 0, qPrintable(run.output));
        const QString view = run.view.join('\n');
        for (const QString& line : shown)
            QVERIFY2(view.contains(line.mid(line.startsWith('!') ? 1 : 0)) != line.startsWith('!'),
                     qPrintable(line + " wrong in:\n" + view));
        for (const QString& line : verified)
            QVERIFY2(run.verify.contains(line), qPrintable(line + " missing from:\n" + run.verify));
    }
};

QTEST_GUILESS_MAIN(EndToEndTest)
#include "tst_e2e.moc"
