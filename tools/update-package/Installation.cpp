#include "Installation.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace installation {
namespace {

struct Layout
{
    QString data, build;
};

Layout locate()
{
    // A program without an application object (a fuzz target) is found through the kernel instead.
    const QString binary = QCoreApplication::instance()
                               ? QCoreApplication::applicationDirPath()
                               : QFileInfo(QFile::symLinkTarget(QStringLiteral("/proc/self/exe"))).path();
    const QDir installed(binary + QStringLiteral("/../lib/instrument-update-tools"));
    if (QFileInfo(installed.filePath(QStringLiteral("sim/sandbox"))).isFile()) {
        const QString folder = installed.canonicalPath();
        return {folder, folder};
    }
    for (QDir dir(binary); !dir.isRoot(); dir.cdUp()) {
        QFile cache(dir.filePath(QStringLiteral("CMakeCache.txt")));
        if (!cache.open(QIODevice::ReadOnly))
            continue;
        static const QByteArray key = "CMAKE_HOME_DIRECTORY:INTERNAL=";
        for (QByteArray line; !(line = cache.readLine()).isEmpty();) {
            if (line.startsWith(key))
                return {QFile::decodeName(line.mid(key.size()).trimmed()), dir.absolutePath()};
        }
        return {{}, dir.absolutePath()};
    }
    return {};
}

const Layout& layout()
{
    static const Layout found = locate();
    return found;
}

} // namespace

QString dataDir()
{
    return layout().data;
}

QString buildDir()
{
    const QString fromEnv = qEnvironmentVariable("UPDATER_BUILD_DIR");
    return fromEnv.isEmpty() ? layout().build : fromEnv;
}

} // namespace installation
