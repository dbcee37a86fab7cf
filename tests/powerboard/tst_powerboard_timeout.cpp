// PowerBoardManager's 5 s acknowledgement timer, in real time: a resend on time-out and giving up on
// time-out. Labelled slow; the rest of the link is tst_powerboard.

#include "PowerBoardLink.h"

#include <QElapsedTimer>

class TestPowerBoardTimeout : public QObject
{
    Q_OBJECT

private slots:
    // Two links run side by side, so one timer period covers a resend on time-out and giving up on
    // time-out, and a second one shows that neither abandoned frame goes out again.
    void timeOutResendsAndGivesUp()
    {
        Link here;
        REQUIRE_PTY(here.pty);
        Link there;
        here.peer.setSilent(true);
        there.peer.setSilent(true);
        // Here two failures by NAK, there three.
        here.manager->sendGetVersionCommand();
        QVERIFY(here.nakFrames(1, 2));
        there.manager->sendGetCalDataCommand();
        QVERIFY(there.nakFrames(1, 3));
        QElapsedTimer clock;
        clock.start();

        // 5 s of silence after the last resend: the third failure resends here, the fourth gives up there.
        QVERIFY(here.waitForFrames(4, 8000));
        QVERIFY2(clock.elapsed() >= 4500, qPrintable(QString("resent after %1 ms").arg(clock.elapsed())));
        QVERIFY(QTest::qWaitFor([&] { return there.failed == 1; }, 3000));
        QVERIFY2(clock.elapsed() >= 4500, qPrintable(QString("gave up after %1 ms").arg(clock.elapsed())));
        QCOMPARE(here.failed, 0);
        QVERIFY(here.send(nak(4))); // here the fourth failure
        QCOMPARE(here.failed, 1);

        // Another timer period: nothing more on either line (a frame would end the wait early).
        QVERIFY(!QTest::qWaitFor(
            [&] {
                return here.host.size() > frame(4, "SV").size() * 4 ||
                       there.host.size() > frame(4, "SRC").size() * 4;
            },
            5500));
        QCOMPARE(here.host, frame(4, "SV").repeated(4));
        QCOMPARE(there.host, frame(4, "SRC").repeated(4));
        QCOMPARE(here.failed, 1);
        QCOMPARE(there.failed, 1);
    }
};

QTEST_GUILESS_MAIN(TestPowerBoardTimeout)
#include "tst_powerboard_timeout.moc"
