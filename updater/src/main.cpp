#include "Canvas.h"
#include "KeyboardEventFilter.h"

#include <QApplication>
#include <QDebug>
#include <QFont>
#include <QGraphicsScene>
#include <QGraphicsView>
#include <QSettings>
#include <QStringList>

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    QCoreApplication::setOrganizationName("Halbern");
    QCoreApplication::setApplicationName("Updater");
    QApplication::setFont(QFont("Arial"));

    app.installEventFilter(KeyboardEventFilter::instance());

    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, "/mnt/data/settings");
    QSettings settings;

    QStringList args = QCoreApplication::arguments();
    for (int i = 1; i < args.size(); ++i) {
        const QString& arg = args.at(i);
        qDebug().nospace() << i << ": " << arg;
        if (arg == "--pic-enable") {
            settings.setValue("PicEnable", true);
        } else if (arg == "--pic-disable") {
            settings.setValue("PicEnable", false);
        } else if (arg == "--avr-enable") {
            settings.setValue("AvrEnable", true);
        } else if (arg == "--avr-disable") {
            settings.setValue("AvrEnable", false);
        } else if (arg == "Brenmark" || arg == "Dravenor" || arg == "Orsina" || arg == "Pellacorde") {
            // A settings object of its own, so the write reaches the file before the menu reads it.
            QSettings productSettings;
            productSettings.setValue("ProductName", arg);
        } else {
            qDebug().nospace() << "unknown command line argument: " << arg;
        }
    }

    QGraphicsScene* scene = new QGraphicsScene();
    QGraphicsView* view = new QGraphicsView();

    Canvas canvas(nullptr, Qt::CustomizeWindowHint | Qt::FramelessWindowHint);
    canvas.setGeometry(0, 0, 470, 268);
    view->setGeometry(0, 0, 470, 268);
    view->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    view->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);

    scene->addWidget(&canvas);
    view->setScene(scene);

    view->show();
    view->rotate(180.0);

    canvas.showScreen(Canvas::MAIN_SCREEN_INDEX);

    return app.exec();
}
