// The power-board link's receive path: chunks as the serial port delivers them (raw bytes, or frames
// built here with a right checksum so that deep paths are reached), mixed with commands sent and
// acknowledgement time-outs. Checks, beyond crashes and sanitizer findings:
// - every frame passed up has an id of 4..126, a length of at most 600 that fits the frame, the
//   checksum the receive rule demands, was acknowledged just before, and is not a repeat of the last;
// - every write to the line is an ACK or NAK frame, or a command frame with a valid 16-bit checksum
//   whose stuffed body holds no bare STX or ETX.
#include "FuzzSupport.h"
#include "PowerBoardManager.h"
#include "PowerBoardPeer.h"
#include "TtyHandler.h"

#include <QCoreApplication>
#include <QDateTime>

namespace {

const char STX = 0x02, ETX = 0x03, ACK = 0x06, NAK = 0x15;
const char* DEVICE = "/dev/fuzz-power-board";

QByteArray fromBytes(const sim::Bytes& bytes)
{
    return QByteArray(reinterpret_cast<const char*>(bytes.data()), int(bytes.size()));
}

sim::Bytes toBytes(const QByteArray& bytes)
{
    return sim::Bytes(bytes.begin(), bytes.end());
}

// Each write is checked against the power board's own framing (its model, written from the protocol).
void checkWrite(const QByteArray& bytes)
{
    if (bytes.isEmpty())
        return; // a resend before anything was sent repeats the empty frame buffer: nothing on the wire
    const QString shown = QString::fromLatin1(bytes.toHex(' '));
    FUZZ_CHECK(bytes.size() >= 4 && bytes.front() == STX && bytes.back() == ETX, "not a frame: " + shown);
    const quint8 id = quint8(bytes[1]);
    if (bytes.size() == 4 && (bytes[1] == ACK || bytes[1] == NAK))
        return;
    FUZZ_CHECK(id >= sim::powerboard::firstId && id <= sim::powerboard::lastId,
               "command frame with id out of 4..126: " + shown);
    const std::optional<sim::Bytes> body = sim::powerboard::unstuff(toBytes(bytes.mid(2, bytes.size() - 3)));
    FUZZ_CHECK(body && body->size() >= 4, "command frame with a broken escape or too short: " + shown);
    const sim::Bytes payload(body->begin() + 2, body->end() - 2);
    FUZZ_CHECK(fromBytes(sim::powerboard::encodeFrame(id, payload)) == bytes,
               "command frame with a wrong length, checksum or stuffing: " + shown);
}

class PacketCheck : public QObject
{
public:
    explicit PacketCheck(PowerBoardManager* manager)
    {
        connect(manager, &PowerBoardManager::packetReceived, this, &PacketCheck::received);
    }

private:
    void received(const QByteArray& packet)
    {
        const QString shown = QString::fromLatin1(packet.toHex(' '));
        FUZZ_CHECK(packet.size() >= 5, "packet too short: " + shown);
        const quint8 id = quint8(packet[0]);
        FUZZ_CHECK(id >= 4 && id <= 126, "packet id out of 4..126: " + shown);
        const int length = quint8(packet[1]) + 256 * quint8(packet[2]);
        FUZZ_CHECK(length <= 600 && packet.size() >= length + 5, "packet length does not fit: " + shown);
        long sum = 1; // not cut to 16 bits: that is the receive rule
        for (int i = 0; i <= length + 2; ++i)
            sum += quint8(packet[i]);
        FUZZ_CHECK(sum == quint8(packet[length + 3]) + 256L * quint8(packet[length + 4]),
                   "packet passed up with a bad checksum: " + shown);
        FUZZ_CHECK(id != m_lastId, "a repeated packet was passed up again: " + shown);
        m_lastId = id;
        const QList<QByteArray>& writes = fuzzsupport::SerialLine::instance().writes();
        FUZZ_CHECK(!writes.isEmpty() && writes.last() == QByteArray() + STX + ACK + char(id) + ETX,
                   "packet passed up without its ACK: " + shown);
    }

    int m_lastId = -1;
};

void deliver(TtyHandler* tty, const QByteArray& chunk)
{
    fuzzsupport::SerialLine::instance().setPending(chunk);
    QMetaObject::invokeMethod(tty, "notify", Qt::DirectConnection, Q_ARG(int, 0));
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    static QCoreApplication app(*argc, *argv);
    fuzzsupport::silenceDebugMessages();
    fuzzsupport::SerialLine::instance().setDevicePath(DEVICE);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzzsupport::SerialLine& line = fuzzsupport::SerialLine::instance();
    line.clear();
    PowerBoardManager manager(DEVICE);
    TtyHandler* tty = manager.findChild<TtyHandler*>();
    FUZZ_CHECK(tty, "the manager has no serial handler");
    // The receive state is one static of the receive routine: two STX in one chunk bring it back to
    // waiting for a frame from either state, so every input starts alike.
    deliver(tty, QByteArray(2, STX));
    line.writes().clear();
    PacketCheck check(&manager);

    fuzzsupport::ByteReader in(data, size);
    while (!in.atEnd()) {
        const std::uint8_t op = in.byte();
        switch (op % 8) {
        case 0: {
            const std::uint8_t which = in.byte();
            switch (which % 6) {
            case 0:
                manager.sendGetVersionCommand();
                break;
            case 1:
                manager.sendGetCalDataCommand();
                break;
            case 2:
                manager.sendSetCalDataCommand(
                    QDateTime(QDate(2026, 1, 1), QTime(0, 0), Qt::UTC).addSecs(qint64(in.byte()) * 86413));
                break;
            case 3:
                manager.sendStartTestCommand(in.byte());
                break;
            case 4:
                manager.sendStopTestCommand();
                break;
            default:
                manager.sendSendDataCommand();
                break;
            }
            break;
        }
        case 1:
            // The acknowledgement timer's 5 s, elapsed.
            QMetaObject::invokeMethod(&manager, "txTimeOut", Qt::DirectConnection);
            break;
        case 2:
        case 3: {
            // A well-formed frame from the board, possibly split over two reads.
            const quint8 id = in.byte();
            const QByteArray frame =
                fromBytes(sim::powerboard::encodeFrame(id, toBytes(in.bytes(in.byte() % 24))));
            const int split = in.byte() % (frame.size() + 1);
            deliver(tty, frame.left(split));
            deliver(tty, frame.mid(split));
            break;
        }
        default:
            // Raw bytes as one read.
            deliver(tty, in.bytes(1 + op / 8 % 32));
            break;
        }
        for (const QByteArray& bytes : line.writes())
            checkWrite(bytes);
        const QByteArray last = line.writes().isEmpty() ? QByteArray() : line.writes().last();
        line.writes().clear();
        if (!last.isEmpty())
            line.writes() << last; // the packet check looks at the write just before a packet
    }
    return 0;
}
