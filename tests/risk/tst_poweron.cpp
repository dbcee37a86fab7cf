// The power-on check on states made by hand (PowerOn.h): each part old, new or lost, the class the worst
// lost part gives, the write-back from the trace's sync calls; and the risk subcommand's bad input.
#include "../support/TestFiles.h"
#include "PowerOn.h"

#include <QTemporaryDir>
#include <QtTest>

using namespace testfiles;
using poweron::Class;

using Change = std::function<void(state::Snapshot&)>;
Q_DECLARE_METATYPE(poweron::Class)
Q_DECLARE_METATYPE(Change)

namespace {

state::Node file(const QString& path, const QByteArray& content, uint mode = 0644, bool isNew = false)
{
    state::Node n;
    n.path = path;
    n.mode = mode;
    n.size = content.size();
    n.sha256 = QCryptographicHash::hash(content, QCryptographicHash::Sha256);
    if (!isNew)
        n.before = state::Before{profile::Kind::File, mode, 0, 0, 100, {}};
    return n;
}

state::Node removed(const QString& path)
{
    state::Node n = file(path, {});
    n.removed = true;
    return n;
}

void sortRoot(state::Snapshot& s)
{
    std::sort(s.root.begin(), s.root.end(),
              [](const state::Node& a, const state::Node& b) { return a.path < b.path; });
}

} // namespace

class PowerOnTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QByteArray m_kernel; // a uImage from mkimage
    poweron::Reference m_reference;
    const QByteArray m_app = QByteArray(5000, 'a'), m_library = QByteArray(3000, 'l'), m_module = "module";

    // The whole run's state, with `change` applied to a copy: what a cut left.
    state::Snapshot cut(const std::function<void(state::Snapshot&)>& change) const
    {
        state::Snapshot s = m_reference.after;
        change(s);
        sortRoot(s);
        return s;
    }

    static void replace(state::Snapshot& s, const state::Node& node)
    {
        for (state::Node& n : s.root)
            if (n.path == node.path) {
                n = node;
                return;
            }
        s.root << node;
    }

    static void drop(state::Snapshot& s, const QString& path)
    {
        s.root.erase(std::remove_if(s.root.begin(), s.root.end(),
                                    [&](const state::Node& n) { return n.path == path; }),
                     s.root.end());
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        QByteArray data;
        for (int i = 0; i < 40000; ++i)
            data.append(char((i * 7 + i / 256) & 0xFF));
        writeFile(m_dir.path() + "/zImage", data);
        const Run made = run("mkimage", {"-A", "arm", "-O", "linux", "-T", "kernel", "-C", "none", "-a",
                                         "0x80008000", "-e", "0x80008000", "-n", "test", "-d",
                                         m_dir.path() + "/zImage", m_dir.path() + "/uImage"});
        QVERIFY2(made.exitCode == 0, qPrintable(made.err));
        m_kernel = readAll(m_dir.path() + "/uImage");

        // The whole run: a new kernel, application, library and module, the PIC programmed over an older
        // program; its trace ends with the list's sync.
        state::Snapshot& after = m_reference.after;
        after.partitions["/dev/mtd0"] = m_kernel + QByteArray(2048 - m_kernel.size() % 2048, '\xff');
        after.root << file("/home/mainApp", m_app, 0755) << file("/usr/lib/libfoo.so.1", m_library)
                   << file("/lib/modules/4.19.0/extra/keypad.ko", m_module, 0644, true)
                   << file("/tmp/firmware_update/mainApp", m_app, 0755, true);
        sortRoot(after);
        after.picFlash = QByteArray(128, '\x11') + QByteArray(0x10000 - 128, '\xff');
        after.picConfig = QByteArray(14, '\x0f');
        after.trace = {"run cp /tmp/firmware_update/mainApp /home/mainApp", "exit 0", "run sync", "exit 0"};
        m_reference.before.picFlash = QByteArray(128, '\0') + QByteArray(0x10000 - 128, '\xff');
        m_reference.before.picConfig = after.picConfig;
    }

    void classes_data()
    {
        QTest::addColumn<Change>("change");
        QTest::addColumn<Class>("expected");
        QTest::addColumn<QString>("why");
        const auto row = [](const char* name, const Change& change, Class expected, const QString& why) {
            QTest::newRow(name) << change << expected << why;
        };
        row(
            "whole run", [](state::Snapshot&) {}, Class::Updated, "everything as the whole update leaves it");
        row(
            "nothing done yet", [&](state::Snapshot& s) { s = m_reference.before; }, Class::Unchanged,
            "nothing changed yet");
        row(
            "kernel erased", [](state::Snapshot& s) { s.partitions["/dev/mtd0"].fill('\xff'); },
            Class::Unbootable, "kernel partition /dev/mtd0: erased, no kernel");
        row(
            "kernel half written",
            [&](state::Snapshot& s) {
                QByteArray& p = s.partitions["/dev/mtd0"];
                p.replace(m_kernel.size() / 2, p.size() - m_kernel.size() / 2,
                          QByteArray(p.size() - m_kernel.size() / 2, '\xff'));
            },
            Class::Unbootable,
            "kernel partition /dev/mtd0: the image data's CRC does not hold: partly written");
        row(
            "kernel header byte wrong", [](state::Snapshot& s) { s.partitions["/dev/mtd0"][40] = 'X'; },
            Class::Unbootable, "kernel partition /dev/mtd0: the image header's CRC does not hold");
        row(
            "kernel not yet written", [](state::Snapshot& s) { s.partitions.remove("/dev/mtd0"); },
            Class::Unchanged,
            "partly updated, nothing lost (new: /home/mainApp, /lib/modules/4.19.0/extra/keypad.ko, "
            "/usr/lib/libfoo.so.1, PIC flash; old: kernel partition /dev/mtd0): the update again completes "
            "it");
        row(
            "application truncated",
            [&](state::Snapshot& s) { replace(s, file("/home/mainApp", m_app.left(1024), 0755)); },
            Class::Repairable,
            "/home/mainApp: truncated: 1024 of 5000 bytes (the application does not start)");
        row(
            "application not executable",
            [&](state::Snapshot& s) { replace(s, file("/home/mainApp", m_app + "x", 0644)); },
            Class::Repairable, "/home/mainApp: not executable (the application does not start)");
        row(
            "module removed, not yet unpacked",
            [](state::Snapshot& s) {
                drop(s, "/lib/modules/4.19.0/extra/keypad.ko");
                s.root << removed("/lib/modules/4.19.0/kernel/old.ko");
            },
            Class::Repairable, "/lib/modules/4.19.0/kernel/old.ko: removed (a kernel module)");
        row(
            "library empty", [](state::Snapshot& s) { replace(s, file("/usr/lib/libfoo.so.1", {})); },
            Class::Unrepairable, "/usr/lib/libfoo.so.1: empty (the updater needs it)");
        row(
            "updater removed", [](state::Snapshot& s) { s.root << removed("/usr/bin/updater"); },
            Class::Unrepairable, "/usr/bin/updater: removed (the updater does not start)");
        row(
            "PIC blank", [](state::Snapshot& s) { s.picFlash.fill('\xff'); }, Class::Repairable,
            "PIC flash: blank (erased, not programmed)");
        row(
            "PIC half programmed",
            [](state::Snapshot& s) { s.picFlash.replace(64, 64, QByteArray(64, '\xff')); }, Class::Repairable,
            "PIC flash: partly programmed: 1 of 2 changed rows as the HEX has them");
        row(
            "PIC old", [&](state::Snapshot& s) { s.picFlash = m_reference.before.picFlash; },
            Class::Unchanged, "");
        row(
            "temporary files lost", [](state::Snapshot& s) { drop(s, "/tmp/firmware_update/mainApp"); },
            Class::Updated, "");
        row(
            "kernel lost outweighs the application",
            [&](state::Snapshot& s) {
                s.partitions["/dev/mtd0"].fill('\xff');
                replace(s, file("/home/mainApp", {}, 0755));
            },
            Class::Unbootable,
            "kernel partition /dev/mtd0: erased, no kernel; /home/mainApp: empty (the application does not "
            "start)");
    }

    void classes()
    {
        QFETCH(Change, change);
        QFETCH(Class, expected);
        QFETCH(QString, why);
        const poweron::Verdict verdict = poweron::check(cut(change), m_reference);
        QCOMPARE(poweron::name(verdict.cls), poweron::name(expected));
        if (!why.isEmpty())
            QCOMPARE(verdict.why, why);
    }

    // Files changed since the last completed sync may come back empty; a sync after the last write, or
    // writes only to /tmp after it, leave nothing at risk.
    void writeBack_data()
    {
        QTest::addColumn<QStringList>("trace");
        QTest::addColumn<Class>("expected");
        QTest::newRow("no sync yet") << QStringList{"run cp /tmp/firmware_update/mainApp /home/mainApp",
                                                    "exit 0"}
                                     << Class::Unrepairable;
        QTest::newRow("synced") << QStringList{"run cp /tmp/firmware_update/mainApp /home/mainApp", "exit 0",
                                               "run sync", "exit 0"}
                                << Class::Updated;
        QTest::newRow("sync cut before its end")
            << QStringList{"run cp /tmp/firmware_update/mainApp /home/mainApp", "exit 0", "run sync",
                           "cut before 16"}
            << Class::Unrepairable;
        QTest::newRow("only /tmp after the sync") << QStringList{"run cp /a /home/mainApp",
                                                                 "exit 0",
                                                                 "run sync",
                                                                 "exit 0",
                                                                 "run rm -r /tmp/firmware_update",
                                                                 "exit 0",
                                                                 "run cp /usr/bin/ubiformat /tmp"}
                                                  << Class::Updated;
        QTest::newRow("a script after the sync")
            << QStringList{"run sync", "exit 0", "view plain Running script file: /post.sh"}
            << Class::Unrepairable;
        QTest::newRow("a script's own sync")
            << QStringList{"view plain Running script file: /post.sh", "inner sync", "inner-exit 0"}
            << Class::Updated;
    }

    void writeBack()
    {
        QFETCH(QStringList, trace);
        QFETCH(Class, expected);
        state::Snapshot s = m_reference.after;
        s.trace = trace.toVector();
        const poweron::Verdict verdict = poweron::worstWithWriteBack(s, m_reference);
        QCOMPARE(poweron::name(verdict.cls), poweron::name(expected));
        // The state as cut is whole either way; only the write-back makes it worse.
        QCOMPARE(poweron::check(s, m_reference).cls, Class::Updated);
        if (expected != Class::Updated)
            QVERIFY2(verdict.why.contains(
                         "/usr/lib/libfoo.so.1: written since the last sync: may come back empty"),
                     qPrintable(verdict.why));
        QVERIFY(!poweron::unsynced(s).contains("/tmp/firmware_update/mainApp"));
    }

    void names()
    {
        for (Class c :
             {Class::Updated, Class::Unchanged, Class::Repairable, Class::Unrepairable, Class::Unbootable})
            QCOMPARE(poweron::fromName(poweron::name(c)), std::optional<Class>(c));
        QVERIFY(!poweron::fromName("broken"));
        QVERIFY(Class::Unbootable > Class::Unrepairable && Class::Repairable > Class::Unchanged);
    }

    // Bad input: a clear message and exit 2, before any instrument starts.
    void badInput_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("message");
        const QString missing = m_dir.path() + "/missing.tar.bz2";
        QTest::newRow("no package") << QStringList{"risk"} << "give a package file";
        QTest::newRow("missing file") << QStringList{"risk", missing} << "no package file at " + missing;
        QTest::newRow("wrong name") << QStringList{"risk", m_dir.path() + "/uImage"}
                                    << "the updater only takes a file named *M_firmware_update*.tar.bz2";
        QTest::newRow("points not a number") << QStringList{"risk", missing, "--points", "many"}
                                             << "--points takes a whole number from 0 to 100, not 'many'";
        QTest::newRow("points missing") << QStringList{"risk", missing, "--points"}
                                        << "--points takes a whole number from 0 to 100, not ''";
        QTest::newRow("unknown class")
            << QStringList{"risk", missing, "--fail-on", "broken"} << "--fail-on takes a class, not 'broken'";
        QTest::newRow("unknown option")
            << QStringList{"risk", missing, "--fast"} << "unknown option '--fast'";
        QTest::newRow("two packages") << QStringList{"risk", missing, missing} << "one package at a time";
        const QString notArchive = m_dir.path() + "/BadM_firmware_update_1.tar.bz2";
        writeFile(notArchive, "not an archive");
        QTest::newRow("not an archive") << QStringList{"risk", notArchive} << notArchive;
    }

    void badInput()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, message);
        const Run r =
            run(QStringLiteral(PROJECT_BINARY_DIR "/tools/update-package/update-package"), arguments);
        QCOMPARE(r.exitCode, 2);
        QVERIFY2(r.err.startsWith("update-package risk: ") && r.err.contains(message), qPrintable(r.err));
        QVERIFY(r.out.isEmpty());
    }
};

QTEST_GUILESS_MAIN(PowerOnTest)
#include "tst_poweron.moc"
