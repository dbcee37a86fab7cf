// Any bytes as the payload of one command (PAYLOAD_ROLE: Application, Kernel, RootImage or Modules),
// through payload::check and payload::describe with the default instrument profile. Checks, beyond
// crashes, hangs and sanitizer findings:
// - every finding names a rule of the table, with that rule's severity, and says something;
// - a kernel whose header and data the reader finds sound, for ARM Linux, that fits /dev/mtd0 and has no
//   bytes after its data, raises nothing.
#include "FuzzSupport.h"

#include "payload/Check.h"
#include "payload/UImage.h"

#include <cstring>

namespace {

const profile::Profile& instrument()
{
    static const profile::Profile loaded = [] {
        QString error;
        const auto read = profile::read(profile::defaultPath(), error);
        if (!read)
            qFatal("%s", qPrintable(error));
        return *read;
    }();
    return loaded;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzzsupport::silenceDebugMessages();
    instrument();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const payload::Role role = payload::Role::PAYLOAD_ROLE;
    package::Package pkg;
    package::Entry entry;
    entry.name = package::topFolder + QStringLiteral("/payload");
    entry.mode = 0755;
    entry.data = QByteArray(reinterpret_cast<const char*>(data), int(size));
    entry.size = entry.data.size();
    pkg.entries.push_back(entry);

    const QVector<payload::Finding> found =
        payload::check(pkg, pkg.entries.front(), role, instrument(), payload::deviceFor(role, false));
    for (const payload::Finding& f : found) {
        const rules::Rule* rule = rules::find(f.ruleId);
        FUZZ_CHECK(rule && rule->severity == f.severity, "finding of an unknown rule " + f.ruleId);
        FUZZ_CHECK(!f.message.isEmpty(), "empty message for " + f.ruleId);
    }
    payload::describe(pkg.entries.front(), role);

    if (role == payload::Role::Kernel) {
        const auto image = payload::readUImage(entry.data);
        const bool sound = image && image->headerCrcOk && image->complete && image->dataCrcOk &&
                           image->trailing == 0 &&
                           image->arch == payload::uImageArchFor(instrument().machine) &&
                           image->os == payload::UImage::osLinux && image->isKernel() &&
                           entry.size <= instrument().partitions.value(QStringLiteral("/dev/mtd0"));
        FUZZ_CHECK(!sound || found.isEmpty(), "a sound kernel image raised a finding");
    }
    return 0;
}
