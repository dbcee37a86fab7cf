// The instrument's power cut at a GPIO line change (sim/instrument/PowerCut.h) and its control file.
#include "Instrument.h"

#include <QtTest>

#include <cerrno>

class LineCutTest : public QObject
{
    Q_OBJECT

private slots:
    // Armed with N: N changes are made, the next and every later one are refused and reach no line.
    void cutAfterN_data()
    {
        QTest::addColumn<int>("after");
        QTest::newRow("at the first change") << 0;
        QTest::newRow("after one") << 1;
        QTest::newRow("after five") << 5;
    }

    void cutAfterN()
    {
        QFETCH(int, after);
        sim::Instrument instrument;
        sim::PowerCut& cut = instrument.powerCut();
        QCOMPARE(cut.write("after " + std::to_string(after) + "\n"), 0);
        QCOMPARE(cut.text(), "changes 0\narmed " + std::to_string(after) + "\n");
        for (int i = 0; i < after; ++i)
            QVERIFY(cut.lineChange());
        QVERIFY(!cut.isOff());
        QVERIFY(!cut.lineChange());
        QVERIFY(!cut.lineChange());
        QVERIFY(cut.isOff());
        QCOMPARE(cut.text(), "changes " + std::to_string(after) + "\ncut " + std::to_string(after) + "\n");
        // Disarming does not bring the power back; a reset of the instrument does.
        QCOMPARE(cut.write("off"), 0);
        QVERIFY(!cut.lineChange());
        instrument.reset();
        QVERIFY(cut.lineChange());
        QCOMPARE(cut.text(), std::string("changes 1\n"));
    }

    void badControlText_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("empty") << "";
        QTest::newRow("no number") << "after";
        QTest::newRow("not a number") << "after ten";
        QTest::newRow("other word") << "at 5";
        QTest::newRow("negative") << "after -1";
    }

    void badControlText()
    {
        QFETCH(QString, text);
        sim::PowerCut cut;
        QCOMPARE(cut.write(text.toStdString()), -EINVAL);
        QCOMPARE(cut.text(), std::string("changes 0\n")); // nothing armed
    }

    // The cut is a control file of the instrument, listed in its help (the GPIO files' writes through it
    // are checked on the virtual instrument by tst_powercut).
    void listedInHelp()
    {
        sim::Instrument instrument;
        QVERIFY(instrument.control().listing().find("cut  (read/write)  line changes since reset") !=
                std::string::npos);
    }
};

QTEST_GUILESS_MAIN(LineCutTest)
#include "tst_linecut.moc"
