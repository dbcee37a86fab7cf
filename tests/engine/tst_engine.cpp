// The update engine driven by the soft keys: real screens, packages made by tar, stub commands logging
// to $SIM_STATE/calls.log, a throwaway overlay root. Each case starts a fresh shell (SYSTEM lasts a run).
#include "Canvas.h"
#include "KeyboardEventFilter.h"
#include "UpdaterMainScreen.h"
#include "UpdaterProgressScreen.h"

#include "../support/TestFiles.h"

#include <QtTest> // with all of QtCore
#include <QtWidgets>

#include <memory>

using namespace testfiles;

namespace {

// The prompt each main-menu key's job opens with.
const QMap<int, QString> prompts = {
    {Qt::Key_F2, "Attach the unit to the PC via the USB cable provided then press F1\n"},
    {Qt::Key_F3,
     "Insert a memory stick containing the update_firmware.tar.bz2 file into the unit then press F1\n"},
    {Qt::Key_F4, "Are you Sure?, Press F1 to continue\n"},
    {Qt::Key_F5, "Are you Sure?, All test results and settings will be lost, Press F1 to continue\n"}};
const QString processing = "Processing update\n", kernel = "Updating kernel with file: /uImage";
const QString extracting = "Extracting update, please do not interrupt...\n";
const QString reading = "Reading update file\nCommand list: ", initialising = "Initialising PC connection";
const QString copyNow = "Copy the firmware_update_tar.bz2 file to the unit and press F1\n";

const QStringList f1Umounts = {"umount /mnt/update", "umount /run/media/mmcblk0p6", "umount /run/media/sda1"};
const QString mountSda = "mount /dev/sda /mnt/update", mountSda1 = "mount /dev/sda1 /mnt/update";
const QString gadgetLoad = "modprobe g_mass_storage file=/dev/mmcblk0p6 removable=1";
const QString gadgetUnload = "modprobe -r g_mass_storage", mountPc = "mount /dev/mmcblk0p6 /mnt/update";
// The PC job up to the package: the gadget for the copy, the F1's unmounts, the gadget gone.
const QStringList pcCopy = QStringList{gadgetLoad} + f1Umounts + QStringList{gadgetUnload};
const QString nandRemount = "mount ubi0:rootfs -o remount,rw", releaseP1 = "umount /run/media/mmcblk0p1";
const QString syncDisks = "sync", umountUpdate = "umount /mnt/update";
const QString sdimage = "sdimage -f /tmp/firmware_update/uImage -d /dev/mmcblk0";

const auto red = [](const QString& message) { return "<p style=\"color:red\">" + message + "</p>"; };
const auto green = [](const QString& message) { return "<p style=\"color:green\">" + message + "</p>"; };

// The end of a job's last message, and a red one that ends a job.
const QString end = ", press F1 to return to the main screen\n";
const auto ends = [](const QString& message) { return red(message + end); };
const QString noPackage = ends("Could not find update file"),
              mountFailed = ends("Failed to mount update drive");
const QString wrongType = red("Failed - Updating root image with file: /rootfs.ubifs\nWrong System type");

QStringList times(int count, const QStringList& lines)
{
    return count > 0 ? lines + times(count - 1, lines) : QStringList();
}

// A command's progress line, then `failures` times its red "Failed - " line.
QStringList step(const QString& line, int failures = 0)
{
    return QStringList{line} + times(failures, {red("Failed - " + line)});
}

// What a package run shows from "Processing update" on.
QStringList packageView(const QStringList& config, const QStringList& steps, bool ok)
{
    return QStringList{processing, extracting, reading} + config + QStringList{"\n"} + steps +
           QStringList{
               "Finalising update, please wait. ", "Removing temporary files\n",
               ok ? green("Update complete, restart the system or press F1 to return to the main screen\n")
                  : ends("Some of the updates failed")};
}

const QString stateDir = qEnvironmentVariable("SIM_STATE");
const auto media = [](const QString& name) { return stateDir + "/media/" + name; };

// Deterministic payload bytes, different per seed.
QByteArray payload(int size, int seed)
{
    QByteArray bytes;
    for (QRandomGenerator random(seed); bytes.size() < size;)
        bytes.append(char(random.generate()));
    return bytes;
}

QStringList entries(const QString& dir)
{
    return QDir(dir).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
}

// The simulated flash (mtd0 2 MiB, mtd1 8 MiB) holds the image, then erased bytes (0xFF).
bool flashHolds(const QString& device, const QByteArray& image)
{
    const int size = (device == "mtd0" ? 2 : 8) * 1024 * 1024;
    return readAll(media(device)) == image + QByteArray(size - image.size(), char(0xFF));
}

struct Package
{
    QStringList config;
    QMap<QString, QByteArray> files; // path below firmware_update -> content; "*.sh" become executable
    QString lineEnd = "\n";
    bool withConfig = true;
};

// A bzip2-compressed tar archive with the top directory firmware_update, made by the real tar.
void writePackage(const QString& path, const Package& package)
{
    QTemporaryDir work;
    const QString top = work.path() + "/firmware_update";
    if (package.withConfig) // every line ended, an empty list an empty file
        writeFile(top + "/update_config", (package.config + QStringList{""}).join(package.lineEnd).toUtf8());
    for (auto it = package.files.cbegin(); it != package.files.cend(); ++it)
        writeFile(top + it.key(), it.value(), it.key().endsWith(".sh") ? 0755 : 0644);
    QDir().mkpath(QFileInfo(path).path());
    if (QProcess::execute("tar", {"-cjf", path, "-C", work.path(), "firmware_update"}) != 0)
        qFatal("tar could not make the package %s", qPrintable(path));
}

// A job that runs no package command (or an empty list). Files on the media: "medium/name" an empty package,
// with " no-list" one without its command list, with " garbage" no archive at all.
struct Job
{
    QStringList files, commands, appended; // commands after the first F1's unmounts, appended to the prompt
    Qt::Key key = Qt::Key_F3;
    QStringList faults = {};
};

} // namespace

Q_DECLARE_METATYPE(Job)

class EngineTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<Canvas> m_canvas;
    UpdaterMainScreen* m_main = nullptr;
    UpdaterProgressScreen* m_progress = nullptr;
    QTextEdit* m_view = nullptr;
    QString m_prompt; // of the running job

    QStringList calls() { return QString(readAll(stateDir + "/calls.log")).split('\n', Qt::SkipEmptyParts); }
    void clearCalls() { writeFile(stateDir + "/calls.log", QByteArray()); }
    // The real mount, not the stub: "remount,bind,rw" makes the throwaway root writable, "...,ro" not.
    bool remountRoot(const char* mode) { return QProcess::execute("/usr/bin/mount", {"-o", mode, "/"}) == 0; }
    void setFaults(QStringList rules) { writeFile(stateDir + "/faults", (rules.join('\n') + '\n').toUtf8()); }

    // Files the instrument already carries before an update, written into the throwaway root.
    void prepareRoot(const QStringList& files)
    {
        QVERIFY(remountRoot("remount,bind,rw"));
        for (const QString& file : files)
            writeFile(file, "old");
        QVERIFY(remountRoot("remount,bind,ro"));
    }

    // A soft key on the visible screen; the animated click's clicked() comes later and runs the job.
    bool press(Qt::Key key)
    {
        QWidget* screen = m_main->isVisible() ? static_cast<QWidget*>(m_main) : m_progress;
        QSignalSpy clicked(screen->findChild<QAbstractButton*>(QKeySequence(key).toString() + "Button"),
                           &QAbstractButton::clicked);
        QApplication::setActiveWindow(m_canvas.get());
        QTest::keyClick(QApplication::activeWindow(), key);
        return clicked.isValid() && clicked.wait(60000);
    }

    // Chooses a job on the main menu; the call log starts empty for it.
    bool startJob(Qt::Key mainMenuKey)
    {
        clearCalls();
        m_prompt = prompts.value(mainMenuKey);
        return m_main->isVisible() && press(mainMenuKey) && m_progress->isVisible();
    }

    // The memory-stick job with this package on the stick: the first F1 runs it all.
    bool runStick(const Package& package, const QString& file = "sda/M_firmware_update.tar.bz2")
    {
        writePackage(media(file), package);
        return startJob(Qt::Key_F3) && press(Qt::Key_F1);
    }

    // The commands after the first F1's unmounts, the view (prompt + appended, same blanks and colours),
    // then the RESTART F1: it only unmounts and returns to the main menu.
    void checkRun(const QStringList& commands, const QStringList& appended)
    {
        QCOMPARE(calls(), f1Umounts + commands);
        UpdaterProgressScreen reference; // the same form, fed directly
        QTextEdit* expected = reference.findChild<QTextEdit*>("progressMessageWindow");
        expected->setText(m_prompt);
        for (const QString& text : appended)
            expected->append(text);
        QCOMPARE(m_view->toHtml().split('\n'), expected->toHtml().split('\n')); // a paragraph a line

        clearCalls();
        QVERIFY(press(Qt::Key_F1) && m_main->isVisible() && !m_progress->isVisible());
        QCOMPARE(calls(), f1Umounts);
    }

    static void addJob(const char* name, const QStringList& files, const QStringList& commands,
                       const QStringList& appended, Qt::Key key = Qt::Key_F3, const QStringList& faults = {})
    {
        QTest::newRow(name) << Job{files, commands, appended, key, faults};
    }

private slots:
    void initTestCase()
    {
        // Only the sandbox's throwaway overlay root names our state directory as its upper layer.
        if (!readAll("/proc/self/mountinfo").contains(("upperdir=" + stateDir + "/rootfs").toUtf8()) ||
            !QStandardPaths::findExecutable("mount").startsWith(qEnvironmentVariable("SIM_STUBS", "unset"))) {
            const char* why = "these tests install into the root file system: they run only in sim/sandbox "
                              "started as root (stub commands first on PATH, throwaway overlay root)";
            QVERIFY2(qEnvironmentVariable("CI") != "true", why); // a CI run fails instead
            QSKIP(why);
        }
        qApp->installEventFilter(KeyboardEventFilter::instance());
    }

    // Nothing mounted, read-only root, an empty transfer partition and no other media, no unpacked
    // package, empty log and no faults.
    void init()
    {
        QProcess::execute("/usr/bin/umount", {"-q", "/mnt/update"}); // after a failed case
        QVERIFY(remountRoot("remount,bind,ro"));
        for (const char* medium : {"sda", "sda1", "mmcblk0p6"})
            QDir(media(medium)).removeRecursively();
        QDir().mkpath(media("mmcblk0p6"));
        QFile::remove(stateDir + "/gadget");
        QFile::remove(stateDir + "/system");
        QDir("/tmp/firmware_update").removeRecursively();
        setFaults({}); // startJob() empties the call log
        m_canvas = std::make_unique<Canvas>();
        m_main = m_canvas->findChild<UpdaterMainScreen*>();
        m_progress = m_canvas->findChild<UpdaterProgressScreen*>();
        m_view = m_canvas->findChild<QTextEdit*>("progressMessageWindow");
        QVERIFY(m_main && m_progress && m_view);
        m_canvas->showScreen(Canvas::MAIN_SCREEN_INDEX);
        m_canvas->setGeometry(0, 0, 478, 270);
        m_canvas->show();
        QApplication::setActiveWindow(m_canvas.get());
        QVERIFY(QTest::qWaitForWindowActive(m_canvas.get()));
    }

    void cleanup() { m_canvas.reset(); }

    // Stick jobs that end before any command runs or with an empty list, PC jobs that end before the
    // package, and the formatting jobs (F5 the storage area, F4 the transfer area, each by its script).
    void jobWithoutPackageCommands_data()
    {
        QTest::addColumn<Job>("job");
        // No partition table: the whole disk mounts at the first command. None of these names matches.
        addJob("hidden file, no M, other suffix",
               {"sda/.M_firmware_update.tar.bz2", "sda/firmware_update.tar.bz2",
                "sda/xM_firmware_update.tar.gz"},
               {mountSda}, {processing, extracting, noPackage});
        // One partition: the second command of the first pass mounts it. Two packages are as bad as none.
        addJob("two packages on the partition",
               {"sda1/aM_firmware_update.tar.bz2", "sda1/bM_firmware_update.tar.bz2"}, {mountSda, mountSda1},
               {processing, extracting, noPackage});
        addJob("no stick: 11 passes of both commands", {}, times(11, {mountSda, mountSda1}),
               {processing, mountFailed});
        // An empty list only finalises, and counts as success.
        addJob("empty command list", {"sda/M_firmware_update.tar.bz2"}, {mountSda, syncDisks, umountUpdate},
               packageView({}, {}, true));
        addJob("package without its command list", {"sda/M_firmware_update.tar.bz2 no-list"}, {mountSda},
               {processing, extracting, reading, ends("Failed to open update file")});
        addJob("no archive at all", {"sda/M_firmware_update.tar.bz2 garbage"}, {mountSda},
               {processing, extracting, ends("Failed to extract update files")});
        // The gadget will not unload, or the partition will not mount: the job ends there.
        addJob("gadget stays", {}, pcCopy, {initialising, copyNow, ends("Failed to close PC connection")},
               Qt::Key_F2, {"1 1 modprobe -r *"});
        addJob("partition does not mount", {}, pcCopy + QStringList{mountPc},
               {initialising, copyNow, processing, mountFailed}, Qt::Key_F2, {"1 1 mount /dev/mmcblk0p6 *"});
        addJob("F5 storage", {}, {"format_sdcard.sh"},
               {"Formating SDCard\n", green("Successfully Formated SDCard" + end)}, Qt::Key_F5);
        addJob("F4 transfer", {}, {"format_transfer.sh"},
               {"Formating Transfer area\n", green("Successfully Formated Transfer area" + end)}, Qt::Key_F4);
        addJob("F5 storage, fails", {}, {"format_sdcard.sh"},
               {"Formating SDCard\n", ends("Failed to Format SDCard")}, Qt::Key_F5, {"1 1 format_sdcard.sh"});
        addJob("F4 transfer, fails", {}, {"format_transfer.sh"},
               {"Formating Transfer area\n", ends("Failed to Format Transfer area")}, Qt::Key_F4,
               {"1 1 format_transfer.sh"});
    }

    void jobWithoutPackageCommands()
    {
        QFETCH(Job, job);
        setFaults(job.faults);
        for (const QString& file : job.files) {
            const QString path = media(file.section(' ', 0, 0));
            if (file.endsWith(" garbage"))
                writeFile(path, "not an archive");
            else
                writePackage(path, {{}, {{"/uImage", "k"}}, "\n", !file.endsWith(" no-list")});
        }
        // The PC job takes a second F1 after its copy.
        QVERIFY(startJob(job.key) && press(Qt::Key_F1) && (job.key != Qt::Key_F2 || press(Qt::Key_F1)));
        checkRun(job.commands, job.appended);
    }

    void nandCommandsSucceed()
    {
        prepareRoot({"/usr/bin/engine-updater", "/lib/modules/engine-old/engine-old.ko"});
        // The modules archive holds only the module, no directory entries: unpacking over / follows links.
        QTemporaryDir tmp;
        const QString module = "lib/modules/engine-new/engine-new.ko";
        writeFile(tmp.filePath(module), "new module");
        QCOMPARE(QProcess::execute("tar", {"-cf", tmp.filePath("m.tar"), "-C", tmp.path(), module}), 0);
        const Package package{{"KERNEL:/uImage", "IMAGE:/rootfs.ubifs", "APP:/bin/mainApp",
                               "FILE:/etc/engine-test.conf", "UPDATER:/usr/bin/engine-updater",
                               "MODULES:/modules.tar", "SCRIPT:/run.sh"},
                              {{"/uImage", payload(5000, 1)},
                               {"/rootfs.ubifs", payload(70000, 2)},
                               {"/bin/mainApp", payload(3000, 3)},
                               {"/etc/engine-test.conf", "setting=1\n"},
                               {"/usr/bin/engine-updater", payload(4000, 4)},
                               {"/modules.tar", readAll(tmp.filePath("m.tar"))},
                               {"/run.sh", "#!/bin/sh\necho \"$0 $#\" > \"$SIM_STATE/script-ran\"\n"}}};
        QVERIFY(runStick(package, "sda1/abcM_FIRMWARE_UPDATE_v2.TAR.BZ2")); // names match in any case
        checkRun({mountSda, mountSda1, "flash_eraseall /dev/mtd0",
                  "nandwrite /dev/mtd0 /tmp/firmware_update/uImage -p", "flash_eraseall /dev/mtd1",
                  "ubiformat /dev/mtd1 -f /tmp/rootfs.ubifs", nandRemount, releaseP1, nandRemount, releaseP1,
                  nandRemount, syncDisks, umountUpdate},
                 packageView(package.config,
                             {kernel, "Updating root image with file: /rootfs.ubifs",
                              "Updating Application with file: /bin/mainApp",
                              "Updating root files with folder: /etc/engine-test.conf",
                              "Updating the updater app with: /usr/bin/engine-updater",
                              "Updating Linux modules with: /modules.tar", "Running script file: /run.sh"},
                             true));
        QVERIFY(flashHolds("mtd0", package.files.value("/uImage")));
        QVERIFY(flashHolds("mtd1", package.files.value("/rootfs.ubifs")));
        QVERIFY(QFileInfo("/tmp/ubiformat").isExecutable()); // the tool ran from its copy
        QCOMPARE(readAll("/home/mainApp"), package.files.value("/bin/mainApp"));
        for (const char* file : {"/etc/engine-test.conf", "/usr/bin/engine-updater"})
            QCOMPARE(readAll(file), package.files.value(file));
        QVERIFY(!QFileInfo::exists("/lib/modules/engine-old"));
        QCOMPARE(readAll("/lib/modules/engine-new/engine-new.ko"), QByteArray("new module"));
        QCOMPARE(readAll(stateDir + "/script-ran"), QByteArray("/tmp/firmware_update/run.sh 0\n"));
        // The stick keeps its files; the unpacked package stays in /tmp.
        QCOMPARE(entries(media("sda1")), QStringList{"abcM_FIRMWARE_UPDATE_v2.TAR.BZ2"});
        QVERIFY(QFileInfo::exists("/tmp/firmware_update/update_config"));
    }

    void nandCommandsFail()
    {
        prepareRoot({"/usr/bin/engine-b", "/usr/bin/engine-c", "/lib/modules/engine-keep/k.ko"});
        // Remounts, in order: APP 1 (fails), APP 2, APP 3 (fails), UPDATER a, b (fails), c, d, FILE.
        setFaults({"5 1 flash_eraseall /dev/mtd0", "4 1 nandwrite *", "1 1 mount ubi0:rootfs *",
                   "1 3 mount ubi0:rootfs *", "1 5 mount ubi0:rootfs *"});
        const Package package{{"KERNEL:/uImage", "KERNEL:/uImage", "IMAGE:/images/rootfs.ubifs",
                               "APP:/mainApp", "APP:/missing", "APP:/missing", "UPDATER:/usr/bin/engine-a",
                               "UPDATER:/usr/bin/engine-b", "UPDATER:/usr/bin/engine-c",
                               "UPDATER:/usr/bin/engine-d", "FILE:/etc/engine-nodir/x.conf",
                               "MODULES:/missing.tar", "SCRIPT:/fail.sh", "SCRIPT:/absent.sh"},
                              {{"/images/rootfs.ubifs", payload(9000, 8)},
                               {"/mainApp", payload(2000, 6)},
                               {"/usr/bin/engine-a", "new a"},
                               {"/etc/engine-nodir/x.conf", "x"},
                               {"/fail.sh", "#!/bin/sh\nexit 3\n"}}};
        QVERIFY(runStick(package));

        const QString missingApp = "Updating Application with file: /missing",
                      updater = "Updating the updater app with: /usr/bin/engine-";
        checkRun(QStringList{mountSda, "flash_eraseall /dev/mtd0", "flash_eraseall /dev/mtd0",
                             "nandwrite /dev/mtd0 /tmp/firmware_update/uImage -p", "flash_eraseall /dev/mtd1",
                             "ubiformat /dev/mtd1 -f /tmp/images/rootfs.ubifs", nandRemount, nandRemount,
                             nandRemount} +
                     times(5, {releaseP1, nandRemount}) + QStringList{syncDisks, umountUpdate},
                 packageView(package.config,
                             step(kernel, 1) + step(kernel, 1) +
                                 step("Updating root image with file: /images/rootfs.ubifs", 1) +
                                 step("Updating Application with file: /mainApp", 1) + step(missingApp, 1) +
                                 step(missingApp, 2) + step(updater + "a", 1) + step(updater + "b", 1) +
                                 step(updater + "c", 1) + step(updater + "d", 2) +
                                 step("Updating root files with folder: /etc/engine-nodir/x.conf", 1) +
                                 step("Updating Linux modules with: /missing.tar", 1) +
                                 step("Running script file: /fail.sh", 1) +
                                 step("Running script file: /absent.sh", 1),
                             false));

        // Nothing was written after a failed step, and what failed steps did stays done.
        QVERIFY(flashHolds("mtd0", {}));
        QVERIFY(flashHolds("mtd1", {})); // erased before the image name turned out wrong
        QCOMPARE(readAll("/home/mainApp"), package.files.value("/mainApp")); // although the remount failed
        QCOMPARE(readAll("/usr/bin/engine-a"), QByteArray("new a"));
        // Updater b removed, then its remount failed; c removed, then nothing to copy; no folder made for the
        // failed file; the old modules go before the archive is read.
        for (auto gone : {"/usr/bin/engine-b", "/usr/bin/engine-c", "/etc/engine-nodir", "/lib/modules"})
            QVERIFY2(!QFileInfo::exists(gone), gone);
    }

    void sdcardCommandsAndAppFailures()
    {
        writeFile(stateDir + "/system", "sdcard");
        setFaults({"1 2 sdimage *"});
        // CR LF line ends: "SDCARD" still arrives without the carriage return.
        const Package package{
            {"SYSTEM:SDCARD", "KERNEL:/uImage", "KERNEL:/uImage", "IMAGE:/rootfs.ubifs", "APP:/mainApp",
             "FILE:/etc/engine-sd.conf"},
            {{"/uImage", payload(6000, 9)}, {"/mainApp", payload(1500, 10)}, {"/etc/engine-sd.conf", "sd"}},
            "\r\n"};
        QVERIFY(runStick(package, "sda/sdM_firmware_update.tar.bz2"));

        checkRun({mountSda, sdimage, sdimage, "mount / -o remount,rw", releaseP1, "mount / -o remount,rw",
                  syncDisks, umountUpdate},
                 packageView(package.config,
                             QStringList{"System Type set to: SDCARD", kernel} + step(kernel, 1) +
                                 QStringList{"Updating root image with file: /rootfs.ubifs", wrongType,
                                             "Updating Application with file: /mainApp",
                                             "Updating root files with folder: /etc/engine-sd.conf"},
                             false));
        QVERIFY(readAll(media("mmcblk0")).startsWith(package.files.value("/uImage")));
        QCOMPARE(readAll("/home/mainApp"), package.files.value("/mainApp"));
        QCOMPARE(readAll("/etc/engine-sd.conf"), QByteArray("sd"));
    }

    void pcJob()
    {
        writeFile(media("mmcblk0p6") + "/notes.txt", "old notes");
        setFaults({"1 1 modprobe g_mass_storage *"});

        // A failed gadget load keeps the first stage: the next F1 tries again.
        QVERIFY(startJob(Qt::Key_F2) && press(Qt::Key_F1) && press(Qt::Key_F1));

        // The PC copies the package and more onto the partition.
        const Package package{{"SYSTEM:SDCARD", "KERNEL:/uImage"}, {{"/uImage", payload(4096, 12)}}};
        writePackage(media("mmcblk0p6/pcM_firmware_update.tar.bz2"), package);
        for (const char* file : {"/firmware_update/leftover.bin", "/keep/inner.txt", "/.hidden"})
            writeFile(media("mmcblk0p6") + file, "x");
        QVERIFY(press(Qt::Key_F1));

        checkRun(
            QStringList{gadgetLoad} + f1Umounts + pcCopy +
                QStringList{mountPc, sdimage, syncDisks, syncDisks, umountUpdate},
            QStringList{initialising,
                        red("Failed to initialise PC connection press F1 to return to the main screen\n"),
                        initialising, copyNow} +
                packageView(package.config, {"System Type set to: SDCARD", kernel}, true));
        QVERIFY(readAll(media("mmcblk0")).startsWith(package.files.value("/uImage")));
        // Every top-level file went, hidden ones and directories with files aside.
        QCOMPARE(entries(media("mmcblk0p6")), QStringList({".hidden", "keep"}));
        QCOMPARE(entries(media("mmcblk0p6") + "/keep"), QStringList({"inner.txt"}));
    }

    void unknownSystemBadLinesPicAndEsa()
    {
        const Package package{
            {"SYSTEM:NAND", "KERNEL:/uImage", "IMAGE:/rootfs.ubifs", "APP:/mainApp",
             "FILE:/etc/engine-unknown.conf", "UPDATER:/usr/bin/engine-u", "SYSTEM:FLASH", "", "APP:/a:b",
             "APP :/x", "XYZ:1", "PIC:/missing.hex", "PIC1:/missing.hex", "PIC1x:/missing.hex",
             "ESA_IO_APP:/io.bin", "ESA_M_APP:/m.bin", "ESA_IO_EEP:/io.eep", "xESA_M_EEPx:/m.eep"},
            {{"/mainApp", payload(1200, 13)}, {"/etc/engine-unknown.conf", "u"}, {"/usr/bin/engine-u", "u"}}};
        QVERIFY(runStick(package));

        const QString badFormat = red("Bad command format.   ");
        auto pic = [](const QString& index, int number) {
            return QStringList{"Updating PIC " + index + " with file: /missing.hex",
                               red(QString("Failed - Updating PIC[%1] with file /missing.hex").arg(number))};
        };
        auto esa = [](const QString& board, const QString& file) {
            const QString line = "Updating ESA " + board + " with file: " + file;
            return QStringList{line, red("Failed - AVR updates not enabled"), red("Failed - " + line)};
        };
        // SYSTEM:NAND leaves no remount command: nothing is logged for it, and no kernel tool runs.
        checkRun(
            {mountSda, releaseP1, releaseP1, syncDisks, umountUpdate},
            packageView(package.config,
                        QStringList{"System Type set to: NAND", kernel,
                                    "Updating root image with file: /rootfs.ubifs", wrongType} +
                            step("Updating Application with file: /mainApp", 1) +
                            step("Updating root files with folder: /etc/engine-unknown.conf", 1) +
                            step("Updating the updater app with: /usr/bin/engine-u", 2) +
                            QStringList{"System Type error: Unknown Type: FLASH", badFormat, badFormat,
                                        red("Unknown command: APP :/x"), red("Unknown command: XYZ:1")} +
                            pic("", 0) + pic("1", 1) + pic("1x", 0) + esa("IO Board Application", "/io.bin") +
                            esa("Measurement Board Application", "/m.bin") +
                            esa("IO Board EEPROM", "/io.eep") + esa("Measurement Board EEPROM", "/m.eep"),
                        false));
        // The copy still runs after the failed remount.
        QCOMPARE(readAll("/home/mainApp"), package.files.value("/mainApp"));
        QVERIFY(!QFileInfo::exists("/etc/engine-unknown.conf"));
        QVERIFY(!QFileInfo::exists("/usr/bin/engine-u"));
    }
};

QTEST_MAIN(EngineTest)
#include "tst_engine.moc"
