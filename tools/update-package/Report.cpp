#include "Report.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace report {
namespace {

struct PayloadInfo
{
    qint64 size = -1;
    QString sha256;
};

PayloadInfo payloadInfo(const package::Package& pkg, const model::Line& line)
{
    const package::Entry* entry = line.payload.isEmpty() ? nullptr : pkg.find(line.payload);
    if (!entry || entry->type != package::EntryType::File)
        return {};
    return {entry->size, QString::fromLatin1(entry->sha256.toHex())};
}

QJsonArray array(const QStringList& list)
{
    return QJsonArray::fromStringList(list);
}

} // namespace

QString severityName(model::Severity severity)
{
    return severity == model::Severity::Error ? QStringLiteral("error") : QStringLiteral("warning");
}

QString lintText(const model::Analysis& analysis)
{
    QString out;
    int errors = 0;
    for (const model::Finding& f : analysis.findings) {
        errors += f.severity == model::Severity::Error;
        out += QStringLiteral("%1:%2: %3: %4%5\n")
                   .arg(analysis.packageName)
                   .arg(f.line)
                   .arg(severityName(f.severity),
                        f.line > 0 ? QStringLiteral("[%1] ").arg(f.command) : QString(), f.message);
    }
    const int warnings = analysis.findings.size() - errors;
    out += QStringLiteral("%1: %2 error%3, %4 warning%5 in %6 command%7\n")
               .arg(analysis.packageName)
               .arg(errors)
               .arg(errors == 1 ? "" : "s")
               .arg(warnings)
               .arg(warnings == 1 ? "" : "s")
               .arg(analysis.lines.size())
               .arg(analysis.lines.size() == 1 ? "" : "s");
    return out;
}

QByteArray lintJson(const model::Analysis& analysis)
{
    QJsonArray findings;
    for (const model::Finding& f : analysis.findings)
        findings.append(QJsonObject{{"severity", severityName(f.severity)},
                                    {"line", f.line},
                                    {"command", f.command},
                                    {"message", f.message}});
    return QJsonDocument(QJsonObject{{"package", analysis.packageName}, {"findings", findings}})
        .toJson(QJsonDocument::Indented);
}

QString inspectText(const package::Package& pkg, const model::Analysis& analysis)
{
    QString out = QStringLiteral("%1 (%2, %3 entries)\n")
                      .arg(analysis.packageName, pkg.compression)
                      .arg(pkg.entries.size());
    if (!analysis.packageStop.isEmpty())
        out +=
            QStringLiteral("  the updater stops before the command list: \"%1\"\n").arg(analysis.packageStop);
    const auto list = [&](const char* label, const QStringList& items) {
        for (int i = 0; i < items.size(); ++i)
            out += QStringLiteral("  %1 %2\n")
                       .arg(i == 0 ? QString::fromLatin1(label) : QString(), -9)
                       .arg(items[i]);
    };
    for (const model::Line& line : analysis.lines) {
        out += QStringLiteral("line %1: %2\n").arg(line.number).arg(line.text);
        list("view:", QStringList{line.head} + line.failures);
        list("runs:", line.runs);
        list("writes:", line.writes);
        const PayloadInfo info = payloadInfo(pkg, line);
        if (info.size >= 0)
            list("payload:", {QStringLiteral("%1  %2  sha256 %3")
                                  .arg(line.payload, package::sizeText(info.size), info.sha256)});
        list("PIC:", line.pic.programmed.isEmpty()
                         ? QStringList()
                         : QStringList{"programmed " + line.pic.programmed.join(", ")});
        list("skipped:", line.pic.skipped);
        list("config:", line.pic.config);
        list("outcome:", {model::effectName(line.effect)});
    }
    out += QStringLiteral("end of the job: %1\n")
               .arg(analysis.expectedEnd().isEmpty() ? QStringLiteral("never (the updater hangs)")
                                                     : analysis.expectedEnd());
    return out;
}

QByteArray inspectJson(const package::Package& pkg, const model::Analysis& analysis)
{
    QJsonArray commands;
    for (const model::Line& line : analysis.lines) {
        QJsonObject object{{"line", line.number},
                           {"command", line.text},
                           {"view", array(QStringList{line.head} + line.failures)},
                           {"runs", array(line.runs)},
                           {"writes", array(line.writes)},
                           {"outcome", model::effectName(line.effect)}};
        const PayloadInfo info = payloadInfo(pkg, line);
        if (info.size >= 0)
            object.insert("payload",
                          QJsonObject{{"name", line.payload}, {"size", info.size}, {"sha256", info.sha256}});
        if (line.command && line.command->action == grammar::Action::Pic)
            object.insert("pic", QJsonObject{{"programmed", array(line.pic.programmed)},
                                             {"skipped", array(line.pic.skipped)},
                                             {"config", array(line.pic.config)}});
        commands.append(object);
    }
    return QJsonDocument(QJsonObject{{"package", analysis.packageName},
                                     {"stops", analysis.packageStop},
                                     {"end", analysis.expectedEnd()},
                                     {"commands", commands}})
        .toJson(QJsonDocument::Indented);
}

} // namespace report
