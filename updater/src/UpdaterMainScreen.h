#ifndef UPDATERMAINSCREEN_H
#define UPDATERMAINSCREEN_H

#include "ui_UpdaterMainScreen.h"

#include <QWidget>

// Screen 0: the menu that picks one of the four jobs with F2..F5.
class UpdaterMainScreen : public QWidget
{
    Q_OBJECT

public:
    explicit UpdaterMainScreen(QWidget* parent = nullptr, Qt::WindowFlags f = Qt::WindowFlags());

signals:
    void requestChangeScreen(int newIndex);
    void setUpdateType(int updateType);

protected slots:
    void F1Clicked();
    void F2Clicked();
    void F3Clicked();
    void F4Clicked();
    void F5Clicked();

protected:
    void showMessage(const QString& text);

private:
    Ui_UpdaterMainScreen m_ui;
};

extern QString versionString;

#endif // UPDATERMAINSCREEN_H
