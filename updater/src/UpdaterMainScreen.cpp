#include "UpdaterMainScreen.h"

#include "Canvas.h"
#include "IoExpanderPinController.h"
#include "UpdaterProgressScreen.h"

#include <QMessageBox>
#include <QSettings>

// Revision-control keyword form; shown without the dollar signs. The number is the project's version.
QString versionString = "$Version: " UPDATER_VERSION " $";

UpdaterMainScreen::UpdaterMainScreen(QWidget* parent, Qt::WindowFlags f) : QWidget(parent, f)
{
    m_ui.setupUi(this);

    connect(m_ui.F2Button, SIGNAL(clicked()), this, SLOT(F2Clicked()));
    connect(m_ui.F3Button, SIGNAL(clicked()), this, SLOT(F3Clicked()));
    connect(m_ui.F4Button, SIGNAL(clicked()), this, SLOT(F4Clicked()));
    connect(m_ui.F5Button, SIGNAL(clicked()), this, SLOT(F5Clicked()));

    versionString.remove("$", Qt::CaseSensitive);

    QSettings settings;
    QString product = settings.value("ProductName", "Orsina").toString();
    m_ui.versionLabel->setText(product + " Updater " + versionString);

    // Results ignored: nothing opens the expander's bus, so these leave the outputs as they are.
    IOExpanderPinController::instance()->setDigOutput(7);
    IOExpanderPinController::instance()->setDigOutput(2);
}

void UpdaterMainScreen::F1Clicked() {}

void UpdaterMainScreen::F2Clicked()
{
    emit setUpdateType(UpdaterProgressScreen::PC_UPDATE);
    emit requestChangeScreen(Canvas::PROGRESS_SCREEN_INDEX);
}

void UpdaterMainScreen::F3Clicked()
{
    emit setUpdateType(UpdaterProgressScreen::MEMORY_STICK_UPDATE);
    emit requestChangeScreen(Canvas::PROGRESS_SCREEN_INDEX);
}

// F4 and F5 cross over: the lower button formats the storage area.
void UpdaterMainScreen::F4Clicked()
{
    emit setUpdateType(UpdaterProgressScreen::TRANSFER_FORMAT);
    emit requestChangeScreen(Canvas::PROGRESS_SCREEN_INDEX);
}

void UpdaterMainScreen::F5Clicked()
{
    emit setUpdateType(UpdaterProgressScreen::SDCARD_FORMAT);
    emit requestChangeScreen(Canvas::PROGRESS_SCREEN_INDEX);
}

void UpdaterMainScreen::showMessage(const QString& text)
{
    QMessageBox box(this);
    box.setText(text);
    box.exec();
}
