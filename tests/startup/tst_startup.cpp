// Start-up of the real updater binary: the command line lands in the settings file.
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSettings>
#include <QtTest>

namespace {
const QString settingsFile = "/mnt/data/settings/Halbern/Updater.conf";

QString updaterBinary()
{
    return QString(PROJECT_BINARY_DIR) + "/updater/updater";
}
} // namespace

class StartupTest : public QObject
{
    Q_OBJECT

private:
    // Starts the updater, waits until `settled` holds (or a grace period passes) and stops it.
    QString runUpdater(const QStringList& args, std::function<bool()> settled = {})
    {
        QProcess updater;
        updater.setProcessChannelMode(QProcess::SeparateChannels);
        updater.start(updaterBinary(), args);
        if (!updater.waitForStarted(5000))
            return "could not start " + updaterBinary();
        if (settled) {
            for (int waited = 0; !settled() && waited < 15000; waited += 50)
                QTest::qWait(50);
        } else {
            QTest::qWait(2000); // nothing observable to wait for: give it the time a write would take
        }
        if (updater.state() != QProcess::Running)
            return "the updater ended on its own: " + updater.readAllStandardError();
        updater.terminate();
        updater.waitForFinished(5000);
        return QString::fromLocal8Bit(updater.readAllStandardError());
    }

    QVariant stored(const QString& key)
    {
        QSettings settings(settingsFile, QSettings::IniFormat);
        return settings.value(key);
    }

private slots:
    void init() { QDir("/mnt/data").removeRecursively(); }

    void noArgumentsWriteNothing()
    {
        runUpdater({});
        QVERIFY(!QFile::exists(settingsFile));
    }

    void lastSwitchWins()
    {
        runUpdater({"--pic-enable", "--pic-disable", "--avr-disable", "--avr-enable"},
                   [&] { return stored("PicEnable").isValid() && stored("AvrEnable").isValid(); });
        QCOMPARE(stored("PicEnable").toString(), QString("false"));
        QCOMPARE(stored("AvrEnable").toString(), QString("true"));
        QVERIFY(!stored("ProductName").isValid());
    }

    void lastProductWins()
    {
        runUpdater({"Dravenor", "Orsina"}, [&] { return stored("ProductName").toString() == "Orsina"; });
        QCOMPARE(stored("ProductName").toString(), QString("Orsina"));
        QVERIFY(!stored("PicEnable").isValid());
    }

    void otherLetterCaseIsUnknownAndChangesNothing()
    {
        const QString log = runUpdater({"dravenor", "ORSINA", "--PIC-ENABLE", "Brenmark "});
        QVERIFY(!QFile::exists(settingsFile));
        // Each argument is logged with its 1-based index, then the unknown ones once more.
        for (const char* line :
             {"1: \"dravenor\"", "2: \"ORSINA\"", "3: \"--PIC-ENABLE\"", "4: \"Brenmark \"",
              "unknown command line argument: \"dravenor\"", "unknown command line argument: \"Brenmark \""})
            QVERIFY2(log.contains(line), qPrintable(QString(line) + " missing from:\n" + log));
    }
};

QTEST_GUILESS_MAIN(StartupTest)
#include "tst_startup.moc"
