// The update engine driven by the soft keys, as a technician drives it: the real screens, real packages
// made by tar, the stub target commands of sim/stubs recording every command line in $SIM_STATE/calls.log,
// and a throwaway overlay root whose upper layer shows what an update installed.
//
// The system type set by a SYSTEM command lasts for the rest of the program run, as on the instrument,
// so the cases run in their declared order: NAND cases first (the start-up type), then SDCARD ones, then
// the unknown type, from which nothing leads back.
#include "Canvas.h"
#include "KeyboardEventFilter.h"
#include "UpdaterMainScreen.h"
#include "UpdaterProgressScreen.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTextEdit>
#include <QtTest>

#include <memory>

namespace {

const QString stickPrompt =
    "Insert a memory stick containing the update_firmware.tar.bz2 file into the unit then press F1\n";
const QString pcPrompt = "Attach the unit to the PC via the USB cable provided then press F1\n";
const QString sdcardPrompt =
    "Are you Sure?, All test results and settings will be lost, Press F1 to continue\n";
const QString transferPrompt = "Are you Sure?, Press F1 to continue\n";

const QString processing = "Processing update\n";
const QString extracting = "Extracting update, please do not interrupt...\n";
const QString reading = "Reading update file\nCommand list: ";
const QString finalising = "Finalising update, please wait. ";
const QString removing = "Removing temporary files\n";

const QStringList f1Umounts = {"umount /mnt/update", "umount /run/media/mmcblk0p6", "umount /run/media/sda1"};

QString red(const QString& message)
{
    return "<p style=\"color:red\">" + message + "</p>";
}

QString green(const QString& message)
{
    return "<p style=\"color:green\">" + message + "</p>";
}

const QString updateComplete =
    green("Update complete, restart the system or press F1 to return to the main screen\n");
const QString someFailed = red("Some of the updates failed, press F1 to return to the main screen\n");
const QString noPackage = red("Could not find update file, press F1 to return to the main screen\n");
const QString mountFailed = red("Failed to mount update drive, press F1 to return to the main screen\n");

QString stateDir()
{
    return qEnvironmentVariable("SIM_STATE");
}

QString media(const QString& name)
{
    return stateDir() + "/media/" + name;
}

// Deterministic payload bytes, different per seed.
QByteArray payload(int size, int seed)
{
    QByteArray bytes(size, Qt::Uninitialized);
    quint32 x = 2166136261u ^ quint32(seed);
    for (int i = 0; i < size; ++i) {
        x = x * 1103515245u + 12345u;
        bytes[i] = char(x >> 24);
    }
    return bytes;
}

QByteArray readAll(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}

void writeFile(const QString& path, const QByteArray& bytes, bool executable = false)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size())
        qFatal("cannot write %s", qPrintable(path));
    if (executable)
        file.setPermissions(file.permissions() | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther);
}

int run(const QString& program, const QStringList& arguments)
{
    return QProcess::execute(program, arguments);
}

bool isMountPoint(const QString& path)
{
    return run("/usr/bin/mountpoint", {"-q", path}) == 0;
}

bool setRootWritable(bool writable)
{
    return run("/usr/bin/mount", {"-o", writable ? "remount,bind,rw" : "remount,bind,ro", "/"}) == 0;
}

// Where the overlay's upper layer keeps a file of the root written during the run.
QString upperLayer(const QString& path)
{
    const QFileInfo info(path);
    return stateDir() + "/rootfs" + QFileInfo(info.path()).canonicalFilePath() + "/" + info.fileName();
}

QStringList entries(const QString& dir)
{
    return QDir(dir).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
}

// True when the first bytes of the simulated device hold the image and the rest of it is erased.
bool flashHolds(const QString& device, const QByteArray& image, int size)
{
    const QByteArray content = readAll(media(device));
    return content.size() == size && content.startsWith(image) &&
           content.mid(image.size()).count(char(0xFF)) == size - image.size();
}

bool fullyErased(const QString& device, int size)
{
    return flashHolds(device, QByteArray(), size);
}

const int mtd0Size = 2 * 1024 * 1024;
const int mtd1Size = 8 * 1024 * 1024;

struct Package
{
    QStringList config;
    QMap<QString, QByteArray> files; // path below firmware_update -> content; "*.sh" become executable
    QString lineEnd = "\n";
    bool withConfig = true;
};

// A bzip2-compressed tar archive with the top directory firmware_update, made by the real tar.
void writePackage(const QString& dir, const QString& name, const Package& package)
{
    QTemporaryDir work;
    const QString top = work.path() + "/firmware_update";
    QDir().mkpath(top);
    if (package.withConfig) {
        const QString text =
            package.config.isEmpty() ? QString() : package.config.join(package.lineEnd) + package.lineEnd;
        writeFile(top + "/update_config", text.toUtf8());
    }
    for (auto it = package.files.cbegin(); it != package.files.cend(); ++it)
        writeFile(top + it.key(), it.value(), it.key().endsWith(".sh"));
    QDir().mkpath(dir);
    if (run("tar", {"-cjf", dir + "/" + name, "-C", work.path(), "firmware_update"}) != 0)
        qFatal("tar could not make the package %s", qPrintable(name));
}

// A modules archive holding only lib/modules/<name>/<name>.ko (no directory entries, so unpacking it
// over / follows the root's own directory links).
QByteArray modulesArchive(const QString& name, const QByteArray& module)
{
    QTemporaryDir work;
    const QString member = "lib/modules/" + name + "/" + name + ".ko";
    writeFile(work.path() + "/" + member, module);
    const QString archive = work.path() + "/modules.tar";
    if (run("tar", {"-cf", archive, "-C", work.path(), member}) != 0)
        qFatal("tar could not make the modules archive");
    return readAll(archive);
}

bool rootIsThrowawayOverlay()
{
    QFile mountInfo("/proc/self/mountinfo");
    if (!mountInfo.open(QIODevice::ReadOnly))
        return false;
    const QString upper = "upperdir=" + stateDir() + "/rootfs";
    for (const QByteArray& line : mountInfo.readAll().split('\n')) {
        const QList<QByteArray> fields = line.split(' ');
        if (fields.size() > 4 && fields.at(4) == "/" && line.contains(" - overlay ") &&
            QString::fromUtf8(line).contains(upper))
            return true;
    }
    return false;
}

} // namespace

class EngineTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void stickLayoutsAndPackageNames();
    void nandCommandsSucceed();
    void nandCommandsFail();
    void sdcardCommandsAndAppFailures();
    void pcJobEmptiesTransferPartition();
    void pcJobConnectionFailures();
    void unknownSystemBadLinesPicAndEsa();
    void emptyListAndBrokenPackages();
    void formatJobs();

private:
    bool press(Qt::Key key);
    bool startJob(Qt::Key mainMenuKey, const QString& prompt);
    bool returnsToMainMenu();
    void checkView(const QString& prompt, const QStringList& appended);
    QStringList calls() const;
    void clearCalls();
    void setFaults(const QStringList& rules);
    void prepareRoot(const QMap<QString, QByteArray>& files, const QStringList& directories = {});

    std::unique_ptr<Canvas> m_canvas;
    UpdaterMainScreen* m_main = nullptr;
    UpdaterProgressScreen* m_progress = nullptr;
    QTextEdit* m_view = nullptr;
};

void EngineTest::initTestCase()
{
    const QString stubs = qEnvironmentVariable("SIM_STUBS");
    if (stateDir().isEmpty() || stubs.isEmpty() || !rootIsThrowawayOverlay() ||
        !QStandardPaths::findExecutable("mount").startsWith(stubs)) {
        const char* why = "the engine tests install files into the root file system: they run only inside "
                          "sim/sandbox started as root (stub commands first on PATH, throwaway overlay root)";
        if (qEnvironmentVariable("CI") == "true")
            QFAIL(why);
        QSKIP(why);
    }

    qApp->installEventFilter(KeyboardEventFilter::instance());
    m_canvas = std::make_unique<Canvas>();
    m_main = m_canvas->findChild<UpdaterMainScreen*>();
    m_progress = m_canvas->findChild<UpdaterProgressScreen*>();
    QVERIFY(m_main && m_progress);
    m_view = m_progress->findChild<QTextEdit*>("progressMessageWindow");
    QVERIFY(m_view);
    m_canvas->showScreen(Canvas::MAIN_SCREEN_INDEX);
    m_canvas->setGeometry(0, 0, 478, 270);
    m_canvas->show();
    QApplication::setActiveWindow(m_canvas.get());
    QVERIFY(QTest::qWaitForWindowActive(m_canvas.get()));
}

void EngineTest::cleanupTestCase()
{
    if (m_canvas && isMountPoint("/mnt/update")) // only inside the sandbox
        run("/usr/bin/umount", {"/mnt/update"});
}

// Each case starts from the main menu, nothing mounted, read-only root, no media, empty log and no faults.
void EngineTest::init()
{
    if (!m_main->isVisible()) // an earlier case failed half-way: Back
        QVERIFY(press(Qt::Key_F3));
    if (isMountPoint("/mnt/update"))
        QCOMPARE(run("/usr/bin/umount", {"/mnt/update"}), 0);
    QVERIFY(setRootWritable(false));
    for (const char* medium : {"sda", "sda1", "mmcblk0p6", "data"})
        QDir(media(medium)).removeRecursively();
    QFile::remove(stateDir() + "/gadget");
    QFile::remove(stateDir() + "/system");
    QDir("/tmp/firmware_update").removeRecursively();
    setFaults({});
    clearCalls();
}

QStringList EngineTest::calls() const
{
    return QString::fromUtf8(readAll(stateDir() + "/calls.log")).split('\n', Qt::SkipEmptyParts);
}

void EngineTest::clearCalls()
{
    writeFile(stateDir() + "/calls.log", QByteArray());
}

void EngineTest::setFaults(const QStringList& rules)
{
    writeFile(stateDir() + "/faults", rules.isEmpty() ? QByteArray() : (rules.join('\n') + '\n').toUtf8());
}

// Files the instrument already carries before an update, written into the throwaway root.
void EngineTest::prepareRoot(const QMap<QString, QByteArray>& files, const QStringList& directories)
{
    QVERIFY(setRootWritable(true));
    for (const QString& dir : directories)
        QVERIFY(QDir().mkpath(dir));
    for (auto it = files.cbegin(); it != files.cend(); ++it)
        writeFile(it.key(), it.value());
    QVERIFY(setRootWritable(false));
}

// A soft key on the visible screen: the shortcut clicks its button through animateClick, whose clicked()
// comes later and carries the whole job.
bool EngineTest::press(Qt::Key key)
{
    QAbstractButton* target = nullptr;
    for (QAbstractButton* button : m_canvas->findChildren<QAbstractButton*>()) {
        if (button->isVisible() && button->shortcut() == QKeySequence(key))
            target = button;
    }
    if (!target) {
        qWarning("no visible button for key %s", qPrintable(QKeySequence(key).toString()));
        return false;
    }
    QSignalSpy clicked(target, &QAbstractButton::clicked);
    QApplication::setActiveWindow(m_canvas.get());
    QTest::keyClick(QApplication::activeWindow(), key);
    return clicked.wait(60000);
}

// Chooses a job on the main menu; the call log starts empty for it.
bool EngineTest::startJob(Qt::Key mainMenuKey, const QString& prompt)
{
    clearCalls();
    return m_main->isVisible() && press(mainMenuKey) && m_progress->isVisible() &&
           m_view->toPlainText().startsWith(prompt.trimmed());
}

// The RESTART stage: F1 only unmounts and goes back to the main menu.
bool EngineTest::returnsToMainMenu()
{
    clearCalls();
    return m_progress->isVisible() && press(Qt::Key_F1) && m_main->isVisible() && !m_progress->isVisible() &&
           calls() == f1Umounts && !isMountPoint("/mnt/update");
}

// The view must hold exactly the prompt and these appended texts (same blocks, blanks and colours).
void EngineTest::checkView(const QString& prompt, const QStringList& appended)
{
    UpdaterProgressScreen reference; // the same form, fed directly
    QTextEdit* expected = reference.findChild<QTextEdit*>("progressMessageWindow");
    expected->setText(prompt);
    for (const QString& text : appended)
        expected->append(text);
    QCOMPARE(m_view->toPlainText().split('\n'), expected->toPlainText().split('\n'));
    QCOMPARE(m_view->toHtml(), expected->toHtml());
}

void EngineTest::stickLayoutsAndPackageNames()
{
    QAbstractButton* f1 = m_progress->findChild<QAbstractButton*>("F1Button");

    // No partition table: the whole disk mounts at the first command. No name here matches: a hidden
    // file, one without "M" before _firmware_update, another suffix.
    writePackage(media("sda"), ".M_firmware_update.tar.bz2", {});
    writePackage(media("sda"), "firmware_update.tar.bz2", {});
    writePackage(media("sda"), "xM_firmware_update.tar.gz", {});
    QVERIFY(startJob(Qt::Key_F3, stickPrompt));
    QVERIFY(press(Qt::Key_F1));
    QCOMPARE(calls(), (f1Umounts + QStringList{"mount /dev/sda /mnt/update"}));
    checkView(stickPrompt, {processing, extracting, noPackage});
    QVERIFY(isMountPoint("/mnt/update")); // left mounted until the next F1
    QVERIFY(f1->isEnabled());
    QVERIFY(returnsToMainMenu());

    // One partition: the second command of the first pass mounts it. Two packages are as bad as none.
    QDir(media("sda")).removeRecursively();
    writePackage(media("sda1"), "aM_firmware_update.tar.bz2", {});
    writePackage(media("sda1"), "bM_firmware_update.tar.bz2", {});
    QVERIFY(startJob(Qt::Key_F3, stickPrompt));
    QVERIFY(press(Qt::Key_F1));
    QCOMPARE(calls(), (f1Umounts + QStringList{"mount /dev/sda /mnt/update", "mount /dev/sda1 /mnt/update"}));
    checkView(stickPrompt, {processing, extracting, noPackage});
    QVERIFY(returnsToMainMenu());

    // No stick: 11 passes of both commands, then the mount failure.
    QDir(media("sda1")).removeRecursively();
    QVERIFY(startJob(Qt::Key_F3, stickPrompt));
    QVERIFY(press(Qt::Key_F1));
    QStringList expected = f1Umounts;
    for (int pass = 0; pass < 11; ++pass)
        expected << "mount /dev/sda /mnt/update"
                 << "mount /dev/sda1 /mnt/update";
    QCOMPARE(calls(), expected);
    checkView(stickPrompt, {processing, mountFailed});
    QVERIFY(returnsToMainMenu());
}

void EngineTest::nandCommandsSucceed()
{
    const QByteArray kernel = payload(5000, 1);
    const QByteArray image = payload(70000, 2);
    const QByteArray app = payload(3000, 3);
    const QByteArray conf = "setting=1\n";
    const QByteArray updater = payload(4000, 4);
    const QByteArray module = payload(1000, 5);
    prepareRoot(
        {{"/usr/bin/engine-updater", "old updater"}, {"/lib/modules/engine-old/engine-old.ko", "old"}});

    Package package;
    package.config = QStringList{"KERNEL:/uImage",
                                 "IMAGE:/rootfs.ubifs",
                                 "APP:/bin/mainApp",
                                 "FILE:/etc/engine-test.conf",
                                 "UPDATER:/usr/bin/engine-updater",
                                 "MODULES:/modules.tar",
                                 "SCRIPT:/run.sh"};
    package.files = {{"/uImage", kernel},
                     {"/rootfs.ubifs", image},
                     {"/bin/mainApp", app},
                     {"/etc/engine-test.conf", conf},
                     {"/usr/bin/engine-updater", updater},
                     {"/modules.tar", modulesArchive("engine-new", module)},
                     {"/run.sh", "#!/bin/sh\necho \"$0 $#\" > \"$SIM_STATE/script-ran\"\n"}};
    writePackage(media("sda1"), "abcM_FIRMWARE_UPDATE_v2.TAR.BZ2", package); // names match in any case
    const QStringList stick = entries(media("sda1"));

    QVERIFY(startJob(Qt::Key_F3, stickPrompt));
    QVERIFY(press(Qt::Key_F1));

    QCOMPARE(calls(),
             (f1Umounts + QStringList{"mount /dev/sda /mnt/update", "mount /dev/sda1 /mnt/update",
                                      "flash_eraseall /dev/mtd0",
                                      "nandwrite /dev/mtd0 /tmp/firmware_update/uImage -p",
                                      "flash_eraseall /dev/mtd1", "ubiformat /dev/mtd1 -f /tmp/rootfs.ubifs",
                                      "mount ubi0:rootfs -o remount,rw", "umount /run/media/mmcblk0p1",
                                      "mount ubi0:rootfs -o remount,rw", "umount /run/media/mmcblk0p1",
                                      "mount ubi0:rootfs -o remount,rw", "sync", "umount /mnt/update"}));
    checkView(stickPrompt,
              QStringList{processing, extracting, reading} + package.config +
                  QStringList{"\n", "Updating kernel with file: /uImage",
                              "Updating root image with file: /rootfs.ubifs",
                              "Updating Application with file: /bin/mainApp",
                              "Updating root files with folder: /etc/engine-test.conf",
                              "Updating the updater app with: /usr/bin/engine-updater",
                              "Updating Linux modules with: /modules.tar", "Running script file: /run.sh",
                              finalising, removing, updateComplete});

    QVERIFY(flashHolds("mtd0", kernel, mtd0Size));
    QVERIFY(flashHolds("mtd1", image, mtd1Size));
    QVERIFY(QFileInfo("/tmp/ubiformat").isExecutable()); // the tool ran from its copy
    QCOMPARE(readAll("/home/mainApp"), app);
    QCOMPARE(readAll(upperLayer("/etc/engine-test.conf")), conf);
    QCOMPARE(readAll(upperLayer("/usr/bin/engine-updater")), updater);
    QVERIFY(!QFileInfo::exists("/lib/modules/engine-old"));
    QCOMPARE(readAll(upperLayer("/lib/modules/engine-new/engine-new.ko")), module);
    QCOMPARE(readAll(stateDir() + "/script-ran"), QByteArray("/tmp/firmware_update/run.sh 0\n"));
    // The stick keeps its files and is unmounted; the unpacked package stays in /tmp.
    QCOMPARE(entries(media("sda1")), stick);
    QVERIFY(!isMountPoint("/mnt/update"));
    QVERIFY(QFileInfo::exists("/tmp/firmware_update/update_config"));
    QVERIFY(m_progress->findChild<QAbstractButton*>("F1Button")->isEnabled());
    QVERIFY(returnsToMainMenu());
}

void EngineTest::nandCommandsFail()
{
    const QByteArray app = payload(2000, 6);
    prepareRoot(
        {{"/usr/bin/engine-b", "b"}, {"/usr/bin/engine-c", "c"}, {"/lib/modules/engine-keep/k.ko", "k"}});

    // Remounts, in order: APP 1 (fails), APP 2, APP 3 (fails), UPDATER a, b (fails), c, d, FILE.
    setFaults({"5 1 flash_eraseall /dev/mtd0", "4 1 nandwrite *", "1 1 mount ubi0:rootfs *",
               "1 3 mount ubi0:rootfs *", "1 5 mount ubi0:rootfs *"});
    Package package;
    package.config = QStringList{"KERNEL:/uImage",
                                 "KERNEL:/uImage",
                                 "IMAGE:/images/rootfs.ubifs",
                                 "APP:/mainApp",
                                 "APP:/missing",
                                 "APP:/missing",
                                 "UPDATER:/usr/bin/engine-a",
                                 "UPDATER:/usr/bin/engine-b",
                                 "UPDATER:/usr/bin/engine-c",
                                 "UPDATER:/usr/bin/engine-d",
                                 "FILE:/etc/engine-nodir/x.conf",
                                 "MODULES:/missing.tar",
                                 "SCRIPT:/fail.sh",
                                 "SCRIPT:/absent.sh"};
    package.files = {{"/uImage", payload(3000, 7)},
                     {"/images/rootfs.ubifs", payload(9000, 8)},
                     {"/mainApp", app},
                     {"/usr/bin/engine-a", "new a"},
                     {"/etc/engine-nodir/x.conf", "x"},
                     {"/fail.sh", "#!/bin/sh\nexit 3\n"}};
    writePackage(media("sda"), "M_firmware_update.tar.bz2", package);

    QVERIFY(startJob(Qt::Key_F3, stickPrompt));
    QVERIFY(press(Qt::Key_F1));

    QCOMPARE(calls(), (f1Umounts + QStringList{"mount /dev/sda /mnt/update",
                                               "flash_eraseall /dev/mtd0",
                                               "flash_eraseall /dev/mtd0",
                                               "nandwrite /dev/mtd0 /tmp/firmware_update/uImage -p",
                                               "flash_eraseall /dev/mtd1",
                                               "ubiformat /dev/mtd1 -f /tmp/images/rootfs.ubifs",
                                               "mount ubi0:rootfs -o remount,rw",
                                               "mount ubi0:rootfs -o remount,rw",
                                               "mount ubi0:rootfs -o remount,rw",
                                               "umount /run/media/mmcblk0p1",
                                               "mount ubi0:rootfs -o remount,rw",
                                               "umount /run/media/mmcblk0p1",
                                               "mount ubi0:rootfs -o remount,rw",
                                               "umount /run/media/mmcblk0p1",
                                               "mount ubi0:rootfs -o remount,rw",
                                               "umount /run/media/mmcblk0p1",
                                               "mount ubi0:rootfs -o remount,rw",
                                               "umount /run/media/mmcblk0p1",
                                               "mount ubi0:rootfs -o remount,rw",
                                               "sync",
                                               "umount /mnt/update"}));

    const QString kernelFailed = red("Failed - Updating kernel with file: /uImage");
    const QString appMissingFailed = red("Failed - Updating Application with file: /missing");
    auto updaterFailed = [](const QString& name) {
        return red("Failed - Updating the updater app with: /usr/bin/engine-" + name);
    };
    auto updating = [](const QString& name) {
        return "Updating the updater app with: /usr/bin/engine-" + name;
    };
    checkView(stickPrompt,
              QStringList{processing, extracting, reading} + package.config +
                  QStringList{"\n",
                              "Updating kernel with file: /uImage",
                              kernelFailed,
                              "Updating kernel with file: /uImage",
                              kernelFailed,
                              "Updating root image with file: /images/rootfs.ubifs",
                              red("Failed - Updating root image with file: /images/rootfs.ubifs"),
                              "Updating Application with file: /mainApp",
                              red("Failed - Updating Application with file: /mainApp"),
                              "Updating Application with file: /missing",
                              appMissingFailed,
                              "Updating Application with file: /missing",
                              appMissingFailed,
                              appMissingFailed,
                              updating("a"),
                              updaterFailed("a"),
                              updating("b"),
                              updaterFailed("b"),
                              updating("c"),
                              updaterFailed("c"),
                              updating("d"),
                              updaterFailed("d"),
                              updaterFailed("d"),
                              "Updating root files with folder: /etc/engine-nodir/x.conf",
                              red("Failed - Updating root files with folder: /etc/engine-nodir/x.conf"),
                              "Updating Linux modules with: /missing.tar",
                              red("Failed - Updating Linux modules with: /missing.tar"),
                              "Running script file: /fail.sh",
                              red("Failed - Running script file: /fail.sh"),
                              "Running script file: /absent.sh",
                              red("Failed - Running script file: /absent.sh"),
                              finalising,
                              removing,
                              someFailed});

    // Nothing was written after a failed step, and what failed steps did stays done.
    QVERIFY(fullyErased("mtd0", mtd0Size));
    QVERIFY(fullyErased("mtd1", mtd1Size));  // erased before the image name turned out wrong
    QCOMPARE(readAll("/home/mainApp"), app); // copied although the remount failed
    QCOMPARE(readAll("/usr/bin/engine-a"), QByteArray("new a"));
    QVERIFY(!QFileInfo::exists("/usr/bin/engine-b")); // removed, then its remount failed
    QVERIFY(!QFileInfo::exists("/usr/bin/engine-c")); // removed, then nothing to copy
    QVERIFY(!QFileInfo::exists("/etc/engine-nodir"));
    QVERIFY(!QFileInfo::exists("/lib/modules")); // the old modules go before the archive is read
    QVERIFY(returnsToMainMenu());
}

void EngineTest::sdcardCommandsAndAppFailures()
{
    writeFile(stateDir() + "/system", "sdcard");
    const QByteArray kernel = payload(6000, 9);
    const QByteArray app = payload(1500, 10);
    setFaults({"1 2 sdimage *"});
    Package package;
    package.config = QStringList{"SYSTEM:SDCARD",       "KERNEL:/uImage", "KERNEL:/uImage",
                                 "IMAGE:/rootfs.ubifs", "APP:/mainApp",   "FILE:/etc/engine-sd.conf"};
    package.lineEnd = "\r\n"; // CR LF line ends: "SDCARD" still arrives without the carriage return
    package.files = {{"/uImage", kernel},
                     {"/rootfs.ubifs", payload(100, 11)},
                     {"/mainApp", app},
                     {"/etc/engine-sd.conf", "sd"}};
    writePackage(media("sda"), "sdM_firmware_update.tar.bz2", package);

    QVERIFY(startJob(Qt::Key_F3, stickPrompt));
    QVERIFY(press(Qt::Key_F1));

    const QString sdimage = "sdimage -f /tmp/firmware_update/uImage -d /dev/mmcblk0";
    QCOMPARE(calls(), (f1Umounts + QStringList{"mount /dev/sda /mnt/update", sdimage, sdimage,
                                               "mount / -o remount,rw", "umount /run/media/mmcblk0p1",
                                               "mount / -o remount,rw", "sync", "umount /mnt/update"}));
    checkView(stickPrompt,
              QStringList{processing, extracting, reading} + package.config +
                  QStringList{"\n", "System Type set to: SDCARD", "Updating kernel with file: /uImage",
                              "Updating kernel with file: /uImage",
                              red("Failed - Updating kernel with file: /uImage"),
                              "Updating root image with file: /rootfs.ubifs",
                              red("Failed - Updating root image with file: /rootfs.ubifs\nWrong System type"),
                              "Updating Application with file: /mainApp",
                              "Updating root files with folder: /etc/engine-sd.conf", finalising, removing,
                              someFailed});
    QVERIFY(readAll(media("mmcblk0")).startsWith(kernel));
    QCOMPARE(readAll("/home/mainApp"), app);
    QCOMPARE(readAll(upperLayer("/etc/engine-sd.conf")), QByteArray("sd"));
    QVERIFY(returnsToMainMenu());
}

void EngineTest::pcJobEmptiesTransferPartition()
{
    writeFile(stateDir() + "/system", "sdcard");
    writeFile(media("mmcblk0p6") + "/notes.txt", "old notes");
    setFaults({"1 1 modprobe g_mass_storage *"});

    QVERIFY(startJob(Qt::Key_F2, pcPrompt));
    const QString load = "modprobe g_mass_storage file=/dev/mmcblk0p6 removable=1";
    const QString initialising = "Initialising PC connection";
    const QString loadFailed =
        red("Failed to initialise PC connection press F1 to return to the main screen\n");
    const QString copyNow = "Copy the firmware_update_tar.bz2 file to the unit and press F1\n";

    // A failed gadget load keeps the first stage: the next F1 tries again.
    QVERIFY(press(Qt::Key_F1));
    QVERIFY(!QFileInfo::exists(stateDir() + "/gadget"));
    QVERIFY(press(Qt::Key_F1));
    QCOMPARE(calls(), (f1Umounts + QStringList{load} + f1Umounts + QStringList{load}));
    QCOMPARE(readAll(stateDir() + "/gadget"), QByteArray("file=/dev/mmcblk0p6 removable=1\n"));

    // The PC copies the package and more onto the partition. No SYSTEM line: the SD card type of the
    // earlier package still holds.
    const QByteArray kernel = payload(4096, 12);
    Package package;
    package.config = QStringList{"KERNEL:/uImage"};
    package.files = {{"/uImage", kernel}};
    writePackage(media("mmcblk0p6"), "pcM_firmware_update.tar.bz2", package);
    writeFile(media("mmcblk0p6") + "/firmware_update/leftover.bin", "x");
    writeFile(media("mmcblk0p6") + "/keep/inner.txt", "kept");
    writeFile(media("mmcblk0p6") + "/.hidden", "hidden");
    clearCalls();
    QVERIFY(press(Qt::Key_F1));

    QCOMPARE(calls(),
             (f1Umounts + QStringList{"modprobe -r g_mass_storage", "mount /dev/mmcblk0p6 /mnt/update",
                                      "sdimage -f /tmp/firmware_update/uImage -d /dev/mmcblk0", "sync",
                                      "sync", "umount /mnt/update"}));
    checkView(pcPrompt, {initialising, loadFailed, initialising, copyNow, processing, extracting, reading,
                         "KERNEL:/uImage", "\n", "Updating kernel with file: /uImage", finalising, removing,
                         updateComplete});
    QVERIFY(readAll(media("mmcblk0")).startsWith(kernel));
    // Every top-level file went, hidden ones and directories with files aside.
    QCOMPARE(entries(media("mmcblk0p6")), QStringList({".hidden", "keep"}));
    QCOMPARE(entries(media("mmcblk0p6") + "/keep"), QStringList({"inner.txt"}));
    QVERIFY(!QFileInfo::exists(stateDir() + "/gadget"));
    QVERIFY(!isMountPoint("/mnt/update"));
    QVERIFY(returnsToMainMenu());
}

void EngineTest::pcJobConnectionFailures()
{
    QDir().mkpath(media("mmcblk0p6"));
    const QString load = "modprobe g_mass_storage file=/dev/mmcblk0p6 removable=1";
    const QString copyNow = "Copy the firmware_update_tar.bz2 file to the unit and press F1\n";

    // The gadget will not unload: the job ends there.
    setFaults({"1 1 modprobe -r *"});
    QVERIFY(startJob(Qt::Key_F2, pcPrompt));
    QVERIFY(press(Qt::Key_F1));
    QVERIFY(press(Qt::Key_F1));
    QCOMPARE(calls(),
             (f1Umounts + QStringList{load} + f1Umounts + QStringList{"modprobe -r g_mass_storage"}));
    checkView(pcPrompt, {"Initialising PC connection", copyNow,
                         red("Failed to close PC connection, press F1 to return to the main screen\n")});
    QVERIFY(returnsToMainMenu());

    // The partition will not mount.
    QFile::remove(stateDir() + "/gadget");
    setFaults({"1 1 mount /dev/mmcblk0p6 *"});
    QVERIFY(startJob(Qt::Key_F2, pcPrompt));
    QVERIFY(press(Qt::Key_F1));
    QVERIFY(press(Qt::Key_F1));
    QCOMPARE(calls(), (f1Umounts + QStringList{load} + f1Umounts +
                       QStringList{"modprobe -r g_mass_storage", "mount /dev/mmcblk0p6 /mnt/update"}));
    checkView(pcPrompt, {"Initialising PC connection", copyNow, processing, mountFailed});
    QVERIFY(returnsToMainMenu());
}

void EngineTest::unknownSystemBadLinesPicAndEsa()
{
    const QByteArray app = payload(1200, 13);
    Package package;
    package.config = QStringList{"SYSTEM:NAND",
                                 "KERNEL:/uImage",
                                 "IMAGE:/rootfs.ubifs",
                                 "APP:/mainApp",
                                 "FILE:/etc/engine-unknown.conf",
                                 "UPDATER:/usr/bin/engine-u",
                                 "SYSTEM:FLASH",
                                 "",
                                 "APP:/a:b",
                                 "APP :/x",
                                 "XYZ:1",
                                 "PIC:/missing.hex",
                                 "PIC1:/missing.hex",
                                 "PIC1x:/missing.hex",
                                 "ESA_IO_APP:/io.bin",
                                 "ESA_M_APP:/m.bin",
                                 "ESA_IO_EEP:/io.eep",
                                 "ESA_M_EEP:/m.eep"};
    package.files = {{"/uImage", "k"},
                     {"/rootfs.ubifs", "r"},
                     {"/mainApp", app},
                     {"/etc/engine-unknown.conf", "u"},
                     {"/usr/bin/engine-u", "u"}};
    writePackage(media("sda"), "M_firmware_update.tar.bz2", package);

    QVERIFY(startJob(Qt::Key_F3, stickPrompt));
    QVERIFY(press(Qt::Key_F1));

    // SYSTEM:NAND leaves no remount command: nothing is logged for it, and no kernel tool runs.
    QCOMPARE(calls(), (f1Umounts + QStringList{"mount /dev/sda /mnt/update", "umount /run/media/mmcblk0p1",
                                               "umount /run/media/mmcblk0p1", "sync", "umount /mnt/update"}));
    const QString avrOff = red("Failed - AVR updates not enabled");
    const QString badFormat = red("Bad command format.   ");
    const QString updaterFailed = red("Failed - Updating the updater app with: /usr/bin/engine-u");
    checkView(stickPrompt,
              QStringList{processing, extracting, reading} + package.config +
                  QStringList{"\n",
                              "System Type set to: NAND",
                              "Updating kernel with file: /uImage",
                              "Updating root image with file: /rootfs.ubifs",
                              red("Failed - Updating root image with file: /rootfs.ubifs\nWrong System type"),
                              "Updating Application with file: /mainApp",
                              red("Failed - Updating Application with file: /mainApp"),
                              "Updating root files with folder: /etc/engine-unknown.conf",
                              red("Failed - Updating root files with folder: /etc/engine-unknown.conf"),
                              "Updating the updater app with: /usr/bin/engine-u",
                              updaterFailed,
                              updaterFailed,
                              "System Type error: Unknown Type: FLASH",
                              badFormat,
                              badFormat,
                              red("Unknown command: APP :/x"),
                              red("Unknown command: XYZ:1"),
                              "Updating PIC  with file: /missing.hex",
                              red("Failed - Updating PIC[0] with file /missing.hex"),
                              "Updating PIC 1 with file: /missing.hex",
                              red("Failed - Updating PIC[1] with file /missing.hex"),
                              "Updating PIC 1x with file: /missing.hex",
                              red("Failed - Updating PIC[0] with file /missing.hex"),
                              "Updating ESA IO Board Application with file: /io.bin",
                              avrOff,
                              red("Failed - Updating ESA IO Board Application with file: /io.bin"),
                              "Updating ESA Measurement Board Application with file: /m.bin",
                              avrOff,
                              red("Failed - Updating ESA Measurement Board Application with file: /m.bin"),
                              "Updating ESA IO Board EEPROM with file: /io.eep",
                              avrOff,
                              red("Failed - Updating ESA IO Board EEPROM with file: /io.eep"),
                              "Updating ESA Measurement Board EEPROM with file: /m.eep",
                              avrOff,
                              red("Failed - Updating ESA Measurement Board EEPROM with file: /m.eep"),
                              finalising,
                              removing,
                              someFailed});
    QCOMPARE(readAll("/home/mainApp"), app); // the copy still runs after the failed remount
    QVERIFY(!QFileInfo::exists("/etc/engine-unknown.conf"));
    QVERIFY(!QFileInfo::exists("/usr/bin/engine-u"));
    QVERIFY(returnsToMainMenu());
}

void EngineTest::emptyListAndBrokenPackages()
{
    // An empty list only finalises, and counts as success.
    writePackage(media("sda"), "M_firmware_update.tar.bz2", {});
    QVERIFY(startJob(Qt::Key_F3, stickPrompt));
    QVERIFY(press(Qt::Key_F1));
    QCOMPARE(calls(), (f1Umounts + QStringList{"mount /dev/sda /mnt/update", "sync", "umount /mnt/update"}));
    checkView(stickPrompt, {processing, extracting, reading, "\n", finalising, removing, updateComplete});
    QVERIFY(returnsToMainMenu());

    // A package without its command list.
    QDir("/tmp/firmware_update").removeRecursively();
    Package noConfig;
    noConfig.withConfig = false;
    noConfig.files = {{"/uImage", "k"}};
    writePackage(media("sda"), "M_firmware_update.tar.bz2", noConfig);
    QVERIFY(startJob(Qt::Key_F3, stickPrompt));
    QVERIFY(press(Qt::Key_F1));
    QCOMPARE(calls(), (f1Umounts + QStringList{"mount /dev/sda /mnt/update"}));
    checkView(stickPrompt, {processing, extracting, reading,
                            red("Failed to open update file, press F1 to return to the main screen\n")});
    QVERIFY(m_progress->findChild<QAbstractButton*>("F1Button")->isEnabled());
    QVERIFY(returnsToMainMenu());

    // A package that is no archive at all.
    writeFile(media("sda") + "/M_firmware_update.tar.bz2", "not an archive");
    QVERIFY(startJob(Qt::Key_F3, stickPrompt));
    QVERIFY(press(Qt::Key_F1));
    QCOMPARE(calls(), (f1Umounts + QStringList{"mount /dev/sda /mnt/update"}));
    checkView(stickPrompt, {processing, extracting,
                            red("Failed to extract update files, press F1 to return to the main screen\n")});
    QVERIFY(m_progress->findChild<QAbstractButton*>("F1Button")->isEnabled());
    QVERIFY(returnsToMainMenu());
}

void EngineTest::formatJobs()
{
    writeFile(media("data") + "/results.db", "results");
    writeFile(media("mmcblk0p6") + "/package.tar.bz2", "package");

    // F5 formats the storage area, F4 the transfer area; a failing script leaves the medium alone.
    setFaults({"1 1 format_transfer.sh", "1 1 format_sdcard.sh"});
    QVERIFY(startJob(Qt::Key_F5, sdcardPrompt));
    QVERIFY(press(Qt::Key_F1));
    QCOMPARE(calls(), (f1Umounts + QStringList{"format_sdcard.sh"}));
    checkView(sdcardPrompt, {"Formating SDCard\n",
                             red("Failed to Format SDCard, press F1 to return to the main screen\n")});
    QCOMPARE(entries(media("data")), QStringList{"results.db"});
    QVERIFY(returnsToMainMenu());

    QVERIFY(startJob(Qt::Key_F4, transferPrompt));
    QVERIFY(press(Qt::Key_F1));
    QCOMPARE(calls(), (f1Umounts + QStringList{"format_transfer.sh"}));
    checkView(transferPrompt,
              {"Formating Transfer area\n",
               red("Failed to Format Transfer area, press F1 to return to the main screen\n")});
    QCOMPARE(entries(media("mmcblk0p6")), QStringList{"package.tar.bz2"});
    QVERIFY(returnsToMainMenu());

    setFaults({});
    QVERIFY(startJob(Qt::Key_F5, sdcardPrompt));
    QVERIFY(press(Qt::Key_F1));
    checkView(sdcardPrompt, {"Formating SDCard\n",
                             green("Successfully Formated SDCard, press F1 to return to the main screen\n")});
    QVERIFY(entries(media("data")).isEmpty());
    QVERIFY(returnsToMainMenu());

    QVERIFY(startJob(Qt::Key_F4, transferPrompt));
    QVERIFY(press(Qt::Key_F1));
    QCOMPARE(calls(), (f1Umounts + QStringList{"format_transfer.sh"}));
    checkView(transferPrompt,
              {"Formating Transfer area\n",
               green("Successfully Formated Transfer area, press F1 to return to the main screen\n")});
    QVERIFY(entries(media("mmcblk0p6")).isEmpty());
    QVERIFY(returnsToMainMenu());
}

QTEST_MAIN(EngineTest)
#include "tst_engine.moc"
