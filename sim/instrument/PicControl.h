#pragma once
// The PIC board of the instrument: a PIC18F4620 model on GPIO lines 2 to 6 and its control files
// under control/pic/ (memory as binary and as hex dump, counters, measured holds, faults, the table of
// configuration bits). All text of those files is made and parsed here; the model knows none.

#include "Instrument.h"
#include "PicTarget.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

// Attaches a fresh model to the bank, adds its control files and leaves it in the instrument's keeping.
std::shared_ptr<PicTarget> installPic(Instrument& instrument);

// Hex dump of a memory region, 16 bytes a line: "0000: ff ff ...". Offsets are relative to the region.
std::string hexDump(const std::vector<std::uint8_t>& bytes);
// Takes lines of the same form (any number of bytes after the offset) into the region. Returns an empty
// string, or what is wrong and on which line; nothing is changed then.
std::string applyHexDump(std::string_view text, std::vector<std::uint8_t>& bytes, const std::string& file);

// The faults file, one command a line: nonblank ADDR VALUE | stuck ADDR MASK | nodevice | device | devid ID
// | clear. Numbers are decimal or 0x-prefixed hex. Returns an empty string, or what is wrong and on which
// line; a bad line applies nothing.
std::string applyFaultText(PicTarget& pic, std::string_view text);
std::string faultText(const PicTarget& pic);
// The counters as "name value" lines, in a fixed order.
std::string counterText(const PicTarget::Counters& counters);
// The configuration bytes, one a line: "ADDRESS NAME IMPLEMENTED UNPROGRAMMED" in hex, "-" for the name of
// an unimplemented byte ("300001 CONFIG1H cf 07").
std::string configBitsText();

} // namespace sim
