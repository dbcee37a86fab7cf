// The ESA board loader of the progress screen against the simulated boards on /dev/ttyS1 (sim-instrument
// --serial esa): what each board's boot loader received and stored, block by block, with the loader's
// switch opened through the test-only access header; and the loader as shipped, switched off.
#include "UpdaterProgressScreen.h"

#include "../support/EsaLoaderAccess.h"
#include "../support/SimInstrument.h"

#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTextBlock>
#include <QTextEdit>
#include <QThread>
#include <QTimer>
#include <QtTest>

#include <functional>

namespace {

// ---- debug output of the loader --------------------------------------------------------------------

QStringList g_messages;
QtMessageHandler g_previousHandler = nullptr;

void captureMessages(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    g_messages << message;
    if (type != QtDebugMsg) // the loader's own chatter stays out of the test report
        g_previousHandler(type, context, message);
}

// The hex texts of every "unknown received" message so far ("" for an empty read).
QStringList unknownReceived()
{
    QStringList found;
    for (const QString& message : qAsConst(g_messages)) {
        if (message.startsWith("unknown received:"))
            found << message.section('"', 1, 1);
    }
    return found;
}

// ---- the simulated boards ----------------------------------------------------------------------------

// What one board heard from the host, one protocol unit per entry: "42 [boot]", "32 [flash]",
// "01 00 ff ... [block 0 ok]", "04 [eot]".
QStringList hostUnits(const QString& board)
{
    QStringList units;
    for (const QString& line : siminstrument::lines("esa/log")) {
        if (line.startsWith(board + " < "))
            units << line.mid(board.size() + 3);
    }
    return units;
}

QStringList packets(const QString& board)
{
    return hostUnits(board).filter(QRegularExpression("^01 .*\\[block "));
}

QString verdict(const QString& unit)
{
    return unit.section('[', -1).chopped(1);
}

int byteAt(const QString& unit, int offset)
{
    return unit.section(' ', offset, offset).toInt(nullptr, 16);
}

QString boardName(UpdaterProgressScreen::ESA_BOARD_ID board)
{
    return board == UpdaterProgressScreen::IO ? "io" : "measurement";
}

QString memoryName(UpdaterProgressScreen::ESA_UPDATE_TYPE type)
{
    return type == UpdaterProgressScreen::APP ? "flash" : "eeprom";
}

bool setFaults(const QString& board, const QByteArray& faults)
{
    return siminstrument::write("esa/" + board + "/faults", faults);
}

// ---- images and waiting ------------------------------------------------------------------------------

QByteArray randomImage(int size, quint32 seed)
{
    QRandomGenerator random(seed);
    QByteArray image(size, Qt::Uninitialized);
    for (char& byte : image)
        byte = char(random.bounded(256));
    return image;
}

// Whole blocks as the boards store them: the last one filled up with 0x1A.
QByteArray padded(const QByteArray& image)
{
    const int blocks = (image.size() + 127) / 128;
    return image + QByteArray(blocks * 128 - image.size(), '\x1A');
}

// The image as the loader finds it: "/tmp/firmware_update" followed by the command's argument.
QString putImage(const QString& argument, const QByteArray& image)
{
    const QString path = "/tmp/firmware_update" + argument;
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(image) != image.size())
        qFatal("cannot write the image %s", qPrintable(path));
    return argument;
}

// Keeps the event loop running (the board's late answers reach the screen) until done() or the time-out.
bool waitFor(const std::function<bool()>& done, int timeoutMs = 5000)
{
    QElapsedTimer clock;
    clock.start();
    while (!done()) {
        if (clock.elapsed() > timeoutMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(1);
    }
    return true;
}

void settle(int ms)
{
    waitFor([] { return false; }, ms);
}

// A load ends on the host when EOT is written; the boards' record is complete once it has arrived.
bool eotArrived(const QString& board)
{
    return waitFor([&] {
        const QStringList units = hostUnits(board);
        return !units.isEmpty() && units.last() == "04 [eot]";
    });
}

QTextEdit* view(UpdaterProgressScreen& screen)
{
    return screen.findChild<QTextEdit*>("progressMessageWindow");
}

// Each non-empty paragraph of the view with its colour, trimmed: "red: text" or "plain: text".
QStringList paragraphs(QTextEdit* edit)
{
    QStringList out;
    for (QTextBlock block = edit->document()->begin(); block.isValid(); block = block.next()) {
        const QString text = block.text().trimmed();
        if (text.isEmpty())
            continue;
        const bool red = block.begin().fragment().charFormat().foreground().color() == Qt::red;
        out << QString(red ? "red: " : "plain: ") + text;
    }
    return out;
}

bool lineExported(int line)
{
    return !siminstrument::lines("lines").filter(QRegularExpression(QString("^%1 ").arg(line))).isEmpty();
}

const UpdaterProgressScreen::ESA_BOARD_ID IO = UpdaterProgressScreen::IO;
const UpdaterProgressScreen::ESA_BOARD_ID MEASUREMENT = UpdaterProgressScreen::MEASUREMENT;
const UpdaterProgressScreen::ESA_UPDATE_TYPE APP = UpdaterProgressScreen::APP;
const UpdaterProgressScreen::ESA_UPDATE_TYPE EEP = UpdaterProgressScreen::EEP;

// CRC-16/XMODEM written as the division of the message polynomial, bit by bit: the reference for calcrc.
quint16 referenceCrc(const QByteArray& data)
{
    quint32 crc = 0;
    for (unsigned char byte : data) {
        for (int bit = 7; bit >= 0; --bit) {
            const bool top = ((crc >> 15) & 1) != (((byte >> bit) & 1) != 0);
            crc = (crc << 1) & 0xFFFF;
            if (top)
                crc ^= 0x1021;
        }
    }
    return quint16(crc);
}

} // namespace

Q_DECLARE_METATYPE(UpdaterProgressScreen::ESA_BOARD_ID)
Q_DECLARE_METATYPE(UpdaterProgressScreen::ESA_UPDATE_TYPE)

class EsaTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        SIM_REQUIRE_INSTRUMENT();
        if (!QFile::exists(siminstrument::controlPath("esa/log")))
            QFAIL("the simulated instrument has no ESA boards: start it with --serial esa");
        g_previousHandler = qInstallMessageHandler(captureMessages);
    }

    void init()
    {
        siminstrument::reset(); // boards back in their application, memories erased, no faults
        g_messages.clear();
        QDir("/tmp/firmware_update").removeRecursively();
    }

    void calcrcIsXmodemCrc()
    {
        UpdaterProgressScreen screen;
        char check[] = "123456789";
        QCOMPARE(quint16(screen.calcrc(check, 9)), quint16(0x31C3));
        QCOMPARE(screen.calcrc(check, 0), short(0));
        QCOMPARE(screen.calcrc(check, -3), short(0));
        QCOMPARE(quint16(screen.calcrc(check, 4)), referenceCrc("1234")); // exactly count bytes

        for (int i = 0; i < 200; ++i) {
            QByteArray block = randomImage(1 + i % 200, quint32(i));
            const short crc = screen.calcrc(block.data(), block.size());
            QCOMPARE(quint16(crc), referenceCrc(block));
            // The packet's high byte comes from the signed result.
            QCOMPARE((crc >> 8) & 0xFF, referenceCrc(block) >> 8);
        }
    }

    void calcrcAgreesWithPythonBinascii()
    {
        QProcess python;
        python.start("python3", {"-c", "import sys, binascii\n"
                                       "for line in sys.stdin:\n"
                                       "    print(binascii.crc_hqx(bytes.fromhex(line.strip()), 0))\n"});
        if (!python.waitForStarted()) {
            if (qEnvironmentVariable("CI") == "true")
                QFAIL("python3 is needed as the independent CRC reference");
            QSKIP("python3 is not installed: no second CRC reference");
        }
        UpdaterProgressScreen screen;
        QList<quint16> ours;
        for (int i = 0; i < 100; ++i) {
            QByteArray block = randomImage(128, 1000u + quint32(i));
            ours << quint16(screen.calcrc(block.data(), block.size()));
            python.write(block.toHex() + "\n");
        }
        python.closeWriteChannel();
        QVERIFY(python.waitForFinished());
        const QList<QByteArray> theirs = python.readAllStandardOutput().split('\n');
        for (int i = 0; i < ours.size(); ++i)
            QCOMPARE(ours[i], quint16(theirs[i].toUInt()));
    }

    void imagesArriveIntact_data()
    {
        QTest::addColumn<int>("size");
        QTest::addColumn<UpdaterProgressScreen::ESA_BOARD_ID>("board");
        QTest::addColumn<UpdaterProgressScreen::ESA_UPDATE_TYPE>("type");
        QTest::newRow("empty, IO application") << 0 << IO << APP;
        QTest::newRow("1 byte, Measurement EEPROM") << 1 << MEASUREMENT << EEP;
        QTest::newRow("one whole block, IO EEPROM") << 128 << IO << EEP;
        QTest::newRow("a block and a byte, Measurement application") << 129 << MEASUREMENT << APP;
        QTest::newRow("257 blocks (numbers wrap), IO application") << 128 * 256 + 5 << IO << APP;
    }

    void imagesArriveIntact()
    {
        QFETCH(int, size);
        QFETCH(UpdaterProgressScreen::ESA_BOARD_ID, board);
        QFETCH(UpdaterProgressScreen::ESA_UPDATE_TYPE, type);
        const QByteArray image = randomImage(size, quint32(size));
        const QString name = boardName(board);
        const QString other = boardName(board == IO ? MEASUREMENT : IO);
        const QString otherMemory = memoryName(type == APP ? EEP : APP);

        UpdaterProgressScreen screen;
        esaaccess::setAvrUpdateEnabled(screen, true);
        QCOMPARE(screen.updateESA(putImage("/esa/image.bin", image), board, type), 0);
        QVERIFY(eotArrived(name));

        QCOMPARE(siminstrument::read("esa/" + name + "/" + memoryName(type)), padded(image));
        QVERIFY(siminstrument::read("esa/" + name + "/" + otherMemory).isEmpty());
        QVERIFY(hostUnits(other).isEmpty());

        // The select line is an output at the board's level; then "B", the memory, the blocks, EOT.
        QVERIFY(siminstrument::read("lines").contains(board == IO ? "3 out 0" : "3 out 1"));
        const QStringList units = hostUnits(name);
        QCOMPARE(units.mid(0, 2), (QStringList{"42 [boot]", type == APP ? "32 [flash]" : "33 [eeprom]"}));
        QCOMPARE(units.last(), QString("04 [eot]"));
        const QStringList sent = packets(name);
        QCOMPARE(units.size(), sent.size() + 3); // nothing else went over the line
        QCOMPARE(sent.size(), (size + 127) / 128);
        for (int i = 0; i < sent.size(); ++i) {
            QCOMPARE(verdict(sent[i]), QString("block %1 ok").arg(i));
            QCOMPARE(byteAt(sent[i], 1), i % 256); // from 0, 255 followed by 0
            QCOMPARE(byteAt(sent[i], 2), 255 - i % 256);
        }
        QVERIFY(g_messages.contains("ESA programming finished"));
    }

    void secondLoadToABoardSendsNoBootRequest()
    {
        const QByteArray app = randomImage(300, 1), eep = randomImage(40, 2), other = randomImage(129, 3);
        UpdaterProgressScreen screen;
        esaaccess::setAvrUpdateEnabled(screen, true);
        QCOMPARE(screen.updateESA(putImage("/io.bin", app), IO, APP), 0);
        QVERIFY(eotArrived("io"));
        QCOMPARE(screen.updateESA(putImage("/io.eep", eep), IO, EEP), 0);
        QVERIFY(waitFor([] { return hostUnits("io").filter("[eot]").size() == 2; }));
        // The other board has its own flag: it gets its "B".
        QCOMPARE(screen.updateESA(putImage("/m.bin", other), MEASUREMENT, APP), 0);
        QVERIFY(eotArrived("measurement"));

        const QStringList io = hostUnits("io");
        QCOMPARE(io.filter("[boot").size(), 1);
        QCOMPARE(io.first(), QString("42 [boot]"));
        QCOMPARE(io.at(io.indexOf("04 [eot]") + 1), QString("33 [eeprom]"));
        QCOMPARE(hostUnits("measurement").mid(0, 2), (QStringList{"42 [boot]", "32 [flash]"}));
        QCOMPARE(siminstrument::read("esa/io/flash"), padded(app));
        QCOMPARE(siminstrument::read("esa/io/eeprom"), padded(eep));
        QCOMPARE(siminstrument::read("esa/measurement/flash"), padded(other));
    }

    void nakEndsTheLoad_data()
    {
        QTest::addColumn<int>("refused");
        QTest::newRow("first block") << 0;
        QTest::newRow("third block") << 2;
        QTest::newRow("last block") << 4;
    }

    void nakEndsTheLoad()
    {
        QFETCH(int, refused);
        QVERIFY(setFaults("io", "nak-at " + QByteArray::number(refused)));
        UpdaterProgressScreen screen;
        esaaccess::setAvrUpdateEnabled(screen, true);
        QCOMPARE(screen.updateESA(putImage("/io.bin", randomImage(5 * 128, 7)), IO, APP), -1);
        QVERIFY(g_messages.contains("ESA NACK received"));
        QVERIFY(!g_messages.contains("ESA programming finished"));

        settle(300); // anything the loader still sent would reach the board by now
        const QStringList units = hostUnits("io");
        QCOMPARE(packets("io").size(), refused + 1);
        QCOMPARE(units.last(), packets("io").last()); // no resend, no EOT after the refused block
        QCOMPARE(verdict(units.last()), QString("block %1 refused").arg(refused));
    }

    void boardReplyToEotIsUnknown()
    {
        UpdaterProgressScreen screen;
        esaaccess::setAvrUpdateEnabled(screen, true);
        QCOMPARE(screen.updateESA(putImage("/m.eep", "eeprom"), MEASUREMENT, EEP), 0);
        QVERIFY(unknownReceived().isEmpty()); // returned without waiting for the answer to EOT
        QVERIFY(waitFor([] { return unknownReceived().contains("06"); }));
        QCOMPARE(siminstrument::lines("esa/log").last(), QString("measurement > 06"));
    }

    // Every call adds a readyRead() connection. The boards answer EOT here with 00, then 06 alone 5 ms
    // later, when the load has long returned and nothing else is under way: the first run for that
    // notification reads it, each further run reads nothing.
    void repeatedCallsAddConnectionsWithoutHarm()
    {
        const QList<QByteArray> images = {randomImage(1000, 11), randomImage(600, 12), randomImage(129, 13)};
        const QList<UpdaterProgressScreen::ESA_BOARD_ID> boards = {IO, IO, MEASUREMENT};
        const QList<UpdaterProgressScreen::ESA_UPDATE_TYPE> types = {APP, EEP, EEP};
        for (const char* board : {"io", "measurement"})
            QVERIFY(setFaults(board, "split\neot-reply 00 06"));
        UpdaterProgressScreen screen;
        esaaccess::setAvrUpdateEnabled(screen, true);
        for (int call = 1; call <= 3; ++call) {
            g_messages.clear();
            const QString argument = putImage(QString("/image%1.bin").arg(call), images[call - 1]);
            QCOMPARE(screen.updateESA(argument, boards[call - 1], types[call - 1]), 0);
            QVERIFY(waitFor([] { return !unknownReceived().filter(QRegularExpression("06$")).isEmpty(); }));
            settle(50);
            const QStringList unknown = unknownReceived();
            QStringList expected{unknown.filter(QRegularExpression("06$")).last()};
            while (expected.size() < call)
                expected << "";
            QVERIFY2(unknown.mid(unknown.lastIndexOf(expected.first())) == expected,
                     qPrintable(QString("call %1: unknown received: %2").arg(call).arg(unknown.join(','))));
        }
        QCOMPARE(siminstrument::read("esa/io/flash"), padded(images[0]));
        QCOMPARE(siminstrument::read("esa/io/eeprom"), padded(images[1]));
        QCOMPARE(siminstrument::read("esa/measurement/eeprom"), padded(images[2]));
        QVERIFY(siminstrument::read("esa/io/counters").contains("blocks-refused=0\n"));
    }

    void splitRepliesAndStrayBytes_data()
    {
        QTest::addColumn<QByteArray>("faults");
        QTest::addColumn<QStringList>("unknown");
        QTest::newRow("stray bytes with each reply") << QByteArray("stray 55 aa") << QStringList{};
        QTest::newRow("every reply byte read alone") << QByteArray("split") << QStringList{};
        QTest::newRow("stray bytes read alone") << QByteArray("split\nstray 55") << QStringList{"55"};
    }

    void splitRepliesAndStrayBytes()
    {
        QFETCH(QByteArray, faults);
        QFETCH(QStringList, unknown);
        QVERIFY(setFaults("measurement", faults));
        const QByteArray image = randomImage(3 * 128 + 1, 5);
        UpdaterProgressScreen screen;
        esaaccess::setAvrUpdateEnabled(screen, true);
        QCOMPARE(screen.updateESA(putImage("/m.bin", image), MEASUREMENT, APP), 0);
        QVERIFY(eotArrived("measurement"));
        QCOMPARE(siminstrument::read("esa/measurement/flash"), padded(image));
        for (const QString& hex : unknown)
            QVERIFY2(unknownReceived().contains(hex), qPrintable(unknownReceived().join(',')));
    }

    void silentBoardKeepsTheLoadWaiting()
    {
        QVERIFY(setFaults("io", "silent-start"));
        UpdaterProgressScreen screen;
        esaaccess::setAvrUpdateEnabled(screen, true);
        QStringList heardWhileWaiting;
        bool checked = false;
        QTimer::singleShot(500, &screen, [&] {
            checked = true;
            heardWhileWaiting = hostUnits("io");
            esaaccess::abandonEsaLoad(screen); // the loader has no time-out of its own
        });
        QCOMPARE(screen.updateESA(putImage("/io.bin", "x"), IO, APP), -1);
        QVERIFY(checked);
        QCOMPARE(heardWhileWaiting, (QStringList{"42 [boot]", "32 [flash]"}));
    }

    void missingImageSendsNothing()
    {
        UpdaterProgressScreen screen;
        esaaccess::setAvrUpdateEnabled(screen, true);
        QCOMPARE(screen.updateESA("/absent.bin", IO, APP), -1);
        QCOMPARE(screen.updateESA("absent.bin", IO, APP), -1); // no separator is added
        QCOMPARE(g_messages.filter("Failed to find file:").size(), 2);
        QVERIFY(g_messages.last().contains("/tmp/firmware_updateabsent.bin"));
        settle(100);
        QVERIFY(siminstrument::read("esa/log").isEmpty());
        QVERIFY(!lineExported(3));
    }

    // As shipped the switch is off: every ESA line reports it and then its own failure, nothing reaches
    // the boards, and the update ends in the red failure line.
    void switchedOffAsShipped()
    {
        UpdaterProgressScreen screen;
        QVERIFY(!esaaccess::avrUpdateEnabled(screen));
        putImage("/io.bin", "image"); // present, but never looked at
        QTextEdit* edit = view(screen);
        edit->clear();
        QVERIFY(!screen.processCommandList(
            {"ESA_IO_APP:/io.bin", "ESA_M_APP:/io.bin", "ESA_IO_EEP:/io.bin", "xESA_M_EEPx:/io.bin"}));
        const QString off = "red: Failed - AVR updates not enabled";
        QCOMPARE(paragraphs(edit),
                 (QStringList{
                     "plain: Updating ESA IO Board Application with file: /io.bin",
                     off,
                     "red: Failed - Updating ESA IO Board Application with file: /io.bin",
                     "plain: Updating ESA Measurement Board Application with file: /io.bin",
                     off,
                     "red: Failed - Updating ESA Measurement Board Application with file: /io.bin",
                     "plain: Updating ESA IO Board EEPROM with file: /io.bin",
                     off,
                     "red: Failed - Updating ESA IO Board EEPROM with file: /io.bin",
                     "plain: Updating ESA Measurement Board EEPROM with file: /io.bin",
                     off,
                     "red: Failed - Updating ESA Measurement Board EEPROM with file: /io.bin",
                     "plain: Finalising update, please wait.",
                 }));
        QVERIFY(edit->toHtml().contains("Failed - AVR updates not enabled"));
        settle(100);
        QVERIFY(siminstrument::read("esa/log").isEmpty());
        QVERIFY(!lineExported(3));
        QVERIFY(g_messages.filter("Failed to find file").isEmpty());

        // A whole update from a package with an ESA line.
        QTemporaryDir work;
        QDir().mkpath(work.path() + "/firmware_update");
        QFile config(work.path() + "/firmware_update/update_config");
        QVERIFY(config.open(QIODevice::WriteOnly));
        config.write("ESA_M_APP:/m.bin\n");
        config.close();
        QCOMPARE(QProcess::execute("tar", {"-cjf", "/mnt/update/M_firmware_update.tar.bz2", "-C", work.path(),
                                           "firmware_update"}),
                 0);
        edit->clear();
        screen.performUpdate();
        const QStringList shown = paragraphs(edit);
        QVERIFY(shown.contains("red: Failed - Updating ESA Measurement Board Application with file: /m.bin"));
        QCOMPARE(shown.last(),
                 QString("red: Some of the updates failed, press F1 to return to the main screen"));
        QVERIFY(siminstrument::read("esa/log").isEmpty());
    }
};

QTEST_MAIN(EsaTest)
#include "tst_esa.moc"
