// UpdaterProgressScreen::processCommandList on any command list. Every target command is recorded by
// the QProcess::execute seam and runs nothing, its exit status taken from the input's first byte, so
// every keyword can be fuzzed without harm. Checks, beyond crashes and sanitizer findings:
// - only the target's own tools (or a package script) are asked for, and "sync" exactly once, last;
// - the view ends with "Finalising update, please wait. ";
// - a malformed line, or a failed command other than the ignored "umount" and "sync", makes the
//   result false; a true result means every line was one of the exact-keyword commands.
#include "FuzzSupport.h"
#include "UpdaterProgressScreen.h"

#include <QFile>
#include <QTextEdit>

namespace {

const QStringList TOOLS = {"mount",     "umount",         "cp",  "rm", "tar", "sdimage", "flash_eraseall",
                           "nandwrite", "/tmp/ubiformat", "sync"};
const QStringList EXACT_KEYWORDS = {"SYSTEM", "APP",     "KERNEL",  "IMAGE",
                                    "FILE",   "UPDATER", "MODULES", "SCRIPT"};

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    fuzzsupport::startScreenApplication(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzzsupport::ByteReader in(data, size);
    // Bit i of the first byte fails every command whose number (counted from 0) is i modulo 8.
    const std::uint8_t failures = in.byte();
    int commandNumber = 0;
    fuzzsupport::setCommandStatus(
        [&](const QString&) { return (failures >> (commandNumber++ % 8)) & 1 ? 1 : 0; });
    fuzzsupport::executedCommands().clear();

    QStringList commands;
    for (const QString& line : QString::fromLatin1(in.rest()).split('\n')) {
        const QStringList parts = line.split(':');
        // A PIC line whose file exists would run a whole erase and programming (the HEX target covers
        // that), and one naming a folder would wait for ever as the PIC step is specified: both left out.
        if (parts.size() == 2 && !EXACT_KEYWORDS.contains(parts[0]) && parts[0].contains("PIC") &&
            QFile::exists("/tmp/firmware_update" + parts[1]))
            continue;
        commands << line;
    }

    UpdaterProgressScreen screen;
    const bool result = screen.processCommandList(commands);

    const QList<fuzzsupport::ExecutedCommand>& executed = fuzzsupport::executedCommands();
    FUZZ_CHECK(!executed.isEmpty() && executed.last().commandLine == "sync",
               "the list did not end with sync");
    bool failedCommand = false;
    for (int i = 0; i < executed.size(); ++i) {
        const QString& command = executed[i].commandLine;
        const QString program = command.section(' ', 0, 0);
        FUZZ_CHECK(command != "sync" || i == executed.size() - 1, "sync ran before the end of the list");
        FUZZ_CHECK(command.isEmpty() || TOOLS.contains(program) || program.startsWith("/tmp/firmware_update"),
                   "asked to run " + command);
        if (executed[i].status != 0 && program != "umount" && command != "sync")
            failedCommand = true;
    }
    bool allExact = true;
    bool malformed = false;
    for (const QString& line : commands) {
        const QStringList parts = line.split(':');
        malformed = malformed || parts.size() != 2;
        allExact = allExact && parts.size() == 2 && EXACT_KEYWORDS.contains(parts[0]);
    }
    FUZZ_CHECK(!(malformed && result), "a malformed line, yet the list succeeded");
    FUZZ_CHECK(!(failedCommand && result), "a command failed, yet the list succeeded");
    FUZZ_CHECK(!result || allExact, "the list succeeded with a line that cannot succeed");
    const QTextEdit* view = screen.findChild<QTextEdit*>("progressMessageWindow");
    FUZZ_CHECK(view && view->toPlainText().endsWith("Finalising update, please wait. "),
               "the view does not end with the finalising line");
    fuzzsupport::setCommandStatus(nullptr);
    return 0;
}
