#pragma once
// The payload checks: each payload judged as the instrument will use it, from the instrument profile.
// One reader per format (ElfImage, ScriptHeader, UImage, UbiImage, ModulesArchive); this file says which
// apply to which command and what each finding means on the instrument.
//
// The prediction (Prediction.cpp, Job::payloadChecks) calls it once per command line whose payload is in
// the package, so lint, inspect and preview carry its findings as findings of that line:
//     if (const auto role = payload::roleOf(line.keyword))
//         for (const payload::Finding& f :
//              payload::check(pkg, *entry, *role, profile, payload::deviceFor(*role, systemType == SDCARD)))
//             ... a finding of the line, f.ruleId and f.severity as given
// inspect shows payload::describe(*entry, *role) beside the payload, and the power-on check asks
// payload::atPowerOn(finding, role) what each error does to the next start. The rules are lint's one table
// (Rules.h); where the updater's own commands meet the same fault (a script's #! line, a module archive
// over a link) the finding has the same rule id and the line reports it once.

#include "InstrumentProfile.h"
#include "Package.h"
#include "Rules.h"

#include <optional>

namespace payload {

using Severity = rules::Severity;

// A finding of one payload: its rule is one of lint's (Rules.h), its severity the rule's.
struct Finding
{
    QString ruleId;
    Severity severity = Severity::Error;
    QString message;
};

enum class Role
{
    Application, // APP: copied to /home/mainApp
    Updater,     // UPDATER: the updater's own program, removed and copied again
    RootFile,    // FILE: copied to the same path; checked as a program when it is ELF or an executable script
    Script,      // SCRIPT: started directly by the updater
    Kernel,      // KERNEL: written to the kernel partition
    RootImage,   // IMAGE: a UBI image ubiformat writes to /dev/mtd1
    Modules,     // MODULES: a tar archive unpacked over /
};

// The role of a command keyword ("APP", "KERNEL", ...); nothing for keywords without a payload to check.
std::optional<Role> roleOf(const QString& keyword);

// The partition a kernel or root image is written to: /dev/mtd0 on a NAND system, /dev/mmcblk0 on an
// SD-card system; /dev/mtd1 for the root image. Empty for the other roles.
QString deviceFor(Role role, bool sdCard);

// Findings for one payload. `device` is the partition it is written to (deviceFor); payloads larger than
// package::keepLimit are judged by their size only.
QVector<Finding> check(const package::Package& pkg, const package::Entry& entry, Role role,
                       const profile::Profile& profile, const QString& device = QString());

// What an error means at the instrument's next power-on, for the risk report: "the instrument does not
// boot", "the instrument boots without its kernel modules", "the main application does not start", "the
// updater does not start"; empty for warnings and for errors that leave the start-up as it was.
QString atPowerOn(const Finding& finding, Role role);

// What the payload is, in one line for inspect: "ELF 32-bit ARM hard-float program, loader ...".
QString describe(const package::Entry& entry, Role role);

} // namespace payload
