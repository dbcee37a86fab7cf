// The GPIO line bank and the I2C expander model, checked against how sysfs GPIO and a PCA9534 behave.
#include "GpioLineBank.h"
#include "I2cExpander.h"

#include <QtTest>

#include <cerrno>

using sim::Direction;
using sim::GpioLineBank;
using sim::I2cExpander;
using sim::LineState;

namespace {

// A device that records what the host did and drives its lines as told.
class FakeDevice : public sim::GpioDevice
{
public:
    struct Change
    {
        int line;
        Direction direction;
        bool level;
        std::uint64_t at;
    };
    std::vector<Change> changes;
    std::map<int, std::optional<bool>> drive;

    void lineChanged(int line, const LineState& state, std::uint64_t nowNs) override
    {
        changes.push_back({line, state.direction, state.hostLevel, nowNs});
    }
    std::optional<bool> drivenLevel(int line, std::uint64_t) override { return drive[line]; }
};

} // namespace

class GpioModelsTest : public QObject
{
    Q_OBJECT

private slots:
    void exportCreatesAnUndrivenInput()
    {
        GpioLineBank bank;
        QCOMPARE(bank.exportLine(5), 0);
        QCOMPARE(bank.readDirection(5), std::string("in\n"));
        QCOMPARE(bank.readValue(5, 0), std::string("1\n")); // pulled up
        QCOMPARE(bank.exportLine(5), -EBUSY);
        QCOMPARE(bank.exportLine(GpioLineBank::maxLine + 1), -EINVAL);
        QCOMPARE(bank.exportLine(-1), -EINVAL);
        QCOMPARE(bank.unexportLine(6), -EINVAL);
        QCOMPARE(bank.unexportLine(5), 0);
        QVERIFY(!bank.isExported(5));
        QCOMPARE(bank.unexportLine(5), -EINVAL);
    }

    void exportTextIsParsedLikeTheKernel_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("result");
        QTest::newRow("plain") << "7" << 0;
        QTest::newRow("newline") << "7\n" << 0;
        QTest::newRow("hex") << "0x7" << 0;
        QTest::newRow("two newlines") << "7\n\n" << -EINVAL;
        QTest::newRow("blank") << "7 " << -EINVAL;
        QTest::newRow("empty") << "" << -EINVAL;
        QTest::newRow("word") << "gpio7" << -EINVAL;
        QTest::newRow("out of bank") << "512" << -EINVAL;
    }

    void exportTextIsParsedLikeTheKernel()
    {
        QFETCH(QString, text);
        QFETCH(int, result);
        GpioLineBank bank;
        QCOMPARE(bank.exportLine(std::string_view(text.toStdString())), result);
        QCOMPARE(bank.isExported(7), result == 0);
    }

    void directionKeywords()
    {
        GpioLineBank bank;
        bank.exportLine(3);
        QCOMPARE(bank.writeDirection(3, "high", 0), 0);
        QCOMPARE(bank.readValue(3, 0), std::string("1\n"));
        QCOMPARE(bank.writeDirection(3, "out", 0), 0); // "out" always starts low
        QCOMPARE(bank.readValue(3, 0), std::string("0\n"));
        QCOMPARE(bank.readDirection(3), std::string("out\n"));
        QCOMPARE(bank.writeDirection(3, "high\n", 0), 0);
        QCOMPARE(bank.writeDirection(3, "low", 0), 0);
        QCOMPARE(bank.readValue(3, 0), std::string("0\n"));
        QCOMPARE(bank.writeDirection(3, "in", 0), 0);
        QCOMPARE(bank.readDirection(3), std::string("in\n"));
        for (const char* bad : {"OUT", "output", "out ", "", "in\n\n"})
            QCOMPARE(bank.writeDirection(3, bad, 0), -EINVAL);
        QCOMPARE(bank.writeDirection(4, "out", 0), -ENODEV); // not exported
    }

    void valueWritesNeedAnOutput()
    {
        GpioLineBank bank;
        bank.exportLine(2);
        QCOMPARE(bank.writeValue(2, "0", 0), -EPERM);
        QCOMPARE(bank.readValue(2, 0), std::string("1\n")); // the refused write changed nothing
        bank.writeDirection(2, "out", 0);
        QCOMPARE(bank.writeValue(2, "1", 0), 0);
        QCOMPARE(bank.readValue(2, 0), std::string("1\n"));
        QCOMPARE(bank.writeValue(2, "0\n", 0), 0);
        QCOMPARE(bank.readValue(2, 0), std::string("0\n"));
        QCOMPARE(bank.writeValue(2, "2", 0), 0); // any non-zero number drives high
        QVERIFY(bank.level(2, 0));
        QCOMPARE(bank.writeValue(2, "high", 0), -EINVAL);
        QVERIFY(bank.level(2, 0));
        // A line taken back to input keeps no driven level: it floats high again.
        bank.writeValue(2, "0", 0);
        bank.writeDirection(2, "in", 0);
        QVERIFY(bank.level(2, 0));
    }

    void countersPerLineAndTotals()
    {
        GpioLineBank bank;
        bank.exportLine(4);
        bank.writeValue(4, "1", 0); // refused: input
        bank.writeDirection(4, "out", 0);
        bank.writeValue(4, "1", 0);
        bank.writeValue(4, "1", 0);
        bank.readValue(4, 0);
        bank.exportLine(4); // refused: busy
        const LineState* s = bank.state(4);
        QVERIFY(s);
        QCOMPARE(s->valueWrites, 2u);
        QCOMPARE(s->valueReads, 1u);
        QCOMPARE(s->directionWrites, 1u);
        QCOMPARE(s->rejectedWrites, 1u);
        QCOMPARE(bank.totals().rejected, 2u);
        QCOMPARE(bank.totals().exports, 1u);
        // A new export starts a fresh line.
        bank.unexportLine(4);
        bank.exportLine(4);
        QCOMPARE(bank.state(4)->valueWrites, 0u);
        QCOMPARE(bank.state(4)->direction, Direction::In);
        bank.reset(0);
        QVERIFY(bank.exportedLines().empty());
        QCOMPARE(bank.totals().exports, 0u);
    }

    void attachedDeviceDrivesInputsAndSeesTheHost()
    {
        GpioLineBank bank;
        FakeDevice pic;
        bank.attach({2, 3}, &pic);
        bank.exportLine(2);
        bank.exportLine(3);
        pic.drive[2] = false;
        QCOMPARE(bank.readValue(2, 10), std::string("0\n"));
        pic.drive[2] = std::nullopt; // released: pulled up
        QCOMPARE(bank.readValue(2, 11), std::string("1\n"));
        pic.drive[2] = false;
        bank.writeDirection(2, "high", 12); // the host's output wins over the device
        QCOMPARE(bank.readValue(2, 13), std::string("1\n"));

        bank.writeDirection(3, "out", 20);
        bank.writeValue(3, "1", 21);
        bank.writeValue(3, "1", 22); // a repeated level still reaches the device
        bank.writeValue(3, "x", 23); // refused: not reported
        bank.unexportLine(3, 24);    // releases the line
        bank.exportLine(5);
        bank.writeDirection(5, "out", 25); // not attached
        QCOMPARE(int(pic.changes.size()), 5);
        const FakeDevice::Change& first = pic.changes[0];
        QCOMPARE(first.line, 2);
        QVERIFY(first.direction == Direction::Out && first.level && first.at == 12u);
        QCOMPARE(pic.changes[2].at, 21u);
        QVERIFY(pic.changes[3].level && pic.changes[3].at == 22u);
        QVERIFY(pic.changes[4].line == 3 && pic.changes[4].direction == Direction::In &&
                pic.changes[4].at == 24u);
    }

    void expanderAnswersOnlyItsAddress()
    {
        I2cExpander chip(0x22);
        QCOMPARE(chip.write(0x21, {0x03, 0x00}), -ENXIO);
        QCOMPARE(chip.reg(I2cExpander::Configuration), std::uint8_t(0xFF)); // untouched: all inputs
        QCOMPARE(chip.write(0x22, {0x03, 0x00}), 0);
        QCOMPARE(chip.write(0x22, {0x01, 0x9E}), 0);
        QCOMPARE(chip.pinLevels(), std::uint8_t(0x9E));
        const auto& record = chip.transactions();
        QCOMPARE(int(record.size()), 3);
        QVERIFY(!record[0].acknowledged && record[0].address == 0x21);
        QVERIFY(record[2].acknowledged && record[2].bytes == (std::vector<std::uint8_t>{0x01, 0x9E}));
    }

    void expanderRegisterMap()
    {
        I2cExpander chip(0x22);
        QCOMPARE(chip.reg(I2cExpander::OutputPort), std::uint8_t(0xFF)); // power-on values
        QCOMPARE(chip.reg(I2cExpander::PolarityInversion), std::uint8_t(0x00));
        QCOMPARE(chip.pinLevels(), std::uint8_t(0xFF)); // inputs float high
        chip.write(0x22, {0x01, 0x00});
        QCOMPARE(chip.pinLevels(), std::uint8_t(0xFF)); // the output latch only shows on outputs
        chip.write(0x22, {0x03, 0xF0});
        QCOMPARE(chip.pinLevels(), std::uint8_t(0xF0));
        chip.write(0x22, {0x00, 0x55}); // the input port ignores writes
        std::vector<std::uint8_t> in;
        QCOMPARE(chip.read(0x22, 1, in), 0);
        QCOMPARE(in, std::vector<std::uint8_t>{0xF0});
        chip.write(0x22, {0x02, 0x0F});
        chip.write(0x22, {0x00}); // pointer only
        chip.read(0x22, 2, in);
        QCOMPARE(in, (std::vector<std::uint8_t>{0xFF, 0xFF})); // inverted low nibble; pointer stays
        chip.write(0x22, {0x01, 0x12, 0x34});                  // further bytes go to the same register
        QCOMPARE(chip.reg(I2cExpander::OutputPort), std::uint8_t(0x34));
        QCOMPARE(chip.read(0x23, 1, in), -ENXIO);
    }
};

QTEST_GUILESS_MAIN(GpioModelsTest)
#include "tst_gpiomodels.moc"
