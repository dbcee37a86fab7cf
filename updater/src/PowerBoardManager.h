#ifndef POWERBOARDMANAGER_H
#define POWERBOARDMANAGER_H

#include <QObject>

// Client of the framed, acknowledged serial protocol to the power board.
class PowerBoardManager : public QObject
{
    Q_OBJECT

public:
    explicit PowerBoardManager(QObject* parent = nullptr);
};

#endif // POWERBOARDMANAGER_H
