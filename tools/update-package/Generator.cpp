#include "Generator.h"

#include <QMap>
#include <QStringList>
#include <QTextCodec>
#include <archive.h>
#include <archive_entry.h>
#include <functional>
#include <memory>

namespace generate {
namespace {

const QString top = QStringLiteral("firmware_update/");

// One package's making: a random source, the members so far and the command list's lines.
class Maker
{
public:
    Maker(quint64 seed, int index, const Options& options)
        : m_random(seed * 1000003u + quint64(index)), m_options(options)
    {
    }

    Package make();

private:
    std::mt19937_64 m_random;
    Options m_options;
    Package m_package;
    QStringList m_lines;
    bool m_remounted = false;

    int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(m_random); }
    bool chance(int percent) { return pick(100) < percent; }
    template <typename T> const T& one(const QVector<T>& items) { return items[pick(items.size())]; }
    QString word()
    {
        static const QVector<QString> words{"cal", "board", "net", "app2", "data", "x", "conf", "io"};
        return one(words) + QString::number(pick(100));
    }
    QByteArray bytes(int size)
    {
        QByteArray out(size, '\0');
        for (char& c : out)
            c = char(pick(256));
        return out;
    }

    // A member below firmware_update/ (its folders first, unless the archive leaves them out).
    void add(const QString& path, char type, const QByteArray& data = {}, uint mode = 0644,
             const QString& link = {});
    // The argument as a line names it: mostly as it is, sometimes with the faults engineers make.
    QString argument(const QString& path);
    void line(const QString& text) { m_lines << text; }

    void app();
    void rootFile();
    void updater();
    void kernel();
    void image();
    void modules();
    void script();
    void pic();
    void nearMiss();
    void archiveFaults();
    QByteArray encoded(const QString& text);
    QByteArray modulesArchive();
    QByteArray hexFile();
};

void Maker::add(const QString& path, char type, const QByteArray& data, uint mode, const QString& link)
{
    const QStringList parts = path.split('/', Qt::SkipEmptyParts);
    QString folder = top;
    for (int i = 0; i + 1 < parts.size(); ++i) {
        folder += parts[i] + '/';
        const bool present = std::any_of(m_package.members.begin(), m_package.members.end(),
                                         [&](const Member& m) { return m.name == folder; });
        if (!present)
            m_package.members.push_back({folder, 'd', {}, {}, 0755});
    }
    // Packed by an engineer's own account as often as by root, now and then with owners the instrument
    // has no name for.
    const QString owner = one(QVector<QString>{"root", "root", "engineer", QString()});
    m_package.members.push_back({top + parts.join('/'), type, data, link, mode, owner});
}

QString Maker::argument(const QString& path)
{
    switch (chance(25) ? pick(9) : -1) {
    case 0:
        return path + '/';
    case 1:
        return QStringLiteral("/nosuchdir/..") + path;
    case 2:
        return path + ' ';
    case 3:
        return ' ' + path;
    case 4:
        return path.mid(1);
    case 5:
        return '/' + path; // a double slash
    case 6:
        return QStringLiteral("/.") + path;
    case 7:
        return path + QStringLiteral("\t");
    case 8:
        return path.left(path.lastIndexOf('/') + 1) + QStringLiteral("%1") +
               path.mid(path.lastIndexOf('/') + 1);
    default:
        return path;
    }
}

void Maker::app()
{
    const QString name = chance(80) ? QStringLiteral("/mainApp") : QStringLiteral("/bin/") + word();
    if (chance(90))
        add(name, 'f',
            "\x7f"
            "ELF" +
                bytes(pick(3000)),
            chance(85) ? 0755u : 0644u);
    else if (chance(50))
        add(name, 'l', {}, 0777, QStringLiteral("mainApp-real"));
    line(QStringLiteral("APP:") + argument(name));
    m_remounted = true;
}

void Maker::rootFile()
{
    static const QVector<QString> targets{"/etc/%1.conf",    "/etc/%1.conf", "/home/%1", "/opt/nosuch/%1",
                                          "/etc/os-release", "/tmp/%1",      "/etc",     "/usr/share/%1",
                                          "/etc/hostname",   "/var/lib/%1"};
    QString target = one(targets);
    if (target.contains(QLatin1String("%1")))
        target = target.arg(word());
    if (chance(85))
        add(target, 'f', bytes(pick(400)).toHex(), chance(90) ? 0644u : 0600u);
    else if (chance(50))
        add(target, 'l', {}, 0777, chance(50) ? QStringLiteral("/etc/passwd") : QStringLiteral("other"));
    line(QStringLiteral("FILE:") + argument(target));
    m_remounted = true;
}

void Maker::updater()
{
    const QString target =
        chance(70) ? QStringLiteral("/usr/bin/updater") : QStringLiteral("/usr/bin/") + word();
    add(target, 'f',
        "\x7f"
        "ELF" +
            bytes(500),
        0755);
    line(QStringLiteral("UPDATER:") + argument(target));
}

void Maker::kernel()
{
    const qint64 size = chance(95) ? 512 + pick(8192) : 2 * 1024 * 1024 + 2048;
    if (chance(90))
        add(QStringLiteral("/uImage"), 'f', bytes(int(size)));
    line(QStringLiteral("KERNEL:") + argument(QStringLiteral("/uImage")));
}

void Maker::image()
{
    const QString path = chance(80) ? QStringLiteral("/rootfs.ubifs") : QStringLiteral("/img/rootfs.ubifs");
    const qint64 size = chance(95) ? 2048 + pick(8192) : 8 * 1024 * 1024 + 1;
    if (chance(90))
        add(path, 'f', QByteArray("UBI#") + QByteArray(int(size) - 4, char(pick(2) ? 0xFF : 0)));
    line(QStringLiteral("IMAGE:") + argument(path));
}

QByteArray Maker::modulesArchive()
{
    Package archive;
    archive.compression = chance(85) ? QStringLiteral("none") : QStringLiteral("gzip");
    const QString release = QStringLiteral("lib/modules/4.19.0-instrument/");
    const int layout = pick(10);
    const QString prefix = layout == 1 ? QStringLiteral("./") : layout == 2 ? QStringLiteral("/") : QString();
    if (layout == 3) // the folder lib/ itself: replaces the link /lib
        archive.members.push_back({prefix + "lib/", 'd', {}, {}, 0755});
    if (layout >= 4) {
        archive.members.push_back({prefix + "lib/modules/", 'd', {}, {}, 0755});
        archive.members.push_back({prefix + release, 'd', {}, {}, 0755});
        archive.members.push_back({prefix + release + "extra/", 'd', {}, {}, chance(90) ? 0755u : 0700u});
    }
    for (int i = pick(3) + 1; i > 0; --i)
        archive.members.push_back({prefix + release + "extra/" + word() + ".ko",
                                   'f',
                                   bytes(100 + pick(400)),
                                   {},
                                   0644,
                                   chance(90) ? QStringLiteral("root") : QStringLiteral("builder")});
    archive.members.push_back({prefix + release + "modules.dep", 'f', "extra/keypad.ko:\n", {}, 0644});
    if (layout == 0 && chance(50))
        archive.members.push_back({QStringLiteral("../escape.ko"), 'f', "x", {}, 0644});
    return pack(archive);
}

void Maker::modules()
{
    const QString path = QStringLiteral("/modules") + QString::number(pick(3)) + QStringLiteral(".tar");
    add(path, 'f', chance(92) ? modulesArchive() : QByteArray("not an archive\n"));
    line(QStringLiteral("MODULES:") + argument(path));
}

void Maker::script()
{
    const QString path = QStringLiteral("/") + word() + QStringLiteral(".sh");
    static const QVector<QByteArray> bodies{
        "#!/bin/sh\nexit 0\n",     "#!/bin/sh\nexit 0\n",     "#!/bin/sh\nexit 3\n",
        "#!/bin/sh\ntrue\n",       "#!/bin/sh\nfalse\n",      "exit 0\n",
        "#!/bin/sh\r\nexit 0\r\n", "#!/bin/nosuch\nexit 0\n", "#! /bin/sh\nexit 0\n"};
    if (chance(92))
        add(path, 'f', one(bodies), chance(85) ? 0755u : 0644u);
    line(QStringLiteral("SCRIPT:") + argument(path));
}

QByteArray Maker::hexFile()
{
    const auto record = [](quint16 offset, const QByteArray& data, quint8 type, bool badSum) {
        QByteArray raw =
            QByteArray(1, char(data.size())) + char(offset >> 8) + char(offset) + char(type) + data;
        quint8 sum = badSum ? 1 : 0;
        for (char c : raw)
            sum = quint8(sum - quint8(c));
        return ':' + (raw + char(sum)).toHex().toUpper() + '\n';
    };
    QByteArray out;
    for (int i = pick(6) + 1; i > 0; --i) {
        switch (chance(20) ? pick(7) : -1) {
        case 0: // above 64 KB
            out += record(0, QByteArray("\x00\x01", 2), 4, false) +
                   record(quint16(pick(0x100) * 16), bytes(16), 0, false) +
                   record(0, QByteArray("\x00\x00", 2), 4, false);
            break;
        case 1: // configuration bytes
            out += record(0, QByteArray("\x00\x30", 2), 4, false) +
                   record(quint16(pick(14)), bytes(pick(4) + 1), 0, false) +
                   record(0, QByteArray("\x00\x00", 2), 4, false);
            break;
        case 2:
            out += record(quint16(0xFFF0), bytes(16), 0, false);
            break;
        case 3:
            out += "not a record\n";
            break;
        case 4:
            out += record(quint16(pick(0x400) * 16), bytes(16), 0, true);
            break;
        case 5: // written twice
            out += record(0x200, bytes(8), 0, false) + record(0x200, bytes(8), 0, false);
            break;
        case 6:
            out += record(0, bytes(120), 0, false);
            break;
        default:
            out += record(quint16(pick(0x800) * 16), bytes(16), 0, false);
            break;
        }
    }
    return out + ":00000001FF\n";
}

void Maker::pic()
{
    const QString path = QStringLiteral("/") + word() + QStringLiteral(".hex");
    if (chance(90))
        add(path, 'f', hexFile());
    static const QVector<QString> keywords{"PIC", "PIC", "PIC0", "PIC1", "PIC01", "PIC1x", "XPIC2"};
    line(one(keywords) + ':' + (chance(95) ? argument(path) : QString()));
}

void Maker::nearMiss()
{
    static const QVector<QString> misses{"app:/mainApp",
                                         " APP:/mainApp",
                                         "APP :/mainApp",
                                         "APP\t:/mainApp",
                                         "APP:/a:b",
                                         "",
                                         "Check before shipping",
                                         "SYSTEM:SDCARD",
                                         "SYSTEM:NAND",
                                         "SYSTEM:EMMC",
                                         "ESA_IO_APP:/io.bin",
                                         "ESA_M_EEPX:/e.bin",
                                         "UNKNOWN:/x",
                                         "FILE:",
                                         "APP:/",
                                         "KERNEL:%1"};
    line(one(misses));
}

QByteArray Maker::encoded(const QString& text)
{
    switch (chance(15) ? pick(4) : -1) {
    case 0:
        return QString(text).replace('\n', QStringLiteral("\r\n")).toUtf8();
    case 1:
        return "\xEF\xBB\xBF" + text.toUtf8();
    case 2:
        return QTextCodec::codecForName("UTF-16")->fromUnicode(text); // with its byte order mark
    case 3:
        return text.toUtf8().chopped(text.endsWith('\n') ? 1 : 0); // no final line feed
    default:
        return text.toUtf8();
    }
}

void Maker::archiveFaults()
{
    auto& members = m_package.members;
    switch (chance(12) ? pick(6) : -1) {
    case 0:
        members.prepend({QStringLiteral("./"), 'd', {}, {}, 0700});
        for (Member& m : members)
            if (m.name != QLatin1String("./"))
                m.name.prepend(QStringLiteral("./"));
        break;
    case 1:
        if (!members.isEmpty())
            members.push_back(members[pick(members.size())]); // a member twice
        break;
    case 2:
        members.push_back(
            {top + QStringLiteral("hard"), 'h', {}, top + QStringLiteral("update_config"), 0644});
        break;
    case 3:
        members.push_back({QStringLiteral("/abs/") + word(), 'f', "x", {}, 0644});
        break;
    case 4:
        members.push_back({top + QStringLiteral("../up"), 'f', "x", {}, 0644});
        break;
    case 5:
        members.erase(
            std::remove_if(members.begin(), members.end(), [](const Member& m) { return m.type == 'd'; }),
            members.end()); // no folder members
        break;
    default:
        break;
    }
    switch (chance(8) ? pick(4) : -1) {
    case 0:
        m_package.name = QStringLiteral("Orsina M_firmware_update 5.3.tar.bz2");
        break;
    case 1:
        m_package.name = QStringLiteral("firmware_update.tar.bz2");
        break;
    case 2:
        m_package.compression = QStringLiteral("gzip");
        break;
    case 3:
        m_package.name = QStringLiteral("orsinam_FIRMWARE_UPDATE_5.3.TAR.BZ2");
        break;
    default:
        break;
    }
}

Package Maker::make()
{
    m_package.name = QStringLiteral("GenM_firmware_update_%1.tar.bz2").arg(pick(1000));
    m_package.members.push_back({top, 'd', {}, {}, 0755});
    if (chance(60))
        app(); // most packages remount first
    const QVector<std::function<void()>> kinds{
        [&] { app(); },   [&] { rootFile(); }, [&] { rootFile(); }, [&] { updater(); }, [&] { kernel(); },
        [&] { image(); }, [&] { modules(); },  [&] { script(); },   [&] { script(); },  [&] { nearMiss(); }};
    for (int i = pick(8); i > 0; --i)
        one(kinds)();
    if (m_options.pic && chance(70))
        pic();
    const QString list = m_lines.join('\n') + (m_lines.isEmpty() ? QString() : QStringLiteral("\n"));
    add(QStringLiteral("/update_config"), 'f', encoded(list));
    if (chance(10))
        add(QStringLiteral("/spare.bin"), 'f', bytes(pick(64)));
    if (chance(5)) // a device node, which tar as root creates
        add(QStringLiteral("/console"), 'c', {}, 0600);
    archiveFaults();
    m_package.lines = m_lines.size();
    return m_package;
}

} // namespace

Package make(quint64 seed, int index, const Options& options)
{
    return Maker(seed, index, options).make();
}

Member* commandList(Package& package)
{
    for (Member& m : package.members)
        if (m.name.endsWith(QLatin1String("firmware_update/update_config")) && m.type == 'f')
            return &m;
    return nullptr;
}

QByteArray pack(const Package& package)
{
    QByteArray out;
    std::unique_ptr<archive, decltype(&archive_write_free)> a(archive_write_new(), archive_write_free);
    if (package.compression == QLatin1String("bzip2"))
        archive_write_add_filter_bzip2(a.get());
    else if (package.compression == QLatin1String("gzip"))
        archive_write_add_filter_gzip(a.get());
    archive_write_set_format_gnutar(a.get());
    archive_write_set_bytes_in_last_block(a.get(), 1);
    const auto write = [](archive*, void* client, const void* buffer, size_t length) -> la_ssize_t {
        static_cast<QByteArray*>(client)->append(static_cast<const char*>(buffer), int(length));
        return la_ssize_t(length);
    };
    archive_write_open(a.get(), &out, nullptr, write, nullptr);
    for (const Member& m : package.members) {
        std::unique_ptr<archive_entry, decltype(&archive_entry_free)> e(archive_entry_new(),
                                                                        archive_entry_free);
        archive_entry_set_pathname(e.get(), m.name.toUtf8().constData());
        archive_entry_set_perm(e.get(), mode_t(m.mode));
        archive_entry_set_uname(e.get(), m.owner.toUtf8().constData());
        archive_entry_set_gname(e.get(), m.owner.toUtf8().constData());
        const int id = m.owner == QLatin1String("root")       ? 0
                       : m.owner == QLatin1String("engineer") ? 1000
                       : m.owner.isEmpty()                    ? 4242
                                                              : 1234;
        archive_entry_set_uid(e.get(), id);
        archive_entry_set_gid(e.get(), id);
        archive_entry_set_mtime(e.get(), 1700000000, 0);
        switch (m.type) {
        case 'd':
            archive_entry_set_filetype(e.get(), AE_IFDIR);
            break;
        case 'l':
            archive_entry_set_filetype(e.get(), AE_IFLNK);
            archive_entry_set_symlink(e.get(), m.link.toUtf8().constData());
            break;
        case 'c':
            archive_entry_set_filetype(e.get(), AE_IFCHR);
            archive_entry_set_rdevmajor(e.get(), 5);
            archive_entry_set_rdevminor(e.get(), 1);
            break;
        case 'h':
            archive_entry_set_filetype(e.get(), AE_IFREG);
            archive_entry_set_hardlink(e.get(), m.link.toUtf8().constData());
            break;
        default:
            archive_entry_set_filetype(e.get(), AE_IFREG);
            archive_entry_set_size(e.get(), m.data.size());
            break;
        }
        archive_write_header(a.get(), e.get());
        if (m.type == 'f')
            archive_write_data(a.get(), m.data.constData(), size_t(m.data.size()));
    }
    archive_write_close(a.get());
    return out;
}

} // namespace generate
