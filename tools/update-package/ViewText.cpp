#include "ViewText.h"

#include <QColor>
#include <QTextCursor>

namespace view {
namespace {

QString rawText(const QTextDocument& document)
{
    QString text = document.toRawText();
    for (QChar& c : text) {
        if (c == QChar::ParagraphSeparator || c == QChar::LineSeparator)
            c = QLatin1Char('\n');
    }
    return text;
}

QString colourName(const QTextCharFormat& format)
{
    if (format.foreground().style() == Qt::NoBrush)
        return QStringLiteral("plain");
    const QColor colour = format.foreground().color();
    for (const char* name : {"red", "green", "orange"}) {
        if (colour == QColor(QLatin1String(name)))
            return QLatin1String(name);
    }
    return colour.name();
}

} // namespace

Shown Emulator::setText(const QString& text)
{
    if (Qt::mightBeRichText(text))
        m_document.setHtml(text);
    else
        m_document.setPlainText(text);
    QTextCursor first(&m_document);
    first.setPosition(qMin(1, m_document.characterCount() - 1));
    return {colourName(first.charFormat()), rawText(m_document)};
}

Shown Emulator::append(const QString& text)
{
    const QString before = rawText(m_document);
    QTextCursor cursor(&m_document);
    cursor.beginEditBlock();
    cursor.movePosition(QTextCursor::End);
    if (!m_document.isEmpty())
        cursor.insertBlock(QTextBlockFormat(), QTextCharFormat());
    if (Qt::mightBeRichText(text))
        cursor.insertHtml(text);
    else
        cursor.insertText(text);
    cursor.endEditBlock();
    const QString after = rawText(m_document);
    int from = 0;
    if (after.startsWith(before) && !before.isEmpty()) {
        from = before.size();
        if (after.at(from) == QLatin1Char('\n'))
            ++from;
    }
    QTextCursor first(&m_document);
    first.setPosition(qMin(from + 1, m_document.characterCount() - 1));
    return {colourName(first.charFormat()), after.mid(from)};
}

} // namespace view
