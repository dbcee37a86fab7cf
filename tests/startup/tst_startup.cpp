// Start-up of the real updater binary: the command line lands in the settings file and on the menu.
#include "../support/TestFiles.h"

#include <QtTest> // with all of QtCore

namespace {
const QString settingsFile = "/mnt/data/settings/Halbern/Updater.conf";
const QString updaterBinary = QString(PROJECT_BINARY_DIR) + "/updater/updater";
} // namespace

class StartupTest : public QObject
{
    Q_OBJECT

    QString m_label; // the menu's version line as the running updater showed it

    // Starts the updater with the probe plugin, waits for the painted menu and for `settled`, stops it.
    // Returns the updater's debug log.
    QString runUpdater(
        const QStringList& args, std::function<bool()> settled = [] { return true; })
    {
        const QString probe = "/tmp/startup-probe.txt";
        QFile::remove(probe);
        QProcess updater;
        updater.setEnvironment(QProcess::systemEnvironment() +
                               QStringList{"QT_PLUGIN_PATH=" PROJECT_BINARY_DIR "/sim/probe/plugins",
                                           "QT_QPA_GENERIC_PLUGINS=probe", "PROBE_OUT=" + probe});
        updater.start(updaterBinary, args);
        if (!updater.waitForStarted(5000))
            return "could not start " + updaterBinary;
        m_label.clear();
        // The menu is painted after the start-up settings object has synchronised (its update request was
        // posted first), so once the label is reported any settings write has reached the file.
        const bool shown = QTest::qWaitFor(
            [&] {
                for (const QString& line : QString(testfiles::readAll(probe)).split('\n'))
                    if (line.startsWith("menu-label "))
                        m_label = line.mid(11);
                return !m_label.isEmpty() && settled();
            },
            60000);
        if (!shown)
            return "the menu was never reported painted (or the settings never settled)";
        if (updater.state() != QProcess::Running)
            return "the updater ended on its own: " + updater.readAllStandardError();
        updater.terminate();
        updater.waitForFinished(5000);
        return QString::fromLocal8Bit(updater.readAllStandardError());
    }

    QByteArray stored() { return testfiles::readAll(settingsFile); } // the whole settings file

private slots:
    void init() { QDir("/mnt/data").removeRecursively(); }

    void noArgumentsWriteNothing()
    {
        runUpdater({});
        QCOMPARE(m_label, QString("Orsina Updater Version: " PROJECT_VERSION " "));
        QVERIFY(!QFile::exists(settingsFile));
    }

    void lastSwitchWins()
    {
        runUpdater({"--pic-enable", "--pic-disable", "--avr-disable", "--avr-enable"},
                   [&] { return stored().contains("PicEnable") && stored().contains("AvrEnable"); });
        QCOMPARE(stored(), QByteArray("[General]\nAvrEnable=true\nPicEnable=false\n"));
    }

    void lastProductWins()
    {
        runUpdater({"Dravenor", "Orsina"});
        QCOMPARE(stored(), QByteArray("[General]\nProductName=Orsina\n"));
        // The product named on the command line is already on the menu of the same start.
        runUpdater({"Pellacorde"});
        QCOMPARE(m_label, QString("Pellacorde Updater Version: " PROJECT_VERSION " "));
    }

    void otherLetterCaseIsUnknownAndChangesNothing()
    {
        const QString log = runUpdater({"dravenor", "ORSINA", "--PIC-ENABLE", "Brenmark "});
        QCOMPARE(m_label, QString("Orsina Updater Version: " PROJECT_VERSION " "));
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
