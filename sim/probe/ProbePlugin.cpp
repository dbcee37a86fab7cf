// Loaded into the updater as a generic input plugin; it watches, and when a driver asks it, presses the
// instrument's keys and takes screenshots. Driven by environment variables:
//   PROBE_OUT     file that receives report lines (default $SIM_STATE/probe.txt inside the sandbox)
//   SIM_STATE     the sandbox's state folder: the message view's lines go to its trace.log, the
//                 updater's process id to updater.pid (for the stubs' trace), and a fifo named "keys"
//                 there (made by the driver before the start) carries the driver's commands
//   PROBE_T0      wall-clock time (ns since the epoch) just before the process was started; without it
//                 the kernel's start time of the process is used (10 ms resolution)
// Reports:
//   painted-menu <ms since process start> rss-kb <resident set in KiB>   (once, first paint of the menu)
//   menu-label <text of the menu's version line>                        (right after painted-menu)
//   shown <screen> / painted <screen>     (a screen became visible / was painted for the first time since)
//   view ..., undo, clear                 (the message view's changes, as in the trace; see below)
//   pressed <key> / shot <name> / saved-view <name> / saved-pic / quit   (a driver's command was carried
//                                                                          out; "saved-pic none": no PIC)
//   refused <command>                     (a driver's command that could not be carried out)
// The trace ($SIM_STATE/trace.log) gets the view's changes the moment they happen, so they interleave with
// the target commands' lines (sim/stubs) exactly:
//   view COLOUR TEXT  text appended (one append, one line; COLOUR plain, red, green, orange or #rrggbb)
//   undo              the view's last append was taken back (the PIC step's percentages do this)
//   clear             the whole content was replaced (a prompt set on a new job); its new text follows
// TEXT escapes '\' as "\\" and a line break as "\n"; nothing else is changed.
// Driver commands, one a line on the fifo:
//   key F1            a press and a release of the key, delivered as the platform delivers a keypad's
//   shot NAME         NAME-raw.png (the top-level window as drawn) and NAME.png (turned by 180 degrees, as
//                     the technician sees the display mounted upside down), beside the report file
//   save-view NAME    the message view's plain text into NAME, beside the report file
//   save-pic          the PIC's memories as they are now ($SIM_CONTROL/pic/flash and config) into pic/
//                     beside the report file (the sandbox copies them only when the run ends)
//   quit              ends the event loop
#include <QApplication>
#include <QDir>
#include <QEvent>
#include <QFile>
#include <QFileInfo>
#include <QGenericPlugin>
#include <QImage>
#include <QKeySequence>
#include <QLabel>
#include <QPixmap>
#include <QPointer>
#include <QScreen>
#include <QSet>
#include <QSocketNotifier>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextEdit>
#include <QTextStream>
#include <QTimer>
#include <QTransform>
#include <QVector>
#include <QWidget>
#include <QWindow>

#include <ctime>
#include <fcntl.h>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

// QtGui's entry for key events as a platform plugin delivers them (the one QtTest uses): shortcuts, the
// application's event filters, then the focused widget.
Q_GUI_EXPORT void qt_handleKeyEvent(QWindow* w, QEvent::Type t, int k, Qt::KeyboardModifiers mods,
                                    const QString& text = QString(), bool autorep = false, ushort count = 1);

namespace {

double millisecondsSinceProcessStart()
{
    const QByteArray t0 = qgetenv("PROBE_T0");
    if (!t0.isEmpty()) {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        return (double(now.tv_sec) * 1e9 + double(now.tv_nsec) - t0.toDouble()) / 1e6;
    }
    QFile stat("/proc/self/stat");
    if (!stat.open(QIODevice::ReadOnly))
        return -1;
    // Field 22 is the start time in clock ticks since boot; it follows the parenthesised command name.
    const QByteArray text = stat.readAll();
    const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
    const double startSeconds = fields.value(19).toDouble() / double(sysconf(_SC_CLK_TCK));
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return (double(now.tv_sec) + double(now.tv_nsec) / 1e9 - startSeconds) * 1000.0;
}

long residentKiB()
{
    QFile status("/proc/self/status");
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLong();
    return -1;
}

// The view's raw text (paragraph and line separators as such) in the trace's notation.
QString escaped(const QString& raw)
{
    QString text;
    text.reserve(raw.size());
    for (const QChar c : raw) {
        if (c == QChar::ParagraphSeparator || c == QChar::LineSeparator || c == QLatin1Char('\n'))
            text += QLatin1String("\\n");
        else if (c == QLatin1Char('\\'))
            text += QLatin1String("\\\\");
        else
            text += c;
    }
    return text;
}

QString colourName(const QTextCharFormat& format)
{
    if (format.foreground().style() == Qt::NoBrush)
        return QStringLiteral("plain");
    const QColor colour = format.foreground().color();
    for (const char* name : {"red", "green", "orange"})
        if (colour == QColor(QLatin1String(name)))
            return QLatin1String(name);
    return colour.name();
}

class Probe : public QObject
{
public:
    explicit Probe(const QString& outPath, const QString& statePath) : m_out(outPath)
    {
        if (!m_out.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text))
            qFatal("probe: cannot write '%s'", qPrintable(outPath));
        if (!statePath.isEmpty()) {
            m_trace.setFileName(statePath + "/trace.log");
            if (!m_trace.open(QIODevice::WriteOnly | QIODevice::Append))
                qFatal("probe: cannot write '%s'", qPrintable(m_trace.fileName()));
            listen(statePath + "/keys");
            // The stubs tell the updater's own commands from those of its children by this.
            QFile pid(statePath + "/updater.pid");
            if (!pid.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
                pid.write(QByteArray::number(getpid())) < 0)
                qFatal("probe: cannot write '%s'", qPrintable(pid.fileName()));
        }
        qApp->installEventFilter(this);
        // Reports about a paint are written once it is over, from the next turn of the event loop.
        m_afterPaint.setSingleShot(true);
        m_afterPaint.setInterval(0);
        connect(&m_afterPaint, &QTimer::timeout, this, [this] {
            for (const auto& report : std::exchange(m_paintReports, {}))
                write(report());
        });
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        const QString name = watched->objectName();
        if (event->type() == QEvent::Show && name.startsWith("Updater")) {
            watchView();
            write("shown " + name);
            m_unpainted.insert(name);
        }
        if (event->type() != QEvent::Paint)
            return false;
        if (!m_menuPainted && name == "UpdaterMainScreen") {
            m_menuPainted = true;
            const QLabel* label = watched->findChild<QLabel*>("versionLabel");
            // The time is taken as the paint starts, the memory once it is over.
            const double ms = millisecondsSinceProcessStart();
            const QString text = label ? label->text() : QString();
            m_paintReports << [ms, text] {
                return QString("painted-menu %1 rss-kb %2\nmenu-label %3")
                    .arg(ms, 0, 'f', 1)
                    .arg(residentKiB())
                    .arg(text);
            };
            m_afterPaint.start();
        }
        // The first paint of a screen after it was shown: what a screenshot taken now would see.
        if (m_unpainted.remove(name)) {
            m_paintReports << [name] { return "painted " + name; };
            m_afterPaint.start();
        }
        return false;
    }

private:
    // The message view exists once the screens do; its document reports every change synchronously,
    // before the updater goes on to its next command.
    void watchView()
    {
        if (m_view)
            return;
        for (QWidget* widget : QApplication::allWidgets()) {
            auto* view = qobject_cast<QTextEdit*>(widget);
            if (!view || view->objectName() != "progressMessageWindow")
                continue;
            m_view = view;
            m_viewText = view->document()->toRawText();
            connect(view->document(), &QTextDocument::contentsChange, this, &Probe::viewChanged);
            return;
        }
    }

    // One append is one edit block and so one change of the text: what was there before stays a prefix.
    // Format-only changes leave the text as it was and are not reported.
    void viewChanged()
    {
        QTextDocument* document = m_view->document();
        const QString text = document->toRawText();
        if (text == m_viewText)
            return;
        const QString before = std::exchange(m_viewText, text);
        if (before.startsWith(text)) {
            traceView(QStringLiteral("undo"));
            return;
        }
        int from = 0;
        if (text.startsWith(before) && !before.isEmpty()) {
            from = before.size();
            // An append to a view that holds text opens a new paragraph first.
            if (text.at(from) == QChar::ParagraphSeparator)
                ++from;
        } else if (!before.isEmpty()) {
            traceView(QStringLiteral("clear"));
        }
        // The colour of the first character the change brought.
        QTextCursor cursor(document);
        cursor.setPosition(qMin(from + 1, text.size()));
        traceView(QStringLiteral("view %1 %2").arg(colourName(cursor.charFormat()), escaped(text.mid(from))));
    }

    void traceView(const QString& line)
    {
        if (m_trace.isOpen()) {
            m_trace.write(line.toUtf8() + '\n');
            m_trace.flush();
        }
        write(line);
    }

    // The fifo is opened for reading and writing: opening never waits for a driver, and a driver that
    // closes its end does not leave an end-of-file behind that would wake the loop for ever.
    void listen(const QString& fifo)
    {
        struct stat info
        {
        };
        if (stat(QFile::encodeName(fifo).constData(), &info) != 0 || !S_ISFIFO(info.st_mode))
            return;
        const int fd = open(QFile::encodeName(fifo).constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0)
            qFatal("probe: cannot open the fifo '%s'", qPrintable(fifo));
        auto* notifier = new QSocketNotifier(fd, QSocketNotifier::Read, this);
        connect(notifier, &QSocketNotifier::activated, this, [this, fd] {
            char buffer[512];
            const ssize_t n = read(fd, buffer, sizeof buffer);
            if (n > 0)
                m_commands.append(buffer, int(n));
            for (int end; (end = m_commands.indexOf('\n')) >= 0;) {
                m_queue << QString::fromUtf8(m_commands.left(end));
                m_commands.remove(0, end + 1);
            }
            drain();
        });
        // Keys go to the active window, as a keypad's do. A desktop without a window manager (or a person's
        // desktop) may not have activated it: it is asked to, and the keys wait for that (a while at most).
        m_focusWait.setSingleShot(true);
        m_focusWait.setInterval(2000);
        connect(&m_focusWait, &QTimer::timeout, this, &Probe::drain);
        connect(qApp, &QGuiApplication::focusWindowChanged, this, [this] {
            if (m_focusWait.isActive()) {
                m_focusWait.stop();
                drain();
            }
        });
    }

    void drain()
    {
        while (!m_queue.isEmpty()) {
            QWindow* window = topLevelWindow();
            if (m_queue.first().startsWith(QLatin1String("key ")) && window && !window->isActive() &&
                !m_focusWait.isActive() && !m_focusAsked) {
                m_focusAsked = true;
                window->requestActivate();
                m_focusWait.start();
                return;
            }
            if (m_focusWait.isActive())
                return;
            m_focusAsked = false;
            obey(m_queue.takeFirst());
        }
    }

    QWindow* topLevelWindow() const
    {
        if (QWindow* focus = QGuiApplication::focusWindow())
            return focus;
        for (QWindow* window : QGuiApplication::topLevelWindows())
            if (window->isVisible())
                return window;
        return nullptr;
    }

    void obey(const QString& command)
    {
        const QString verb = command.section(' ', 0, 0);
        const QString argument = command.section(' ', 1);
        QWindow* window = topLevelWindow();
        if (verb == "key" && window) {
            const QKeySequence sequence(argument);
            const int key = sequence.isEmpty() ? 0 : sequence[0];
            if (key == 0 || key == Qt::Key_unknown) {
                write("refused " + command);
                return;
            }
            qt_handleKeyEvent(window, QEvent::KeyPress, key, Qt::NoModifier);
            qt_handleKeyEvent(window, QEvent::KeyRelease, key, Qt::NoModifier);
            write("pressed " + argument);
        } else if (verb == "shot" && window && !argument.isEmpty() && !argument.contains('/')) {
            const QImage raw = window->screen()->grabWindow(window->winId()).toImage();
            const QString base = QFileInfo(m_out).dir().filePath(argument);
            if (raw.isNull() || !raw.save(base + "-raw.png") ||
                !raw.transformed(QTransform().rotate(180)).save(base + ".png")) {
                write("refused " + command);
                return;
            }
            write("shot " + argument);
        } else if (verb == "save-view" && m_view && !argument.isEmpty() && !argument.contains('/')) {
            QFile file(QFileInfo(m_out).dir().filePath(argument));
            if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
                file.write(m_view->toPlainText().toUtf8() + '\n') < 0) {
                write("refused " + command);
                return;
            }
            write("saved-view " + argument);
        } else if (verb == "save-pic") {
            const QString from = qEnvironmentVariable("SIM_CONTROL") + "/pic/";
            const QDir to = QFileInfo(m_out).dir();
            if (!QFileInfo::exists(from + "flash")) {
                write("saved-pic none");
                return;
            }
            if (!to.mkpath("pic") || !copyWhole(from + "flash", to.filePath("pic/flash")) ||
                !copyWhole(from + "config", to.filePath("pic/config"))) {
                write("refused " + command);
                return;
            }
            write("saved-pic");
        } else if (verb == "quit") {
            write("quit");
            QCoreApplication::exit(0);
        } else {
            write("refused " + command);
        }
    }

    // A device's file to its end (the instrument's files may not know their size), over `to`.
    static bool copyWhole(const QString& from, const QString& to)
    {
        QFile in(from), out(to);
        if (!in.open(QIODevice::ReadOnly) || !out.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return false;
        char buffer[65536];
        for (qint64 n; (n = in.read(buffer, sizeof buffer)) != 0;)
            if (n < 0 || out.write(buffer, n) != n)
                return false;
        return true;
    }

    void write(const QString& line)
    {
        QTextStream(&m_out) << line << '\n';
        m_out.flush();
    }

    QFile m_out;
    QFile m_trace;
    bool m_menuPainted = false;
    QTimer m_afterPaint;
    QVector<std::function<QString()>> m_paintReports;
    QSet<QString> m_unpainted; // screens shown and not painted since
    QPointer<QTextEdit> m_view;
    QString m_viewText;    // the view's raw text after its last change
    QByteArray m_commands; // what the fifo brought, up to an unfinished line
    QStringList m_queue;   // commands not carried out yet
    QTimer m_focusWait;    // running while a key waits for its window to become active
    bool m_focusAsked = false;
};

} // namespace

class ProbePlugin : public QGenericPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QGenericPluginFactoryInterface_iid FILE "probe.json")

public:
    QObject* create(const QString& key, const QString&) override
    {
        if (key.compare("probe", Qt::CaseInsensitive) != 0)
            return nullptr;
        const QString state = qEnvironmentVariable("SIM_STATE");
        QString out = qEnvironmentVariable("PROBE_OUT");
        if (out.isEmpty() && !state.isEmpty())
            out = state + "/probe.txt";
        if (out.isEmpty())
            qFatal("probe: set PROBE_OUT to the report file (or run inside sim/sandbox)");
        return new Probe(out, state);
    }
};

#include "ProbePlugin.moc"
