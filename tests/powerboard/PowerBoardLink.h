#pragma once
// One power-board line for the tests of PowerBoardManager: the manager on a pty's slave, the peer model on
// its master, and frames written out from the protocol.

#include "../support/PtyPair.h"
#include "PowerBoardManager.h"
#include "PowerBoardPeer.h"

#include <QSignalSpy>
#include <QSocketNotifier>
#include <QtTest>

#include <memory>

using sim::Bytes;
namespace pb = sim::powerboard;

const auto qt = [](const Bytes& b) { return QByteArray::fromStdString({b.begin(), b.end()}); };
const auto raw = [](const QByteArray& a) { return Bytes(a.begin(), a.end()); };
const auto frame = [](int id, const QByteArray& p) { return qt(pb::encodeFrame(std::uint8_t(id), raw(p))); };
const auto ack = [](int id) { return qt(pb::ackFrame(std::uint8_t(id))); };
const auto nak = [](int id) { return qt(pb::nakFrame(std::uint8_t(id))); };
// The frame as the manager passes it up: id, then length, payload and checksum unstuffed.
const auto unstuffed = [](int id, const QByteArray& payload) {
    return char(id) + qt(*pb::unstuff(raw(frame(id, payload).mid(2).chopped(1))));
};

// One line: a manager on the pty slave, the peer model on the master. Whatever the peer has to say is
// delivered chunk by chunk, each chunk only after the manager has read the one before.
class Link
{
public:
    Link()
    {
        if (!pty.isOpen())
            return;
        manager = std::make_unique<PowerBoardManager>(pty.slavePath());
        m_tty = manager->findChild<QIODevice*>();
        m_notifier = std::make_unique<QSocketNotifier>(pty.master(), QSocketNotifier::Read);
        QObject::connect(m_notifier.get(), &QSocketNotifier::activated, [this] { pump(); });
        QObject::connect(manager.get(), &PowerBoardManager::packetReceived,
                         [this](const QByteArray& packet) { received << packet; });
        QObject::connect(manager.get(), &PowerBoardManager::txComplete, [this] { ++completed; });
        QObject::connect(manager.get(), &PowerBoardManager::txFailed, [this] { ++failed; });
    }

    // Hands the manager the raw bytes given, then what the peer has to say.
    bool send(const QByteArray& bytes = {})
    {
        if (!bytes.isEmpty())
            peer.sendRaw(raw(bytes));
        for (const Bytes& chunk : peer.takeOutput()) {
            QSignalSpy arrived(m_tty, &QIODevice::readyRead);
            if (!pty.writeMaster(qt(chunk)) || !arrived.wait(10000))
                return false;
        }
        m_hostAfterDelivery = host.size();
        return true;
    }

    // Waits until the peer has seen count frames from the host.
    bool waitForFrames(std::size_t count, int timeoutMs = 10000)
    {
        return QTest::qWaitFor([&] { return peer.frames().size() >= count; }, timeoutMs) &&
               peer.frames().size() == count;
    }

    // NAKs host frames first..last (counted from 1) as each arrives; then, unless the last NAK gives up,
    // waits for the one resend.
    bool nakFrames(std::size_t first, std::size_t last, bool resent = true)
    {
        for (std::size_t n = first; n <= last; ++n)
            if (!waitForFrames(n) || !send(nak(4)))
                return false;
        return !resent || waitForFrames(last + 1);
    }

    // The manager answers inside its handler of what it read, so once a delivery is done its answer
    // already waits on the line: silent means nothing waits there and nothing came since.
    bool hostStaysSilent() const
    {
        pollfd pending{pty.master(), POLLIN, 0};
        return ::poll(&pending, 1, 0) == 0 && host.size() == m_hostAfterDelivery;
    }

    PtyPair pty;
    sim::PowerBoardPeer peer;
    std::unique_ptr<PowerBoardManager> manager;
    QByteArray host;               // every byte the host sent
    QList<QByteArray> received;    // every packet the manager passed up
    int completed = 0, failed = 0; // txComplete and txFailed so far

private:
    void pump()
    {
        m_notifier->setEnabled(false);
        const QByteArray got = pty.readMaster(0, 0);
        host += got;
        peer.receive(raw(got));
        send();
        m_notifier->setEnabled(true);
    }

    std::unique_ptr<QSocketNotifier> m_notifier;
    QIODevice* m_tty = nullptr;
    int m_hostAfterDelivery = 0;
};
