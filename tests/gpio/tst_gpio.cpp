// GpioPinController on the simulated /sys/class/gpio: the exact bytes and file operations that reach
// sysfs, as the instrument's operation log records them.
#include "GpioPinController.h"

#include "../support/SimInstrument.h"

#include <QtTest>

#include <memory>
#include <unistd.h>

class GpioTest : public QObject
{
    Q_OBJECT

    // Runs body with descriptor 0 given up, so the next open() there returns 0.
    template <typename Body> static void withFreedStdin(Body body)
    {
        const int saved = ::dup(0);
        ::close(0);
        body();
        ::dup2(saved, 0);
        ::close(saved);
    }

    // Every operation but createDriver fails and leaves sysfs alone; "-1" read is neither 0 nor 1, so
    // toggleValue writes nothing.
    static void failsWithoutTouchingSysfs(GpioPinController& pin)
    {
        siminstrument::clearLog();
        QVERIFY(!pin.setDirection("out"));
        QVERIFY(!pin.setValue("1"));
        QTest::ignoreMessage(QtDebugMsg, "getValue failed");
        QCOMPARE(pin.getValue(), QString("-1"));
        QTest::ignoreMessage(QtDebugMsg, "getValue failed");
        pin.toggleValue();
        QCOMPARE(siminstrument::log(), QStringList());
    }

private slots:
    void initTestCase() { SIM_REQUIRE_INSTRUMENT(); }
    void init() { siminstrument::reset(); }

    void exportsOpensAndWritesWithoutNewline()
    {
        {
            GpioPinController pin("7");
            QCOMPARE(siminstrument::log(), QStringList{"open export wronly"});
            QVERIFY(pin.createDriver());
            QVERIFY(pin.setDirection("out"));
            QVERIFY(pin.setValue("1"));
            QVERIFY(pin.setValue("0"));
            QVERIFY(pin.setDirection("in"));
        }
        // Destruction closes export, direction and value in that order, and does not unexport.
        QCOMPARE(
            siminstrument::log(),
            (QStringList{"open export wronly", "write export \"7\"", "open gpio7/direction wronly",
                         "open gpio7/value rdwr", "write gpio7/direction \"out\"", "write gpio7/value \"1\"",
                         "write gpio7/value \"0\"", "write gpio7/direction \"in\"", "close export",
                         "close gpio7/direction", "close gpio7/value"}));
    }

    void getValueRewindsAndToggleValueFlips()
    {
        GpioPinController pin("12");
        QVERIFY(pin.createDriver());
        QCOMPARE(pin.getValue(), QString("1")); // undriven input: pulled up
        QVERIFY(pin.setDirection("out"));
        QCOMPARE(pin.getValue(), QString("0"));
        QVERIFY(pin.setValue("1"));
        QCOMPARE(pin.getValue(), QString("1"));
        QCOMPARE(pin.getValue(), QString("1"));
        // Each read takes one byte from offset 0; without the rewind the next would return the newline.
        QCOMPARE(siminstrument::log().filter("read "),
                 (QStringList{"read gpio12/value \"1\"", "read gpio12/value \"0\"", "read gpio12/value \"1\"",
                              "read gpio12/value \"1\""}));

        siminstrument::clearLog();
        pin.toggleValue();
        pin.toggleValue();
        QCOMPARE(siminstrument::log(), (QStringList{"read gpio12/value \"1\"", "write gpio12/value \"0\"",
                                                    "read gpio12/value \"0\"", "write gpio12/value \"1\""}));
    }

    void failsBeforeCreateDriverAndForAMissingLine()
    {
        GpioPinController early("7");
        failsWithoutTouchingSysfs(early);

        GpioPinController missing("600"); // beyond the bank: the export is refused, the files never appear
        QVERIFY(missing.createDriver());
        // How often the kernel looks the missing files up differs (twice natively, more under qemu).
        QCOMPARE(siminstrument::log().filter(QRegularExpression("^(?!lookup gpio600 -> ENOENT$)")),
                 (QStringList{"open export wronly", "write export \"600\" -> EINVAL"}));
        failsWithoutTouchingSysfs(missing);
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
        QCOMPARE(siminstrument::log(), (QStringList{"write export \"5\" -> EBUSY",
                                                    "open gpio5/direction wronly", "open gpio5/value rdwr"}));
        QCOMPARE(second.getValue(), QString("1")); // the same line, still driven high
    }

    void removeDriverAndRefusedOpens()
    {
        GpioPinController pin("7");
        QVERIFY(pin.createDriver());
        QVERIFY(pin.setDirection("out"));
        siminstrument::clearLog();
        siminstrument::write("refuse-open", "unexport");
        QVERIFY(!pin.removeDriver());
        siminstrument::write("refuse-open", "\n");
        QVERIFY(pin.removeDriver());
        // The old descriptors stay open; sysfs answers them with ENODEV once the line is gone.
        QVERIFY(pin.setValue("1"));
        // The kernel's refusal of a second unexport is not reported.
        QVERIFY(pin.removeDriver());
        // Without the export file createDriver fails, and nothing else is tried.
        siminstrument::write("refuse-open", "export");
        GpioPinController other("8");
        QVERIFY(!other.createDriver());
        QVERIFY(!other.setDirection("out"));
        QCOMPARE(siminstrument::log(),
                 (QStringList{"open unexport wronly -> EACCES", "open unexport wronly",
                              "write unexport \"7\"", "close unexport", "write gpio7/value \"1\" -> ENODEV",
                              "open unexport wronly", "write unexport \"7\" -> EINVAL", "close unexport",
                              "open export wronly -> EACCES"}));
    }

    void descriptorZeroCountsAsUnusable()
    {
        withFreedStdin([] {
            GpioPinController pin("7"); // the export file gets descriptor 0
            QVERIFY(!pin.createDriver());
        });
        QCOMPARE(siminstrument::log(), (QStringList{"open export wronly", "close export"}));

        auto pin = std::make_unique<GpioPinController>("8");
        siminstrument::clearLog();
        withFreedStdin([&pin] {
            QVERIFY(pin->createDriver()); // the direction file gets descriptor 0
            QVERIFY(!pin->setDirection("out"));
            pin.reset(); // closes descriptor 0 before stdin comes back
        });
        QCOMPARE(siminstrument::log().filter("gpio8/direction"),
                 (QStringList{"open gpio8/direction wronly", "close gpio8/direction"}));
    }
};

QTEST_GUILESS_MAIN(GpioTest)
#include "tst_gpio.moc"
