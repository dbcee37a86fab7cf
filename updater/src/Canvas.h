#ifndef CANVAS_H
#define CANVAS_H

#include <QFrame>
#include <QList>

class QTimer;
class UpdaterMainScreen;
class UpdaterProgressScreen;

// The one top-level frame: owns both screens and shows one at a time.
class Canvas : public QFrame
{
    Q_OBJECT

public:
    enum
    {
        MAIN_SCREEN_INDEX = 0,
        PROGRESS_SCREEN_INDEX = 1
    };

    Canvas(QWidget* parent = nullptr, Qt::WindowFlags f = Qt::WindowFlags());
    ~Canvas() override;

    static Canvas* instance();
    void showScreen(int index);
    QTimer* keyOffTimer();

protected slots:
    void changeScreen(int index);
    void offKeyHeldDown();

private:
    static Canvas* ms_instance;
    QList<QWidget*> m_execScreenList;
    UpdaterMainScreen* m_s1;
    UpdaterProgressScreen* m_s2;
    QTimer* m_KeyOffTimer;
};

#endif // CANVAS_H
