// Packages on which the tool's prediction and the real updater once disagreed (most found by
// scripts/differential.sh and shrunk): each runs on the virtual instrument, one batch for all rows, and
// the prediction must match what the instrument showed and holds, line by line.
#include "../support/TestFiles.h"
#include "Compare.h"
#include "Package.h"
#include "Prediction.h"
#include "VirtualInstrument.h"

#include <QTemporaryDir>
#include <QtTest>

using namespace testfiles;

namespace {

struct File
{
    QString path;
    QByteArray content;
    mode_t mode = 0644;
};

struct Case
{
    const char* name;
    const char* config; // the command list
    QVector<File> files;
};

// What each row is about is in its name: the instrument's behaviour the prediction once missed.
const QVector<Case>& cases()
{
    static const QVector<Case> all{
        // The updater runs from /usr/bin/updater: before a remount its rm meets a read-only root, and
        // its copy over itself meets a file that is being run.
        {"updater over the running updater",
         "UPDATER:/usr/bin/updater\n",
         {{"usr/bin/updater", "#!/bin/sh\n", 0755}}},
        // After a remount the running updater's file can be removed and a new one copied in its place.
        {"updater after a remount",
         "FILE:/etc/a.conf\nUPDATER:/usr/bin/updater\n",
         {{"etc/a.conf", "a\n"}, {"usr/bin/updater", "#!/bin/sh\n", 0755}}},
        // rm -r /lib/modules/ goes through the /lib link: the whole tree below /usr/lib/modules is gone,
        // and the missing archive brings nothing back.
        {"modules without their archive", "APP:/mainApp\nMODULES:/missing.tar\n", {}},
        // A blank after the colon splits the flash tool's arguments: after the erase, nandwrite refuses
        // them, and the partition stays erased.
        {"kernel argument with a blank", "KERNEL: /uImage\n", {{"uImage", QByteArray(4096, 'k')}}},
        // /home is a file system of its own, writable from the start: with the root's remount failed
        // the application is still copied.
        // The instrument starts the updater in /: a path without its leading slash still names the file.
        {"updater by a relative path",
         "FILE:/etc/a.conf\nUPDATER:usr/bin/updater\n",
         {{"etc/a.conf", "a\n"}}},
        {"application after a failed remount",
         "SYSTEM:EMMC\nAPP:/mainApp\n",
         {{"mainApp", "#!/bin/sh\n", 0755}}},
    };
    return all;
}

} // namespace

class AgreementTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_work;
    QMap<QString, QString> m_packages; // row -> archive
    QMap<QString, std::optional<state::Snapshot>> m_seen;
    QMap<QString, QString> m_errors;

    QString pack(const Case& c)
    {
        const QString top = m_work.path() + "/made/" + QString::number(m_packages.size());
        writeFile(top + "/firmware_update/update_config", c.config);
        for (const File& f : c.files)
            writeFile(top + "/firmware_update/" + f.path, f.content, f.mode);
        const QString archive = top + "/AgreeM_firmware_update_1.tar.bz2";
        const Run tar = run("tar", {"-cjf", archive, "-C", top, "firmware_update"});
        if (tar.exitCode != 0)
            qFatal("tar could not pack %s: %s", qPrintable(top), qPrintable(tar.err));
        return archive;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_work.isValid());
        QVector<instrument::Job> jobs;
        for (const Case& c : cases()) {
            m_packages.insert(c.name, pack(c));
            instrument::Job job;
            job.package = m_packages.value(c.name);
            job.timeoutSeconds = 300;
            jobs << job;
        }
        QString error;
        bool unavailable = false;
        instrument::Options options;
        options.screens = false;
        const bool ran = instrument::runBatch(
            jobs,
            [&](int k, const std::optional<state::Snapshot>& snapshot, const QString& why) {
                m_seen.insert(cases()[k].name, snapshot);
                m_errors.insert(cases()[k].name, why);
            },
            error, options, &unavailable);
        if (unavailable && qEnvironmentVariable("CI") != "true")
            QSKIP(qPrintable("SKIPPED - the virtual instrument is unavailable on this machine: " + error));
        QVERIFY2(ran, qPrintable(error));
    }

    void agrees_data()
    {
        QTest::addColumn<QString>("name");
        for (const Case& c : cases())
            QTest::newRow(c.name) << QString(c.name);
    }

    void agrees()
    {
        QFETCH(QString, name);
        const auto& seen = m_seen.value(name);
        QVERIFY2(seen, qPrintable("not run: " + m_errors.value(name)));
        QString error;
        const auto pkg = package::read(m_packages.value(name), error);
        QVERIFY2(pkg, qPrintable(error));
        const auto instrument = profile::read(profile::defaultPath(), error);
        QVERIFY2(instrument, qPrintable(error));
        const predict::Prediction prediction = predict::predict(*pkg, *instrument);
        const compare::Result result = compare::compare(prediction, *seen);
        QVERIFY2(result.agrees(), qPrintable(compare::text(prediction, result)));
    }
};

QTEST_GUILESS_MAIN(AgreementTest)
#include "tst_agreement.moc"
