#pragma once
// The updater's command list as the tool sees it: one table of the commands (keyword, how it is
// matched, what the message view shows, what the target runs) and the fixed texts and command lines
// around them. Everything the tool predicts about a line comes from here.

#include <QString>
#include <vector>

namespace grammar {

enum class Match
{
    Equal,
    Contains
};
enum class Action
{
    System,
    App,
    Kernel,
    Image,
    File,
    Updater,
    Modules,
    Script,
    Pic,
    Esa
};
enum class SystemType
{
    SdCard,
    Nand,
    Unknown
};

struct Command
{
    const char* keyword;
    Match match;
    Action action;
    const char* progress; // plain line in the view; %1 the argument (PIC: %1 the index text, %2 the argument)
    const char* failure;  // red line on failure; same placeholders (PIC: %1 the index as a number)
    const char* does;     // what the line is for, in a few words
};

// In the order the updater tests them: the exact keywords first, then the contained ones.
const std::vector<Command>& commands();
// The command a keyword selects, or nullptr for an unknown command.
const Command* match(const QString& keyword);

// A command list line splits at every ':'; exactly two parts make a command.
QStringList split(const QString& line);

// The folder the package is unpacked into on the instrument; arguments are appended to it.
inline const QString unpacked = QStringLiteral("/tmp/firmware_update");

// Fixed view texts around the commands.
inline const QString badFormat = QStringLiteral("Bad command format.   ");
inline const QString unknownCommand = QStringLiteral("Unknown command: %1:%2");
inline const QString systemSet = QStringLiteral("System Type set to: %1");
inline const QString systemUnknown = QStringLiteral("System Type error: Unknown Type: %1");
inline const QString imageWrongType =
    QStringLiteral("Failed - Updating root image with file: %1\nWrong System type");
inline const QString esaDisabled = QStringLiteral("Failed - AVR updates not enabled");
inline const QString picEraseError = QStringLiteral("PIC Erase Error");
inline const QString finalising = QStringLiteral("Finalising update, please wait. ");
inline const QString updateComplete = QStringLiteral("Update complete");
inline const QString updateFailed = QStringLiteral("Some of the updates failed");
inline const QString noPackage = QStringLiteral("Could not find update file");
inline const QString extractFailed = QStringLiteral("Failed to extract update files");
inline const QString noCommandList = QStringLiteral("Failed to open update file");

// Target command lines (QString::arg fills every %1 with the argument).
QString remount(SystemType type); // empty for the unknown type: that line cannot be started
inline const QString copyApp = QStringLiteral("cp /tmp/firmware_update%1 /home/mainApp");
inline const QString sdKernel = QStringLiteral("sdimage -f /tmp/firmware_update%1 -d /dev/mmcblk0");
inline const QString eraseKernel = QStringLiteral("flash_eraseall /dev/mtd0");
inline const QString nandKernel = QStringLiteral("nandwrite /dev/mtd0 /tmp/firmware_update%1 -p");
inline const QString copyFormatter = QStringLiteral("cp /usr/bin/ubiformat /tmp");
inline const QString copyImage = QStringLiteral("cp /tmp/firmware_update%1 /tmp");
inline const QString eraseRoot = QStringLiteral("flash_eraseall /dev/mtd1");
inline const QString formatRoot = QStringLiteral("/tmp/ubiformat /dev/mtd1 -f /tmp%1");
inline const QString unmountCard = QStringLiteral("umount /run/media/mmcblk0p1");
inline const QString copyRootFile = QStringLiteral("cp /tmp/firmware_update%1 %1");
inline const QString removeFile = QStringLiteral("rm %1");
inline const QString removeModules = QStringLiteral("rm -r /lib/modules/");
inline const QString unpackModules = QStringLiteral("tar -xf /tmp/firmware_update%1 -C /");
inline const QString runScript = QStringLiteral("/tmp/firmware_update%1 ");

// The PIC18F4620 as the updater's HEX programmer treats it.
inline constexpr quint32 flashRecordLimit = 0xFFFE; // a record must end at or below this address
inline constexpr quint32 flashSize = 0x10000;
inline constexpr quint32 idAddress = 0x200000, idSize = 8;
inline constexpr quint32 lastConfigWritten = 0x30000C; // a record starting later is skipped
inline constexpr quint32 eepromAddress = 0xF00000, eepromSize = 1024;
inline constexpr int recordBuffer = 100; // longer records end the PIC step with a failure

} // namespace grammar
