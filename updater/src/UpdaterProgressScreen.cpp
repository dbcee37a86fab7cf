#include "UpdaterProgressScreen.h"

#include "GpioPinController.h"
#include "PicProgrammer.h"
#include "TtyHandler.h"

#include <QAbstractSlider>
#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QScrollBar>
#include <QTextStream>
#include <QTime>

#include <cstring>
#include <unistd.h>

namespace {

// One command line of the target's tools: split at blanks by the toolkit, started without a shell,
// waited for without limit. The one-string form is what the target relies on, so its deprecation in
// this toolkit version is silenced here only.
int runCommand(const QString& commandLine)
{
    QT_WARNING_PUSH
    QT_WARNING_DISABLE_DEPRECATED
    return QProcess::execute(commandLine);
    QT_WARNING_POP
}

QString redLine(const QString& message)
{
    return "<p style=\"color:red\">" + message + "</p>";
}

QString greenLine(const QString& message)
{
    return "<p style=\"color:green\">" + message + "</p>";
}

// Each line is painted at once so that it shows before the next blocking command starts.
void appendLine(QTextEdit* view, const QString& text)
{
    view->append(text);
    view->repaint();
}

// Makes the root file system writable; an unknown system type has no command, which cannot start.
QString remountCommand(UpdaterProgressScreen::SYS_TYPE systemType)
{
    switch (systemType) {
    case UpdaterProgressScreen::SYS_TYPE_NAND:
        return "mount ubi0:rootfs -o remount,rw";
    case UpdaterProgressScreen::SYS_TYPE_SDCARD:
        return "mount / -o remount,rw";
    default:
        return QString();
    }
}

} // namespace

UpdaterProgressScreen::UpdaterProgressScreen(QWidget* parent, Qt::WindowFlags f) : QWidget(parent, f)
{
    m_ui.setupUi(this);

    connect(m_ui.F1Button, SIGNAL(clicked()), this, SLOT(F1Clicked()));
    connect(m_ui.F2Button, SIGNAL(clicked()), this, SLOT(F2Clicked()));
    connect(m_ui.F3Button, SIGNAL(clicked()), this, SLOT(F3Clicked()));
    connect(m_ui.F4Button, SIGNAL(clicked()), this, SLOT(F4Clicked()));
    connect(m_ui.F5Button, SIGNAL(clicked()), this, SLOT(F5Clicked()));

    m_updateType = PC_UPDATE;
    m_updateStage = RESTART;
    m_systemType = SYS_TYPE_NAND;
    m_pic = nullptr;
    m_updateFile = nullptr;
    m_ESAUpdateInProgress = false;
    m_ESA_MEASUREMENT_AVRInBootMode = false;
    m_ESA_IO_AVRInBootMode = false;
    m_isFinished = false;
    m_isProgrammed = false;
    m_AVRPacketCount = 0;
    m_PicUpdateEnabled = true;
    m_AvrUpdateEnabled = false;

    m_SerPortApp1 = new TtyHandler("/dev/ttyS1", this);
    connect(this, SIGNAL(ESAUpdateSendNextPacket()), this, SLOT(sendNextESAPacket()));

    // Never exported, so this writes nothing; the object is deliberately kept alive for the whole process.
    // The list that holds it is never freed either, so leak checkers see it as kept, not lost.
    static auto* const keptAlive = new QList<GpioPinController*>;
    GpioPinController* boardPower = new GpioPinController("5");
    keptAlive->append(boardPower);
    boardPower->setValue("0");
}

UpdaterProgressScreen::~UpdaterProgressScreen() = default;

void UpdaterProgressScreen::setUpdateType(int updateType)
{
    m_updateType = updateType;
    switch (updateType) {
    case PC_UPDATE:
        m_updateStage = PC_START;
        m_ui.progressMessageWindow->setText(
            tr("Attach the unit to the PC via the USB cable provided then press F1\n"));
        break;
    case MEMORY_STICK_UPDATE:
        m_updateStage = MEMORY_STICK_START;
        m_ui.progressMessageWindow->setText(tr("Insert a memory stick containing the update_firmware.tar.bz2 "
                                               "file into the unit then press F1\n"));
        break;
    case SDCARD_FORMAT:
        m_updateStage = SDCARD_FORMAT_START;
        m_ui.progressMessageWindow->setText(
            tr("Are you Sure?, All test results and settings will be lost, Press F1 to continue\n"));
        break;
    case TRANSFER_FORMAT:
        m_updateStage = TRANSFER_FORMAT_START;
        m_ui.progressMessageWindow->setText(tr("Are you Sure?, Press F1 to continue\n"));
        break;
    default:
        break;
    }
}

void UpdaterProgressScreen::F1Clicked()
{
    // The device the PC job mounts; it outlives the job.
    static QString currentDevicePart;
    QTextEdit* view = m_ui.progressMessageWindow;

    // A red line that ends the job: the next F1 leads to the main menu.
    const auto fail = [this, view](const QString& message) {
        appendLine(view, redLine(message));
        m_updateStage = RESTART;
    };
    // Formatting a storage area: one script, then a green or a red line, and the job is over.
    const auto format = [this, view](const QString& progress, const QString& script, const QString& success,
                                     const QString& failure) {
        appendLine(view, progress);
        if (runCommand(script) == 0)
            appendLine(view, greenLine(success));
        else
            appendLine(view, redLine(failure));
        m_updateStage = RESTART;
    };

    // Whatever an earlier job left mounted goes first, on every press.
    runCommand("umount /mnt/update");
    runCommand("umount /run/media/mmcblk0p6");
    runCommand("umount /run/media/sda1");

    switch (m_updateStage) {
    case PC_START:
        appendLine(view, tr("Initialising PC connection"));
        if (runCommand("modprobe g_mass_storage file=/dev/mmcblk0p6 removable=1") == 0) {
            appendLine(view, tr("Copy the firmware_update_tar.bz2 file to the unit and press F1\n"));
            currentDevicePart = "/dev/mmcblk0p6";
            m_updateStage = MOUNT_PC;
        } else {
            // The stage stays, so the next F1 retries although the text speaks of the main screen.
            appendLine(
                view,
                redLine(tr("Failed to initialise PC connection press F1 to return to the main screen\n")));
        }
        break;

    case MOUNT_PC:
        if (runCommand("modprobe -r g_mass_storage") != 0) {
            fail(tr("Failed to close PC connection, press F1 to return to the main screen\n"));
            break;
        }
        appendLine(view, tr("Processing update\n"));
        if (runCommand(QString("mount %1 /mnt/update").arg(currentDevicePart)) != 0) {
            view->append(
                redLine(tr("Failed to mount update drive, press F1 to return to the main screen\n")));
            m_updateStage = RESTART;
            break;
        }
        performUpdate();
        break;

    case MEMORY_STICK_START: {
        appendLine(view, tr("Processing update\n"));
        // Without a shell the redirection is only passed on to echo; its result does not matter.
        runCommand("echo 1 > /sys/bus/usb/devices/1-1.2/bConfigurationValue");
        processEvents();

        // A stick may carry its file system on the whole disk or on its first partition, and it may
        // need a moment to appear: up to 11 passes, the whole disk first.
        m_usbPartition = "/dev/sda";
        const QString mountTemplate = "mount %1 %2";
        int attempts = 0;
        bool mounted = false;
        for (;;) {
            if (runCommand(mountTemplate.arg(m_usbPartition, "/mnt/update")) == 0) {
                mounted = true;
                break;
            }
            if (runCommand(mountTemplate.arg(m_usbPartition + "1", "/mnt/update")) == 0) {
                mounted = true;
                break;
            }
            ++attempts;
            if (attempts > 10)
                break;
            processEvents();
        }

        if (mounted) {
            performUpdate();
        } else {
            fail(tr("Failed to mount update drive, press F1 to return to the main screen\n"));
        }
        break;
    }

    case SDCARD_FORMAT_START:
        format(tr("Formating SDCard\n"), "/home/format_sdcard.sh",
               tr("Successfully Formated SDCard, press F1 to return to the main screen\n"),
               tr("Failed to Format SDCard, press F1 to return to the main screen\n"));
        break;

    case TRANSFER_FORMAT_START:
        format(tr("Formating Transfer area\n"), "/home/format_transfer.sh",
               tr("Successfully Formated Transfer area, press F1 to return to the main screen\n"),
               tr("Failed to Format Transfer area, press F1 to return to the main screen\n"));
        break;

    case RESTART:
        emit requestChangeScreen(0);
        break;

    default:
        break;
    }
}

void UpdaterProgressScreen::F2Clicked() {}

void UpdaterProgressScreen::F3Clicked()
{
    m_updateStage = RESTART;
    emit requestChangeScreen(0);
}

void UpdaterProgressScreen::F4Clicked()
{
    m_ui.progressMessageWindow->verticalScrollBar()->triggerAction(QAbstractSlider::SliderSingleStepSub);
}

void UpdaterProgressScreen::F5Clicked()
{
    m_ui.progressMessageWindow->verticalScrollBar()->triggerAction(QAbstractSlider::SliderSingleStepAdd);
}

void UpdaterProgressScreen::performUpdate()
{
    QTextEdit* view = m_ui.progressMessageWindow;

    // A step that fails before the command list ends the job: F1 is back and leads to the main menu.
    const auto abort = [this, view](const QString& message) {
        m_ui.F1Button->setEnabled(true);
        appendLine(view, redLine(message));
        m_updateStage = RESTART;
    };

    m_ui.F1Button->setEnabled(false);
    appendLine(view, tr("Extracting update, please do not interrupt...\n"));

    // Exactly one package may lie on the medium; there is no tie-break between several.
    QDir updateDir("/mnt/update");
    const QStringList packages = updateDir.entryList(QStringList() << "*M_firmware_update*.tar.bz2");
    if (packages.size() != 1) {
        abort(tr("Could not find update file, press F1 to return to the main screen\n"));
        return;
    }

    const QString extractCommand = "tar -xf /mnt/update/" + packages.at(0) + " -C /tmp";
    processEvents();
    if (runCommand(extractCommand) != 0) {
        abort(tr("Failed to extract update files, press F1 to return to the main screen\n"));
        return;
    }

    appendLine(view, tr("Reading update file\nCommand list: "));
    processEvents();

    QFile configFile(QString("/tmp") + "/firmware_update/update_config");
    if (!configFile.open(QIODevice::ReadOnly | QIODevice::Text)) {
        abort(tr("Failed to open update file, press F1 to return to the main screen\n"));
        return;
    }

    processEvents();
    QStringList commands;
    QTextStream configStream(&configFile);
    while (!configStream.atEnd()) {
        const QString line = configStream.readLine();
        commands << line;
        appendLine(view, line);
        processEvents();
    }

    appendLine(view, tr("\n"));
    processEvents();
    const bool allSucceeded = processCommandList(commands);

    appendLine(view, tr("Removing temporary files\n"));
    configFile.close();

    if (m_updateType != PC_UPDATE)
        runCommand("umount /mnt/update");

    if (m_updateType == PC_UPDATE) {
        // The transfer partition is emptied, package included, whatever the outcome. Only files go:
        // QDir::remove leaves directories (and the "." and ".." entries) alone.
        QDir packageDir("/mnt/update/firmware_update");
        const QStringList packageEntries = packageDir.entryList();
        for (const QString& entry : packageEntries) {
            packageDir.remove(entry);
            QCoreApplication::processEvents();
            view->repaint();
        }
        const QStringList topEntries = updateDir.entryList();
        for (const QString& entry : topEntries) {
            updateDir.remove(entry);
            QCoreApplication::processEvents();
            view->repaint();
        }
        updateDir.rmdir("firmware_update");
        runCommand("sync");
        runCommand("umount /mnt/update");
        QCoreApplication::processEvents();
        view->repaint();
    }

    m_ui.F1Button->setEnabled(true);
    if (allSucceeded)
        appendLine(
            view,
            greenLine(tr("Update complete, restart the system or press F1 to return to the main screen\n")));
    else
        appendLine(view, redLine(tr("Some of the updates failed, press F1 to return to the main screen\n")));

    m_updateStage = RESTART;
    view->setFocus();
    QCoreApplication::processEvents();
}

void UpdaterProgressScreen::processEvents()
{
    // A busy wait that keeps keys and painting alive. The deadline is a time of day, so near midnight
    // it wraps and the wait ends at once.
    const QTime deadline = QTime::currentTime().addMSecs(200);
    while (QTime::currentTime() < deadline) {
        QCoreApplication::processEvents(QEventLoop::AllEvents);
        m_ui.progressMessageWindow->repaint();
    }
}

// A kind of command-list line: its keyword and how a line's keyword is tested against it, the progress
// line written first and the failure line written for every step that fails (%1: the argument), and up to
// two steps, each returning 0 on success. A row without texts has steps that write their own lines.
struct UpdaterProgressScreen::Command
{
    using Step = int (*)(UpdaterProgressScreen& screen, const QString& keyword, const QString& argument);

    const char* keyword;
    bool contained; // the keyword only has to appear in the line's keyword
    const char* progress;
    const char* failure;
    Step steps[2];
};

namespace {

// A red line written by a step itself; the step fails.
int failWith(QTextEdit* view, const QString& message)
{
    appendLine(view, redLine(message));
    return -1;
}

// A step that is one of the screen's update functions, given the argument.
template <int (UpdaterProgressScreen::*update)(QString)>
int updateWith(UpdaterProgressScreen& screen, const QString&, const QString& file)
{
    return (screen.*update)(file);
}

template <UpdaterProgressScreen::ESA_BOARD_ID board, UpdaterProgressScreen::ESA_UPDATE_TYPE type>
int loadEsa(UpdaterProgressScreen& screen, const QString&, const QString& file)
{
    return screen.updateESA(file, board, type);
}

} // namespace

const UpdaterProgressScreen::Command* UpdaterProgressScreen::findCommand(const QString& keyword)
{
    // Tested in this order; the first hit wins (so XPIC2 is a PIC command).
    static const Command commands[] = {
        {"SYSTEM",
         false,
         nullptr,
         nullptr,
         {[](UpdaterProgressScreen& screen, const QString&, const QString& type) {
             // Deliberately not SYS_TYPE_NAND for NAND: NAND packages rely on the start-up type instead.
             screen.m_systemType = type == "SDCARD" ? SYS_TYPE_SDCARD : SYS_TYPE_UNKNOWN;
             const bool known = type == "SDCARD" || type == "NAND";
             appendLine(screen.m_ui.progressMessageWindow,
                        known ? tr("System Type set to: %1").arg(type)
                              : tr("System Type error: Unknown Type: %1").arg(type));
             return 0;
         }}},
        // The copy is tried even when the remount failed; each failure gets its own line.
        {"APP",
         false,
         QT_TR_NOOP("Updating Application with file: %1"),
         QT_TR_NOOP("Failed - Updating Application with file: %1"),
         {[](UpdaterProgressScreen& screen, const QString&, const QString&) {
              return runCommand(remountCommand(screen.m_systemType));
          },
          [](UpdaterProgressScreen&, const QString&, const QString& file) {
              return runCommand(QString("cp /tmp/firmware_update%1 /home/mainApp").arg(file));
          }}},
        {"KERNEL",
         false,
         QT_TR_NOOP("Updating kernel with file: %1"),
         QT_TR_NOOP("Failed - Updating kernel with file: %1"),
         {[](UpdaterProgressScreen& screen, const QString&, const QString& file) {
             // An unknown system type skips the kernel and counts as success.
             if (screen.m_systemType == SYS_TYPE_NAND)
                 return screen.updateNANDKernel(file);
             if (screen.m_systemType == SYS_TYPE_SDCARD)
                 return screen.updateSDCARDKernel(file);
             return 0;
         }}},
        {"IMAGE",
         false,
         QT_TR_NOOP("Updating root image with file: %1"),
         nullptr,
         {[](UpdaterProgressScreen& screen, const QString&, const QString& file) {
             QTextEdit* view = screen.m_ui.progressMessageWindow;
             if (screen.m_systemType != SYS_TYPE_NAND)
                 return failWith(
                     view, tr("Failed - Updating root image with file: %1\nWrong System type").arg(file));
             if (screen.updateUbiImage(file) != 0)
                 return failWith(view, tr("Failed - Updating root image with file: %1").arg(file));
             return 0;
         }}},
        {"FILE",
         false,
         QT_TR_NOOP("Updating root files with folder: %1"),
         QT_TR_NOOP("Failed - Updating root files with folder: %1"),
         {updateWith<&UpdaterProgressScreen::updateRootfs>}},
        // The running program is removed first so that its file can be replaced.
        {"UPDATER",
         false,
         QT_TR_NOOP("Updating the updater app with: %1"),
         QT_TR_NOOP("Failed - Updating the updater app with: %1"),
         {[](UpdaterProgressScreen&, const QString&, const QString& file) {
              qDebug() << "attempting to update the updater";
              return runCommand(QString("rm %1").arg(file));
          },
          updateWith<&UpdaterProgressScreen::updateRootfs>}},
        {"MODULES",
         false,
         QT_TR_NOOP("Updating Linux modules with: %1"),
         QT_TR_NOOP("Failed - Updating Linux modules with: %1"),
         {updateWith<&UpdaterProgressScreen::updateModules>}},
        {"SCRIPT",
         false,
         QT_TR_NOOP("Running script file: %1"),
         QT_TR_NOOP("Failed - Running script file: %1"),
         {[](UpdaterProgressScreen&, const QString&, const QString& file) {
             return runCommand(QString("/tmp/firmware_update%1 ").arg(file));
         }}},
        {"PIC",
         true,
         nullptr,
         nullptr,
         {[](UpdaterProgressScreen& screen, const QString& keyword, const QString& file) {
             QTextEdit* view = screen.m_ui.progressMessageWindow;
             if (!screen.m_PicUpdateEnabled)
                 return failWith(view, tr("Failed - PIC updates not enabled"));
             // The index is shown as written but passed as a number (0 when it is none).
             const QString indexText = keyword.mid(3);
             const int index = indexText.toInt(nullptr, 10);
             appendLine(view, tr("Updating PIC %1 with file: %2").arg(indexText, file));
             if (screen.updatePic(index, file) != 0)
                 return failWith(
                     view, tr("Failed - Updating PIC[%1] with file %2").arg(QString::number(index), file));
             return 0;
         }}},
        {"ESA_IO_APP",
         true,
         QT_TR_NOOP("Updating ESA IO Board Application with file: %1"),
         QT_TR_NOOP("Failed - Updating ESA IO Board Application with file: %1"),
         {loadEsa<IO, APP>}},
        {"ESA_M_APP",
         true,
         QT_TR_NOOP("Updating ESA Measurement Board Application with file: %1"),
         QT_TR_NOOP("Failed - Updating ESA Measurement Board Application with file: %1"),
         {loadEsa<MEASUREMENT, APP>}},
        {"ESA_IO_EEP",
         true,
         QT_TR_NOOP("Updating ESA IO Board EEPROM with file: %1"),
         QT_TR_NOOP("Failed - Updating ESA IO Board EEPROM with file: %1"),
         {loadEsa<IO, EEP>}},
        {"ESA_M_EEP",
         true,
         QT_TR_NOOP("Updating ESA Measurement Board EEPROM with file: %1"),
         QT_TR_NOOP("Failed - Updating ESA Measurement Board EEPROM with file: %1"),
         {loadEsa<MEASUREMENT, EEP>}},
    };
    for (const Command& command : commands) {
        const QLatin1String name(command.keyword);
        if (command.contained ? keyword.contains(name) : keyword == name)
            return &command;
    }
    return nullptr;
}

bool UpdaterProgressScreen::processCommandList(QStringList commands)
{
    QTextEdit* view = m_ui.progressMessageWindow;
    bool result = true;

    // A failed command never stops the list; it only makes the whole update count as failed.
    while (!commands.isEmpty()) {
        const QStringList parts = commands.takeFirst().split(":");
        if (parts.size() != 2) {
            appendLine(view, redLine(tr("Bad command format.   ")));
            result = false;
            QCoreApplication::processEvents(QEventLoop::AllEvents);
            continue;
        }

        const QString& keyword = parts.at(0);
        const QString& argument = parts.at(1);
        if (const Command* command = findCommand(keyword)) {
            if (command->progress)
                appendLine(view, tr(command->progress).arg(argument));
            for (const Command::Step step : command->steps) {
                if (!step || step(*this, keyword, argument) == 0)
                    continue;
                if (command->failure)
                    appendLine(view, redLine(tr(command->failure).arg(argument)));
                result = false;
            }
        } else {
            appendLine(view, redLine(tr("Unknown command: %1:%2").arg(keyword, argument)));
            result = false;
        }

        QCoreApplication::processEvents(QEventLoop::AllEvents);
    }

    appendLine(view, tr("Finalising update, please wait. "));
    runCommand("sync");
    return result;
}

int UpdaterProgressScreen::updateSDCARDKernel(QString file)
{
    return runCommand(QString("sdimage -f /tmp/firmware_update%1 -d /dev/mmcblk0").arg(file)) == 0 ? 0 : -1;
}

int UpdaterProgressScreen::updateNANDKernel(QString file)
{
    if (runCommand("flash_eraseall /dev/mtd0") != 0)
        return -1;
    return runCommand(QString("nandwrite /dev/mtd0 /tmp/firmware_update%1 -p").arg(file)) == 0 ? 0 : -1;
}

int UpdaterProgressScreen::updateUbiImage(QString file)
{
    // The formatting tool lives on the partition about to be rewritten, so it runs from a copy.
    if (runCommand("cp /usr/bin/ubiformat /tmp") != 0)
        return -1;
    if (runCommand(QString("cp /tmp/firmware_update%1 /tmp").arg(file)) != 0)
        return -1;
    if (runCommand("flash_eraseall /dev/mtd1") != 0)
        return -1;
    // The copy above lands at /tmp/<file name>, this names /tmp/<whole argument>: an image in a
    // subdirectory of the package fails here, after the erase.
    return runCommand(QString("/tmp/ubiformat /dev/mtd1 -f /tmp%1").arg(file)) == 0 ? 0 : -1;
}

int UpdaterProgressScreen::updateRootfs(QString file)
{
    runCommand("umount /run/media/mmcblk0p1");
    if (runCommand(remountCommand(m_systemType)) != 0)
        return -1;
    return runCommand(QString("cp /tmp/firmware_update%1 %1").arg(file)) == 0 ? 0 : -1;
}

int UpdaterProgressScreen::updateModules(QString file)
{
    // No remount here: an earlier command of the list has made the root writable. If unpacking fails,
    // the old modules are gone already.
    if (runCommand("rm -r /lib/modules/") != 0)
        return -1;
    if (runCommand(QString("tar -xf /tmp/firmware_update%1 -C /").arg(file)) != 0)
        return -1;
    QCoreApplication::processEvents();
    return 0;
}

int UpdaterProgressScreen::updatePic(int, QString file)
{
    // The PIC number is not used: the instrument has one PIC on fixed lines.
    m_hexFileStr = "/tmp/firmware_update" + file;
    if (!QFile::exists(m_hexFileStr)) {
        qDebug() << "Failed to find hex file: " << m_hexFileStr;
        return -1;
    }

    // Hold the PIC in reset with low-voltage programming off before the programmer takes the lines.
    GpioPinController mclr("3");
    GpioPinController pgm("6");
    mclr.createDriver();
    pgm.createDriver();
    mclr.setValue("1");
    mclr.setDirection("out");
    mclr.setValue("0");
    pgm.setValue("0");
    pgm.setDirection("out");
    ::sleep(1);

    m_pic = new PicProgrammer(this);
    connect(m_pic, SIGNAL(eraseDone()), this, SLOT(picEraseComplete()));
    connect(m_pic, SIGNAL(eraseError()), this, SLOT(picEraseError()));
    connect(m_pic, SIGNAL(lineProgrammed(int)), this, SLOT(picLineProgrammed(int)));
    connect(m_pic, SIGNAL(eraseNextBlock(int)), this, SLOT(blockErased(int)));

    m_ui.progressMessageWindow->append(tr("Erasing PIC: "));
    m_ui.progressMessageWindow->append(tr("<p style=\"color:orange\">0% </p>"));
    m_ui.progressMessageWindow->repaint();

    // The whole run happens inside this loop: erase events, then programming from picEraseComplete.
    m_pic->ev_pic_begin_erase();
    while (!m_pic->isFinished())
        QCoreApplication::processEvents(QEventLoop::AllEvents);
    qDebug() << "erase completed";

    const int result = m_pic->isProgrammed() ? 0 : -1;
    delete m_pic; // switches the PIC board's power off
    m_pic = nullptr;
    return result;
}

int UpdaterProgressScreen::updateESA(QString file, ESA_BOARD_ID board, ESA_UPDATE_TYPE type)
{
    // A new connection on every call: from the second load on, each notification runs the handler
    // several times and the later runs find nothing left to read.
    connect(m_SerPortApp1, SIGNAL(readyRead()), this, SLOT(ESADataReceived()));
    m_isFinished = false;
    m_isProgrammed = false;

    // ESA loading is switched off in this program: every ESA command stops here.
    if (!m_AvrUpdateEnabled) {
        m_ui.progressMessageWindow->append(tr("<p style=\"color:red\">Failed - AVR updates not enabled</p>"));
        m_ui.progressMessageWindow->repaint();
        return -1;
    }

    m_hexFileStr = QString("/tmp/firmware_update%1").arg(file);
    if (!QFile::exists(m_hexFileStr)) {
        qDebug() << "Failed to find file: " << m_hexFileStr;
        return -1;
    }
    m_updateFile = new QFile(m_hexFileStr);
    if (!m_updateFile->open(QIODevice::ReadOnly)) {
        qDebug() << "Failed to open ESA file: " << m_hexFileStr;
        return -1;
    }

    // Both boards share the serial line; GPIO 3 routes it to one of them.
    GpioPinController* boardSelect = new GpioPinController("3");
    boardSelect->createDriver();
    boardSelect->setDirection("out");

    // A board is asked into its boot loader once per run: it stays there between loads.
    if (board == IO) {
        boardSelect->setValue("0");
        if (!m_ESA_IO_AVRInBootMode)
            m_SerPortApp1->sendString("B");
        m_ESA_IO_AVRInBootMode = true;
    } else if (board == MEASUREMENT) {
        boardSelect->setValue("1");
        if (!m_ESA_MEASUREMENT_AVRInBootMode)
            m_SerPortApp1->sendString("B");
        m_ESA_MEASUREMENT_AVRInBootMode = true;
    }
    m_SerPortApp1->sendString(type == EEP ? "3" : "2");

    // The board's answers drive the transfer from the event loop; only a NAK or the sent EOT ends it.
    while (!m_isFinished)
        QCoreApplication::processEvents();

    m_updateFile->close();
    delete m_updateFile;
    m_updateFile = nullptr;
    delete boardSelect; // the line stays exported at its level

    return m_isProgrammed ? 0 : -1;
}

// CRC-16/XMODEM: polynomial 0x1021, initial value 0, most significant bit first, no final XOR.
short UpdaterProgressScreen::calcrc(char* data, int count)
{
    quint16 crc = 0;
    for (int i = 0; i < count; ++i) {
        crc ^= static_cast<quint16>(static_cast<unsigned char>(data[i]) << 8);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 0x8000) ? static_cast<quint16>((crc << 1) ^ 0x1021) : static_cast<quint16>(crc << 1);
    }
    return static_cast<short>(crc);
}

void UpdaterProgressScreen::picEraseComplete()
{
    qDebug() << "enter picEraseComplete SLOT";
    m_ui.progressMessageWindow->append(tr("PIC Erase Complete\nProgramming PIC: "));
    m_ui.progressMessageWindow->append(tr("<p style=\"color:orange\">0% </p>"));
    m_ui.progressMessageWindow->repaint();
    QCoreApplication::processEvents();
    qDebug() << "picEraseComplete: about to program PIC";
    m_pic->programPic(m_hexFileStr);
    qDebug() << "picEraseComplete: Exit";
}

void UpdaterProgressScreen::picEraseError()
{
    m_ui.progressMessageWindow->append(tr("<p style=\"color:red\">PIC Erase Error\n </p>"));
    m_ui.progressMessageWindow->repaint();
}

void UpdaterProgressScreen::picLineProgrammed(int percentComplete)
{
    // Replaces the previous percentage line, so one line is kept updated in place.
    m_ui.progressMessageWindow->undo();
    m_ui.progressMessageWindow->append(QString("<p style=\"color:orange\">%1%</p>").arg(percentComplete));
    QScrollBar* bar = m_ui.progressMessageWindow->verticalScrollBar();
    bar->setValue(bar->maximum());
    m_ui.progressMessageWindow->repaint();
    QCoreApplication::processEvents();
}

void UpdaterProgressScreen::blockErased(int percentComplete)
{
    picLineProgrammed(percentComplete); // the same in-place percentage line
}

void UpdaterProgressScreen::ESADataReceived()
{
    // A reply may come split over reads or mixed with other bytes: each test only asks whether the
    // byte is in the chunk, in this order, so a chunk with both ACK and NAK counts as ACK.
    const QByteArray data = m_SerPortApp1->readAll();
    if (data.contains(char(0x43)) && !m_ESAUpdateInProgress) {
        m_ESAUpdateInProgress = true;
        m_AVRPacketCount = 0;
        m_isFinished = false;
        emit ESAUpdateSendNextPacket();
    } else if (m_ESAUpdateInProgress && data.contains(char(0x06))) {
        emit ESAUpdateSendNextPacket();
    } else if (m_ESAUpdateInProgress && data.contains(char(0x15))) {
        // No resend: one refused block fails the whole load.
        m_isFinished = true;
        m_isProgrammed = false;
        m_ESAUpdateInProgress = false;
        qDebug() << "ESA NACK received";
    } else {
        qDebug() << "unknown received: " << data.toHex();
    }
}

void UpdaterProgressScreen::sendNextESAPacket()
{
    // Outside a load (a stray "C" between loads) there is no image, which counts as sent completely.
    if (m_updateFile && !m_updateFile->atEnd()) {
        constexpr int BLOCK = 128, DATA = 3, PACKET = DATA + BLOCK + 2;
        char packet[PACKET];
        char* data = packet + DATA;

        // A short last block, or a failed read, is filled up with 0x1A.
        const qint64 count = qMax<qint64>(m_updateFile->read(data, BLOCK), 0);
        if (count < BLOCK)
            std::memset(data + count, 0x1A, size_t(BLOCK - count));

        const short crc = calcrc(data, BLOCK);
        packet[DATA + BLOCK] = char((crc >> 8) & 0xFF);
        packet[DATA + BLOCK + 1] = char(crc & 0xFF);

        // These boards number blocks from 0.
        packet[0] = 0x01;
        packet[1] = char(m_AVRPacketCount);
        packet[2] = char(255 - m_AVRPacketCount);
        m_SerPortApp1->sendByteArray(QByteArray(packet, PACKET));

        m_AVRPacketCount = m_AVRPacketCount == 255 ? 0 : m_AVRPacketCount + 1;
    } else {
        // The board's answer to EOT is not awaited.
        m_isFinished = true;
        m_isProgrammed = true;
        m_ESAUpdateInProgress = false;
        m_SerPortApp1->sendByteArray(QByteArray(1, char(0x04)));
        qDebug() << "ESA programming finished";
    }
}
