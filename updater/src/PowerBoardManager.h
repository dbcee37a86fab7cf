#ifndef POWERBOARDMANAGER_H
#define POWERBOARDMANAGER_H

#include <QByteArray>
#include <QDateTime>
#include <QObject>
#include <QQueue>
#include <QString>

class QTimer;
class TtyHandler;

// Client of the framed, acknowledged serial protocol to the power board: queues short ASCII commands,
// frames them (id, length, checksum, byte stuffing), resends on NAK or time-out, and checks, acknowledges
// and passes up the board's own frames.
class PowerBoardManager : public QObject
{
    Q_OBJECT

public:
    enum RX_STATE
    {
        WAITING_STX = 0,
        STORING_DATA = 1
    };

    PowerBoardManager(QString device, QObject* parent = nullptr);
    ~PowerBoardManager() override;

    virtual void sendGetVersionCommand();
    virtual void sendGetCalDataCommand();
    virtual void sendSetCalDataCommand(QDateTime when);
    virtual void sendStartTestCommand(uchar test);
    void sendStopTestCommand();
    void sendSendDataCommand();

signals:
    void txComplete();
    void txFailed();
    void packetReceived(QByteArray packetData);

protected slots:
    void processRxData();
    void txTimeOut();

private:
    void queueCommand(const QByteArray& command);
    void sendNextCommand();
    void sendPowerBoardCommand(QByteArray command);
    void reSendPowerBoardCommand();
    void packetiseMessageBuffer(char id);
    void lineReceived();
    bool rxCheckSumIsOk(const QByteArray& packet) const;
    void sendNak(char id);
    void sendAck(char id);

    QQueue<QByteArray> m_command_list;
    TtyHandler* m_power_board_tty;
    QByteArray m_rx_message_buffer;
    char m_current_tx_id;
    int m_tx_retries;
    char m_last_good_rx_id;
    QByteArray m_tx_message_buffer;
    QTimer* m_tx_timer;
};

#endif // POWERBOARDMANAGER_H
