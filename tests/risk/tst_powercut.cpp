// Power cuts in the simulator, on the sample package run by the real updater on the virtual instrument:
// a cut before, during and after each kind of command and inside the PIC step leaves the partial state a
// real cut leaves, and the power-on check gives it its class, as cut and with the write-back. The cut
// points are counted in commands and line changes, never in time, so the result does not depend on the
// machine's speed. Slow: the whole run (the reference) programs the PIC.
#include "CutRuns.h"
#include "Package.h"
#include "PowerOn.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

using namespace testfiles;
using poweron::Class;

namespace {

struct Cut
{
    const char* name;
    const char* rule;    // "before", "after", "during 1/2", "line-change 1/4"
    const char* command; // the command the cut comes at, as the trace names it (its first occurrence)
    Class asCut, worst;
    const char* why; // a piece of the as-cut reason
};

// The sample package: APP, FILE, KERNEL, MODULES, SCRIPT, PIC (scripts/make-packages.sh).
const Cut cuts[] = {
    {"before everything", "before", "umount /mnt/update", Class::Unchanged, Class::Unchanged,
     "nothing changed yet"},
    {"APP: before its remount", "before", "mount ubi0:rootfs -o remount,rw", Class::Unchanged,
     Class::Unchanged, "nothing changed yet"},
    {"APP: half of the copy", "during 1/2", "cp /tmp/firmware_update/mainApp /home/mainApp",
     Class::Repairable, Class::Repairable,
     "/home/mainApp: truncated: 7168 of 14804 bytes (the application does not start)"},
    {"APP: after the copy", "after", "cp /tmp/firmware_update/mainApp /home/mainApp", Class::Unchanged,
     Class::Repairable, "partly updated, nothing lost (new: /home/mainApp; "},
    {"FILE: half of the copy", "during 1/2",
     "cp /tmp/firmware_update/etc/instrument.conf /etc/instrument.conf", Class::Repairable, Class::Repairable,
     "/etc/instrument.conf: empty (a root file)"},
    {"KERNEL: before the erase", "before", "flash_eraseall /dev/mtd0", Class::Unchanged, Class::Repairable,
     "partly updated"},
    {"KERNEL: half of the erase", "during 1/2", "flash_eraseall /dev/mtd0", Class::Unbootable,
     Class::Unbootable, "kernel partition /dev/mtd0: erased, no kernel"},
    {"KERNEL: after the erase", "after", "flash_eraseall /dev/mtd0", Class::Unbootable, Class::Unbootable,
     "kernel partition /dev/mtd0: erased, no kernel"},
    {"KERNEL: half of the write", "during 1/2", "nandwrite /dev/mtd0 /tmp/firmware_update/uImage -p",
     Class::Unbootable, Class::Unbootable, "kernel partition /dev/mtd0: the image data's CRC does not hold"},
    {"KERNEL: after the write", "after", "nandwrite /dev/mtd0 /tmp/firmware_update/uImage -p",
     Class::Unchanged, Class::Repairable, "partly updated"},
    {"MODULES: half of the removal", "during 1/2", "rm -r /lib/modules/", Class::Repairable,
     Class::Repairable, "removed (a kernel module)"},
    {"MODULES: after the removal", "after", "rm -r /lib/modules/", Class::Repairable, Class::Repairable,
     "removed (a kernel module)"},
    {"MODULES: half of the unpacking", "during 1/2", "tar -xf /tmp/firmware_update/modules.tar -C /",
     Class::Repairable, Class::Repairable, "(a kernel module)"},
    {"MODULES: after the unpacking", "after", "tar -xf /tmp/firmware_update/modules.tar -C /",
     Class::Unchanged, Class::Repairable, "partly updated"},
    {"PIC: a quarter of its line changes", "line-change 1/4", "", Class::Repairable, Class::Repairable,
     "PIC flash: "},
};

} // namespace

class PowerCutTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_work;
    QString m_package;
    QByteArray m_picBefore, m_kernel;
    poweron::Reference m_reference;
    QMap<QString, state::Snapshot> m_cut; // by row name
    qint64 m_lineChanges = 0;

    instrument::Job job(const QString& name, const QString& rule)
    {
        return cutruns::job(m_package, m_work.path() + "/runs/" + QString(name).replace(' ', '-').remove(':'),
                            rule, m_picBefore);
    }

    static const state::Node* find(const state::Snapshot& s, const QString& path)
    {
        for (const state::Node& n : s.root)
            if (n.path == path)
                return &n;
        return nullptr;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_work.isValid());
        const Run made =
            run("bash", {PROJECT_SOURCE_DIR "/scripts/make-packages.sh", m_work.path() + "/packages"},
                QString(), 600000);
        QVERIFY2(made.exitCode == 0, qPrintable(made.err));
        m_package = m_work.path() + "/packages/good/OrsinaM_firmware_update_5.2.tar.bz2";
        // An older program on the PIC, where the new one goes: old, blank and new differ.
        m_picBefore = QByteArray(0x1000, '\0') + QByteArray(0x10000 - 0x1000, '\xff');

        QVector<instrument::Job> first{job("reference", {}), job("before", "before 1")};
        if (!cutruns::runJobs(first, [&](int i, const state::Snapshot& s) {
                (i == 0 ? m_reference.after : m_reference.before) = s;
            }))
            return;
        QVERIFY2(m_reference.after.ended, qPrintable(m_reference.after.outcome));
        QCOMPARE(m_reference.before.picFlash, m_picBefore);
        m_lineChanges = readAll(first[0].outDir + "/line-changes").trimmed().toLongLong();
        QVERIFY2(m_lineChanges > 1000, "the whole run's PIC step made no line changes");
        QString error;
        const auto pkg = package::read(m_package, error);
        QVERIFY2(pkg && pkg->find("firmware_update/uImage"), qPrintable(error));
        m_kernel = pkg->find("firmware_update/uImage")->data;

        // Each cut by the number of its command in the whole run.
        const QStringList commands = cutruns::commandsOf(m_reference.after);
        QVector<instrument::Job> jobs;
        QStringList names;
        for (const Cut& cut : cuts) {
            const QString kind = QString(cut.rule).section(' ', 0, 0);
            QString rule;
            if (kind == "line-change") {
                rule = QStringLiteral("line-change %1").arg(m_lineChanges / 4);
            } else {
                const int k = commands.indexOf(cut.command) + 1;
                QVERIFY2(k > 0, qPrintable(QStringLiteral("the whole run has no '%1'").arg(cut.command)));
                rule = kind + ' ' + QString::number(k) + (kind == "during" ? " 1/2" : "");
            }
            jobs << job(cut.name, rule);
            names << cut.name;
        }
        // The same cut once more: the same state, whatever the machine's speed did meanwhile.
        jobs << job("again", QString::fromUtf8(readAll(jobs[8].outDir + "/cut")).trimmed());
        names << "again";
        cutruns::runJobs(jobs, [&](int i, const state::Snapshot& s) { m_cut[names[i]] = s; });
    }

    void classAtEachBoundary_data()
    {
        QTest::addColumn<int>("row");
        for (int i = 0; i < int(std::size(cuts)); ++i)
            QTest::newRow(cuts[i].name) << i;
    }

    void classAtEachBoundary()
    {
        QFETCH(int, row);
        const Cut& cut = cuts[row];
        QVERIFY2(m_cut.contains(cut.name), "the cut run left no state");
        const state::Snapshot& s = m_cut[cut.name];
        // The cut stopped everything: no end line, no sync, the trace ends with the cut.
        QVERIFY2(!s.ended, qPrintable(s.outcome));
        QVERIFY2(s.trace.last().startsWith("cut "), qPrintable(s.trace.last()));
        QVERIFY(!cutruns::commandsOf(s).contains("sync"));
        const poweron::Verdict asCut = poweron::check(s, m_reference);
        QVERIFY2(asCut.why.contains(cut.why), qPrintable(asCut.why));
        QCOMPARE(poweron::name(asCut.cls), poweron::name(cut.asCut));
        const poweron::Verdict worst = poweron::worstWithWriteBack(s, m_reference);
        QVERIFY2(worst.cls == cut.worst, qPrintable(poweron::name(worst.cls) + ": " + worst.why));
    }

    // What each kind of cut leaves, byte for byte where a real cut's result is known.
    void partialStates()
    {
        if (m_cut.size() != int(std::size(cuts)) + 1)
            QSKIP("the cut runs did not all end");
        const QByteArray page(2048, '\xff');
        // Half of the erase blocks of /dev/mtd0 erased; the partition was never written before.
        QCOMPARE(m_cut["KERNEL: half of the erase"].partitions.value("/dev/mtd0"),
                 QByteArray(1024 * 1024, '\xff'));
        // Half of the kernel's pages written after a whole erase, the rest erased.
        const QByteArray written = m_cut["KERNEL: half of the write"].partitions.value("/dev/mtd0");
        const int pages = int((m_kernel.size() + 2047) / 2048) / 2;
        QCOMPARE(written.size(), 2 * 1024 * 1024);
        QCOMPARE(written.left(pages * 2048), m_kernel.left(pages * 2048));
        QCOMPARE(written.mid(pages * 2048).count('\xff'), written.size() - pages * 2048);
        // The real cp stopped at half of the bytes (whole KiB): a truncated application.
        const state::Node* app = find(m_cut["APP: half of the copy"], "/home/mainApp");
        QVERIFY(app);
        QCOMPARE(app->size, qint64(14804 / 2 / 1024 * 1024));
        // rm -r went half way through /lib/modules (/usr/lib/modules through the link): some entries
        // removed, the folder itself still there; after it, the folder is gone.
        const state::Snapshot& rm = m_cut["MODULES: half of the removal"];
        const int removedEntries =
            int(std::count_if(rm.root.begin(), rm.root.end(), [](const state::Node& n) {
                return n.removed && n.path.startsWith("/usr/lib/modules/");
            }));
        const state::Node* kept = find(rm, "/usr/lib/modules");
        QVERIFY2(removedEntries > 0 && (!kept || !kept->removed), qPrintable(state::text(rm)));
        const state::Node* folder = find(m_cut["MODULES: after the removal"], "/usr/lib/modules");
        QVERIFY(folder && folder->removed);
        // The PIC keeps what was erased and programmed up to the cut: neither the old program nor the new.
        const QByteArray pic = m_cut["PIC: a quarter of its line changes"].picFlash;
        QVERIFY(pic != m_picBefore && pic != m_reference.after.picFlash);
        // The same cut twice leaves the same state: the point is counted, not timed.
        const state::Snapshot& again = m_cut["again"];
        QVERIFY(again.partitions == m_cut["KERNEL: half of the write"].partitions);
        const auto files = [](const state::Snapshot& s) {
            QStringList list;
            for (const state::Node& n : s.root)
                list << n.path + ' ' + QString::number(n.removed) + ' ' + n.sha256.toHex();
            return list;
        };
        QCOMPARE(files(again), files(m_cut["KERNEL: half of the write"]));
    }

    // The subcommand on a kernel-only package (no PIC step, so it is quick): the JSON names the class and
    // window of the line, --fail-on turns the class into exit 1, and nothing is left in its TMPDIR.
    void riskCommand()
    {
        if (m_package.isEmpty())
            QSKIP("the sample package was not made");
        const QString folder = m_work.path() + "/kernel-only";
        QVERIFY(run("tar", {"-xjf", m_package, "-C", (QDir().mkpath(folder), folder)}).exitCode == 0);
        writeFile(folder + "/firmware_update/update_config", "KERNEL:/uImage\n");
        const QString package = m_work.path() + "/KernelM_firmware_update_1.tar.bz2";
        QVERIFY(run("tar", {"-cjf", package, "-C", folder, "firmware_update"}).exitCode == 0);
        const QString tmp = m_work.path() + "/risk-tmp";
        QVERIFY(QDir().mkpath(tmp));

        QProcess risk;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("TMPDIR", tmp);
        risk.setProcessEnvironment(environment);
        risk.start(PROJECT_BINARY_DIR "/tools/update-package/update-package",
                   {"risk", package, "--json", "--points", "1", "--fail-on", "unbootable"});
        QVERIFY(risk.waitForFinished(1200000));
        const QByteArray err = risk.readAllStandardError();
        if (risk.exitCode() == 2 && err.contains("unavailable") && qEnvironmentVariable("CI") != "true")
            QSKIP("SKIPPED - the virtual instrument is unavailable on this machine");
        QCOMPARE(risk.exitCode(), 1); // the kernel's erase makes it unbootable, which --fail-on names
        const QJsonObject report = QJsonDocument::fromJson(risk.readAllStandardOutput()).object();
        QCOMPARE(report["package"].toString(), QFileInfo(package).fileName());
        const QJsonArray lines = report["lines"].toArray();
        QCOMPARE(lines.size(), 1);
        const QJsonObject line = lines[0].toObject();
        QCOMPARE(line["command"].toString(), QString("KERNEL:/uImage"));
        QCOMPARE(line["worst"].toString(), QString("unbootable"));
        QCOMPARE(line["worst_as_cut"].toString(), QString("unbootable"));
        QVERIFY2(line["window_s"].toDouble() > 0 && line["board_window_s"].toDouble() > 0, qPrintable(err));
        // Before the erase, half of it, after it, half of the write, after the write: each once, in order.
        QStringList at, classes;
        for (const auto& point : line["points"].toArray()) {
            at << point.toObject()["at"].toString().section(' ', 0, 0);
            classes << point.toObject()["as_cut"].toString();
        }
        QCOMPARE(at, (QStringList{"before", "during", "after", "during", "after"}));
        QCOMPARE(classes, (QStringList{"unchanged", "unbootable", "unbootable", "unbootable", "updated"}));
        QCOMPARE(report["worst_window"].toObject()["class"].toString(), QString("unbootable"));
        QCOMPARE(QDir(tmp).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden), QStringList());
    }
};

QTEST_GUILESS_MAIN(PowerCutTest)
#include "tst_powercut.moc"
