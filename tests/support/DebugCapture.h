#pragma once
// The debug messages of the code under test, recorded while a capture lives, for tests that compare what
// was logged as a whole (a sequence, a count, when it came); other message types go on to QtTest. Make it
// inside the test run (initTestCase() or init()), after QtTest has installed its own handler; one at a
// time. A single expected message is simpler with QTest::ignoreMessage.

#include <QElapsedTimer>
#include <QList>
#include <QStringList>
#include <QtGlobal>

class DebugCapture
{
public:
    DebugCapture() : m_previous(qInstallMessageHandler(record))
    {
        s_current = this;
        m_clock.start();
    }
    ~DebugCapture()
    {
        qInstallMessageHandler(m_previous);
        s_current = nullptr;
    }
    DebugCapture(const DebugCapture&) = delete;
    DebugCapture& operator=(const DebugCapture&) = delete;

    const QStringList& messages() const { return m_messages; }
    // When each message equal to text came, in ms on elapsed()'s clock.
    QList<qint64> times(const QString& text) const
    {
        QList<qint64> at;
        for (int i = 0; i < m_messages.size(); ++i)
            if (m_messages.at(i) == text)
                at << m_times.at(i);
        return at;
    }
    qint64 elapsed() const { return m_clock.elapsed(); }
    void clear()
    {
        m_messages.clear();
        m_times.clear();
    }

private:
    static void record(QtMsgType type, const QMessageLogContext& context, const QString& message)
    {
        DebugCapture* self = s_current;
        if (self && type == QtDebugMsg) {
            self->m_messages << message;
            self->m_times << self->m_clock.elapsed();
        } else if (self && self->m_previous) {
            self->m_previous(type, context, message);
        }
    }

    static inline DebugCapture* s_current = nullptr;
    QtMessageHandler m_previous;
    QElapsedTimer m_clock;
    QStringList m_messages;
    QList<qint64> m_times;
};
