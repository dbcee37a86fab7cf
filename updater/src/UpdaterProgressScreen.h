#ifndef UPDATERPROGRESSSCREEN_H
#define UPDATERPROGRESSSCREEN_H

#include "ui_UpdaterProgressScreen.h"

#include <QString>
#include <QStringList>
#include <QWidget>

class PicProgrammer;
class QFile;
class TtyHandler;

// Screen 1: runs the chosen job on F1 and reports every step as a line of the message view.
class UpdaterProgressScreen : public QWidget
{
    Q_OBJECT

public:
    enum
    {
        PC_UPDATE = 0,
        MEMORY_STICK_UPDATE = 1,
        SDCARD_FORMAT = 2,
        TRANSFER_FORMAT = 3
    };

    enum SYS_TYPE : quint32
    {
        SYS_TYPE_SDCARD = 0,
        SYS_TYPE_NAND = 1,
        SYS_TYPE_UNKNOWN = 2
    };

    enum UPDATE_STAGE : quint32
    {
        PC_START = 0,
        MEMORY_STICK_START = 1,
        SDCARD_FORMAT_START = 2,
        TRANSFER_FORMAT_START = 3,
        RESTART = 4,
        MOUNT_PC = 5
    };

    enum ESA_BOARD_ID
    {
        IO = 0,
        MEASUREMENT = 1
    };
    enum ESA_UPDATE_TYPE
    {
        APP = 0,
        EEP = 1
    };

    explicit UpdaterProgressScreen(QWidget* parent = nullptr, Qt::WindowFlags f = Qt::WindowFlags());
    ~UpdaterProgressScreen() override;

    void performUpdate();
    void processEvents();
    bool processCommandList(QStringList commands);

    int updateSDCARDKernel(QString file);
    int updateNANDKernel(QString file);
    int updateUbiImage(QString file);
    int updateRootfs(QString file);
    int updateModules(QString file);

    int updatePic(int picNumber, QString file);

    int updateESA(QString file, ESA_BOARD_ID board, ESA_UPDATE_TYPE type);
    short calcrc(char* data, int count);

signals:
    void requestChangeScreen(int newIndex);
    void ESAUpdateSendNextPacket();

public slots:
    void F1Clicked();
    void F2Clicked();
    void F3Clicked();
    void F4Clicked();
    void F5Clicked();
    void setUpdateType(int updateType);
    void picEraseComplete();
    void picEraseError();
    void picLineProgrammed(int percentComplete);
    void blockErased(int percentComplete);
    void ESADataReceived();
    void sendNextESAPacket();

private:
    struct Command; // a kind of command-list line
    static const Command* findCommand(const QString& keyword);

    Ui_UpdaterProgressScreen m_ui;
    int m_updateType;
    UPDATE_STAGE m_updateStage;
    SYS_TYPE m_systemType;
    PicProgrammer* m_pic;
    QString m_hexFileStr;
    QFile* m_updateFile;
    TtyHandler* m_SerPortApp1;
    bool m_ESAUpdateInProgress;
    bool m_ESA_MEASUREMENT_AVRInBootMode;
    bool m_ESA_IO_AVRInBootMode;
    bool m_isFinished;
    bool m_isProgrammed;
    quint8 m_AVRPacketCount;
    bool m_PicUpdateEnabled;
    bool m_AvrUpdateEnabled;
    QString m_usbPartition;
};

#endif // UPDATERPROGRESSSCREEN_H
