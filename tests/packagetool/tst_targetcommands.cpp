// The package tool's model of the target's commands against the real ones: each row makes a small tree
// in a scratch folder, runs one command line there with the real GNU cp, rm or tar (as root, as the
// updater runs them), and runs the same line against the model of that tree. The exit (success or
// failure) and every entry of the tree afterwards (kind, mode, owner, link target, content) must agree.
#include "../support/TestFiles.h"
#include "TargetCommands.h"

#include <QCryptographicHash>
#include <QDirIterator>
#include <QtTest>
#include <sys/stat.h>
#include <unistd.h>

using namespace testfiles;

namespace {

// The tree below `root` as lstat sees it, one entry a line.
QStringList realListing(const QString& root)
{
    QStringList out;
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    QStringList paths{root};
    while (it.hasNext())
        paths << it.next();
    for (const QString& path : paths) {
        struct stat st
        {
        };
        if (::lstat(QFile::encodeName(path).constData(), &st) != 0)
            continue;
        QString line =
            QStringLiteral("%1 %2").arg(path.mid(root.size())).arg(st.st_mode & 07777, 4, 8, QChar('0'));
        line += QStringLiteral(" %1:%2").arg(st.st_uid).arg(st.st_gid);
        if (S_ISLNK(st.st_mode)) {
            char target[4096];
            const ssize_t n = ::readlink(QFile::encodeName(path).constData(), target, sizeof target);
            line =
                QStringLiteral("%1 link -> %2").arg(path.mid(root.size()), QString::fromUtf8(target, int(n)));
        } else if (S_ISDIR(st.st_mode)) {
            line += QStringLiteral(" folder");
        } else if (S_ISREG(st.st_mode)) {
            line += QStringLiteral(" file ") +
                    QCryptographicHash::hash(readAll(path), QCryptographicHash::Sha256).toHex().left(12);
        } else {
            line += S_ISCHR(st.st_mode)    ? QStringLiteral(" char device")
                    : S_ISBLK(st.st_mode)  ? QStringLiteral(" block device")
                    : S_ISFIFO(st.st_mode) ? QStringLiteral(" fifo")
                                           : QStringLiteral(" other");
        }
        out << line;
    }
    out.sort();
    return out;
}

QStringList modelListing(const rootfs::Tree& tree, const QString& root)
{
    QStringList out;
    for (const QString& path : QStringList{root} + tree.below(root)) {
        const rootfs::Node node = tree.at(path);
        QString line = QStringLiteral("%1 %2 %3:%4")
                           .arg(path.mid(root.size()))
                           .arg(node->mode, 4, 8, QChar('0'))
                           .arg(node->uid)
                           .arg(node->gid);
        if (node->kind == rootfs::Kind::Symlink)
            line = QStringLiteral("%1 link -> %2").arg(path.mid(root.size()), node->target);
        else if (node->kind == rootfs::Kind::Directory)
            line += QStringLiteral(" folder");
        else if (node->kind == rootfs::Kind::File)
            line += QStringLiteral(" file ") + QString::fromLatin1(node->sha256.toHex().left(12));
        else
            line += node->kind == rootfs::Kind::CharDevice    ? QStringLiteral(" char device")
                    : node->kind == rootfs::Kind::BlockDevice ? QStringLiteral(" block device")
                    : node->kind == rootfs::Kind::Fifo        ? QStringLiteral(" fifo")
                                                              : QStringLiteral(" other");
        out << line;
    }
    out.sort();
    return out;
}

// The model's instrument: the scratch tree, the folders above it, everything writable.
profile::Profile scratchProfile(const QString& root)
{
    profile::Profile p;
    for (QString folder = root; !folder.isEmpty();
         folder = folder == "/" ? QString() : QFileInfo(folder).path()) {
        struct stat st
        {
        };
        ::lstat(QFile::encodeName(folder).constData(), &st);
        p.entries.insert(folder,
                         {folder, profile::Kind::Directory, st.st_mode & 07777, st.st_uid, st.st_gid, 0, {}});
    }
    const mode_t mask = ::umask(0);
    ::umask(mask);
    p.umask = mask;
    p.mounts.insert("/", true);
    p.users.insert("root", 0);
    p.groups.insert("root", 0);
    p.users.insert("daemon", 1);
    return p;
}

void addScratch(rootfs::Tree& tree, const QString& root)
{
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    QStringList paths;
    while (it.hasNext())
        paths << it.next();
    paths.sort();
    for (const QString& path : paths) {
        struct stat st
        {
        };
        QVERIFY(::lstat(QFile::encodeName(path).constData(), &st) == 0);
        const uint mode = st.st_mode & 07777;
        if (S_ISLNK(st.st_mode)) {
            char target[4096];
            const ssize_t n = ::readlink(QFile::encodeName(path).constData(), target, sizeof target);
            tree.set(path, rootfs::linkNode(QString::fromUtf8(target, int(n)), st.st_uid, st.st_gid));
        } else if (S_ISDIR(st.st_mode)) {
            tree.set(path, rootfs::folderNode(mode, st.st_uid, st.st_gid));
        } else {
            tree.set(path, rootfs::fileNode(readAll(path), mode, st.st_uid, st.st_gid));
        }
    }
}

// A tar archive written by Python's tarfile: MEMBERS is a list of (name, kind, data or link, mode, owner).
QString tarOf(const QString& name, const QString& members)
{
    return QStringLiteral(
               "python3 - <<'EOF'\n"
               "import io, tarfile\n"
               "with tarfile.open('%1', 'w', format=tarfile.GNU_FORMAT) as t:\n"
               "    for name, kind, data, mode, owner in [%2]:\n"
               "        i = tarfile.TarInfo(name); i.mode = mode; i.uname = i.gname = owner\n"
               "        i.uid = i.gid = 1 if owner == 'daemon' else 0 if owner == 'root' else 1234\n"
               "        if kind == 'f': i.size = len(data); t.addfile(i, io.BytesIO(data.encode()))\n"
               "        elif kind == 'd': i.type = tarfile.DIRTYPE; t.addfile(i)\n"
               "        elif kind == 'l': i.type = tarfile.SYMTYPE; i.linkname = data; t.addfile(i)\n"
               "        elif kind == 'h': i.type = tarfile.LNKTYPE; i.linkname = data; t.addfile(i)\n"
               "        elif kind == 'c': i.type = tarfile.CHRTYPE; i.devmajor, i.devminor = 5, 1; "
               "t.addfile(i)\n"
               "        elif kind == 'p': i.type = tarfile.FIFOTYPE; t.addfile(i)\n"
               "EOF\n")
        .arg(name, members);
}

} // namespace

class TargetCommandsTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (::geteuid() != 0) {
            if (qEnvironmentVariable("CI") == QLatin1String("true"))
                QFAIL("the real tools must run as root here (CI=true)");
            QSKIP("SKIPPED: the real cp, rm and tar are compared as root, as the updater runs them; run as "
                  "root");
        }
    }

    void matchesTheRealTool_data()
    {
        QTest::addColumn<QString>("setup");   // shell, run in the scratch folder $R
        QTest::addColumn<QString>("command"); // the command line; $R is the scratch folder
        const QString files =
            "mkdir d e; echo a > f; chmod 4755 f; echo b > g; ln -s g gl; ln -s nowhere dl; "
            "ln -s f fl; ln -s d dlink; echo c > d/in; ";
        QTest::newRow("cp to a new file") << files << "cp $R/f $R/new";
        QTest::newRow("cp into a folder") << files << "cp $R/f $R/d";
        QTest::newRow("cp into a folder, trailing slash") << files << "cp $R/f $R/e/";
        QTest::newRow("cp source with a trailing slash") << files << "cp $R/f/ $R/x";
        QTest::newRow("cp to a missing folder") << files << "cp $R/f $R/nosuch/x";
        QTest::newRow("cp to a new name with a trailing slash") << files << "cp $R/f $R/nosuch/";
        QTest::newRow("cp through a missing folder and ..") << files << "cp $R/nosuch/../f $R/y";
        QTest::newRow("cp onto a dangling link") << files << "cp $R/f $R/dl";
        QTest::newRow("cp onto a link to the source") << files << "cp $R/f $R/fl";
        QTest::newRow("cp onto a link to a file") << files << "cp $R/f $R/gl";
        QTest::newRow("cp onto a link to a folder") << files << "cp $R/f $R/dlink";
        QTest::newRow("cp of a folder") << files << "cp $R/d $R/z";
        QTest::newRow("cp onto an existing file keeps its mode") << files + "chmod 600 g; "
                                                                 << "cp $R/f $R/g";
        QTest::newRow("cp with three operands into a folder") << files << "cp $R/f $R/g $R/e";
        QTest::newRow("cp with three operands, no folder") << files << "cp $R/f $R/g $R/h";
        QTest::newRow("cp with one operand") << files << "cp $R/f";
        QTest::newRow("cp, quotes group a blank") << files + "echo q > 'a b'; "
                                                  << "cp \"$R/a b\" $R/q";

        QTest::newRow("rm a file") << files << "rm $R/f";
        QTest::newRow("rm a link") << files << "rm $R/gl";
        QTest::newRow("rm a missing file") << files << "rm $R/nosuch";
        QTest::newRow("rm a folder") << files << "rm $R/d";
        QTest::newRow("rm a file with a trailing slash") << files << "rm $R/f/";
        QTest::newRow("rm ..") << files << "rm $R/d/..";
        QTest::newRow("rm -r a folder") << files << "rm -r $R/d";
        QTest::newRow("rm -r through a link with a trailing slash") << files << "rm -r $R/dlink/";
        QTest::newRow("rm -r a missing folder") << files << "rm -r $R/nosuch/";

        const QString tree = "mkdir -p x/usr/lib/modules/old; echo o > x/usr/lib/modules/old/m.ko; "
                             "ln -s usr/lib x/lib; ";
        QTest::newRow("tar: members through a link to a folder")
            << tree + tarOf("a.tar", "('lib/modules/new/k.ko', 'f', 'k', 0o644, 'root')")
            << "tar -xf $R/a.tar -C $R/x";
        QTest::newRow("tar: a folder member replaces a link to a folder")
            << tree + tarOf("a.tar",
                            "('lib/', 'd', '', 0o755, 'root'), ('lib/modules/k.ko', 'f', 'k', 0o644, 'root')")
            << "tar -xf $R/a.tar -C $R/x";
        QTest::newRow("tar: ./ changes the folder it unpacks into")
            << tree + "chmod 1777 x; " +
                   tarOf("a.tar", "('./', 'd', '', 0o700, 'root'), ('./f', 'f', 'f', 0o600, 'root')")
            << "tar -xf $R/a.tar -C $R/x";
        QTest::newRow("tar: .. in a member's name")
            << tree + tarOf("a.tar",
                            "('a/../b', 'f', 'b', 0o644, 'root'), ('../c', 'f', 'c', 0o644, 'root'), "
                            "('ok', 'f', 'ok', 0o644, 'root')")
            << "tar -xf $R/a.tar -C $R/x";
        QTest::newRow("tar: absolute names")
            << tree + tarOf("a.tar", "('/abs/f', 'f', 'f', 0o644, 'root'), ('//y', 'f', 'y', 0o640, 'root')")
            << "tar -xf $R/a.tar -C $R/x";
        QTest::newRow("tar: a file over a folder")
            << tree + "mkdir x/empty x/full; echo i > x/full/in; " +
                   tarOf("a.tar", "('empty', 'f', 'e', 0o644, 'root'), ('full', 'f', 'f', 0o644, 'root')")
            << "tar -xf $R/a.tar -C $R/x";
        QTest::newRow("tar: an absolute link, then a member through it")
            << tree +
                   tarOf("a.tar", "('l', 'l', '/etc', 0o777, 'root'), ('l/passwd', 'f', 'p', 0o644, 'root')")
            << "tar -xf $R/a.tar -C $R/x";
        QTest::newRow("tar: a relative link, then a member through it")
            << tree + tarOf("a.tar", "('sub/', 'd', '', 0o755, 'root'), ('rl', 'l', 'sub', 0o777, 'root'), "
                                     "('rl/f', 'f', 'through', 0o644, 'root')")
            << "tar -xf $R/a.tar -C $R/x";
        QTest::newRow("tar: owners by name, by number, set-id bits")
            << tree + tarOf("a.tar",
                            "('own', 'f', 'o', 0o644, 'nosuchuser'), ('own2', 'f', 'o', 0o644, 'daemon'), "
                            "('deep/er/f', 'f', 'f', 0o4755, 'root')")
            << "tar -xf $R/a.tar -C $R/x";
        QTest::newRow("tar: hard links")
            << tree + tarOf("a.tar", "('h1', 'f', 'orig', 0o644, 'root'), ('h2', 'h', 'h1', 0o644, 'root'), "
                                     "('h3', 'h', 'nosuch', 0o644, 'root')")
            << "tar -xf $R/a.tar -C $R/x";
        QTest::newRow("tar: duplicate members")
            << tree + tarOf("a.tar", "('dd', 'f', 'one', 0o644, 'root'), ('dd', 'd', '', 0o755, 'root'), "
                                     "('ff', 'f', 'one', 0o644, 'root'), ('ff', 'f', 'two', 0o600, 'root')")
            << "tar -xf $R/a.tar -C $R/x";
        QTest::newRow("tar: a link member over folders")
            << tree + "mkdir x/empty x/full; echo i > x/full/in; " +
                   tarOf("a.tar", "('empty', 'l', 'usr', 0o777, 'root'), ('full', 'l', 'usr', 0o777, 'root')")
            << "tar -xf $R/a.tar -C $R/x";
        QTest::newRow("tar: a device node and a fifo")
            << tree + tarOf("a.tar", "('console', 'c', '', 0o600, 'root'), ('pipe', 'p', '', 0o644, 'root')")
            << "tar -xf $R/a.tar -C $R/x";
        QTest::newRow("tar: not an archive") << tree + "echo text > a.tar; "
                                             << "tar -xf $R/a.tar -C $R/x";
        QTest::newRow("tar: a missing archive") << tree << "tar -xf $R/a.tar -C $R/x";
        QTest::newRow("tar: a member asked for that is not there")
            << tree + tarOf("a.tar", "('ok', 'f', 'ok', 0o644, 'root')") << "tar -xf $R/a.tar extra -C $R/x";
        // tar reads whole blocks: a cut inside a header ends the archive quietly, a cut inside a member's
        // data leaves the member with the blocks it got and fails.
        const QString cutFrom = tree + tarOf("full.tar", "('lib/', 'd', '', 0o755, 'root'), "
                                                         "('lib/a.ko', 'f', 'a' * 700, 0o644, 'root'), "
                                                         "('lib/b.ko', 'f', 'b', 0o755, 'root')");
        for (const int cut : {100, 512, 1100, 1536, 2100, 2560, 2600, 3072}) {
            QTest::addRow("tar: an archive cut after %d bytes", cut)
                << cutFrom + QString("head -c %1 full.tar > a.tar; ").arg(cut) << "tar -xf $R/a.tar -C $R/x";
        }
        QTest::newRow("tar: a compressed archive")
            << tree + tarOf("a.tar", "('ok', 'f', 'ok', 0o644, 'root')") + "gzip a.tar; "
            << "tar -xf $R/a.tar.gz -C $R/x";
    }

    void matchesTheRealTool()
    {
        QFETCH(QString, setup);
        QFETCH(QString, command);
        QTemporaryDir scratch;
        const QString root = scratch.path();
        QCOMPARE(run("bash", {"-c", "set -e; " + setup}, root).exitCode, 0);
        const QString line = QString(command).replace("$R", root);

        profile::Profile p = scratchProfile(root);
        rootfs::Tree tree(p);
        addScratch(tree, root);
        QMap<QString, target::Partition> partitions;
        QVector<target::Note> notes;
        target::Context context{tree, p, partitions, notes, {}, {}, 0};
        const target::Outcome predicted = target::run(line, context);

        const QStringList argv = QProcess::splitCommand(line);
        const Run real = run(argv.first(), argv.mid(1), root);
        QVERIFY2((predicted.exit == target::Exit::Success) == (real.exitCode == 0),
                 qPrintable(QString("%1: the model says %2 (%3), the tool exits %4: %5")
                                .arg(line)
                                .arg(int(predicted.exit))
                                .arg(predicted.message)
                                .arg(real.exitCode)
                                .arg(real.err)));
        QCOMPARE(modelListing(tree, root), realListing(root));
    }
};

QTEST_GUILESS_MAIN(TargetCommandsTest)
#include "tst_targetcommands.moc"
