#define FUSE_USE_VERSION 314
#include "InstrumentServer.h"

#include "ControlFiles.h"
#include "GpioFiles.h"
#include "I2cFile.h"
#include "SerialPump.h"

#include <fuse_lowlevel.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <poll.h>
#include <set>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace sim {

static_assert(inode::root == FUSE_ROOT_ID);

// The file system's state: the devices' parts, routed by inode, and the open files.
struct InstrumentServer::Impl
{
    explicit Impl(Instrument& instrument) : in(instrument), serial(instrument)
    {
        devices.push_back(std::make_unique<GpioFiles>(in));
        devices.push_back(std::make_unique<I2cFile>(in));
        devices.push_back(std::make_unique<ControlFiles>(in));
    }

    Instrument& in;
    fuse_session* session = nullptr;
    bool mounted = false;
    int stopFd = -1;
    int signalFd = -1;
    SerialPump serial;
    std::vector<std::unique_ptr<DeviceFiles>> devices; // in the order the root lists them

    std::set<std::string> refusedOpens; // device files whose open fails (fault injection)

    std::map<std::uint64_t, std::unique_ptr<OpenFile>> handles;
    std::uint64_t nextHandle = 1;

    DeviceFiles* owner(fuse_ino_t ino) const
    {
        for (const auto& device : devices) {
            if (device->owns(ino))
                return device.get();
        }
        return nullptr;
    }

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
        if (ino == inode::root) {
            setFolder(st);
            return true;
        }
        DeviceFiles* device = owner(ino);
        return device && device->attributes(ino, st);
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
        std::optional<Inode> found;
        if (parent == inode::root) {
            for (const auto& device : devices) {
                if (device->top().name == name)
                    found = device->top().ino;
            }
        } else if (DeviceFiles* device = owner(parent)) {
            found = device->lookup(parent, name);
        }
        if (!found) {
            fuse_reply_err(req, ENOENT);
            return;
        }
        replyEntry(req, *found);
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

    void setattr(fuse_req_t req, fuse_ino_t ino, int toSet)
    {
        DeviceFiles* device = owner(ino);
        if ((toSet & FUSE_SET_ATTR_SIZE) && device) {
            const int rc = device->truncate(ino);
            if (rc < 0) {
                fuse_reply_err(req, -rc);
                return;
            }
        }
        getattr(req, ino);
    }

    void readdir(fuse_req_t req, fuse_ino_t ino, std::size_t size, off_t off)
    {
        std::vector<DirEntry> entries{{".", ino}, {"..", inode::root}};
        if (ino == inode::root) {
            for (const auto& device : devices)
                entries.push_back(device->top());
        } else {
            DeviceFiles* device = owner(ino);
            if (!device || !device->list(ino, &entries)) {
                fuse_reply_err(req, ENOTDIR);
                return;
            }
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
        std::unique_ptr<OpenFile> file;
        DeviceFiles* device = owner(ino);
        int error = device ? -device->open(ino, fi->flags, &file) : EISDIR;
        const std::string name = file ? file->logName() : std::string();
        if (!name.empty()) {
            if (!error && refusedOpens.count(name))
                error = EACCES;
            in.log("open " + name + " " + accessName(fi->flags) + failureText(error));
        }
        if (error) {
            fuse_reply_err(req, error);
            return;
        }
        const std::uint64_t id = nextHandle++;
        handles.emplace(id, std::move(file));
        fi->fh = id;
        fi->direct_io = 1; // no page cache: each read and write reaches the model
        fi->keep_cache = 0;
        if (fuse_reply_open(req, fi) == -ENOENT) // the opener was interrupted meanwhile
            handles.erase(id);
    }

    OpenFile* fileOf(fuse_file_info* fi)
    {
        auto it = handles.find(fi->fh);
        return it == handles.end() ? nullptr : it->second.get();
    }

    void read(fuse_req_t req, std::size_t size, off_t off, fuse_file_info* fi)
    {
        OpenFile* file = fileOf(fi);
        std::string bytes;
        const int rc = file ? file->read(size, static_cast<std::uint64_t>(off), &bytes) : -EBADF;
        if (rc < 0)
            fuse_reply_err(req, -rc);
        else
            fuse_reply_buf(req, bytes.data(), bytes.size());
    }

    void write(fuse_req_t req, std::string_view data, off_t off, fuse_file_info* fi)
    {
        OpenFile* file = fileOf(fi);
        const bool wasOn = !in.powerCut().isOff();
        const int rc = file ? file->write(data, static_cast<std::uint64_t>(off)) : -EBADF;
        // The write that met the power cut: its writer stops there, as the instrument's processor does.
        if (wasOn && in.powerCut().isOff()) {
            in.log("power cut after " + std::to_string(in.powerCut().changes()) + " line changes");
            kill(fuse_req_ctx(req)->pid, SIGKILL);
        }
        if (rc < 0)
            fuse_reply_err(req, -rc);
        else
            fuse_reply_write(req, data.size());
    }

    void ioctl(fuse_req_t req, unsigned int cmd, void* arg, fuse_file_info* fi)
    {
        OpenFile* file = fileOf(fi);
        const int rc = file ? file->ioctl(cmd, reinterpret_cast<std::uintptr_t>(arg)) : -ENOTTY;
        if (rc < 0)
            fuse_reply_err(req, -rc);
        else
            fuse_reply_ioctl(req, 0, nullptr, 0);
    }

    void flush(fuse_req_t req, fuse_file_info* fi)
    {
        OpenFile* file = fileOf(fi);
        const int rc = file ? file->flush() : 0;
        fuse_reply_err(req, rc < 0 ? -rc : 0);
    }

    void release(fuse_req_t req, fuse_file_info* fi)
    {
        if (OpenFile* file = fileOf(fi)) {
            const std::string name = file->logName();
            if (!name.empty())
                in.log("close " + name);
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
        in.onReset([this] {
            refusedOpens.clear();
            serial.flush();
        });
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
    ops.setattr = [](fuse_req_t req, fuse_ino_t ino, struct stat*, int toSet, fuse_file_info*) {
        implOf(req).setattr(req, ino, toSet);
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
    for (int fd : {m_impl->stopFd, m_impl->signalFd}) {
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
    argv.reserve(words.size());
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
    return m_impl->serial.open(slavePath, error);
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
    // 1: a request was read; 0: unmounted from outside; < 0: nothing waiting (-EAGAIN) or an error.
    const auto serveRequest = [&] {
        const int n = fuse_session_receive_buf(d.session, &buf);
        if (n > 0)
            fuse_session_process_buf(d.session, &buf);
        return n > 0 ? 1 : n == -EINTR ? -EAGAIN : n;
    };
    // While a program keeps the file system busy (a PIC run), its next request is mostly waiting by the
    // time a reply is out: reading it at once saves a poll per operation. The other sources are polled
    // again after a run of requests; the serial peer's deadlines are kept in between.
    constexpr int requestsBetweenPolls = 64;
    int run = 0;
    while (!fuse_session_exited(d.session)) {
        if (run > 0 && run < requestsBetweenPolls) {
            const int served = serveRequest();
            if (served == 1) {
                ++run;
                d.serial.serve(0);
                continue;
            }
            if (served != -EAGAIN) {
                result = served;
                break;
            }
        }
        run = 0;
        pollfd fds[4] = {
            {fuseFd, POLLIN, 0}, {d.stopFd, POLLIN, 0}, {d.signalFd, POLLIN, 0}, d.serial.pollEntry()};
        timespec timeout{};
        const int ready = ::ppoll(fds, 4, d.serial.timeout(&timeout) ? &timeout : nullptr, nullptr);
        if (ready < 0) {
            if (errno == EINTR)
                continue;
            result = -errno;
            break;
        }
        if (fds[1].revents || fds[2].revents)
            break; // stop() or a signal
        if (fds[0].revents) {
            const int served = serveRequest();
            if (served == 0 || (served < 0 && served != -EAGAIN)) {
                result = served;
                break;
            }
            run = served == 1 ? 1 : 0;
        }
        d.serial.serve(fds[3].revents);
    }
    std::free(buf.mem);
    unmount();
    return result;
}

} // namespace sim
