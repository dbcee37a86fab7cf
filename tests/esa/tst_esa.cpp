// The progress screen's ESA loader against the simulated boards on /dev/ttyS1 (sim-instrument --serial
// esa), switched on through the test-only access header; and as shipped, switched off.
#include "UpdaterProgressScreen.h"

#include "../support/DebugCapture.h"
#include "../support/EsaLoaderAccess.h"
#include "../support/SimInstrument.h"
#include "../support/TestFiles.h"

#include <QProcess>
#include <QRandomGenerator>
#include <QtTest>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

using Screen = UpdaterProgressScreen;

// Every debug message of the loader, kept out of the test report (made by initTestCase()).
static std::unique_ptr<DebugCapture> g_debug;

// The hex texts of every "unknown received" message so far ("" for an empty read).
const auto unknownReceived = [] {
    return g_debug->messages()
        .filter(QRegularExpression("^unknown received:"))
        .replaceInStrings(QRegularExpression(".*\"(.*)\""), "\\1");
};

// What one board heard, one unit per entry: "42 [boot]", "32 [flash]", "01 00 ff ... [block 0 ok]", "04
// [eot]".
const auto hostUnits = [](const QString& board) {
    return siminstrument::lines("esa/log")
        .filter(QRegularExpression("^" + board + " < "))
        .replaceInStrings(QRegularExpression("^\\w+ < "), "");
};

const auto randomImage = [](int size, quint32 seed) {
    QByteArray image;
    for (QRandomGenerator random(seed); image.size() < size;)
        image += char(random.bounded(256));
    return image;
};

// Whole blocks as the boards store them: the last one filled up with 0x1A.
const auto padded = [](const QByteArray& image) {
    return image + QByteArray((128 - image.size() % 128) % 128, '\x1A');
};

// A load ends on the host when EOT is written; the boards' record is complete once it has arrived.
const auto eotArrived = [](const QString& board) {
    return QTest::qWaitFor([&] { return hostUnits(board).filter("[eot]").size() == 1; }, 5000) &&
           hostUnits(board).last() == "04 [eot]";
};

// The boards' log of what they heard, then an empty line, once they heard a marker written now after all
// the screen sent: an ignored byte, then `last`.
const auto logAfterMarker = [](const QByteArray& last, const QString& logged) -> QStringList {
    QFile line("/dev/ttyS1");
    if (!line.open(QIODevice::WriteOnly | QIODevice::Unbuffered) || line.write("\x55" + last) != 2)
        return {"cannot write /dev/ttyS1"};
    const bool heard = QTest::qWaitFor(
        [&] {
            const QStringList log = siminstrument::lines("esa/log").filter(" < ");
            return log.size() >= 2 && log.last().endsWith(logged) &&
                   log.at(log.size() - 2).endsWith("< 55 [ignored]");
        },
        10000);
    return siminstrument::lines("esa/log").filter(" < ")
           << (heard ? QString() : "(the marker never reached the boards)");
};

// The boards heard only the marker, and the select line (GPIO 3) was never exported.
const auto nothingReachedTheBoards = [] {
    const QStringList log = logAfterMarker("B", "< 42 [boot]");
    return log.size() == 3 && log.at(1).endsWith("< 42 [boot]") &&
           siminstrument::lines("lines").filter(QRegularExpression("^3 ")).isEmpty();
};

using Load = std::tuple<int, Screen::ESA_BOARD_ID, Screen::ESA_UPDATE_TYPE>; // image size, board, memory
Q_DECLARE_METATYPE(Load)

class EsaTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<Screen> m_screen; // with the loader switched on

    int load(const QByteArray& image, Screen::ESA_BOARD_ID board, Screen::ESA_UPDATE_TYPE type)
    {
        // The loader looks for "/tmp/firmware_update" followed by the name it is given.
        testfiles::writeFile("/tmp/firmware_update/esa/image.bin", image);
        return m_screen->updateESA("/esa/image.bin", board, type);
    }

private slots:
    void initTestCase()
    {
        SIM_REQUIRE_INSTRUMENT();
        if (!QFile::exists(siminstrument::controlPath("esa/log")))
            QFAIL("the simulated instrument has no ESA boards: start it with --serial esa");
        g_debug = std::make_unique<DebugCapture>();
    }

    void cleanupTestCase() { g_debug.reset(); }

    void init()
    {
        siminstrument::reset(); // boards back in their application, memories erased, no faults
        g_debug->clear();
        QDir("/tmp/firmware_update").removeRecursively();
        m_screen = std::make_unique<Screen>();
        esaaccess::setAvrUpdateEnabled(*m_screen, true);
    }

    // CRC-16/XMODEM: the check value, 0 for no bytes, and blocks of 1 to 200 bytes (cut from longer
    // buffers) against Python's binascii.
    void calcrcIsXmodemCrc()
    {
        char check[] = "123456789";
        QCOMPARE(quint16(m_screen->calcrc(check, 9)), quint16(0x31C3));
        QCOMPARE(m_screen->calcrc(check, 0), short(0));
        QCOMPARE(m_screen->calcrc(check, -3), short(0));

        QProcess python;
        python.start("python3",
                     {"-c", "import sys, binascii\n"
                            "for line in sys.stdin: print(binascii.crc_hqx(bytes.fromhex(line), 0))"});
        if (!python.waitForStarted()) {
            if (qEnvironmentVariable("CI") == "true")
                QFAIL("python3 is needed as the independent CRC reference");
            QSKIP("python3 is not installed: no independent CRC reference");
        }
        QStringList ours;
        for (int count = 1; count <= 200; ++count) {
            QByteArray block = randomImage(200, quint32(count));
            ours << QString::number(quint16(m_screen->calcrc(block.data(), count)));
            python.write(block.left(count).toHex() + "\n");
        }
        python.closeWriteChannel();
        QVERIFY(python.waitForFinished());
        QCOMPARE(QString(python.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts), ours);
    }

    void imagesArriveIntact_data()
    {
        QTest::addColumn<Load>("row");
        QTest::newRow("empty, IO application") << Load{0, Screen::IO, Screen::APP};
        QTest::newRow("1 byte, Measurement EEPROM") << Load{1, Screen::MEASUREMENT, Screen::EEP};
        QTest::newRow("one whole block, IO EEPROM") << Load{128, Screen::IO, Screen::EEP};
        QTest::newRow("a block and a byte, Measurement application")
            << Load{129, Screen::MEASUREMENT, Screen::APP};
        QTest::newRow("257 blocks (numbers wrap), IO application")
            << Load{128 * 256 + 5, Screen::IO, Screen::APP};
    }

    void imagesArriveIntact()
    {
        QFETCH(Load, row);
        const auto [size, board, type] = row;
        const QByteArray image = randomImage(size, quint32(size));
        const bool io = board == Screen::IO, app = type == Screen::APP;
        const QString name = io ? "io" : "measurement", memory = app ? "flash" : "eeprom";

        QCOMPARE(load(image, board, type), 0);
        QVERIFY(unknownReceived().isEmpty()); // returned without waiting for the answer to EOT
        QVERIFY(eotArrived(name));
        QCOMPARE(siminstrument::read("esa/" + name + "/" + memory), padded(image));
        QVERIFY(siminstrument::read("esa/" + name + (app ? "/eeprom" : "/flash")).isEmpty());
        QVERIFY(hostUnits(io ? "measurement" : "io").isEmpty());

        // The select line is an output at the board's level; then "B", the memory, the blocks, EOT, and
        // nothing else. A block "01 nn ~nn ... [block i ok]" is compared without its data and CRC.
        QVERIFY(siminstrument::read("lines").contains(io ? "3 out 0" : "3 out 1"));
        QStringList units{"42 [boot]", app ? "32 [flash]" : "33 [eeprom]"};
        for (int i = 0; i < (size + 127) / 128; ++i) // numbered from 0, 255 followed by 0
            units << QString::asprintf("01 %02x %02x block %d ok]", i % 256, 255 - i % 256, i);
        QCOMPARE(hostUnits(name).replaceInStrings(QRegularExpression("^(01 .. ..) .*\\["), "\\1 "),
                 units << "04 [eot]");
        QVERIFY(g_debug->messages().contains("ESA programming finished"));
        // The board's answer to EOT comes later and is logged as unknown.
        QVERIFY(QTest::qWaitFor([] { return unknownReceived() == QStringList{"06"}; }, 5000));
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
        QVERIFY(siminstrument::write("esa/io/faults", "nak-at " + QByteArray::number(refused)));
        QCOMPARE(load(randomImage(5 * 128, 7), Screen::IO, Screen::APP), -1);
        QVERIFY(g_debug->messages().contains("ESA NACK received"));
        QVERIFY(!g_debug->messages().contains("ESA programming finished"));
        // No resend, no EOT after the refused block: the board hears the marker next.
        const QStringList log = logAfterMarker("\x04", "io < 04 [eot]");
        QCOMPARE(hostUnits("io").filter(QRegularExpression("^01 .*\\[block ")).size(), refused + 1);
        QVERIFY2(log.value(log.size() - 4).endsWith(QString("[block %1 refused]").arg(refused)),
                 qPrintable(log.join('\n')));
    }

    // Three loads on one screen: the IO board's second load sends no "B", the other board gets its own.
    // Every call adds a readyRead() connection; EOT is answered 00, then 06 alone 50 ms later.
    void repeatedLoadsOnOneScreen()
    {
        const QByteArray images[] = {randomImage(1000, 11), randomImage(600, 12), randomImage(129, 13)};
        const std::pair<Screen::ESA_BOARD_ID, Screen::ESA_UPDATE_TYPE> targets[] = {
            {Screen::IO, Screen::APP}, {Screen::IO, Screen::EEP}, {Screen::MEASUREMENT, Screen::EEP}};
        for (const char* board : {"io", "measurement"})
            QVERIFY(siminstrument::write(QString("esa/%1/faults").arg(board), "split\neot-reply 00 06"));
        for (int call = 0; call < 3; ++call) {
            g_debug->clear();
            QCOMPARE(load(images[call], targets[call].first, targets[call].second), 0);
            // One notification runs every handler at once: the first finds the 06, the others nothing.
            QVERIFY(QTest::qWaitFor(
                [] { return !unknownReceived().filter(QRegularExpression("06$")).isEmpty(); }, 5000));
            const QStringList unknown = unknownReceived();
            QStringList expected{unknown.filter(QRegularExpression("06$")).last()};
            while (expected.size() <= call)
                expected << "";
            QCOMPARE(unknown.mid(unknown.lastIndexOf(expected.first())), expected);
        }
        QCOMPARE(siminstrument::read("esa/io/flash"), padded(images[0]));
        QCOMPARE(siminstrument::read("esa/io/eeprom"), padded(images[1]));
        QCOMPARE(siminstrument::read("esa/measurement/eeprom"), padded(images[2]));
        const QRegularExpression rx("^(?!01 )"); // every unit the boards heard but the blocks
        QCOMPARE(hostUnits("io").filter(rx),
                 (QStringList{"42 [boot]", "32 [flash]", "04 [eot]", "33 [eeprom]", "04 [eot]"}));
        QCOMPARE(hostUnits("measurement").filter(rx), QStringList({"42 [boot]", "33 [eeprom]", "04 [eot]"}));
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
        QVERIFY(siminstrument::write("esa/measurement/faults", faults));
        const QByteArray image = randomImage(3 * 128 + 1, 5);
        QCOMPARE(load(image, Screen::MEASUREMENT, Screen::APP), 0);
        QVERIFY(eotArrived("measurement"));
        QCOMPARE(siminstrument::read("esa/measurement/flash"), padded(image));
        for (const QString& hex : unknown)
            QVERIFY2(unknownReceived().contains(hex), qPrintable(unknownReceived().join(',')));
    }

    // Replies still queued when the instrument is reset (40 pieces, 50 ms apart) never reach the line:
    // a reset leaves it silent, so nothing leaks into the next test.
    void resetSilencesTheLine()
    {
        QVERIFY(
            siminstrument::write("esa/measurement/faults", "split\nstray" + QByteArray(" 55").repeated(39)));
        const int tty = ::open("/dev/ttyS1", O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
        QVERIFY2(tty >= 0, "cannot open /dev/ttyS1");
        // Everything that arrives within ms, or only the first read's bytes.
        const auto readFor = [tty](int ms, bool firstOnly = false) {
            QByteArray got;
            QElapsedTimer clock;
            clock.start();
            pollfd ready{tty, POLLIN, 0};
            while (clock.elapsed() < ms && ::poll(&ready, 1, int(ms - clock.elapsed())) > 0) {
                char buf[256];
                const ssize_t n = ::read(tty, buf, firstOnly ? 1 : sizeof buf);
                if (n > 0)
                    got.append(buf, int(n));
                if (n <= 0 || firstOnly)
                    break;
            }
            return got;
        };
        const bool wrote = ::write(tty, "B2", 2) == 2; // the select line is undriven: the Measurement board
        const QByteArray first = readFor(5000, true);
        siminstrument::reset();
        const QByteArray after = readFor(500); // ten pieces' time
        ::close(tty);
        QVERIFY(wrote);
        QCOMPARE(first, QByteArray("\x55"));
        QCOMPARE(after.toHex(' '), QByteArray());
    }

    void missingImageSendsNothing()
    {
        QCOMPARE(m_screen->updateESA("/absent.bin", Screen::IO, Screen::APP), -1);
        QCOMPARE(m_screen->updateESA("absent.bin", Screen::IO, Screen::APP), -1); // no separator is added
        QCOMPARE(g_debug->messages().filter("Failed to find file:").size(), 2);
        QVERIFY(g_debug->messages().last().contains("/tmp/firmware_updateabsent.bin"));
        QVERIFY(nothingReachedTheBoards());
    }

    // As shipped the switch is off: ESA lines look for no file and send nothing (messages: tst_engine).
    void switchedOffAsShipped()
    {
        Screen screen;
        QVERIFY(!esaaccess::avrUpdateEnabled(screen));
        testfiles::writeFile("/tmp/firmware_update/io.bin", "image"); // present, but never looked at
        QVERIFY(!screen.processCommandList(
            {"ESA_IO_APP:/io.bin", "ESA_M_APP:/io.bin", "ESA_IO_EEP:/io.bin", "xESA_M_EEPx:/io.bin"}));
        QVERIFY(g_debug->messages().filter("Failed to find file").isEmpty());
        QVERIFY(nothingReachedTheBoards());
    }
};

QTEST_MAIN(EsaTest)
#include "tst_esa.moc"
