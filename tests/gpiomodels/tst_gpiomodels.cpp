// The GPIO line bank and the I2C expander model, checked against how sysfs GPIO and a PCA9534 behave.
#include "GpioLineBank.h"
#include "I2cExpander.h"

#include <QtTest>

#include <cerrno>

using sim::Direction;
using sim::GpioLineBank;
using sim::I2cExpander;
using Bytes = std::vector<std::uint8_t>;

namespace {

// Records what the host did ("line out level @time", "line in @time"); drives its lines as told.
class FakeDevice : public sim::GpioDevice
{
public:
    QStringList changes;
    std::map<int, std::optional<bool>> drive;

    void lineChanged(int line, const sim::LineState& state, std::uint64_t nowNs) override
    {
        const char* what = state.direction == Direction::In ? "in" : state.hostLevel ? "out 1" : "out 0";
        changes << QString::asprintf("%d %s @%llu", line, what, static_cast<unsigned long long>(nowNs));
    }
    std::optional<bool> drivenLevel(int line, std::uint64_t) override { return drive[line]; }
};

} // namespace

class GpioModelsTest : public QObject
{
    Q_OBJECT

private slots:
    void exportAndUnexport()
    {
        GpioLineBank bank;
        QCOMPARE(bank.exportLine(5), 0);
        QCOMPARE(bank.readDirection(5), std::string("in\n"));
        QCOMPARE(bank.readValue(5, 0), std::string("1\n")); // an undriven input is pulled up
        QCOMPARE(bank.unexportLine(5), 0);
        QVERIFY(!bank.isExported(5));

        // The export file parses its text like the kernel.
        const std::pair<const char*, int> texts[] = {{"7", 0},           {"7\n", 0},      {"0x7", 0},
                                                     {"7\n\n", -EINVAL}, {"7 ", -EINVAL}, {"", -EINVAL},
                                                     {"gpio7", -EINVAL}, {"-1", -EINVAL}, {"512", -EINVAL}};
        for (const auto& [text, result] : texts) {
            GpioLineBank fresh;
            QCOMPARE(fresh.exportLine(std::string_view(text)), result);
            QVERIFY2(fresh.isExported(7) == (result == 0), text);
        }
    }

    void directionAndValueWrites()
    {
        GpioLineBank bank;
        bank.exportLine(3);
        // Writes a file of line 3; answers the result and what reads back: "0 out 1".
        const auto write = [&bank](const char* file, const char* text) {
            const int result =
                QByteArray(file) == "value" ? bank.writeValue(3, text, 0) : bank.writeDirection(3, text, 0);
            const std::string back = bank.readDirection(3) + bank.readValue(3, 0);
            return QString("%1 %2").arg(result).arg(QString::fromStdString(back).simplified());
        };
        const QString invalid = QString::number(-EINVAL);
        // An input refuses values; the refused write changes nothing.
        QCOMPARE(write("value", "0"), QString("%1 in 1").arg(-EPERM));
        QCOMPARE(write("direction", "high"), QString("0 out 1"));
        QCOMPARE(write("direction", "out"), QString("0 out 0")); // "out" always starts low
        QCOMPARE(write("value", "1"), QString("0 out 1"));
        QCOMPARE(write("value", "0\n"), QString("0 out 0"));
        QCOMPARE(write("value", "2"), QString("0 out 1")); // any non-zero number drives high
        QCOMPARE(write("value", "high"), invalid + " out 1");
        QCOMPARE(write("direction", "low"), QString("0 out 0"));
        QCOMPARE(write("direction", "in"), QString("0 in 1")); // no driven level is kept: it floats high
        QCOMPARE(write("direction", "high\n"), QString("0 out 1"));
        for (const char* bad : {"OUT", "output", "out ", "", "in\n\n"})
            QCOMPARE(write("direction", bad), invalid + " out 1");
        QCOMPARE(bank.writeDirection(4, "out", 0), -ENODEV); // not exported

        // Per line: accepted value writes, value reads (one per step), accepted direction writes, refusals;
        // for the bank: exports and every refusal.
        const auto counters = [&bank] {
            const sim::LineState* s = bank.state(3);
            return QList<quint64>{s->valueWrites,    s->valueReads,         s->directionWrites,
                                  s->rejectedWrites, bank.totals().exports, bank.totals().rejected};
        };
        QCOMPARE(counters(), (QList<quint64>{3, 15, 5, 7, 1, 8}));
        // A new export starts a fresh input line; a reset unexports all and zeroes the totals.
        bank.unexportLine(3);
        bank.exportLine(3);
        QCOMPARE(counters(), (QList<quint64>{0, 0, 0, 0, 2, 8}));
        QCOMPARE(bank.readDirection(3), std::string("in\n"));
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
        QCOMPARE(pic.changes,
                 (QStringList{"2 out 1 @12", "3 out 0 @20", "3 out 1 @21", "3 out 1 @22", "3 in @24"}));
    }

    void expander()
    {
        I2cExpander chip(0x22);
        // Power-on: outputs latched high, no inversion, every pin an input floating high.
        QCOMPARE(chip.reg(I2cExpander::OutputPort), std::uint8_t(0xFF));
        QCOMPARE(chip.reg(I2cExpander::PolarityInversion), std::uint8_t(0x00));
        QCOMPARE(chip.pinLevels(), std::uint8_t(0xFF));
        // Another address is not answered and changes nothing.
        QCOMPARE(chip.write(0x21, {0x03, 0x00}), -ENXIO);
        QCOMPARE(chip.reg(I2cExpander::Configuration), std::uint8_t(0xFF));
        Bytes in;
        QCOMPARE(chip.read(0x23, 1, in), -ENXIO);
        chip.write(0x22, {0x01, 0x00});
        QCOMPARE(chip.pinLevels(), std::uint8_t(0xFF)); // the output latch only shows on outputs
        QCOMPARE(chip.write(0x22, {0x03, 0xF0}), 0);
        QCOMPARE(chip.pinLevels(), std::uint8_t(0xF0));
        const auto& record = chip.transactions();
        QCOMPARE(int(record.size()), 4);
        QVERIFY(!record[0].acknowledged && record[0].address == 0x21);
        QVERIFY(record.back().acknowledged && record.back().bytes == (Bytes{0x03, 0xF0}));
    }
};

QTEST_GUILESS_MAIN(GpioModelsTest)
#include "tst_gpiomodels.moc"
