#include "HexRun.h"

#include "FuzzSupport.h"
#include "IntelHex.h"
#include "PicProgrammer.h"
#include "PicTarget.h"

#include <QCoreApplication>
#include <QFile>

#include <algorithm>

namespace hexdiff {
namespace {

const QEvent::Type ERASE_NEXT_BLOCK_EVENT = QEvent::Type(1000); // the programmer's erase step

sim::PicTarget& chip()
{
    static sim::PicTarget pic;
    return pic;
}

// The HEX line the file position sits after: the programmer leaves its file open, just past the line
// whose record ended the run.
int lineEndingAt(const QByteArray& text, qint64 position)
{
    const QByteArray read = text.left(int(position));
    return read.count('\n') + (!read.isEmpty() && !read.endsWith('\n') ? 1 : 0);
}

QString hexByte(quint8 value)
{
    return hex::hexNumber(value, 2);
}

// "flash 0x0010: predicted FF, updater 00 (and 3 more bytes up to 0x0040)"
void compareBytes(QStringList& out, const char* what, quint32 base, int width, const QByteArray& predicted,
                  const QByteArray& updater)
{
    int first = -1, last = -1, count = 0;
    for (int i = 0; i < std::min(predicted.size(), updater.size()); ++i) {
        if (predicted[i] != updater[i]) {
            if (first < 0)
                first = i;
            last = i;
            ++count;
        }
    }
    if (first < 0)
        return;
    QString line = QStringLiteral("%1 %2: predicted %3, updater %4")
                       .arg(QLatin1String(what), hex::hexNumber(base + quint32(first), width),
                            hexByte(quint8(predicted[first])), hexByte(quint8(updater[first])));
    if (count > 1)
        line += QStringLiteral(" (and %1 more bytes up to %2)")
                    .arg(count - 1)
                    .arg(hex::hexNumber(base + quint32(last), width));
    out << line;
}

QString yesNo(bool value)
{
    return value ? QStringLiteral("yes") : QStringLiteral("no");
}

} // namespace

void setUp()
{
    static bool done = false;
    if (done)
        return;
    done = true;
    fuzzsupport::silenceDebugMessages();
    fuzzsupport::lineBank().attach(sim::PicTarget::lines(), &chip());
}

Outcome predicted(const QByteArray& hexText, const pic::Memory& before)
{
    const pic::Result r = pic::program(hexText, before);
    Outcome out;
    out.programmed = r.programmed;
    out.stoppedAtLine = r.stoppedAtLine;
    out.memory = r.memory;
    out.rowWrites = r.rowWrites;
    out.configWrites = r.configWrites;
    return out;
}

Outcome onUpdater(const QByteArray& hexText, const pic::Memory& before, Erase erase)
{
    setUp();
    sim::PicTarget& pic = chip();
    pic.clearFaults();
    std::copy(before.flash.begin(), before.flash.end(), pic.flash().begin());
    std::copy(before.config.begin(), before.config.end(), pic.config().begin());
    std::fill(pic.idLocations().begin(), pic.idLocations().end(), 0xFF);
    std::fill(pic.eeprom().begin(), pic.eeprom().end(), 0xFF);
    const QString path = fuzzsupport::writeScratchFile(QStringLiteral("differential.hex"), hexText);

    Outcome out;
    qint64 position = 0;
    {
        PicProgrammer programmer;
        programmer.ev_pic_begin_erase();
        // Only what programming does is counted, as the prediction counts it.
        const auto program = [&] {
            pic.resetCounters();
            programmer.programPic(path);
        };
        if (erase == Erase::OnTheLines) {
            // As updatePic: the erase steps through the event loop, the lines are restored on eraseDone
            // (the programmer's own connection comes first), then the file is programmed from that signal.
            QObject::connect(&programmer, &PicProgrammer::eraseDone, program);
            QObject::connect(&programmer, &PicProgrammer::eraseError, [&] { out.eraseFailed = true; });
            while (!programmer.isFinished())
                QCoreApplication::processEvents();
        } else {
            QCoreApplication::removePostedEvents(&programmer, ERASE_NEXT_BLOCK_EVENT);
            bool blank = true;
            for (quint32 a = 0; a < sim::PicTarget::flashSize && blank; ++a)
                blank = pic.readMemory(a) == 0xFF;
            if (blank) {
                programmer.ev_pic_end_isp();
                program();
            } else {
                out.eraseFailed = true;
            }
        }
        out.programmed = programmer.isProgrammed();
        if (const QFile* file = programmer.findChild<QFile*>())
            position = file->pos();
    }
    if (!out.programmed && !out.eraseFailed)
        out.stoppedAtLine = lineEndingAt(hexText, position);
    out.memory.flash = QByteArray(reinterpret_cast<const char*>(pic.flash().data()), int(pic.flash().size()));
    out.memory.config =
        QByteArray(reinterpret_cast<const char*>(pic.config().data()), int(pic.config().size()));
    out.rowWrites = int(pic.counters().rowsWritten);
    out.configWrites = int(pic.counters().configWrites);
    const auto untouched = [](const std::vector<std::uint8_t>& cells) {
        return std::all_of(cells.begin(), cells.end(), [](std::uint8_t c) { return c == 0xFF; });
    };
    if (!untouched(pic.idLocations()))
        out.untouchedWritten << QStringLiteral("ID locations");
    if (!untouched(pic.eeprom()))
        out.untouchedWritten << QStringLiteral("EEPROM");
    return out;
}

QStringList differences(const Outcome& predicted, const Outcome& updater)
{
    QStringList out;
    if (predicted.eraseFailed != updater.eraseFailed)
        out << QStringLiteral("erase fails: predicted %1, updater %2")
                   .arg(yesNo(predicted.eraseFailed), yesNo(updater.eraseFailed));
    if (predicted.programmed != updater.programmed)
        out << QStringLiteral("programmed: predicted %1, updater %2")
                   .arg(yesNo(predicted.programmed), yesNo(updater.programmed));
    if (predicted.stoppedAtLine != updater.stoppedAtLine)
        out << QStringLiteral("stops at HEX line: predicted %1, updater %2")
                   .arg(predicted.stoppedAtLine)
                   .arg(updater.stoppedAtLine);
    compareBytes(out, "flash", 0, 4, predicted.memory.flash, updater.memory.flash);
    compareBytes(out, "configuration", 0x300000, 6, predicted.memory.config, updater.memory.config);
    if (predicted.rowWrites != updater.rowWrites)
        out << QStringLiteral("row writes: predicted %1, updater %2")
                   .arg(predicted.rowWrites)
                   .arg(updater.rowWrites);
    if (predicted.configWrites != updater.configWrites)
        out << QStringLiteral("configuration writes: predicted %1, updater %2")
                   .arg(predicted.configWrites)
                   .arg(updater.configWrites);
    if (predicted.untouchedWritten != updater.untouchedWritten)
        out << QStringLiteral("written by the updater: %1")
                   .arg(updater.untouchedWritten.join(QStringLiteral(", ")));
    return out;
}

QByteArray shrinkByLines(const QByteArray& hexText, const pic::Memory& before)
{
    const auto kind = [&](const QByteArray& text) {
        const QStringList d = differences(predicted(text, before), onUpdater(text, before));
        return d.isEmpty() ? QString() : d.first().section(QLatin1Char(':'), 0, 0);
    };
    const QString wanted = kind(hexText);
    if (wanted.isEmpty())
        return hexText;
    // Lines with their terminators, so CR LF and a missing final newline survive.
    QList<QByteArray> lines;
    for (int from = 0; from < hexText.size();) {
        const int end = hexText.indexOf('\n', from);
        const int next = end < 0 ? hexText.size() : end + 1;
        lines << hexText.mid(from, next - from);
        from = next;
    }
    // Runs of lines, halving the run length, the last run first; a budget keeps big files cheap.
    int budget = 60;
    for (int run = qMax(1, lines.size() / 2); run >= 1 && budget > 0; run /= 2) {
        for (int i = lines.size() - run; i >= 0 && budget > 0; --budget) {
            QList<QByteArray> fewer = lines.mid(0, i) + lines.mid(i + run);
            if (kind(fewer.join()) == wanted)
                lines = fewer;
            i = qMin(i, lines.size()) - run;
        }
    }
    return lines.join();
}

} // namespace hexdiff
