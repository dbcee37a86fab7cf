#include "UpdaterProgressScreen.h"

#include "GpioPinController.h"
#include "PicProgrammer.h"
#include "TtyHandler.h"

#include <QAbstractSlider>
#include <QCoreApplication>
#include <QFile>
#include <QScrollBar>

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

    // Never exported, so this writes nothing; the object is deliberately kept alive.
    GpioPinController* boardPower = new GpioPinController("5");
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
        m_ui.progressMessageWindow->setText(
            tr("Insert a memory stick containing the update_firmware.tar.bz2 file into the unit then press F1\n"));
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

void UpdaterProgressScreen::F1Clicked() {}

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

// The update engine, PIC and ESA steps below are filled in by their own work items.
void UpdaterProgressScreen::performUpdate() {}

void UpdaterProgressScreen::processEvents() {}

bool UpdaterProgressScreen::processCommandList(QStringList)
{
    return false;
}

int UpdaterProgressScreen::updateSDCARDKernel(QString)
{
    return -1;
}

int UpdaterProgressScreen::updateNANDKernel(QString)
{
    return -1;
}

int UpdaterProgressScreen::updateUbiImage(QString)
{
    return -1;
}

int UpdaterProgressScreen::updateRootfs(QString)
{
    return -1;
}

int UpdaterProgressScreen::updateModules(QString)
{
    return -1;
}

int UpdaterProgressScreen::updatePic(int, QString)
{
    return -1;
}

int UpdaterProgressScreen::updateESA(QString, ESA_BOARD_ID, ESA_UPDATE_TYPE)
{
    return -1;
}

short UpdaterProgressScreen::calcrc(char*, int)
{
    return 0;
}

void UpdaterProgressScreen::picEraseComplete() {}

void UpdaterProgressScreen::picEraseError() {}

void UpdaterProgressScreen::picLineProgrammed(int) {}

void UpdaterProgressScreen::blockErased(int) {}

void UpdaterProgressScreen::ESADataReceived() {}

void UpdaterProgressScreen::sendNextESAPacket() {}
