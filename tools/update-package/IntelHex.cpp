#include "IntelHex.h"

namespace hex {
namespace {

int nibble(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

// The shape each record type must have: data length and whether the offset field must be zero.
QString shapeProblem(const Record& r)
{
    switch (r.type) {
    case EndOfFile:
        return r.data.isEmpty() ? QString()
                                : QStringLiteral("end-of-file record with %1 data bytes").arg(r.data.size());
    case ExtendedSegmentAddress:
    case ExtendedLinearAddress:
        if (r.data.size() != 2)
            return QStringLiteral("address record with %1 data bytes (2 expected)").arg(r.data.size());
        return r.offset == 0 ? QString() : QStringLiteral("address record with a non-zero offset field");
    case StartSegmentAddress:
    case StartLinearAddress:
        return r.data.size() == 4 ? QString()
                                  : QStringLiteral("start address record with %1 data bytes (4 expected)")
                                        .arg(r.data.size());
    default:
        return QString();
    }
}

} // namespace

QString hexNumber(quint32 value, int digits)
{
    return QStringLiteral("0x") + QStringLiteral("%1").arg(value, digits, 16, QLatin1Char('0')).toUpper();
}

File parse(const QByteArray& text)
{
    File file;
    bool ended = false;
    int lineNumber = 0;
    int from = 0;
    while (from < text.size()) {
        int to = text.indexOf('\n', from);
        if (to < 0)
            to = text.size();
        QByteArray line = text.mid(from, to - from);
        from = to + 1;
        ++lineNumber;
        if (line.endsWith('\r'))
            line.chop(1);
        auto problem = [&](const char* rule, const QString& message) {
            file.problems.push_back({lineNumber, QLatin1String(rule), message});
        };
        if (line.isEmpty()) {
            problem("hex-empty-line", QStringLiteral("empty line"));
            continue;
        }
        if (line[0] != ':') {
            problem("hex-malformed", QStringLiteral("not a record: it does not begin with ':'"));
            continue;
        }
        QByteArray bytes;
        bool digits = (line.size() % 2) == 1;
        for (int i = 1; digits && i + 1 < line.size(); i += 2) {
            const int high = nibble(line[i]), low = nibble(line[i + 1]);
            digits = high >= 0 && low >= 0;
            bytes.append(char(high * 16 + low));
        }
        if (!digits || bytes.size() < 5) {
            problem(
                "hex-malformed",
                QStringLiteral("malformed record: not an even number of hex digits after ':' or too short"));
            continue;
        }
        const int count = quint8(bytes[0]);
        if (bytes.size() != count + 5) {
            problem("hex-malformed",
                    QStringLiteral("malformed record: the length field says %1 data bytes, the line holds %2")
                        .arg(count)
                        .arg(bytes.size() - 5));
            continue;
        }
        Record record;
        record.line = lineNumber;
        record.offset = quint16(quint8(bytes[1]) << 8 | quint8(bytes[2]));
        record.type = quint8(bytes[3]);
        record.data = bytes.mid(4, count);
        quint8 sum = 0;
        for (int i = 0; i < bytes.size() - 1; ++i)
            sum += quint8(bytes[i]);
        const quint8 expected = quint8(-sum);
        record.checksumOk = expected == quint8(bytes.back());
        if (!record.checksumOk)
            problem("hex-checksum", QStringLiteral("bad checksum %1 (the record's bytes give %2)")
                                        .arg(hexNumber(quint8(bytes.back()), 2), hexNumber(expected, 2)));
        if (record.type > StartLinearAddress)
            problem("hex-record-type",
                    QStringLiteral("unknown record type %1").arg(hexNumber(record.type, 2)));
        const QString shape = shapeProblem(record);
        if (!shape.isEmpty())
            problem("hex-malformed", shape);
        if (ended)
            problem("hex-after-end", QStringLiteral("record after the end-of-file record"));
        if (record.type == EndOfFile)
            ended = true;
        file.records.push_back(record);
    }
    if (!ended)
        file.problems.push_back({0, QStringLiteral("hex-no-end"),
                                 QStringLiteral("no end-of-file record: the file may be cut short")});
    return file;
}

} // namespace hex
