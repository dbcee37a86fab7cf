#ifndef PICPROGRAMMER_H
#define PICPROGRAMMER_H

#include <QObject>
#include <QString>

class GpioPinController;
class QEvent;
class QFile;
class QTimer;

// Programs the board's PIC18F over five bit-banged GPIO lines (low-voltage ICSP): erase with blank check,
// Intel HEX programming with read-back verify, configuration bytes and data EEPROM access.
class PicProgrammer : public QObject
{
    Q_OBJECT

public:
    // Named programming delays, after the timing parameters of the PIC18F flash programming interface.
    enum PIC_DELAY
    {
        PIC_DELAY_P2 = 0,
        PIC_DELAY_P5 = 1,
        PIC_DELAY_P5A = 2,
        PIC_DELAY_P6 = 3,
        PIC_DELAY_P9 = 4,
        PIC_DELAY_P10 = 5,
        PIC_DELAY_P11a = 6,
        PIC_DELAY_P12u = 7,
        PIC_DELAY_P12d = 8,
        PIC_DELAY_P15 = 9,
        PIC_DELAY_P16 = 10,
        PIC_DELAY_P18 = 11,
        PIC_DELAY_P2A = 12,
        PIC_DELAY_P2B = 13,
        PIC_DELAY_P3 = 14,
        PIC_DELAY_P4 = 15,
        PIC_DELAY_P13 = 16,
        PIC_DELAY_P14 = 17,
        PIC_DELAY_P11 = 18
    };

    explicit PicProgrammer(QObject* parent = nullptr);
    virtual ~PicProgrammer();

    // Programming run.
    void ev_pic_begin_erase();
    void ev_pic_erase_next_block();
    void programPic(QString filename);
    bool isFinished();
    bool isProgrammed();
    void ev_pic_reset(bool restart);
    void ev_pic_read();

    // Record level.
    quint8 u8PicWriteRecord();
    void vProgramPicFlash(quint32 u32PicCodeAddress, quint8 u8NoOfBytes, quint8* pData);
    void vProgramPicConfig(quint32 u32PicConfigAddress, quint8 u8DataByte);
    quint8 u8VerifyPicRecord();
    void vReadPicRecord(quint32 u32Address);

    // Erase level.
    void vPicBulkErase(quint8 u8Cmd1, quint8 u8Cmd2);
    quint8 u8PicBlankCheck(quint32 u32CheckAddress);
    void vEraseProgramMemory(quint32 u32Address);

    // Data EEPROM.
    quint8 u8ReadPicEeprom(quint16 u16EepromAddress);
    void vWritePicEeprom(quint16 u16EepromAddress, quint8 u8Data);
    void vReadEepromBlock();
    void vGetEepromCopy();
    void vRestoreEeprom();

    // Line protocol.
    void vEnterIspMode();
    void vReleaseMclr();
    void vRestoreIo();
    void vWriteCmd(quint8 u8Cmd);
    void vWriteByte(quint8 Byte);
    quint8 u8ReadByte();
    void vGeneralDelay(PIC_DELAY eDelay);
    void vSetCoreAddress(quint32 u32Address);
    quint8 u8ReadNextAddress();
    quint16 u16ReadDeviceId();
    void vReadDeviceConfig();
    quint16 u16ReadPic();
    quint8 u8ValidPicId(quint16 u16DeviceId);
    QString* pGetPicIdStr(quint16 u16DeviceId);
    void vProgramFlashCmd();

    // The shortest time each named delay waits, in nanoseconds.
    static qint64 delayNs(PIC_DELAY eDelay);

signals:
    void eraseNextBlock(int percentDone);
    void eraseDone();
    void eraseError();
    void endIsp();
    void lineProgrammed(int percentComplete);

public slots:
    void ev_pic_reset_timer();
    void ev_pic_end_isp();
    void powerTimeout();

protected:
    bool event(QEvent* e) override;

private:
    void vCoreInstruction(quint16 u16Word);

    quint8 Flash_Data[100];
    quint8 Flash_Data_Len;
    quint32 Flash_Address;
    quint32 u32EraseAddress;
    quint8 DataStr[10];
    QTimer* m_resetTimer;
    QTimer* m_picPowerTimer;
    QFile* m_hexFile;
    quint32 u32ExtendedAddress;
    bool m_finishedPicUpdate;
    bool m_PicUpdateSuccessful;

    GpioPinController* m_PinPgd;
    GpioPinController* m_PinMclr;
    GpioPinController* m_PinPgc;
    GpioPinController* m_powerPin;
    GpioPinController* m_PinPgm;
};

#endif // PICPROGRAMMER_H
