#include "Compare.h"

#include "Report.h"

#include <QDir>
#include <QSet>
#include <climits>
#include <tuple>

namespace compare {
namespace {

using predict::Event;
using predict::Exit;

QString unescape(const QString& text)
{
    QString out;
    out.reserve(text.size());
    for (int i = 0; i < text.size(); ++i) {
        if (text[i] == QLatin1Char('\\') && i + 1 < text.size()) {
            ++i;
            out += text[i] == QLatin1Char('n') ? QChar('\n') : text[i];
        } else {
            out += text[i];
        }
    }
    return out;
}

// What is compared of an event: the view's text and colour, a traced command's argv.
QString key(const Event& e)
{
    return e.type == Event::Type::View ? QStringLiteral("view ") + e.shownColour + ' ' + e.shown
                                       : QStringLiteral("run ") + e.text;
}

QString key(const TraceEvent& e)
{
    return e.run ? QStringLiteral("run ") + e.text : QStringLiteral("view ") + e.colour + ' ' + e.text;
}

bool compared(const Event& e)
{
    return e.type == Event::Type::View
               ? e.colour != predict::Colour::Orange && e.shownColour != QLatin1String("orange")
               : e.traced;
}

// Indices of a longest common subsequence of a and b, as pairs.
QVector<QPair<int, int>> align(const QStringList& a, const QStringList& b)
{
    const int n = a.size(), m = b.size();
    QVector<int> table((n + 1) * (m + 1), 0);
    const auto at = [&](int i, int j) -> int& { return table[i * (m + 1) + j]; };
    for (int i = n - 1; i >= 0; --i)
        for (int j = m - 1; j >= 0; --j)
            at(i, j) = a[i] == b[j] ? at(i + 1, j + 1) + 1 : qMax(at(i + 1, j), at(i, j + 1));
    QVector<QPair<int, int>> pairs;
    for (int i = 0, j = 0; i < n && j < m;) {
        if (a[i] == b[j]) {
            pairs.push_back({i, j});
            ++i;
            ++j;
        } else if (at(i + 1, j) >= at(i, j + 1)) {
            ++i;
        } else {
            ++j;
        }
    }
    return pairs;
}

// Paths whose changes the comparison leaves out: the updater's and the session's scratch in /tmp (the
// unpacked package is compared), mount points of media, the kernel's and the run time's folders.
bool ignored(const QString& path)
{
    if (path == QLatin1String("/tmp/firmware_update") ||
        path.startsWith(QLatin1String("/tmp/firmware_update/")))
        return false;
    if (path == QLatin1String("/sys") || path == QLatin1String("/proc") || path == QLatin1String("/dev"))
        return true;
    for (const char* prefix : {"/tmp/", "/run/", "/mnt/update/", "/proc/", "/sys/", "/dev/"}) {
        if (path.startsWith(QLatin1String(prefix)))
            return true;
    }
    return false;
}

QString nodeText(const rootfs::Node& node)
{
    return node ? report::describe(QString(), node).trimmed() : QStringLiteral("absent");
}

QString observedText(const state::Node& n)
{
    if (n.removed)
        return QStringLiteral("absent");
    auto node = std::make_shared<rootfs::Inode>();
    node->kind = n.kind;
    node->mode = n.mode;
    node->uid = n.uid;
    node->gid = n.gid;
    node->size = n.size;
    node->target = n.target;
    node->sha256 = n.sha256;
    node->known = !n.sha256.isEmpty();
    return nodeText(node);
}

// The prediction and the instrument agree on one path.
bool sameNode(const rootfs::Node& predicted, const state::Node& observed)
{
    if (!predicted || observed.removed)
        return !predicted && observed.removed;
    if (predicted->kind != observed.kind || predicted->uid != observed.uid || predicted->gid != observed.gid)
        return false;
    if (predicted->kind != rootfs::Kind::Symlink && predicted->mode != observed.mode)
        return false;
    if (predicted->kind == rootfs::Kind::Symlink)
        return predicted->target == observed.target;
    if (predicted->kind == rootfs::Kind::File && predicted->known)
        return predicted->sha256 == observed.sha256;
    return true;
}

} // namespace

QVector<TraceEvent> parseTrace(const QVector<QString>& lines)
{
    QVector<TraceEvent> out;
    for (const QString& line : lines) {
        const QString kind = line.section(QLatin1Char(' '), 0, 0);
        const QString rest = line.mid(kind.size() + 1);
        if (kind == QLatin1String("view")) {
            TraceEvent e;
            e.colour = rest.section(QLatin1Char(' '), 0, 0);
            e.text = unescape(rest.mid(e.colour.size() + 1));
            out.push_back(e);
        } else if (kind == QLatin1String("run")) {
            TraceEvent e;
            e.run = true;
            e.text = unescape(rest);
            out.push_back(e);
        } else if (kind == QLatin1String("exit")) {
            for (int i = out.size() - 1; i >= 0; --i) {
                if (out[i].run && !out[i].exited) {
                    out[i].exit = rest.toInt();
                    out[i].exited = true;
                    break;
                }
            }
        } else if (kind == QLatin1String("end")) {
            break;
        }
    }
    return out;
}

Result compare(const predict::Prediction& p, const state::Snapshot& s)
{
    Result result;
    const auto lineOf = [&](int line) -> const predict::Line* {
        for (const predict::Line& l : p.lines)
            if (l.number == line)
                return &l;
        return nullptr;
    };
    // A change of the root no line predicted may be a script's own doing when a script ran (the unpacked
    // package is the updater's alone).
    const bool scriptRan =
        std::any_of(p.lines.begin(), p.lines.end(), [](const predict::Line& l) { return l.scriptEffects; });
    const auto differ = [&](int line, const QString& what, const QString& predicted,
                            const QString& observed) {
        const predict::Line* l = lineOf(line);
        const bool root = what == QLatin1String("root");
        const bool unsure =
            l ? l->uncertain || (root && l->scriptEffects)
              : root && line == 0 && scriptRan && !observed.startsWith(QLatin1String("/tmp/firmware_update"));
        (unsure ? result.unsure : result.differences).push_back({line, what, predicted, observed});
    };

    // The events, in order.
    QVector<const Event*> predicted;
    QStringList predictedKeys;
    for (const Event& e : p.events) {
        if (compared(e)) {
            predicted << &e;
            predictedKeys << key(e);
        }
    }
    QVector<TraceEvent> observed;
    QStringList observedKeys;
    for (const TraceEvent& e : parseTrace(s.trace)) {
        if (!e.run && e.colour == QLatin1String("orange"))
            continue;
        observed << e;
        observedKeys << key(e);
    }
    // What the technician does after the job's last line (F1 back to the menu) is not the job's.
    if (p.end != predict::End::Hang && !predictedKeys.isEmpty()) {
        const int end = observedKeys.lastIndexOf(predictedKeys.last());
        if (end >= 0) {
            observed.resize(end + 1);
            observedKeys = observedKeys.mid(0, end + 1);
        }
    }
    const QVector<QPair<int, int>> pairs = align(predictedKeys, observedKeys);
    // An event the alignment leaves out on both sides came in another place than predicted: one
    // difference of order on its line, not one missing and one extra.
    QVector<int> movedTo(predicted.size(), -1);
    QVector<bool> moved(observed.size(), false);
    {
        QVector<bool> predictedMatched(predicted.size(), false), observedMatched(observed.size(), false);
        for (const auto& [pi, oj] : pairs)
            predictedMatched[pi] = observedMatched[oj] = true;
        for (int a = 0; a < predicted.size(); ++a) {
            for (int b = 0; b < observed.size() && !predictedMatched[a] && !predicted[a]->optional; ++b) {
                if (!observedMatched[b] && !moved[b] && observedKeys[b] == predictedKeys[a]) {
                    movedTo[a] = b;
                    moved[b] = true;
                    break;
                }
            }
        }
    }
    const auto placed = [](const QStringList& keys, int index) {
        return index == 0 ? keys[index] + QStringLiteral(", first")
                          : keys[index] + QStringLiteral(", after ") + keys[index - 1];
    };
    int i = 0, j = 0, lastLine = 0;
    const auto unmatchedUpTo = [&](int toI, int toJ) {
        for (; i < toI; ++i) {
            lastLine = predicted[i]->line;
            if (movedTo[i] >= 0)
                differ(lastLine, QStringLiteral("order"), placed(predictedKeys, i),
                       placed(observedKeys, movedTo[i]));
            else if (!predicted[i]->optional)
                differ(lastLine,
                       predicted[i]->type == Event::Type::View ? QStringLiteral("view")
                                                               : QStringLiteral("run"),
                       predictedKeys[i], QStringLiteral("(not there)"));
        }
        for (; j < toJ; ++j)
            if (!moved[j])
                differ(lastLine, observed[j].run ? QStringLiteral("run") : QStringLiteral("view"),
                       QStringLiteral("(nothing)"), observedKeys[j]);
    };
    for (const auto& [pi, oj] : pairs) {
        unmatchedUpTo(pi, oj);
        const Event& e = *predicted[pi];
        const TraceEvent& o = observed[oj];
        lastLine = e.line;
        if (e.type == Event::Type::Run && e.exit != Exit::Unknown && o.exited &&
            (e.exit == Exit::Success) != (o.exit == 0))
            differ(e.line, QStringLiteral("exit"),
                   QStringLiteral("%1: %2").arg(e.text, predict::exitName(e.exit)),
                   QStringLiteral("%1: exit %2").arg(o.text).arg(o.exit));
        i = pi + 1;
        j = oj + 1;
    }
    unmatchedUpTo(predicted.size(), observed.size());

    // How the job ends.
    const bool hangs = p.end == predict::End::Hang;
    if (hangs == s.ended)
        differ(-1, QStringLiteral("end"), hangs ? QStringLiteral("no end (the updater hangs)") : p.endText(),
               s.ended ? QStringLiteral("the job ended") : QStringLiteral("no end"));

    // The root file system: what the instrument changed, and what the prediction changed.
    const rootfs::Tree& tree = *p.root;
    QSet<QString> seen;
    for (const state::Node& n : s.root) {
        seen.insert(n.path);
        if (ignored(n.path))
            continue;
        const rootfs::Node node = tree.at(n.path);
        if (!sameNode(node, n))
            differ(tree.changed().value(n.path, 0), QStringLiteral("root"),
                   QStringLiteral("%1 %2").arg(n.path, nodeText(node)),
                   QStringLiteral("%1 %2").arg(n.path, observedText(n)));
    }
    for (auto it = tree.changed().begin(); it != tree.changed().end(); ++it) {
        if (seen.contains(it.key()) || ignored(it.key()) || it.key().startsWith(QLatin1String("/tmp/")))
            continue;
        const rootfs::Node node = tree.at(it.key());
        if (!rootfs::sameState(node, tree.original(it.key())))
            differ(it.value(), QStringLiteral("root"), QStringLiteral("%1 %2").arg(it.key(), nodeText(node)),
                   QStringLiteral("%1 unchanged").arg(it.key()));
    }

    // Partitions and the PIC.
    for (auto it = p.partitions.begin(); it != p.partitions.end(); ++it) {
        const QByteArray seenContent = s.partitions.value(it.key());
        const bool same = it->whole ? seenContent == it->content : seenContent.startsWith(it->content);
        if (!same)
            differ(it->line, QStringLiteral("partition"),
                   QStringLiteral("%1: %2 bytes%3")
                       .arg(it.key())
                       .arg(it->content.size())
                       .arg(it->whole ? "" : " at its start"),
                   QStringLiteral("%1: %2 bytes, other content").arg(it.key()).arg(seenContent.size()));
    }
    if (p.picProgrammed && !s.picFlash.isEmpty()) {
        int picLine = 0;
        for (const predict::Line& l : p.lines)
            if (l.command && l.command->action == grammar::Action::Pic)
                picLine = l.number;
        for (const auto& [name, mine, theirs] :
             {std::make_tuple("flash", p.pic.flash, s.picFlash),
              std::make_tuple("configuration", p.pic.config, s.picConfig)}) {
            if (mine == theirs)
                continue;
            const auto byte = [](const QByteArray& bytes, int k) {
                return k < bytes.size() ? quint8(bytes[k]) : 0x100;
            };
            int first = 0, count = 0;
            for (int k = 0; k < qMax(mine.size(), theirs.size()); ++k) {
                if (byte(mine, k) != byte(theirs, k) && count++ == 0)
                    first = k;
            }
            differ(picLine, QStringLiteral("pic"),
                   QStringLiteral("PIC %1 as predicted").arg(QLatin1String(name)),
                   QStringLiteral("%1 bytes differ, the first at offset 0x%2 (predicted %3, holds %4)")
                       .arg(count)
                       .arg(first, 4, 16, QLatin1Char('0'))
                       .arg(byte(mine, first), 2, 16, QLatin1Char('0'))
                       .arg(byte(theirs, first), 2, 16, QLatin1Char('0')));
        }
    }
    std::stable_sort(result.differences.begin(), result.differences.end(),
                     [](const Difference& a, const Difference& b) {
                         const auto order = [](int line) { return line < 0 ? INT_MAX : line; };
                         return order(a.line) < order(b.line);
                     });
    return result;
}

QVector<Damage> damage(const predict::Prediction& p, const state::Snapshot& s)
{
    // What the lines name: a file line's path (its folders as the root resolves them, so a path through
    // /lib is /usr/lib), the application's place, and everything a modules archive unpacks. A script may
    // write anything, so its files are not judged.
    QSet<QString> named{QStringLiteral("/home/mainApp")};
    bool script = false;
    for (const predict::Line& line : p.lines) {
        script = script || line.keyword == QLatin1String("SCRIPT");
        if (line.keyword == QLatin1String("MODULES")) {
            for (const predict::Write& w : line.writes)
                named.insert(w.path);
        } else if ((line.keyword == QLatin1String("FILE") || line.keyword == QLatin1String("UPDATER")) &&
                   p.root) {
            const int slash = line.argument.lastIndexOf(QLatin1Char('/'));
            const rootfs::Lookup folder = p.root->resolve(line.argument.left(qMax(slash, 1)), true);
            named.insert(folder.err == rootfs::Err::None
                             ? QDir::cleanPath(folder.path + QLatin1Char('/') + line.argument.mid(slash + 1))
                             : line.argument);
        }
    }
    const auto lineOf = [&](const QString& path) {
        for (const predict::Line& line : p.lines)
            for (const predict::Write& w : line.writes)
                if (w.path == path)
                    return line.number;
        return 0;
    };
    const auto attributes = [](uint mode, uint uid, uint gid) {
        return QStringLiteral("%1 %2:%3").arg(mode, 4, 8, QLatin1Char('0')).arg(uid).arg(gid);
    };
    QVector<Damage> found;
    for (const state::Node& n : s.root) {
        if (n.path.startsWith(QLatin1String("/tmp/")) || n.path.startsWith(QLatin1String("/mnt/")) ||
            ignored(n.path))
            continue;
        QString what;
        if (n.before && n.before->kind == profile::Kind::Directory && !n.removed &&
            n.kind == profile::Kind::Directory &&
            (n.mode != n.before->mode || n.uid != n.before->uid || n.gid != n.before->gid)) {
            what = QStringLiteral("the folder's mode and owner changed from %1 to %2")
                       .arg(attributes(n.before->mode, n.before->uid, n.before->gid),
                            attributes(n.mode, n.uid, n.gid));
        } else if (n.before && n.before->kind == profile::Kind::Symlink &&
                   (n.removed || n.kind != profile::Kind::Symlink || n.target != n.before->target)) {
            what = n.removed ? QStringLiteral("the link to %1 was removed").arg(n.before->target)
                             : QStringLiteral("the link to %1 was replaced by a %2")
                                   .arg(n.before->target, profile::kindName(n.kind));
        } else if (!script && !n.removed && n.kind == profile::Kind::File && !named.contains(n.path)) {
            what = QStringLiteral("written, though no line names it (a write through a link?)");
        }
        if (!what.isEmpty())
            found.push_back({lineOf(n.path), n.path, what});
    }
    return found;
}

QString text(const predict::Prediction& p, const Result& result)
{
    QString out;
    const auto lineName = [&](int line) {
        if (line == 0)
            return QStringLiteral("before the command list");
        if (line < 0)
            return QStringLiteral("after the command list");
        for (const predict::Line& l : p.lines)
            if (l.number == line)
                return QStringLiteral("line %1 (%2)").arg(line).arg(l.text);
        return QStringLiteral("line %1").arg(line);
    };
    for (const Difference& d : result.differences)
        out +=
            QStringLiteral("%1: %2 differs\n    predicted: %3\n    observed:  %4\n")
                .arg(lineName(d.line), d.what, predict::escaped(d.predicted), predict::escaped(d.observed));
    for (const Difference& d : result.unsure)
        out +=
            QStringLiteral("%1: %2 differs where the tool cannot predict (not counted)\n    predicted: %3\n  "
                           "  observed:  %4\n")
                .arg(lineName(d.line), d.what, predict::escaped(d.predicted), predict::escaped(d.observed));
    return out;
}

} // namespace compare
