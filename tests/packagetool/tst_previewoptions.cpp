// update-package preview's options on the virtual instrument with the real updater: a package folder as
// input, --json's per-line result and class (the progress on stderr), and --timeout stopping a job that
// does not end.
#include "PackageFixture.h"

using namespace fixture;

class PreviewOptionsTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

    // A package folder with the files given and a version-control folder build leaves out.
    QString folder(const QString& name, const Files& files)
    {
        const QString path = m_dir.path() + '/' + name;
        for (auto it = files.begin(); it != files.end(); ++it)
            writeFile(path + '/' + it.key(), it->data, it->mode);
        writeFile(path + "/.git/HEAD", "ref: refs/heads/main\n");
        return path;
    }

    static Run preview(const QStringList& args)
    {
        const Run r = run("setsid", QStringList{tool, "preview"} + args, QString(), 10 * 60 * 1000);
        if (r.err.contains("SKIPPED") && qEnvironmentVariable("CI") != "true")
            QTest::qSkip("the sandbox is unavailable on this machine (see the message above)", __FILE__,
                         __LINE__);
        return r;
    }

private slots:
    void folderWithJson()
    {
        const QString pkg =
            folder("clean", {{"update_config", {"FILE:/etc/x.conf\n"}}, {"etc/x.conf", {"mode=field\n"}}});
        const QString out = m_dir.path() + "/clean-out";
        const Run r = preview({pkg, "--json", "--timeout", "300", "--out-dir", out, "--profile",
                               repo + "/sim/profile/instrument.profile"});
        QVERIFY2(r.exitCode == 0, qPrintable(r.out + r.err));
        QVERIFY2(r.err.contains("left out (version-control and editor files): .git"), qPrintable(r.err));
        QVERIFY2(r.err.contains("Update complete"), qPrintable(r.err)); // the progress, on stderr
        QJsonParseError error;
        const QJsonObject json = QJsonDocument::fromJson(r.out.toUtf8(), &error).object();
        QVERIFY2(error.error == QJsonParseError::NoError, qPrintable(error.errorString() + ": " + r.out));
        QCOMPARE(json.value("ended").toBool(), true);
        QCOMPARE(json.value("agrees").toBool(), true);
        const QJsonArray lines = json.value("lines").toArray();
        QCOMPARE(lines.size(), 1);
        QCOMPARE(lines[0].toObject().value("text").toString(), QString("FILE:/etc/x.conf"));
        QCOMPARE(lines[0].toObject().value("agrees").toBool(), true);
        // Beside the verdict, what a power cut during the line leaves (the file may come back empty).
        QCOMPARE(lines[0].toObject().value("class").toString(), QString("repairable"));
        QVERIFY2(r.err.contains("\nline 1 FILE:/etc/x.conf: as predicted (power cut: repairable)\n"),
                 qPrintable(r.err));
        QVERIFY(QFileInfo(out + "/view.txt").isFile());
    }

    // A script that outlasts the time-out: the job is stopped, the result says it did not end.
    void timeoutStopsTheJob()
    {
        const QString pkg = folder("slow", {{"update_config", {"SCRIPT:/slow.sh\n"}},
                                            {"slow.sh", {"#!/bin/sh\nsleep 600\n", 0755}}});
        QElapsedTimer clock;
        clock.start();
        const Run r = preview({pkg, "--json", "--timeout", "20", "--out-dir", m_dir.path() + "/slow-out",
                               "--profile", repo + "/sim/profile/instrument.profile"});
        QVERIFY2(r.exitCode == 1, qPrintable(r.out + r.err));
        QVERIFY2(clock.elapsed() < 500 * 1000, qPrintable(QString::number(clock.elapsed()))); // not the 600 s
        const QJsonObject json = QJsonDocument::fromJson(r.out.toUtf8()).object();
        QCOMPARE(json.value("ended").toBool(true), false);
        QCOMPARE(json.value("agrees").toBool(true), false);
        QVERIFY2(r.err.contains("preview: the job did not end within 20 s"), qPrintable(r.err));
        QVERIFY(
            !QFileInfo::exists(m_dir.path() + "/slow-out/end.png")); // no screenshot of an end not reached
    }
};

QTEST_GUILESS_MAIN(PreviewOptionsTest)
#include "tst_previewoptions.moc"
