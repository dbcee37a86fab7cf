#include "Report.h"

#include "Rules.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>

namespace report {
namespace {

using predict::Event;
using predict::Prediction;

QString severity(const QString& rule)
{
    return rules::severityName(rules::severityOf(rule));
}

int errorCount(const Prediction& p)
{
    return int(std::count_if(p.findings.begin(), p.findings.end(), [](const predict::Finding& f) {
        return rules::severityOf(f.rule) == rules::Severity::Error;
    }));
}

QString plural(int n, const char* word)
{
    return QStringLiteral("%1 %2%3").arg(n).arg(QLatin1String(word)).arg(n == 1 ? "" : "s");
}

QString eventText(const Event& e)
{
    if (e.type == Event::Type::View)
        return QStringLiteral("%1 \"%2\"").arg(predict::colourName(e.colour), predict::escaped(e.text));
    return QStringLiteral("$ %1  (%2%3)")
        .arg(e.command.isEmpty() ? QStringLiteral("(empty command line)") : e.command,
             predict::exitName(e.exit), e.traced ? QString() : QStringLiteral(", not traced"));
}

QJsonObject eventJson(const Event& e)
{
    if (e.type == Event::Type::View)
        return {{"view", predict::colourName(e.colour)}, {"text", e.text}, {"shown", e.shown}};
    return {{"run", e.command}, {"argv", e.text}, {"exit", predict::exitName(e.exit)}, {"traced", e.traced}};
}

QJsonObject nodeJson(const QString& path, const rootfs::Node& node)
{
    if (!node)
        return {{"path", path}, {"removed", true}};
    QJsonObject o{{"path", path},
                  {"kind", profile::kindName(node->kind)},
                  {"mode", QStringLiteral("%1").arg(node->mode, 4, 8, QLatin1Char('0'))},
                  {"uid", int(node->uid)},
                  {"gid", int(node->gid)}};
    if (node->kind == rootfs::Kind::Symlink)
        o.insert("target", node->target);
    if (node->kind == rootfs::Kind::File) {
        o.insert("size", node->size);
        if (node->known)
            o.insert("sha256", QString::fromLatin1(node->sha256.toHex()));
    }
    return o;
}

} // namespace

QString describe(const QString& path, const rootfs::Node& node)
{
    if (!node)
        return path + QStringLiteral(" removed");
    QString out = QStringLiteral("%1 %2 %3 %4:%5")
                      .arg(path, profile::kindName(node->kind))
                      .arg(node->mode, 4, 8, QLatin1Char('0'))
                      .arg(node->uid)
                      .arg(node->gid);
    if (node->kind == rootfs::Kind::Symlink)
        out += QStringLiteral(" -> ") + node->target;
    if (node->kind == rootfs::Kind::File)
        out += QStringLiteral(" %1").arg(package::sizeText(node->size)) +
               (node->known ? QStringLiteral(" sha256 ") + QString::fromLatin1(node->sha256.toHex().left(16))
                            : QStringLiteral(" (the instrument's content)"));
    return out;
}

QString lintText(const Prediction& p)
{
    QString out;
    QMap<QPair<int, QString>, int> seen;
    QMap<QPair<int, QString>, QString> command;
    for (const predict::Finding& f : p.findings) {
        const auto key = qMakePair(f.line, f.rule);
        command[key] = f.command;
        if (++seen[key] > repeatsShown)
            continue;
        out += QStringLiteral("%1:%2: %3: %4: %5%6\n")
                   .arg(p.packageName)
                   .arg(f.line)
                   .arg(severity(f.rule), f.rule,
                        f.line > 0 ? QStringLiteral("[%1] ").arg(f.command) : QString(), f.message);
    }
    for (auto it = seen.begin(); it != seen.end(); ++it) {
        if (it.value() > repeatsShown)
            out += QStringLiteral("%1:%2: %3: %4: and %5 more like this (--json lists them all)\n")
                       .arg(p.packageName)
                       .arg(it.key().first)
                       .arg(severity(it.key().second), it.key().second)
                       .arg(it.value() - repeatsShown);
    }
    const int errors = errorCount(p);
    out += QStringLiteral("%1: %2, %3 in %4\n")
               .arg(p.packageName, plural(errors, "error"), plural(p.findings.size() - errors, "warning"),
                    plural(p.lines.size(), "command"));
    return out;
}

QByteArray lintJson(const Prediction& p)
{
    QJsonArray findings;
    for (const predict::Finding& f : p.findings)
        findings.append(QJsonObject{{"rule", f.rule},
                                    {"severity", severity(f.rule)},
                                    {"line", f.line},
                                    {"command", f.command},
                                    {"message", f.message}});
    const int errors = errorCount(p);
    return QJsonDocument(QJsonObject{{"schema", schemaVersion},
                                     {"package", p.packageName},
                                     {"counts", QJsonObject{{"errors", errors},
                                                            {"warnings", p.findings.size() - errors},
                                                            {"commands", p.lines.size()}}},
                                     {"end", predict::endName(p.end)},
                                     {"findings", findings}})
        .toJson(QJsonDocument::Indented);
}

QString inspectText(const package::Package& pkg, const Prediction& p)
{
    QString out =
        QStringLiteral("%1 (%2, %3 entries)\n").arg(p.packageName, pkg.compression).arg(pkg.entries.size());
    const auto list = [&](const char* label, const QStringList& items) {
        for (int i = 0; i < items.size(); ++i)
            out += QStringLiteral("  %1 %2\n")
                       .arg(i == 0 ? QString::fromLatin1(label) : QString(), -11)
                       .arg(items[i]);
    };
    const auto events = [&](int line) {
        QStringList items;
        for (const Event& e : p.events) {
            if (e.line == line && !(e.type == Event::Type::View && e.colour == predict::Colour::Orange))
                items << eventText(e);
        }
        return items;
    };
    out += QStringLiteral("before the command list:\n");
    list("", events(0));
    for (const predict::Line& line : p.lines) {
        out += QStringLiteral("line %1: %2\n").arg(line.number).arg(line.text);
        list("does:", events(line.number));
        list("payload:", line.payloadKind.isEmpty() ? QStringList() : QStringList{line.payloadKind});
        QStringList findings;
        for (const predict::Finding& f : p.findings) {
            if (f.line == line.number)
                findings << QStringLiteral("%1: %2: %3").arg(severity(f.rule), f.rule, f.message);
        }
        list("findings:", findings);
        QStringList writes;
        for (const predict::Write& w : line.writes)
            writes << describe(w.path, w.node);
        list("writes:", writes);
        QStringList partitions;
        for (const QString& device : line.partitions) {
            const target::Partition& part = p.partitions.value(device);
            partitions << QStringLiteral("%1 %2").arg(device, part.whole
                                                                  ? QStringLiteral("rewritten whole")
                                                                  : QStringLiteral("its start rewritten"));
        }
        list("partitions:", partitions);
        if (!line.picWritten.isEmpty())
            list("PIC:", {QStringLiteral("programmed ") + pic::rangeText(line.picWritten)});
        list("config:", line.picConfig);
        list("outcome:", {line.hangs       ? QStringLiteral("hangs")
                          : line.uncertain ? QStringLiteral("cannot be predicted")
                          : line.failed    ? QStringLiteral("fails")
                                           : QStringLiteral("done")});
    }
    if (!p.lines.isEmpty()) {
        out += QStringLiteral("after the command list:\n");
        list("", events(-1));
    }
    out += QStringLiteral("end of the job: %1\n")
               .arg(p.end == predict::End::Hang      ? QStringLiteral("never (the updater hangs)")
                    : p.end == predict::End::Unknown ? QStringLiteral("cannot be predicted")
                                                     : p.endText());
    return out;
}

QByteArray inspectJson(const package::Package& pkg, const Prediction& p)
{
    Q_UNUSED(pkg);
    QJsonArray before, after;
    QMap<int, QJsonArray> perLine;
    for (const Event& e : p.events) {
        if (e.type == Event::Type::View && e.colour == predict::Colour::Orange)
            continue;
        (e.line == 0 ? before : e.line < 0 ? after : perLine[e.line]).append(eventJson(e));
    }
    QJsonArray commands;
    for (const predict::Line& line : p.lines) {
        QJsonArray writes, partitions;
        for (const predict::Write& w : line.writes)
            writes.append(nodeJson(w.path, w.node));
        for (const QString& device : line.partitions)
            partitions.append(device);
        QJsonObject o{{"line", line.number},
                      {"command", line.text},
                      {"events", perLine.value(line.number)},
                      {"writes", writes},
                      {"partitions", partitions},
                      {"outcome", line.hangs       ? QStringLiteral("hangs")
                                  : line.uncertain ? QStringLiteral("unknown")
                                  : line.failed    ? QStringLiteral("fails")
                                                   : QStringLiteral("done")}};
        if (!line.payload.isEmpty())
            o.insert("payload", line.payload);
        if (!line.payloadKind.isEmpty())
            o.insert("payloadKind", line.payloadKind);
        QJsonArray findings;
        for (const predict::Finding& f : p.findings) {
            if (f.line == line.number)
                findings.append(
                    QJsonObject{{"rule", f.rule}, {"severity", severity(f.rule)}, {"message", f.message}});
        }
        o.insert("findings", findings);
        if (line.command && line.command->action == grammar::Action::Pic)
            o.insert("pic", QJsonObject{{"programmed", pic::rangeText(line.picWritten)},
                                        {"config", QJsonArray::fromStringList(line.picConfig)}});
        commands.append(o);
    }
    return QJsonDocument(QJsonObject{{"schema", schemaVersion},
                                     {"package", p.packageName},
                                     {"before", before},
                                     {"commands", commands},
                                     {"after", after},
                                     {"end", predict::endName(p.end)}})
        .toJson(QJsonDocument::Indented);
}

QString rulesText()
{
    QString out;
    for (const rules::Rule& rule : rules::all())
        out += QStringLiteral("%1 %2 %3\n")
                   .arg(QLatin1String(rule.id), -28)
                   .arg(rules::severityName(rule.severity), -8)
                   .arg(QLatin1String(rule.sentence));
    return out;
}

QByteArray rulesJson()
{
    QJsonArray list;
    for (const rules::Rule& rule : rules::all())
        list.append(QJsonObject{{"id", QLatin1String(rule.id)},
                                {"severity", rules::severityName(rule.severity)},
                                {"sentence", QLatin1String(rule.sentence)}});
    return QJsonDocument(QJsonObject{{"schema", schemaVersion}, {"rules", list}})
        .toJson(QJsonDocument::Indented);
}

} // namespace report
