// The application shell: forms, canvas, main menu and the key filter, built as main() builds them.
#include "../support/SimInstrument.h"
#include "Canvas.h"
#include "IoExpanderPinController.h"
#include "KeyboardEventFilter.h"
#include "UpdaterMainScreen.h"
#include "UpdaterProgressScreen.h"

#include <QApplication>
#include <QGraphicsScene>
#include <QGraphicsView>
#include <QImage>
#include <QLabel>
#include <QPushButton>
#include <QSettings>
#include <QSignalSpy>
#include <QTextEdit>
#include <QtTest>

namespace {

QStringList debugLines;

void recordDebug(QtMsgType, const QMessageLogContext&, const QString& message)
{
    debugLines << message;
}

int countDebug(const QString& text)
{
    return debugLines.filter(text).size();
}

// Records the events that reach a widget after the application-wide filter.
class EventRecorder : public QObject
{
public:
    QList<QEvent::Type> types;
    QList<int> keys;

protected:
    bool eventFilter(QObject*, QEvent* event) override
    {
        if (event->type() == QEvent::KeyPress || event->type() == QEvent::KeyRelease)
            keys << static_cast<QKeyEvent*>(event)->key();
        types << event->type();
        return false;
    }
};

template <typename T> T* child(QWidget* parent, const char* name)
{
    T* found = parent->findChild<T*>(name);
    if (!found)
        qFatal("no child %s", name);
    return found;
}

QStringList directChildNames(QWidget* parent)
{
    QStringList names;
    for (QWidget* w : parent->findChildren<QWidget*>(QString(), Qt::FindDirectChildrenOnly))
        names << w->objectName();
    return names;
}

// Pressing a key reaches a button through its shortcut, which animates the click first.
bool pressAndWaitForClick(QWidget* window, QPushButton* button, Qt::Key key)
{
    QSignalSpy clicked(button, &QPushButton::clicked);
    QTest::keyClick(window->windowHandle(), key);
    return clicked.count() > 0 || clicked.wait(1000);
}

} // namespace

class ShellTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void mainMenuFormAndVersionLine();
    void progressFormTextsShortcutsAndInitialDocument();
    void canvasShowsOneScreenAtATime();
    void softKeysChooseTheJobBeforeTheScreenChange();
    void progressScreenBackKey();
    void offKeyHeldTwoSecondsRequestsOutputsOnce();
    void otherKeyCancelsOffKey();
    void disabledFunctionKeysAreSwallowed();
    void viewAndSceneDeliveriesPassUntouched();
    void cleanupTestCase();

private:
    QGraphicsScene* m_scene = nullptr;
    QGraphicsView* m_view = nullptr;
    Canvas* m_canvas = nullptr;
};

void ShellTest::initTestCase()
{
    SIM_REQUIRE_INSTRUMENT();
    QVERIFY2(!QFileInfo::exists("/mnt/data"), "must run inside sim/sandbox with a fresh /mnt");
    siminstrument::reset();
    QCoreApplication::setOrganizationName("Halbern");
    QCoreApplication::setApplicationName("Updater");
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, "/mnt/data/settings");
    qApp->installEventFilter(KeyboardEventFilter::instance());
    qInstallMessageHandler(recordDebug);

    QCOMPARE(Canvas::instance(), nullptr);
    m_scene = new QGraphicsScene();
    m_view = new QGraphicsView();
    m_canvas = new Canvas(nullptr, Qt::CustomizeWindowHint | Qt::FramelessWindowHint);
    QCOMPARE(Canvas::instance(), m_canvas);
    m_canvas->setGeometry(0, 0, 470, 268);
    m_view->setGeometry(0, 0, 470, 268);
    m_scene->addWidget(m_canvas);
    m_view->setScene(m_scene);
    m_view->show();
    m_view->rotate(180.0);
    QApplication::setActiveWindow(m_view);
    QVERIFY(QTest::qWaitForWindowActive(m_view));

    // The menu asked for outputs 7 and 2, but nothing opened the expander: the bus stayed silent.
    QCOMPARE(siminstrument::lines("i2c"), QStringList());
}

void ShellTest::mainMenuFormAndVersionLine()
{
    QWidget* menu = m_canvas->findChild<UpdaterMainScreen*>();
    QVERIFY(menu);
    QCOMPARE(menu->size(), QSize(478, 270));
    QCOMPARE(menu->minimumSize(), QSize(478, 270));
    QCOMPARE(menu->maximumSize(), QSize(478, 270));
    QCOMPARE(menu->styleSheet(), QString("background-color: rgb(255, 255, 255);"));
    QCOMPARE(menu->focusPolicy(), Qt::StrongFocus);

    // Creation order is part of the form: F4Button comes last although it sits in row 2.
    QCOMPARE(directChildNames(menu), QStringList({"label", "versionLabel", "F2Button", "F2label", "F3Button",
                                                  "F3label", "F4label", "F5Button", "F5label", "F4Button"}));
    QCOMPARE(child<QLabel>(menu, "label")->text(), QString("Halbern Firmware Update Application"));
    QCOMPARE(child<QLabel>(menu, "label")->font().pointSize(), 16);
    QCOMPARE(child<QLabel>(menu, "F3label")->text(), QString("Update via Memory\nStick"));
    QCOMPARE(child<QLabel>(menu, "F4label")->text(), QString("Format Transfer Area"));
    QCOMPARE(child<QLabel>(menu, "F5label")->text(), QString("Format Storage Area"));
    QCOMPARE(child<QLabel>(menu, "F2label")->text(), QString("Update via PC"));
    for (const char* key : {"F2", "F3", "F4", "F5"}) {
        QPushButton* button = child<QPushButton>(menu, (QString(key) + "Button").toLatin1().constData());
        QCOMPARE(button->text(), QString(key));
        QCOMPARE(button->shortcut(), QKeySequence(key));
        QCOMPARE(button->font().family(), QString("Arial"));
        QCOMPARE(button->font().pointSize(), 14);
    }
    QVERIFY(!menu->findChild<QPushButton*>("F1Button"));

    // No product was ever stored: the default product and the version without its dollar signs.
    QCOMPARE(child<QLabel>(menu, "versionLabel")->text(), QString("Orsina Updater Version: 4.1 "));

    // A second screen reads the product anew and finds no dollar signs left to remove.
    QSettings().setValue("ProductName", "Pellacorde");
    UpdaterMainScreen second;
    QCOMPARE(child<QLabel>(&second, "versionLabel")->text(), QString("Pellacorde Updater Version: 4.1 "));
    QCOMPARE(versionString, QString("Version: 4.1 "));
    QSettings().remove("ProductName");
}

void ShellTest::progressFormTextsShortcutsAndInitialDocument()
{
    UpdaterProgressScreen screen;
    QCOMPARE(screen.size(), QSize(478, 270));
    QCOMPARE(screen.maximumSize(), QSize(478, 270));
    const QList<QPair<QString, QString>> buttons = {
        {"F1\n", "F1"}, {"F2\n", "F2"}, {"Back\n", "F3"}, {"Scroll\nUp", "F4"}, {"Scroll\nDown", "F5"}};
    QStringList names;
    for (int i = 0; i < buttons.size(); ++i) {
        const QString name = QString("F%1Button").arg(i + 1);
        names << name;
        QPushButton* button = child<QPushButton>(&screen, name.toLatin1().constData());
        QCOMPARE(button->text(), buttons[i].first);
        QCOMPARE(button->shortcut(), QKeySequence(buttons[i].second));
    }
    QCOMPARE(directChildNames(&screen), QStringList({"progressMessageWindow"}) + names);
    QCOMPARE(child<QPushButton>(&screen, "F1Button")->sizePolicy().verticalPolicy(), QSizePolicy::Fixed);
    QVERIFY(child<QPushButton>(&screen, "F1Button")->font().kerning());

    QTextEdit* view = child<QTextEdit>(&screen, "progressMessageWindow");
    QVERIFY(view->isReadOnly());
    QCOMPARE(view->focusPolicy(), Qt::NoFocus);
    QCOMPARE(view->toPlainText(), QString());
    const QString html = view->toHtml();
    QVERIFY2(html.contains("font-family:'MS Shell Dlg 2'; font-size:12pt;"), qPrintable(html));
    QVERIFY2(html.contains("font-family:'Arial'; font-size:14pt;"), qPrintable(html));

    // The one compiled-in resource: a 32 by 32 RGBA image that nothing displays.
    const QImage icon(":/home.png");
    QCOMPARE(icon.size(), QSize(32, 32));
    QVERIFY(icon.hasAlphaChannel());
}

void ShellTest::canvasShowsOneScreenAtATime()
{
    {
        Canvas fresh;
        QCOMPARE(Canvas::instance(), &fresh);
        auto* menu = fresh.findChild<UpdaterMainScreen*>();
        auto* progress = fresh.findChild<UpdaterProgressScreen*>();
        QVERIFY(menu->isHidden() && progress->isHidden());
        fresh.showScreen(Canvas::MAIN_SCREEN_INDEX);
        QVERIFY(!menu->isHidden() && progress->isHidden());
        fresh.showScreen(Canvas::PROGRESS_SCREEN_INDEX);
        QVERIFY(menu->isHidden() && !progress->isHidden());
        // Asking again for the visible screen hides it and shows it again.
        QMetaObject::invokeMethod(&fresh, "changeScreen", Q_ARG(int, 1));
        QVERIFY(menu->isHidden() && !progress->isHidden());
        QVERIFY(fresh.keyOffTimer()->isSingleShot());
        QVERIFY(!fresh.keyOffTimer()->isActive());
    }
    QCOMPARE(Canvas::instance(), nullptr);
}

void ShellTest::softKeysChooseTheJobBeforeTheScreenChange()
{
    auto* menu = m_canvas->findChild<UpdaterMainScreen*>();
    auto* progress = m_canvas->findChild<UpdaterProgressScreen*>();
    QTextEdit* view = child<QTextEdit>(progress, "progressMessageWindow");

    // Record the order of the two signals as the progress screen sees them.
    QStringList order;
    connect(menu, &UpdaterMainScreen::setUpdateType, this,
            [&](int type) { order << QString("type %1").arg(type); });
    connect(menu, &UpdaterMainScreen::requestChangeScreen, this,
            [&](int index) { order << QString("screen %1").arg(index); });

    const QList<QPair<Qt::Key, QString>> cases = {
        {Qt::Key_F2, "Attach the unit to the PC via the USB cable provided then press F1\n"},
        {Qt::Key_F3,
         "Insert a memory stick containing the update_firmware.tar.bz2 file into the unit then press F1\n"},
        {Qt::Key_F4, "Are you Sure?, Press F1 to continue\n"},
        {Qt::Key_F5, "Are you Sure?, All test results and settings will be lost, Press F1 to continue\n"}};
    const QStringList types = {"type 0", "type 1", "type 3", "type 2"};
    for (int i = 0; i < cases.size(); ++i) {
        m_canvas->showScreen(Canvas::MAIN_SCREEN_INDEX);
        order.clear();
        const QString key = QString("F%1Button").arg(i + 2);
        QVERIFY(pressAndWaitForClick(m_view, child<QPushButton>(menu, key.toLatin1().constData()),
                                     cases[i].first));
        QCOMPARE(order, QStringList({types[i], "screen 1"}));
        QVERIFY(menu->isHidden() && !progress->isHidden());
        QCOMPARE(view->toPlainText(), cases[i].second);
    }

    // F1 has no button on the menu: nothing is emitted.
    m_canvas->showScreen(Canvas::MAIN_SCREEN_INDEX);
    order.clear();
    QTest::keyClick(m_view->windowHandle(), Qt::Key_F1);
    QTest::qWait(250);
    QCOMPARE(order, QStringList());
    QVERIFY(!menu->isHidden());
}

void ShellTest::progressScreenBackKey()
{
    auto* progress = m_canvas->findChild<UpdaterProgressScreen*>();
    auto* menu = m_canvas->findChild<UpdaterMainScreen*>();
    m_canvas->showScreen(Canvas::PROGRESS_SCREEN_INDEX);
    QSignalSpy request(progress, SIGNAL(requestChangeScreen(int)));
    QVERIFY(pressAndWaitForClick(m_view, child<QPushButton>(progress, "F3Button"), Qt::Key_F3));
    QCOMPARE(request.count(), 1);
    QCOMPARE(request.at(0).at(0).toInt(), 0);
    QVERIFY(!menu->isHidden() && progress->isHidden());
}

void ShellTest::offKeyHeldTwoSecondsRequestsOutputsOnce()
{
    // Open the expander the way an owner would, so the requested outputs show on the bus.
    QVERIFY(IOExpanderPinController::instance()->init());
    siminstrument::write("i2c", "clear");
    debugLines.clear();
    QTest::keyPress(m_view->windowHandle(), Qt::Key_F7);
    QElapsedTimer held;
    held.start();
    QTest::qWait(1500);
    QCOMPARE(countDebug("vOffKeyHeldDown"), 0);
    QTRY_COMPARE_WITH_TIMEOUT(countDebug("vOffKeyHeldDown"), 1, 1500);
    QVERIFY2(held.elapsed() >= 2000, qPrintable(QString("fired after %1 ms").arg(held.elapsed())));
    QTest::qWait(300);
    QCOMPARE(countDebug("vOffKeyHeldDown"), 1);
    QTest::keyRelease(m_view->windowHandle(), Qt::Key_F7);
    QCOMPARE(siminstrument::lines("i2c"), QStringList({"w 22 01 9f", "w 22 01 bf"}));
}

void ShellTest::otherKeyCancelsOffKey()
{
    debugLines.clear();
    // Another key while F7 is still held stops the wait; so does releasing F7 early.
    QTest::keyPress(m_view->windowHandle(), Qt::Key_F7);
    QTest::qWait(500);
    QTest::keyClick(m_view->windowHandle(), Qt::Key_A);
    QTest::keyPress(m_view->windowHandle(), Qt::Key_F7);
    QTest::qWait(1500);
    QTest::keyRelease(m_view->windowHandle(), Qt::Key_F7);
    QTest::qWait(1000);
    QCOMPARE(countDebug("vOffKeyHeldDown"), 0);
    QCOMPARE(siminstrument::lines("i2c"), QStringList({"w 22 01 9f", "w 22 01 bf"}));
}

void ShellTest::disabledFunctionKeysAreSwallowed()
{
    // Without the screens no button shortcut can take the soft keys before the filter sees them.
    delete m_canvas;
    m_canvas = nullptr;
    QCOMPARE(Canvas::instance(), nullptr);
    m_view->hide();
    QWidget target;
    EventRecorder recorder;
    target.installEventFilter(&recorder);
    KeyboardEventFilter::instance()->setEnableFunctionKeys(false);
    for (Qt::Key key : {Qt::Key_F1, Qt::Key_F3, Qt::Key_F5, Qt::Key_F6, Qt::Key_F7}) {
        QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier);
        QKeyEvent release(QEvent::KeyRelease, key, Qt::NoModifier);
        QCoreApplication::sendEvent(&target, &press);
        QCoreApplication::sendEvent(&target, &release);
    }
    KeyboardEventFilter::instance()->setEnableFunctionKeys(true);
    QCOMPARE(recorder.keys, QList<int>({Qt::Key_F6, Qt::Key_F6, Qt::Key_F7, Qt::Key_F7}));

    // Mouse and paint events are never touched.
    recorder.types.clear();
    QMouseEvent click(QEvent::MouseButtonPress, QPointF(1, 1), Qt::LeftButton, Qt::LeftButton,
                      Qt::NoModifier);
    QPaintEvent paint(QRect(0, 0, 1, 1));
    QCoreApplication::sendEvent(&target, &click);
    QCoreApplication::sendEvent(&target, &paint);
    QCOMPARE(recorder.types, QList<QEvent::Type>({QEvent::MouseButtonPress, QEvent::Paint}));
    QTest::qWait(50);
}

void ShellTest::viewAndSceneDeliveriesPassUntouched()
{
    debugLines.clear();
    // With function keys off, a soft key sent to the view itself still arrives there,
    // and an F7 press delivered only to the view or the scene starts no OFF-key wait.
    EventRecorder recorder;
    QGraphicsView bareView;
    bareView.installEventFilter(&recorder);
    KeyboardEventFilter::instance()->setEnableFunctionKeys(false);
    QKeyEvent f2(QEvent::KeyPress, Qt::Key_F2, Qt::NoModifier);
    QKeyEvent f2up(QEvent::KeyRelease, Qt::Key_F2, Qt::NoModifier);
    QCoreApplication::sendEvent(&bareView, &f2);
    QCoreApplication::sendEvent(&bareView, &f2up);
    KeyboardEventFilter::instance()->setEnableFunctionKeys(true);
    QCOMPARE(recorder.keys, QList<int>({Qt::Key_F2, Qt::Key_F2}));

    QKeyEvent f7(QEvent::KeyPress, Qt::Key_F7, Qt::NoModifier);
    QCoreApplication::sendEvent(&bareView, &f7);
    QGraphicsScene bareScene;
    QCoreApplication::sendEvent(&bareScene, &f7);
    QTest::qWait(2200);
    QCOMPARE(countDebug("vOffKeyHeldDown"), 0);
}

void ShellTest::cleanupTestCase()
{
    qInstallMessageHandler(nullptr);
}

QTEST_MAIN(ShellTest)
#include "tst_shell.moc"
