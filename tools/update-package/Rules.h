#pragma once
// Lint's rules: a stable id, a severity and one sentence each. The prediction names the rule behind
// every finding, and so do the payload checks (payload/Check.h); this table is the one place that says how
// bad it is. Severity policy: an error when the updater will fail, hang, skip something the line asks for,
// or damage the instrument, and when a payload cannot run or be written or the instrument will not boot
// with it; a warning when it is legal but probably not meant.

#include <QString>
#include <vector>

namespace rules {

enum class Severity
{
    Warning,
    Error
};

struct Rule
{
    const char* id;
    Severity severity;
    const char* sentence;
};

const std::vector<Rule>& all();
// The rule of an id; nullptr for an id the table does not have.
const Rule* find(const QString& id);
Severity severityOf(const QString& id); // an id missing from the table counts as an error

QString severityName(Severity severity);

} // namespace rules
