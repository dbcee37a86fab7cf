// Power cuts in the lines the sample package has not: IMAGE, UPDATER and the SD card's KERNEL, in small
// packages made by the real tools (tests/packagetool/make-base-payloads.sh) and run by the real updater on
// the virtual instrument. A cut before, during and after each of their writing commands leaves the class
// the power-on check gives, as cut and with the write-back, and the model lint and preview read
// (Exposure.h) gives each line the worst class its cuts measured. No PIC step: quick.
#include "CutRuns.h"
#include "Exposure.h"
#include "Package.h"
#include "Prediction.h"

#include <QTemporaryDir>
#include <QtTest>

using namespace testfiles;
using poweron::Class;

namespace {

struct Cut
{
    const char* name;
    const char* package; // "nand" or "sd"
    const char* rule;    // "before", "after", "during N/D"
    const char* command; // the command the cut comes at, as the trace names it (its first occurrence)
    QVector<int> lines;  // the command-list lines whose points this cut is
    Class asCut;
    const char* why; // a piece of the reason as cut
    Class worst;
    const char* writeBack; // a piece of the reason with the write-back
};

// nand: IMAGE:/rootfs.ubi, APP:/mainApp, UPDATER:/usr/bin/updater (APP remounts the root for UPDATER).
// sd: SYSTEM:SDCARD, KERNEL:/uImage, SCRIPT:/sync.sh (a script that ends in sync).
const char* const image = "ubiformat /dev/mtd1 -f /tmp/rootfs.ubi";
const char* const app = "cp /tmp/firmware_update/mainApp /home/mainApp";
const char* const updater = "cp /tmp/firmware_update/usr/bin/updater /usr/bin/updater";
const char* const sdimage = "sdimage -f /tmp/firmware_update/uImage -d /dev/mmcblk0";
const char* const nothingYet = "nothing changed yet";
const Cut cuts[] = {
    {"IMAGE: before the erase",
     "nand",
     "before",
     "flash_eraseall /dev/mtd1",
     {1},
     Class::Unchanged,
     nothingYet,
     Class::Unchanged,
     nothingYet},
    {"IMAGE: half of the erase",
     "nand",
     "during 1/2",
     "flash_eraseall /dev/mtd1",
     {1},
     Class::Unbootable,
     "root volume /dev/mtd1: erased, no root file system",
     Class::Unbootable,
     "root volume /dev/mtd1: erased"},
    // The 2 MiB image is 16 of the partition's 64 erase blocks: an eighth of them is half of the image.
    {"IMAGE: half of ubiformat",
     "nand",
     "during 1/8",
     image,
     {1},
     Class::Unbootable,
     "root volume /dev/mtd1: UBI image incomplete: 8 of 64 erase blocks written",
     Class::Unbootable,
     "UBI image incomplete"},
    {"IMAGE: after ubiformat",
     "nand",
     "after",
     image,
     {1, 2},
     Class::Unchanged,
     "partly updated, nothing lost (new: root volume /dev/mtd1;",
     Class::Unchanged,
     "partly updated"},
    {"APP: half of the copy",
     "nand",
     "during 1/2",
     app,
     {2},
     Class::Repairable,
     "/home/mainApp: truncated: 7168 of 14804 bytes",
     Class::Repairable,
     "/home/mainApp: written since the last sync"},
    {"UPDATER: before its rm",
     "nand",
     "before",
     "rm /usr/bin/updater",
     {2, 3},
     Class::Unchanged,
     "partly updated, nothing lost",
     Class::Repairable,
     "/home/mainApp: written since the last sync"},
    {"UPDATER: after its rm",
     "nand",
     "after",
     "rm /usr/bin/updater",
     {3},
     Class::Unrepairable,
     "/usr/bin/updater: removed (the updater does not start)",
     Class::Unrepairable,
     "/usr/bin/updater: removed (the updater does not start)"},
    {"UPDATER: half of the copy",
     "nand",
     "during 1/2",
     updater,
     {3},
     Class::Unrepairable,
     "/usr/bin/updater: truncated",
     Class::Unrepairable,
     "/usr/bin/updater: written since the last sync"},
    {"UPDATER: after the copy",
     "nand",
     "after",
     updater,
     {3},
     Class::Updated,
     "everything as the whole update leaves it",
     Class::Unrepairable,
     "/usr/bin/updater: written since the last sync"},
    {"SD KERNEL: before sdimage",
     "sd",
     "before",
     sdimage,
     {2},
     Class::Unchanged,
     nothingYet,
     Class::Unchanged,
     nothingYet},
    {"SD KERNEL: half of sdimage",
     "sd",
     "during 1/2",
     sdimage,
     {2},
     Class::Unbootable,
     "kernel partition /dev/mmcblk0: the image is incomplete",
     Class::Unbootable,
     "kernel partition /dev/mmcblk0: written since the last sync"},
    // The card is written through the kernel's cache: until a sync it may hold old and new sectors.
    {"SD KERNEL: after sdimage",
     "sd",
     "after",
     sdimage,
     {2, 3},
     Class::Updated,
     "everything as the whole update leaves it",
     Class::Unbootable,
     "kernel partition /dev/mmcblk0: written since the last sync"},
    // The script's sync ends that: before the list's own sync nothing is at risk any more.
    {"SD KERNEL: after the script's sync",
     "sd",
     "before",
     "sync",
     {3},
     Class::Updated,
     "everything as the whole update leaves it",
     Class::Updated,
     "everything as the whole update leaves it"},
};

} // namespace

class CutKindsTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_work;
    QMap<QString, QString> m_packages;              // "nand", "sd" -> the archive
    QMap<QString, poweron::Reference> m_references; // by package
    QMap<QString, state::Snapshot> m_cut;           // by row name

    QString pack(const QString& name, const QString& config,
                 const QMap<QString, QPair<QByteArray, int>>& files)
    {
        const QString top = m_work.path() + "/made/" + name;
        writeFile(top + "/firmware_update/update_config", config.toUtf8());
        for (auto it = files.begin(); it != files.end(); ++it)
            writeFile(top + "/firmware_update/" + it.key(), it->first, mode_t(it->second));
        const QString archive = m_work.path() + "/" + name + "M_firmware_update_1.tar.bz2";
        const Run tar = run("tar", {"-cjf", archive, "-C", top, "firmware_update"});
        return tar.exitCode == 0 ? archive : QString();
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_work.isValid());
        const QString payloads = m_work.path() + "/payloads";
        const Run made =
            run("bash", {PROJECT_SOURCE_DIR "/tests/packagetool/make-base-payloads.sh", payloads});
        QVERIFY2(made.exitCode == 0, qPrintable(made.err));
        const QByteArray program = readAll(payloads + "/mainApp");
        m_packages["nand"] = pack("nand", "IMAGE:/rootfs.ubi\nAPP:/mainApp\nUPDATER:/usr/bin/updater\n",
                                  {{"rootfs.ubi", {readAll(payloads + "/rootfs.ubi"), 0644}},
                                   {"mainApp", {program, 0755}},
                                   {"usr/bin/updater", {program, 0755}}});
        m_packages["sd"] = pack(
            "sd", "SYSTEM:SDCARD\nKERNEL:/uImage\nSCRIPT:/sync.sh\n",
            {{"uImage", {readAll(payloads + "/uImage"), 0644}}, {"sync.sh", {"#!/bin/sh\nsync\n", 0755}}});
        QVERIFY(!m_packages["nand"].isEmpty() && !m_packages["sd"].isEmpty());

        // The whole run and the instrument before it, for each package.
        QVector<instrument::Job> first;
        for (const QString& name : m_packages.keys())
            first << cutruns::job(m_packages[name], m_work.path() + "/runs/" + name + "-whole", {})
                  << cutruns::job(m_packages[name], m_work.path() + "/runs/" + name + "-before", "before 1");
        const QStringList names = m_packages.keys();
        if (!cutruns::runJobs(first, [&](int i, const state::Snapshot& s) {
                poweron::Reference& r = m_references[names[i / 2]];
                (i % 2 == 0 ? r.after : r.before) = s;
            }))
            return;

        // Each cut by the number of its command in the whole run.
        QVector<instrument::Job> jobs;
        for (const Cut& cut : cuts) {
            const poweron::Reference& reference = m_references[cut.package];
            QVERIFY2(reference.after.ended, qPrintable(reference.after.outcome));
            const int k = cutruns::commandsOf(reference.after).indexOf(cut.command) + 1;
            QVERIFY2(k > 0, qPrintable(QStringLiteral("the whole run has no '%1'").arg(cut.command)));
            const QString share = QString(cut.rule).section(' ', 1); // "N/D" of a cut during a command
            const QString rule = QString(cut.rule).section(' ', 0, 0) + ' ' + QString::number(k) +
                                 (share.isEmpty() ? QString() : ' ' + share);
            jobs << cutruns::job(m_packages[cut.package],
                                 m_work.path() + "/runs/" + QString(cut.name).replace(' ', '-').remove(':'),
                                 rule);
        }
        cutruns::runJobs(jobs, [&](int i, const state::Snapshot& s) { m_cut[cuts[i].name] = s; });
    }

    void classAtEachCut_data()
    {
        QTest::addColumn<int>("row");
        for (int i = 0; i < int(std::size(cuts)); ++i)
            QTest::newRow(cuts[i].name) << i;
    }

    void classAtEachCut()
    {
        QFETCH(int, row);
        const Cut& cut = cuts[row];
        QVERIFY2(m_cut.contains(cut.name), "the cut run left no state");
        const state::Snapshot& s = m_cut[cut.name];
        QVERIFY2(!s.ended && s.trace.last().startsWith("cut "), qPrintable(s.outcome));
        const poweron::Reference& reference = m_references[cut.package];
        const poweron::Verdict asCut = poweron::check(s, reference);
        QVERIFY2(asCut.cls == cut.asCut && asCut.why.contains(cut.why),
                 qPrintable(poweron::name(asCut.cls) + ": " + asCut.why));
        const poweron::Verdict worst = poweron::worstWithWriteBack(s, reference);
        QVERIFY2(worst.cls == cut.worst && worst.why.contains(cut.writeBack),
                 qPrintable(poweron::name(worst.cls) + ": " + worst.why));
    }

    // What preview shows beside each line and lint's order warnings read: the worst its cuts measured.
    void modelGivesTheWorstOfEachLine_data()
    {
        QTest::addColumn<QString>("package");
        QTest::addColumn<int>("line");
        QTest::newRow("IMAGE") << "nand" << 1;
        QTest::newRow("APP after IMAGE") << "nand" << 2;
        QTest::newRow("UPDATER") << "nand" << 3;
        QTest::newRow("SD KERNEL") << "sd" << 2;
        QTest::newRow("SCRIPT ending in sync") << "sd" << 3;
    }

    void modelGivesTheWorstOfEachLine()
    {
        QFETCH(QString, package);
        QFETCH(int, line);
        Class measured = Class::Updated;
        for (const Cut& cut : cuts)
            if (package == cut.package && cut.lines.contains(line)) {
                QVERIFY2(m_cut.contains(cut.name), "the cut runs did not all end");
                measured = std::max(measured,
                                    poweron::worstWithWriteBack(m_cut[cut.name], m_references[package]).cls);
            }
        QString error;
        const auto pkg = package::read(m_packages[package], error);
        const auto instrument = profile::read(profile::defaultPath(), error);
        QVERIFY2(pkg && instrument, qPrintable(error));
        const predict::Prediction prediction = predict::predict(*pkg, *instrument);
        const exposure::LineClass model = exposure::classes(prediction).value(line - 1);
        QVERIFY2(model.worst == measured,
                 qPrintable(QStringLiteral("model %1 (%2), cuts %3")
                                .arg(poweron::name(model.worst), model.why, poweron::name(measured))));
    }
};

QTEST_GUILESS_MAIN(CutKindsTest)
#include "tst_cutkinds.moc"
