#pragma once
// Text and JSON output of lint, inspect and rules: views of the one prediction.

#include "Prediction.h"

#include <QByteArray>
#include <QString>

namespace report {

inline constexpr int schemaVersion = 1;
// The human output shows this many findings of one rule on one line, then says how many more.
inline constexpr int repeatsShown = 3;

// One line per finding, "package:line: severity: rule: [command] message", and a closing count.
QString lintText(const predict::Prediction& prediction);
// {"schema", "package", "counts", "end", "findings": [{"rule", "severity", "line", "command", "message"}]}
QByteArray lintJson(const predict::Prediction& prediction);

QString inspectText(const package::Package& pkg, const predict::Prediction& prediction);
QByteArray inspectJson(const package::Package& pkg, const predict::Prediction& prediction);

QString rulesText();
QByteArray rulesJson();

// One root path as it is after a line: "/home/mainApp file 0755 0:0 2113 bytes sha256 ab12..".
QString describe(const QString& path, const rootfs::Node& node);

} // namespace report
