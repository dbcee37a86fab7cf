// The differential check of update-package against the real updater: generated packages run on the
// virtual instrument, each compared with the tool's prediction; every disagreement is shrunk (lines, then
// members, then bytes) to a small package saved with the command that replays it.
//   differential --packages N --seed S --pic-every K --out DIR [--predict-only]
// Ends with "N packages, L lines, D disagreements (seed S)"; exit 1 on any disagreement, 2 when a package
// could not be run or judged, 77 when the machine lacks what the virtual instrument needs (2 with CI=true).
#include "Compare.h"
#include "Generator.h"
#include "InstrumentProfile.h"
#include "Prediction.h"
#include "VirtualInstrument.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTextStream>
#include <cstdio>
#include <functional>

namespace {

QTextStream& out()
{
    static QTextStream stream(stdout);
    return stream;
}

struct Settings
{
    int packages = 100;
    quint64 seed = 1;
    int picEvery = 0;
    QString outDir = QStringLiteral("out/differential");
    bool predictOnly = false;
    bool keep = false; // write every generated package into OUT/packages
    QString profile;   // the instrument profile; empty: the default one
};

std::optional<predict::Prediction> predictFor(const generate::Package& generated, const QByteArray& bytes,
                                              const profile::Profile& instrument,
                                              std::optional<package::Package>& pkg)
{
    QString error;
    pkg = package::readBytes(bytes, error);
    if (!pkg)
        return std::nullopt;
    pkg->fileName = generated.name;
    pkg->origin = generated.name;
    pkg->compression =
        generated.compression == QLatin1String("none") ? QStringLiteral("none") : generated.compression;
    return predict::predict(*pkg, instrument);
}

bool writeFile(const QString& path, const QByteArray& data)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(data) == data.size();
}

// Runs the package on the virtual instrument and compares; nothing when the run itself failed.
std::optional<compare::Result> check(const generate::Package& generated, const profile::Profile& instrument,
                                     const QString& work, QString& error)
{
    const QByteArray bytes = generate::pack(generated);
    std::optional<package::Package> pkg;
    const auto prediction = predictFor(generated, bytes, instrument, pkg);
    if (!prediction) {
        error = QStringLiteral("the generated archive cannot be read");
        return std::nullopt;
    }
    const QString file = work + '/' + generated.name;
    QDir(work).removeRecursively();
    if (!writeFile(file, bytes)) {
        error = QStringLiteral("cannot write %1").arg(file);
        return std::nullopt;
    }
    instrument::Job job;
    job.package = file;
    job.profile = instrument.origin;
    job.outDir = work + QStringLiteral("/run");
    job.timeoutSeconds = prediction->end == predict::End::Hang ? 60 : 600;
    const auto snapshot = instrument::run(job, error);
    if (!snapshot)
        return std::nullopt;
    return compare::compare(*prediction, *snapshot);
}

// Smaller and smaller packages that still disagree: lines of the command list, then members, then bytes.
generate::Package shrink(generate::Package failing,
                         const std::function<bool(const generate::Package&)>& disagrees)
{
    int budget = 60;
    const auto attempt = [&](const generate::Package& candidate) {
        return budget-- > 0 && disagrees(candidate);
    };
    if (generate::Member* list = generate::commandList(failing)) {
        QList<QByteArray> lines = list->data.split('\n');
        for (int i = 0; i < lines.size() && budget > 0;) {
            generate::Package candidate = failing;
            QList<QByteArray> fewer = lines;
            fewer.removeAt(i);
            generate::commandList(candidate)->data = fewer.join('\n');
            if (attempt(candidate)) {
                failing = candidate;
                lines = fewer;
            } else {
                ++i;
            }
        }
    }
    for (int i = 0; i < failing.members.size() && budget > 0;) {
        generate::Package candidate = failing;
        if (candidate.members[i].name.endsWith(QLatin1String("update_config"))) {
            ++i;
            continue;
        }
        candidate.members.removeAt(i);
        if (attempt(candidate))
            failing = candidate;
        else
            ++i;
    }
    for (int i = 0; i < failing.members.size() && budget > 0; ++i) {
        while (failing.members[i].data.size() > 64 && budget > 0) {
            generate::Package candidate = failing;
            candidate.members[i].data.truncate(candidate.members[i].data.size() / 2);
            if (!attempt(candidate))
                break;
            failing = candidate;
        }
    }
    return failing;
}

constexpr int batchSize = 25; // packages a virtual instrument serves in one go

// A disagreement shrunk and saved with what differs and the command that replays it.
void save(const Settings& s, int index, const generate::Package& failing, const profile::Profile& instrument)
{
    const QString work = s.outDir + QStringLiteral("/work");
    const generate::Package small = shrink(failing, [&](const generate::Package& candidate) {
        QString ignored;
        const auto r = check(candidate, instrument, work, ignored);
        return r && !r->agrees();
    });
    const QString dir = s.outDir + QStringLiteral("/%1-%2").arg(s.seed).arg(index);
    const QString file = dir + '/' + small.name;
    writeFile(file, generate::pack(small));
    std::optional<package::Package> pkg;
    QString error;
    const auto prediction = predictFor(small, generate::pack(small), instrument, pkg);
    const auto again = check(small, instrument, work, error);
    writeFile(dir + QStringLiteral("/differences.txt"),
              (again && prediction ? compare::text(*prediction, *again) : error).toUtf8());
    writeFile(
        dir + QStringLiteral("/replay.sh"),
        QStringLiteral("#!/bin/sh\n# replays the disagreement: the tool's prediction against the instrument\n"
                       "exec \"$(dirname \"$0\")/../../../build-native/tools/update-package/update-package\" "
                       "preview \"$(dirname \"$0\")/%1\" \"$@\"\n")
            .arg(small.name)
            .toUtf8());
    QFile(dir + QStringLiteral("/replay.sh"))
        .setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner |
                        QFileDevice::ReadGroup | QFileDevice::ExeGroup | QFileDevice::ReadOther |
                        QFileDevice::ExeOther);
    out() << QStringLiteral("  saved %1 (replay: %2/replay.sh)").arg(file, dir) << Qt::endl;
}

// The packages on one instrument, each compared as soon as its state is read; the disagreeing ones are
// shrunk and saved afterwards.
// Returns false when the machine cannot run the virtual instrument at all.
bool runBatch(const Settings& s, const profile::Profile& instrument,
              const QVector<QPair<int, generate::Package>>& batch, int& disagreements, int& unreadable)
{
    const QString work = s.outDir + QStringLiteral("/work/batch");
    QDir(work).removeRecursively();
    QVector<instrument::Job> jobs;
    QVector<std::optional<predict::Prediction>> predictions;
    for (const auto& [index, generated] : batch) {
        const QByteArray bytes = generate::pack(generated);
        std::optional<package::Package> pkg;
        predictions.push_back(predictFor(generated, bytes, instrument, pkg));
        instrument::Job job;
        job.package = work + QStringLiteral("/%1/").arg(index) + generated.name;
        job.profile = instrument.origin;
        job.timeoutSeconds = predictions.back() && predictions.back()->end == predict::End::Hang ? 60 : 600;
        writeFile(job.package, bytes);
        jobs.push_back(job);
    }
    QVector<int> failing;
    QString error;
    bool unavailable = false;
    const bool ran = instrument::runBatch(
        jobs,
        [&](int k, const std::optional<state::Snapshot>& snapshot, const QString& why) {
            if (!snapshot || !predictions[k]) {
                out() << QStringLiteral("package %1: not run: %2").arg(batch[k].first).arg(why) << Qt::endl;
                ++unreadable;
            } else if (!compare::compare(*predictions[k], *snapshot).agrees()) {
                out() << QStringLiteral("package %1 (%2) disagrees")
                             .arg(batch[k].first)
                             .arg(batch[k].second.name)
                      << Qt::endl;
                failing << k;
            }
        },
        error, {}, &unavailable);
    if (unavailable) {
        out() << QStringLiteral("differential: the virtual instrument is unavailable on this machine: %1")
                     .arg(error)
              << Qt::endl;
        return false;
    }
    if (!ran)
        out() << QStringLiteral("differential: the batch stopped: %1").arg(error) << Qt::endl;
    disagreements += failing.size();
    for (int k : failing)
        save(s, batch[k].first, batch[k].second, instrument);
    return true;
}

int run(const Settings& s)
{
    QString error;
    const auto instrument = profile::read(s.profile.isEmpty() ? profile::defaultPath() : s.profile, error);
    if (!instrument) {
        out() << "differential: " << error << Qt::endl;
        return 2;
    }
    QElapsedTimer clock;
    clock.start();
    int lines = 0, disagreements = 0, unreadable = 0;
    QVector<QPair<int, generate::Package>> batch;
    for (int i = 0; i < s.packages; ++i) {
        generate::Options options;
        options.pic = s.picEvery > 0 && i % s.picEvery == 0;
        const generate::Package generated = generate::make(s.seed, i, options);
        lines += generated.lines;
        if (s.keep)
            writeFile(s.outDir + QStringLiteral("/packages/%1/%2").arg(i).arg(generated.name),
                      generate::pack(generated));
        if (s.predictOnly) {
            std::optional<package::Package> pkg;
            if (!predictFor(generated, generate::pack(generated), *instrument, pkg))
                ++unreadable;
            continue;
        }
        batch.push_back({i, generated});
        if (int(batch.size()) == batchSize || i + 1 == s.packages) {
            if (!runBatch(s, *instrument, batch, disagreements, unreadable))
                return qEnvironmentVariable("CI") == QLatin1String("true") ? 2 : 77;
            batch.clear();
        }
    }
    const double minutes = double(clock.elapsed()) / 60000.0;
    out() << QStringLiteral("%1 packages per minute%2")
                 .arg(minutes > 0 ? double(s.packages) / minutes : 0.0, 0, 'f', 1)
                 .arg(unreadable ? QStringLiteral(", %1 not run").arg(unreadable) : QString())
          << Qt::endl;
    out() << QStringLiteral("%1 packages, %2 lines, %3 disagreements (seed %4)")
                 .arg(s.packages)
                 .arg(lines)
                 .arg(disagreements)
                 .arg(s.seed)
          << Qt::endl;
    return disagreements > 0 ? 1 : unreadable > 0 ? 2 : 0;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    Settings s;
    const QStringList args = app.arguments();
    for (int i = 1; i < args.size(); ++i) {
        const QString& a = args[i];
        const QString value = args.value(i + 1);
        bool ok = true;
        if (a == QLatin1String("--packages"))
            s.packages = value.toInt(&ok), ++i;
        else if (a == QLatin1String("--seed"))
            s.seed = value.toULongLong(&ok), ++i;
        else if (a == QLatin1String("--pic-every"))
            s.picEvery = value.toInt(&ok), ++i;
        else if (a == QLatin1String("--out"))
            s.outDir = value, ++i;
        else if (a == QLatin1String("--predict-only"))
            s.predictOnly = true;
        else if (a == QLatin1String("--profile"))
            s.profile = value, ++i;
        else if (a == QLatin1String("--keep"))
            s.keep = true;
        else
            ok = false;
        if (!ok) {
            fprintf(stderr, "usage: differential [--packages N] [--seed S] [--pic-every K] [--out DIR] "
                            "[--predict-only]\n");
            return 2;
        }
    }
    return run(s);
}
