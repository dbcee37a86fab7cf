// PicProgrammer and UpdaterProgressScreen::updatePic against the simulated PIC18F4620: the product's own
// sysfs file operations reach the model through the instrument's GPIO file system. Runs inside
// sim/sandbox --instrument --instrument-arg --pic; HEX files are made at test time by gpasm and srec_cat.

#include "PicProgrammer.h"
#include "UpdaterProgressScreen.h"

#include <QtTest>

#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTextEdit>

#include <chrono>
#include <fcntl.h>
#include <map>
#include <unistd.h>

namespace {

const int FLASH_SIZE = 0x10000;
const int CONFIG_SIZE = 14;
const int EEPROM_SIZE = 1024;

QString controlPath(const QString& name)
{
    return qEnvironmentVariable("SIM_CONTROL") + "/" + name;
}

QByteArray readControl(const QString& name)
{
    QFile file(controlPath(name));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.readAll();
}

// Plain POSIX so that a refusal reported when the file is closed is seen too.
bool writeControl(const QString& name, const QByteArray& data)
{
    const int fd = ::open(controlPath(name).toLocal8Bit().constData(), O_WRONLY);
    if (fd < 0)
        return false;
    const bool written = ::write(fd, data.constData(), size_t(data.size())) == data.size();
    return ::close(fd) == 0 && written;
}

std::map<QString, quint64> readStats(const QString& name, QChar separator)
{
    std::map<QString, quint64> stats;
    for (const QByteArray& line : readControl(name).split('\n')) {
        const int at = line.indexOf(separator.toLatin1());
        if (at > 0)
            stats[QString::fromLatin1(line.left(at))] = line.mid(at + 1).trimmed().toULongLong();
    }
    return stats;
}

std::map<QString, quint64> picStats()
{
    return readStats("pic/stats", ' ');
}

std::map<QString, quint64> bankStats()
{
    return readStats("stats", '=');
}

// An Intel HEX file read independently of the product: absolute address -> byte, checksums verified.
struct HexImage
{
    std::map<quint32, quint8> bytes;
    bool valid = true;
};

HexImage parseHex(const QByteArray& text)
{
    HexImage image;
    quint32 upper = 0;
    for (QByteArray line : text.split('\n')) {
        line = line.trimmed();
        if (line.isEmpty())
            continue;
        const QByteArray raw = QByteArray::fromHex(line.mid(1));
        quint8 sum = 0;
        for (char c : raw)
            sum = quint8(sum + quint8(c));
        if (line[0] != ':' || raw.size() < 5 || raw.size() != quint8(raw[0]) + 5 || sum != 0) {
            image.valid = false;
            return image;
        }
        const int len = quint8(raw[0]);
        const quint32 offset = quint32(quint8(raw[1]) << 8 | quint8(raw[2]));
        const int type = quint8(raw[3]);
        if (type == 4)
            upper = quint32(quint8(raw[4]) << 8 | quint8(raw[5])) << 16;
        else if (type == 0)
            for (int i = 0; i < len; ++i)
                image.bytes[upper + offset + quint32(i)] = quint8(raw[4 + i]);
    }
    return image;
}

// What programming the file must leave: data records that end below 0xFFFE go to flash, records starting
// at 0x300000..0x30000C go to the configuration bytes (up to 0x30000D); nothing else is written.
void expectedAfter(const QByteArray& hexText, QByteArray& flash, QByteArray& config)
{
    quint32 upper = 0;
    for (QByteArray line : hexText.split('\n')) {
        const QByteArray raw = QByteArray::fromHex(line.trimmed().mid(1));
        if (raw.size() < 5)
            continue;
        const int len = quint8(raw[0]);
        const quint32 address = upper + quint32(quint8(raw[1]) << 8 | quint8(raw[2]));
        const int type = quint8(raw[3]);
        if (type == 4) {
            upper = quint32(quint8(raw[4]) << 8 | quint8(raw[5])) << 16;
        } else if (type == 0 && len > 0) {
            if (address + quint32(len) <= 0xFFFE) {
                for (int i = 0; i < len; ++i)
                    flash[int(address) + i] = raw[4 + i];
            } else if (address >= 0x300000 && address <= 0x30000C) {
                for (int i = 0; i < len && address + quint32(i) <= 0x30000D; ++i)
                    config[int(address - 0x300000) + i] = raw[4 + i];
            }
        }
    }
}

QByteArray hexRecord(quint16 offset, quint8 type, const QByteArray& data)
{
    QByteArray raw;
    raw.append(char(data.size()));
    raw.append(char(offset >> 8));
    raw.append(char(offset & 0xFF));
    raw.append(char(type));
    raw.append(data);
    quint8 sum = 0;
    for (char c : raw)
        sum = quint8(sum + quint8(c));
    raw.append(char(quint8(-sum)));
    return ":" + raw.toHex().toUpper() + "\n";
}

QByteArray extendedAddress(quint16 upper)
{
    return hexRecord(0, 4, QByteArray::fromHex(QByteArray::number(upper, 16).rightJustified(4, '0')));
}

const QByteArray END_OF_FILE = ":00000001FF\n";

QByteArray bytes(int n, int seed)
{
    QByteArray data;
    for (int i = 0; i < n; ++i)
        data.append(char((seed + i * 29) & 0xFF));
    return data;
}

// PGD levels at the rising and at the falling PGC edges, decoded from the instrument's operation log.
struct Wire
{
    QVector<int> atRise;
    QVector<int> atFall;
};

Wire wireFromLog(const QByteArray& log)
{
    static const QRegularExpression write(R"(^write gpio(\d+)/value "([01])\"$)");
    Wire wire;
    int pgd = 0, pgc = 0;
    for (const QByteArray& line : log.split('\n')) {
        const QRegularExpressionMatch m = write.match(QString::fromLatin1(line));
        if (!m.hasMatch())
            continue;
        const int level = m.captured(2).toInt();
        if (m.captured(1) == "2") {
            pgd = level;
        } else if (m.captured(1) == "4") {
            if (level && !pgc)
                wire.atRise.append(pgd);
            else if (!level && pgc)
                wire.atFall.append(pgd);
            pgc = level;
        }
    }
    return wire;
}

QVector<int> bitsOf(quint32 value, int count)
{
    QVector<int> bits;
    for (int i = 0; i < count; ++i)
        bits.append(int((value >> i) & 1));
    return bits;
}

} // namespace

class TestPicProgrammer : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void delaysNeverEndEarly();
    void shiftsGoLeastSignificantBitFirst();
    void constructionHoldsResetAndDestructionCutsPower();
    void deviceIdsReadBackAndName();
    void eepromRoundTrip();
    void oddRecordIsFilledAndVerifiedOnItsOwnBytes();
    void recordAcrossRowBoundaryIsSplit();
    void recordsOutsideFlashAndConfigAreSkipped();
    void configurationBytesFromExtendedAddress();
    void wrongChecksumsStillProgram();
    void recordLongerThanBufferFailsTheRun();
    void stuckBitFailsVerifyAndStopsTheRun();
    void progressOnlyOnChangeAndNeverZeroFirst();
    void missingFileReturnsFailureWithoutTouchingPins();
    void eraseErrorShowsRedLineAndFails();
    void eraseAndProgramRandomImage();
    void updatePicProgramsAssembledImage();

private:
    PicProgrammer* newProgrammer();
    void runProgram(PicProgrammer& pic, const QByteArray& hex);
    void presetMemory(const QByteArray& flash, const QByteArray& config = QByteArray(CONFIG_SIZE, '\xff'));
    QString tool(const QString& name);
    QByteArray gpasmImage();
    QByteArray srecRandomImage(quint32 from, quint32 to, int recordSize);

    QTemporaryDir m_dir;
    QString m_gpasm;
    QString m_srecCat;
};

PicProgrammer* TestPicProgrammer::newProgrammer()
{
    PicProgrammer* pic = new PicProgrammer;
    QTest::qWait(40); // the power timer releases the PIC, which comes up in programming mode (PGM high)
    return pic;
}

void TestPicProgrammer::runProgram(PicProgrammer& pic, const QByteArray& hex)
{
    QFile file(m_dir.filePath("record.hex"));
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(hex);
    file.close();
    QVERIFY(writeControl("pic/stats", "0"));
    pic.programPic(file.fileName());
    QVERIFY(pic.isFinished());
}

void TestPicProgrammer::presetMemory(const QByteArray& flash, const QByteArray& config)
{
    QVERIFY(writeControl("pic/flash", flash));
    QVERIFY(writeControl("pic/config", config));
}

QString TestPicProgrammer::tool(const QString& name)
{
    const QString path = QStandardPaths::findExecutable(name);
    if (path.isEmpty())
        qWarning("%s is not installed (Debian packages gputils and srecord; scripts/setup.sh)",
                 qPrintable(name));
    return path;
}

QByteArray TestPicProgrammer::gpasmImage()
{
    const QString out = m_dir.filePath("app.hex");
    QProcess gpasm;
    gpasm.setWorkingDirectory(m_dir.path());
    gpasm.start(m_gpasm, {"-q", "-p18f4620", "-o", out, PROJECT_SOURCE_DIR "/tests/pic/data/app.asm"});
    if (!gpasm.waitForFinished(60000) || gpasm.exitCode() != 0)
        qWarning() << "gpasm failed:" << gpasm.readAllStandardError() << gpasm.readAllStandardOutput();
    QFile file(out);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray TestPicProgrammer::srecRandomImage(quint32 from, quint32 to, int recordSize)
{
    QProcess srec;
    srec.start(m_srecCat, {"-generate", QString::number(from), QString::number(to), "-random", "-o", "-",
                           "-intel", "-output_block_size=" + QString::number(recordSize)});
    if (!srec.waitForFinished(60000) || srec.exitCode() != 0)
        qWarning() << "srec_cat failed:" << srec.readAllStandardError();
    return srec.readAllStandardOutput();
}

void TestPicProgrammer::initTestCase()
{
    const bool ci = qEnvironmentVariable("CI") == "true";
    if (!QFile::exists(controlPath("pic/flash"))) {
        const char* reason = "the simulated PIC is not reachable: run this test inside "
                             "sim/sandbox --instrument --instrument-arg --pic (needs FUSE and namespaces)";
        if (ci)
            QFAIL(reason);
        QSKIP(reason);
    }
    QVERIFY(m_dir.isValid());
    m_gpasm = tool("gpasm");
    m_srecCat = tool("srec_cat");
    QVERIFY(!m_gpasm.isEmpty() && !m_srecCat.isEmpty());
}

void TestPicProgrammer::init()
{
    QVERIFY(writeControl("pic/faults", "clear\ndevid 0x0C07\n"));
    presetMemory(QByteArray(FLASH_SIZE, '\xff'));
    QVERIFY(writeControl("pic/eeprom", QByteArray(EEPROM_SIZE, '\xff')));
    QVERIFY(writeControl("pic/stats", "0"));
}

void TestPicProgrammer::delaysNeverEndEarly()
{
    PicProgrammer pic;
    QCOMPARE(PicProgrammer::delayNs(PicProgrammer::PIC_DELAY_P9), 1000000);
    QCOMPARE(PicProgrammer::delayNs(PicProgrammer::PIC_DELAY_P11a), 4000000);
    QCOMPARE(PicProgrammer::delayNs(PicProgrammer::PIC_DELAY_P12u), 6000000);
    QCOMPARE(PicProgrammer::delayNs(PicProgrammer::PIC_DELAY(25)), 1000); // outside the enumeration
    for (int d = 0; d <= 19; ++d) {
        const auto delay = PicProgrammer::PIC_DELAY(d == 19 ? 25 : d);
        for (int i = 0; i < 5; ++i) {
            const auto start = std::chrono::steady_clock::now();
            pic.vGeneralDelay(delay);
            const auto took = std::chrono::steady_clock::now() - start;
            QVERIFY2(took >= std::chrono::nanoseconds(PicProgrammer::delayNs(delay)),
                     qPrintable(QString("delay %1 ended early").arg(d)));
        }
    }
}

void TestPicProgrammer::shiftsGoLeastSignificantBitFirst()
{
    std::unique_ptr<PicProgrammer> pic(newProgrammer());
    QVERIFY(writeControl("log", "x"));
    pic->vWriteCmd(0x9);
    Wire wire = wireFromLog(readControl("log"));
    QCOMPARE(wire.atRise, (QVector<int>{1, 0, 0, 1}));
    QCOMPARE(wire.atFall, wire.atRise); // the PIC latches on the falling edge: data held across it

    QVERIFY(writeControl("log", "x"));
    pic->vWriteByte(0x0E);
    QCOMPARE(wireFromLog(readControl("log")).atRise, (QVector<int>{0, 1, 1, 1, 0, 0, 0, 0}));

    // Table pointer load: MOVLW upper, MOVWF TBLPTRU, MOVLW high, MOVWF TBLPTRH, MOVLW low, MOVWF TBLPTRL.
    pic->vEnterIspMode(); // the shifts above left the PIC inside a read command
    QVERIFY(writeControl("pic/stats", "0"));
    QVERIFY(writeControl("log", "x"));
    pic->vSetCoreAddress(0x3FFFFE);
    wire = wireFromLog(readControl("log"));
    QVector<int> expected;
    for (quint16 word : {0x0E3F, 0x6EF8, 0x0EFF, 0x6EF7, 0x0EFE, 0x6EF6})
        expected += bitsOf(0x0, 4) + bitsOf(word, 16);
    QCOMPARE(wire.atFall, expected);
    QCOMPARE(readStats("pic/stats", ' ')["core_instructions"], 6u);
}

void TestPicProgrammer::constructionHoldsResetAndDestructionCutsPower()
{
    const QRegularExpression out(R"(^(\d+) (in|out) ([01]))", QRegularExpression::MultilineOption);
    auto lines = [&] {
        std::map<int, QString> state;
        auto it = out.globalMatch(QString::fromLatin1(readControl("lines")));
        while (it.hasNext()) {
            const auto m = it.next();
            state[m.captured(1).toInt()] = m.captured(2) + " " + m.captured(3);
        }
        return state;
    };
    {
        PicProgrammer pic;
        auto state = lines();
        QCOMPARE(state[5], QString("out 1")); // board powered
        QCOMPARE(state[3], QString("out 0")); // PIC held in reset
        QCOMPARE(state[6], QString("out 0")); // low-voltage programming off
        QCOMPARE(state[2], QString("out 0"));
        QCOMPARE(state[4], QString("out 0"));
        QCOMPARE(picStats()["programming_mode"], 0u);

        // The power timer resets the PIC once and releases MCLR to the pull-up, PGM left high.
        QTest::qWait(40);
        state = lines();
        QCOMPARE(state[3], QString("in 1"));
        QCOMPARE(state[6], QString("out 1"));
        QCOMPARE(picStats()["programming_mode"], 1u);
    }
    QCOMPARE(lines()[5], QString("out 0"));
}

void TestPicProgrammer::deviceIdsReadBackAndName()
{
    struct Part
    {
        quint16 id;
        const char* name;
        quint8 valid;
    };
    const Part parts[] = {{0x0C07, "PIC18F4620 version 7", 1},
                          {0x0E81, "PIC18F4680 version 1", 0},
                          {0x2742, "PIC18F4682 version 2", 0},
                          {0x2765, "PIC18F4685 version 5", 0},
                          {0x1234, "Unknown PIC: 4660", 0}};
    PicProgrammer pic;
    QString* last = nullptr;
    for (const Part& part : parts) {
        QVERIFY(writeControl("pic/faults", "devid " + QByteArray::number(part.id)));
        const quint16 id = pic.u16ReadPic();
        QCOMPARE(id, part.id);
        QString* name = pic.pGetPicIdStr(id);
        QCOMPARE(*name, QString(part.name));
        QCOMPARE(pic.u8ValidPicId(id), part.valid);
        QVERIFY(!last || last == name); // one buffer, overwritten by every call
        last = name;
    }
    // 16 configuration reads after the two ID bytes, each time.
    QCOMPARE(picStats()["command_9"], 5u * 18u);
}

void TestPicProgrammer::eepromRoundTrip()
{
    QByteArray eeprom(EEPROM_SIZE, '\xff');
    eeprom[0x155] = '\x77';
    QVERIFY(writeControl("pic/eeprom", eeprom));
    std::unique_ptr<PicProgrammer> pic(newProgrammer());
    QCOMPARE(pic->u8ReadPicEeprom(0x155), quint8(0x77));
    pic->vWritePicEeprom(0x3FF, 0xA5);
    pic->vWritePicEeprom(0x000, 0x3C);
    QCOMPARE(pic->u8ReadPicEeprom(0x3FF), quint8(0xA5));
    QCOMPARE(pic->u8ReadPicEeprom(0x000), quint8(0x3C));
    eeprom[0x3FF] = '\xa5';
    eeprom[0x000] = '\x3c';
    QCOMPARE(readControl("pic/eeprom"), eeprom);
    const auto stats = picStats();
    QCOMPARE(stats.at("eeprom_writes"), 2u);
    QCOMPARE(stats.at("eeprom_writes_aborted"), 0u);
}

void TestPicProgrammer::oddRecordIsFilledAndVerifiedOnItsOwnBytes()
{
    QByteArray flash(FLASH_SIZE, '\xff');
    flash[0x10] = '\x5a';
    presetMemory(flash);
    std::unique_ptr<PicProgrammer> pic(newProgrammer());
    runProgram(*pic, hexRecord(0x0011, 0, QByteArray::fromHex("a1b2c3")) + END_OF_FILE);
    QVERIFY(pic->isProgrammed());
    QCOMPARE(readControl("pic/flash").mid(0x0F, 6), QByteArray::fromHex("ff5aa1b2c3ff"));
    const auto stats = picStats();
    // One row write of two words (one 1101, one 1111); one fill read at 0x0010 and three verify reads.
    QCOMPARE(stats.at("rows_written"), 1u);
    QCOMPARE(stats.at("command_D"), 1u);
    QCOMPARE(stats.at("command_F"), 1u);
    QCOMPARE(stats.at("command_9"), 4u);
    QCOMPARE(stats.at("timing_violations"), 0u);

    // An even record of odd length reads the byte after it to complete the last word.
    QVERIFY(writeControl("pic/stats", "0"));
    runProgram(*pic, hexRecord(0x0020, 0, QByteArray::fromHex("0102030405")) + END_OF_FILE);
    QVERIFY(pic->isProgrammed());
    QCOMPARE(readControl("pic/flash").mid(0x20, 6), QByteArray::fromHex("0102030405ff"));
    QCOMPARE(picStats().at("command_9"), 1u + 5u);
}

void TestPicProgrammer::recordAcrossRowBoundaryIsSplit()
{
    std::unique_ptr<PicProgrammer> pic(newProgrammer());
    const QByteArray data = bytes(16, 7);
    runProgram(*pic, hexRecord(0x0038, 0, data) + END_OF_FILE);
    QVERIFY(pic->isProgrammed());
    QCOMPARE(readControl("pic/flash").mid(0x38, 16), data);
    const auto stats = picStats();
    QCOMPARE(stats.at("rows_written"), 2u); // 8 bytes to 0x0038, 8 bytes to 0x0040
    QCOMPARE(stats.at("command_D"), 6u);
    QCOMPARE(stats.at("command_F"), 2u);
    QCOMPARE(stats.at("command_9"), 16u);
}

void TestPicProgrammer::recordsOutsideFlashAndConfigAreSkipped()
{
    std::unique_ptr<PicProgrammer> pic(newProgrammer());
    const QByteArray hex = hexRecord(0xFFF0, 0, bytes(16, 1)) + hexRecord(0xFFFE, 0, bytes(1, 2)) +
                           extendedAddress(0x0001) + hexRecord(0x0000, 0, bytes(16, 3)) +
                           extendedAddress(0x0020) + hexRecord(0x0000, 0, bytes(8, 4)) +
                           extendedAddress(0x0030) + hexRecord(0x000D, 0, bytes(1, 5)) +
                           extendedAddress(0x00F0) + hexRecord(0x0000, 0, bytes(16, 6)) + END_OF_FILE;
    runProgram(*pic, hex);
    QVERIFY(pic->isProgrammed());
    QCOMPARE(readControl("pic/flash"), QByteArray(FLASH_SIZE, '\xff'));
    QCOMPARE(readControl("pic/config"), QByteArray(CONFIG_SIZE, '\xff'));
    QCOMPARE(readControl("pic/id"), QByteArray(8, '\xff'));
    QCOMPARE(readControl("pic/eeprom").left(16), QByteArray(16, '\xff'));
    const auto stats = picStats();
    QCOMPARE(stats.at("clocks"), 0u);
    QCOMPARE(stats.at("mode_entries"), 0u);

    // A record ending right below 0xFFFE is still flash.
    runProgram(*pic, hexRecord(0xFFEE, 0, bytes(16, 8)) + END_OF_FILE);
    QCOMPARE(readControl("pic/flash").mid(0xFFEE, 16), bytes(16, 8));
}

void TestPicProgrammer::configurationBytesFromExtendedAddress()
{
    std::unique_ptr<PicProgrammer> pic(newProgrammer());
    const QByteArray config = bytes(CONFIG_SIZE, 0x40);
    runProgram(*pic, extendedAddress(0x0030) + hexRecord(0x0000, 0, config) + END_OF_FILE);
    QVERIFY(pic->isProgrammed());
    QCOMPARE(readControl("pic/config"), config);
    QCOMPARE(picStats().at("config_writes"), 14u);
    QCOMPARE(picStats().at("command_9"), 0u); // configuration bytes are not verified

    // From 0x30000C only two of four bytes fit.
    presetMemory(QByteArray(FLASH_SIZE, '\xff'));
    runProgram(*pic,
               extendedAddress(0x0030) + hexRecord(0x000C, 0, QByteArray::fromHex("11223344")) + END_OF_FILE);
    QCOMPARE(readControl("pic/config").right(2), QByteArray::fromHex("1122"));
    QCOMPARE(picStats().at("config_writes"), 2u);
}

void TestPicProgrammer::wrongChecksumsStillProgram()
{
    const QByteArray good = srecRandomImage(0x0100, 0x0200, 16);
    QVERIFY(parseHex(good).valid);
    QByteArray bad;
    for (const QByteArray& line : good.split('\n')) {
        if (line.size() < 11)
            continue;
        const quint8 sum = quint8(line.right(2).toUInt(nullptr, 16) + 0x5A);
        bad +=
            line.left(line.size() - 2) + QByteArray::number(sum, 16).rightJustified(2, '0').toUpper() + "\n";
    }
    QVERIFY(!parseHex(bad).valid);

    std::unique_ptr<PicProgrammer> pic(newProgrammer());
    runProgram(*pic, bad);
    QVERIFY(pic->isProgrammed());
    QByteArray flash(FLASH_SIZE, '\xff'), config(CONFIG_SIZE, '\xff');
    expectedAfter(good, flash, config);
    QCOMPARE(readControl("pic/flash"), flash);
}

void TestPicProgrammer::recordLongerThanBufferFailsTheRun()
{
    std::unique_ptr<PicProgrammer> pic(newProgrammer());
    const QByteArray hex = hexRecord(0x0100, 0, bytes(16, 1)) + hexRecord(0x0200, 0, bytes(128, 2)) +
                           hexRecord(0x0400, 0, bytes(16, 3)) + END_OF_FILE;
    runProgram(*pic, hex);
    QVERIFY(!pic->isProgrammed());
    const QByteArray flash = readControl("pic/flash");
    QCOMPARE(flash.mid(0x100, 16), bytes(16, 1));
    QCOMPARE(flash.mid(0x200, 128), QByteArray(128, '\xff'));
    QCOMPARE(flash.mid(0x400, 16), QByteArray(16, '\xff'));
    QCOMPARE(picStats().at("rows_written"), 1u);
}

void TestPicProgrammer::stuckBitFailsVerifyAndStopsTheRun()
{
    QVERIFY(writeControl("pic/faults", "stuck 0x0145 0x01"));
    std::unique_ptr<PicProgrammer> pic(newProgrammer());
    const QByteArray hex =
        hexRecord(0x0140, 0, QByteArray(16, '\0')) + hexRecord(0x0180, 0, bytes(16, 9)) + END_OF_FILE;
    runProgram(*pic, hex);
    QVERIFY(pic->isFinished());
    QVERIFY(!pic->isProgrammed());
    const QByteArray flash = readControl("pic/flash");
    QCOMPARE(flash.mid(0x140, 8), QByteArray::fromHex("0000000000010000"));
    QCOMPARE(flash.mid(0x180, 16), QByteArray(16, '\xff')); // the run stopped at the failing record
    // The verify read up to the mismatch and no further.
    QCOMPARE(picStats().at("command_9"), 6u);
}

void TestPicProgrammer::progressOnlyOnChangeAndNeverZeroFirst()
{
    std::unique_ptr<PicProgrammer> pic(newProgrammer());
    QSignalSpy spy(pic.get(), SIGNAL(lineProgrammed(int)));
    const QByteArray hex = srecRandomImage(0x0000, 0x0100, 16);
    runProgram(*pic, hex);
    QVERIFY(pic->isProgrammed());
    QVERIFY(spy.count() > 1);
    int last = 0;
    for (const QList<QVariant>& args : spy) {
        QVERIFY2(args.at(0).toInt() > last, "percentages must rise, starting above 0");
        last = args.at(0).toInt();
    }
    QVERIFY(last >= 100);
}

void TestPicProgrammer::missingFileReturnsFailureWithoutTouchingPins()
{
    UpdaterProgressScreen screen;
    const auto before = bankStats();
    QCOMPARE(screen.updatePic(1, "/pic/missing.hex"), -1);
    const auto after = bankStats();
    for (const char* key : {"exports", "value-writes", "direction-writes", "value-reads", "rejected"})
        QVERIFY2(after.at(key) == before.at(key), key);
    QCOMPARE(picStats().at("line_events"), 0u);
}

void TestPicProgrammer::eraseErrorShowsRedLineAndFails()
{
    QByteArray flash(FLASH_SIZE, '\xff');
    flash[0x0405] = '\0';
    presetMemory(flash);
    QVERIFY(writeControl("pic/faults", "nonblank 0x0405 0x00"));
    QVERIFY(QDir().mkpath("/tmp/firmware_update/pic"));
    QFile file("/tmp/firmware_update/pic/erase.hex");
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(hexRecord(0x0000, 0, bytes(16, 1)) + END_OF_FILE);
    file.close();

    UpdaterProgressScreen screen;
    QTextEdit* view = screen.findChild<QTextEdit*>("progressMessageWindow");
    QVERIFY(view);
    QCOMPARE(screen.updatePic(2, "/pic/erase.hex"), -1);
    const QStringList lines = view->toPlainText().split('\n');
    // Two blocks were blank (0% then 1%), the third is not: the view ends with the red paragraph.
    QCOMPARE(lines.mid(lines.size() - 3), (QStringList{"Erasing PIC: ", "1%", "PIC Erase Error "}));
    QVERIFY(view->toHtml().contains("color:#ff0000;\">PIC Erase Error </span></p></body>"));
    const auto stats = picStats();
    QCOMPARE(stats.at("rows_written"), 0u);
    QCOMPARE(stats.at("bulk_erases"), 5u);
    QCOMPARE(readControl("pic/flash").mid(0x400, 8), QByteArray::fromHex("ffffffffff00ffff"));
}

void TestPicProgrammer::eraseAndProgramRandomImage()
{
    // Old contents everywhere; the erase must clear all of it and the blank check must find it clear.
    QByteArray old(FLASH_SIZE, '\0');
    for (int i = 0; i < FLASH_SIZE; ++i)
        old[i] = char((i * 7) & 0xFE);
    presetMemory(old);
    QByteArray eeprom = bytes(EEPROM_SIZE, 3);
    QVERIFY(writeControl("pic/eeprom", eeprom));
    const QByteArray hex = srecRandomImage(0x0000, 0x0A00, 13); // odd addresses and lengths, rows split

    std::unique_ptr<PicProgrammer> pic(newProgrammer());
    QSignalSpy next(pic.get(), SIGNAL(eraseNextBlock(int)));
    QSignalSpy done(pic.get(), SIGNAL(eraseDone()));
    QSignalSpy error(pic.get(), SIGNAL(eraseError()));
    pic->ev_pic_begin_erase();
    while (done.isEmpty() && error.isEmpty())
        QCoreApplication::processEvents(QEventLoop::AllEvents);
    QCOMPARE(error.count(), 0);
    QCOMPARE(done.count(), 1);
    QCOMPARE(next.count(), 127);
    QCOMPARE(next.first().at(0).toInt(), 0);
    QCOMPARE(next.last().at(0).toInt(), 99);
    QCOMPARE(readControl("pic/flash"), QByteArray(FLASH_SIZE, '\xff'));

    QFile file(m_dir.filePath("random.hex"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(hex);
    file.close();
    pic->programPic(file.fileName());
    QVERIFY(pic->isFinished());
    QVERIFY(pic->isProgrammed());
    pic.reset();

    QByteArray flash(FLASH_SIZE, '\xff'), config(CONFIG_SIZE, '\xff');
    expectedAfter(hex, flash, config);
    QCOMPARE(readControl("pic/flash"), flash);
    QCOMPARE(readControl("pic/eeprom"), eeprom);
    QCOMPARE(readControl("pic/config"), config);
    const auto stats = picStats();
    QCOMPARE(stats.at("timing_violations"), 0u);
    QCOMPARE(stats.at("bulk_erases"), 5u);
    QCOMPARE(stats.at("protocol_errors"), 0u);
}

void TestPicProgrammer::updatePicProgramsAssembledImage()
{
    const QByteArray hex = gpasmImage();
    const HexImage image = parseHex(hex);
    QVERIFY(image.valid);
    QVERIFY(image.bytes.count(0x300001) && image.bytes.count(0xFFF0) && image.bytes.count(0xF00000));
    QVERIFY(QDir().mkpath("/tmp/firmware_update/pic"));
    QFile file("/tmp/firmware_update/pic/app.hex");
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(hex);
    file.close();

    QByteArray old(FLASH_SIZE, '\0');
    presetMemory(old);
    const QByteArray eeprom = readControl("pic/eeprom");
    const QByteArray id = readControl("pic/id");

    UpdaterProgressScreen screen;
    QTextEdit* view = screen.findChild<QTextEdit*>("progressMessageWindow");
    QVERIFY(view);
    view->append("Updating PIC 7 with file: /pic/app.hex");
    QCOMPARE(screen.updatePic(7, "/pic/app.hex"), 0); // the PIC number has no effect

    QByteArray flash(FLASH_SIZE, '\xff'), config(CONFIG_SIZE, '\xff');
    expectedAfter(hex, flash, config);
    QCOMPARE(readControl("pic/flash"), flash);
    QCOMPARE(readControl("pic/config"), config);
    QCOMPARE(readControl("pic/eeprom"), eeprom);
    QCOMPARE(readControl("pic/id"), id);
    QCOMPARE(flash.mid(0xFFF0, 16), QByteArray(16, '\xff')); // the record touching 0xFFFE/0xFFFF is skipped
    QCOMPARE(config.mid(1, 3), QByteArray::fromHex("021e1e"));

    // Exactly one percentage line under each heading, updated in place.
    const QStringList lines = view->toPlainText().split('\n');
    const QRegularExpression percent("^(\\d+)% ?$");
    const int erasing = lines.indexOf("Erasing PIC: ");
    QVERIFY(erasing > 0);
    QCOMPARE(lines.mid(erasing),
             (QStringList{"Erasing PIC: ", "99%", "PIC Erase Complete", "Programming PIC: ", lines.last()}));
    const QRegularExpressionMatch final = percent.match(lines.last());
    QVERIFY(final.hasMatch());
    QVERIFY(final.captured(1).toInt() >= 100);
    QCOMPARE(lines.filter(percent).size(), 2);

    const auto stats = picStats();
    QCOMPARE(stats.at("timing_violations"), 0u);
    QCOMPARE(stats.at("protocol_errors"), 0u);
    QVERIFY(readControl("lines").contains("\n5 out 0") || readControl("lines").startsWith("5 out 0"));
}

QTEST_MAIN(TestPicProgrammer)
#include "tst_pic_programmer.moc"
