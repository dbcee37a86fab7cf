// IOExpanderPinController on the simulated /dev/i2c-1: the bus transactions the expander sees. The
// controller is a process-wide singleton, so the cases run in order on one instance.
#include "IoExpanderPinController.h"

#include "../support/SimInstrument.h"

#include <QtTest>

namespace {

QStringList bus()
{
    return siminstrument::lines("i2c");
}

} // namespace

class ExpanderTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        SIM_REQUIRE_INSTRUMENT();
        siminstrument::reset();
    }

    void init()
    {
        siminstrument::clearLog();
        siminstrument::write("i2c", "clear");
    }

    void nothingReachesTheBusBeforeInit()
    {
        IOExpanderPinController* io = IOExpanderPinController::instance();
        QCOMPARE(IOExpanderPinController::instance(), io);
        QVERIFY(!io->setDigOutput(3));
        QVERIFY(!io->clearDigOutput(3)); // would turn the start pattern 9e into 96 if it got through
        QVERIFY(!io->setDigOutput(7));
        QVERIFY(siminstrument::log().isEmpty());
        QVERIFY(bus().isEmpty());
    }

    void initConfiguresOutputsThenWritesTheStartPattern()
    {
        QVERIFY(IOExpanderPinController::instance()->init());
        QCOMPARE(siminstrument::log(), (QStringList{"open i2c-1 rdwr", "ioctl i2c-1 I2C_SLAVE 0x22",
                                                    "write i2c-1 03 00", "write i2c-1 01 9e"}));
        QCOMPARE(bus(), (QStringList{"w 22 03 00", "w 22 01 9e"}));
        QCOMPARE(siminstrument::read("expander"),
                 QByteArray("output=9e\nconfiguration=00\npolarity=00\npins=9e\n"));
    }

    void everyBitRequestRewritesThePort()
    {
        IOExpanderPinController* io = IOExpanderPinController::instance();
        QVERIFY(io->clearDigOutput(7));
        QVERIFY(io->setDigOutput(0));
        QVERIFY(io->setDigOutput(0));   // already set: written all the same
        QVERIFY(io->clearDigOutput(5)); // already clear: written all the same
        QCOMPARE(bus(), (QStringList{"w 22 01 1e", "w 22 01 1f", "w 22 01 1f", "w 22 01 1f"}));
    }

    void pinsOutsideTheByteAreRejected()
    {
        IOExpanderPinController* io = IOExpanderPinController::instance();
        QVERIFY(!io->setDigOutput(8));
        QVERIFY(!io->setDigOutput(-1));
        QVERIFY(!io->clearDigOutput(8));
        QVERIFY(!io->clearDigOutput(-1));
        QVERIFY(bus().isEmpty());
    }

    void deinitTwiceClosesOnce()
    {
        IOExpanderPinController* io = IOExpanderPinController::instance();
        io->deinit();
        io->deinit();
        QCOMPARE(siminstrument::log(), QStringList{"close i2c-1"});
        QVERIFY(!io->setDigOutput(1));
        QVERIFY(bus().isEmpty());
    }

    void reinitRestoresTheLastPattern()
    {
        IOExpanderPinController* io = IOExpanderPinController::instance();
        QVERIFY(io->init());
        QCOMPARE(bus(), (QStringList{"w 22 03 00", "w 22 01 1f"}));
        io->deinit();
    }

    void failedOpenStillLetsPinRequestsThrough()
    {
        IOExpanderPinController* io = IOExpanderPinController::instance();
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
