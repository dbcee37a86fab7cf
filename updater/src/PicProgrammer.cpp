#include "PicProgrammer.h"

PicProgrammer::PicProgrammer(QObject* parent) : QObject(parent) {}
