#include "Canvas.h"

#include "UpdaterMainScreen.h"
#include "UpdaterProgressScreen.h"

#include <QDebug>
#include <QTimer>
#include <QVBoxLayout>

#include <cstdlib>

Canvas* Canvas::ms_instance = nullptr;

Canvas::Canvas(QWidget* parent, Qt::WindowFlags f) : QFrame(parent, f)
{
    ms_instance = this;

    // Kept reachable for an owner that wants the shell power-off; nothing here starts it.
    m_KeyOffTimer = new QTimer(this);
    m_KeyOffTimer->setSingleShot(true);
    connect(m_KeyOffTimer, SIGNAL(timeout()), this, SLOT(offKeyHeldDown()));

    m_s1 = new UpdaterMainScreen(this);
    m_s2 = new UpdaterProgressScreen(this);

    connect(m_s1, SIGNAL(requestChangeScreen(int)), this, SLOT(changeScreen(int)));
    connect(m_s1, SIGNAL(setUpdateType(int)), m_s2, SLOT(setUpdateType(int)));
    connect(m_s2, SIGNAL(requestChangeScreen(int)), this, SLOT(changeScreen(int)));

    // The screens stay out of the layout so they keep their fixed size at the top-left corner.
    QVBoxLayout* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    setFocus();

    m_execScreenList.append(m_s1);
    m_execScreenList.append(m_s2);
    m_execScreenList.at(0)->hide();
    m_execScreenList.at(1)->hide();
}

Canvas::~Canvas()
{
    ms_instance = nullptr;
}

Canvas* Canvas::instance()
{
    return ms_instance;
}

void Canvas::showScreen(int index)
{
    m_execScreenList.at(0)->hide();
    m_execScreenList.at(1)->hide();
    m_execScreenList.at(index)->show();
}

QTimer* Canvas::keyOffTimer()
{
    return m_KeyOffTimer;
}

void Canvas::changeScreen(int index)
{
    showScreen(index);
}

void Canvas::offKeyHeldDown()
{
    qDebug() << "Power off because the OFF key has been held down";
    // Results are deliberately not examined: the shutdown goes ahead regardless.
    (void)std::system("sync");
    (void)std::system("echo 1 > /sys/class/gpio/gpio165/value");
    (void)std::system("poweroff");
}
