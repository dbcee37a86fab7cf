// The application shell: canvas, main menu and the key filter, built as main() builds them.
#include "../support/DebugCapture.h"
#include "../support/SimInstrument.h"
#include "Canvas.h"
#include "IoExpanderPinController.h"
#include "KeyboardEventFilter.h"
#include "UpdaterMainScreen.h"
#include "UpdaterProgressScreen.h"

#include <QtTest> // with all of QtCore
#include <QtWidgets>

namespace {

// Records the events that reach a widget after the application-wide filter.
class EventRecorder : public QObject
{
public:
    QList<QEvent::Type> types;
    QList<int> keys;

    explicit EventRecorder(QObject* target) { target->installEventFilter(this); }

    bool eventFilter(QObject*, QEvent* event) override
    {
        if (event->type() == QEvent::KeyPress || event->type() == QEvent::KeyRelease)
            keys << static_cast<QKeyEvent*>(event)->key();
        types << event->type();
        return false;
    }
};

template <typename T> T* child(QWidget* parent, const QString& name)
{
    if (T* found = parent->findChild<T*>(name))
        return found;
    qFatal("no child %s", qPrintable(name));
}

} // namespace

class ShellTest : public QObject
{
    Q_OBJECT

    QGraphicsScene m_scene;
    QGraphicsView m_view;
    Canvas* m_canvas = nullptr; // owned by its proxy in the scene
    UpdaterMainScreen* m_menu = nullptr;
    UpdaterProgressScreen* m_progress = nullptr;
    std::unique_ptr<DebugCapture> m_debug;

    // When the code under test logged that the OFF key was held down, on m_debug's clock.
    QList<qint64> offKeyFirings() const { return m_debug->times("vOffKeyHeldDown"); }

    // The key filter's own OFF-key timer: its state shows at once whether a key started or stopped the wait.
    QTimer* offKeyTimer() { return KeyboardEventFilter::instance()->findChild<QTimer*>(); }

    // A soft key through the rotated view, as the keypad sends it: the button's shortcut animates the
    // click, so clicked() comes later.
    bool pressAndWaitForClick(Qt::Key key, QWidget* screen)
    {
        QSignalSpy clicked(child<QPushButton>(screen, QString("F%1Button").arg(key - Qt::Key_F1 + 1)),
                           &QPushButton::clicked);
        QApplication::setActiveWindow(&m_view);
        QTest::keyClick(m_view.windowHandle(), key);
        return clicked.count() > 0 || clicked.wait(10000);
    }

private slots:
    void initTestCase()
    {
        SIM_REQUIRE_INSTRUMENT();
        QVERIFY2(QDir("/mnt/data").isEmpty(), "must run inside sim/sandbox with an empty storage area");
        siminstrument::reset();
        QCoreApplication::setOrganizationName("Halbern");
        QCoreApplication::setApplicationName("Updater");
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, "/mnt/data/settings");
        qApp->installEventFilter(KeyboardEventFilter::instance());
        m_debug = std::make_unique<DebugCapture>();

        QCOMPARE(Canvas::instance(), nullptr);
        m_canvas = new Canvas(nullptr, Qt::CustomizeWindowHint | Qt::FramelessWindowHint);
        m_menu = m_canvas->findChild<UpdaterMainScreen*>();
        m_progress = m_canvas->findChild<UpdaterProgressScreen*>();
        QVERIFY(m_menu && m_progress);
        m_canvas->setGeometry(0, 0, 470, 268);
        m_view.setGeometry(0, 0, 470, 268);
        m_scene.addWidget(m_canvas);
        m_view.setScene(&m_scene);
        m_view.show();
        m_view.rotate(180.0);
        QApplication::setActiveWindow(&m_view);
        QVERIFY(QTest::qWaitForWindowActive(&m_view));

        // The menu asked for outputs 7 and 2, but nothing opened the expander: the bus stayed silent.
        QCOMPARE(siminstrument::lines("i2c"), QStringList());
    }

    void init()
    {
        m_canvas->showScreen(Canvas::MAIN_SCREEN_INDEX);
        QVERIFY(siminstrument::write("i2c", "clear"));
        m_debug->clear();
    }

    void cleanup()
    {
        KeyboardEventFilter::instance()->setEnableFunctionKeys(true);
        m_canvas->setEnabled(true);
        QTest::keyRelease(m_view.windowHandle(), Qt::Key_F7); // stops any wait a failed case left
    }

    void cleanupTestCase() { m_debug.reset(); }

    void versionLine()
    {
        QCOMPARE(child<QLabel>(m_menu, "label")->text(), QString("Halbern Firmware Update Application"));
        // A second screen reads the product anew and finds no dollar signs left to remove (the first
        // screen's line, with the default product, is checked on the real binary by tst_startup).
        QSettings().setValue("ProductName", "Pellacorde");
        UpdaterMainScreen second;
        QSettings().remove("ProductName");
        QCOMPARE(child<QLabel>(&second, "versionLabel")->text(), QString("Pellacorde Updater Version: 4.1 "));
    }

    void progressScreenForm()
    {
        QStringList buttons;
        for (int key = 1; key <= 5; ++key) {
            auto* button = child<QPushButton>(m_progress, QString("F%1Button").arg(key));
            buttons << button->shortcut().toString() + " " + button->text();
        }
        QCOMPARE(buttons,
                 (QStringList{"F1 F1\n", "F2 F2\n", "F3 Back\n", "F4 Scroll\nUp", "F5 Scroll\nDown"}));
        auto* view = child<QTextEdit>(m_progress, "progressMessageWindow");
        QVERIFY(view->isReadOnly() && view->focusPolicy() == Qt::NoFocus);
    }

    void canvasShowsOneScreenAtATime()
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
        }
        QCOMPARE(Canvas::instance(), nullptr);
    }

    void softKeyChoosesTheJobBeforeTheScreenChange_data()
    {
        QTest::addColumn<Qt::Key>("key");
        QTest::addColumn<QString>("label");
        QTest::addColumn<int>("type");
        QTest::newRow("F2 PC") << Qt::Key_F2 << "Update via PC" << 0;
        QTest::newRow("F3 memory stick") << Qt::Key_F3 << "Update via Memory\nStick" << 1;
        QTest::newRow("F4 transfer area, type 3") << Qt::Key_F4 << "Format Transfer Area" << 3;
        QTest::newRow("F5 storage area, type 2") << Qt::Key_F5 << "Format Storage Area" << 2;
    }

    void softKeyChoosesTheJobBeforeTheScreenChange()
    {
        QFETCH(Qt::Key, key);
        QFETCH(QString, label);
        QFETCH(int, type);
        const QString name = QKeySequence(key).toString();
        QCOMPARE(child<QLabel>(m_menu, name + "label")->text(), label);
        QCOMPARE(child<QPushButton>(m_menu, name + "Button")->text(), name);

        // The order of the two signals as the progress screen sees them. F1 first: it has no button on the
        // menu and must emit nothing; the soft key's click comes after anything F1 could have caused.
        QStringList order;
        QObject context;
        connect(m_menu, &UpdaterMainScreen::setUpdateType, &context,
                [&](int t) { order << QString("type %1").arg(t); });
        connect(m_menu, &UpdaterMainScreen::requestChangeScreen, &context,
                [&](int index) { order << QString("screen %1").arg(index); });
        QTest::keyClick(m_view.windowHandle(), Qt::Key_F1);
        QVERIFY(pressAndWaitForClick(key, m_menu));
        QCOMPARE(order, (QStringList{QString("type %1").arg(type), "screen 1"}));
        QVERIFY(m_menu->isHidden() && !m_progress->isHidden()); // its prompt: tst_engine's checkRun()
    }

    void progressScreenBackKey()
    {
        m_canvas->showScreen(Canvas::PROGRESS_SCREEN_INDEX);
        QSignalSpy request(m_progress, SIGNAL(requestChangeScreen(int)));
        QVERIFY(pressAndWaitForClick(Qt::Key_F3, m_progress));
        QCOMPARE(QList<QVariantList>(request), QList<QVariantList>{{0}});
        QVERIFY(!m_menu->isHidden() && m_progress->isHidden());
    }

    // The only case that waits for the 2 s timer. Qt may fire a coarse timer up to 5 % early.
    void offKeyHeldTwoSecondsRequestsOutputsOnce()
    {
        // Open the expander the way an owner would, so the requested outputs show on the bus.
        QVERIFY(IOExpanderPinController::instance()->init());
        QVERIFY(siminstrument::write("i2c", "clear"));
        const qint64 pressed = m_debug->elapsed();
        QTest::keyPress(m_view.windowHandle(), Qt::Key_F7);
        QTRY_COMPARE_WITH_TIMEOUT(offKeyFirings().size(), 1, 30000);
        const qint64 held = offKeyFirings().first() - pressed;
        QVERIFY2(held >= 1900, qPrintable(QString("fired after %1 ms").arg(held)));
        QCOMPARE(offKeyTimer()->interval(), 2000);
        QVERIFY(!offKeyTimer()->isActive()); // single-shot: it cannot fire again for this press
        QTest::keyRelease(m_view.windowHandle(), Qt::Key_F7);
        QCOMPARE(offKeyFirings().size(), 1);
        QCOMPARE(siminstrument::lines("i2c"), QStringList({"w 22 01 9f", "w 22 01 bf"}));
    }

    // Key events on the menu ("+KEY" press, "-KEY" release) and whether the OFF-key wait still runs.
    void offKeyWait_data()
    {
        QTest::addColumn<QString>("keys");
        QTest::addColumn<bool>("waiting");
        QTest::newRow("F7 held") << "+F7" << true;
        QTest::newRow("F7 repeated by the keypad starts over") << "+F7 +F7" << true;
        QTest::newRow("another key while F7 is held") << "+F7 +A" << false;
        QTest::newRow("a soft key while F7 is held") << "+F7 +F1" << false;
        QTest::newRow("another key released") << "+F7 -A" << false;
        QTest::newRow("F7 released early") << "+F7 -F7" << false;
        QTest::newRow("F7 pressed again after a stop") << "+F7 +A +F7" << true;
    }

    void offKeyWait()
    {
        QFETCH(QString, keys);
        QFETCH(bool, waiting);
        for (const QString& event : keys.split(' ')) {
            const auto key = Qt::Key(QKeySequence(event.mid(1))[0]);
            QTest::keyEvent(event.startsWith('+') ? QTest::Press : QTest::Release, m_view.windowHandle(),
                            key);
        }
        QCOMPARE(offKeyTimer()->isActive(), waiting);
        QCOMPARE(offKeyFirings().size(), 0);
    }

    // With function keys off (the shell disabled, so that no shortcut takes a soft key first): a widget
    // gets only F6 and F7, mouse and paint events untouched; a view still gets its soft keys, and an F7
    // delivered only to a view or a scene starts no OFF-key wait.
    void disabledFunctionKeys()
    {
        m_canvas->setEnabled(false);
        KeyboardEventFilter::instance()->setEnableFunctionKeys(false);
        const auto send = [](QObject* target, const QList<Qt::Key>& keys) {
            for (Qt::Key key : keys)
                for (QEvent::Type type : {QEvent::KeyPress, QEvent::KeyRelease}) {
                    QKeyEvent event(type, key, Qt::NoModifier);
                    QCoreApplication::sendEvent(target, &event);
                }
        };
        QWidget target;
        EventRecorder recorder(&target);
        send(&target, {Qt::Key_F1, Qt::Key_F3, Qt::Key_F5, Qt::Key_F6, Qt::Key_F7});
        QCOMPARE(recorder.keys, QList<int>({Qt::Key_F6, Qt::Key_F6, Qt::Key_F7, Qt::Key_F7}));
        recorder.types.clear();
        QMouseEvent click(QEvent::MouseButtonPress, {1, 1}, Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
        QPaintEvent paint(QRect(0, 0, 1, 1));
        QCoreApplication::sendEvent(&target, &click);
        QCoreApplication::sendEvent(&target, &paint);
        QCOMPARE(recorder.types, QList<QEvent::Type>({QEvent::MouseButtonPress, QEvent::Paint}));

        QGraphicsView bareView;
        EventRecorder viewRecorder(&bareView);
        send(&bareView, {Qt::Key_F2});
        QCOMPARE(viewRecorder.keys, QList<int>({Qt::Key_F2, Qt::Key_F2}));
        QKeyEvent f7(QEvent::KeyPress, Qt::Key_F7, Qt::NoModifier);
        QCoreApplication::sendEvent(&bareView, &f7);
        QGraphicsScene bareScene;
        QCoreApplication::sendEvent(&bareScene, &f7);
        QVERIFY(!offKeyTimer()->isActive());
    }
};

QTEST_MAIN(ShellTest)
#include "tst_shell.moc"
