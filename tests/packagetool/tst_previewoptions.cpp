// update-package preview's options on the virtual instrument with the real updater: a package folder as
// input, --json's per-line result and class (the progress on stderr), --timeout stopping a job that does
// not end, and several packages as one session of one running updater.
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

    // A package made by tar as an engineer's machine makes it: the files under firmware_update/.
    QString archive(const QString& name, const Files& files)
    {
        const QString made = m_dir.path() + "/made-" + name;
        for (auto it = files.begin(); it != files.end(); ++it)
            writeFile(made + "/firmware_update/" + it.key(), it->data, it->mode);
        const QString path = m_dir.path() + '/' + name + "M_firmware_update_1.tar.bz2";
        if (run("tar", {"-cjf", path, "-C", made, "firmware_update"}).exitCode != 0)
            qFatal("tar could not pack %s", qPrintable(made));
        return path;
    }

    static QJsonObject json(const Run& r)
    {
        QJsonParseError error;
        const QJsonObject object = QJsonDocument::fromJson(r.out.toUtf8(), &error).object();
        if (error.error != QJsonParseError::NoError)
            qWarning("not JSON (%s): %s", qPrintable(error.errorString()), qPrintable(r.out + r.err));
        return object;
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

    // Two sticks one after the other, one running updater: the second package relies on what the first
    // left, which only a session and a prediction that starts where the first ended get right. The
    // instrument itself shows it happened: the second's file is there, written as the first left it.
    void severalPackagesAreOneSession_data()
    {
        QTest::addColumn<Files>("first");
        QTest::addColumn<Files>("second");
        QTest::addColumn<QString>("command"); // of the second, in its part of the trace
        QTest::addColumn<QString>("file");    // in the session's folder, with the content below
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<int>("systemLine"); // the line of the first the second inherits the type from
        QByteArray kernel;
        for (int i = 0; i < 3000; ++i)
            kernel.append(char((i * 7 + 3) & 0xFF));
        // SDCARD is kept: without it the kernel would go to NAND (flash_eraseall, nandwrite).
        QTest::newRow("a KERNEL line after SYSTEM:SDCARD")
            << Files{{"update_config", {"SYSTEM:SDCARD\n"}}}
            << Files{{"update_config", {"KERNEL:/uImage\n"}}, {"uImage", {kernel}}}
            << "run sdimage -f /tmp/firmware_update/uImage -d /dev/mmcblk0"
            << "media/mmcblk0" << kernel << 1;
        // The second has no payload: rm meets the file the first installed, cp the one it unpacked.
        QTest::newRow("a file the first installed")
            << Files{{"update_config", {"FILE:/etc/session.conf\n"}}, {"etc/session.conf", {"first\n"}}}
            << Files{{"update_config", {"UPDATER:/etc/session.conf\n"}}} << "run rm /etc/session.conf"
            << "rootfs/etc/session.conf" << QByteArray("first\n") << 0;
    }

    void severalPackagesAreOneSession()
    {
        QFETCH(Files, first);
        QFETCH(Files, second);
        QFETCH(QString, command);
        QFETCH(QString, file);
        QFETCH(QByteArray, content);
        QFETCH(int, systemLine);
        const QString tag = QString(QTest::currentDataTag()).replace(' ', '-');
        const QString out = m_dir.path() + "/session-" + tag;
        const Run r =
            preview({archive(tag + "-1", first), archive(tag + "-2", second), "--json", "--timeout", "300",
                     "--out-dir", out, "--profile", repo + "/sim/profile/instrument.profile"});
        QVERIFY2(r.exitCode == 0, qPrintable(r.out + r.err));
        QVERIFY2(r.err.contains(
                     "in one session on the virtual instrument (memory-stick jobs, one running updater)"),
                 qPrintable(r.err));
        const QJsonObject result = json(r);
        QCOMPARE(result.value("schema").toString(), QString("update-package-preview-session/1"));
        const QJsonArray packages = result.value("packages").toArray();
        QCOMPARE(packages.size(), 2);
        for (const QJsonValue p : packages)
            QVERIFY2(p.toObject().value("agrees").toBool(), qPrintable(r.err));
        QVERIFY(packages[1].toObject().value("package").toString().startsWith(tag + "-2M_"));
        const QJsonObject inherited = packages[1].toObject().value("inheritsSystemType").toObject();
        QCOMPARE(inherited.value("line").toInt(), systemLine);
        if (systemLine > 0)
            QVERIFY2(r.err.contains(
                         "preview: package 2 starts with the system type SD card that line 1 of package 1 "
                         "(SYSTEM:SDCARD) set: the updater keeps it until it restarts\n"),
                     qPrintable(r.err));

        // The second job's own part of the trace, and the instrument as the session left it.
        const QStringList trace = QString::fromUtf8(readAll(out + "/package-2/trace.log")).split('\n');
        QVERIFY2(trace.contains(command), qPrintable(trace.join('\n')));
        QVERIFY2(!trace.contains("view plain " + first.value("update_config").data.trimmed()),
                 "the first package's lines in the second's trace");
        QVERIFY(readAll(out + '/' + file).startsWith(content));
        QVERIFY(QFileInfo(out + "/package-1/end.png").isFile() &&
                QFileInfo(out + "/package-2/view.txt").isFile());
    }

    // A package whose end is not known (a script's own commands) cannot be followed by a prediction, and
    // one that does not end ends the session: the report says so for each, and the exit status is 1.
    void aSessionStopsWhereItCannotGoOn()
    {
        const QString effects = archive("effects", {{"update_config", {"SCRIPT:/fx.sh\n"}},
                                                    {"fx.sh", {"#!/bin/sh\nrm -f /etc/nothing\n", 0755}}});
        const QString slow = archive("stuck", {{"update_config", {"SCRIPT:/slow.sh\n"}},
                                               {"slow.sh", {"#!/bin/sh\nsleep 600\n", 0755}}});
        const QString never = archive("never", {{"update_config", {"SYSTEM:SDCARD\n"}}});
        const Run r =
            preview({effects, slow, never, "--json", "--timeout", "12", "--out-dir",
                     m_dir.path() + "/stopped", "--profile", repo + "/sim/profile/instrument.profile"});
        QVERIFY2(r.exitCode == 1, qPrintable(r.out + r.err));
        const QJsonArray packages = json(r).value("packages").toArray();
        QCOMPARE(packages.size(), 3);
        const QJsonObject stuck = packages[1].toObject();
        QCOMPARE(stuck.value("ran").toBool(), true);
        QCOMPARE(stuck.value("compared").toBool(true), false);
        QCOMPARE(stuck.value("ended").toBool(true), false);
        QCOMPARE(stuck.value("why").toString(),
                 QString("it cannot start where package 1 left the instrument: line 1 (SCRIPT:/fx.sh) runs a "
                         "script whose own commands are not predicted"));
        QCOMPARE(packages[2].toObject().value("ran").toBool(true), false);
        QVERIFY2(
            r.err.contains("package 3 neverM_firmware_update_1.tar.bz2: not run: package 2 did not end\n"),
            qPrintable(r.err));
    }
};

QTEST_GUILESS_MAIN(PreviewOptionsTest)
#include "tst_previewoptions.moc"
