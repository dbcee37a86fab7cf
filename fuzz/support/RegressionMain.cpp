// Runs a fuzz target's inputs once each, without libFuzzer: the seeds and the minimised findings become
// an ordinary test of the normal build. Arguments: folders (every file in them) or files.
#include "FuzzSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdio>

int main(int argc, char** argv)
{
    LLVMFuzzerInitialize(&argc, &argv);
    int inputs = 0;
    for (int i = 1; i < argc; ++i) {
        const QFileInfo given(QString::fromLocal8Bit(argv[i]));
        QStringList files;
        if (given.isDir()) {
            for (const QFileInfo& entry : QDir(given.filePath()).entryInfoList(QDir::Files, QDir::Name))
                files << entry.filePath();
        } else if (given.isFile()) {
            files << given.filePath();
        } else {
            std::fprintf(stderr, "%s: no such file or folder\n", argv[i]);
            return 2;
        }
        for (const QString& path : files) {
            QFile file(path);
            if (!file.open(QIODevice::ReadOnly)) {
                std::fprintf(stderr, "%s: cannot read\n", qPrintable(path));
                return 2;
            }
            const QByteArray input = file.readAll();
            std::fprintf(stderr, "input %s (%lld bytes)\n", qPrintable(path),
                         static_cast<long long>(input.size()));
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.constData()),
                                   std::size_t(input.size()));
            ++inputs;
        }
    }
    if (inputs == 0) {
        std::fprintf(stderr, "no inputs found: the corpus folders are empty\n");
        return 2;
    }
    std::fprintf(stderr, "%d inputs, every invariant held\n", inputs);
    return 0;
}
