#include "KeyboardEventFilter.h"

#include "IoExpanderPinController.h"

#include <QDebug>
#include <QEvent>
#include <QKeyEvent>
#include <QTimer>

KeyboardEventFilter* KeyboardEventFilter::s_pMe = nullptr;

namespace {
const int OFF_KEY_HOLD_MS = 2000;
}

KeyboardEventFilter::KeyboardEventFilter(QObject* parent)
    : QObject(parent), m_bFnKeyEnabled(true), m_isCapsLock(false), m_isCapsFirstClick(false),
      m_isCapsSecondClick(false), m_catchBox(false)
{
    m_KeyOffTimer = new QTimer(this);
    m_KeyOffTimer->setSingleShot(true);
    // A coarse timer may fire up to 5 % early; the OFF key must really be held for the whole time.
    m_KeyOffTimer->setTimerType(Qt::PreciseTimer);
    connect(m_KeyOffTimer, SIGNAL(timeout()), this, SLOT(vOffKeyHeldDown()));
}

KeyboardEventFilter* KeyboardEventFilter::instance()
{
    if (!s_pMe)
        s_pMe = new KeyboardEventFilter();
    return s_pMe;
}

void KeyboardEventFilter::setEnableFunctionKeys(bool enable)
{
    m_bFnKeyEnabled = enable;
}

void KeyboardEventFilter::setCatchBoxEnable(bool enable)
{
    m_catchBox = enable;
}

void KeyboardEventFilter::setCapsLock(bool capsLock)
{
    m_isCapsLock = capsLock;
}

bool KeyboardEventFilter::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() != QEvent::KeyPress && event->type() != QEvent::KeyRelease)
        return QObject::eventFilter(watched, event);

    // A key travels through the rotated view and its scene as well; act on the other deliveries only.
    const QByteArray className = watched->metaObject()->className();
    if (className == "QGraphicsView" || className == "QGraphicsScene")
        return QObject::eventFilter(watched, event);

    QKeyEvent* keyEvent = static_cast<QKeyEvent*>(event);
    const int key = keyEvent->key();

    if (key == Qt::Key_F7 && event->type() == QEvent::KeyPress)
        m_KeyOffTimer->start(OFF_KEY_HOLD_MS);
    else
        m_KeyOffTimer->stop();

    if (!m_bFnKeyEnabled && key >= Qt::Key_F1 && key <= Qt::Key_F5)
        return true;

    return QObject::eventFilter(watched, event);
}

void KeyboardEventFilter::vOffKeyHeldDown()
{
    qDebug() << "vOffKeyHeldDown";
    IOExpanderPinController::instance()->setDigOutput(0);
    IOExpanderPinController::instance()->setDigOutput(5);
}
