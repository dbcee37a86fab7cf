#include "GpioFiles.h"

#include "ControlText.h"

#include <fcntl.h>

namespace sim {

namespace {

constexpr off_t sysfsPage = 4096; // sysfs attributes report (and take at most) one page

std::optional<int> lineFromName(std::string_view name)
{
    if (name.size() < 5 || name.substr(0, 4) != "gpio")
        return std::nullopt;
    const std::string_view digits = name.substr(4);
    const std::optional<std::uint64_t> line = parseNumber(digits, 10, 9999);
    if (!line || std::to_string(*line) != digits) // only the canonical spelling exists
        return std::nullopt;
    return static_cast<int>(*line);
}

// export and unexport: write-only, each write one line number.
class ExportFile : public OpenFile
{
public:
    ExportFile(GpioFiles& gpio, bool isExport)
        : m_gpio(gpio), m_export(isExport), m_logId(gpio.instrument().operations().fileId(nameOf(isExport)))
    {
    }

    static std::string nameOf(bool isExport) { return isExport ? "export" : "unexport"; }
    std::string logName() const override { return nameOf(m_export); }
    int read(std::size_t, std::uint64_t, std::string*) override { return -EBADF; }
    int write(std::string_view data, std::uint64_t) override
    {
        Instrument& in = m_gpio.instrument();
        const std::optional<long> number = GpioLineBank::parseInteger(data);
        const int rc =
            m_export ? in.gpio().exportLine(data) : in.gpio().unexportLine(data, Instrument::nowNs());
        if (rc == 0 && m_export)
            m_gpio.exported(static_cast<int>(*number));
        else if (rc == 0)
            m_gpio.unexported(static_cast<int>(*number));
        in.operations().addTransfer(OperationLog::Transfer::Write, m_logId, data, 0, -rc);
        return rc;
    }

private:
    GpioFiles& m_gpio;
    bool m_export;
    std::uint32_t m_logId;
};

// gpioN/direction and gpioN/value of one export.
class LineFile : public OpenFile
{
public:
    LineFile(GpioFiles& gpio, int line, std::uint64_t exportId, bool value)
        : m_gpio(gpio), m_line(line), m_exportId(exportId), m_value(value),
          m_logId(gpio.instrument().operations().fileId(nameOf(line, value)))
    {
    }

    static std::string nameOf(int line, bool value)
    {
        return "gpio" + std::to_string(line) + (value ? "/value" : "/direction");
    }
    std::string logName() const override { return nameOf(m_line, m_value); }

    int read(std::size_t size, std::uint64_t offset, std::string* out) override
    {
        Instrument& in = m_gpio.instrument();
        if (stale()) {
            in.operations().addTransfer(OperationLog::Transfer::Read, m_logId, {}, offset, ENODEV);
            return -ENODEV;
        }
        const std::string_view part = m_snapshot.part(size, offset, [&] {
            return m_value ? in.gpio().readValue(m_line, Instrument::nowNs())
                           : in.gpio().readDirection(m_line);
        });
        in.operations().addTransfer(OperationLog::Transfer::Read, m_logId, part, offset, 0);
        *out = part;
        return 0;
    }

    int write(std::string_view data, std::uint64_t) override
    {
        Instrument& in = m_gpio.instrument();
        const std::uint64_t now = Instrument::nowNs();
        int rc = 0;
        if (stale())
            rc = -ENODEV;
        else if (data.size() >= sysfsPage)
            rc = -EINVAL;
        else if (!in.powerCut().lineChange())
            rc = -EIO; // the power is off: nothing reaches the line
        else if (m_value)
            rc = in.gpio().writeValue(m_line, data, now);
        else
            rc = in.gpio().writeDirection(m_line, data, now);
        in.operations().addTransfer(OperationLog::Transfer::Write, m_logId, data, 0, -rc);
        return rc;
    }

private:
    bool stale() { return m_gpio.currentExport(m_line) != m_exportId; }

    GpioFiles& m_gpio;
    int m_line;
    std::uint64_t m_exportId;
    bool m_value;
    std::uint32_t m_logId;
    Snapshot m_snapshot;
};

} // namespace

bool GpioFiles::owns(Inode ino) const
{
    return ino == inode::gpioDir || ino == inode::exportFile || ino == inode::unexportFile ||
           ino >= inode::lineBase;
}

std::uint64_t GpioFiles::currentExport(int line)
{
    if (!m_in.gpio().isExported(line)) {
        m_exportIds.erase(line);
        return 0;
    }
    auto it = m_exportIds.find(line);
    if (it == m_exportIds.end()) // exported behind the file system's back (a test using the model)
        it = m_exportIds.emplace(line, ++m_nextExportId).first;
    return it->second;
}

std::optional<int> GpioFiles::lineOf(Inode ino)
{
    const std::uint64_t id = (ino - inode::lineBase) / 4;
    for (const auto& [line, exportId] : m_exportIds) {
        if (exportId == id)
            return currentExport(line) == id ? std::optional<int>(line) : std::nullopt;
    }
    return std::nullopt;
}

std::optional<Inode> GpioFiles::lookup(Inode parent, std::string_view name)
{
    std::optional<Inode> found;
    if (parent == inode::gpioDir) {
        if (name == "export")
            found = inode::exportFile;
        else if (name == "unexport")
            found = inode::unexportFile;
        else if (const auto line = lineFromName(name)) {
            if (const std::uint64_t id = currentExport(*line))
                found = lineIno(id, LineDir);
        }
        if (!found)
            m_in.log("lookup " + std::string(name) + failureText(ENOENT));
    } else if (parent >= inode::lineBase) {
        const auto line = lineOf(parent);
        if (line && name == "direction")
            found = parent + LineDirection;
        else if (line && name == "value")
            found = parent + LineValue;
        if (!found && line)
            m_in.log("lookup gpio" + std::to_string(*line) + "/" + std::string(name) + failureText(ENOENT));
    }
    return found;
}

bool GpioFiles::attributes(Inode ino, struct stat* st)
{
    if (ino == inode::gpioDir) {
        setFolder(st);
    } else if (ino == inode::exportFile || ino == inode::unexportFile) {
        setFile(st, 0200, sysfsPage);
    } else {
        if (!lineOf(ino))
            return false;
        if ((ino - inode::lineBase) % 4 == LineDir)
            setFolder(st);
        else
            setFile(st, 0644, sysfsPage);
    }
    return true;
}

bool GpioFiles::list(Inode folder, std::vector<DirEntry>* entries)
{
    if (folder == inode::gpioDir) {
        entries->push_back({"export", inode::exportFile});
        entries->push_back({"unexport", inode::unexportFile});
        for (int line : m_in.gpio().exportedLines())
            entries->push_back({"gpio" + std::to_string(line), lineIno(currentExport(line), LineDir)});
        return true;
    }
    if (folder >= inode::lineBase && lineOf(folder)) {
        entries->push_back({"direction", folder + LineDirection});
        entries->push_back({"value", folder + LineValue});
        return true;
    }
    return false;
}

int GpioFiles::open(Inode ino, int flags, std::unique_ptr<OpenFile>* file)
{
    if (ino == inode::exportFile || ino == inode::unexportFile) {
        *file = std::make_unique<ExportFile>(*this, ino == inode::exportFile);
        // write-only attributes refuse readers, as sysfs does
        return (flags & O_ACCMODE) != O_WRONLY ? -EACCES : 0;
    }
    if (ino == inode::gpioDir)
        return -EISDIR;
    const auto line = lineOf(ino);
    if (!line)
        return -ENOENT;
    const auto part = (ino - inode::lineBase) % 4;
    if (part == LineDir)
        return -EISDIR;
    *file = std::make_unique<LineFile>(*this, *line, (ino - inode::lineBase) / 4, part == LineValue);
    return 0;
}

} // namespace sim
