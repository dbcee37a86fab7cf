// The reader of a job's state folder: a real overlay (mounted by the kernel in a mount namespace of its
// own) over a lower root made with tar and the shell's tools, changed by real tar, rm, chmod, ln and a
// write through a link; the reader must name every change as lstat sees it and nothing else.
#include "../support/TestFiles.h"
#include "InstrumentState.h"

#include <QCryptographicHash>
#include <QTemporaryDir>
#include <QtTest>

#include <unistd.h>

using namespace testfiles;

namespace {

QString sha(const QByteArray& content)
{
    return QString::fromLatin1(QCryptographicHash::hash(content, QCryptographicHash::Sha256).toHex());
}

// The root before the job: a few of the instrument's folders, a link, a tool and a configuration file.
const char* lowerRoot = "mkdir -p usr/bin usr/lib/modules/4.19/kernel etc data tmp home && chmod 1777 tmp && "
                        "ln -s usr/bin bin && ln -s usr/lib lib && printf 'tool\\n' >usr/bin/cp && "
                        "chmod 755 usr/bin/cp && printf 'old\\n' >usr/lib/modules/4.19/kernel/keypad.ko && "
                        "printf 'real\\n' >data/real && ln -s ../data/real etc/link.conf && "
                        "printf 'same\\n' >etc/same.conf";

} // namespace

class InstrumentStateTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_work;
    QString m_archive; // what a package's tar line unpacks: etc/new.conf and lib/modules/4.19/extra/new.ko

    // A state folder in dir over the lower root; its listing of the root as the reader has it.
    static QString makeState(const QString& dir)
    {
        const QString lower = dir + "/lower", state = dir + "/state";
        for (const QString& folder : {lower, state + "/rootfs", dir + "/work", dir + "/merged"})
            QDir().mkpath(folder);
        run("sh", {"-c", lowerRoot}, lower);
        writeFile(state + "/lowerdirs", lower.toUtf8() + '\n');
        return state;
    }

    // The shell commands in the merged root of the state folder dir/state; empty, or what went wrong.
    static QString change(const QString& dir, const QString& job)
    {
        const Run changed =
            run("unshare",
                {"-m", "--propagation", "private", "sh", "-ec",
                 "mount -t overlay overlay -o \"lowerdir=$1,upperdir=$2,workdir=$3\" \"$4\"; cd \"$4\"; "
                 "eval \"$5\"",
                 "job", dir + "/lower", dir + "/state/rootfs", dir + "/work", dir + "/merged", job});
        return changed.exitCode == 0 ? QString()
                                     : changed.err + QStringLiteral(" (exit %1)").arg(changed.exitCode);
    }

    static QStringList rootLines(const state::Snapshot& snapshot)
    {
        QStringList lines = state::text(snapshot).split('\n').mid(1, snapshot.root.size());
        for (QString& line : lines)
            line = line.trimmed();
        return lines;
    }

private slots:
    void initTestCase()
    {
        const bool ci = qEnvironmentVariable("CI") == "true";
        const Run probe = run("unshare", {"-m", "true"});
        if (getuid() != 0 || probe.exitCode != 0) {
            const QString why = "an overlay needs root and mount namespaces: " + probe.err;
            if (ci)
                QFAIL(qPrintable(why));
            QSKIP(qPrintable("SKIPPED - " + why));
        }
        const QString content = m_work.path() + "/content";
        writeFile(content + "/etc/new.conf", "new\n", 0640);
        writeFile(content + "/lib/modules/4.19/extra/new.ko", "module\n");
        m_archive = m_work.path() + "/payload.tar";
        // Files only, as a package's archive of modules has them: tar makes the folders above as it goes.
        QCOMPARE(run("tar", {"-cf", m_archive, "--owner=0", "--group=0", "-C", content, "etc/new.conf",
                             "lib/modules/4.19/extra/new.ko"})
                     .exitCode,
                 0);
    }

    void changes_data()
    {
        QTest::addColumn<QString>("job");         // shell commands in the merged root
        QTest::addColumn<QStringList>("listed");  // the root's lines of the listing, in order
        QTest::addColumn<QStringList>("besides"); // more files of the state folder: name, content, ...
        const auto row = [](const char* name, const QString& job, const QStringList& listed,
                            const QStringList& besides = {}) {
            QTest::newRow(name) << job << listed << besides;
        };
        const QString newConf = "+ /etc/new.conf  file 0640 0:0 4 bytes sha256 " + sha("new\n");
        const QString newKo =
            "+ /usr/lib/modules/4.19/extra/new.ko  file 0644 0:0 7 bytes sha256 " + sha("module\n");

        row("nothing", "true", {});
        // tar through the /lib link: the files land below /usr/lib, the folders it only passed are not
        // listed.
        row("tar into the root", "tar -xf " + m_archive + " -C .",
            {newConf, "+ /usr/lib/modules/4.19/extra  folder 0755 0:0", newKo});
        row("a file removed (whiteout)", "rm usr/bin/cp", {"- /usr/bin/cp  was file 0755 0:0 5 bytes"});
        // A folder's whiteout hides all it held: each path below it is gone as well.
        row("a folder removed (whiteout)", "rm -r lib/modules/",
            {"- /usr/lib/modules  was folder 0755 0:0", "- /usr/lib/modules/4.19  was folder 0755 0:0",
             "- /usr/lib/modules/4.19/kernel  was folder 0755 0:0",
             "- /usr/lib/modules/4.19/kernel/keypad.ko  was file 0644 0:0 4 bytes"});
        // The folder made again is opaque: what it held before is gone, each gone path is listed.
        row("a folder removed and made again", "rm -r lib/modules/ && tar -xf " + m_archive + " -C . lib",
            {"+ /usr/lib/modules/4.19/extra  folder 0755 0:0", newKo,
             "- /usr/lib/modules/4.19/kernel  was folder 0755 0:0",
             "- /usr/lib/modules/4.19/kernel/keypad.ko  was file 0644 0:0 4 bytes"});
        row("mode of /", "chmod 700 .", {"~ /  folder 0700 0:0  was folder 0755 0:0"});
        row("mode of /tmp", "chmod 755 tmp", {"~ /tmp  folder 0755 0:0  was folder 1777 0:0"});
        row("owner of a file", "chown 1000:50 etc/same.conf",
            {"~ /etc/same.conf  file 0644 1000:50 5 bytes sha256 " + sha("same\n") +
             "  was file 0644 0:0 5 bytes"});
        row("a link replaced by a folder", "rm bin && mkdir bin",
            {"~ /bin  folder 0755 0:0  was link 0777 0:0 -> usr/bin"});
        // What the link led to is not what the folder held before: all below it is new.
        row("a link to a folder replaced by a folder tree", "rm lib && mkdir -p lib/modules/4.19",
            {"~ /lib  folder 0755 0:0  was link 0777 0:0 -> usr/lib", "+ /lib/modules  folder 0755 0:0",
             "+ /lib/modules/4.19  folder 0755 0:0"});
        // The write follows the link: the link is untouched, the file it names is what changed.
        row("a write through a link", "printf 'written\\n' >etc/link.conf",
            {"~ /data/real  file 0644 0:0 8 bytes sha256 " + sha("written\n")});
        row("a link made", "ln -s /data/real etc/made", {"+ /etc/made  link 0777 0:0 -> /data/real"});
        // Written again with the same bytes: the overlay holds it, so it is listed, with nothing changed.
        row("a file written with its own content",
            "cp etc/same.conf etc/s2 && cp etc/s2 etc/same.conf && rm etc/s2",
            {"~ /etc/same.conf  file 0644 0:0 5 bytes sha256 " + sha("same\n")});
        // What the sandbox made for its mounts before the job is not the job's; a change after it is.
        row("mount points made before the job",
            "mkdir -p sys/class && touch usr/bin/ubiformat && chmod 444 usr/bin/ubiformat && chmod 700 sys",
            {"~ /sys  folder 0700 0:0  was folder 0755 0:0"},
            {"rootfs.start",
             "format 1\nentry d 755 0 0 0 /\nentry d 755 0 0 0 /sys\nentry d 755 0 0 0 /sys/class\n"
             "entry d 755 0 0 0 /usr\nentry d 755 0 0 0 /usr/bin\nentry f 444 0 0 0 /usr/bin/ubiformat\n"});
        // A sandbox in a user namespace: the layers hold the host's ids, the listing the root's.
        const QString map = "         0          0          1\n      1000     100000      65536\n";
        row("owners through a user namespace's maps", "chown 100005:100007 etc/same.conf",
            {"~ /etc/same.conf  file 0644 1005:1007 5 bytes sha256 " + sha("same\n") +
             "  was file 0644 0:0 5 bytes"},
            {"uid_map", map, "gid_map", map});
    }

    void changes()
    {
        QFETCH(QString, job);
        QFETCH(QStringList, listed);
        QFETCH(QStringList, besides);
        const QString dir = m_work.path() + '/' + QTest::currentDataTag();
        const QString state = makeState(dir);
        for (int i = 0; i + 1 < besides.size(); i += 2)
            writeFile(state + '/' + besides[i], besides[i + 1].toUtf8());
        const QString failed = change(dir, job);
        QVERIFY2(failed.isEmpty(), qPrintable(failed));

        QString error;
        const auto snapshot = state::read(state, error);
        QVERIFY2(snapshot, qPrintable(error));
        QCOMPARE(rootLines(*snapshot), listed);
    }

    // Two jobs of one session on one root: what the second changed, each path "was" as the first left it
    // ('~' when the first left it there, '+' when not). The rows' names become folders: no commas.
    void sessionJob_data()
    {
        QTest::addColumn<QString>("first");
        QTest::addColumn<QString>("second");
        QTest::addColumn<QStringList>("listed");
        QTest::newRow("untouched by the second") << "printf 1 >etc/made"
                                                 << "true" << QStringList();
        QTest::newRow("written again")
            << "printf 1 >etc/made"
            << "printf 22 >etc/made" << QStringList{"~ /etc/made  file 0644 0:0 2 bytes sha256 " + sha("22")};
        QTest::newRow("made by the first and removed by the second")
            << "printf 1 >etc/made"
            << "rm etc/made" << QStringList{"- /etc/made  was file 0644 0:0 1 bytes"};
        QTest::newRow("changed by the first and removed by the second")
            << "printf 1 >etc/same.conf"
            << "rm etc/same.conf" << QStringList{"- /etc/same.conf  was file 0644 0:0 1 bytes"};
        QTest::newRow("removed by the first and made again by the second")
            << "rm usr/bin/cp"
            << "printf 333 >usr/bin/cp"
            << QStringList{"+ /usr/bin/cp  file 0644 0:0 3 bytes sha256 " + sha("333")};
        QTest::newRow("only the second") << "true"
                                         << "chmod 600 etc/same.conf"
                                         << QStringList{"~ /etc/same.conf  file 0600 0:0 5 bytes sha256 " +
                                                        sha("same\n") + "  was file 0644 0:0 5 bytes"};
    }

    void sessionJob()
    {
        QFETCH(QString, first);
        QFETCH(QString, second);
        QFETCH(QStringList, listed);
        const QString dir = m_work.path() + "/session-" + QTest::currentDataTag();
        const QString state = makeState(dir);
        QString error;
        QString failed = change(dir, "umask 022; " + first);
        QVERIFY2(failed.isEmpty(), qPrintable(failed));
        writeFile(state + "/trace.log", "view plain First\n");
        const auto before = state::read(state, error);
        QVERIFY2(before, qPrintable(error));
        failed = change(dir, "umask 022; " + second);
        QVERIFY2(failed.isEmpty(), qPrintable(failed));
        writeFile(state + "/trace.log", "view plain First\nview plain Second\n");
        writeFile(state + "/outcome", "ended\n");
        const auto now = state::read(state, error);
        QVERIFY2(now, qPrintable(error));

        const state::Snapshot job = state::since(*before, *now);
        QCOMPARE(rootLines(job), listed);
        QCOMPARE(job.trace, QVector<QString>{"view plain Second"});
        QVERIFY(job.ended);
    }

    // Everything besides the root: partitions, the PIC, the trace and what the view held.
    void restOfTheState()
    {
        const QString state = m_work.path() + "/rest";
        QVERIFY(QDir().mkpath(state + "/rootfs"));
        const QByteArray kernel(2048, '\x5a');
        writeFile(state + "/media/mtd0", kernel);
        writeFile(state + "/pic/flash", QByteArray(4, '\x12') + QByteArray(65532, '\xff'));
        writeFile(state + "/pic/config", QByteArray::fromHex("00cf1f1e0081850004c0000fe00f4000"));
        writeFile(state + "/trace.log",
                  "view plain Prompt\\n\nclear\nview plain Processing\nrun tar -xf a\\\\b\n"
                  "exit 0\nview orange 0% \nundo\nview orange 50%\nview red Failed - x \n");
        QString error;
        auto snapshot = state::read(state, error);
        QVERIFY2(snapshot, qPrintable(error));
        QCOMPARE(snapshot->partitions.keys(), QStringList{"/dev/mtd0"});
        QCOMPARE(snapshot->partitions.value("/dev/mtd0"), kernel);
        QCOMPARE(snapshot->picFlash.size(), 65536);
        QCOMPARE(snapshot->trace.size(), 9);
        QCOMPARE(snapshot->trace[3], QString("run tar -xf a\\\\b"));
        // No view.txt (the job did not end): the view is what the trace left, the undone line gone.
        QCOMPARE(snapshot->view, QString("Processing\n50%\nFailed - x \n"));
        QVERIFY(!snapshot->ended);
        QCOMPARE(snapshot->outcome, QString("not ended: no outcome recorded"));
        const QString listing = state::text(*snapshot);
        QVERIFY2(listing.contains("  /dev/mtd0  2048 bytes sha256 " + sha(kernel) + '\n'),
                 qPrintable(listing));
        QVERIFY2(listing.contains("pic flash: 65536 bytes, 4 not erased"), qPrintable(listing));
        QVERIFY2(listing.contains("trace: 9 lines, 1 commands of the updater\n"), qPrintable(listing));

        writeFile(state + "/view.txt", "As the updater had it\n");
        writeFile(state + "/outcome", "ended\n");
        snapshot = state::read(state, error);
        QVERIFY(snapshot && snapshot->ended);
        QCOMPARE(snapshot->view, QString("As the updater had it\n"));
    }

    void badFolders_data()
    {
        QTest::addColumn<QString>("make"); // shell commands in a fresh folder
        QTest::addColumn<QString>("error");
        QTest::newRow("no root layer") << "true"
                                       << "rootfs is not a folder";
        QTest::newRow("root layer is a link") << "mkdir real && ln -s real rootfs"
                                              << "rootfs is not a folder";
        QTest::newRow("bad start listing") << "mkdir rootfs && echo junk >rootfs.start"
                                           << "rootfs.start:1:";
        QTest::newRow("bad id map") << "mkdir rootfs && echo '0 0' >uid_map"
                                    << "uid_map: '0 0' is not";
        QTest::newRow("unreadable partition") << "mkdir -p rootfs media/mtd0"
                                              << "cannot read";
    }

    void badFolders()
    {
        QFETCH(QString, make);
        QFETCH(QString, error);
        const QString dir = m_work.path() + "/bad-" + QTest::currentDataTag();
        QVERIFY(QDir().mkpath(dir));
        QCOMPARE(run("sh", {"-c", make}, dir).exitCode, 0);
        QString message;
        QVERIFY(!state::read(dir, message));
        QVERIFY2(message.contains(error), qPrintable(message));
        QVERIFY2(!state::read(dir + "/missing", message), "a missing folder is no state");
        QVERIFY2(message.contains(dir + "/missing"), qPrintable(message));
    }
};

QTEST_GUILESS_MAIN(InstrumentStateTest)
#include "tst_instrumentstate.moc"
