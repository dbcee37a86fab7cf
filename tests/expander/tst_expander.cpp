// IOExpanderPinController on the simulated /dev/i2c-1: the bus transactions the expander sees. The
// controller is a process-wide singleton that keeps its state, so its life is one case, step by step.
#include "IoExpanderPinController.h"

#include "../support/SimInstrument.h"

#include <QtTest>

class ExpanderTest : public QObject
{
    Q_OBJECT

    static QStringList bus() { return siminstrument::lines("i2c"); }
    static void clearRecords()
    {
        siminstrument::clearLog();
        siminstrument::write("i2c", "clear");
    }

private slots:
    void initTestCase()
    {
        SIM_REQUIRE_INSTRUMENT();
        siminstrument::reset();
    }

    void lifeOfTheSingleton()
    {
        IOExpanderPinController* io = IOExpanderPinController::instance();
        QCOMPARE(IOExpanderPinController::instance(), io);

        // Nothing reaches the bus before init.
        clearRecords();
        QVERIFY(!io->setDigOutput(3));
        QVERIFY(!io->clearDigOutput(3)); // would turn the start pattern 9e into 96 if it got through
        QVERIFY(!io->setDigOutput(7));
        QVERIFY(siminstrument::log().isEmpty());
        QVERIFY(bus().isEmpty());

        // init configures every pin as an output, then writes the start pattern.
        clearRecords();
        QVERIFY(io->init());
        QCOMPARE(siminstrument::log(), (QStringList{"open i2c-1 rdwr", "ioctl i2c-1 I2C_SLAVE 0x22",
                                                    "write i2c-1 03 00", "write i2c-1 01 9e"}));
        QCOMPARE(bus(), (QStringList{"w 22 03 00", "w 22 01 9e"}));
        QCOMPARE(siminstrument::read("expander"),
                 QByteArray("output=9e\nconfiguration=00\npolarity=00\npins=9e\n"));

        // Every bit request rewrites the port.
        clearRecords();
        QVERIFY(io->clearDigOutput(7));
        QVERIFY(io->setDigOutput(0));
        QVERIFY(io->setDigOutput(0));   // already set: written all the same
        QVERIFY(io->clearDigOutput(5)); // already clear: written all the same
        QCOMPARE(bus(), (QStringList{"w 22 01 1e", "w 22 01 1f", "w 22 01 1f", "w 22 01 1f"}));

        // Pins outside the byte are rejected.
        clearRecords();
        QVERIFY(!io->setDigOutput(8));
        QVERIFY(!io->setDigOutput(-1));
        QVERIFY(!io->clearDigOutput(8));
        QVERIFY(!io->clearDigOutput(-1));
        QVERIFY(bus().isEmpty());

        // deinit twice closes once.
        clearRecords();
        io->deinit();
        io->deinit();
        QCOMPARE(siminstrument::log(), QStringList{"close i2c-1"});
        QVERIFY(!io->setDigOutput(1));
        QVERIFY(bus().isEmpty());

        // A new init restores the last pattern.
        clearRecords();
        QVERIFY(io->init());
        QCOMPARE(bus(), (QStringList{"w 22 03 00", "w 22 01 1f"}));
        io->deinit();

        // A failed open still lets pin requests through.
        clearRecords();
        siminstrument::write("refuse-open", "i2c-1");
        QTest::ignoreMessage(QtDebugMsg, "Failed to open I2c I/O Expander  Permission denied");
        QVERIFY(!io->init());
        // The negative descriptor is not 0, so the request passes, fails to write and still reports true.
        QTest::ignoreMessage(QtDebugMsg, "Error writing I2c Bad file descriptor");
        QVERIFY(io->setDigOutput(1));
        QVERIFY(bus().isEmpty());
        io->deinit(); // back to "not open"
        QVERIFY(!io->setDigOutput(1));
        siminstrument::write("refuse-open", "");
    }
};

QTEST_GUILESS_MAIN(ExpanderTest)
#include "tst_expander.moc"
