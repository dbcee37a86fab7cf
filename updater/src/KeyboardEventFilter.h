#ifndef KEYBOARDEVENTFILTER_H
#define KEYBOARDEVENTFILTER_H

#include <QObject>

class QTimer;

// Application-wide key filter: watches the OFF key and can swallow the soft keys.
class KeyboardEventFilter : public QObject
{
    Q_OBJECT

public:
    static KeyboardEventFilter* instance();

    void setEnableFunctionKeys(bool enable);
    void setCatchBoxEnable(bool enable);
    void setCapsLock(bool capsLock);

protected:
    explicit KeyboardEventFilter(QObject* parent = nullptr);
    bool eventFilter(QObject* watched, QEvent* event) override;

protected slots:
    void vOffKeyHeldDown();

private:
    bool m_bFnKeyEnabled;
    static KeyboardEventFilter* s_pMe;
    bool m_isCapsLock;
    bool m_isCapsFirstClick;
    bool m_isCapsSecondClick;
    bool m_catchBox;
    QTimer* m_KeyOffTimer;
};

#endif // KEYBOARDEVENTFILTER_H
