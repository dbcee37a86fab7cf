// Erases, programs and verifies a 64 KB image (4096 records of 16 bytes) on the simulated PIC18F4620 the way
// the update step drives PicProgrammer, and explains the wall time: the waits the protocol mandates plus the
// GPIO operations times the measured cost of one operation of the same front end. Meant to run inside
// sim/sandbox --instrument --instrument-arg --pic --cpu 0 (see run.sh).

#include "GpioPinController.h"
#include "PicProgrammer.h"
#include "PicTarget.h"

#include "../../tests/support/SimInstrument.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <vector>

namespace {

QByteArray record(quint16 offset, quint8 type, const QByteArray& data)
{
    QByteArray raw;
    raw.append(char(data.size())).append(char(offset >> 8)).append(char(offset & 0xFF)).append(char(type));
    raw.append(data);
    quint8 sum = 0;
    for (char c : raw)
        sum = quint8(sum + quint8(c));
    raw.append(char(quint8(-sum)));
    return ":" + raw.toHex().toUpper() + "\n";
}

// Cost of one GPIO file operation in microseconds: the best of several batches, so that moments when other
// processes hold the CPU do not count.
double costUs(long count, const std::function<void(long)>& operation)
{
    double best = 1e9;
    for (int batch = 0; batch < 10; ++batch) {
        QElapsedTimer timer;
        timer.start();
        for (long i = 0; i < count / 10; ++i)
            operation(i);
        best = std::min(best, timer.nsecsElapsed() / 1000.0 / double(count / 10));
    }
    return best;
}

// Time this process spent runnable but waiting for the CPU, in seconds.
double runQueueWaitS()
{
    std::ifstream schedstat("/proc/self/schedstat");
    double cpuNs = 0, waitNs = 0;
    schedstat >> cpuNs >> waitNs;
    return waitNs / 1e9;
}

const char* const DELAY_NAMES[] = {"P2",  "P5",  "P5A", "P6",  "P9", "P10", "P11a", "P12u", "P12d", "P15",
                                   "P16", "P18", "P2A", "P2B", "P3", "P4",  "P13",  "P14",  "P11"};

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (!siminstrument::available("pic/flash")) {
        std::fprintf(stderr, "bench_pic: no simulated PIC; run it through sim/sandbox --instrument "
                             "--instrument-arg --pic (see bench/pic/run.sh)\n");
        return 2;
    }

    // The image: 4096 records of 16 random bytes over the whole 64 KB.
    QTemporaryDir dir;
    QByteArray hex = record(0, 4, QByteArray::fromHex("0000"));
    QByteArray image(0x10000, '\xff');
    QRandomGenerator random(4620);
    for (int address = 0; address < 0x10000; address += 16) {
        QByteArray data(16, '\0');
        for (char& c : data)
            c = char(random.bounded(256));
        hex += record(quint16(address), 0, data);
        if (address + 16 <= 0xFFFE) // the last record touches 0xFFFE/0xFFFF and is skipped by design
            image.replace(address, 16, data);
    }
    hex += ":00000001FF\n";
    const int flashRecords = 4095;
    const QString hexPath = dir.filePath("image.hex");
    QFile hexFile(hexPath);
    if (!hexFile.open(QIODevice::WriteOnly) || hexFile.write(hex) != hex.size()) {
        std::fprintf(stderr, "bench_pic: cannot write '%s'\n", qPrintable(hexPath));
        return 1;
    }
    hexFile.close();

    // Cost of one operation of the GPIO front end, measured with the PIC board unpowered.
    double writeUs, readUs, directionUs;
    const double calibrationWait0 =
        runQueueWaitS() + siminstrument::counters("pic/stats")["server_run_delay_ns"] / 1e9;
    const long calibrationOps = 20000 + 20000 + 5000;
    {
        GpioPinController power(QString::number(sim::PicTarget::POWER));
        GpioPinController pgc(QString::number(sim::PicTarget::PGC));
        GpioPinController pgd(QString::number(sim::PicTarget::PGD));
        power.createDriver();
        power.setDirection("out");
        pgc.createDriver();
        pgc.setDirection("out");
        pgd.createDriver();
        pgd.setDirection("in");
        writeUs = costUs(20000, [&](long i) { pgc.setValue(i & 1 ? "0" : "1"); });
        readUs = costUs(20000, [&](long) { pgd.getValue(); });
        directionUs = costUs(5000, [&](long i) { pgd.setDirection(i & 1 ? "in" : "out"); });
        pgd.setDirection("out");
    }
    // Part of every operation: one side waits in the run queue while the other finishes its turn.
    const double waitPerOp =
        (runQueueWaitS() + siminstrument::counters("pic/stats")["server_run_delay_ns"] / 1e9 -
         calibrationWait0) /
        double(calibrationOps);

    // The run, as the update step drives it (without its one-second pause and screen updates).
    siminstrument::write("pic/flash", QByteArray(0x10000, '\0'));
    siminstrument::write("pic/stats", "0");
    const auto bank0 = siminstrument::counters("stats");
    const double waitBench0 = runQueueWaitS();
    const double waitServer0 = siminstrument::counters("pic/stats")["server_run_delay_ns"] / 1e9;
    std::map<QString, double> bankErased;
    QElapsedTimer wall;
    wall.start();
    qint64 eraseNs = 0;
    PicProgrammer* pic = new PicProgrammer;
    QObject::connect(pic, &PicProgrammer::eraseDone, [&] {
        eraseNs = wall.nsecsElapsed();
        bankErased = siminstrument::counters("stats");
        pic->programPic(hexPath);
    });
    pic->ev_pic_begin_erase();
    while (!pic->isFinished())
        QCoreApplication::processEvents(QEventLoop::AllEvents);
    const double wallS = wall.nsecsElapsed() / 1e9;
    const double waitS = runQueueWaitS() - waitBench0 +
                         siminstrument::counters("pic/stats")["server_run_delay_ns"] / 1e9 - waitServer0;
    const bool programmed = pic->isProgrammed();
    delete pic;
    const auto bank1 = siminstrument::counters("stats");
    auto model = siminstrument::counters("pic/stats");
    const bool same = siminstrument::read("pic/flash") == image;

    // Waits the protocol mandates, from what the model saw happen.
    using P = PicProgrammer;
    auto ns = [](P::PIC_DELAY d) { return double(P::delayNs(d)); };
    const double rows = model["rows_written"], configs = model["config_writes"],
                 erases = model["bulk_erases"];
    const double entries = rows + configs + flashRecords + 1; // every write and verify, and the erase
    const double entryNs = ns(P::PIC_DELAY_P12d) + ns(P::PIC_DELAY_P15) + ns(P::PIC_DELAY_P12u);
    const double programNs = ns(P::PIC_DELAY_P9) + 2 * ns(P::PIC_DELAY_P10);
    const double bulkNs = 3 * ns(P::PIC_DELAY_P11a) + ns(P::PIC_DELAY_P10);
    double commands = 0;
    for (const auto& [name, value] : model)
        if (name.startsWith("command_"))
            commands += value;
    // Two P2 per clock, and about three short spacings per command (P5, P2, P6).
    const double shortNs = (2 * model["clocks"] + 3 * commands) * ns(P::PIC_DELAY_P2);
    const double mandatedS =
        (entries * entryNs + (rows + configs) * programNs + erases * bulkNs + shortNs) / 1e9;

    const double writes = bank1.at("value-writes") - bank0.at("value-writes");
    const double reads = bank1.at("value-reads") - bank0.at("value-reads");
    const double directions = bank1.at("direction-writes") - bank0.at("direction-writes");
    const double opsS = (writes * writeUs + reads * readUs + directions * directionUs) / 1e6;
    const double total = writes + reads + directions;
    const double eraseOps = bankErased["value-writes"] + bankErased["value-reads"] +
                            bankErased["direction-writes"] - bank0.at("value-writes") -
                            bank0.at("value-reads") - bank0.at("direction-writes");

    std::printf(
        "PIC programming of a 64 KB image (4096 records of 16 bytes, %d written), pinned to one CPU\n",
        flashRecords);
    std::printf("result                     %s, flash %s the image\n",
                programmed ? "programmed and verified" : "FAILED", same ? "equals" : "DIFFERS FROM");
    std::printf("wall time                  %8.2f s  (erase and blank check %.2f s)\n", wallS, eraseNs / 1e9);
    std::printf(
        "mandated waits             %8.2f s  (%.0f mode entries, %.0f row writes, %.0f bulk erases)\n",
        mandatedS, entries, rows, erases);
    std::printf(
        "operations x cost          %8.2f s  (%.0f writes x %.2f us, %.0f reads x %.2f us, %.0f direction "
        "writes x %.2f us)\n",
        opsS, writes, writeUs, reads, readUs, directions, directionUs);
    std::printf("wall / (waits + ops)       %8.3f    (goal <= 1.05)\n", wallS / (mandatedS + opsS));
    // Run-queue wait beyond what the operations bring with them: time other processes held the CPU.
    const double stolenS = std::max(0.0, waitS - total * waitPerOp);
    std::printf("CPU taken by others        %8.2f s  (run-queue wait %.2f s less %.2f us per operation;\n"
                "                                       without it the ratio is %.3f)\n",
                stolenS, waitS, waitPerOp * 1e6, (wallS - stolenS) / (mandatedS + opsS));
    std::printf("operations per record      %8.0f    (erase and blank check: %.0f operations)\n",
                (total - eraseOps) / flashRecords, eraseOps);
    std::printf(
        "timing violations (model)  %8.0f    (goal 0; P9 %.0f, P10 %.0f, P11 %.0f, P12 %.0f, P15 %.0f)\n",
        model["timing_violations"], model["p9_violations"], model["p10_violations"], model["p11_violations"],
        model["p12_violations"], model["p15_violations"]);
    std::printf("holds seen on the wire (ns):\n%s", siminstrument::read("pic/holds").constData());

    // Each named delay on its own, in the same pinned process: overshoot over its nominal minimum.
    std::printf("delay   nominal      median overshoot   min overshoot   goal (2 %% + 5 us)\n");
    P delays;
    for (int d = 0; d <= P::PIC_DELAY_P11; ++d) {
        const auto delay = P::PIC_DELAY(d);
        const double nominal = ns(delay);
        const int samples = nominal >= 1e6 ? 200 : 5000;
        std::vector<double> over;
        over.reserve(std::size_t(samples));
        for (int i = 0; i < samples; ++i) {
            const auto start = std::chrono::steady_clock::now();
            delays.vGeneralDelay(delay);
            over.push_back(double((std::chrono::steady_clock::now() - start).count()) - nominal);
        }
        std::sort(over.begin(), over.end());
        const double goal = nominal * 0.02 + 5000;
        std::printf("%-5s %9.0f ns %13.0f ns %13.0f ns   %s\n", DELAY_NAMES[d], nominal,
                    over[over.size() / 2], over.front(),
                    over[over.size() / 2] <= goal && over.front() >= 0 ? "met" : "MISSED");
    }
    return programmed && same ? 0 : 1;
}
