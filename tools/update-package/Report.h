#pragma once
// Text and JSON output of lint and inspect.

#include "UpdaterModel.h"

#include <QByteArray>
#include <QString>

namespace report {

// One line per finding, "package:line: severity: [command] message", and a closing count.
QString lintText(const model::Analysis& analysis);
// {"package": ..., "findings": [{"severity", "line", "command", "message"}]}
QByteArray lintJson(const model::Analysis& analysis);

QString inspectText(const package::Package& pkg, const model::Analysis& analysis);
QByteArray inspectJson(const package::Package& pkg, const model::Analysis& analysis);

QString severityName(model::Severity severity);

} // namespace report
