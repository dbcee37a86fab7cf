#include "PicProgrammer.h"

#include "GpioPinController.h"

#include <QCoreApplication>
#include <QDebug>
#include <QEvent>
#include <QFile>
#include <QTimer>

#include <chrono>
#include <cstring>

namespace {
// GPIO numbers of the PIC's lines: there is one PIC on fixed pins.
const QString PIN_PGD = "2";
const QString PIN_MCLR = "3";
const QString PIN_PGC = "4";
const QString PIN_POWER = "5";
const QString PIN_PGM = "6";

// The erase steps itself through the event queue with this event type, one 512-byte block per event.
const QEvent::Type ERASE_NEXT_BLOCK_EVENT = QEvent::Type(1000);
const quint32 BLANK_CHECK_BLOCK = 512;
const quint32 BLANK_CHECK_END = 0x10000;

// Core instruction words (sent low byte first after a 0000 command).
const quint16 MOVLW = 0x0E00;
const quint16 MOVWF_TBLPTRU = 0x6EF8;
const quint16 MOVWF_TBLPTRH = 0x6EF7;
const quint16 MOVWF_TBLPTRL = 0x6EF6;
const quint16 BSF_EECON1_EEPGD = 0x8EA6;
const quint16 BCF_EECON1_EEPGD = 0x9EA6;
const quint16 BSF_EECON1_CFGS = 0x8CA6;
const quint16 BCF_EECON1_CFGS = 0x9CA6;
const quint16 BSF_EECON1_WREN = 0x84A6;
const quint16 BSF_EECON1_FREE = 0x88A6;
const quint16 BSF_EECON1_WR = 0x82A6;
const quint16 BSF_EECON1_RD = 0x80A6;
const quint16 MOVWF_EEADR = 0x6EA9;
const quint16 MOVWF_EEADRH = 0x6EAA;
const quint16 MOVWF_EEDATA = 0x6EA8;
const quint16 MOVF_EEDATA_W = 0x50A8;
const quint16 MOVF_EECON1_W = 0x50A6;
const quint16 MOVWF_TABLAT = 0x6EF5;
const quint16 NOP = 0x0000;

// 4-bit ICSP commands.
const quint8 CMD_CORE = 0x0;
const quint8 CMD_SHIFT_OUT_TABLAT = 0x2;
const quint8 CMD_TABLE_READ_POST_INC = 0x9;
const quint8 CMD_TABLE_WRITE = 0xC;
const quint8 CMD_TABLE_WRITE_POST_INC2 = 0xD;
const quint8 CMD_TABLE_WRITE_START_PGM = 0xF;

const quint32 DEVICE_ID_ADDRESS = 0x3FFFFE;
const quint32 CONFIG_ADDRESS = 0x300000;
const quint32 LAST_CONFIG_ADDRESS = 0x30000D;
const quint32 FLASH_RECORD_LIMIT = 0xFFFE;
const quint32 ROW_SIZE = 64;
const int EEPROM_SIZE = 1024;

// An exported line switched to output ("out" drives it low), owned by the programmer.
GpioPinController* newOutputPin(const QString& number, QObject* parent)
{
    GpioPinController* pin = new GpioPinController(number, parent);
    pin->createDriver();
    pin->setDirection("out");
    return pin;
}
} // namespace

// Shared by all programmers: the last diagnostic reads, the last verify mismatch and the EEPROM image.
static quint8 au8DeviceConfig[16];
static quint8 au8ReadPicData[16];
static quint16 u16DeviceId_1;
static quint32 u32VerifyAddress;
static quint8 u8VerifyCorrect;
static quint8 u8VerifyActual;
static quint8 au8EepromCopy[EEPROM_SIZE];

PicProgrammer::PicProgrammer(QObject* parent)
    : QObject(parent), Flash_Data{}, Flash_Data_Len(0), Flash_Address(0), u32EraseAddress(0), DataStr{},
      m_hexFile(nullptr), u32ExtendedAddress(0)
{
    // The lines are restored before any slot of the caller sees the end of the erase.
    m_PicUpdateSuccessful = false;
    connect(this, SIGNAL(endIsp()), this, SLOT(ev_pic_end_isp()));
    connect(this, SIGNAL(eraseDone()), this, SLOT(ev_pic_end_isp()));
    connect(this, SIGNAL(eraseError()), this, SLOT(ev_pic_end_isp()));

    m_resetTimer = new QTimer(this);
    m_resetTimer->setInterval(20);
    m_resetTimer->setSingleShot(true);
    connect(m_resetTimer, SIGNAL(timeout()), this, SLOT(ev_pic_reset_timer()));

    m_finishedPicUpdate = false;

    // Board power on, then the PIC held in reset with low-voltage programming off. PGC gets no value of
    // its own: "out" already drives it low.
    m_powerPin = newOutputPin(PIN_POWER, this);
    m_powerPin->setValue("1");
    m_PinPgd = newOutputPin(PIN_PGD, this);
    m_PinPgd->setValue("0");
    m_PinMclr = newOutputPin(PIN_MCLR, this);
    m_PinMclr->setValue("1");
    m_PinPgc = newOutputPin(PIN_PGC, this);
    m_PinMclr->setValue("0");
    m_PinPgm = newOutputPin(PIN_PGM, this);
    m_PinPgm->setValue("0");

    // Releases the PIC once the board supply has settled.
    m_picPowerTimer = new QTimer(this);
    m_picPowerTimer->setSingleShot(true);
    m_picPowerTimer->setInterval(20);
    connect(m_picPowerTimer, SIGNAL(timeout()), this, SLOT(powerTimeout()));
    m_picPowerTimer->start();
}

PicProgrammer::~PicProgrammer()
{
    m_powerPin->setValue("0");
}

// ---- programming run
// ---------------------------------------------------------------------------------------

bool PicProgrammer::isFinished()
{
    return m_finishedPicUpdate;
}

bool PicProgrammer::isProgrammed()
{
    return m_PicUpdateSuccessful;
}

void PicProgrammer::ev_pic_reset_timer()
{
    vRestoreIo();
}

void PicProgrammer::powerTimeout()
{
    vRestoreIo();
}

void PicProgrammer::ev_pic_end_isp()
{
    qDebug() << "ev_pic_end_isp: enter ";
    vRestoreIo();
    qDebug() << "ev_pic_end_isp: exit ";
}

void PicProgrammer::ev_pic_reset(bool restart)
{
    m_PinMclr->setValue("1");
    m_PinMclr->setDirection("out");
    m_PinMclr->setValue("0");
    if (restart)
        m_resetTimer->start();
}

void PicProgrammer::ev_pic_read()
{
    u16DeviceId_1 = u16ReadPic();
    vEnterIspMode();
    vReadPicRecord(0);
    vReadEepromBlock();
}

void PicProgrammer::ev_pic_begin_erase()
{
    qDebug() << "enter ev_pic_begin_erase";
    vEnterIspMode();
    m_PicUpdateSuccessful = false;

    vPicBulkErase(0x00, 0x81);
    qDebug() << "setup erase boot";
    vPicBulkErase(0x01, 0x80);
    qDebug() << "setup erase b0";
    vPicBulkErase(0x02, 0x80);
    qDebug() << "setup erase b1";
    vPicBulkErase(0x04, 0x80);
    qDebug() << "setup erase b2";
    vPicBulkErase(0x08, 0x80);
    qDebug() << "setup erase b3";

    // The blank check runs one block per event so that the screen repaints in between.
    u32EraseAddress = 0;
    QCoreApplication::postEvent(this, new QEvent(ERASE_NEXT_BLOCK_EVENT));
    qDebug() << "exit ev_pic_begin_erase";
}

bool PicProgrammer::event(QEvent* e)
{
    if (e->type() == ERASE_NEXT_BLOCK_EVENT) {
        ev_pic_erase_next_block();
        return true;
    }
    return QObject::event(e);
}

void PicProgrammer::ev_pic_erase_next_block()
{
    if (u8PicBlankCheck(u32EraseAddress)) {
        u32EraseAddress += BLANK_CHECK_BLOCK;
        if (u32EraseAddress < BLANK_CHECK_END) {
            emit eraseNextBlock(int((100u * u32EraseAddress) >> 16));
            QCoreApplication::postEvent(this, new QEvent(ERASE_NEXT_BLOCK_EVENT));
        } else {
            qDebug() << "ev_pic_erase_next_block erase done";
            emit eraseDone();
        }
    } else {
        qDebug() << "ev_pic_erase_next_block - erase error " << u32EraseAddress;
        emit eraseError();
        m_finishedPicUpdate = true;
    }
}

void PicProgrammer::programPic(QString filename)
{
    delete m_hexFile; // a previous run's file; the current one is closed and freed with the programmer
    m_hexFile = new QFile(filename, this);
    if (!m_hexFile->open(QIODevice::ReadOnly | QIODevice::Text)) {
        // The run is deliberately not marked finished: the caller checks the file exists beforehand.
        qDebug() << "Failed to open hex file: " << filename;
        return;
    }

    const qint64 fileSize = m_hexFile->size();
    qint64 bytesRead = 0;
    float percentComplete = 0.0f;
    float lastPercentComplete = 0.0f;
    u32ExtendedAddress = 0;
    m_PicUpdateSuccessful = true;

    while (!m_hexFile->atEnd()) {
        const QString line = QString::fromLatin1(m_hexFile->readLine());
        bytesRead += line.length() + 1;

        // The colon is not examined and the record checksum is computed but never compared: a wrong
        // checksum is accepted. A field that is not hex reads as 0.
        const uint len = line.mid(1, 2).toUInt(nullptr, 16);
        const quint32 address = line.mid(3, 6).toUInt(nullptr, 16); // offset * 256 + record type
        if (len > sizeof(Flash_Data)) {
            // Longer than the record buffer: such a record cannot be written whole, so the run fails here
            // rather than program a truncated record.
            m_PicUpdateSuccessful = false;
            qDebug() << "u8PicWriteRecord error" << line << "Flash_Data_Len: " << len << "record longer than"
                     << sizeof(Flash_Data) << "bytes";
            break;
        }
        Flash_Data_Len = quint8(len);
        Flash_Address = address;
        quint8 calcChecksum = quint8(len + (address >> 16) + (address >> 8) + address);
        for (uint idx = 0; idx < len; ++idx) {
            const quint8 byte = quint8(line.mid(9 + 2 * int(idx), 2).toUInt(nullptr, 16));
            Flash_Data[idx] = byte;
            calcChecksum += byte;
        }
        const quint8 fileChecksum = quint8(line.mid(9 + 2 * int(len), 2).toUInt(nullptr, 16));
        // The record checksum is computed and never compared: a wrong one is accepted, deliberately.
        // NOLINTNEXTLINE(clang-analyzer-deadcode.DeadStores)
        calcChecksum = quint8(-calcChecksum);
        Q_UNUSED(fileChecksum);

        if ((Flash_Address & 0xFF) == 4) {
            u32ExtendedAddress = quint32(Flash_Data[0] * 256 + Flash_Data[1]) << 16;
        } else if (len != 0) {
            // Every other record type with data is written like a data record.
            Flash_Address = (Flash_Address >> 8) + u32ExtendedAddress;
            if (u8PicWriteRecord() != 0) {
                m_PicUpdateSuccessful = false;
                qDebug() << "u8PicWriteRecord error" << line << "Flash_Data_Len: " << len
                         << "Flash_Address: " << Flash_Address;
                break;
            }
        }

        // Whole percents, deliberately: a signal only when the integer percentage moves.
        // NOLINTNEXTLINE(bugprone-integer-division)
        percentComplete = float((100 * bytesRead) / fileSize);
        if (percentComplete != lastPercentComplete) {
            emit lineProgrammed(int(percentComplete));
            lastPercentComplete = percentComplete;
        }
    }
    m_finishedPicUpdate = true;
}

// ---- record level
// ------------------------------------------------------------------------------------------

quint8 PicProgrammer::u8PicWriteRecord()
{
    int int_len = Flash_Data_Len;
    quint32 u32PicAddress = Flash_Address;

    // The end is summed in 64 bits: a record near the top of the 32-bit address space must not wrap
    // around into flash (and onto the reset vector).
    if (quint64(u32PicAddress) + quint64(int_len) > FLASH_RECORD_LIMIT) {
        // Records touching 0xFFFE/0xFFFF, anything between flash and the configuration bytes (ID
        // locations, EEPROM data) and records beyond the last configuration byte are skipped. Below
        // 0x30000D the address cannot wrap while it rises.
        if (u32PicAddress >= LAST_CONFIG_ADDRESS || u32PicAddress < CONFIG_ADDRESS)
            return 0;
        for (int i = 0; i < int_len && u32PicAddress <= LAST_CONFIG_ADDRESS; ++i, ++u32PicAddress)
            vProgramPicConfig(u32PicAddress, Flash_Data[i]);
        return 0;
    }

    // Flash rows are written in whole words: an odd start or length is filled with the byte already in
    // flash. These fill reads rely on the programming mode left by the previous operation.
    quint8 FlashWords[sizeof(Flash_Data) + 2];
    quint8 u8DataOffset = 0;
    if (u32PicAddress & 1) {
        u32PicAddress -= 1;
        int_len += 1;
        vSetCoreAddress(u32PicAddress);
        FlashWords[u8DataOffset++] = u8ReadNextAddress();
    }
    std::memcpy(FlashWords + u8DataOffset, Flash_Data, Flash_Data_Len);
    if (int_len & 1) {
        vSetCoreAddress(u32PicAddress + quint32(int_len));
        FlashWords[int_len++] = u8ReadNextAddress();
    }

    // One write per 64-byte row the record touches; an empty record (only ever passed in directly)
    // touches none, and its last byte would lie before its first.
    if (int_len == 0)
        return u8VerifyPicRecord();
    u8DataOffset = 0;
    quint16 u16StartBlock = quint16((u32PicAddress & 0xFFFF) >> 6);
    const quint16 u16EndBlock = quint16(((u32PicAddress & 0xFFFF) + quint32(int_len) - 1) >> 6);
    while (u16StartBlock <= u16EndBlock) {
        u16StartBlock++;
        const quint32 u32EndAddress = quint32(u16StartBlock) * ROW_SIZE;
        quint8 u8Bytes = quint8(u32EndAddress - u32PicAddress);
        if (u8Bytes > int_len)
            u8Bytes = quint8(int_len);
        vProgramPicFlash(u32PicAddress, u8Bytes, FlashWords + u8DataOffset);
        int_len -= u8Bytes;
        u8DataOffset += u8Bytes;
        u32PicAddress += u8Bytes;
    }

    return u8VerifyPicRecord();
}

void PicProgrammer::vProgramPicFlash(quint32 u32PicCodeAddress, quint8 u8NoOfBytes, quint8* pData)
{
    vEnterIspMode();
    if (u8NoOfBytes <= 1)
        return;
    vCoreInstruction(BSF_EECON1_EEPGD);
    vCoreInstruction(BCF_EECON1_CFGS);
    vSetCoreAddress(u32PicCodeAddress);
    int idx = 0;
    for (; idx < int(u8NoOfBytes) - 2; idx += 2) {
        vWriteCmd(CMD_TABLE_WRITE_POST_INC2);
        vWriteByte(pData[idx]);
        vWriteByte(pData[idx + 1]);
        vGeneralDelay(PIC_DELAY_P5);
    }
    vWriteCmd(CMD_TABLE_WRITE_START_PGM);
    vWriteByte(pData[u8NoOfBytes - 2]);
    vWriteByte(pData[u8NoOfBytes - 1]);
    vProgramFlashCmd();
    vWriteCmd(CMD_CORE);
    vWriteByte(0x00);
    vWriteByte(0x00);
    vGeneralDelay(PIC_DELAY_P10);
}

void PicProgrammer::vProgramPicConfig(quint32 u32PicConfigAddress, quint8 u8DataByte)
{
    vEnterIspMode();
    vCoreInstruction(BSF_EECON1_EEPGD);
    vCoreInstruction(BSF_EECON1_CFGS);
    vSetCoreAddress(u32PicConfigAddress);
    // The byte goes in both halves of the word, so even and odd addresses both take it.
    vWriteCmd(CMD_TABLE_WRITE_START_PGM);
    vWriteByte(u8DataByte);
    vWriteByte(u8DataByte);
    vProgramFlashCmd();
    vWriteCmd(CMD_CORE);
    vWriteByte(0x00);
    vWriteByte(0x00);
    vGeneralDelay(PIC_DELAY_P10);
}

quint8 PicProgrammer::u8VerifyPicRecord()
{
    vEnterIspMode();
    vSetCoreAddress(Flash_Address);
    for (int idx = 0; idx < Flash_Data_Len; ++idx) {
        const quint8 actual = u8ReadNextAddress();
        if (actual != Flash_Data[idx]) {
            u32VerifyAddress = Flash_Address + quint32(idx);
            u8VerifyCorrect = Flash_Data[idx];
            u8VerifyActual = actual;
            qDebug() << "u32VerifyAddress: " << u32VerifyAddress << "u8VerifyCorrect: " << u8VerifyCorrect
                     << "u8VerifyActual" << u8VerifyActual;
            return 1;
        }
    }
    return 0;
}

void PicProgrammer::vReadPicRecord(quint32 u32Address)
{
    vSetCoreAddress(u32Address);
    for (quint8& byte : au8ReadPicData)
        byte = u8ReadNextAddress();
}

// ---- erase
// -------------------------------------------------------------------------------------------------

void PicProgrammer::vPicBulkErase(quint8 u8Cmd1, quint8 u8Cmd2)
{
    vSetCoreAddress(0x3C0005);
    vWriteCmd(CMD_TABLE_WRITE);
    vWriteByte(u8Cmd1);
    vWriteByte(u8Cmd1);
    vSetCoreAddress(0x3C0004);
    vWriteCmd(CMD_TABLE_WRITE);
    vWriteByte(u8Cmd2);
    vWriteByte(u8Cmd2);
    vCoreInstruction(NOP);
    // The erase runs while the second NOP holds PGC and PGD low before its operand.
    vWriteCmd(CMD_CORE);
    vGeneralDelay(PIC_DELAY_P11a);
    vGeneralDelay(PIC_DELAY_P11a);
    vGeneralDelay(PIC_DELAY_P11a);
    vGeneralDelay(PIC_DELAY_P10);
    vWriteByte(0x00);
    vWriteByte(0x00);
}

quint8 PicProgrammer::u8PicBlankCheck(quint32 u32CheckAddress)
{
    vSetCoreAddress(u32CheckAddress);
    for (quint32 i = 0; i < BLANK_CHECK_BLOCK; ++i) {
        if (u8ReadNextAddress() != 0xFF)
            return 0;
    }
    return 1;
}

void PicProgrammer::vEraseProgramMemory(quint32 u32Address)
{
    vEnterIspMode();
    for (int row = 0; row < 8; ++row) {
        vCoreInstruction(BSF_EECON1_EEPGD);
        vCoreInstruction(BCF_EECON1_CFGS);
        vCoreInstruction(BSF_EECON1_WREN);
        vSetCoreAddress(u32Address);
        vCoreInstruction(BSF_EECON1_FREE);
        vCoreInstruction(BSF_EECON1_WR);
        vProgramFlashCmd();
        vWriteByte(0x00);
        vWriteByte(0x00);
        u32Address += ROW_SIZE;
    }
    vCoreInstruction(NOP);
}

// ---- data EEPROM
// -------------------------------------------------------------------------------------------

quint8 PicProgrammer::u8ReadPicEeprom(quint16 u16EepromAddress)
{
    vEnterIspMode();
    vCoreInstruction(BCF_EECON1_EEPGD);
    vCoreInstruction(BCF_EECON1_CFGS);
    vCoreInstruction(MOVLW | (u16EepromAddress & 0xFF));
    vCoreInstruction(MOVWF_EEADR);
    vCoreInstruction(MOVLW | (u16EepromAddress >> 8));
    vCoreInstruction(MOVWF_EEADRH);
    vCoreInstruction(BSF_EECON1_RD);
    vCoreInstruction(MOVF_EEDATA_W);
    vCoreInstruction(MOVWF_TABLAT);
    vCoreInstruction(NOP);
    vWriteCmd(CMD_SHIFT_OUT_TABLAT);
    vWriteByte(0x00);
    return u8ReadByte();
}

void PicProgrammer::vWritePicEeprom(quint16 u16EepromAddress, quint8 u8Data)
{
    vEnterIspMode();
    vCoreInstruction(BCF_EECON1_EEPGD);
    vCoreInstruction(BCF_EECON1_CFGS);
    vCoreInstruction(MOVLW | (u16EepromAddress & 0xFF));
    vCoreInstruction(MOVWF_EEADR);
    vCoreInstruction(MOVLW | (u16EepromAddress >> 8));
    vCoreInstruction(MOVWF_EEADRH);
    vCoreInstruction(MOVLW | u8Data);
    vCoreInstruction(MOVWF_EEDATA);
    vCoreInstruction(BSF_EECON1_WREN);
    vCoreInstruction(BSF_EECON1_WR);
    // The write is self-timed: poll EECON1 until WR (bit 1) clears. The poll has no limit.
    quint8 eecon1;
    do {
        vCoreInstruction(MOVF_EECON1_W);
        vCoreInstruction(MOVWF_TABLAT);
        vCoreInstruction(NOP);
        vWriteCmd(CMD_SHIFT_OUT_TABLAT);
        vWriteByte(0x00);
        eecon1 = u8ReadByte();
    } while (eecon1 & 0x02);
    vGeneralDelay(PIC_DELAY_P10);
}

void PicProgrammer::vReadEepromBlock()
{
    // 16 bytes: the 16-bit address the EEPROM read takes cannot wrap.
    // NOLINTNEXTLINE(bugprone-too-small-loop-variable)
    for (quint16 address = 0; address < sizeof(au8ReadPicData); ++address)
        au8ReadPicData[address] = u8ReadPicEeprom(address);
}

void PicProgrammer::vGetEepromCopy()
{
    for (quint16 address = 0; address < EEPROM_SIZE; ++address)
        au8EepromCopy[address] = u8ReadPicEeprom(address);
}

void PicProgrammer::vRestoreEeprom()
{
    for (quint16 address = 0; address < EEPROM_SIZE; ++address)
        vWritePicEeprom(address, au8EepromCopy[address]);
}

// ---- line protocol
// -----------------------------------------------------------------------------------------

void PicProgrammer::vEnterIspMode()
{
    // Reset, then MCLR rises while PGM is high: low-voltage program/verify mode. The order matters.
    m_PinMclr->setDirection("out");
    m_PinMclr->setValue("1");
    m_PinMclr->setValue("0");
    m_PinPgm->setDirection("out");
    m_PinPgd->setDirection("out");
    m_PinPgc->setDirection("out");
    m_PinPgd->setValue("0");
    m_PinPgc->setValue("0");
    vGeneralDelay(PIC_DELAY_P12d);
    m_PinPgm->setValue("1");
    vGeneralDelay(PIC_DELAY_P15);
    vReleaseMclr();
    vGeneralDelay(PIC_DELAY_P12u);
}

void PicProgrammer::vReleaseMclr()
{
    m_PinMclr->setValue("1");
}

void PicProgrammer::vRestoreIo()
{
    // PGM stays high on purpose: the board's PGM circuit decides what it means once MCLR is released.
    m_PinMclr->setValue("1");
    m_PinPgm->setValue("1");
    m_PinPgd->setValue("0");
    m_PinPgc->setValue("0");
    vGeneralDelay(PIC_DELAY_P16);
    m_PinMclr->setValue("0");
    vGeneralDelay(PIC_DELAY_P18);
    for (volatile int i = 0; i < 30; i = i + 1) {
    }
    m_PinMclr->setValue("1");
    m_PinMclr->setDirection("in"); // released to the board's pull-up
}

void PicProgrammer::vWriteCmd(quint8 u8Cmd)
{
    m_PinPgd->setValue("0");
    m_PinPgc->setValue("0");
    for (int bit = 0; bit < 4; ++bit) {
        m_PinPgd->setValue((u8Cmd & 1) ? "1" : "0");
        m_PinPgc->setValue("1");
        vGeneralDelay(PIC_DELAY_P2);
        u8Cmd >>= 1;
        m_PinPgc->setValue("0");
        vGeneralDelay(PIC_DELAY_P2);
    }
    m_PinPgd->setValue("0");
    m_PinPgc->setValue("0");
    vGeneralDelay(PIC_DELAY_P5);
}

void PicProgrammer::vWriteByte(quint8 Byte)
{
    m_PinPgd->setValue("0");
    m_PinPgc->setValue("0");
    vGeneralDelay(PIC_DELAY_P2);
    for (int bit = 0; bit < 8; ++bit) {
        m_PinPgd->setValue((Byte & 1) ? "1" : "0");
        m_PinPgc->setValue("1");
        vGeneralDelay(PIC_DELAY_P2);
        Byte >>= 1;
        m_PinPgc->setValue("0");
        vGeneralDelay(PIC_DELAY_P2);
    }
    m_PinPgc->setValue("0");
    m_PinPgd->setValue("0");
    vGeneralDelay(PIC_DELAY_P6);
}

quint8 PicProgrammer::u8ReadByte()
{
    m_PinPgc->setValue("0");
    m_PinPgd->setDirection("in");
    quint8 result = 0;
    for (int bit = 0; bit < 8; ++bit) {
        m_PinPgc->setValue("1");
        vGeneralDelay(PIC_DELAY_P2);
        result >>= 1;
        m_PinPgc->setValue("0");
        vGeneralDelay(PIC_DELAY_P2);
        // Bits arrive least significant first, sampled after the falling edge.
        if (m_PinPgd->getValue().toInt(nullptr, 10) == 1)
            result |= 0x80;
    }
    m_PinPgc->setValue("0");
    m_PinPgd->setValue("0");
    m_PinPgd->setDirection("out");
    return result;
}

qint64 PicProgrammer::delayNs(PIC_DELAY eDelay)
{
    switch (eDelay) {
    case PIC_DELAY_P2:
    case PIC_DELAY_P5:
    case PIC_DELAY_P5A:
    case PIC_DELAY_P6:
    case PIC_DELAY_P2A:
    case PIC_DELAY_P2B:
    case PIC_DELAY_P3:
    case PIC_DELAY_P4:
    case PIC_DELAY_P13:
    case PIC_DELAY_P14:
    case PIC_DELAY_P16:
    case PIC_DELAY_P18:
        return 50; // only a minimum spacing between edges; the GPIO writes dominate
    case PIC_DELAY_P9:
        return 1000000; // flash write time
    case PIC_DELAY_P10:
        return 100000;
    case PIC_DELAY_P11a:
        return 4000000;
    case PIC_DELAY_P11:
        return 5000000;
    case PIC_DELAY_P12u:
    case PIC_DELAY_P12d:
        return 6000000;
    case PIC_DELAY_P15:
        return 2000; // the chip's PGM-to-MCLR setup minimum
    }
    return 1000;
}

void PicProgrammer::vGeneralDelay(PIC_DELAY eDelay)
{
    // A busy wait on the monotonic clock: it never sleeps or yields, and never ends early.
    const std::chrono::nanoseconds wait(delayNs(eDelay));
    const auto start = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() - start < wait) {
    }
}

void PicProgrammer::vCoreInstruction(quint16 u16Word)
{
    vWriteCmd(CMD_CORE);
    vWriteByte(quint8(u16Word & 0xFF));
    vWriteByte(quint8(u16Word >> 8));
}

void PicProgrammer::vSetCoreAddress(quint32 u32Address)
{
    vCoreInstruction(MOVLW | ((u32Address >> 16) & 0xFF));
    vCoreInstruction(MOVWF_TBLPTRU);
    vCoreInstruction(MOVLW | ((u32Address >> 8) & 0xFF));
    vCoreInstruction(MOVWF_TBLPTRH);
    vCoreInstruction(MOVLW | (u32Address & 0xFF));
    vCoreInstruction(MOVWF_TBLPTRL);
}

quint8 PicProgrammer::u8ReadNextAddress()
{
    vWriteCmd(CMD_TABLE_READ_POST_INC);
    vWriteByte(0x00); // the 8 dummy clocks
    return u8ReadByte();
}

quint16 PicProgrammer::u16ReadDeviceId()
{
    vSetCoreAddress(DEVICE_ID_ADDRESS);
    const quint8 devId1 = u8ReadNextAddress();
    const quint8 devId2 = u8ReadNextAddress();
    return quint16(devId2 * 256 + devId1);
}

void PicProgrammer::vReadDeviceConfig()
{
    vSetCoreAddress(CONFIG_ADDRESS);
    for (quint8& byte : au8DeviceConfig)
        byte = u8ReadNextAddress();
}

quint16 PicProgrammer::u16ReadPic()
{
    vEnterIspMode();
    const quint16 id = u16ReadDeviceId();
    vReadDeviceConfig();
    vRestoreIo();
    return id;
}

quint8 PicProgrammer::u8ValidPicId(quint16 u16DeviceId)
{
    // Only the PIC18F4620 is accepted; the other named parts are recognised by name alone.
    return (u16DeviceId & 0xFFE0) == 0x0C00 ? 1 : 0;
}

QString* PicProgrammer::pGetPicIdStr(quint16 u16DeviceId)
{
    // One buffer for all calls: each call overwrites the previous text.
    static QString idStr;
    const int revision = u16DeviceId & 0x1F;
    switch (u16DeviceId & 0xFFE0) {
    case 0x0C00:
        idStr = QString("PIC18F4620 version %1").arg(revision);
        break;
    case 0x0E80:
        idStr = QString("PIC18F4680 version %1").arg(revision);
        break;
    case 0x2740:
        idStr = QString("PIC18F4682 version %1").arg(revision);
        break;
    case 0x2760:
        idStr = QString("PIC18F4685 version %1").arg(revision);
        break;
    default:
        idStr = QString("Unknown PIC: %1").arg(u16DeviceId);
        break;
    }
    return &idStr;
}

void PicProgrammer::vProgramFlashCmd()
{
    m_PinPgc->setValue("0");
    m_PinPgd->setValue("0");
    vGeneralDelay(PIC_DELAY_P2);
    for (int clock = 0; clock < 3; ++clock) {
        m_PinPgc->setValue("1");
        vGeneralDelay(PIC_DELAY_P2);
        m_PinPgc->setValue("0");
        vGeneralDelay(PIC_DELAY_P2);
    }
    // The fourth clock is held high for the programming time.
    m_PinPgc->setValue("1");
    vGeneralDelay(PIC_DELAY_P9);
    m_PinPgc->setValue("0");
    vGeneralDelay(PIC_DELAY_P10);
    m_PinPgc->setValue("0");
    m_PinPgd->setValue("0");
}
