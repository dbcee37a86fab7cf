// The ESA board loader of the progress screen with its switch opened (as the loader tests do): one to
// three loads per input, each with an image made here, the boards' replies delivered as the serial port
// would, one chunk per turn of the loader's wait loop. Checks, beyond crashes and sanitizer findings:
// - a load starts with "B" (once per board) and "2" or "3"; after that every write is EOT or a 133-byte
//   packet: SOH, the block number counting from 0 and its complement, the image's next 128 bytes (the
//   last block filled with 0x1A) and their CRC-16/XMODEM, high byte first;
// - a load reports success exactly when EOT followed the image's last block.
#include "../../tests/support/EsaLoaderAccess.h"
#include "EsaBoards.h"
#include "FuzzSupport.h"
#include "TtyHandler.h"
#include "UpdaterProgressScreen.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>

#include <unistd.h>

namespace {

const char EOT = sim::esa::EOT;
const int BLOCK = int(sim::esa::blockSize), PACKET = int(sim::esa::packetSize);

// The image lies beside the package folder: the loader appends its argument to "/tmp/firmware_update",
// so "-fuzz-<pid>.bin" names a file of this process only.
QString imageArgument()
{
    static const QString argument = QString("-fuzz-%1.bin").arg(::getpid());
    static const bool cleanup = [] {
        std::atexit([] { QFile::remove("/tmp/firmware_update" + argument); });
        return true;
    }();
    Q_UNUSED(cleanup);
    return argument;
}

// Plays the boards: at each turn of the event loop the next reply chunk arrives. When the replies run
// out, the board has gone quiet, and the loader as built would wait for ever: the load is abandoned.
class Boards : public QObject
{
public:
    Boards(UpdaterProgressScreen& screen, TtyHandler* tty, fuzzsupport::ByteReader& replies)
        : m_screen(screen), m_tty(tty), m_replies(replies)
    {
    }
    void nextTurn() { QCoreApplication::postEvent(this, new QEvent(QEvent::User)); }

protected:
    bool event(QEvent* e) override
    {
        if (e->type() != QEvent::User)
            return QObject::event(e);
        if (m_replies.atEnd()) {
            esaaccess::abandonEsaLoad(m_screen);
            return true;
        }
        const std::uint8_t head = m_replies.byte();
        QByteArray chunk;
        switch (head % 4) {
        case 0:
            chunk = "C";
            break;
        case 1:
            chunk = QByteArray(1, 0x06);
            break;
        default:
            chunk = m_replies.bytes(1 + head / 4 % 8);
            break;
        }
        fuzzsupport::SerialLine::instance().setPending(chunk);
        QMetaObject::invokeMethod(m_tty, "notify", Qt::DirectConnection, Q_ARG(int, 0));
        nextTurn();
        return true;
    }

private:
    UpdaterProgressScreen& m_screen;
    TtyHandler* m_tty;
    fuzzsupport::ByteReader& m_replies;
};

void checkLoad(const QList<QByteArray>& writes, const QByteArray& image, int result)
{
    int block = 0;
    bool eot = false;
    for (const QByteArray& w : writes) {
        const QString shown = QString::fromLatin1(w.left(8).toHex(' ')) + (w.size() > 8 ? " ..." : "");
        FUZZ_CHECK(!eot, "bytes sent after EOT: " + shown);
        if (w.size() == 1) {
            FUZZ_CHECK(w[0] == EOT, "a stray byte to the board after the load began: " + shown);
            FUZZ_CHECK(block * BLOCK >= image.size(),
                       QString("EOT after %1 of %2 bytes").arg(block * BLOCK).arg(image.size()));
            eot = true;
            continue;
        }
        FUZZ_CHECK(w.size() == PACKET,
                   QString("a write of %1 bytes, neither packet nor EOT: ").arg(w.size()) + shown);
        // The packet as the boards' model builds it, from the protocol: number, complement, filling, CRC.
        const QByteArray data = image.mid(block * BLOCK, BLOCK);
        const std::string expected = sim::esa::packet(std::uint8_t(block % 256), data.toStdString());
        FUZZ_CHECK(w.toStdString() == expected,
                   QString("packet %1 differs from the image's block: ").arg(block) + shown);
        ++block;
    }
    FUZZ_CHECK((result == 0) == eot,
               QString("result %1 although EOT was %2sent").arg(result).arg(eot ? "" : "not "));
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    fuzzsupport::startScreenApplication(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzzsupport::SerialLine& line = fuzzsupport::SerialLine::instance();
    line.clear();
    fuzzsupport::ByteReader in(data, size);
    UpdaterProgressScreen screen;
    esaaccess::setAvrUpdateEnabled(screen, true);
    TtyHandler* tty = screen.findChild<TtyHandler*>();
    FUZZ_CHECK(tty, "the screen has no serial handler");
    Boards boards(screen, tty, in);

    const int loads = 1 + in.byte() % 3;
    bool bootRequested[2] = {false, false};
    for (int load = 0; load < loads; ++load) {
        const std::uint8_t kind = in.byte();
        const auto board = UpdaterProgressScreen::ESA_BOARD_ID(kind & 1);
        const auto type = UpdaterProgressScreen::ESA_UPDATE_TYPE((kind >> 1) & 1);
        // Up to 300 blocks, so that block 255 is followed by block 0.
        const int sizeHigh = in.byte();
        const int imageSize = (sizeHigh << 8 | in.byte()) % (300 * BLOCK + 1);
        QByteArray image(imageSize, '\0');
        for (int i = 0; i < imageSize; ++i)
            image[i] = char((i * 29 + kind) & 0xFF);
        QFile file("/tmp/firmware_update" + imageArgument());
        FUZZ_CHECK(file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(image) == image.size(),
                   "cannot write the image under /tmp");
        file.close();

        line.writes().clear();
        boards.nextTurn();
        const int result = screen.updateESA(imageArgument(), board, type);
        QCoreApplication::removePostedEvents(&boards);

        QList<QByteArray> writes = line.writes();
        const QByteArray expectedStart =
            QByteArray(bootRequested[board] ? "" : "B") + (type == UpdaterProgressScreen::EEP ? "3" : "2");
        bootRequested[board] = true;
        QByteArray start;
        while (!writes.isEmpty() && start.size() < expectedStart.size() && writes.first().size() == 1)
            start += writes.takeFirst();
        FUZZ_CHECK(start == expectedStart, "the load began with " + QString::fromLatin1(start.toHex(' ')));
        checkLoad(writes, image, result);
    }
    return 0;
}
