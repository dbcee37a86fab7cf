#pragma once
// Packages nobody wrote by hand, for the differential check of the tool against the real updater: a
// seeded generator that knows the command grammar and its near misses, the arguments the updater glues
// into paths, the payloads (HEX files, module archives, scripts, images) and the archive-level faults.
// The same seed and index always give the same package.

#include <QByteArray>
#include <QString>
#include <QVector>
#include <random>

namespace generate {

struct Member
{
    QString name;    // as stored in the archive (./, absolute names and '..' included)
    char type = 'f'; // f file, d folder, l link, h hard link, c character device (5, 1)
    QByteArray data;
    QString link;
    uint mode = 0644;
    // User and group: "root" (0), "engineer" (1000, an engineer's own account), "builder" (1234), or
    // empty: the number 4242 with no name.
    QString owner = QStringLiteral("root");
};

struct Package
{
    QString name;                                  // the archive's file name
    QString compression = QStringLiteral("bzip2"); // bzip2, gzip or none
    QVector<Member> members;
    int lines = 0; // lines of its command list (as the generator wrote them)
};

struct Options
{
    bool pic = false; // PIC lines allowed (slow on the instrument)
};

Package make(quint64 seed, int index, const Options& options);

// The archive's bytes, members in the given order.
QByteArray pack(const Package& package);

// The command list's member (firmware_update/update_config), or nullptr.
Member* commandList(Package& package);

} // namespace generate
