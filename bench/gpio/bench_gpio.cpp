// GPIO operations per second through /sys/class/gpio with GpioPinController, the way the PIC programming
// lines are driven. Meant to run inside sim/sandbox --instrument (see run.sh).
//   bench_gpio [operations per kind]

#include "GpioPinController.h"
#include "PicTarget.h"

#include "../../tests/support/SimInstrument.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <cstdio>
#include <cstdlib>
#include <functional>

namespace {

void measure(const char* kind, long count, const std::function<void(long)>& operation)
{
    QElapsedTimer timer;
    timer.start();
    for (long i = 0; i < count; ++i)
        operation(i);
    const double us = timer.nsecsElapsed() / 1000.0;
    std::printf("%-8s %8ld ops %8.2f us/op %10.0f ops/s\n", kind, count, us / count, count / (us / 1e6));
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const long count = argc > 1 ? std::atol(argv[1]) : 20000;
    if (count <= 0) {
        std::fprintf(stderr, "bench_gpio: the operation count must be a positive number, not '%s'\n",
                     argv[1]);
        return 2;
    }
    if (!siminstrument::available()) {
        std::fprintf(stderr,
                     "bench_gpio: no simulated instrument; run it through sim/sandbox --instrument\n");
        return 2;
    }
    GpioPinController pin(QString::number(sim::PicTarget::PGC));
    if (!pin.createDriver() || !pin.setDirection("out") || pin.getValue() != "0") {
        std::fprintf(stderr, "bench_gpio: the PIC clock line could not be set up as an output\n");
        return 1;
    }
    measure("write", count, [&](long i) { pin.setValue(i & 1 ? "0" : "1"); });
    measure("read", count, [&](long) { pin.getValue(); });
    measure("toggle", count, [&](long) { pin.toggleValue(); }); // a read and a write
    return 0;
}
