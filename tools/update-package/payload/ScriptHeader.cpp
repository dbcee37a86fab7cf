#include "ScriptHeader.h"

namespace payload {

std::optional<ScriptHeader> readScriptHeader(const QByteArray& data)
{
    if (!data.startsWith("#!"))
        return std::nullopt;
    const int end = data.indexOf('\n');
    QByteArray line = data.mid(2, end < 0 ? -1 : end - 2);
    ScriptHeader header;
    header.carriageReturn = line.endsWith('\r');
    // The kernel splits at the first blank or tab after the path; a carriage return is not a blank to it.
    int start = 0;
    while (start < line.size() && (line[start] == ' ' || line[start] == '\t'))
        ++start;
    int stop = start;
    while (stop < line.size() && line[stop] != ' ' && line[stop] != '\t')
        ++stop;
    header.interpreter = QString::fromUtf8(line.mid(start, stop - start));
    header.argument = QString::fromUtf8(line.mid(stop).trimmed());
    return header;
}

} // namespace payload
