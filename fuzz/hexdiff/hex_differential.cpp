// The HEX differential: generated Intel HEX files, each predicted by the package tool (pic::program) and
// programmed by the updater's own PicProgrammer into the PIC18F4620 model, in-process on a virtual clock.
//   hex-differential [--files N] [--seed S] [--out DIR] [--erase-every K] [--seeds DIR]...
//   hex-differential --check FILE.hex...   (one file each, FILE.before beside it for the chip's state)
// Every Kth file (default 200) runs the erase's blank check over the lines as the updater does; the others
// take it from the model. Prints the rate and ends with "N files, D disagreements (seed S)"; exit 1 on any
// disagreement, each saved, shrunk by lines, under DIR (default out/hex-differential) with what differed.
#include "HexGenerator.h"
#include "HexRun.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>

#include <cstdio>

namespace {

bool writeFile(const QString& path, const QByteArray& data)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(data) == data.size();
}

int usage()
{
    std::fprintf(
        stderr,
        "usage: hex-differential [--files N] [--seed S] [--out DIR] [--erase-every K] [--seeds DIR]...\n"
        "       hex-differential --check FILE.hex...\n");
    return 2;
}

// Replays saved files: the prediction and the updater side by side.
int check(const QStringList& paths)
{
    hexdiff::setUp();
    int disagreements = 0;
    for (const QString& path : paths) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            std::fprintf(stderr, "hex-differential: cannot read %s\n", qPrintable(path));
            return 2;
        }
        pic::Memory before = pic::blankChip();
        QFile state(
            QString(path).replace(QRegularExpression(QStringLiteral("\\.hex$")), QStringLiteral(".before")));
        if (state.exists()) {
            const QByteArray bytes = state.open(QIODevice::ReadOnly) ? state.readAll() : QByteArray();
            if (bytes.size() != before.flash.size() + before.config.size()) {
                std::fprintf(
                    stderr,
                    "hex-differential: %s is not a chip state (64 KiB flash, 14 configuration bytes)\n",
                    qPrintable(state.fileName()));
                return 2;
            }
            before.flash = bytes.left(before.flash.size());
            before.config = bytes.mid(before.flash.size());
        }
        const QByteArray text = file.readAll();
        const hexdiff::Outcome predicted = hexdiff::predicted(text, before);
        const hexdiff::Outcome updater = hexdiff::onUpdater(text, before);
        const QStringList differ = hexdiff::differences(predicted, updater);
        std::printf("%s: programmed %s, stops at line %d: %s\n", qPrintable(path),
                    updater.programmed ? "yes" : "no", updater.stoppedAtLine,
                    differ.isEmpty() ? "agrees" : qPrintable(differ.join(QStringLiteral("; "))));
        disagreements += differ.isEmpty() ? 0 : 1;
    }
    return disagreements ? 1 : 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    int files = 1000;
    quint64 seed = 1;
    int eraseEvery = 200;
    QString outDir = QStringLiteral("out/hex-differential");
    QStringList seedFolders;
    const QStringList args = app.arguments();
    if (args.value(1) == QLatin1String("--check"))
        return args.size() > 2 ? check(args.mid(2)) : usage();
    for (int i = 1; i < args.size(); ++i) {
        const QString& a = args[i];
        const bool hasValue = i + 1 < args.size();
        bool ok = true;
        if (a == QLatin1String("--files") && hasValue)
            files = args[++i].toInt(&ok);
        else if (a == QLatin1String("--seed") && hasValue)
            seed = args[++i].toULongLong(&ok);
        else if (a == QLatin1String("--erase-every") && hasValue)
            eraseEvery = args[++i].toInt(&ok);
        else if (a == QLatin1String("--out") && hasValue)
            outDir = args[++i];
        else if (a == QLatin1String("--seeds") && hasValue)
            seedFolders << args[++i];
        else
            return usage();
        if (!ok) {
            std::fprintf(stderr, "hex-differential: %s needs a number, not '%s'\n", qPrintable(a),
                         qPrintable(args[i]));
            return 2;
        }
    }
    if (seedFolders.isEmpty())
        seedFolders = hexdiff::defaultSeedFolders();
    const QVector<QByteArray> seeds = hexdiff::readSeeds(seedFolders);
    if (seeds.isEmpty()) {
        std::fprintf(stderr, "hex-differential: no *.hex seed files in %s\n",
                     qPrintable(seedFolders.join(", ")));
        return 2;
    }

    hexdiff::setUp();
    hexdiff::Generator generator(seed, seeds);
    QElapsedTimer clock;
    clock.start();
    int disagreements = 0;
    for (int n = 1; n <= files; ++n) {
        const hexdiff::Case c = generator.next();
        const auto erase =
            eraseEvery > 0 && n % eraseEvery == 0 ? hexdiff::Erase::OnTheLines : hexdiff::Erase::FromModel;
        const QStringList differ = hexdiff::differences(hexdiff::predicted(c.text, c.before),
                                                        hexdiff::onUpdater(c.text, c.before, erase));
        if (differ.isEmpty())
            continue;
        ++disagreements;
        // A systematic fault disagrees on many files: the first ones shrunk are enough to see it.
        const QByteArray shrunk = disagreements <= 20 ? hexdiff::shrinkByLines(c.text, c.before) : c.text;
        const QStringList still =
            hexdiff::differences(hexdiff::predicted(shrunk, c.before), hexdiff::onUpdater(shrunk, c.before));
        const QString base = QStringLiteral("%1/%2-file%3").arg(outDir).arg(seed).arg(n);
        QDir().mkpath(outDir);
        QByteArray about = QStringLiteral("file %1 of seed %2: %3\n")
                               .arg(n)
                               .arg(seed)
                               .arg(c.how.join(QStringLiteral("; ")))
                               .toUtf8();
        about += "differs:\n  " + differ.join(QStringLiteral("\n  ")).toUtf8() + "\n";
        about += "shrunk (" + base.toUtf8() + ".hex) differs:\n  " +
                 still.join(QStringLiteral("\n  ")).toUtf8() + "\n";
        about += QStringLiteral("replay: hex-differential --seed %1 --files %2\n").arg(seed).arg(n).toUtf8();
        if (!writeFile(base + QStringLiteral(".hex"), shrunk) ||
            !writeFile(base + QStringLiteral(".original.hex"), c.text) ||
            !writeFile(base + QStringLiteral(".txt"), about) ||
            (c.before.config != pic::blankChip().config &&
             !writeFile(base + QStringLiteral(".before"), c.before.flash + c.before.config))) {
            std::fprintf(stderr, "hex-differential: cannot write %s.*\n", qPrintable(base));
            return 2;
        }
        std::printf("disagreement: %s.hex: %s\n", qPrintable(base),
                    qPrintable(still.value(0, differ.first())));
        std::fflush(stdout);
    }
    const double seconds = double(clock.elapsed()) / 1000.0;
    std::printf("%.0f files per minute (%.1f s)\n", seconds > 0 ? files * 60.0 / seconds : 0.0, seconds);
    std::printf("%d files, %d disagreements (seed %llu)\n", files, disagreements,
                static_cast<unsigned long long>(seed));
    return disagreements ? 1 : 0;
}
