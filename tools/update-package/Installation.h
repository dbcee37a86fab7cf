#pragma once
// Where the tool finds what it runs and reads besides itself, relative to its own binary, so that the same
// binary works installed and in a build tree:
//   installed   <prefix>/bin/update-package with <prefix>/lib/instrument-update-tools/ holding the virtual
//               instrument laid out as the source and build trees hold it (scripts/technician.sh,
//               sim/sandbox, sim/profile/, updater/updater, sim/instrument/sim-instrument, sim/probe/...)
//   build tree  any binary below the folder of CMakeCache.txt; the sources are where that cache says

#include <QString>

namespace installation {

// The installed folder, or the source tree: scripts/technician.sh, sim/sandbox, sim/profile/.
QString dataDir();
// The installed folder, or the build tree (UPDATER_BUILD_DIR overrides it): updater/updater,
// sim/instrument/sim-instrument, sim/probe/plugins/.
QString buildDir();

} // namespace installation
