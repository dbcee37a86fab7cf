#ifndef PICPROGRAMMER_H
#define PICPROGRAMMER_H

#include <QObject>

// Programs the board's PIC18F over five bit-banged GPIO lines.
class PicProgrammer : public QObject
{
    Q_OBJECT

public:
    explicit PicProgrammer(QObject* parent = nullptr);
};

#endif // PICPROGRAMMER_H
