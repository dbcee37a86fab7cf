// The virtual instrument's root against the instrument's: the real updater in sim/sandbox, started at its
// installed path and given F3 F1 by the technician, installs packages made by real tar holding what
// engineers' packages hold (owners of their own accounts, device nodes, odd folder modes, paths through links
// on the root) and must do what the instrument does, where the updater runs as root with the image's own tar
// and cp. Each case reads the sandbox's record of the root: $SIM_STATE/rootfs, tmp and home are the upper
// layers of
// /, /tmp and /home.
#include "../support/TestFiles.h"
#include "VirtualInstrument.h"

#include <QtTest> // with all of QtCore

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

using namespace testfiles;

namespace {

const QString repo = PROJECT_SOURCE_DIR;
const QString build = PROJECT_BINARY_DIR;
const QString updateComplete = "Update complete, restart the system or press F1";
const QString updatesFailed = "Some of the updates failed, press F1";

struct Job
{
    int exitCode = -1; // 77 when the machine lacks what the virtual instrument needs
    QString output;    // why the job could not run, or how it ended
    QString view;      // the message view at the end of the job
    QString state;     // the sandbox's state directory
    bool skipped() const { return exitCode == 77 && qEnvironmentVariable("CI") != "true"; }
};

struct Node
{
    bool exists = false;
    mode_t mode = 0; // type and permission bits
    uid_t uid = 0;
    gid_t gid = 0;
    dev_t rdev = 0;
};

// The id inside the sandbox of a host id, by a map the sandbox left in its state (/proc/PID/uid_map's
// lines: inside, outside, count); without one the ids are the host's.
uint inside(const QString& mapFile, uint id)
{
    for (const QString& line : QString::fromLatin1(readAll(mapFile)).split('\n', Qt::SkipEmptyParts)) {
        const QStringList f = line.simplified().split(' ');
        if (f.size() == 3 && id >= f[1].toUInt() && id - f[1].toUInt() < f[2].toUInt())
            return f[0].toUInt() + (id - f[1].toUInt());
    }
    return QFile::exists(mapFile) ? uint(-1) : id;
}

// As lstat sees it, owners as the sandbox saw them.
Node node(const QString& path)
{
    struct stat st = {};
    if (::lstat(QFile::encodeName(path).constData(), &st) != 0)
        return {};
    const QString state = path.left(path.indexOf("/rootfs"));
    return {true, st.st_mode, inside(state + "/uid_map", st.st_uid), inside(state + "/gid_map", st.st_gid),
            st.st_rdev};
}

} // namespace

class SandboxTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_work;
    QString m_root; // $SIM_ROOT inside the sandbox: "instrument", or "instrument-nodev" for an ordinary user

    // A folder firmware_update/ with the command list and files (path -> content; "*.sh" executable).
    QString packageFolder(const QString& name, const QString& config, const QMap<QString, QByteArray>& files)
    {
        const QString top = m_work.path() + "/src/" + name + "/firmware_update";
        QDir(QFileInfo(top).path()).removeRecursively();
        writeFile(top + "/update_config", config.toUtf8());
        for (auto it = files.begin(); it != files.end(); ++it)
            writeFile(top + it.key(), it.value(), it.key().endsWith(".sh") ? 0755 : 0644);
        return QFileInfo(top).path();
    }

    // The package as real tar makes it: `tar -cjf NAME TAR_ARGS... MEMBERS` in `folder`.
    QString pack(const QString& folder, const QStringList& tarArgs,
                 const QStringList& members = {"firmware_update"})
    {
        const QString package =
            m_work.path() + "/packages/" + QFileInfo(folder).fileName() + "M_firmware_update_1.tar.bz2";
        QDir().mkpath(QFileInfo(package).path());
        const Run tar = run("tar", QStringList{"-cjf", package} + tarArgs + members, folder);
        return tar.exitCode == 0 ? package : QString();
    }

    // The package's modules.tar as an engineer makes it: `tar -cf modules.tar TAR_ARGS... MEMBER` in a
    // folder holding MODULE (a path below it) and nothing else; returns that folder.
    QString addModules(const QString& folder, const QStringList& tarArgs, const QString& member,
                       const QString& module = "lib/modules/4.19.0-instrument/extra/keypad.ko")
    {
        const QString tree = m_work.path() + "/modules/" + QFileInfo(folder).fileName();
        QDir(tree).removeRecursively();
        writeFile(tree + "/" + module, "new module\n");
        const Run tar =
            run("tar",
                QStringList{"-cf", folder + "/firmware_update/modules.tar"} + tarArgs + QStringList{member},
                tree);
        return tar.exitCode == 0 ? tree : QString();
    }

    // The memory-stick job with this package, played by the technician from outside the root, until
    // the view has ended (or the job timed out).
    Job runJob(const QString& package)
    {
        const QString out = m_work.path() + "/jobs/" + QFileInfo(package).baseName();
        QDir(out).removeRecursively();
        instrument::Job job;
        job.package = package;
        job.outDir = out + "/state";
        job.timeoutSeconds = 15 * 60;
        instrument::Options options;
        options.build = build;
        options.screens = false;
        Job result;
        result.state = job.outDir;
        bool unavailable = false;
        const auto snapshot = instrument::run(job, result.output, options, &unavailable);
        if (unavailable)
            result.exitCode = 77;
        if (snapshot) {
            result.view = snapshot->view;
            result.output += snapshot->outcome;
        }
        return result;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_work.isValid());
        const Run sandbox = run(repo + "/sim/sandbox", {"--", "sh", "-c", "echo $SIM_ROOT"});
        if (sandbox.exitCode == 77 && qEnvironmentVariable("CI") != "true")
            QSKIP(qPrintable("the sandbox is unavailable on this machine:\n" + sandbox.err));
        QVERIFY2(sandbox.exitCode == 0, qPrintable(sandbox.err));
        m_root = sandbox.out.trimmed();
        if (!m_root.startsWith("instrument")) {
            const QString why = "the sandbox does not give the instrument's root here:\n" + sandbox.err;
            QVERIFY2(qEnvironmentVariable("CI") != "true", qPrintable(why));
            QSKIP(qPrintable(why));
        }
    }

    // As root, tar keeps the owners stored in the archive, named or not, known to the instrument or not;
    // cp makes new files root's.
    void ownersOfTheEngineersAccountAreKept_data()
    {
        QTest::addColumn<QStringList>("tarArgs");
        QTest::addColumn<uint>("uid");
        QTest::addColumn<uint>("gid");
        QTest::newRow("uid 1000 with a name")
            << QStringList{"--owner=engineer:1000", "--group=engineer:1000"} << 1000u << 1000u;
        QTest::newRow("a uid without a name")
            << QStringList{"--owner=4242", "--group=4343", "--numeric-owner"} << 4242u << 4343u;
    }

    void ownersOfTheEngineersAccountAreKept()
    {
        QFETCH(QStringList, tarArgs);
        QFETCH(uint, uid);
        QFETCH(uint, gid);
        const QString folder =
            packageFolder(QString("owners%1").arg(uid), "FILE:/etc/engineer.conf\nMODULES:/modules.tar\n",
                          {{"/etc/engineer.conf", "engineer\n"}});
        QVERIFY(!addModules(folder, tarArgs, "lib/modules/4.19.0-instrument/extra/keypad.ko").isEmpty());
        const Job job = runJob(pack(folder, tarArgs));
        if (job.skipped())
            QSKIP(qPrintable(job.output));
        QVERIFY2(job.view.contains(updateComplete), qPrintable(job.view + job.output));
        const Node unpacked = node(job.state + "/rootfs/tmp/firmware_update/update_config");
        QCOMPARE(unpacked.uid, uid);
        QCOMPARE(unpacked.gid, gid);
        const Node module = node(job.state + "/rootfs/usr/lib/modules/4.19.0-instrument/extra/keypad.ko");
        QVERIFY(S_ISREG(module.mode));
        QCOMPARE(module.uid, uid);
        QCOMPARE(module.gid, gid);
        const Node copied = node(job.state + "/rootfs/etc/engineer.conf");
        QVERIFY(S_ISREG(copied.mode));
        QCOMPARE(copied.uid, 0u);
    }

    // tar creates a device node member as root.
    void deviceNodeIsCreated()
    {
        if (::geteuid() != 0)
            QSKIP("making a package with a device node takes root (mknod)");
        if (m_root != "instrument")
            QSKIP("the sandbox makes no device nodes for an ordinary user (it says so when it starts)");
        const QString folder =
            packageFolder("device", "FILE:/etc/device.conf\n", {{"/etc/device.conf", "d\n"}});
        QCOMPARE(run("mknod", {folder + "/firmware_update/console", "c", "5", "1"}).exitCode, 0);
        const Job job = runJob(pack(folder, {}));
        if (job.skipped())
            QSKIP(qPrintable(job.output));
        QVERIFY2(job.view.contains(updateComplete), qPrintable(job.view + job.output));
        const Node device = node(job.state + "/rootfs/tmp/firmware_update/console");
        QVERIFY(S_ISCHR(device.mode));
        QCOMPARE(device.rdev, makedev(5, 1));
    }

    // A member ./ carries the mode and owner of the folder it was packed from; GNU tar as root gives them
    // to the folder it extracts into: the package's to /tmp, a modules archive's to /. The update goes on.
    void modeOfTheFolderExtractedInto_data()
    {
        QTest::addColumn<bool>("modules");
        QTest::addColumn<QString>("upper"); // the upper layer of that folder
        QTest::newRow("package packed from ./ sets /tmp") << false << "rootfs/tmp";
        QTest::newRow("modules packed from ./ set /") << true << "rootfs";
    }

    void modeOfTheFolderExtractedInto()
    {
        QFETCH(bool, modules);
        QFETCH(QString, upper);
        const QStringList owner{"--owner=engineer:1000", "--group=engineer:1000"};
        const auto privateMode = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner; // 0700
        const QString folder =
            packageFolder(modules ? "dotmodules" : "dot", "FILE:/etc/dot.conf\nMODULES:/modules.tar\n",
                          {{"/etc/dot.conf", "d\n"}});
        // The modules below usr/lib: a lib/ member would replace the root's link (the last case).
        const QString module = (modules ? "usr/" : "") + QString("lib/modules/4.19.0-instrument/extra/k.ko");
        const QString tree = addModules(folder, owner, modules ? "." : module, module);
        QVERIFY(!tree.isEmpty());
        if (modules) { // packed again from a private folder
            QVERIFY(QFile::setPermissions(tree, privateMode));
            QCOMPARE(
                run("tar",
                    QStringList{"-cf", folder + "/firmware_update/modules.tar"} + owner + QStringList{"."},
                    tree)
                    .exitCode,
                0);
        } else {
            QVERIFY(QFile::setPermissions(folder, privateMode));
        }
        const Job job = runJob(pack(folder, owner, {modules ? "firmware_update" : "."}));
        if (job.skipped())
            QSKIP(qPrintable(job.output));
        QVERIFY2(job.view.contains(updateComplete), qPrintable(job.view + job.output));
        const Node top = node(job.state + "/" + upper);
        QCOMPARE(top.mode & 07777, mode_t(0700));
        QCOMPARE(top.uid, 1000u);
    }

    // cp follows a link at the target path: /etc/os-release is a link on the instrument, so the package's
    // file replaces the link's target and the link stays.
    void fileLineWritesThroughALink()
    {
        const QString folder =
            packageFolder("link", "FILE:/etc/os-release\n", {{"/etc/os-release", "ID=instrument\n"}});
        const Job job = runJob(pack(folder, {}));
        if (job.skipped())
            QSKIP(qPrintable(job.output));
        QVERIFY2(job.view.contains(updateComplete), qPrintable(job.view + job.output));
        QCOMPARE(readAll(job.state + "/rootfs/usr/lib/os-release"), QByteArray("ID=instrument\n"));
        QVERIFY(!node(job.state + "/rootfs/etc/os-release").exists); // the link as it was
    }

    // A modules archive packed from lib/ holds the folder lib/: GNU tar replaces the root's link /lib with
    // a folder, so the loader at /lib/ld-linux-armhf.so.3 is gone and every later command fails to start.
    // The updater itself runs on and ends its job.
    void modulesReplacingTheLinkToTheLoader()
    {
        const QString folder =
            packageFolder("loader", "FILE:/etc/before.conf\nMODULES:/modules.tar\nFILE:/etc/after.conf\n",
                          {{"/etc/before.conf", "b\n"}, {"/etc/after.conf", "a\n"}});
        QVERIFY(!addModules(folder, {}, "lib").isEmpty());
        const Job job = runJob(pack(folder, {}));
        if (job.skipped())
            QSKIP(qPrintable(job.output));
        QVERIFY2(
            job.view.contains("Updating Linux modules with: /modules.tar\nUpdating root files with folder: "
                              "/etc/after.conf\nFailed - Updating root files with folder: /etc/after.conf"),
            qPrintable(job.view + job.output));
        QVERIFY2(job.view.contains(updatesFailed), qPrintable(job.view));
        const Node lib = node(job.state + "/rootfs/lib");
        QVERIFY(S_ISDIR(lib.mode));
        QVERIFY(node(job.state + "/rootfs/lib/modules/4.19.0-instrument/extra/keypad.ko").exists);
        QVERIFY(node(job.state + "/rootfs/etc/before.conf").exists);
        QVERIFY(!node(job.state + "/rootfs/etc/after.conf").exists);
    }
};

QTEST_GUILESS_MAIN(SandboxTest)
#include "tst_sandbox.moc"
