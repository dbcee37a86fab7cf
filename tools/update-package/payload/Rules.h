#pragma once
// The payload rules: each finding names one, and its severity is the rule's. An error means the instrument
// will not boot, or the payload cannot run or cannot be written; a warning, that it is legal but probably
// not what was meant.

#include <QString>
#include <QVector>

namespace payload {

enum class Severity
{
    Warning,
    Error
};

struct Rule
{
    const char* id;
    Severity severity;
    const char* summary;
};

struct Finding
{
    QString ruleId;
    Severity severity = Severity::Error;
    QString message;
};

// Every rule, in the order of the payload kinds.
const QVector<Rule>& rules();

// A finding of the rule (which must be in the table) with its severity.
Finding finding(const char* ruleId, const QString& message);

} // namespace payload
