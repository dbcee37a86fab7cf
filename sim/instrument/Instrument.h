#pragma once
// The simulated instrument's devices and the text views on them, without any I/O: the GPIO line bank,
// the I2C expander, the operation log, the control files and the serial peer slot. InstrumentFs puts it
// on a FUSE mount; a test may also drive it directly.

#include "ControlRegistry.h"
#include "GpioLineBank.h"
#include "I2cExpander.h"
#include "OperationLog.h"
#include "PowerCut.h"
#include "SerialPeer.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

class Instrument
{
public:
    static constexpr std::uint8_t expanderAddress = 0x22;

    Instrument();

    GpioLineBank& gpio() { return m_gpio; }
    I2cExpander& expander() { return m_expander; }
    ControlRegistry& control() { return m_control; }
    PowerCut& powerCut() { return m_powerCut; }

    // The operation log: one line per file operation on the simulated devices, oldest first.
    OperationLog& operations() { return m_log; }
    void log(std::string line) { m_log.add(std::move(line)); }
    std::string logText() const { return m_log.text(); }
    void clearLog() { m_log.clear(); }
    void setLogLimit(std::size_t lines) { m_log.setLimit(lines); }

    void setSerialPeer(std::unique_ptr<SerialPeer> peer) { m_serialPeer = std::move(peer); }
    SerialPeer* serialPeer() const { return m_serialPeer.get(); }
    std::unique_ptr<SerialPeer> takeSerialPeer() { return std::move(m_serialPeer); }

    // Keeps a device model alive as long as the instrument (for models attached to the bank).
    void keep(std::shared_ptr<void> object) { m_kept.push_back(std::move(object)); }
    // Extra work for control/reset (a device model going back to its power-on state).
    void onReset(std::function<void()> hook) { m_resetHooks.push_back(std::move(hook)); }
    // Back to a fresh start: no exported line, expander at power-on, empty log and bus record, nothing
    // still on its way over the serial line, the power on and no cut armed.
    void reset();

    static std::uint64_t nowNs(); // monotonic clock

    // Bytes as the log shows them: in double quotes, printable ASCII as is, the rest escaped.
    static std::string quote(std::string_view bytes);
    static std::string errorName(int error); // 5 -> "EIO"

private:
    void addBuiltInFiles();
    std::string linesText();
    std::string statsText() const;
    std::string busText() const;
    std::string expanderText() const;

    GpioLineBank m_gpio;
    I2cExpander m_expander{expanderAddress};
    ControlRegistry m_control;
    OperationLog m_log;
    PowerCut m_powerCut;
    std::unique_ptr<SerialPeer> m_serialPeer;
    std::vector<std::shared_ptr<void>> m_kept;
    std::vector<std::function<void()>> m_resetHooks;
};

} // namespace sim
