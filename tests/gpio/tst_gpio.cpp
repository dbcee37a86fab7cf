// GpioPinController on the simulated /sys/class/gpio: the exact bytes and file operations that reach
// sysfs, as the instrument's operation log records them.
#include "GpioPinController.h"

#include "../support/SimInstrument.h"

#include <QtTest>

#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace {

QStringList deviceLog()
{
    return siminstrument::log();
}

// Log lines that touch one file ("write gpio7/value ...").
QStringList operationsOn(const QString& file)
{
    QStringList found;
    for (const QString& line : deviceLog()) {
        if (line.section(' ', 1, 1) == file)
            found << line;
    }
    return found;
}

QStringList writes()
{
    return deviceLog().filter(QRegularExpression("^write "));
}

// The instrument's view of one exported line: "7 out 1 value-writes=..." or empty when not exported.
QString lineState(int line)
{
    for (const QString& entry : siminstrument::lines("lines")) {
        if (entry.section(' ', 0, 0) == QString::number(line))
            return entry;
    }
    return {};
}

// Gives up descriptor 0 for the lifetime of the object, so the next open() returns 0.
class FreedStdin
{
public:
    FreedStdin() : m_saved(::dup(0)) { ::close(0); }
    ~FreedStdin()
    {
        ::dup2(m_saved, 0);
        ::close(m_saved);
    }

private:
    int m_saved;
};

} // namespace

class GpioTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { SIM_REQUIRE_INSTRUMENT(); }
    void init() { siminstrument::reset(); }

    void constructorOpensOnlyTheExportFile()
    {
        GpioPinController pin("7");
        QCOMPARE(deviceLog(), QStringList{"open export wronly"});
    }

    void createDriverExportsThenOpensBothFiles()
    {
        GpioPinController pin("7");
        QVERIFY(pin.createDriver());
        QCOMPARE(deviceLog(), (QStringList{"open export wronly", "write export \"7\"",
                                           "open gpio7/direction wronly", "open gpio7/value rdwr"}));
        QVERIFY(lineState(7).startsWith("7 in 1 ")); // a fresh line is an undriven input
    }

    void writesCarryNoNewline()
    {
        GpioPinController pin("7");
        QVERIFY(pin.createDriver());
        siminstrument::clearLog();
        QVERIFY(pin.setDirection("out"));
        QVERIFY(lineState(7).startsWith("7 out 0 "));
        QVERIFY(pin.setValue("1"));
        QVERIFY(pin.setValue("0"));
        QVERIFY(pin.setDirection("in"));
        QCOMPARE(writes(), (QStringList{"write gpio7/direction \"out\"", "write gpio7/value \"1\"",
                                        "write gpio7/value \"0\"", "write gpio7/direction \"in\""}));
    }

    void getValueRewindsBeforeEveryRead()
    {
        GpioPinController pin("12");
        QVERIFY(pin.createDriver());
        QCOMPARE(pin.getValue(), QString("1")); // undriven input: pulled up
        QVERIFY(pin.setDirection("out"));
        QCOMPARE(pin.getValue(), QString("0"));
        QVERIFY(pin.setValue("1"));
        QCOMPARE(pin.getValue(), QString("1"));
        QCOMPARE(pin.getValue(), QString("1"));
        // Each read takes exactly one byte from offset 0; without the rewind the next read would
        // start at offset 1 and return the newline.
        const QStringList reads = operationsOn("gpio12/value").filter(QRegularExpression("^read "));
        QCOMPARE(reads, (QStringList{"read gpio12/value \"1\"", "read gpio12/value \"0\"",
                                     "read gpio12/value \"1\"", "read gpio12/value \"1\""}));
        QVERIFY(lineState(12).contains("value-reads=4"));
    }

    void toggleValue_data()
    {
        QTest::addColumn<QString>("start");
        QTest::addColumn<QString>("written");
        QTest::newRow("high to low") << "1"
                                     << "0";
        QTest::newRow("low to high") << "0"
                                     << "1";
    }

    void toggleValue()
    {
        QFETCH(QString, start);
        QFETCH(QString, written);
        GpioPinController pin("9");
        QVERIFY(pin.createDriver());
        QVERIFY(pin.setDirection("out"));
        QVERIFY(pin.setValue(start));
        siminstrument::clearLog();
        pin.toggleValue();
        QCOMPARE(deviceLog(), (QStringList{"read gpio9/value \"" + start + "\"",
                                           "write gpio9/value \"" + written + "\""}));
        QCOMPARE(pin.getValue(), written);
    }

    void earlyOperationsFailWithoutTouchingSysfs()
    {
        GpioPinController pin("7");
        QVERIFY(!pin.setDirection("out"));
        QVERIFY(!pin.setValue("1"));
        QTest::ignoreMessage(QtDebugMsg, "getValue failed");
        QCOMPARE(pin.getValue(), QString("-1"));
        QTest::ignoreMessage(QtDebugMsg, "getValue failed");
        pin.toggleValue(); // "-1" is neither 0 nor 1: nothing is written
        QCOMPARE(deviceLog(), QStringList{"open export wronly"});
    }

    void missingLineFailsOnlyLater()
    {
        GpioPinController pin("600"); // beyond the bank: the export is refused, the files never appear
        QVERIFY(pin.createDriver());
        const QStringList log = deviceLog();
        QVERIFY(log.contains("write export \"600\" -> EINVAL"));
        QVERIFY(log.filter("open gpio600").isEmpty());
        siminstrument::clearLog();
        QVERIFY(!pin.setDirection("out"));
        QVERIFY(!pin.setValue("1"));
        QTest::ignoreMessage(QtDebugMsg, "getValue failed");
        pin.toggleValue();
        QVERIFY(deviceLog().isEmpty());
    }

    void secondExportIsRefusedButTheFilesStillOpen()
    {
        GpioPinController first("5");
        QVERIFY(first.createDriver());
        QVERIFY(first.setDirection("out"));
        QVERIFY(first.setValue("1"));
        GpioPinController second("5");
        siminstrument::clearLog();
        QVERIFY(second.createDriver());
        QCOMPARE(deviceLog(), (QStringList{"write export \"5\" -> EBUSY", "open gpio5/direction wronly",
                                           "open gpio5/value rdwr"}));
        QCOMPARE(second.getValue(), QString("1")); // the same line, still driven high
    }

    void removeDriverUnexportsAndKeepsTheFilesOpen()
    {
        GpioPinController pin("7");
        QVERIFY(pin.createDriver());
        QVERIFY(pin.setDirection("out"));
        siminstrument::clearLog();
        QVERIFY(pin.removeDriver());
        QCOMPARE(deviceLog(),
                 (QStringList{"open unexport wronly", "write unexport \"7\"", "close unexport"}));
        QVERIFY(lineState(7).isEmpty());
        // The old descriptors stay open; sysfs answers them with ENODEV once the line is gone.
        siminstrument::clearLog();
        QVERIFY(pin.setValue("1"));
        QCOMPARE(deviceLog(), QStringList{"write gpio7/value \"1\" -> ENODEV"});
        // The kernel's refusal of a second unexport is not reported.
        QVERIFY(pin.removeDriver());
        QVERIFY(deviceLog().contains("write unexport \"7\" -> EINVAL"));
    }

    void removeDriverFailsWhenUnexportCannotBeOpened()
    {
        GpioPinController pin("7");
        QVERIFY(pin.createDriver());
        siminstrument::write("refuse-open", "unexport");
        siminstrument::clearLog();
        QVERIFY(!pin.removeDriver());
        QCOMPARE(deviceLog(), QStringList{"open unexport wronly -> EACCES"});
        QVERIFY(!lineState(7).isEmpty());
    }

    void createDriverFailsWhenExportCannotBeOpened()
    {
        siminstrument::write("refuse-open", "export");
        GpioPinController pin("7");
        QVERIFY(!pin.createDriver());
        QVERIFY(!pin.setDirection("out"));
        QCOMPARE(deviceLog(), QStringList{"open export wronly -> EACCES"});
    }

    void descriptorZeroCountsAsUnusable()
    {
        {
            FreedStdin freed;
            GpioPinController pin("7"); // the export file gets descriptor 0
            QVERIFY(!pin.createDriver());
        }
        QCOMPARE(deviceLog(), (QStringList{"open export wronly", "close export"}));

        siminstrument::clearLog();
        auto pin = std::make_unique<GpioPinController>("8");
        {
            FreedStdin freed;
            QVERIFY(pin->createDriver()); // the direction file gets descriptor 0
            QVERIFY(!pin->setDirection("out"));
            pin.reset(); // closes descriptor 0 before stdin comes back
        }
        QCOMPARE(operationsOn("gpio8/direction"),
                 (QStringList{"open gpio8/direction wronly", "close gpio8/direction"}));
    }

    void destructorClosesExportThenDirectionThenValue()
    {
        auto pin = std::make_unique<GpioPinController>("7");
        QVERIFY(pin->createDriver());
        siminstrument::clearLog();
        pin.reset();
        QCOMPARE(deviceLog(), (QStringList{"close export", "close gpio7/direction", "close gpio7/value"}));
        QVERIFY(!lineState(7).isEmpty()); // destruction does not unexport
    }
};

QTEST_GUILESS_MAIN(GpioTest)
#include "tst_gpio.moc"
