// PicProgrammer and UpdaterProgressScreen::updatePic against the simulated PIC18F4620: the product's own
// sysfs file operations reach the model through the instrument's GPIO file system. Runs inside
// sim/sandbox --instrument --instrument-arg --pic; HEX files are made at test time by gpasm and srec_cat.

#include "PicProgrammer.h"
#include "UpdaterProgressScreen.h"

#include "../support/SimInstrument.h"
#include "../support/TestFiles.h"

#include <QtTest>

#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTextEdit>

#include <limits>

using namespace testfiles;

namespace {

const int FLASH_SIZE = 0x10000;
const int CONFIG_SIZE = 14;
const QByteArray BLANK(FLASH_SIZE, '\xff');

// Direction and level ("out 0", "in 1") of lines 2..6: PGD, MCLR, PGC, power, PGM.
QStringList lineStates()
{
    const QString text = QString::fromLatin1(siminstrument::read("lines"));
    QStringList states;
    for (int gpio = 2; gpio <= 6; ++gpio)
        states << QRegularExpression(QString("(?m)^%1 (\\w+ [01])").arg(gpio)).match(text).captured(1);
    return states;
}

// The lines once the programmer's power timer has reset the PIC and let MCLR go to its pull-up, PGM left
// high: the chip is in programming mode.
const QStringList RELEASED{"out 0", "in 1", "out 0", "out 1", "out 1"};

QByteArray bytes(int n, int seed)
{
    QByteArray data;
    for (int i = 0; i < n; ++i)
        data.append(char((seed + i * 29) & 0xFF));
    return data;
}

// What programming the file leaves in a blank chip's flash and configuration, read independently of the
// product: data records that end below 0xFFFE go to flash, those from 0x300000..0x30000C to the
// configuration bytes; nothing else is written.
std::pair<QByteArray, QByteArray> expectedAfter(const QByteArray& hex)
{
    QByteArray flash = BLANK, config(CONFIG_SIZE, '\xff');
    quint32 upper = 0;
    for (const QByteArray& line : hex.split('\n')) {
        const QByteArray raw = QByteArray::fromHex(line.trimmed().mid(1));
        if (raw.size() < 5)
            continue;
        const QByteArray data = raw.mid(4, quint8(raw[0]));
        const quint32 address = upper + quint32(quint8(raw[1]) << 8 | quint8(raw[2]));
        if (raw[3] == 4)
            upper = quint32(quint8(data[0]) << 8 | quint8(data[1])) << 16;
        else if (raw[3] != 0)
            continue;
        else if (address + quint32(data.size()) <= 0xFFFE)
            flash.replace(int(address), data.size(), data);
        else if (address >= 0x300000 && address <= 0x30000C)
            config.replace(int(address - 0x300000), data.size(), data).truncate(CONFIG_SIZE);
    }
    return {flash, config};
}

} // namespace

Q_DECLARE_METATYPE(PicProgrammer::PIC_DELAY)

class TestPicProgrammer : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        SIM_REQUIRE_INSTRUMENT("pic/flash");
        QVERIFY(m_dir.isValid());
        for (const char* tool : {"gpasm", "srec_cat"})
            QVERIFY2(
                !QStandardPaths::findExecutable(tool).isEmpty(),
                qPrintable(QString(tool) + " is missing (Debian gputils and srecord; scripts/setup.sh)"));
    }

    void init()
    {
        QVERIFY(siminstrument::write("pic/faults", "clear\ndevid 0x0C07\n"));
        QVERIFY(siminstrument::write("pic/flash", BLANK));
        QVERIFY(siminstrument::write("pic/config", QByteArray(CONFIG_SIZE, '\xff')));
        QVERIFY(siminstrument::write("pic/eeprom", QByteArray(1024, '\xff')));
        QVERIFY(siminstrument::write("pic/stats", "0"));
    }

    void delayMeetsItsMinimum_data()
    {
        using P = PicProgrammer;
        QTest::addColumn<P::PIC_DELAY>("delay");
        QTest::addColumn<qint64>("minimumNs");
        QTest::newRow("P9") << P::PIC_DELAY_P9 << qint64(1'000'000);
        QTest::newRow("P10") << P::PIC_DELAY_P10 << qint64(100'000);
        QTest::newRow("P11a") << P::PIC_DELAY_P11a << qint64(4'000'000);
        QTest::newRow("P11") << P::PIC_DELAY_P11 << qint64(5'000'000);
        QTest::newRow("P12u") << P::PIC_DELAY_P12u << qint64(6'000'000);
        QTest::newRow("P12d") << P::PIC_DELAY_P12d << qint64(6'000'000);
        QTest::newRow("P15") << P::PIC_DELAY_P15 << qint64(1'500);
        QTest::newRow("25, not named") << P::PIC_DELAY(25) << qint64(1'000);
    }

    void delayMeetsItsMinimum()
    {
        QFETCH(PicProgrammer::PIC_DELAY, delay);
        QFETCH(qint64, minimumNs);
        PicProgrammer pic;
        QElapsedTimer clock;
        clock.start();
        pic.vGeneralDelay(delay);
        QVERIFY2(clock.nsecsElapsed() >= minimumNs,
                 qPrintable(QString("after %1 ns").arg(clock.nsecsElapsed())));
    }

    void constructionHoldsResetAndDestructionCutsPower()
    {
        // Powered, held in reset, low-voltage programming off, PGC and PGD low.
        auto pic = std::make_unique<PicProgrammer>();
        QCOMPARE(lineStates(), (QStringList{"out 0", "out 0", "out 0", "out 1", "out 0"}));
        QCOMPARE(picStat("programming_mode"), 0);
        QVERIFY2(released(), qPrintable(lineStates().join(", ")));
        QCOMPARE(picStat("programming_mode"), 1);
        pic.reset();
        QCOMPARE(lineStates()[3], QString("out 0"));
    }

    void deviceIdReadBackAndName_data()
    {
        QTest::addColumn<quint16>("id");
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("valid");
        QTest::newRow("4620") << quint16(0x0C07) << "PIC18F4620 version 7" << true;
        QTest::newRow("4680") << quint16(0x0E81) << "PIC18F4680 version 1" << false;
        QTest::newRow("4682") << quint16(0x2742) << "PIC18F4682 version 2" << false;
        QTest::newRow("4685") << quint16(0x2765) << "PIC18F4685 version 5" << false;
        QTest::newRow("unknown") << quint16(0x1234) << "Unknown PIC: 4660" << false;
    }

    void deviceIdReadBackAndName()
    {
        QFETCH(quint16, id);
        QFETCH(QString, name);
        QFETCH(bool, valid);
        QVERIFY(siminstrument::write("pic/faults", "devid " + QByteArray::number(id)));
        PicProgrammer pic;
        QCOMPARE(pic.u16ReadPic(), id);
        QCOMPARE(picStat("command_9"), 18); // two ID bytes and 16 configuration bytes
        QString* text = pic.pGetPicIdStr(id);
        QCOMPARE(*text, name);
        QCOMPARE(pic.u8ValidPicId(id), quint8(valid));
        QCOMPARE(pic.pGetPicIdStr(0x0C07), text); // one buffer, overwritten by every call
    }

    void eepromRoundTrip()
    {
        QByteArray eeprom = QByteArray(1024, '\xff').replace(0x155, 1, "\x77");
        QVERIFY(siminstrument::write("pic/eeprom", eeprom));
        auto pic = std::make_unique<PicProgrammer>();
        QVERIFY(released());
        QCOMPARE(pic->u8ReadPicEeprom(0x155), quint8(0x77));
        pic->vWritePicEeprom(0x3FF, 0xA5);
        pic->vWritePicEeprom(0x000, 0x3C);
        QCOMPARE(pic->u8ReadPicEeprom(0x3FF), quint8(0xA5));
        // Both written, nothing else.
        QCOMPARE(siminstrument::read("pic/eeprom"), eeprom.replace(0x3FF, 1, "\xa5").replace(0, 1, "\x3c"));
    }

    void programRecords_data()
    {
        QTest::addColumn<QByteArray>("hex");
        QTest::addColumn<bool>("programmed");
        QTest::addColumn<int>("at"); // in flash, with the configuration bytes following at 0x10000
        QTest::addColumn<QByteArray>("expected");
        QTest::addColumn<QString>("counters"); // model counters the run must leave

        const auto hex = &QByteArray::fromHex;
        QTest::newRow("odd address: first word completed from flash, only the record verified")
            << hexRecord(0x0011, hex("a1b2c3")) + hexEnd << true << 0x0F << hex("ff5aa1b2c3ff")
            << "rows_written 1, command_D 1, command_F 1, command_9 4";
        QTest::newRow("odd length: last word completed from the byte after it")
            << hexRecord(0x0020, hex("0102030405")) + hexEnd << true << 0x20 << hex("0102030405ff")
            << "rows_written 1, command_9 6";
        QTest::newRow("record across a row boundary is split at it")
            << hexRecord(0x0038, bytes(16, 7)) + hexEnd << true << 0x38 << bytes(16, 7)
            << "rows_written 2, command_D 6, command_F 2, command_9 16";
        QTest::newRow("record ending right below 0xFFFE is flash")
            << hexRecord(0xFFEE, bytes(16, 8)) + hexEnd << true << 0xFFEE << bytes(16, 8) + "\xff\xff"
            << "rows_written 1";
        QTest::newRow("records at 0xFFFE/0xFFFF, above flash, ID, above 0x30000C and EEPROM are skipped")
            << hexRecord(0xFFF0, bytes(16, 1)) + hexRecord(0xFFFE, bytes(1, 2)) +
                   hexRecord(0, hex("0001"), 4) + hexRecord(0x0000, bytes(16, 3)) +
                   hexRecord(0, hex("0020"), 4) + hexRecord(0x0000, bytes(8, 4)) +
                   hexRecord(0, hex("0030"), 4) + hexRecord(0x000D, bytes(1, 5)) +
                   hexRecord(0, hex("00F0"), 4) + hexRecord(0x0000, bytes(16, 6)) + hexEnd
            << true << 0 << QByteArray() << "clocks 0, mode_entries 0";
        QTest::newRow("record at 0xFFFFFFFE whose end wraps past 32 bits is skipped, reset vector untouched")
            << QByteArray(":02000004FFFFFC\n:04FFFE00DEADBEEFC7\n") + hexEnd << true << 0 << hex("ffffffff")
            << "clocks 0, mode_entries 0";
        QTest::newRow("14 configuration bytes after an extended address, not verified")
            << hexRecord(0, hex("0030"), 4) + hexRecord(0x0000, bytes(CONFIG_SIZE, 0x40)) + hexEnd << true
            << 0x10000 << bytes(CONFIG_SIZE, 0x40) << "config_writes 14, command_9 0";
        QTest::newRow("configuration record from 0x30000C: two of four bytes fit")
            << hexRecord(0, hex("0030"), 4) + hexRecord(0x000C, hex("11223344")) + hexEnd << true << 0x1000C
            << hex("1122") << "config_writes 2";

        QTest::newRow("wrong checksums on every line still program")
            << hexRecord(0x0100, bytes(16, 1), 0, 0x5A) + hexRecord(0x0110, bytes(16, 2), 0, 1) +
                   ":00000001FE\n"
            << true << 0x100 << bytes(16, 1) + bytes(16, 2) << "rows_written 2";
        QByteArray seeded(0xA00, Qt::Uninitialized);
        QRandomGenerator generator(13);
        std::generate(seeded.begin(), seeded.end(), [&] { return char(generator.bounded(256)); });
        const QString binary = m_dir.filePath("random.bin");
        writeFile(binary, seeded);
        const QByteArray random = run("srec_cat", {binary, "-binary", "-offset", "0x0100", "-o", "-",
                                                   "-intel", "-output_block_size=13"})
                                      .out.toLatin1();
        QTest::newRow("random image in 13-byte records: odd addresses and lengths, rows split")
            << random << true << 0x100 << expectedAfter(random).first.mid(0x100, 0xA00) << "";

        QTest::newRow("record longer than the 100-byte buffer fails the run before it is written")
            << hexRecord(0x0100, bytes(16, 1)) + hexRecord(0x0200, bytes(128, 2)) +
                   hexRecord(0x0400, bytes(16, 3)) + hexEnd
            << false << 0x100 << bytes(16, 1) + QByteArray(0x300, '\xff') << "rows_written 1";
        QTest::newRow("stuck bit fails the verify at that byte and stops the run")
            << hexRecord(0x0C40, QByteArray(16, '\0')) + hexRecord(0x0C80, bytes(16, 9)) + hexEnd << false
            << 0x0C40 << hex("00000000000100000000000000000000") + QByteArray(0x50, '\xff') << "command_9 6";
    }

    void programRecords()
    {
        QFETCH(QByteArray, hex);
        QFETCH(bool, programmed);
        QFETCH(int, at);
        QFETCH(QByteArray, expected);
        QFETCH(QString, counters);
        // The chip as every case finds it: 0x5A at 0x0010, which an odd record's first word must keep, and
        // bit 0 of 0x0C45 stuck high.
        QVERIFY(siminstrument::write("pic/flash", QByteArray(BLANK).replace(0x10, 1, "\x5a")));
        QVERIFY(siminstrument::write("pic/faults", "stuck 0x0C45 0x01"));
        const QString file = m_dir.filePath("record.hex");
        writeFile(file, hex);

        auto pic = std::make_unique<PicProgrammer>();
        QVERIFY(released());
        QSignalSpy progress(pic.get(), SIGNAL(lineProgrammed(int)));
        QVERIFY(siminstrument::write("pic/stats", "0"));
        pic->programPic(file);
        QVERIFY(pic->isFinished());
        QCOMPARE(pic->isProgrammed(), programmed);

        const QByteArray memory = siminstrument::read("pic/flash") + siminstrument::read("pic/config");
        QCOMPARE(memory.mid(at, expected.size()), expected);
        for (const QString& counter :
             (counters + ", timing_violations 0, protocol_errors 0").split(", ", Qt::SkipEmptyParts)) {
            const QString name = counter.section(' ', 0, 0);
            QCOMPARE(name + ' ' + QString::number(picStat(name)), counter);
        }
        // Progress is emitted only when the whole percentage changes, never 0 first, and ends where the
        // file's byte count puts it.
        int last = 0;
        for (const QList<QVariant>& args : progress) {
            QVERIFY2(args.at(0).toInt() > last, "percentages must rise, starting above 0");
            last = args.at(0).toInt();
        }
        if (programmed)
            QCOMPARE(last, finalPercent(hex));
    }

    void missingFileReturnsFailureWithoutTouchingPins()
    {
        UpdaterProgressScreen screen;
        const QByteArray before = siminstrument::read("stats");
        QCOMPARE(screen.updatePic(1, "/pic/missing.hex"), -1);
        QCOMPARE(siminstrument::read("stats"), before);
        QCOMPARE(picStat("line_events"), 0);
    }

    void eraseErrorShowsRedLineAndFails()
    {
        QVERIFY(siminstrument::write("pic/faults", "nonblank 0x0405 0x00"));
        writeFile("/tmp/firmware_update/pic/erase.hex", hexRecord(0x0000, bytes(16, 1)) + hexEnd);
        UpdaterProgressScreen screen;
        QTextEdit* view = screen.findChild<QTextEdit*>("progressMessageWindow");
        QVERIFY(view);
        QCOMPARE(screen.updatePic(2, "/pic/erase.hex"), -1);
        // Two blocks were blank (0% then 1%), the third is not: the view ends with the red paragraph.
        QCOMPARE(view->toPlainText().section('\n', -3), QString("Erasing PIC: \n1%\nPIC Erase Error "));
        QVERIFY(view->toHtml().contains("color:#ff0000;\">PIC Erase Error </span></p></body>"));
        QCOMPARE(picStat("rows_written"), 0);
        QCOMPARE(picStat("bulk_erases"), 5);
    }

    void eraseClearsFlashBlockByBlock()
    {
        QVERIFY(siminstrument::write("pic/flash", bytes(FLASH_SIZE, 0))); // old contents everywhere
        const QByteArray eeprom = bytes(1024, 3);
        QVERIFY(siminstrument::write("pic/eeprom", eeprom));

        auto pic = std::make_unique<PicProgrammer>();
        QVERIFY(released());
        QSignalSpy next(pic.get(), SIGNAL(eraseNextBlock(int)));
        QSignalSpy done(pic.get(), SIGNAL(eraseDone()));
        pic->ev_pic_begin_erase();
        // Finished here only by an erase error; the erase advances by posted events. A loaded machine reads
        // the 64 KB slowly: the time limit is the test function's.
        QVERIFY(QTest::qWaitFor([&] { return !done.isEmpty() || pic->isFinished(); },
                                std::numeric_limits<int>::max()));
        QVERIFY(!pic->isFinished());
        QCOMPARE(done.count(), 1);
        QCOMPARE(next.count(), 127);
        QCOMPARE(next.first().at(0).toInt(), 0);
        QCOMPARE(next.last().at(0).toInt(), 99);
        QCOMPARE(siminstrument::read("pic/flash"), BLANK);
        QCOMPARE(siminstrument::read("pic/eeprom"), eeprom);
        QCOMPARE(picStat("bulk_erases"), 5);
        QCOMPARE(picStat("timing_violations"), 0);
    }

    void updatePicProgramsAssembledImage()
    {
        const QString out = m_dir.filePath("app.hex");
        const QString source = PROJECT_SOURCE_DIR "/tests/pic/data/app.asm";
        QCOMPARE(run("gpasm", {"-q", "-p18f4620", "-o", out, source}).exitCode, 0);
        const QByteArray hex = readAll(out);
        writeFile("/tmp/firmware_update/pic/app.hex", hex);
        // Records at the top of flash, in the configuration and in the EEPROM.
        for (const char* record : {":10FFF000", ":020000040030CA", ":0200000400F00A"})
            QVERIFY2(hex.contains(record), record);
        QVERIFY(siminstrument::write("pic/flash", QByteArray(FLASH_SIZE, '\0')));
        const QByteArray eeprom = siminstrument::read("pic/eeprom");
        UpdaterProgressScreen screen;
        QTextEdit* view = screen.findChild<QTextEdit*>("progressMessageWindow");
        QVERIFY(view);
        view->append("Updating PIC 7 with file: /pic/app.hex");
        QCOMPARE(screen.updatePic(7, "/pic/app.hex"), 0); // the PIC number has no effect

        const auto [flash, config] = expectedAfter(hex);
        QCOMPARE(siminstrument::read("pic/flash"), flash);
        QCOMPARE(siminstrument::read("pic/config"), config);
        QCOMPARE(siminstrument::read("pic/eeprom"), eeprom);
        QCOMPARE(config.mid(1, 3), QByteArray::fromHex("021e1e")); // as assembled, not just as parsed here

        // Exactly one percentage line under each heading, updated in place.
        const QStringList lines = view->toPlainText().split('\n');
        const QRegularExpression percent("^(\\d+)% ?$");
        QCOMPARE(
            lines.mid(lines.indexOf("Erasing PIC: ")),
            (QStringList{"Erasing PIC: ", "99%", "PIC Erase Complete", "Programming PIC: ", lines.last()}));
        QCOMPARE(percent.match(lines.last()).captured(1).toInt(), finalPercent(hex));
        QCOMPARE(lines.filter(percent).size(), 2);
        QCOMPARE(picStat("timing_violations"), 0);
        QCOMPARE(picStat("protocol_errors"), 0);
        QCOMPARE(lineStates()[3], QString("out 0")); // power cut when the programmer went
    }

private:
    static qint64 picStat(const QString& name) { return siminstrument::counter("pic/stats", name); }
    // Whether the programmer's power timer has released the PIC, which comes up in programming mode.
    static bool released()
    {
        return QTest::qWaitFor([] { return lineStates() == RELEASED; }, 10000);
    }
    // The percentage programPic reaches at the end of a file it programs whole: every line counts its length
    // with the newline, plus one, against the file's size, in whole percent. Above 100 by design.
    static int finalPercent(const QByteArray& f) { return int(100 * (f.size() + f.count('\n')) / f.size()); }

    QTemporaryDir m_dir;
};

QTEST_MAIN(TestPicProgrammer)
#include "tst_pic_programmer.moc"
