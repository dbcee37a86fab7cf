#include "Risk.h"

#include "CommandGrammar.h"
#include "Exposure.h"
#include "InstrumentProfile.h"
#include "IntelHex.h"
#include "Package.h"
#include "PowerOn.h"
#include "VirtualInstrument.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QTemporaryDir>
#include <QTextStream>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <mutex>
#include <numeric>
#include <thread>

namespace {

const char* const usage =
    "usage: update-package risk PACKAGE [--json] [--points N] [--out-dir DIR] "
    "[--fail-on CLASS]\n"
    "  --points N      cut points inside each writing command and PIC step (default 3)\n"
    "  --out-dir DIR   keep every run's state folder there\n"
    "  --fail-on CLASS exit 1 when a line reaches CLASS or worse (updated, unchanged, "
    "repairable, unrepairable, unbootable)";

int fail(const QString& text)
{
    QTextStream(stderr) << "update-package risk: " << text << "\n";
    return 2;
}

void say(const QString& text)
{
    QTextStream(stderr) << "risk: " << text << "\n";
}

struct Options
{
    QString package, outDir;
    bool json = false;
    int points = 3;
    std::optional<poweron::Class> failOn;
};

struct Command // one command the updater ran in the whole run
{
    QString argv;
    int line = -1;                        // index into the list; -1 before it, lines.size() after it
    double start = 0, end = 0, board = 0; // seconds from the run's first command; board duration
};

struct Point
{
    QString rule; // as the cut file takes it
    double at = 0;
    std::optional<poweron::Verdict> asCut, worst;
    QString error;
};

struct Line
{
    QString text;
    QString progress;    // the view line that starts it
    QVector<int> points; // indices into the points, in time order
};

QString progressOf(const QString& line)
{
    const QStringList parts = grammar::split(line);
    const grammar::Command* command = parts.size() == 2 ? grammar::match(parts[0]) : nullptr;
    if (!command)
        return {};
    if (command->action == grammar::Action::Pic)
        return QString(command->progress).arg(parts[0].mid(3), parts[1]);
    if (command->action == grammar::Action::System)
        return (parts[1] == "SDCARD" || parts[1] == "NAND" ? grammar::systemSet : grammar::systemUnknown)
            .arg(parts[1]);
    return QString(command->progress).arg(parts[1]);
}

// The PIC's memory before the update, for the runs: an older program in the rows the package's HEX files
// program (0x00 there), so that old, blank, partly programmed and new can be told apart.
QByteArray olderPicProgram(const package::Package& pkg, const QStringList& lines)
{
    QByteArray flash(0x10000, '\xff');
    bool any = false;
    for (const QString& line : lines) {
        const QStringList parts = grammar::split(line);
        const grammar::Command* command = parts.size() == 2 ? grammar::match(parts[0]) : nullptr;
        const package::Entry* entry = command && command->action == grammar::Action::Pic
                                          ? pkg.find(package::topFolder + parts[1])
                                          : nullptr;
        if (!entry || !entry->kept())
            continue;
        quint32 base = 0;
        for (const hex::Record& r : hex::parse(entry->data).records) {
            if (r.type == hex::ExtendedLinearAddress && r.data.size() == 2)
                base = quint32(quint8(r.data[0]) << 8 | quint8(r.data[1])) << 16;
            if (r.type != hex::Data)
                continue;
            for (int i = 0; i < r.data.size(); ++i) {
                const quint32 address = base + r.offset + quint32(i);
                if (address < quint32(flash.size())) {
                    const int row = int(address / 64 * 64);
                    flash.replace(row, 64, QByteArray(64, '\0'));
                    any = true;
                }
            }
        }
    }
    return any ? flash : QByteArray();
}

bool writeFile(const QString& path, const QByteArray& data)
{
    QFile file(path);
    return QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly) &&
           file.write(data) == data.size();
}

class RiskRun
{
public:
    RiskRun(Options options, package::Package pkg, QStringList lines, QString work)
        : m_options(std::move(options)), m_pkg(std::move(pkg)), m_work(std::move(work))
    {
        for (const QString& text : lines)
            m_lines.push_back({text, progressOf(text), {}});
        m_picBefore = olderPicProgram(m_pkg, lines);
        const auto profile = [&] {
            QString error;
            return profile::read(profile::defaultPath(), error);
        }();
        if (profile && !profile->updater.isEmpty())
            m_reference.updater = profile->updater;
    }

    int run()
    {
        QElapsedTimer clock;
        clock.start();
        say("the whole run and the instrument before it (the PIC steps take minutes)");
        QVector<std::optional<state::Snapshot>> found(2);
        if (!batch({QString(), "before 1"}, {"reference", "before"}, {2, 1},
                   [&](int i, const state::Snapshot& s) { found[i] = s; }))
            return 2;
        if (!found[0] || !found[1])
            return fail("the reference runs left no state to read");
        m_reference.after = *found[0];
        m_reference.before = *found[1];
        if (!m_reference.after.ended)
            return fail("the package does not run to its end without a cut: " + m_reference.after.outcome);
        if (!readCommands())
            return 2;
        planPoints();
        QStringList rules, names;
        QVector<double> costs;
        for (int i = 0; i < m_points.size(); ++i) {
            if (m_points[i].rule == endRule)
                continue;
            rules << m_points[i].rule;
            costs << m_points[i].at;
            names << QStringLiteral("point-%1").arg(i, 3, 10, QChar('0'));
        }
        say(QStringLiteral("%1 cut points").arg(rules.size()));
        int done = 0;
        if (!batch(rules, names, costs, [&](int i, const state::Snapshot& s) {
                Point& point = m_points[pointOf(rules[i])];
                judge(point, s);
                say(QStringLiteral("%1/%2 %3: %4")
                        .arg(++done)
                        .arg(rules.size())
                        .arg(rules[i], poweron::name(point.worst->cls)));
            }))
            return 2;
        // The end of the list (sync, removing /tmp's files, unmounting) changes nothing but /tmp: its
        // state is the whole run's, before its sync.
        for (Point& p : m_points)
            if (p.rule == endRule) {
                state::Snapshot beforeSync = m_reference.after;
                const int sync = beforeSync.trace.indexOf("run sync");
                if (sync >= 0)
                    beforeSync.trace.resize(sync);
                judge(p, beforeSync);
            }
        m_seconds = double(clock.elapsed()) / 1000.0;
        return report();
    }

private:
    static inline const QString endRule = QStringLiteral("end");

    // Runs the package once per rule ("": no cut); `costs` are the jobs' expected seconds.
    bool batch(const QStringList& rules, const QStringList& names, const QVector<double>& costs,
               const std::function<void(int, const state::Snapshot&)>& take)
    {
        QVector<instrument::Job> jobs;
        for (int i = 0; i < rules.size(); ++i) {
            instrument::Job job;
            job.package = m_options.package;
            job.outDir = m_work + "/" + names[i];
            QDir(job.outDir).removeRecursively();
            if ((!rules[i].isEmpty() && !writeFile(job.outDir + "/cut", rules[i].toUtf8() + "\n")) ||
                (!m_picBefore.isEmpty() && !writeFile(job.outDir + "/pic-before/flash", m_picBefore))) {
                fail("cannot write the run's folder " + job.outDir);
                return false;
            }
            jobs << job;
        }
        // Two instruments side by side on a machine with two cores or more (nearly twice the jobs a
        // minute): the longest jobs first, each to the lane with less work so far.
        const QVector<int> cpus = instrument::usableCpus();
        const int laneCount = cpus.size() >= 2 && jobs.size() > 1 ? 2 : 1;
        QVector<int> order(jobs.size());
        std::iota(order.begin(), order.end(), 0);
        std::stable_sort(order.begin(), order.end(),
                         [&](int a, int b) { return costs.value(a) > costs.value(b); });
        QVector<QVector<int>> lanes(laneCount);
        QVector<double> load(laneCount, 0);
        for (int i : order) {
            const int lane = int(std::min_element(load.begin(), load.end()) - load.begin());
            lanes[lane] << i;
            load[lane] += costs.value(i);
        }
        std::mutex lock;
        QStringList errors;
        bool unavailable = false;
        const auto runLane = [&](int laneIndex) {
            const QVector<int>& lane = lanes[laneIndex];
            QVector<instrument::Job> laneJobs;
            for (int i : lane)
                laneJobs << jobs[i];
            QString error;
            bool laneUnavailable = false;
            const bool ran = instrument::runBatch(
                laneJobs,
                [&](int index, const std::optional<state::Snapshot>& snapshot, const QString& e) {
                    const std::lock_guard<std::mutex> guard(lock);
                    if (snapshot)
                        take(lane[index], *snapshot);
                    else
                        errors << "cannot read a run's state: " + e;
                },
                error, {QString(), false, laneCount > 1 ? cpus[laneIndex] : -1}, &laneUnavailable);
            const std::lock_guard<std::mutex> guard(lock);
            if (!ran)
                errors << error;
            unavailable = unavailable || laneUnavailable;
        };
        std::thread second;
        if (laneCount > 1)
            second = std::thread(runLane, 1);
        runLane(0);
        if (second.joinable())
            second.join();
        if (!errors.isEmpty()) {
            fail(unavailable ? "the virtual instrument is unavailable on this machine: " + errors.first()
                             : errors.join('\n'));
            return false;
        }
        return true;
    }

    // The whole run's commands, which list line each belongs to, and their times.
    bool readCommands()
    {
        const QString dir = m_work + "/reference";
        QFile clockFile(dir + "/clock.log");
        QVector<double> starts, ends;
        if (!clockFile.open(QIODevice::ReadOnly))
            return fail("the whole run left no command times in " + clockFile.fileName()), false;
        for (const QByteArray& raw : clockFile.readAll().split('\n')) {
            const QList<QByteArray> words = raw.split(' ');
            if (words.size() == 2)
                (words[0] == "start" ? starts : ends) << words[1].toDouble();
        }
        QFile changes(dir + "/line-changes");
        if (changes.open(QIODevice::ReadOnly))
            m_lineChanges = changes.readAll().trimmed().toLongLong();
        int line = -1;
        for (const QString& event : m_reference.after.trace) {
            if (event.startsWith("view plain ")) {
                const QString text = state::unescaped(event.mid(11));
                if (text == grammar::finalising)
                    line = m_lines.size();
                for (int j = line + 1; j < m_lines.size(); ++j)
                    if (!m_lines[j].progress.isEmpty() && text == m_lines[j].progress) {
                        line = j;
                        break;
                    }
            } else if (event.startsWith("run ")) {
                Command c;
                c.argv = state::unescaped(event.mid(4));
                c.line = line;
                m_commands << c;
            }
        }
        if (starts.size() < m_commands.size() || ends.size() < m_commands.size())
            return fail("the whole run's command times do not match its trace"), false;
        for (int k = 0; k < m_commands.size(); ++k) {
            m_commands[k].start = starts[k] - starts[0];
            m_commands[k].end = ends[k] - starts[0];
            m_commands[k].board = exposure::boardSeconds(
                m_commands[k].argv, m_commands[k].end - m_commands[k].start, [&](const QString& path) {
                    const package::Entry* entry =
                        m_pkg.find(package::topFolder + path.mid(grammar::unpacked.size()));
                    return entry ? entry->size : qint64(0);
                });
        }
        return true;
    }

    int pointOf(const QString& rule) const
    {
        for (int i = 0; i < m_points.size(); ++i)
            if (m_points[i].rule == rule)
                return i;
        return -1;
    }

    int addPoint(const QString& rule, double at, int line)
    {
        int i = pointOf(rule);
        if (i < 0) {
            m_points.push_back({rule, at, {}, {}, {}});
            i = m_points.size() - 1;
        }
        if (line >= 0 && line < m_lines.size() && !m_lines[line].points.contains(i))
            m_lines[line].points << i;
        return i;
    }

    // Every command boundary and N points inside each writing command, each listed under the lines it
    // bounds; a line without commands of its own (a PIC step, a script) lies between its neighbours'.
    void planPoints()
    {
        const int n = m_options.points;
        const int lines = m_lines.size();
        for (int k = 0; k < m_commands.size(); ++k) {
            const Command& c = m_commands[k];
            if (c.line < 0 || c.line >= lines)
                continue;
            const QString number = QString::number(k + 1);
            const bool firstOfLine = k == 0 || m_commands[k - 1].line != c.line;
            // Before the first command of a line right after the last of the previous line: the same state.
            // Inside a line the state after one command is the state before the next: one point for both.
            if (firstOfLine && k > 0 && m_commands[k - 1].line == c.line - 1 && c.line > 0)
                addPoint("after " + QString::number(k), m_commands[k - 1].end, c.line);
            else if (firstOfLine)
                addPoint("before " + number, c.start, c.line);
            if (exposure::writerOf(c.argv))
                for (int i = 1; i <= n; ++i)
                    addPoint(QStringLiteral("during %1 %2/%3").arg(number).arg(i).arg(n + 1),
                             c.start + (c.end - c.start) * i / (n + 1), c.line);
            addPoint("after " + number, c.end, c.line);
        }
        // Lines without commands: the boundaries around them, and the PIC steps' line changes.
        for (int line = 0; line < lines; ++line) {
            int before = -1, after = -1;
            bool own = false;
            for (int k = 0; k < m_commands.size(); ++k) {
                own = own || m_commands[k].line == line;
                if (m_commands[k].line < line)
                    before = k;
                if (m_commands[k].line > line && after < 0)
                    after = k;
            }
            if (own)
                continue;
            const double from = before >= 0 ? m_commands[before].end : 0;
            const double to = after >= 0 ? m_commands[after].start : from;
            addPoint(before >= 0 ? "after " + QString::number(before + 1) : "before 1", from, line);
            const bool pic = m_lines[line].progress.startsWith("Updating PIC");
            if (pic && m_lineChanges > 0 && from > 0 && before >= 0 && line > 0 && !hasCommands(line - 1))
                addPoint("line-change 0", from, line);
            if (pic && m_lineChanges > 0)
                for (int i = 1; i <= n; ++i)
                    addPoint(QStringLiteral("line-change %1").arg(m_lineChanges * i / (n + 1)),
                             from + (to - from) * i / (n + 1), line);
            // The end: the next command's start, or the next line's first line change when that line is a
            // PIC step (a script before it is taken as taking no time).
            const bool nextIsPic = line + 1 < lines && m_lines[line + 1].progress.startsWith("Updating PIC");
            const bool atEnd = after < 0 || m_commands[after].line >= lines;
            if (!pic && nextIsPic && m_lineChanges > 0)
                addPoint("line-change 0", from, line);
            else
                addPoint(atEnd ? endRule : "before " + QString::number(after + 1), to, line);
        }
        for (Line& line : m_lines)
            std::sort(line.points.begin(), line.points.end(),
                      [&](int a, int b) { return m_points[a].at < m_points[b].at; });
    }

    bool hasCommands(int line) const
    {
        return std::any_of(m_commands.begin(), m_commands.end(),
                           [&](const Command& c) { return c.line == line; });
    }

    void judge(Point& point, const state::Snapshot& snapshot)
    {
        point.asCut = poweron::check(snapshot, m_reference);
        point.worst = poweron::worstWithWriteBack(snapshot, m_reference);
    }

    // Board time at a moment of the run: the commands with a board figure stretch or shrink.
    double boardAt(double t) const
    {
        double shift = 0;
        for (const Command& c : m_commands) {
            const double measured = c.end - c.start;
            if (t >= c.end)
                shift += c.board - measured;
            else if (t > c.start && measured > 0)
                shift += (c.board - measured) * (t - c.start) / measured;
        }
        return t + shift;
    }

    struct Window
    {
        poweron::Class worst = poweron::Class::Updated, worstAsCut = poweron::Class::Updated;
        double seconds = 0, board = 0;
    };

    // How long the line keeps the instrument in its worst class: between two points the worse of the two.
    Window windowOf(const Line& line) const
    {
        Window w;
        for (int i : line.points) {
            const Point& p = m_points[i];
            if (!p.worst)
                continue;
            w.worst = std::max(w.worst, p.worst->cls);
            w.worstAsCut = std::max(w.worstAsCut, p.asCut->cls);
        }
        for (int j = 0; j + 1 < line.points.size(); ++j) {
            const Point& a = m_points[line.points[j]];
            const Point& b = m_points[line.points[j + 1]];
            if (!a.worst || !b.worst || std::max(a.worst->cls, b.worst->cls) != w.worst)
                continue;
            w.seconds += b.at - a.at;
            w.board += boardAt(b.at) - boardAt(a.at);
        }
        return w;
    }

    // The table's reason for a line: its first point that is in the worst class as cut, else the first
    // the write-back puts there; nothing for a line that loses nothing.
    QString reasonOf(const Line& line, const Window& w) const
    {
        if (w.worst < poweron::Class::Repairable)
            return {};
        for (const bool asCut : {true, false})
            for (int i : line.points) {
                const Point& p = m_points[i];
                const std::optional<poweron::Verdict>& v = asCut ? p.asCut : p.worst;
                if (v && v->cls == w.worst)
                    return p.rule + ": " + v->why;
            }
        return {};
    }

    int report()
    {
        QJsonArray jsonLines;
        QString table;
        QTextStream out(&table);
        out << QStringLiteral("%1: %2 cut points, %3 inside each writing command and PIC step, %4 s\n")
                   .arg(QFileInfo(m_options.package).fileName())
                   .arg(m_points.size())
                   .arg(m_options.points)
                   .arg(m_seconds, 0, 'f', 0);
        out << QStringLiteral("%1  %2 %3 %4 %5 %6\n")
                   .arg("line", -4)
                   .arg("command", -28)
                   .arg("as cut", -13)
                   .arg("worst", -13)
                   .arg("window", 9)
                   .arg("board", 9);
        int worstLine = -1;
        Window worstWindow;
        poweron::Class packageWorst = poweron::Class::Updated;
        for (int l = 0; l < m_lines.size(); ++l) {
            const Line& line = m_lines[l];
            const Window w = windowOf(line);
            packageWorst = std::max(packageWorst, w.worst);
            if (worstLine < 0 || w.worst > worstWindow.worst ||
                (w.worst == worstWindow.worst && w.seconds > worstWindow.seconds)) {
                worstLine = l;
                worstWindow = w;
            }
            out << QStringLiteral("%1  %2 %3 %4 %5 %6\n")
                       .arg(l + 1, -4)
                       .arg(line.text.left(28), -28)
                       .arg(poweron::name(w.worstAsCut), -13)
                       .arg(poweron::name(w.worst), -13)
                       .arg(QString::number(w.seconds, 'f', 2) + " s", 9)
                       .arg(QString::number(w.board, 'f', 2) + " s", 9);
            QJsonArray points;
            for (int i : line.points) {
                const Point& p = m_points[i];
                if (p.worst)
                    points.append(QJsonObject{{"at", p.rule},
                                              {"t_s", p.at},
                                              {"class", poweron::name(p.worst->cls)},
                                              {"why", p.worst->why},
                                              {"as_cut", poweron::name(p.asCut->cls)},
                                              {"as_cut_why", p.asCut->why}});
            }
            if (const QString why = reasonOf(line, w); !why.isEmpty())
                out << "      " << why << "\n";
            jsonLines.append(QJsonObject{{"line", l + 1},
                                         {"command", line.text},
                                         {"worst", poweron::name(w.worst)},
                                         {"worst_as_cut", poweron::name(w.worstAsCut)},
                                         {"window_s", w.seconds},
                                         {"board_window_s", w.board},
                                         {"points", points}});
        }
        if (worstLine >= 0)
            out << QStringLiteral("worst window: line %1 %2, %3 for %4 s (board %5 s)\n")
                       .arg(worstLine + 1)
                       .arg(m_lines[worstLine].text, poweron::name(worstWindow.worst))
                       .arg(worstWindow.seconds, 0, 'f', 2)
                       .arg(worstWindow.board, 0, 'f', 2);
        out << "as cut: the state the cut left; worst: with the write-back (files changed since the last "
               "sync may come back empty, an SD-card kernel written since then with old and new sectors "
               "mixed)\n"
            << exposure::boardSource << "\n";
        out.flush();
        if (m_options.json) {
            QJsonObject root{{"package", QFileInfo(m_options.package).fileName()},
                             {"points_per_command", m_options.points},
                             {"lines", jsonLines},
                             {"run_s", m_seconds},
                             {"board_figures", exposure::boardSource}};
            if (worstLine >= 0)
                root.insert("worst_window", QJsonObject{{"line", worstLine + 1},
                                                        {"class", poweron::name(worstWindow.worst)},
                                                        {"window_s", worstWindow.seconds},
                                                        {"board_window_s", worstWindow.board}});
            QTextStream(stdout) << QJsonDocument(root).toJson(QJsonDocument::Indented);
        } else {
            QTextStream(stdout) << table;
        }
        return m_options.failOn && packageWorst >= *m_options.failOn ? 1 : 0;
    }

    Options m_options;
    package::Package m_pkg;
    QString m_work;
    QVector<Line> m_lines;
    QByteArray m_picBefore;
    poweron::Reference m_reference;
    QVector<Command> m_commands;
    QVector<Point> m_points;
    qint64 m_lineChanges = 0;
    double m_seconds = 0;
};

} // namespace

int riskCommand(const QStringList& arguments)
{
    Options options;
    for (int i = 0; i < arguments.size(); ++i) {
        const QString& arg = arguments[i];
        const auto value = [&](QString& into) {
            if (i + 1 >= arguments.size())
                return false;
            into = arguments[++i];
            return true;
        };
        QString text;
        if (arg == "--json") {
            options.json = true;
        } else if (arg == "--points") {
            bool ok = false;
            options.points = value(text) ? text.toInt(&ok) : -1;
            if (!ok || options.points < 0 || options.points > 100)
                return fail(QStringLiteral("--points takes a whole number from 0 to 100, not '%1'\n%2")
                                .arg(text, usage));
        } else if (arg == "--out-dir") {
            if (!value(options.outDir))
                return fail(QStringLiteral("--out-dir needs a folder\n") + usage);
        } else if (arg == "--fail-on") {
            options.failOn = value(text) ? poweron::fromName(text) : std::nullopt;
            if (!options.failOn)
                return fail(QStringLiteral("--fail-on takes a class, not '%1'\n%2").arg(text, usage));
        } else if (arg.startsWith('-')) {
            return fail(QStringLiteral("unknown option '%1'\n%2").arg(arg, usage));
        } else if (options.package.isEmpty()) {
            options.package = arg;
        } else {
            return fail(QStringLiteral("one package at a time, got '%1' too\n%2").arg(arg, usage));
        }
    }
    if (options.package.isEmpty())
        return fail(QStringLiteral("give a package file\n") + usage);
    if (!QFileInfo(options.package).isFile())
        return fail("no package file at " + options.package);
    if (!package::nameMatches(QFileInfo(options.package).fileName()))
        return fail(QStringLiteral("%1: the updater only takes a file named *M_firmware_update*.tar.bz2")
                        .arg(options.package));
    QString error;
    const auto pkg = package::read(options.package, error);
    if (!pkg)
        return fail(error);
    const package::Entry* list = pkg->find(package::commandListPath);
    if (!list || !list->kept())
        return fail(
            QStringLiteral("%1 has no command list %2").arg(options.package, package::commandListPath));
    QStringList lines = QString::fromUtf8(list->data).split('\n');
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    for (QString& line : lines)
        if (line.endsWith('\r'))
            line.chop(1);

    std::unique_ptr<QTemporaryDir> scratch;
    QString work = options.outDir;
    if (work.isEmpty()) {
        scratch = std::make_unique<QTemporaryDir>();
        if (!scratch->isValid())
            return fail("cannot make a temporary folder: " + scratch->errorString());
        work = scratch->path();
    } else if (!QDir().mkpath(work)) {
        return fail("cannot make the folder " + work);
    }
    options.package = QFileInfo(options.package).absoluteFilePath();
    RiskRun run(options, *pkg, lines, QFileInfo(work).absoluteFilePath());
    return run.run();
}
