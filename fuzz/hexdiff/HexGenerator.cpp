#include "HexGenerator.h"

#include "Pic18f4620Config.h"

#include <QDir>
#include <QFile>

namespace hexdiff {
namespace {

namespace chip = sim::pic18f4620;

// Where records go: the region and the upper address that reaches it.
struct Region
{
    const char* name;
    quint32 from, to; // [from, to)
};
const Region regions[] = {
    {"flash", 0x0000, 0x10000},
    {"flash edge", 0xFFC0, 0x10000},
    {"above 64 KB", 0x10000, 0x10400},
    {"ID locations", 0x200000, 0x200008},
    {"configuration", 0x300000, 0x30000E},
    {"past configuration", 0x30000E, 0x300040},
    {"EEPROM", 0xF00000, 0xF00400},
    {"boot block", 0x0000, 0x0800},
};

QByteArray hex2(quint32 value)
{
    return QByteArray::number(value & 0xFF, 16).rightJustified(2, '0').toUpper();
}

QByteArray upper(quint16 high)
{
    QByteArray data;
    data += char(high >> 8);
    data += char(high & 0xFF);
    return record(4, 0, data);
}

} // namespace

QByteArray record(quint8 type, quint16 offset, const QByteArray& data)
{
    QByteArray line = ":" + hex2(quint32(data.size())) + hex2(offset >> 8) + hex2(offset) + hex2(type);
    quint32 sum = quint32(data.size()) + (offset >> 8) + (offset & 0xFF) + type;
    for (char c : data) {
        line += hex2(quint8(c));
        sum += quint8(c);
    }
    return line + hex2(quint32(-sum));
}

QVector<QByteArray> readSeeds(const QStringList& folders)
{
    QVector<QByteArray> seeds;
    for (const QString& folder : folders) {
        for (const QFileInfo& entry :
             QDir(folder).entryInfoList({QStringLiteral("*.hex")}, QDir::Files, QDir::Name)) {
            QFile file(entry.filePath());
            if (file.open(QIODevice::ReadOnly))
                seeds << file.readAll();
        }
    }
    return seeds;
}

QStringList defaultSeedFolders()
{
    return {QStringLiteral(PROJECT_SOURCE_DIR "/fuzz/hexdiff/seeds"),
            QStringLiteral(PROJECT_SOURCE_DIR "/fuzz/corpus/hex")};
}

Generator::Generator(quint64 seed, QVector<QByteArray> seeds) : m_random(seed), m_seeds(std::move(seeds)) {}

QByteArray Generator::bytes(int count)
{
    QByteArray out;
    // Mostly programmable data, sometimes 0xFF runs and zeros, which flash treats differently.
    const int style = int(below(4));
    for (int i = 0; i < count; ++i)
        out += char(style == 0 ? 0xFF : style == 1 ? (below(2) ? 0x00 : 0xFF) : int(below(256)));
    return out;
}

// Records over the regions, each region reached with its extended linear address record.
QList<QByteArray> Generator::madeFile(QStringList& how)
{
    QList<QByteArray> lines;
    const int records = 1 + int(below(8));
    quint16 current = 0;
    bool first = true;
    QStringList where;
    for (int i = 0; i < records; ++i) {
        const Region& region = regions[below(sizeof regions / sizeof *regions)];
        const int length = chance(5) ? 95 + int(below(12)) : 1 + int(below(chance(30) ? 40 : 16));
        const quint32 address = region.from + below(region.to - region.from);
        const quint16 high = quint16(address >> 16);
        if (first || high != current || chance(10))
            lines << upper(high);
        first = false;
        current = high;
        lines << record(0, quint16(address), bytes(length));
        where << QString::fromLatin1(region.name);
    }
    lines << QByteArray(":00000001FF");
    where.removeDuplicates();
    how << QStringLiteral("made: %1").arg(where.join(QStringLiteral(", ")));
    return lines;
}

void Generator::mutate(QList<QByteArray>& lines, QStringList& how)
{
    if (lines.isEmpty())
        lines << QByteArray(":00000001FF");
    const int at = int(below(quint32(lines.size())));
    QByteArray& line = lines[at];
    const auto named = [&](const char* what) {
        how << QStringLiteral("%1 at line %2").arg(QLatin1String(what)).arg(at + 1);
    };
    switch (below(22)) {
    case 0: // a wrong checksum
        if (line.size() >= 2) {
            line.chop(2);
            line += hex2(below(256));
            named("checksum");
        }
        break;
    case 1:
        line = line.toLower();
        named("lower case");
        break;
    case 2: { // an odd (or any) address for the same data
        const int length = line.mid(1, 2).toInt(nullptr, 16);
        const QByteArray data = QByteArray::fromHex(line.mid(9, 2 * length));
        const quint16 offset =
            quint16(line.mid(3, 4).toUInt(nullptr, 16) + (chance(50) ? 1 : below(0x10000)));
        line = record(quint8(line.mid(7, 2).toUInt(nullptr, 16)), offset, data);
        named("address moved");
        break;
    }
    case 3: // a length field that does not fit the data
        if (line.size() >= 3) {
            line.replace(1, 2, hex2(below(4) == 0 ? 0x65 + below(40) : below(40)));
            named("length field");
        }
        break;
    case 4: // longer than the programmer's buffer, or exactly as long
        line = record(0, quint16(below(0x10000)), bytes(chance(30) ? 100 : 101 + int(below(30))));
        named("long record");
        break;
    case 5:
        for (int i = lines.size() - 1; i >= 0; --i) {
            if (lines[i].mid(7, 2) == "01")
                lines.removeAt(i);
        }
        how << QStringLiteral("no end record");
        return;
    case 6:
        lines.insert(at, chance(50) ? QByteArray() : QByteArray(chance(50) ? " " : "\t"));
        named("blank line");
        break;
    case 7: // a character that is not hex
        if (!line.isEmpty()) {
            static const char odd[] = "GZgz .;xX\t-+\x01\xE9\r\0";
            line[int(below(quint32(line.size())))] = odd[below(sizeof odd - 1)];
            named("non-hex character");
        }
        break;
    case 8:
        line.remove(0, 1);
        named("no colon");
        break;
    case 9: { // extended linear address, of every length
        static const quint16 highs[] = {0x0000, 0x0001, 0x0020, 0x0030, 0x00F0, 0xFFFF, 0x0010};
        const quint16 high = chance(80) ? highs[below(7)] : quint16(below(0x10000));
        const int length = chance(70) ? 2 : int(below(5));
        QByteArray data;
        data += char(high >> 8);
        data += char(high & 0xFF);
        data += bytes(2);
        lines.insert(at, record(4, chance(80) ? 0 : quint16(below(0x10000)), data.left(length)));
        named("extended linear address");
        break;
    }
    case 10: // extended segment address: the programmer writes it as data
        lines.insert(at, record(2, 0, bytes(2)));
        named("extended segment address");
        break;
    case 11: // another record type for the same fields
        if (line.size() >= 9) {
            static const char* types[] = {"00", "01", "02", "03", "05", "06", "FF", "14", "04"};
            line.replace(7, 2, types[below(9)]);
            named("record type");
        }
        break;
    case 12: { // the 0xFFFE edge
        const quint16 offset = quint16(0xFFE8 + below(24));
        lines.insert(at, record(0, offset, bytes(1 + int(below(24)))));
        lines.insert(at, upper(0));
        named("record at the 0xFFFE edge");
        break;
    }
    case 13: { // configuration bytes
        const quint16 offset = quint16(below(chance(80) ? 14 : 32));
        lines.insert(at, record(0, offset, bytes(1 + int(below(18)))));
        lines.insert(at, upper(0x30));
        named("configuration record");
        break;
    }
    case 14:
        lines.insert(at, line);
        named("line repeated");
        break;
    case 15:
        if (lines.size() > 1) {
            lines.swapItemsAt(at, int(below(quint32(lines.size()))));
            named("lines swapped");
        }
        break;
    case 16:
        line.truncate(int(below(quint32(line.size() + 1))));
        named("line cut");
        break;
    case 17:
        line = (chance(50) ? QByteArray(" ") : QByteArray()) + line +
               (chance(50) ? QByteArray(" \t") : QByteArray("\r"));
        named("blanks around");
        break;
    case 18: // ID locations or EEPROM
        lines.insert(at, record(0, quint16(below(16)), bytes(1 + int(below(16)))));
        lines.insert(at, upper(chance(50) ? 0x20 : 0xF0));
        named(chance(50) ? "ID or EEPROM record" : "EEPROM or ID record");
        break;
    case 20: // a hex digit changed anywhere: length, address, type, data or checksum
        if (line.size() > 1) {
            line[1 + int(below(quint32(line.size() - 1)))] = "0123456789ABCDEF"[below(16)];
            named("digit changed");
        }
        break;
    default: // an empty record of another type, which the programmer skips
        lines.insert(at, record(quint8(below(6)), quint16(below(0x10000)), QByteArray()));
        named("empty record");
        break;
    }
}

QByteArray Generator::joined(const QList<QByteArray>& lines, QStringList& how)
{
    const int style = int(below(10));
    QByteArray text;
    for (int i = 0; i < lines.size(); ++i) {
        text += lines[i];
        const bool last = i == lines.size() - 1;
        if (last && style == 0)
            break; // no final newline
        text += style == 1 || (style == 2 && below(2)) ? "\r\n" : style == 3 && below(8) == 0 ? "\r" : "\n";
    }
    static const char* const ends[] = {"no final newline", "CR LF", "mixed line ends", "stray CR"};
    if (style <= 3)
        how << QLatin1String(ends[style]);
    return text;
}

// The chip as the step finds it: mostly blank, else with earlier firmware's configuration and protection.
pic::Memory Generator::chipBefore(QStringList& how)
{
    pic::Memory before = pic::blankChip();
    if (chance(75))
        return before;
    for (std::size_t i = 0; i < chip::configSize; ++i) {
        if (chance(40))
            before.config[int(i)] = char(quint8(before.config[int(i)]) & quint8(below(256)));
    }
    for (int i = 0; i < 64; ++i)
        before.flash[int(below(quint32(before.flash.size())))] = char(below(256));
    how << QStringLiteral("chip before: configuration %1").arg(QString::fromLatin1(before.config.toHex(' ')));
    return before;
}

// A file past QIODevice's 16 KiB read buffer, with CRs inside the lines around the buffer's end.
QByteArray Generator::bigFile(QStringList& how)
{
    QList<QByteArray> lines{upper(0)};
    const quint32 start = below(0x8000) & ~1u;
    for (quint32 offset = 0; offset < 16 * 420; offset += 16)
        lines << record(0, quint16(start + offset), bytes(16));
    lines << QByteArray(":00000001FF");
    QByteArray text = lines.join('\n') + '\n';
    const int crs = 1 + int(below(4));
    for (int i = 0; i < crs; ++i)
        text.insert(16384 - 40 + int(below(80)), '\r');
    how << QStringLiteral("big file with %1 CRs around 16 KiB").arg(crs);
    return text;
}

Case Generator::next()
{
    Case c;
    if (chance(1)) {
        c.text = bigFile(c.how);
        c.before = pic::blankChip();
        return c;
    }
    QList<QByteArray> lines;
    if (!m_seeds.isEmpty() && chance(50)) {
        const int pick = int(below(quint32(m_seeds.size())));
        lines = m_seeds[pick].split('\n');
        for (QByteArray& line : lines) {
            if (line.endsWith('\r'))
                line.chop(1);
        }
        if (!lines.isEmpty() && lines.last().isEmpty())
            lines.removeLast();
        c.how << QStringLiteral("seed %1").arg(pick);
    } else {
        lines = madeFile(c.how);
    }
    const int mutations = chance(15) ? 0 : 1 + int(below(chance(20) ? 10 : 4));
    for (int i = 0; i < mutations; ++i)
        mutate(lines, c.how);
    c.text = joined(lines, c.how);
    c.before = chipBefore(c.how);
    return c;
}

} // namespace hexdiff
