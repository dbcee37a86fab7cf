#define FUSE_USE_VERSION 314
#include "InstrumentServer.h"

#include "ControlText.h"

#include <fuse_lowlevel.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <poll.h>
#include <pty.h>
#include <set>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>
#include <vector>

namespace sim {

namespace {

// Fixed inodes; control nodes and exported lines live in their own ranges.
constexpr fuse_ino_t rootIno = FUSE_ROOT_ID;
constexpr fuse_ino_t gpioDirIno = 2;
constexpr fuse_ino_t exportIno = 3;
constexpr fuse_ino_t unexportIno = 4;
constexpr fuse_ino_t i2cIno = 5;
constexpr fuse_ino_t controlBase = fuse_ino_t(1) << 32;
constexpr fuse_ino_t lineBase = fuse_ino_t(1) << 40;

// Per exported line: its folder and its two attribute files.
enum LinePart
{
    LineDir = 0,
    LineDirection = 1,
    LineValue = 2
};

constexpr unsigned long i2cSlave = 0x0703;      // I2C_SLAVE
constexpr unsigned long i2cSlaveForce = 0x0706; // I2C_SLAVE_FORCE
constexpr std::size_t i2cMaxTransfer = 8192;    // what i2c-dev accepts in one read or write
constexpr std::size_t sysfsPage = 4096;         // sysfs attributes report (and take at most) one page

enum class Kind
{
    Export,
    Unexport,
    LineDirection,
    LineValue,
    I2c,
    Control
};

struct Handle
{
    Kind kind = Kind::I2c;
    int line = -1;
    std::uint64_t exportId = 0;
    std::uint64_t control = 0;
    std::string snapshot; // what a reader at offset 0 produced; later offsets read from it
    bool haveSnapshot = false;
    std::string pending; // whole-file control writes, delivered on flush
    bool dirty = false;
    int i2cAddress = 0; // i2c-dev starts with no slave selected
};

std::string accessName(int flags)
{
    switch (flags & O_ACCMODE) {
    case O_RDONLY:
        return "rdonly";
    case O_WRONLY:
        return "wronly";
    default:
        return "rdwr";
    }
}

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

} // namespace

struct InstrumentServer::Impl
{
    explicit Impl(Instrument& instrument) : in(instrument) {}

    Instrument& in;
    fuse_session* session = nullptr;
    bool mounted = false;
    int stopFd = -1;
    int signalFd = -1;
    int ptyMaster = -1;
    int ptySlave = -1;
    std::string serialOut; // bytes for the updater waiting for room in the pty

    std::set<std::string> refusedOpens; // device files whose open fails (fault injection)

    std::map<int, std::uint64_t> exportIds; // line -> id of its current export
    std::uint64_t nextExportId = 0;
    std::map<std::uint64_t, Handle> handles;
    std::uint64_t nextHandle = 1;

    // ---- naming ---------------------------------------------------------------------------------

    // The export id of a line that is exported now, 0 when it is not.
    std::uint64_t currentExport(int line)
    {
        if (!in.gpio().isExported(line)) {
            exportIds.erase(line);
            return 0;
        }
        auto it = exportIds.find(line);
        if (it == exportIds.end()) // exported behind the file system's back (a test using the model)
            it = exportIds.emplace(line, ++nextExportId).first;
        return it->second;
    }

    static fuse_ino_t lineIno(std::uint64_t exportId, LinePart part)
    {
        return lineBase + exportId * 4 + part;
    }

    // The line of a per-line inode, if that export is still the current one.
    std::optional<int> lineOf(fuse_ino_t ino)
    {
        const std::uint64_t id = (ino - lineBase) / 4;
        for (const auto& [line, exportId] : exportIds) {
            if (exportId == id)
                return currentExport(line) == id ? std::optional<int>(line) : std::nullopt;
        }
        return std::nullopt;
    }

    std::string lineFileName(int line, LinePart part) const
    {
        return "gpio" + std::to_string(line) + (part == LineValue ? "/value" : "/direction");
    }

    std::string handleName(const Handle& h) const
    {
        switch (h.kind) {
        case Kind::Export:
            return "export";
        case Kind::Unexport:
            return "unexport";
        case Kind::LineDirection:
            return lineFileName(h.line, LineDirection);
        case Kind::LineValue:
            return lineFileName(h.line, LineValue);
        case Kind::I2c:
            return "i2c-1";
        case Kind::Control:
            return "control/" + in.control().node(h.control)->path;
        }
        return {};
    }

    static std::string failure(int error) { return error ? " -> " + Instrument::errorName(error) : ""; }

    // ---- attributes -----------------------------------------------------------------------------

    bool attributes(fuse_ino_t ino, struct stat* st)
    {
        std::memset(st, 0, sizeof *st);
        st->st_ino = ino;
        st->st_uid = getuid();
        st->st_gid = getgid();
        st->st_nlink = 1;
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        st->st_atim = st->st_mtim = st->st_ctim = now;
        auto folder = [st] {
            st->st_mode = S_IFDIR | 0755;
            st->st_nlink = 2;
        };
        if (ino == rootIno || ino == gpioDirIno) {
            folder();
        } else if (ino == exportIno || ino == unexportIno) {
            st->st_mode = S_IFREG | 0200;
            st->st_size = sysfsPage;
        } else if (ino == i2cIno) {
            st->st_mode = S_IFREG | 0600;
        } else if (ino >= lineBase) {
            if (!lineOf(ino))
                return false;
            if ((ino - lineBase) % 4 == LineDir) {
                folder();
            } else {
                st->st_mode = S_IFREG | 0644;
                st->st_size = sysfsPage;
            }
        } else if (ino >= controlBase) {
            const ControlRegistry::Node* node = in.control().node(ino - controlBase);
            if (!node)
                return false;
            if (node->folder)
                folder();
            else
                st->st_mode = S_IFREG | (node->file->read ? 0444 : 0) | (node->file->write ? 0200 : 0);
        } else {
            return false;
        }
        return true;
    }

    void replyEntry(fuse_req_t req, fuse_ino_t ino)
    {
        fuse_entry_param e{};
        e.ino = ino;
        e.generation = 1;
        e.attr_timeout = 0; // nothing is cached: every access reaches the models
        e.entry_timeout = 0;
        if (!attributes(ino, &e.attr)) {
            fuse_reply_err(req, ENOENT);
            return;
        }
        fuse_reply_entry(req, &e);
    }

    // ---- operations -----------------------------------------------------------------------------

    void lookup(fuse_req_t req, fuse_ino_t parent, std::string_view name)
    {
        fuse_ino_t found = 0;
        if (parent == rootIno) {
            if (name == "gpio")
                found = gpioDirIno;
            else if (name == "i2c-1")
                found = i2cIno;
            else if (name == "control")
                found = controlBase;
        } else if (parent == gpioDirIno) {
            if (name == "export")
                found = exportIno;
            else if (name == "unexport")
                found = unexportIno;
            else if (const auto line = lineFromName(name)) {
                if (const std::uint64_t id = currentExport(*line))
                    found = lineIno(id, LineDir);
            }
            if (!found)
                in.log("lookup " + std::string(name) + failure(ENOENT));
        } else if (parent >= lineBase) {
            const auto line = lineOf(parent);
            if (line && name == "direction")
                found = parent + LineDirection;
            else if (line && name == "value")
                found = parent + LineValue;
            if (!found && line)
                in.log("lookup gpio" + std::to_string(*line) + "/" + std::string(name) + failure(ENOENT));
        } else if (parent >= controlBase) {
            if (const auto child = in.control().child(parent - controlBase, name))
                found = controlBase + *child;
        }
        if (!found) {
            fuse_reply_err(req, ENOENT);
            return;
        }
        replyEntry(req, found);
    }

    void getattr(fuse_req_t req, fuse_ino_t ino)
    {
        struct stat st;
        if (!attributes(ino, &st)) {
            fuse_reply_err(req, ENOENT);
            return;
        }
        fuse_reply_attr(req, &st, 0);
    }

    void setattr(fuse_req_t req, fuse_ino_t ino, int toSet, fuse_file_info* fi)
    {
        // Truncation (a shell's "> file") is accepted and ignored like sysfs does; on a control file
        // that takes writes it counts as writing nothing (which clears the log, for example).
        if ((toSet & FUSE_SET_ATTR_SIZE) && ino >= controlBase && ino < lineBase) {
            const ControlRegistry::Node* node = in.control().node(ino - controlBase);
            if (node && !node->folder && node->file->write && !node->file->wholeFile) {
                const int rc = node->file->write({});
                if (rc < 0) {
                    fuse_reply_err(req, -rc);
                    return;
                }
            }
        }
        (void)fi;
        getattr(req, ino);
    }

    void readdir(fuse_req_t req, fuse_ino_t ino, std::size_t size, off_t off)
    {
        struct Entry
        {
            std::string name;
            fuse_ino_t ino;
        };
        std::vector<Entry> entries{{".", ino}, {"..", rootIno}};
        if (ino == rootIno) {
            entries.push_back({"gpio", gpioDirIno});
            entries.push_back({"i2c-1", i2cIno});
            entries.push_back({"control", controlBase});
        } else if (ino == gpioDirIno) {
            entries.push_back({"export", exportIno});
            entries.push_back({"unexport", unexportIno});
            for (int line : in.gpio().exportedLines())
                entries.push_back({"gpio" + std::to_string(line), lineIno(currentExport(line), LineDir)});
        } else if (ino >= lineBase && lineOf(ino)) {
            entries.push_back({"direction", ino + LineDirection});
            entries.push_back({"value", ino + LineValue});
        } else if (ino >= controlBase && ino < lineBase && in.control().node(ino - controlBase)) {
            for (std::uint64_t child : in.control().children(ino - controlBase)) {
                const std::string& path = in.control().node(child)->path;
                entries.push_back({path.substr(path.rfind('/') + 1), controlBase + child});
            }
        } else {
            fuse_reply_err(req, ENOTDIR);
            return;
        }
        std::vector<char> buf(size);
        std::size_t used = 0;
        for (std::size_t i = static_cast<std::size_t>(off); i < entries.size(); ++i) {
            struct stat st;
            std::memset(&st, 0, sizeof st);
            st.st_ino = entries[i].ino;
            attributes(entries[i].ino, &st);
            const std::size_t need = fuse_add_direntry(req, buf.data() + used, size - used,
                                                       entries[i].name.c_str(), &st, off_t(i + 1));
            if (need > size - used)
                break;
            used += need;
        }
        fuse_reply_buf(req, buf.data(), used);
    }

    void open(fuse_req_t req, fuse_ino_t ino, fuse_file_info* fi)
    {
        Handle h;
        const int access = fi->flags & O_ACCMODE;
        int error = 0;
        if (ino == exportIno || ino == unexportIno) {
            h.kind = ino == exportIno ? Kind::Export : Kind::Unexport;
            if (access != O_WRONLY) // write-only attributes refuse readers, as sysfs does
                error = EACCES;
        } else if (ino == i2cIno) {
            h.kind = Kind::I2c;
        } else if (ino >= lineBase) {
            const auto line = lineOf(ino);
            const auto part = (ino - lineBase) % 4;
            if (!line) {
                fuse_reply_err(req, ENOENT);
                return;
            }
            if (part == LineDir) {
                fuse_reply_err(req, EISDIR);
                return;
            }
            h.kind = part == LineValue ? Kind::LineValue : Kind::LineDirection;
            h.line = *line;
            h.exportId = (ino - lineBase) / 4;
        } else if (ino >= controlBase) {
            const ControlRegistry::Node* node = in.control().node(ino - controlBase);
            if (!node || node->folder) {
                fuse_reply_err(req, node ? EISDIR : ENOENT);
                return;
            }
            h.kind = Kind::Control;
            h.control = ino - controlBase;
            if ((access != O_WRONLY && !node->file->read) || (access != O_RDONLY && !node->file->write)) {
                fuse_reply_err(req, EACCES);
                return;
            }
        } else {
            fuse_reply_err(req, EISDIR);
            return;
        }
        if (h.kind != Kind::Control) {
            if (!error && refusedOpens.count(handleName(h)))
                error = EACCES;
            in.log("open " + handleName(h) + " " + accessName(fi->flags) + failure(error));
        }
        if (error) {
            fuse_reply_err(req, error);
            return;
        }
        const std::uint64_t id = nextHandle++;
        handles.emplace(id, std::move(h));
        fi->fh = id;
        fi->direct_io = 1; // no page cache: each read and write reaches the model
        fi->keep_cache = 0;
        if (fuse_reply_open(req, fi) == -ENOENT) // the opener was interrupted meanwhile
            handles.erase(id);
    }

    Handle* handleOf(fuse_file_info* fi)
    {
        auto it = handles.find(fi->fh);
        return it == handles.end() ? nullptr : &it->second;
    }

    bool stale(const Handle& h) { return h.line >= 0 && currentExport(h.line) != h.exportId; }

    void read(fuse_req_t req, std::size_t size, off_t off, fuse_file_info* fi)
    {
        Handle* h = handleOf(fi);
        if (!h) {
            fuse_reply_err(req, EBADF);
            return;
        }
        const std::string name = handleName(*h);
        const std::uint64_t now = Instrument::nowNs();
        if (h->kind == Kind::I2c) {
            std::vector<std::uint8_t> bytes;
            const int rc = size > i2cMaxTransfer
                               ? -EINVAL
                               : in.expander().read(static_cast<std::uint8_t>(h->i2cAddress), size, bytes);
            in.log("read " + name + (rc ? "" : " " + hexBytes(bytes.data(), bytes.size())) + failure(-rc));
            if (rc < 0)
                fuse_reply_err(req, -rc);
            else
                fuse_reply_buf(req, reinterpret_cast<const char*>(bytes.data()), bytes.size());
            return;
        }
        if (stale(*h)) {
            in.log("read " + name + failure(ENODEV));
            fuse_reply_err(req, ENODEV);
            return;
        }
        // Like seq_file: a read from offset 0 produces fresh content, later offsets continue in it.
        if (off == 0 || !h->haveSnapshot) {
            if (h->kind == Kind::LineValue)
                h->snapshot = in.gpio().readValue(h->line, now);
            else if (h->kind == Kind::LineDirection)
                h->snapshot = in.gpio().readDirection(h->line);
            else if (h->kind == Kind::Control)
                h->snapshot = in.control().node(h->control)->file->read();
            h->haveSnapshot = true;
        }
        const std::size_t from = std::min(h->snapshot.size(), static_cast<std::size_t>(off));
        const std::string_view part = std::string_view(h->snapshot).substr(from, size);
        if (h->kind != Kind::Control)
            in.log("read " + name + (off ? " @" + std::to_string(off) : "") + " " + Instrument::quote(part));
        fuse_reply_buf(req, part.data(), part.size());
    }

    void write(fuse_req_t req, std::string_view data, off_t off, fuse_file_info* fi)
    {
        Handle* h = handleOf(fi);
        if (!h) {
            fuse_reply_err(req, EBADF);
            return;
        }
        const std::uint64_t now = Instrument::nowNs();
        int rc = 0;
        std::string logged = Instrument::quote(data);
        switch (h->kind) {
        case Kind::Export:
        case Kind::Unexport: {
            const std::optional<long> number = GpioLineBank::parseInteger(data);
            rc = h->kind == Kind::Export ? in.gpio().exportLine(data) : in.gpio().unexportLine(data, now);
            if (rc == 0 && h->kind == Kind::Export)
                exportIds[static_cast<int>(*number)] = ++nextExportId;
            else if (rc == 0)
                exportIds.erase(static_cast<int>(*number));
            break;
        }
        case Kind::LineDirection:
        case Kind::LineValue:
            if (stale(*h))
                rc = -ENODEV;
            else if (data.size() >= sysfsPage)
                rc = -EINVAL;
            else if (h->kind == Kind::LineValue)
                rc = in.gpio().writeValue(h->line, data, now);
            else
                rc = in.gpio().writeDirection(h->line, data, now);
            break;
        case Kind::I2c:
            logged = hexBytes(data);
            rc = data.size() > i2cMaxTransfer
                     ? -EINVAL
                     : in.expander().write(static_cast<std::uint8_t>(h->i2cAddress),
                                           std::vector<std::uint8_t>(data.begin(), data.end()));
            break;
        case Kind::Control: {
            const ControlFile& file = *in.control().node(h->control)->file;
            if (file.wholeFile) {
                const std::size_t at = static_cast<std::size_t>(off);
                if (h->pending.size() < at + data.size())
                    h->pending.resize(at + data.size());
                h->pending.replace(at, data.size(), data);
                h->dirty = true;
            } else {
                rc = file.write(data);
            }
            break;
        }
        }
        if (h->kind != Kind::Control)
            in.log("write " + handleName(*h) + " " + logged + failure(-rc));
        if (rc < 0)
            fuse_reply_err(req, -rc);
        else
            fuse_reply_write(req, data.size());
    }

    void ioctl(fuse_req_t req, unsigned int cmd, void* arg, fuse_file_info* fi)
    {
        Handle* h = handleOf(fi);
        if (!h || h->kind != Kind::I2c) {
            fuse_reply_err(req, ENOTTY);
            return;
        }
        const unsigned long value = reinterpret_cast<std::uintptr_t>(arg);
        char text[64];
        int error = 0;
        if (cmd == i2cSlave || cmd == i2cSlaveForce) {
            std::snprintf(text, sizeof text, "ioctl i2c-1 %s 0x%02lx",
                          cmd == i2cSlave ? "I2C_SLAVE" : "I2C_SLAVE_FORCE", value);
            if (value > 0x7F) // seven-bit addresses only
                error = EINVAL;
            else
                h->i2cAddress = static_cast<int>(value);
        } else {
            std::snprintf(text, sizeof text, "ioctl i2c-1 0x%04x", cmd);
            error = ENOTTY;
        }
        in.log(text + failure(error));
        if (error)
            fuse_reply_err(req, error);
        else
            fuse_reply_ioctl(req, 0, nullptr, 0);
    }

    void flush(fuse_req_t req, fuse_file_info* fi)
    {
        Handle* h = handleOf(fi);
        int rc = 0;
        if (h && h->kind == Kind::Control && h->dirty) {
            h->dirty = false;
            rc = in.control().node(h->control)->file->write(h->pending);
            h->pending.clear();
        }
        fuse_reply_err(req, rc < 0 ? -rc : 0);
    }

    void release(fuse_req_t req, fuse_file_info* fi)
    {
        if (Handle* h = handleOf(fi)) {
            if (h->kind != Kind::Control)
                in.log("close " + handleName(*h));
            handles.erase(fi->fh);
        }
        fuse_reply_err(req, 0);
    }

    void addControlFiles()
    {
        ControlFile refuse;
        refuse.read = [this] {
            std::string text;
            for (const std::string& name : refusedOpens)
                text += name + "\n";
            return text;
        };
        refuse.write = [this](std::string_view text) {
            // One name per line as the log spells it ("unexport", "gpio5/value", "i2c-1"); an empty
            // write clears the list.
            refusedOpens.clear();
            std::size_t start = 0;
            while (start < text.size()) {
                std::size_t end = text.find('\n', start);
                if (end == std::string_view::npos)
                    end = text.size();
                if (end > start)
                    refusedOpens.emplace(text.substr(start, end - start));
                start = end + 1;
            }
            return 0;
        };
        refuse.help = "device files whose open fails with EACCES, one per line; empty write clears";
        in.control().add("refuse-open", std::move(refuse));
        in.onReset([this] { refusedOpens.clear(); });
    }

    // ---- serial line ----------------------------------------------------------------------------

    void sendSerial(std::string bytes)
    {
        serialOut += bytes;
        while (!serialOut.empty()) {
            const ssize_t n = ::write(ptyMaster, serialOut.data(), serialOut.size());
            if (n <= 0)
                break; // full: poll waits for room
            serialOut.erase(0, static_cast<std::size_t>(n));
        }
    }

    void serialReadable()
    {
        char buf[4096];
        const ssize_t n = ::read(ptyMaster, buf, sizeof buf);
        if (n <= 0)
            return;
        // Without a peer the line is a sink, so the updater's writes never block.
        if (SerialPeer* peer = in.serialPeer())
            sendSerial(
                peer->received(std::string_view(buf, static_cast<std::size_t>(n)), Instrument::nowNs()));
    }

    void serialTimer()
    {
        SerialPeer* peer = in.serialPeer();
        if (!peer)
            return;
        const auto deadline = peer->nextDeadline();
        const std::uint64_t now = Instrument::nowNs();
        if (deadline && *deadline <= now)
            sendSerial(peer->timer(now));
    }

    // Nanosecond resolution: a paced line releases bytes every 87 us at 115200 baud, and a wake-up
    // rounded to whole milliseconds would slow it noticeably.
    bool pollTimeout(timespec* timeout) const
    {
        const SerialPeer* peer = in.serialPeer();
        if (ptyMaster < 0 || !peer)
            return false;
        const auto deadline = peer->nextDeadline();
        if (!deadline)
            return false;
        const std::uint64_t now = Instrument::nowNs();
        const std::uint64_t wait =
            *deadline <= now ? 0 : std::min<std::uint64_t>(*deadline - now, 60000000000u);
        timeout->tv_sec = static_cast<time_t>(wait / 1000000000u);
        timeout->tv_nsec = static_cast<long>(wait % 1000000000u);
        return true;
    }
};

// ---- libfuse glue ---------------------------------------------------------------------------------

namespace {

InstrumentServer::Impl& implOf(fuse_req_t req)
{
    return *static_cast<InstrumentServer::Impl*>(fuse_req_userdata(req));
}

void opInit(void* userdata, fuse_conn_info* conn)
{
    (void)userdata;
    conn->want &= ~FUSE_CAP_ASYNC_READ; // one request at a time, in order
    conn->want &= ~FUSE_CAP_WRITEBACK_CACHE;
}

const fuse_lowlevel_ops operations = [] {
    fuse_lowlevel_ops ops{};
    ops.init = opInit;
    ops.lookup = [](fuse_req_t req, fuse_ino_t parent, const char* name) {
        implOf(req).lookup(req, parent, name);
    };
    ops.getattr = [](fuse_req_t req, fuse_ino_t ino, fuse_file_info*) { implOf(req).getattr(req, ino); };
    ops.setattr = [](fuse_req_t req, fuse_ino_t ino, struct stat*, int toSet, fuse_file_info* fi) {
        implOf(req).setattr(req, ino, toSet, fi);
    };
    ops.readdir = [](fuse_req_t req, fuse_ino_t ino, size_t size, off_t off, fuse_file_info*) {
        implOf(req).readdir(req, ino, size, off);
    };
    ops.open = [](fuse_req_t req, fuse_ino_t ino, fuse_file_info* fi) { implOf(req).open(req, ino, fi); };
    ops.read = [](fuse_req_t req, fuse_ino_t, size_t size, off_t off, fuse_file_info* fi) {
        implOf(req).read(req, size, off, fi);
    };
    ops.write = [](fuse_req_t req, fuse_ino_t, const char* buf, size_t size, off_t off, fuse_file_info* fi) {
        implOf(req).write(req, std::string_view(buf, size), off, fi);
    };
    ops.ioctl = [](fuse_req_t req, fuse_ino_t, unsigned int cmd, void* arg, fuse_file_info* fi, unsigned,
                   const void*, size_t, size_t) { implOf(req).ioctl(req, cmd, arg, fi); };
    ops.flush = [](fuse_req_t req, fuse_ino_t, fuse_file_info* fi) { implOf(req).flush(req, fi); };
    ops.release = [](fuse_req_t req, fuse_ino_t, fuse_file_info* fi) { implOf(req).release(req, fi); };
    return ops;
}();

} // namespace

InstrumentServer::InstrumentServer(Instrument& instrument) : m_impl(std::make_unique<Impl>(instrument))
{
    m_impl->stopFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    m_impl->addControlFiles();
}

InstrumentServer::~InstrumentServer()
{
    unmount();
    for (int fd : {m_impl->stopFd, m_impl->signalFd, m_impl->ptyMaster, m_impl->ptySlave}) {
        if (fd >= 0)
            ::close(fd);
    }
}

bool InstrumentServer::mount(const ServerOptions& options, std::string* error)
{
    struct stat st;
    if (::stat(options.mountPoint.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        *error = "mount point '" + options.mountPoint + "' is not a directory";
        return false;
    }
    std::string mountOptions = "auto_unmount,fsname=sim-instrument,subtype=sim-instrument";
    if (options.allowOther)
        mountOptions += ",allow_other";
    std::vector<std::string> words{"sim-instrument", "-o", mountOptions};
    if (options.fuseDebug)
        words.push_back("-d");
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    fuse_args args = FUSE_ARGS_INIT(static_cast<int>(argv.size()), argv.data());
    m_impl->session = fuse_session_new(&args, &operations, sizeof operations, m_impl.get());
    fuse_opt_free_args(&args);
    if (!m_impl->session) {
        *error = "cannot start a FUSE session (options '" + mountOptions + "')";
        return false;
    }
    if (fuse_session_mount(m_impl->session, options.mountPoint.c_str()) != 0) {
        fuse_session_destroy(m_impl->session);
        m_impl->session = nullptr;
        *error = "cannot mount the file system on '" + options.mountPoint +
                 "' (is /dev/fuse usable and fusermount3 installed?)";
        return false;
    }
    m_impl->mounted = true;
    return true;
}

bool InstrumentServer::openPty(std::string* slavePath, std::string* error)
{
    char name[256] = {};
    if (openpty(&m_impl->ptyMaster, &m_impl->ptySlave, name, nullptr, nullptr) != 0) {
        *error = std::string("cannot open a pseudo-terminal: ") + std::strerror(errno);
        return false;
    }
    // Raw from the start, so nothing is echoed or translated before the updater sets the line up.
    termios tio{};
    tcgetattr(m_impl->ptySlave, &tio);
    cfmakeraw(&tio);
    tcsetattr(m_impl->ptySlave, TCSANOW, &tio);
    fcntl(m_impl->ptyMaster, F_SETFL, fcntl(m_impl->ptyMaster, F_GETFL) | O_NONBLOCK);
    fcntl(m_impl->ptyMaster, F_SETFD, FD_CLOEXEC);
    fcntl(m_impl->ptySlave, F_SETFD, FD_CLOEXEC);
    *slavePath = name;
    return true;
}

bool InstrumentServer::stopOnSignals(std::string* error)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGHUP);
    if (pthread_sigmask(SIG_BLOCK, &set, nullptr) != 0 ||
        (m_impl->signalFd = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK)) < 0) {
        *error = std::string("cannot watch for signals: ") + std::strerror(errno);
        return false;
    }
    return true;
}

void InstrumentServer::stop()
{
    const std::uint64_t one = 1;
    (void)!::write(m_impl->stopFd, &one, sizeof one);
}

void InstrumentServer::unmount()
{
    if (!m_impl->session)
        return;
    if (m_impl->mounted)
        fuse_session_unmount(m_impl->session);
    m_impl->mounted = false;
    fuse_session_destroy(m_impl->session);
    m_impl->session = nullptr;
}

int InstrumentServer::run()
{
    Impl& d = *m_impl;
    if (!d.session)
        return -ENOTCONN;
    const int fuseFd = fuse_session_fd(d.session);
    fcntl(fuseFd, F_SETFL, fcntl(fuseFd, F_GETFL) | O_NONBLOCK);
    fuse_buf buf{};
    int result = 0;
    while (!fuse_session_exited(d.session)) {
        pollfd fds[4] = {{fuseFd, POLLIN, 0}, {d.stopFd, POLLIN, 0}, {d.signalFd, POLLIN, 0}, {-1, 0, 0}};
        if (d.ptyMaster >= 0)
            fds[3] = {d.ptyMaster, short(POLLIN | (d.serialOut.empty() ? 0 : POLLOUT)), 0};
        timespec timeout{};
        const int ready = ::ppoll(fds, 4, d.pollTimeout(&timeout) ? &timeout : nullptr, nullptr);
        if (ready < 0) {
            if (errno == EINTR)
                continue;
            result = -errno;
            break;
        }
        if (fds[1].revents || fds[2].revents)
            break; // stop() or a signal
        if (fds[0].revents) {
            const int n = fuse_session_receive_buf(d.session, &buf);
            if (n == -EINTR || n == -EAGAIN)
                continue;
            if (n <= 0) { // 0: unmounted from outside
                if (n < 0)
                    result = n;
                break;
            }
            fuse_session_process_buf(d.session, &buf);
        }
        if (fds[3].revents & POLLIN)
            d.serialReadable();
        if ((fds[3].revents & POLLOUT) && !d.serialOut.empty())
            d.sendSerial({});
        d.serialTimer();
    }
    std::free(buf.mem);
    unmount();
    return result;
}

} // namespace sim
