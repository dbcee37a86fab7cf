// Running packages on the virtual instrument (VirtualInstrument.h): the driver and the reader stand
// outside the sandbox's root, so a package that breaks that root is still observed to its end; a batch
// gives every package a fresh instrument. Slow-ish: every job runs the real updater (no PIC lines here).
#include "../support/TestFiles.h"
#include "VirtualInstrument.h"

#include <QTemporaryDir>
#include <QtTest>

using namespace testfiles;

class VirtualInstrumentTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_work;

    // A package of the files given, its command list first; tar makes it as an engineer's machine would.
    QString pack(const QString& name, const QString& config, const QMap<QString, QByteArray>& files = {})
    {
        const QString folder = m_work.path() + "/made/" + name + "/firmware_update";
        writeFile(folder + "/update_config", config.toUtf8());
        for (auto it = files.begin(); it != files.end(); ++it)
            writeFile(folder + '/' + it.key(), *it, it.key().endsWith(".sh") ? 0755 : 0644);
        const QString archive = m_work.path() + "/" + name + "M_firmware_update_1.tar.bz2";
        if (run("tar", {"-cjf", archive, "-C", m_work.path() + "/made/" + name, "firmware_update"})
                .exitCode != 0)
            qFatal("tar could not pack %s", qPrintable(folder));
        return archive;
    }

    static const state::Node* find(const state::Snapshot& s, const QString& path)
    {
        const auto it =
            std::find_if(s.root.begin(), s.root.end(), [&](const state::Node& n) { return n.path == path; });
        return it == s.root.end() ? nullptr : &*it;
    }

    static QStringList updaterCommands(const state::Snapshot& s)
    {
        QStringList commands;
        for (const QString& line : s.trace)
            if (line.startsWith("run "))
                commands << line.mid(4);
        return commands;
    }

    void skipWhenUnavailable(bool unavailable, const QString& error)
    {
        if (unavailable && qEnvironmentVariable("CI") != "true")
            QSKIP(qPrintable("SKIPPED - the virtual instrument is unavailable on this machine: " + error));
    }

private slots:
    void initTestCase() { QVERIFY(m_work.isValid()); }

    // A script removes the loader of the root's programs once the root is writable: every later target
    // command fails to start, the updater goes on, and the technician, the probe and the reader still see
    // the job to its end and name the damage.
    void damagedRootIsObservedToTheEnd()
    {
        instrument::Job job;
        job.package =
            pack("Damage", "FILE:/etc/before.conf\nSCRIPT:/damage.sh\nFILE:/etc/after.conf\n",
                 {{"damage.sh", "#!/bin/sh\nset --\nfor l in /lib64/ld-linux*.so* /lib/ld-linux*.so*; do\n"
                                "  [ -e \"$l\" ] && set -- \"$@\" \"$(readlink -f \"$l\")\"\ndone\n"
                                "rm -f \"$@\"\n"},
                  {"etc/before.conf", "before\n"},
                  {"etc/after.conf", "after\n"}});
        job.outDir = m_work.path() + "/damage";
        QString error;
        bool unavailable = false;
        const auto snapshot = instrument::run(job, error, {}, &unavailable);
        skipWhenUnavailable(unavailable, error);
        QVERIFY2(snapshot, qPrintable(error));
        QVERIFY2(snapshot->ended, qPrintable(snapshot->outcome));
        QVERIFY2(
            snapshot->view.endsWith("Some of the updates failed, press F1 to return to the main screen \n"),
            qPrintable(snapshot->view));

        // The trace from the script on: its rm, then only view lines; no command of the updater started.
        const QStringList trace = snapshot->trace.toList();
        const int script = trace.indexOf("view plain Running script file: /damage.sh");
        QVERIFY2(script >= 0, qPrintable(trace.join('\n')));
        QVERIFY2(trace.value(script + 1).startsWith("inner rm -f /"), qPrintable(trace.join('\n')));
        QCOMPARE(trace.mid(script + 2),
                 (QStringList{
                     "inner-exit 0", "view plain Updating root files with folder: /etc/after.conf",
                     "view red Failed - Updating root files with folder: /etc/after.conf",
                     "view plain Finalising update, please wait. ", "view plain Removing temporary files\\n",
                     "view red Some of the updates failed, press F1 to return to the main screen "}));

        // The state names the damage: the loader is gone; the file written before it is there.
        const auto loader =
            std::find_if(snapshot->root.begin(), snapshot->root.end(), [](const state::Node& n) {
                return n.removed && n.path.section('/', -1).startsWith("ld-linux") && n.before &&
                       n.before->kind == profile::Kind::File;
            });
        QVERIFY2(loader != snapshot->root.end(), qPrintable(state::text(*snapshot)));
        const state::Node* before = find(*snapshot, "/etc/before.conf");
        QVERIFY2(before && !before->removed && !before->before, qPrintable(state::text(*snapshot)));
        QVERIFY2(!find(*snapshot, "/etc/after.conf"), qPrintable(state::text(*snapshot)));
        QVERIFY(state::text(*snapshot).contains("\n  - " + loader->path + "  was file "));
    }

    // Three packages on one instrument: what one wrote is gone for the next; the trace and media are its own.
    void batchGivesEveryPackageAFreshInstrument()
    {
        QByteArray kernel;
        for (int i = 0; i < 4096; ++i)
            kernel.append(char((i * 13 + 5) & 0xFF));
        QVector<instrument::Job> jobs(3);
        jobs[0].package = pack("First", "FILE:/etc/first.conf\nKERNEL:/uImage\n",
                               {{"etc/first.conf", "first\n"}, {"uImage", kernel}});
        jobs[1].package = pack("Second", "FILE:/etc/second.conf\n", {{"etc/second.conf", "second\n"}});
        jobs[2].pcJob = true; // and nothing copied onto the transfer partition
        QVector<std::optional<state::Snapshot>> results(jobs.size());
        QVector<int> order;
        QString error;
        bool unavailable = false;
        const bool ran = instrument::runBatch(
            jobs,
            [&](int index, const std::optional<state::Snapshot>& snapshot, const QString& readError) {
                QVERIFY2(snapshot, qPrintable(readError));
                results[index] = snapshot;
                order << index;
            },
            error, {QString(), false}, &unavailable);
        skipWhenUnavailable(unavailable, error);
        QVERIFY2(ran, qPrintable(error));
        QCOMPARE(order, (QVector<int>{0, 1, 2}));

        const state::Snapshot& first = *results[0];
        QVERIFY2(first.ended && find(first, "/etc/first.conf"), qPrintable(state::text(first)));
        QVERIFY(first.partitions.value("/dev/mtd0").startsWith(kernel));

        const state::Snapshot& second = *results[1];
        QVERIFY2(second.ended, qPrintable(second.outcome));
        QVERIFY2(find(second, "/etc/second.conf") && !find(second, "/etc/first.conf"),
                 qPrintable(state::text(second)));
        QVERIFY2(second.partitions.isEmpty(), "the kernel partition written by the first package stayed");
        QVERIFY(!updaterCommands(second).contains("flash_eraseall /dev/mtd0"));

        // The PC job with nothing on the transfer partition: the updater finds no package.
        const state::Snapshot& third = *results[2];
        QVERIFY2(third.ended, qPrintable(third.outcome));
        QVERIFY2(third.view.contains("Could not find update file"), qPrintable(third.view));
        QCOMPARE(updaterCommands(third).mid(3, 3),
                 (QStringList{"modprobe g_mass_storage file=/dev/mmcblk0p6 removable=1", "umount /mnt/update",
                              "umount /run/media/mmcblk0p6"}));
        QVERIFY(!find(third, "/etc/first.conf") && !find(third, "/etc/second.conf"));
    }

    void badJobs()
    {
        instrument::Job job;
        job.package = m_work.path() + "/missing.tar.bz2";
        QString error;
        QVERIFY(!instrument::run(job, error));
        QVERIFY2(error.contains("no package file at " + job.package), qPrintable(error));
    }
};

QTEST_GUILESS_MAIN(VirtualInstrumentTest)
#include "tst_virtualinstrument.moc"
