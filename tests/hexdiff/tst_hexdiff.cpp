// The package tool's PIC step (pic::program) against the updater's own PicProgrammer on the PIC18F4620
// model, in-process: every file on which the two once disagreed, a fixed-seed slice of the HEX
// differential's generator, and the erase shortcut the differential takes.
#include "HexGenerator.h"
#include "HexRun.h"

#include <QtTest>

namespace {

QByteArray lines(std::initializer_list<QByteArray> records)
{
    QByteArray text;
    for (const QByteArray& r : records)
        text += r + '\n';
    return text;
}

QByteArray bytes(std::initializer_list<quint8> values)
{
    QByteArray out;
    for (quint8 v : values)
        out += char(v);
    return out;
}

// Records past QIODevice's 16 KiB read buffer, with a CR in the line that runs over the buffer's end and
// one in the line after it.
QByteArray overTheBufferEnd()
{
    QByteArray text = hexdiff::record(4, 0, bytes({0, 0})) + '\n';
    for (int i = 0; text.size() < 16384 + 200; ++i)
        text += hexdiff::record(0, quint16(0x1000 + 16 * i), QByteArray(16, char(i))) + '\n';
    text += ":00000001FF\n";
    text.insert(16384 + 3, '\r');
    text.insert(text.indexOf('\n', 16384) + 6, '\r');
    return text;
}

// What differs between the prediction and the updater, with the file; empty when they agree.
QString disagreement(const QByteArray& text, const pic::Memory& before, const QString& what)
{
    const QStringList differ =
        hexdiff::differences(hexdiff::predicted(text, before), hexdiff::onUpdater(text, before));
    return differ.isEmpty()
               ? QString()
               : QStringLiteral("%1\n%2\n  %3")
                     .arg(what, QString::fromLatin1(text.left(2000)), differ.join(QStringLiteral("\n  ")));
}

} // namespace

class TestHexDiff : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { hexdiff::setUp(); }

    void agreesWithTheUpdater_data()
    {
        QTest::addColumn<QByteArray>("text");
        // An extended address record takes its two bytes from the programmer's record buffer.
        QTest::newRow("address record of no bytes: the earlier record's bytes are the upper address")
            << QByteArray(":0400000018EF00F005\n:0006950461\n:02400000420C70\n");
        QTest::newRow("address record of one byte: the second byte is the earlier record's")
            << lines({hexdiff::record(4, 0, bytes({0, 0})), hexdiff::record(0, 0x0100, bytes({0x00, 0x30})),
                      hexdiff::record(4, 0, bytes({0x00})), hexdiff::record(0, 0x0001, bytes({0x05, 0x1F}))});
        QTest::newRow("address record of no bytes after configuration bytes that protect the flash")
            << QByteArray(":020000040030CA\n:0A0008000000FF00FF0000000000F0\n:0200000400F00A\n:00243204A6\n"
                          ":020000028E6B03\n:020000040000FA\n:09ED660007BEC79D22439C1D4A13\n");
        // QFile's text mode: the first line loses every CR, later lines only a final one.
        QTest::newRow("CR inside the first line is dropped") << QByteArray(":020000\r40000FA\n");
        QTest::newRow("CR inside the first line, then a data record")
            << QByteArray(":020\r00040020DA\n:08000000A54DCA182530BB1DF7\n");
        QTest::newRow("CR inside a later line is kept")
            << QByteArray(":020000040030CA\n:03000\r:020000047A641C\n");
        QTest::newRow("CRs inside the first and a later line") << QByteArray(
            ":020000040000FA\r:22003B0000FF00FF0000FF00000000FFFF00FF00FFFF000000000000FF000000FFFF00"
            "000000AE\n:0C790\r:0FAC3700FF00FFFF0000000000FF000000FF0013\n");
        QTest::newRow("CR in the line over the 16 KiB read buffer's end is dropped") << overTheBufferEnd();
    }

    void agreesWithTheUpdater()
    {
        QFETCH(QByteArray, text);
        const QString differ = disagreement(text, pic::blankChip(), QString());
        QVERIFY2(differ.isEmpty(), qPrintable(differ));
    }

    // The HEX differential's generator with a fixed seed: seeds of real tools, made files, near misses.
    void generatorSlice()
    {
        const QVector<QByteArray> seeds = hexdiff::readSeeds(hexdiff::defaultSeedFolders());
        QVERIFY2(seeds.size() >= 20, "the seed files of fuzz/hexdiff/seeds and fuzz/corpus/hex are missing");
        hexdiff::Generator generator(2126, seeds);
        QStringList failures;
        const int files = 300;
        for (int n = 1; n <= files; ++n) {
            const hexdiff::Case c = generator.next();
            const QString differ = disagreement(
                c.text, c.before,
                QStringLiteral("file %1 of seed 2126: %2").arg(n).arg(c.how.join(QStringLiteral("; "))));
            if (!differ.isEmpty())
                failures << differ;
        }
        // The first few in full; hex-differential --seed 2126 --files 300 saves and shrinks them all.
        QVERIFY2(failures.isEmpty(), qPrintable(QStringLiteral("%1 of %2 files disagree:\n%3")
                                                    .arg(failures.size())
                                                    .arg(files)
                                                    .arg(failures.mid(0, 3).join(QStringLiteral("\n")))));
    }

    // The differential takes the blank check from the model; over the lines, as the updater runs it, the
    // outcome is the same, also on a chip whose earlier firmware protected blocks and configuration.
    void eraseShortcutChangesNothing()
    {
        const QByteArray text =
            hexdiff::readSeeds({QStringLiteral(PROJECT_SOURCE_DIR "/fuzz/corpus/hex")}).value(0);
        QVERIFY(!text.isEmpty());
        pic::Memory before = pic::blankChip();
        before.config[0x08] = char(0x00); // CP0..CP3
        before.config[0x09] = char(0x00); // CPB, CPD
        before.config[0x0B] = char(0x00); // WRTB, WRTC, WRTD
        before.flash.fill(char(0x5A), 0x100);
        const hexdiff::Outcome shortcut = hexdiff::onUpdater(text, before, hexdiff::Erase::FromModel);
        const hexdiff::Outcome onTheLines = hexdiff::onUpdater(text, before, hexdiff::Erase::OnTheLines);
        const QStringList differ = hexdiff::differences(shortcut, onTheLines);
        QVERIFY2(differ.isEmpty(), qPrintable(differ.join('\n')));
        QVERIFY(onTheLines.programmed);
    }
};

QTEST_GUILESS_MAIN(TestHexDiff)
#include "tst_hexdiff.moc"
