// update-package's command line as an engineer meets it: help, version, misuse (exit 2 with a usage line),
// each subcommand's own options, the man page and the bash completion that describe them, and build's
// care for what it packs and where it writes.
#include "PackageFixture.h"

#include <QRegularExpression>

using namespace fixture;

namespace {

const QString manPage = repo + "/tools/update-package/share/update-package.1";
const QString completion = repo + "/tools/update-package/share/update-package.bash-completion";

// Every option the tool has; a subcommand's row names the ones it takes, the others must be refused.
const QStringList allOptions{"--json", "--profile", "--output", "--force", "--pc", "--out-dir", "--timeout"};

// What bash's completion offers after the words typed so far (the last one being completed).
QStringList completions(const QStringList& words)
{
    QStringList quoted;
    for (const QString& w : words)
        quoted << "'" + w + "'";
    const Run r = run("bash", {"-c", QString("source '%1'; COMP_WORDS=(%2); COMP_CWORD=%3; "
                                             "_update_package; printf '%s\\n' \"${COMPREPLY[@]}\"")
                                         .arg(completion, quoted.join(' '))
                                         .arg(words.size() - 1)});
    return r.out.split('\n', Qt::SkipEmptyParts);
}

// The man page's text between ".SS name" and the next heading.
QString manSection(const QString& name)
{
    QFile f(manPage);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    const QString text = QString::fromUtf8(f.readAll());
    const int start =
        text.indexOf(QRegularExpression("^\\.SS " + name + "\\b", QRegularExpression::MultilineOption));
    if (start < 0)
        return {};
    const int end =
        text.indexOf(QRegularExpression("^\\.S[SH] ", QRegularExpression::MultilineOption), start + 1);
    return text.mid(start, end - start).replace("\\-", "-");
}

} // namespace

class CommandLineTest : public QObject
{
    Q_OBJECT

    BasePackage m_base;

private slots:
    void initTestCase() { QVERIFY2(m_base.make(), "the base package could not be made (gpasm, tar)"); }

    void helpAndVersion()
    {
        const Run help = run(tool, {"--help"});
        QCOMPARE(help.exitCode, 0);
        for (const char* sub : {"build", "lint", "inspect", "preview", "rules", "state"})
            QVERIFY2(help.out.contains(
                         QRegularExpression(QString("^  %1 ").arg(sub), QRegularExpression::MultilineOption)),
                     qPrintable(help.out));
        QCOMPARE(help.err, QString());
        const Run version = run(tool, {"--version"});
        QCOMPARE(version.exitCode, 0);
        QCOMPARE(version.out, QString("update-package %1\n").arg(PROJECT_VERSION));
    }

    void misuse_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("usage"); // the usage line that follows
        const QString lint = "usage: update-package lint [--json] [--profile FILE] PACKAGE|DIR";
        const QString top = "usage: update-package SUBCOMMAND";
        QTest::newRow("nothing") << QStringList{} << "name a subcommand" << top;
        QTest::newRow("unknown subcommand")
            << QStringList{"frobnicate"} << "unknown subcommand 'frobnicate'" << top;
        QTest::newRow("unknown option first") << QStringList{"--frob"} << "unknown option '--frob'" << top;
        QTest::newRow("another subcommand's option")
            << QStringList{"lint", "x", "--pc"} << "Unknown option 'pc'" << lint;
        QTest::newRow("no package") << QStringList{"lint"} << "missing PACKAGE|DIR" << lint;
        QTest::newRow("two packages") << QStringList{"lint", "a", "b"} << "unexpected argument 'b'" << lint;
        QTest::newRow("option without its value")
            << QStringList{"lint", "a", "--profile"} << "Missing value after '--profile'" << lint;
        QTest::newRow("build without -o")
            << QStringList{"build", "dir"} << "name the package to write: -o FILE"
            << "usage: update-package build [-o FILE] [--force] [--profile FILE] DIR";
        QTest::newRow("build with --json")
            << QStringList{"build", "dir", "-o", "x", "--json"} << "Unknown option 'json'"
            << "usage: update-package build";
        QTest::newRow("preview's old --out")
            << QStringList{"preview", "p.tar.bz2", "--out", "d"} << "Unknown option 'out'"
            << "usage: update-package preview [--pc] [--out-dir DIR]";
        QTest::newRow("preview with a time-out of no seconds")
            << QStringList{"preview", "p.tar.bz2", "--timeout", "0"}
            << "--timeout takes whole seconds, got '0'"
            << "usage: update-package preview";
        QTest::newRow("rules with an argument")
            << QStringList{"rules", "extra"} << "unexpected argument 'extra'"
            << "usage: update-package rules";
        QTest::newRow("state without its folder") << QStringList{"state"} << "missing DIR"
                                                  << "usage: update-package state DIR";
    }

    void misuse()
    {
        QFETCH(QStringList, args);
        QFETCH(QString, message);
        QFETCH(QString, usage);
        QTemporaryDir work;
        const Run r = run(tool, args, work.path());
        QCOMPARE(r.exitCode, 2);
        QVERIFY2(r.err.contains(message), qPrintable(r.err));
        QVERIFY2(r.err.contains(usage), qPrintable(r.err));
        QCOMPARE(r.out, QString());
        QCOMPARE(run("sh", {"-c", "find . | sort"}, work.path()).out, QString(".\n")); // nothing written
    }

    void subcommandOptions_data()
    {
        QTest::addColumn<QString>("subcommand");
        QTest::addColumn<QStringList>("options");
        QTest::newRow("build") << "build" << QStringList{"--output", "--force", "--profile"};
        QTest::newRow("lint") << "lint" << QStringList{"--json", "--profile"};
        QTest::newRow("inspect") << "inspect" << QStringList{"--json", "--profile"};
        QTest::newRow("preview") << "preview"
                                 << QStringList{"--pc", "--out-dir", "--timeout", "--json", "--profile"};
        QTest::newRow("rules") << "rules" << QStringList{"--json"};
        QTest::newRow("state") << "state" << QStringList{};
    }

    // --help lists exactly the options the subcommand takes; the man page and the completion agree.
    void subcommandOptions()
    {
        QFETCH(QString, subcommand);
        QFETCH(QStringList, options);
        const Run help = run(tool, {subcommand, "--help"});
        QCOMPARE(help.exitCode, 0);
        QVERIFY2(help.out.startsWith("Usage: update-package " + subcommand), qPrintable(help.out));
        const QString section = manSection(subcommand);
        QVERIFY2(!section.isEmpty(), qPrintable("the man page has no section " + subcommand));
        QStringList offered = completions({tool, subcommand, "--"});
        offered.removeAll("--help");
        offered.removeAll("--help-all");
        offered.sort();
        QStringList expected = options;
        expected.sort();
        QCOMPARE(offered, expected);
        for (const QString& option : allOptions) {
            const bool takes = options.contains(option);
            QCOMPARE(help.out.contains(option + ' ') || help.out.contains(option + '\n'), takes);
            QVERIFY2(section.contains(option) == takes,
                     qPrintable(QString("man page, %1: %2").arg(subcommand, option)));
        }
    }

    void completionOffersSubcommands()
    {
        QCOMPARE(completions({tool, "li"}), QStringList{"lint"});
        QCOMPARE(completions({tool, "--v"}), QStringList{"--version"});
        QCOMPARE(completions({tool, "build", "-o", "x", "-"}).contains("--force"), true);
    }

    // Version-control and editor files stay out of the archive, and build says which.
    void buildLeavesOutEditorAndVersionControlFiles()
    {
        const QString folder = m_base.variant("junk", baseConfig,
                                              {{".git/config", {"[core]\n"}},
                                               {"etc/x.conf~", {"old\n"}},
                                               {"etc/.x.conf.swp", {"swap"}},
                                               {".DS_Store", {"ds"}},
                                               {".svn/", {}}});
        QTemporaryDir out;
        const QString target = out.path() + "/JunkM_firmware_update_1.tar.bz2";
        const Run build = run(tool, {"build", folder, "-o", target, "--profile", testProfile});
        QVERIFY2(build.exitCode == 0, qPrintable(build.err));
        QVERIFY2(build.err.contains("left out (version-control and editor files): .DS_Store, .git, .svn, "
                                    "etc/.x.conf.swp, etc/x.conf~"),
                 qPrintable(build.err));
        const Run listing = run("tar", {"-tjf", target});
        QCOMPARE(listing.exitCode, 0);
        QVERIFY2(!listing.out.contains(QRegularExpression("\\.git|\\.svn|~|\\.swp|DS_Store")),
                 qPrintable(listing.out));
        QVERIFY(listing.out.contains("firmware_update/etc/x.conf\n"));
    }

    // The size in bytes and the checksum line exactly as sha256sum writes it.
    void buildPrintsSizeAndChecksum()
    {
        QTemporaryDir out;
        const QString name = "SumM_firmware_update_1.tar.bz2";
        const Run build =
            run(tool, {"build", m_base.base, "-o", out.path() + '/' + name, "--profile", testProfile});
        QCOMPARE(build.exitCode, 0);
        const QStringList lines = build.out.split('\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 2);
        QVERIFY2(lines[0].endsWith(QString(", %1 bytes)").arg(QFileInfo(out.path() + '/' + name).size())),
                 qPrintable(lines[0]));
        QCOMPARE(lines[1] + '\n', run("sha256sum", {name}, out.path()).out);
    }

    void buildOverwrites_data()
    {
        QTest::addColumn<bool>("force");
        QTest::newRow("refused") << false;
        QTest::newRow("with --force") << true;
    }

    void buildOverwrites()
    {
        QFETCH(bool, force);
        QTemporaryDir out;
        const QString target = out.path() + "/OldM_firmware_update_1.tar.bz2";
        writeFile(target, "an earlier package\n");
        QStringList args{"build", m_base.base, "-o", target, "--profile", testProfile};
        if (force)
            args << "--force";
        const Run build = run(tool, args);
        QCOMPARE(build.exitCode, force ? 0 : 1);
        QFile f(target);
        QVERIFY(f.open(QIODevice::ReadOnly));
        QCOMPARE(f.readAll() == "an earlier package\n", !force);
        if (!force)
            QVERIFY2(build.err.contains("exists: not overwritten (--force overwrites it)"),
                     qPrintable(build.err));
    }

    // --force writes past lint errors, never through a link out of the folder.
    void buildRefusesOutwardLinksEvenWithForce()
    {
        const QString folder = m_base.variant("outward", baseConfig, {});
        QCOMPARE(run("ln", {"-s", "../../../etc/passwd", folder + "/passwd"}).exitCode, 0);
        QTemporaryDir out;
        const Run build = run(tool, {"build", folder, "-o", out.path() + "/LinkM_firmware_update_1.tar.bz2",
                                     "--force", "--profile", testProfile});
        QCOMPARE(build.exitCode, 1);
        QVERIFY2(build.err.contains("points out of the folder"), qPrintable(build.err));
        QCOMPARE(QDir(out.path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries), QStringList());
    }
};

QTEST_GUILESS_MAIN(CommandLineTest)
#include "tst_commandline.moc"
