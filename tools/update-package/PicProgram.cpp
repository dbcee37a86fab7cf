#include "PicProgram.h"

#include "IntelHex.h"
#include "Pic18f4620Config.h"

namespace pic {
namespace {

namespace chip = sim::pic18f4620;
using hex::hexNumber;

constexpr quint32 flashSize = 0x10000;
constexpr quint32 recordLimit = 0xFFFE;  // a flash record must end at or below this address
constexpr quint32 lastConfig = 0x30000D; // a record starting here or later is passed over
constexpr int recordBuffer = 100;        // longer records end the run with a failure
constexpr quint32 rowSize = 64;

class Chip
{
public:
    explicit Chip(Memory memory) : m(std::move(memory)) {}

    bool protectedBy(chip::ConfigBit bit) const { return !(quint8(m.config[bit.offset]) & bit.mask); }

    quint8 read(quint32 address) const
    {
        const chip::CodeBlock* block = chip::codeBlock(address);
        return block && !protectedBy(block->cp()) ? quint8(m.flash[int(address)]) : 0;
    }

    void writeRow(quint32 address, const QByteArray& bytes)
    {
        const chip::CodeBlock* block = chip::codeBlock(address);
        if (!block || protectedBy(block->cp()) || protectedBy(block->wrt()))
            return;
        ++rowWrites;
        for (int i = 0; i < bytes.size() && address + quint32(i) < flashSize; ++i) {
            const int at = int(address) + i;
            m.flash[at] = char(quint8(m.flash.at(at)) & quint8(bytes[i]));
        }
    }

    void writeConfig(quint32 address, quint8 value)
    {
        if (protectedBy(chip::WRTC))
            return;
        ++configWrites;
        const quint32 offset = address - chip::configAddress;
        const quint8 cell = quint8(m.config.at(int(offset)));
        const quint8 oneWay = offset >= chip::protectionOffset ? chip::configBytes[offset].implemented : 0;
        m.config[int(offset)] = char((value & ~oneWay) | (cell & value & oneWay));
    }

    void bulkErase()
    {
        for (const chip::CodeBlock& block : chip::codeBlocks) {
            std::fill(m.flash.begin() + int(block.from), m.flash.begin() + int(block.to), char(0xFF));
            for (const chip::ConfigBit bit : {block.cp(), block.wrt(), block.ebtr()})
                m.config[bit.offset] = char(quint8(m.config[bit.offset]) | bit.mask);
        }
    }

    Memory m;
    int rowWrites = 0;
    int configWrites = 0;
};

// The HEX file line by line as the programmer's QFile gives it in text mode. QIODevice strips CRs in two
// ways: a line read from its buffer loses only the CR of a final CR LF, while a line (or the rest of one)
// read while the buffer is empty comes byte by byte through read(), which drops every CR. The buffer is
// empty at the start and whenever a 16 KiB chunk of the file has been used up, so the first line, and the
// line that runs over each chunk's end, lose all their CRs; the others keep any that is not final.
class TextModeFile
{
public:
    explicit TextModeFile(const QByteArray& bytes) : m_bytes(bytes) {}
    bool atEnd() const { return m_pos >= m_bytes.size(); }

    QByteArray readLine()
    {
        QByteArray line;
        if (m_pos < m_buffered) {
            const int newline = m_bytes.indexOf('\n', m_pos);
            const int end = newline >= 0 && newline < m_buffered ? newline + 1 : m_buffered;
            line = m_bytes.mid(m_pos, end - m_pos);
            m_pos = end;
        }
        if (!line.endsWith('\n')) {
            while (m_pos < m_bytes.size()) {
                if (m_pos == m_buffered)
                    m_buffered = qMin(m_pos + chunk, m_bytes.size());
                const char c = m_bytes[m_pos++];
                if (c == '\r')
                    continue;
                line += c;
                if (c == '\n')
                    break;
            }
        }
        if (line.endsWith("\r\n"))
            line.replace(line.size() - 2, 2, "\n");
        return line;
    }

private:
    static constexpr int chunk = 16384; // QIODevice's read buffer
    const QByteArray& m_bytes;
    int m_pos = 0;
    int m_buffered = 0; // the buffer holds [m_pos, m_buffered)
};

QString regionRule(quint64 start)
{
    if (start < flashSize)
        return QStringLiteral("hex-flash-end");
    if (start >= 0x200000 && start < 0x200008)
        return QStringLiteral("hex-id-locations");
    if (start >= 0xF00000 && start < 0xF00400)
        return QStringLiteral("hex-eeprom");
    if (start == lastConfig)
        return QStringLiteral("hex-config-late");
    return QStringLiteral("hex-outside-memory");
}

QString regionWhy(const QString& rule)
{
    if (rule == QLatin1String("hex-flash-end"))
        return QStringLiteral("a record touching 0xFFFE or 0xFFFF is never written");
    if (rule == QLatin1String("hex-id-locations"))
        return QStringLiteral("the ID locations are never programmed");
    if (rule == QLatin1String("hex-eeprom"))
        return QStringLiteral("EEPROM data is never programmed");
    if (rule == QLatin1String("hex-config-late"))
        return QStringLiteral("a configuration record starting at 0x30000D is never written");
    return QStringLiteral("the PIC18F4620 has no program memory there (64 KB of flash)");
}

} // namespace

Memory blankChip()
{
    Memory m{QByteArray(int(flashSize), char(0xFF)), QByteArray(int(chip::configSize), '\0')};
    for (const chip::ConfigByte& byte : chip::configBytes)
        m.config[int(byte.address - chip::configAddress)] = char(byte.unprogrammed);
    return m;
}

Result program(const QByteArray& hexText, const Memory& before)
{
    Result result;
    Chip pic(before);
    pic.bulkErase();
    TextModeFile file(hexText);
    const auto note = [&](const QString& rule, int line, const QString& message) {
        result.notes.push_back({rule, line, message});
    };
    quint32 extended = 0;
    QByteArray buffer(recordBuffer, '\0'); // the programmer's record buffer, zeroed with the programmer
    int lineNumber = 0;
    result.programmed = true;
    while (!file.atEnd()) {
        // Field by field as the programmer reads them: by position, a field that is not hex reads as 0.
        const QString line = QString::fromLatin1(file.readLine());
        ++lineNumber;
        const uint len = line.mid(1, 2).toUInt(nullptr, 16);
        const quint32 address = line.mid(3, 6).toUInt(nullptr, 16);
        if (len > uint(recordBuffer)) {
            result.programmed = false;
            result.stoppedAtLine = lineNumber;
            note(QStringLiteral("hex-record-too-long"), lineNumber,
                 QStringLiteral(
                     "a record of %1 bytes: the programmer takes at most %2 and ends the PIC step with "
                     "a failure here; write records of 16 or 32 bytes")
                     .arg(len)
                     .arg(recordBuffer));
            break;
        }
        for (uint i = 0; i < len; ++i)
            buffer[int(i)] = char(line.mid(9 + 2 * int(i), 2).toUInt(nullptr, 16));
        const QByteArray data = buffer.left(int(len));
        const quint8 type = quint8(address & 0xFF);
        if (type == 4) {
            // The upper address is the first two bytes of the record buffer, whatever the record's length:
            // a shorter record leaves the earlier record's bytes there.
            extended = quint32(quint8(buffer[0]) * 256 + quint8(buffer[1])) << 16;
            continue;
        }
        if (len == 0)
            continue;
        const quint32 start = (address >> 8) + extended;
        const quint64 end = quint64(start) + len;
        const QString span = QStringLiteral("%1-%2").arg(hexNumber(start, 4), hexNumber(quint32(end - 1), 4));
        if (type != 0)
            note(QStringLiteral("hex-record-type"), lineNumber,
                 QStringLiteral("record type %1: the programmer writes its %2 bytes as data at %3")
                     .arg(hexNumber(type, 2))
                     .arg(len)
                     .arg(hexNumber(start, 4)));
        if (end > recordLimit) {
            if (start >= lastConfig || start < chip::configAddress) {
                const QString rule = regionRule(start);
                note(rule, lineNumber,
                     QStringLiteral("%1 bytes at %2 are passed over without a word: %3")
                         .arg(len)
                         .arg(span, regionWhy(rule)));
                continue;
            }
            quint32 a = start;
            for (uint i = 0; i < len && a <= lastConfig; ++i, ++a) {
                const chip::ConfigByte* byte = chip::configByte(a);
                const quint8 value = quint8(data[int(i)]);
                pic.writeConfig(a, value);
                if (value & ~byte->implemented)
                    note(QStringLiteral("hex-config-bits"), lineNumber,
                         QStringLiteral(
                             "sets configuration bits that do not exist at %1%2: %3 (implemented bits %4)")
                             .arg(hexNumber(a, 6),
                                  *byte->name ? QStringLiteral(" (%1)").arg(byte->name) : QString(),
                                  hexNumber(value, 2), hexNumber(byte->implemented, 2)));
            }
            if (end - 1 > lastConfig)
                note(QStringLiteral("hex-outside-memory"), lineNumber,
                     QStringLiteral("the bytes after 0x30000D (%1 of them) are passed over")
                         .arg(end - 1 - lastConfig));
            continue;
        }
        // Program memory: whole words, one write per 64-byte row, then the record read back.
        quint32 from = start;
        QByteArray words = data;
        if (from & 1) {
            --from;
            words.prepend(char(pic.read(from)));
        }
        if (words.size() & 1)
            words.append(char(pic.read(from + quint32(words.size()))));
        for (int done = 0; done < words.size();) {
            const quint32 at = from + quint32(done);
            const int chunk = qMin(int(rowSize - (at % rowSize)), int(words.size()) - done);
            if (chunk > 1)
                pic.writeRow(at, words.mid(done, chunk));
            done += chunk;
        }
        for (uint i = 0; i < len; ++i) {
            const quint8 actual = pic.read(start + i);
            if (actual != quint8(data[int(i)])) {
                result.programmed = false;
                result.stoppedAtLine = lineNumber;
                note(QStringLiteral("hex-verify-fails"), lineNumber,
                     QStringLiteral(
                         "%1 reads back %2 instead of %3 (flash cannot turn bits back on, or the block is "
                         "protected): the verify fails and the PIC step ends here")
                         .arg(hexNumber(start + i, 4), hexNumber(actual, 2),
                              hexNumber(quint8(data[int(i)]), 2)));
                break;
            }
        }
        if (!result.programmed)
            break;
        result.written.push_back({start, quint32(end)});
    }
    result.memory = pic.m;
    result.rowWrites = pic.rowWrites;
    result.configWrites = pic.configWrites;
    return result;
}

QString rangeText(const QVector<Range>& ranges)
{
    QVector<Range> sorted = ranges;
    std::sort(sorted.begin(), sorted.end(), [](const Range& a, const Range& b) { return a.from < b.from; });
    QStringList out;
    for (int i = 0; i < sorted.size();) {
        quint32 from = sorted[i].from, to = sorted[i].to;
        for (++i; i < sorted.size() && sorted[i].from <= to; ++i)
            to = qMax(to, sorted[i].to);
        out << QStringLiteral("%1-%2").arg(hexNumber(from, 4), hexNumber(to - 1, 4));
    }
    return out.join(QStringLiteral(", "));
}

} // namespace pic
