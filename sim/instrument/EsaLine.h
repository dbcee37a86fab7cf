#pragma once
// The two ESA boards on the simulated /dev/ttyS1: the boards' model as the serial peer, routed by the
// level of the PIC's MCLR line on the line bank, and its control files under control/esa/ (see
// installEsaBoards).

#include "EsaBoards.h"
#include "Instrument.h"
#include "PicTarget.h"
#include "SerialPeer.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <string>

namespace sim {

class EsaPeer : public SerialPeer
{
public:
    // The PIC's MCLR line doubles as the board select: 0 the IO board, 1 the Measurement board.
    static constexpr int selectLine = PicTarget::MCLR;
    // Between the pieces of a split reply: long enough that even a slow (emulated, loaded) reader takes
    // each piece in a read of its own.
    static constexpr std::uint64_t splitGapNs = 50000000;

    EsaPeer(GpioLineBank& gpio, EsaBoards& boards) : m_gpio(gpio), m_boards(boards) {}

    std::string received(std::string_view bytes, std::uint64_t nowNs) override;
    std::optional<std::uint64_t> nextDeadline() const override;
    std::string timer(std::uint64_t nowNs) override;
    void reset() override;

private:
    struct Pending
    {
        std::uint64_t at;
        std::string bytes;
    };

    GpioLineBank& m_gpio;
    EsaBoards& m_boards;
    std::deque<Pending> m_pending; // reply pieces still to go, each in a read of its own
};

// Makes the ESA boards the serial peer of the instrument and adds control/esa/. Returns false with a
// message when the line already has another device.
bool installEsaBoards(Instrument& instrument, std::string* error);

// Parses one line of control/esa/<board>/faults into faults; false with a message on bad input.
bool applyEsaFault(EsaFaults& faults, const std::string& line, std::string* error);
std::string esaFaultsText(const EsaFaults& faults);

} // namespace sim
