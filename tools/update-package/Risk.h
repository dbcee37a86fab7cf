#pragma once
// update-package risk: what a power cut during each line of a package leaves, measured on the virtual
// instrument. A whole run of the package is the reference (its command times give the windows); then the
// package runs again with a cut at every command boundary and at N points inside each writing command
// and the PIC steps, and the power-on check (PowerOn.h) classes what each cut left.

#include <QStringList>

// The risk subcommand; `arguments` are those after "risk". Exit status: 0 when the analysis ran, 1 when
// --fail-on found its class or a worse one, 2 when the analysis could not run (bad input, no instrument).
int riskCommand(const QStringList& arguments);
