// The whole Intel HEX file through PicProgrammer::programPic, against the PIC18F4620 model on the
// in-process line bank. Checks, beyond crashes and sanitizer findings (unsigned wrap-around included):
// - flash changes only inside the 64-byte rows of records that lie below 0xFFFE, computed here without
//   32-bit arithmetic; configuration bytes only where a record at 0x300000..0x30000C puts them; ID
//   locations and data EEPROM never;
// - a record longer than the 100-byte record buffer fails the run;
// - the chip sees no timing violation, and no protocol error except in the one designed case below.
// The erase is left out (it does not read the file) and the chip starts blank.
#include "FuzzSupport.h"
#include "PicProgrammer.h"
#include "PicTarget.h"

#include <QCoreApplication>
#include <QFile>

#include <cstring>
#include <set>

namespace {

const std::uint32_t CONFIG_END = 0x30000D; // last configuration byte the programmer writes
const int RECORD_BUFFER = 100;

struct Expectation
{
    std::set<std::uint32_t> flashRows;
    std::set<std::uint32_t> configBytes; // offsets from 0x300000
    bool recordTooLong = false;
    // A flash record with an odd address or length reads its fill byte in whatever mode the operation
    // before left the chip. After a configuration write that is four clocks out of step (its programming
    // NOP is followed by a further 4-bit command before the operand), so the chip sees malformed commands.
    // This is the programmer's order of operations as designed; such files may show protocol errors.
    bool fillReadAfterConfigWrite = false;
};

// The records as the programmer reads them (text-mode lines, fields at fixed columns, a non-hex field
// reading 0), with the regions worked out in 64 bits.
Expectation expectationFor(const QString& path)
{
    Expectation expected;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return expected;
    std::uint64_t upper = 0;
    // An extended address record takes the first two bytes of the record buffer, which a record shorter
    // than two bytes leaves as the one before it (or a fresh programmer) left them.
    std::uint64_t buffer[2] = {0, 0};
    bool lastWasConfigWrite = false;
    while (!file.atEnd()) {
        const QString line = QString::fromLatin1(file.readLine());
        const std::uint64_t length = line.mid(1, 2).toUInt(nullptr, 16);
        const std::uint64_t field = line.mid(3, 6).toUInt(nullptr, 16);
        if (length > RECORD_BUFFER) {
            expected.recordTooLong = true;
            break;
        }
        for (std::uint64_t i = 0; i < length && i < 2; ++i)
            buffer[i] = line.mid(9 + 2 * int(i), 2).toUInt(nullptr, 16);
        if ((field & 0xFF) == 4) {
            upper = (buffer[0] * 256 + buffer[1]) << 16;
            continue;
        }
        if (length == 0)
            continue;
        const std::uint64_t first = upper + (field >> 8);
        const std::uint64_t end = first + length; // one past the last byte
        if (end <= 0xFFFE) {
            for (std::uint64_t row = first / 64; row <= (end - 1) / 64; ++row)
                expected.flashRows.insert(std::uint32_t(row));
            if (lastWasConfigWrite && ((first | length) & 1))
                expected.fillReadAfterConfigWrite = true;
            lastWasConfigWrite = false;
        } else if (first >= sim::PicTarget::configAddress && first < CONFIG_END) {
            for (std::uint64_t a = first; a < end && a <= CONFIG_END; ++a)
                expected.configBytes.insert(std::uint32_t(a - sim::PicTarget::configAddress));
            lastWasConfigWrite = true;
        }
    }
    return expected;
}

sim::PicTarget& chip()
{
    static sim::PicTarget pic;
    return pic;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    static QCoreApplication app(*argc, *argv);
    fuzzsupport::silenceDebugMessages();
    fuzzsupport::lineBank().attach(sim::PicTarget::lines(), &chip());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QString path = fuzzsupport::writeScratchFile(
        "record.hex", QByteArray(reinterpret_cast<const char*>(data), int(size)));
    sim::PicTarget& pic = chip();
    pic.flash().assign(pic.flash().size(), 0xFF);
    pic.config().assign(pic.config().size(), 0xFF);
    pic.idLocations().assign(pic.idLocations().size(), 0xFF);
    pic.eeprom().assign(pic.eeprom().size(), 0xFF);
    pic.resetCounters();

    bool programmed = false;
    {
        PicProgrammer programmer;
        programmer.programPic(path);
        FUZZ_CHECK(programmer.isFinished(), "programPic returned without finishing the run");
        programmed = programmer.isProgrammed();
    }

    const Expectation expected = expectationFor(path);
    // Row by row: a byte-wise scan of 64 KB would cost more than the programming itself.
    static const std::uint8_t blankRow[64] = {
        0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
        0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
        0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
        0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    for (std::uint32_t row = 0; row < pic.flash().size() / 64; ++row)
        FUZZ_CHECK(std::memcmp(pic.flash().data() + row * 64, blankRow, 64) == 0 ||
                       expected.flashRows.count(row),
                   QString("flash row 0x%1 written, but no flash record covers it")
                       .arg(row * 64, 4, 16, QChar('0')));
    for (std::uint32_t i = 0; i < pic.config().size(); ++i)
        FUZZ_CHECK(
            pic.config()[i] == 0xFF || expected.configBytes.count(i),
            QString("configuration byte 0x%1 written by no configuration record").arg(0x300000 + i, 0, 16));
    for (std::uint8_t cell : pic.idLocations())
        FUZZ_CHECK(cell == 0xFF, "an ID location was written");
    for (std::uint8_t cell : pic.eeprom())
        FUZZ_CHECK(cell == 0xFF, "data EEPROM was written");
    FUZZ_CHECK(!expected.recordTooLong || !programmed,
               "a record longer than 100 bytes counted as programmed");
    const sim::PicTarget::Counters& counters = pic.counters();
    // Out of step, the chip may also take clocks for a programming command whose hold never came.
    FUZZ_CHECK(counters.timingViolations() == 0 || expected.fillReadAfterConfigWrite,
               QString("%1 timing violations").arg(counters.timingViolations()));
    FUZZ_CHECK(counters.protocolErrors == 0 || expected.fillReadAfterConfigWrite,
               QString("%1 protocol errors").arg(counters.protocolErrors));
    FUZZ_CHECK(counters.busContention == 0, "the chip and the programmer drove PGD at once");
    return 0;
}
