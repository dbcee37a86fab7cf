#pragma once
// The updater's message view as the trace records it: each append goes into a text document exactly as
// QTextEdit::append puts it there (a new paragraph, then rich text when Qt takes it for rich text, else
// plain text), and what the document gained is read back with the colour of its first character. So a
// red paragraph "Bad command format.   " is recorded as "Bad command format. " and a command-list line
// that looks like HTML is recorded as the text Qt makes of it.

#include <QString>
#include <QTextDocument>

namespace view {

struct Shown
{
    QString colour; // plain, red, green, orange (or #rrggbb)
    QString text;   // the document's new text, paragraph breaks as '\n'
};

class Emulator
{
public:
    Shown setText(const QString& text); // the whole content replaced (a job's prompt)
    Shown append(const QString& text);

private:
    QTextDocument m_document;
};

} // namespace view
