// Loaded into the updater as a generic input plugin; it only watches. Driven by environment variables:
//   PROBE_OUT     file that receives report lines (required)
//   PROBE_DUMP_MS interval for dumping the message view (0 or unset: never)
//   PROBE_T0      wall-clock time (ns since the epoch) just before the process was started; without it
//                 the kernel's start time of the process is used (10 ms resolution)
// Reports:
//   painted-menu <ms since process start> rss-kb <resident set in KiB>   (once, first paint of the menu)
//   menu-label <text of the menu's version line>                        (right after painted-menu)
//   view-begin / <plain text of the message view> / view-end             (every interval, when changed)
//   shown <screen>                                                       (a screen became visible)
#include <QApplication>
#include <QEvent>
#include <QFile>
#include <QGenericPlugin>
#include <QLabel>
#include <QSet>
#include <QTextEdit>
#include <QTextStream>
#include <QTimer>
#include <QVector>
#include <QWidget>

#include <ctime>
#include <functional>
#include <unistd.h>
#include <utility>

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

class Probe : public QObject
{
public:
    explicit Probe(const QString& outPath) : m_out(outPath)
    {
        if (!m_out.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text))
            qFatal("probe: cannot write '%s'", qPrintable(outPath));
        qApp->installEventFilter(this);
        // Reports about a paint are written once it is over, from the next turn of the event loop.
        m_afterPaint.setSingleShot(true);
        m_afterPaint.setInterval(0);
        connect(&m_afterPaint, &QTimer::timeout, this, [this] {
            for (const auto& report : std::exchange(m_paintReports, {}))
                write(report());
        });
        const int dumpMs = qEnvironmentVariableIntValue("PROBE_DUMP_MS");
        if (dumpMs > 0) {
            auto* timer = new QTimer(this);
            connect(timer, &QTimer::timeout, this, &Probe::dumpView);
            timer->start(dumpMs);
        }
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        const QString name = watched->objectName();
        if (event->type() == QEvent::Show && name.startsWith("Updater")) {
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
    void dumpView()
    {
        for (QWidget* widget : QApplication::allWidgets()) {
            auto* view = qobject_cast<QTextEdit*>(widget);
            if (!view || view->objectName() != "progressMessageWindow" || !view->isVisible())
                continue;
            const QString text = view->toPlainText();
            if (text == m_lastDump)
                return;
            m_lastDump = text;
            write("view-begin\n" + text + "\nview-end");
        }
    }

    void write(const QString& line)
    {
        QTextStream(&m_out) << line << '\n';
        m_out.flush();
    }

    QFile m_out;
    bool m_menuPainted = false;
    QTimer m_afterPaint;
    QVector<std::function<QString()>> m_paintReports;
    QSet<QString> m_unpainted; // screens shown and not painted since
    QString m_lastDump;
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
        const QString out = qEnvironmentVariable("PROBE_OUT");
        if (out.isEmpty())
            qFatal("probe: set PROBE_OUT to the report file");
        return new Probe(out);
    }
};

#include "ProbePlugin.moc"
