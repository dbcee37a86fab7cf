#include "PowerBoardManager.h"

PowerBoardManager::PowerBoardManager(QObject* parent) : QObject(parent) {}
