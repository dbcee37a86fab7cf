// The instrument's operation log: GPIO transfers kept as records read back exactly as text lines would,
// in order with the other lines, and the limit dropping the oldest of either kind.
#include "OperationLog.h"

#include <QtTest>

#include <string>

using sim::OperationLog;
using namespace std::string_literals;

class TestOperationLog : public QObject
{
    Q_OBJECT

private slots:
    void transfersReadBackAsLines_data()
    {
        QTest::addColumn<bool>("read");
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<qulonglong>("offset");
        QTest::addColumn<int>("error");
        QTest::addColumn<QString>("line");

        QTest::newRow("read") << true << QByteArray("1\n") << 0ull << 0 << "read gpio4/value \"1\\n\"";
        QTest::newRow("read further on")
            << true << QByteArray("\n") << 1ull << 0 << "read gpio4/value @1 \"\\n\"";
        QTest::newRow("read past the end") << true << QByteArray() << 2ull << 0 << "read gpio4/value @2 \"\"";
        QTest::newRow("failed read shows no bytes")
            << true << QByteArray() << 0ull << ENODEV << "read gpio4/value -> ENODEV";
        QTest::newRow("write") << false << QByteArray("1") << 0ull << 0 << "write gpio4/value \"1\"";
        QTest::newRow("write ignores the offset")
            << false << QByteArray("0") << 7ull << 0 << "write gpio4/value \"0\"";
        QTest::newRow("refused write")
            << false << QByteArray("0") << 0ull << EPERM << "write gpio4/value \"0\" -> EPERM";
        QTest::newRow("escapes") << false << QByteArray("\"\\\t\x01", 4) << 0ull << 0
                                 << "write gpio4/value \"\\\"\\\\\\t\\x01\"";
        QTest::newRow("longer than a record holds")
            << false << QByteArray("0123456789abcdef\n") << 0ull << EINVAL
            << "write gpio4/value \"0123456789abcdef\\n\" -> EINVAL";
        QTest::newRow("offset beyond 32 bits")
            << true << QByteArray("x") << 0x100000000ull << 0 << "read gpio4/value @4294967296 \"x\"";
        QTest::newRow("unknown error")
            << false << QByteArray("1") << 0ull << 200 << "write gpio4/value \"1\" -> errno 200";
    }

    void transfersReadBackAsLines()
    {
        QFETCH(bool, read);
        QFETCH(QByteArray, bytes);
        QFETCH(qulonglong, offset);
        QFETCH(int, error);
        QFETCH(QString, line);
        OperationLog log;
        const std::uint32_t file = log.fileId("gpio4/value");
        log.addTransfer(read ? OperationLog::Transfer::Read : OperationLog::Transfer::Write, file,
                        std::string_view(bytes.constData(), std::size_t(bytes.size())), offset, error);
        QCOMPARE(QString::fromStdString(log.text()), line + '\n');
    }

    void filesKeepTheirNames()
    {
        OperationLog log;
        const std::uint32_t value = log.fileId("gpio4/value");
        const std::uint32_t direction = log.fileId("gpio4/direction");
        QVERIFY(value != direction);
        QCOMPARE(log.fileId("gpio4/value"), value);
        log.addTransfer(OperationLog::Transfer::Write, direction, "in", 0, 0);
        log.addTransfer(OperationLog::Transfer::Write, value, "1", 0, EPERM);
        QCOMPARE(log.text(), "write gpio4/direction \"in\"\nwrite gpio4/value \"1\" -> EPERM\n"s);
    }

    void limitDropsTheOldestLinesOfEitherKind_data()
    {
        QTest::addColumn<int>("limit");
        QTest::addColumn<QString>("text");
        const QString all = "open gpio4/value rdwr\nwrite gpio4/value \"1\"\nlookup gpio9 -> ENOENT\n"
                            "read gpio4/value \"1\\n\"\nclose gpio4/value\n";
        QTest::newRow("room for all") << 5 << all;
        QTest::newRow("first text dropped") << 4 << "(1 older lines dropped)\n" + all.section('\n', 1);
        QTest::newRow("a record dropped next") << 3 << "(2 older lines dropped)\n" + all.section('\n', 2);
        QTest::newRow("only the last text") << 1 << "(4 older lines dropped)\nclose gpio4/value\n";
        QTest::newRow("nothing kept") << 0 << "(5 older lines dropped)\n";
    }

    void limitDropsTheOldestLinesOfEitherKind()
    {
        QFETCH(int, limit);
        QFETCH(QString, text);
        OperationLog log;
        log.setLimit(std::size_t(limit));
        const std::uint32_t value = log.fileId("gpio4/value");
        log.add("open gpio4/value rdwr");
        log.addTransfer(OperationLog::Transfer::Write, value, "1", 0, 0);
        log.add("lookup gpio9 -> ENOENT");
        log.addTransfer(OperationLog::Transfer::Read, value, "1\n", 0, 0);
        log.add("close gpio4/value");
        QCOMPARE(QString::fromStdString(log.text()), text);
    }

    void clearStartsAfresh()
    {
        OperationLog log;
        log.setLimit(1);
        log.add("one");
        log.addTransfer(OperationLog::Transfer::Write, log.fileId("export"), "5", 0, 0);
        log.clear();
        QCOMPARE(log.text(), ""s);
        log.add("two");
        QCOMPARE(log.text(), "two\n"s);
    }
};

QTEST_APPLESS_MAIN(TestOperationLog)
#include "tst_operationlog.moc"
