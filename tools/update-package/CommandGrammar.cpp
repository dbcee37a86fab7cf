#include "CommandGrammar.h"

#include <QStringList>

namespace grammar {

const std::vector<Command>& commands()
{
    static const std::vector<Command> table = {
        {"SYSTEM", Match::Equal, Action::System, nullptr, nullptr, "sets the system type (SDCARD)"},
        {"APP", Match::Equal, Action::App, "Updating Application with file: %1",
         "Failed - Updating Application with file: %1", "installs the application as /home/mainApp"},
        {"KERNEL", Match::Equal, Action::Kernel, "Updating kernel with file: %1",
         "Failed - Updating kernel with file: %1", "writes the kernel image"},
        {"IMAGE", Match::Equal, Action::Image, "Updating root image with file: %1",
         "Failed - Updating root image with file: %1", "rewrites the UBI root image (NAND only)"},
        {"FILE", Match::Equal, Action::File, "Updating root files with folder: %1",
         "Failed - Updating root files with folder: %1", "copies a root file to the same absolute path"},
        {"UPDATER", Match::Equal, Action::Updater, "Updating the updater app with: %1",
         "Failed - Updating the updater app with: %1", "replaces the updater program"},
        {"MODULES", Match::Equal, Action::Modules, "Updating Linux modules with: %1",
         "Failed - Updating Linux modules with: %1", "replaces /lib/modules from a tar archive"},
        {"SCRIPT", Match::Equal, Action::Script, "Running script file: %1",
         "Failed - Running script file: %1", "runs a script of the package"},
        {"PIC", Match::Contains, Action::Pic, "Updating PIC %1 with file: %2",
         "Failed - Updating PIC[%1] with file %2", "programs the PIC from Intel HEX"},
        {"ESA_IO_APP", Match::Contains, Action::Esa, "Updating ESA IO Board Application with file: %1",
         "Failed - Updating ESA IO Board Application with file: %1", "loads the IO board application"},
        {"ESA_M_APP", Match::Contains, Action::Esa,
         "Updating ESA Measurement Board Application with file: %1",
         "Failed - Updating ESA Measurement Board Application with file: %1",
         "loads the Measurement board application"},
        {"ESA_IO_EEP", Match::Contains, Action::Esa, "Updating ESA IO Board EEPROM with file: %1",
         "Failed - Updating ESA IO Board EEPROM with file: %1", "loads the IO board EEPROM"},
        {"ESA_M_EEP", Match::Contains, Action::Esa, "Updating ESA Measurement Board EEPROM with file: %1",
         "Failed - Updating ESA Measurement Board EEPROM with file: %1",
         "loads the Measurement board EEPROM"},
    };
    return table;
}

const Command* match(const QString& keyword)
{
    for (const Command& command : commands()) {
        const QString name = QLatin1String(command.keyword);
        if (command.match == Match::Equal ? keyword == name : keyword.contains(name))
            return &command;
    }
    return nullptr;
}

QStringList split(const QString& line)
{
    return line.split(QLatin1Char(':'), Qt::KeepEmptyParts, Qt::CaseSensitive);
}

QString remount(SystemType type)
{
    switch (type) {
    case SystemType::Nand:
        return QStringLiteral("mount ubi0:rootfs -o remount,rw");
    case SystemType::SdCard:
        return QStringLiteral("mount / -o remount,rw");
    case SystemType::Unknown:
        break;
    }
    return QString();
}

} // namespace grammar
