#pragma once
// The "#!" line the kernel reads when a script is started directly: the interpreter's path and its one
// optional argument.

#include <QByteArray>
#include <QString>
#include <optional>

namespace payload {

struct ScriptHeader
{
    QString interpreter;         // as written, a carriage return included
    QString argument;            // the rest of the line, trimmed; empty when none
    bool carriageReturn = false; // the line ends in "\r\n" (saved with DOS line ends)
};

// The header of a file that begins with "#!"; nothing for any other file.
std::optional<ScriptHeader> readScriptHeader(const QByteArray& data);

} // namespace payload
