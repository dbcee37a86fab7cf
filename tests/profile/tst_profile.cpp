// The instrument profile as scripts/capture-profile.sh writes it and the package tool reads it, and the
// virtual instrument's root against the default profile: captured inside sim/sandbox, that root must be
// the profile's, but for what the sandbox itself needs (sim/keep.list, its mount points).
#include "InstrumentProfile.h"

#include "../support/TestFiles.h"

#include <QtTest> // with all of QtCore

#include <sys/stat.h>
#include <unistd.h>

using namespace testfiles;

namespace {

const QString repo = PROJECT_SOURCE_DIR;

std::optional<profile::Profile> readProfile(const QString& text, const QString& file)
{
    writeFile(file, text.toUtf8());
    QString error;
    auto p = profile::read(file, error);
    if (!p)
        qWarning("%s", qPrintable(error));
    return p;
}

} // namespace

class ProfileTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_work;

private slots:
    void initTestCase() { QVERIFY(m_work.isValid()); }

    // A root folder with each kind of entry, odd names and modes: what the script prints reads back.
    void captureOfAFolderReadsBack()
    {
        const QString root = m_work.path() + "/root";
        QVERIFY(QDir().mkpath(root + "/usr/bin"));
        QVERIFY(QFile::copy("/usr/bin/dash", root + "/usr/bin/dash")); // the platform comes from it
        QVERIFY(QFile::link("usr/bin", root + "/bin"));
        QVERIFY(QDir().mkpath(root + "/usr/lib/modules/5.10.0-board/kernel"));
        QVERIFY(QFile::link("usr/lib", root + "/lib"));
        writeFile(root + "/etc/name with blank\\and backslash", "x\n");
        writeFile(root + "/usr/bin/su", "set-uid\n", 04755);
        writeFile(root + "/proc/self-status", "never listed\n");
        writeFile(root + "/opt/left/out", "left out\n");
        QVERIFY(QDir().mkpath(root + "/tmp"));
        QCOMPARE(::chmod(QFile::encodeName(root + "/tmp").constData(), 01777), 0);
        QCOMPARE(::mkfifo(QFile::encodeName(root + "/etc/fifo").constData(), 0600), 0);
        const bool asRoot = ::geteuid() == 0;
        if (asRoot)
            QCOMPARE(::lchown(QFile::encodeName(root + "/etc/fifo").constData(), 1000, 4343), 0);

        const Run capture = run("sh", {repo + "/scripts/capture-profile.sh", "--leave-out", "/opt", root});
        QVERIFY2(capture.exitCode == 0, qPrintable(capture.err));
        const auto p = readProfile(capture.out, m_work.path() + "/captured.profile");
        QVERIFY(p);
        QCOMPARE(p->machine, QString("x86-64"));
        QCOMPARE(p->elfClass, 64);
        QCOMPARE(p->loader, QString("/lib64/ld-linux-x86-64.so.2"));
        QCOMPARE(p->kernelRelease, QString("5.10.0-board")); // the only folder below lib/modules
        QVERIFY(p->partitions.isEmpty());                    // not known for a folder

        const profile::Entry* link = p->find("/bin");
        QVERIFY(link && link->kind == profile::Kind::Symlink);
        QCOMPARE(link->target, QString("usr/bin"));
        QCOMPARE(p->find("/tmp")->mode, 01777u);
        QCOMPARE(p->find("/usr/bin/su")->mode, 04755u);
        QCOMPARE(p->find("/usr/bin/su")->size, qint64(8));
        const profile::Entry* odd = p->find("/etc/name with blank\\and backslash");
        QVERIFY2(odd && odd->kind == profile::Kind::File, qPrintable(capture.out));
        const profile::Entry* fifo = p->find("/etc/fifo");
        QVERIFY(fifo && fifo->kind == profile::Kind::Fifo && fifo->mode == 0600);
        if (asRoot)
            QVERIFY(fifo->uid == 1000 && fifo->gid == 4343);
        QVERIFY(p->find("/proc")); // the folder, not what lies in it
        QVERIFY(!p->find("/proc/self-status"));
        QVERIFY(!p->find("/opt") && !p->find("/opt/left/out"));
    }

    // The default profile is the instrument's: its platform, and its layout where the updater depends on it.
    void defaultProfileIsTheInstruments()
    {
        QString error;
        const auto p = profile::read(profile::defaultPath(), error);
        QVERIFY2(p, qPrintable(error));
        QCOMPARE(p->machine, QString("arm"));
        QCOMPARE(p->elfClass, 32);
        QCOMPARE(p->floatAbi, QString("hard"));
        QCOMPARE(p->loader, QString("/lib/ld-linux-armhf.so.3"));
        QCOMPARE(p->updater, QString("/usr/bin/updater"));
        QCOMPARE(p->kernelRelease, QString("4.19.0-instrument"));
        for (const char* link : {"/bin", "/lib", "/sbin"})
            QCOMPARE(p->find(link)->target, QString("usr") + link);
        QCOMPARE(p->find("/var/run")->target, QString("/run"));
        for (const char* folder : {"/mnt/data", "/mnt/update", "/usr/lib/modules/4.19.0-instrument", "/tmp"})
            QVERIFY2(p->find(folder) && p->find(folder)->kind == profile::Kind::Directory, folder);
        for (const char* file : {"/usr/bin/updater", "/home/mainApp", "/home/format_sdcard.sh",
                                 "/usr/bin/tar", "/usr/bin/cp", "/usr/bin/bzip2"})
            QVERIFY2(p->find(file) && p->find(file)->kind == profile::Kind::File, file);
        QVERIFY(!p->find("/usr/include")); // what a build needs is left out
    }

    // The root the updater sees, captured inside the sandbox, is the default profile's: every entry of the
    // profile is there as the profile has it (kind, a link's target, a folder's mode and owner), and it has
    // nothing else but what the sandbox itself needs.
    void sandboxRootIsTheProfiles()
    {
        const Run sandbox =
            run(repo + "/sim/sandbox",
                {"--", "sh", "-c",
                 "[ \"$SIM_ROOT\" = instrument ] || exit 77; sh " + repo +
                     "/scripts/capture-profile.sh --leave-out " + repo + " --leave-out \"$SIM_STATE\" /"},
                QString(), 300000);
        if (sandbox.exitCode == 77 && qEnvironmentVariable("CI") != "true")
            QSKIP(qPrintable("the sandbox does not give the instrument's root here: " + sandbox.err));
        QVERIFY2(sandbox.exitCode == 0, qPrintable(sandbox.err));
        const auto seen = readProfile(sandbox.out, m_work.path() + "/sandbox.profile");
        QVERIFY(seen);
        QString error;
        const auto expected = profile::read(profile::defaultPath(), error);
        QVERIFY2(expected, qPrintable(error));

        QStringList wrong;
        for (const profile::Entry& e : expected->entries) {
            const profile::Entry* s = seen->find(e.path);
            if (!s)
                wrong << "missing " + e.path;
            else if (s->kind != e.kind || s->target != e.target ||
                     (e.kind == profile::Kind::Directory && (s->mode != e.mode || s->uid != e.uid)))
                wrong << QString("differs %1: %2 %3 %4 instead of %5 %6 %7")
                             .arg(e.path, profile::kindName(s->kind))
                             .arg(s->mode, 4, 8, QChar('0'))
                             .arg(s->target, profile::kindName(e.kind))
                             .arg(e.mode, 4, 8, QChar('0'))
                             .arg(e.target);
        }
        // Beyond the profile: the kept paths, the loader's link, the folders above the mount points.
        QStringList keep{"/lib64"};
        for (const QString& line : QString::fromUtf8(readAll(repo + "/sim/keep.list")).split('\n')) {
            const QString path = line.section('#', 0, 0).trimmed();
            if (!path.isEmpty())
                keep << path;
        }
        const auto kept = [&](const QString& path) {
            return std::any_of(keep.begin(), keep.end(),
                               [&](const QString& k) {
                                   return path == k || path.startsWith(k + '/') || k.startsWith(path + '/');
                               }) ||
                   repo.startsWith(path + '/');
        };
        for (const profile::Entry& s : seen->entries)
            if (!expected->find(s.path) && !kept(s.path))
                wrong << "extra " + s.path;
        QVERIFY2(wrong.isEmpty(), qPrintable(wrong.mid(0, 40).join('\n')));
    }
};

QTEST_GUILESS_MAIN(ProfileTest)
#include "tst_profile.moc"
