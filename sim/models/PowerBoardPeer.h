#pragma once
// The power board's side of its framed serial link. Pure model: bytes written by the host go in, bytes for
// the host come out; no I/O and no clock (the caller decides when a silence has become a time-out).
//
// Frame: STX 0x02, id (4..126, never stuffed), length (2 bytes, low first), payload, checksum (2 bytes, low
// first: 16-bit sum, wrapping, starting at 1, over id, length bytes and payload), ETX 0x03. Length,
// payload and checksum are byte-stuffed: 0x7F -> 7F 7F, 0x02 -> 7F F2, 0x03 -> 7F F3.
// ACK and NAK: 02 06 id 03 and 02 15 id 03, neither stuffed nor checksummed.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace sim {

using Bytes = std::vector<std::uint8_t>;

namespace powerboard {

constexpr std::uint8_t STX = 0x02;
constexpr std::uint8_t ETX = 0x03;
constexpr std::uint8_t ACK = 0x06;
constexpr std::uint8_t NAK = 0x15;
constexpr std::uint8_t ESC = 0x7F;
constexpr std::uint8_t firstId = 4;
constexpr std::uint8_t lastId = 126;

std::uint16_t checksum(std::uint8_t id, const Bytes& payload);
Bytes stuff(const Bytes& plain);
// Undoes the stuffing by scanning left to right; nothing for a dangling or unknown escape.
std::optional<Bytes> unstuff(const Bytes& stuffed);
// A correct frame.
Bytes encodeFrame(std::uint8_t id, const Bytes& payload);
// A frame with every field given, for frames that lie about their length or checksum.
Bytes encodeFrame(std::uint8_t id, std::uint16_t length, const Bytes& payload, std::uint16_t checksum);
Bytes ackFrame(std::uint8_t id);
Bytes nakFrame(std::uint8_t id);
std::uint8_t nextId(std::uint8_t id); // 126 is followed by 4

} // namespace powerboard

class PowerBoardPeer
{
public:
    enum class Status
    {
        Accepted,    // good frame, ACKed
        Refused,     // good frame, NAKed on request (nakNext)
        Ignored,     // frame received while silent: no answer
        BadId,       // id outside 4..126
        BadStuffing, // an escape byte not followed by 7F, F2 or F3
        TooShort,    // no room for length and checksum
        BadLength,   // length field differs from the payload carried
        BadChecksum,
    };

    // One frame the host sent (everything between STX and ETX that is not an ACK/NAK).
    struct HostFrame
    {
        Status status;
        std::uint8_t id;
        Bytes payload;       // unstuffed; empty when the frame could not be decoded
        bool repeat = false; // same id and payload as the last accepted frame
        Bytes wire;          // the bytes as received, STX to ETX
    };

    // An ACK or NAK the host sent for one of the peer's frames.
    struct Control
    {
        bool ack;
        std::uint8_t id;
    };

    // Bytes written by the host, split anyhow.
    void receive(const Bytes& bytes);
    // Chunks to hand to the host, each meant to arrive by itself; empties the output.
    std::vector<Bytes> takeOutput();
    bool hasOutput() const { return !m_output.empty(); }

    // Answer nothing, not even NAKs, until switched back.
    void setSilent(bool silent) { m_silent = silent; }
    // NAK the next count good frames instead of ACKing them.
    void nakNext(int count) { m_nakCount = count; }
    // Cut everything sent from now on into chunks of at most size bytes (0: one chunk per frame).
    void setChunkSize(std::size_t size) { m_chunkSize = size; }

    // A frame of the board's own, with the next id (starting at 4, wrapping after 126) or a given one.
    void sendFrame(const Bytes& payload);
    void sendFrame(std::uint8_t id, const Bytes& payload);
    // The last own frame once more, byte for byte, as if the host's ACK had been lost.
    void repeatLastFrame();
    // Any bytes, for broken frames and line noise.
    void sendRaw(const Bytes& bytes);

    const std::vector<HostFrame>& frames() const { return m_frames; }
    // Payloads of the accepted frames, repeats left out, in the order received.
    std::vector<Bytes> commands() const;
    const std::vector<Control>& controls() const { return m_controls; }
    // Bytes that arrived outside any frame.
    std::size_t strayBytes() const { return m_strayBytes; }

private:
    void frameEnded();
    void queue(const Bytes& bytes);

    bool m_inFrame = false;
    Bytes m_current; // wire bytes of the frame being received, from STX on
    std::vector<HostFrame> m_frames;
    std::vector<Control> m_controls;
    std::size_t m_strayBytes = 0;
    std::optional<std::size_t> m_lastAccepted; // index into m_frames

    bool m_silent = false;
    int m_nakCount = 0;
    std::size_t m_chunkSize = 0;
    std::uint8_t m_ownId = powerboard::firstId;
    Bytes m_lastOwnFrame;
    std::vector<Bytes> m_output;
};

} // namespace sim
