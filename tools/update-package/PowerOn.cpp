#include "PowerOn.h"

#include "Exposure.h"
#include "payload/UImage.h"
#include "payload/UbiImage.h"

#include <QMap>
#include <QRegularExpression>

#include <algorithm>

namespace poweron {
namespace {

const QStringList classNames{"updated", "unchanged", "repairable", "unrepairable", "unbootable"};

const state::Node* find(const state::Snapshot& s, const QString& path)
{
    const auto it = std::lower_bound(s.root.begin(), s.root.end(), path,
                                     [](const state::Node& n, const QString& p) { return n.path < p; });
    return it != s.root.end() && it->path == path ? &*it : nullptr;
}

bool sameNode(const state::Node& a, const state::Node& b)
{
    return a.removed == b.removed && a.kind == b.kind && a.sha256 == b.sha256 && a.target == b.target &&
           (a.removed || a.mode == b.mode);
}

bool persistent(const QString& path)
{
    return path != "/" && path != "/tmp" && !path.startsWith("/tmp/");
}

// The updater and what it needs to start and to run an update from a stick.
bool neededByUpdater(const QString& path, const QString& updater)
{
    static const QRegularExpression library(QStringLiteral("^/(usr/)?lib(32|64)?/.*\\.so(\\.[0-9.]+)?$"));
    static const QRegularExpression tool(
        QStringLiteral("^/(usr/)?s?bin/(sh|bash|mount|umount|tar|bzip2|cp|rm|sync|modprobe)$"));
    return path == updater || library.match(path).hasMatch() || tool.match(path).hasMatch() ||
           path.startsWith("/lib/ld-linux") || path.startsWith("/lib64/ld-linux");
}

QString fileDamage(const state::Node& now, const state::Node* whole)
{
    if (now.removed)
        return QStringLiteral("removed");
    if (whole && !whole->removed && now.kind == profile::Kind::File && whole->kind == profile::Kind::File) {
        if (now.size == 0 && whole->size > 0)
            return QStringLiteral("empty");
        if (now.size < whole->size)
            return QStringLiteral("truncated: %1 of %2 bytes").arg(now.size).arg(whole->size);
        if ((whole->mode & 0111) && !(now.mode & 0111))
            return QStringLiteral("not executable");
    }
    return {};
}

// A kernel partition: whole when it begins with a U-Boot image whose CRCs hold.
QString kernelDamage(const QByteArray& bytes)
{
    if (bytes.isEmpty() || bytes.count('\xff') == bytes.size())
        return QStringLiteral("erased, no kernel");
    const auto image = payload::readUImage(bytes);
    if (!image)
        return QStringLiteral("no U-Boot image header");
    if (!image->headerCrcOk)
        return QStringLiteral("the image header's CRC does not hold");
    if (!image->complete)
        return QStringLiteral("the image is incomplete");
    if (!image->dataCrcOk)
        return QStringLiteral("the image data's CRC does not hold: partly written");
    return {};
}

// The root volume: what of the whole run's UBI image is missing, in erase blocks.
QString rootVolumeDamage(const QByteArray& bytes, const QByteArray& whole)
{
    if (bytes.isEmpty() || bytes.count('\xff') == bytes.size())
        return QStringLiteral("erased, no root file system");
    const auto ubi = payload::readUbi(bytes);
    if (!ubi)
        return QStringLiteral("no UBI image");
    const qint64 block = ubi->pebSize > 0 ? ubi->pebSize : qint64(128) * 1024;
    qint64 same = 0;
    while (same * block < whole.size() &&
           bytes.mid(int(same * block), int(block)) == whole.mid(int(same * block), int(block)))
        ++same;
    return QStringLiteral("UBI image incomplete: %1 of %2 erase blocks written")
        .arg(same)
        .arg(whole.size() / block);
}

QString picDamage(const QByteArray& now, const QByteArray& whole, const QByteArray& old)
{
    if (now.count('\xff') == now.size())
        return QStringLiteral("blank (erased, not programmed)");
    constexpr int row = 64;
    int rows = 0, same = 0;
    for (int at = 0; at < whole.size(); at += row) {
        if (whole.mid(at, row) == old.mid(at, row))
            continue;
        ++rows;
        same += now.mid(at, row) == whole.mid(at, row);
    }
    return QStringLiteral("partly programmed: %1 of %2 changed rows as the HEX has them").arg(same).arg(rows);
}

Part::State memoryState(const QByteArray& now, const QByteArray& whole, const QByteArray& old)
{
    return now == whole ? Part::New : now == old ? Part::Old : Part::Lost;
}

QVector<Part> judgeParts(const state::Snapshot& cut, const Reference& reference,
                         const QSet<QString>& lostByWriteBack)
{
    QVector<Part> parts;
    // Partitions: absent means never written, i.e. as before the update.
    QStringList devices = reference.after.partitions.keys() + cut.partitions.keys();
    devices.removeDuplicates();
    std::sort(devices.begin(), devices.end());
    for (const QString& device : devices) {
        const bool kernel = device != "/dev/mtd1";
        Part part{(kernel ? "kernel partition " : "root volume ") + device, Part::Old, partitionIfLost, {}};
        if (cut.partitions.contains(device)) {
            const QByteArray& now = cut.partitions[device];
            const QByteArray whole = reference.after.partitions.value(device);
            if (lostByWriteBack.contains(device)) {
                part.state = Part::Lost;
                part.why =
                    QStringLiteral("written since the last sync: may come back with old and new sectors "
                                   "mixed");
            } else if (now == whole) {
                part.state = Part::New;
            } else if (kernel) {
                part.why = kernelDamage(now);
                // A whole image other than the run's: the one the instrument had.
                part.state = part.why.isEmpty() ? Part::Old : Part::Lost;
            } else {
                part.state = Part::Lost;
                part.why = rootVolumeDamage(now, whole);
            }
        }
        parts << part;
    }

    // Root files (not folders: what a folder held is judged file by file).
    QStringList paths;
    for (const auto* s : {&reference.after, &cut})
        for (const state::Node& node : s->root)
            if (persistent(node.path) && (node.kind != profile::Kind::Directory || node.removed))
                paths << node.path;
    paths.removeDuplicates();
    std::sort(paths.begin(), paths.end());
    for (const QString& path : paths) {
        const state::Node* now = find(cut, path);
        const state::Node* whole = find(reference.after, path);
        Part part{path, Part::Old, Class::Repairable, {}};
        QString meaning;
        part.ifLost = ifLost(path, reference.updater, &meaning);
        if (now && lostByWriteBack.contains(path) && !now->removed) {
            part.state = Part::Lost;
            part.why = QStringLiteral("written since the last sync: may come back empty");
        } else if (now && whole && sameNode(*now, *whole)) {
            part.state = Part::New;
        } else if (now && (whole || now->removed)) { // (a file only a cut run has is harmless)
            // Whole, only its content differs (a script wrote the time): as good as the whole run's.
            part.why = fileDamage(*now, whole);
            part.state = part.why.isEmpty() ? Part::New : Part::Lost;
        }
        if (part.state == Part::Lost)
            part.why += " (" + meaning + ")";
        parts << part;
    }

    // The PIC: its memory is always there, old, new, blank or in between.
    const auto memory = [&](const QString& what, const QByteArray& now, const QByteArray& whole,
                            const QByteArray& old) {
        if (whole.isEmpty() || now.isEmpty() || whole == old)
            return;
        Part part{what, memoryState(now, whole, old), picIfLost, {}};
        if (part.state == Part::Lost)
            part.why = picDamage(now, whole, old);
        parts << part;
    };
    memory("PIC flash", cut.picFlash, reference.after.picFlash, reference.before.picFlash);
    memory("PIC configuration", cut.picConfig, reference.after.picConfig, reference.before.picConfig);
    return parts;
}

Verdict verdictOf(QVector<Part> parts)
{
    Verdict verdict;
    QStringList fresh, old, lost;
    Class worst = Class::Unchanged;
    bool anyLost = false;
    for (const Part& part : parts) {
        if (part.state == Part::Lost) {
            worst = anyLost ? std::max(worst, part.ifLost) : part.ifLost;
            anyLost = true;
        }
    }
    // The reason names the lost parts of the worst class first.
    std::stable_sort(parts.begin(), parts.end(), [](const Part& a, const Part& b) {
        return (a.state == Part::Lost ? int(a.ifLost) : -1) > (b.state == Part::Lost ? int(b.ifLost) : -1);
    });
    for (const Part& part : parts) {
        if (part.state == Part::Lost)
            lost << part.what + ": " + part.why;
        else
            (part.state == Part::New ? fresh : old) << part.what;
    }
    verdict.parts = parts;
    if (anyLost) {
        verdict.cls = worst;
        constexpr int named = 3;
        verdict.why = QStringList(lost.mid(0, named)).join("; ");
        if (lost.size() > named)
            verdict.why += QStringLiteral("; %1 more lost").arg(lost.size() - named);
    } else if (old.isEmpty() && !fresh.isEmpty()) {
        verdict.cls = Class::Updated;
        verdict.why = QStringLiteral("everything as the whole update leaves it");
    } else if (fresh.isEmpty()) {
        verdict.cls = Class::Unchanged;
        verdict.why = QStringLiteral("nothing changed yet");
    } else {
        verdict.cls = Class::Unchanged;
        verdict.why =
            QStringLiteral("partly updated, nothing lost (new: %1; old: %2): the update again completes it")
                .arg(fresh.join(", "), old.join(", "));
    }
    return verdict;
}

} // namespace

Class ifLost(const QString& path, const QString& updater, QString* meaning)
{
    QString what;
    Class cls = Class::Repairable;
    if (neededByUpdater(path, updater)) {
        what = path == updater ? QStringLiteral("the updater does not start")
                               : QStringLiteral("the updater needs it");
        cls = Class::Unrepairable;
    } else if (path == "/home/mainApp") {
        what = QStringLiteral("the application does not start");
    } else if (path.startsWith("/lib/modules") || path.startsWith("/usr/lib/modules")) {
        what = QStringLiteral("a kernel module");
    } else {
        what = QStringLiteral("a root file");
    }
    if (meaning)
        *meaning = what;
    return cls;
}

QString name(Class c)
{
    return classNames.value(int(c));
}

std::optional<Class> fromName(const QString& name)
{
    const int i = classNames.indexOf(name);
    return i < 0 ? std::nullopt : std::optional<Class>(Class(i));
}

Verdict check(const state::Snapshot& cut, const Reference& reference)
{
    return verdictOf(judgeParts(cut, reference, {}));
}

QSet<QString> unsynced(const state::Snapshot& cut)
{
    int lastSync = -1, lastWrite = -1;
    QMap<QString, int> deviceWritten; // a cached device -> the trace line that last wrote it
    for (int i = 0; i < cut.trace.size(); ++i) {
        const QString& line = cut.trace[i];
        const bool command = line.startsWith("run ") || line.startsWith("inner ");
        const QString argv = command ? state::unescaped(line.section(' ', 1)) : QString();
        const exposure::Writer* writer = command ? exposure::writerOf(argv) : nullptr;
        const QStringList targets = writer && writer->cached ? exposure::targetsOf(argv) : QStringList();
        if (command && argv == "sync" && i + 1 < cut.trace.size() && cut.trace[i + 1].endsWith("exit 0"))
            lastSync = i;
        else if (writer && writer->partition && !targets.isEmpty())
            deviceWritten[targets.first()] = i;
        else if (!targets.isEmpty() || line.startsWith("view plain Running script file: "))
            lastWrite = i;
    }
    QSet<QString> lost;
    for (auto it = deviceWritten.begin(); it != deviceWritten.end(); ++it)
        if (it.value() > lastSync)
            lost << it.key();
    if (lastWrite < lastSync)
        return lost;
    for (const state::Node& node : cut.root)
        if (persistent(node.path) && !node.removed && node.kind == profile::Kind::File)
            lost << node.path;
    return lost;
}

Verdict worstWithWriteBack(const state::Snapshot& cut, const Reference& reference)
{
    return verdictOf(judgeParts(cut, reference, unsynced(cut)));
}

} // namespace poweron
