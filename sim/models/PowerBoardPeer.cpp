#include "PowerBoardPeer.h"

#include <algorithm>

namespace sim {
namespace powerboard {

std::uint16_t checksum(std::uint8_t id, const Bytes& payload)
{
    const auto length = static_cast<std::uint16_t>(payload.size());
    std::uint16_t sum = 1;
    sum = static_cast<std::uint16_t>(sum + id + (length & 0xFF) + (length >> 8));
    for (std::uint8_t byte : payload)
        sum = static_cast<std::uint16_t>(sum + byte);
    return sum;
}

Bytes stuff(const Bytes& plain)
{
    Bytes out;
    out.reserve(plain.size() * 2);
    for (std::uint8_t byte : plain) {
        switch (byte) {
        case ESC:
            out.insert(out.end(), {ESC, ESC});
            break;
        case STX:
            out.insert(out.end(), {ESC, 0xF2});
            break;
        case ETX:
            out.insert(out.end(), {ESC, 0xF3});
            break;
        default:
            out.push_back(byte);
        }
    }
    return out;
}

std::optional<Bytes> unstuff(const Bytes& stuffed)
{
    Bytes out;
    out.reserve(stuffed.size());
    for (std::size_t i = 0; i < stuffed.size(); ++i) {
        if (stuffed[i] != ESC) {
            out.push_back(stuffed[i]);
            continue;
        }
        if (++i == stuffed.size())
            return std::nullopt;
        switch (stuffed[i]) {
        case ESC:
            out.push_back(ESC);
            break;
        case 0xF2:
            out.push_back(STX);
            break;
        case 0xF3:
            out.push_back(ETX);
            break;
        default:
            return std::nullopt;
        }
    }
    return out;
}

Bytes encodeFrame(std::uint8_t id, std::uint16_t length, const Bytes& payload, std::uint16_t sum)
{
    Bytes body{static_cast<std::uint8_t>(length & 0xFF), static_cast<std::uint8_t>(length >> 8)};
    body.insert(body.end(), payload.begin(), payload.end());
    body.push_back(static_cast<std::uint8_t>(sum & 0xFF));
    body.push_back(static_cast<std::uint8_t>(sum >> 8));

    Bytes frame{STX, id};
    const Bytes stuffed = stuff(body);
    frame.insert(frame.end(), stuffed.begin(), stuffed.end());
    frame.push_back(ETX);
    return frame;
}

Bytes encodeFrame(std::uint8_t id, const Bytes& payload)
{
    return encodeFrame(id, static_cast<std::uint16_t>(payload.size()), payload, checksum(id, payload));
}

Bytes ackFrame(std::uint8_t id)
{
    return {STX, ACK, id, ETX};
}

Bytes nakFrame(std::uint8_t id)
{
    return {STX, NAK, id, ETX};
}

std::uint8_t nextId(std::uint8_t id)
{
    return id >= lastId ? firstId : static_cast<std::uint8_t>(id + 1);
}

} // namespace powerboard

using namespace powerboard;

void PowerBoardPeer::receive(const Bytes& bytes)
{
    for (std::uint8_t byte : bytes) {
        // The id of an ACK or NAK is sent as it is, so here even 02 and 03 are just the id.
        if (m_inFrame && m_current.size() == 2 && (m_current[1] == ACK || m_current[1] == NAK)) {
            m_current.push_back(byte);
        } else if (byte == STX) {
            // A start byte inside a frame abandons the partial frame, as a fresh start would on the board.
            m_inFrame = true;
            m_current.assign(1, STX);
        } else if (!m_inFrame) {
            ++m_strayBytes;
        } else {
            m_current.push_back(byte);
            if (byte == ETX) {
                m_inFrame = false;
                frameEnded();
            }
        }
    }
}

void PowerBoardPeer::frameEnded()
{
    const Bytes body(m_current.begin() + 1, m_current.end() - 1);
    if (body.size() == 2 && (body[0] == ACK || body[0] == NAK)) {
        m_controls.push_back({body[0] == ACK, body[1]});
        return;
    }

    HostFrame frame{Status::Accepted, body.empty() ? std::uint8_t(0) : body[0], {}, false, m_current};
    const std::optional<Bytes> plain =
        body.empty() ? std::nullopt : unstuff(Bytes(body.begin() + 1, body.end()));
    if (frame.id < firstId || frame.id > lastId) {
        frame.status = Status::BadId;
    } else if (!plain) {
        frame.status = Status::BadStuffing;
    } else if (plain->size() < 4) {
        frame.status = Status::TooShort;
    } else {
        const std::size_t length = (*plain)[0] | ((*plain)[1] << 8);
        const std::uint16_t sum =
            static_cast<std::uint16_t>((*plain)[plain->size() - 2] | ((*plain)[plain->size() - 1] << 8));
        frame.payload.assign(plain->begin() + 2, plain->end() - 2);
        if (length != frame.payload.size())
            frame.status = Status::BadLength;
        else if (sum != checksum(frame.id, frame.payload))
            frame.status = Status::BadChecksum;
    }

    const bool good = frame.status == Status::Accepted;
    if (m_silent) {
        if (good)
            frame.status = Status::Ignored;
    } else if (!good) {
        queue(nakFrame(frame.id));
    } else if (m_nakCount > 0) {
        --m_nakCount;
        frame.status = Status::Refused;
        queue(nakFrame(frame.id));
    } else {
        if (m_lastAccepted) {
            const HostFrame& last = m_frames[*m_lastAccepted];
            frame.repeat = last.id == frame.id && last.payload == frame.payload;
        }
        m_lastAccepted = m_frames.size();
        queue(ackFrame(frame.id));
    }
    m_frames.push_back(std::move(frame));
}

std::vector<Bytes> PowerBoardPeer::takeOutput()
{
    std::vector<Bytes> out;
    out.swap(m_output);
    return out;
}

void PowerBoardPeer::sendFrame(const Bytes& payload)
{
    sendFrame(m_ownId, payload);
}

void PowerBoardPeer::sendFrame(std::uint8_t id, const Bytes& payload)
{
    m_lastOwnFrame = encodeFrame(id, payload);
    m_ownId = nextId(id);
    queue(m_lastOwnFrame);
}

void PowerBoardPeer::repeatLastFrame()
{
    if (!m_lastOwnFrame.empty())
        queue(m_lastOwnFrame);
}

void PowerBoardPeer::sendRaw(const Bytes& bytes)
{
    queue(bytes);
}

std::vector<Bytes> PowerBoardPeer::commands() const
{
    std::vector<Bytes> out;
    for (const HostFrame& frame : m_frames)
        if (frame.status == Status::Accepted && !frame.repeat)
            out.push_back(frame.payload);
    return out;
}

void PowerBoardPeer::queue(const Bytes& bytes)
{
    if (m_chunkSize == 0) {
        m_output.push_back(bytes);
        return;
    }
    for (std::size_t at = 0; at < bytes.size(); at += m_chunkSize) {
        const std::size_t end = std::min(bytes.size(), at + m_chunkSize);
        m_output.emplace_back(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                              bytes.begin() + static_cast<std::ptrdiff_t>(end));
    }
}

} // namespace sim
