// Loads a 64 KB image into the simulated IO board's flash the way an ESA_IO_APP command does and prints
// the transfer rate next to the limit of the line: at 115200 baud 8N1 (11520 bytes/s) 133-byte packets
// carry at most 11520 * 128 / 133 = 11086 bytes of image per second. Waiting for each ACK adds one more
// byte time per block, so 133/134 (99.3 %) of that limit is the best a load can reach. Meant to run inside
// sim/sandbox --instrument with --serial esa --serial-baud 115200 (see run.sh).

#include "UpdaterProgressScreen.h"

#include "../../tests/support/EsaLoaderAccess.h"
#include "../../tests/support/SimInstrument.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QRandomGenerator>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

constexpr double lineBytesPerSecond = 115200.0 / 10; // 8N1: start, 8 data bits, stop
constexpr int imageSize = 64 * 1024;
constexpr int blockSize = 128;
constexpr int packetSize = blockSize + 5;

// The loader's debug lines are counted, not printed: writing them out would slow the load down.
int g_unknownReads = 0;

void countMessages(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    if (message.startsWith("unknown received:"))
        ++g_unknownReads;
    else if (type != QtDebugMsg)
        std::fprintf(stderr, "%s\n", qPrintable(message));
}

int fail(const char* message)
{
    std::fprintf(stderr, "esa bench: %s\n", message);
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    qInstallMessageHandler(countMessages);
    const int loads = argc > 1 ? QString(argv[1]).toInt() : 3;
    if (loads < 1)
        return fail("the number of loads must be a positive number");
    if (!siminstrument::available("esa/log"))
        return fail(
            "no simulated ESA boards: run inside sim/sandbox --instrument with --serial esa (run.sh)");

    QByteArray image(imageSize, Qt::Uninitialized);
    QRandomGenerator random(64);
    for (char& byte : image)
        byte = char(random.bounded(256));
    QDir().mkpath("/tmp/firmware_update/bench");
    QFile file("/tmp/firmware_update/bench/esa.bin");
    if (!file.open(QIODevice::WriteOnly) || file.write(image) != image.size())
        return fail("cannot write the image under /tmp/firmware_update");
    file.close();

    UpdaterProgressScreen screen;
    esaaccess::setAvrUpdateEnabled(screen, true);

    const double limit = lineBytesPerSecond * blockSize / packetSize;
    std::printf("line 115200 baud 8N1 = %.0f bytes/s; limit for %d-byte packets = %.1f bytes/s of image\n",
                lineBytesPerSecond, packetSize, limit);
    std::printf("image %d bytes = %d blocks\n", imageSize, imageSize / blockSize);

    std::vector<double> rates;
    for (int load = 1; load <= loads; ++load) {
        g_unknownReads = 0;
        QElapsedTimer clock;
        clock.start();
        const int result =
            screen.updateESA("/bench/esa.bin", UpdaterProgressScreen::IO, UpdaterProgressScreen::APP);
        const double seconds = double(clock.nsecsElapsed()) / 1e9;
        if (result != 0)
            return fail("the load failed");
        if (siminstrument::read("esa/io/flash") != image)
            return fail("the board's flash does not hold the image");
        const double rate = imageSize / seconds;
        rates.push_back(rate);
        // From the second load on, every notification also runs the handlers of the earlier calls.
        std::printf("load %d: %.3f s, %.1f bytes/s, %.1f %% of the limit (%d reads found nothing)\n", load,
                    seconds, rate, 100.0 * rate / limit, g_unknownReads);
    }

    std::sort(rates.begin(), rates.end());
    const double median = rates[rates.size() / 2];
    std::printf(
        "median: %.1f bytes/s = %.1f %% of the limit (goal >= 95 %%; stop-and-wait ceiling %.1f %%)\n",
        median, 100.0 * median / limit, 100.0 * packetSize / (packetSize + 1));
    if (median > limit)
        std::printf("note: faster than the line allows - is the line paced (--serial-baud)?\n");
    return 0;
}
