// The time lint spends on payloads: reading a package (archive or folder) as lint does, then
// payload::check on every command's payload with the default instrument profile; median of the runs.
//   bench_payload RUNS PACKAGE...      prints one line per package: size of its payloads, read, check
#include "InstrumentProfile.h"
#include "Package.h"
#include "payload/Check.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    const int runs = args.value(1).toInt();
    if (runs < 1 || args.size() < 3) {
        std::fprintf(stderr, "usage: bench_payload RUNS PACKAGE...\n");
        return 2;
    }
    QString error;
    const auto instrument = profile::read(profile::defaultPath(), error);
    if (!instrument) {
        std::fprintf(stderr, "bench_payload: %s\n", qPrintable(error));
        return 2;
    }
    for (const QString& path : args.mid(2)) {
        std::vector<double> reads, checks;
        qint64 payloadBytes = 0;
        int findings = 0;
        for (int run = 0; run < runs; ++run) {
            QElapsedTimer timer;
            timer.start();
            const auto pkg = package::read(path, error);
            if (!pkg) {
                std::fprintf(stderr, "bench_payload: %s\n", qPrintable(error));
                return 2;
            }
            reads.push_back(timer.nsecsElapsed() / 1e6);
            timer.restart();
            payloadBytes = 0;
            findings = 0;
            const package::Entry* list = pkg->find(package::commandListPath);
            for (const QByteArray& line : list ? list->data.split('\n') : QList<QByteArray>()) {
                const QList<QByteArray> parts = line.split(':');
                const auto role = payload::roleOf(QString::fromUtf8(parts.value(0)));
                const package::Entry* entry =
                    parts.size() == 2 ? pkg->find(package::topFolder + QString::fromUtf8(parts[1])) : nullptr;
                if (!role || !entry)
                    continue;
                payloadBytes += entry->size;
                findings +=
                    payload::check(*pkg, *entry, *role, *instrument, payload::deviceFor(*role, false)).size();
            }
            checks.push_back(timer.nsecsElapsed() / 1e6);
        }
        std::printf("%-44s payloads %6.1f MiB  read %8.1f ms  check %7.1f ms  (%d findings, median of %d)\n",
                    qPrintable(QFileInfo(path).fileName()), payloadBytes / 1048576.0, median(reads),
                    median(checks), findings, runs);
    }
    return 0;
}
