// USB disks: any mount table, any names and targets in the folder of the disks' links.

#include <unistd.h>

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSet>
#include <QStringList>

#include "FuzzInput.h"
#include "media/MediaMonitor.h"
#include "platform/ChildProcess.h"
#include "platform/InstrumentPath.h"
#include "tests/settings/QuickDirectory.h"

namespace {

constexpr char kSeparator = '\x1E';
constexpr int kMostLinks = 6;
constexpr int kMostSteps = 6;

QStringList& commands()
{
    static QStringList list;
    return list;
}

} // namespace

// In the place of the program's own: what it would start is noted, and nothing is started.
void runChildProcess(const QString& program, const QStringList& arguments, int)
{
    require(program == "mount" || program == "umount", "nothing else is started");
    require(arguments.size() == (program == "mount" ? 2 : qMin(1, arguments.size())),
            "mount has two arguments, umount one or none");
    for (const QString& argument : arguments)
        require(argument.startsWith('/'), "no argument is an option");
    QStringList fixed;
    for (const QString& argument : arguments)
        fixed << fixedPathOf(argument);
    commands() << (QStringList(program) + fixed).join(' ');
}

namespace {

class Machine
{
public:
    Machine()
    {
        setInstrumentRoot(m_root.path());
        for (const char* folder : {"/dev/disk/by-uuid", "/etc", "/mnt"})
            QDir().mkpath(instrumentPath(QString(folder)));
    }

    void setTable(const QByteArray& bytes)
    {
        QFile file(instrumentPath(QStringLiteral("/etc/mtab")));
        require(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size(), "room for a file");
        m_table = bytes.left(qMax(0, bytes.indexOf('\0') < 0 ? bytes.size() : bytes.indexOf('\0')));
    }

    void plug(QByteArray name, QByteArray target)
    {
        name.replace('/', '_').replace('\0', '_').truncate(60);
        target.replace('\0', '_').truncate(200);
        // A name that is taken, or is none, stays as it is.
        [[maybe_unused]] const int made = ::symlink(target.constData(), linkPath(name).constData());
    }

    void pull(const QByteArray& name) { ::unlink(linkPath(name).constData()); }

    void clear()
    {
        for (const QByteArray& name : names())
            pull(name);
    }

    QList<QByteArray> names() const
    {
        QList<QByteArray> found;
        const auto entries =
            QDir(instrumentPath(QStringLiteral("/dev/disk/by-uuid")))
                .entryList(QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot);
        for (const QString& entry : entries)
            found << QFile::encodeName(entry);
        return found;
    }

    const QByteArray& table() const { return m_table; }

private:
    static QByteArray linkPath(const QByteArray& name)
    {
        return QFile::encodeName(instrumentPath(QStringLiteral("/dev/disk/by-uuid/"))) + name;
    }

    FuzzedProgram<QCoreApplication> m_program;
    QuickDirectory m_root;
    QByteArray m_table;
};

// Every step ends in commands that the devices at hand explain.
void requireCommands(const QStringList& devices)
{
    require(commands().size() <= 2, "a change unmounts one disk and mounts one");
    for (const QString& command : qAsConst(commands()))
        if (command.startsWith("mount "))
            require(!devices.isEmpty() && command == "mount " + devices.first() + " /mnt",
                    "the first disk is mounted, at its place");
    commands().clear();
}

QStringList devicesOf(MediaMonitor& monitor)
{
    QStringList devices;
    require(monitor.searchConnectedDevList(devices) == !devices.isEmpty(), "a search tells what it found");
    for (const QString& device : qAsConst(devices)) {
        require(device.startsWith("/dev/sd") || device.startsWith("/dev/ub"), "only disks are found");
        require(!QString(device + '/').contains("/../"), "a disk's path does not lead elsewhere");
    }
    return devices;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Machine machine;
    FuzzInput input(data, size);
    machine.clear();
    machine.setTable(input.upTo(kSeparator));
    for (int count = 0; count < kMostLinks; ++count) {
        const QByteArray name = input.upTo('\n');
        if (name.isEmpty())
            break;
        machine.plug(name, input.upTo('\n'));
    }

    commands().clear();
    MediaMonitor monitor;
    QSet<int> states;
    QObject::connect(&monitor, &MediaMonitor::detectSignal, [&states](int state) { states << state; });
    QStringList devices = devicesOf(monitor);
    QStringList wanted;
    for (int i = 0; i < QFile::decodeName(machine.table()).count("/mnt"); ++i)
        wanted << "umount /mnt";
    if (!devices.isEmpty())
        wanted << "mount " + devices.first() + " /mnt";
    require(commands() == wanted, "the start unmounts what is mounted, and mounts the first disk");
    commands().clear();

    for (int step = 0; step < kMostSteps && !input.isEmpty(); ++step) {
        const std::uint8_t choice = input.byte();
        const QList<QByteArray> names = machine.names();
        if ((choice & 8U) != 0)
            machine.setTable(input.upTo('\n'));
        if ((choice & 4U) != 0)
            machine.plug(input.upTo('\n'), input.upTo('\n'));
        else if (!names.isEmpty())
            machine.pull(names[choice % names.size()]);
        if ((choice & 1U) != 0)
            monitor.directoryChanged(QString());
        else
            monitor.keepWatching();
        devices = devicesOf(monitor);
        requireCommands(devices);
        for (const QString& device : qAsConst(devices))
            require(monitor.checkMountedUSB(device) == QFile::decodeName(machine.table()).contains(device),
                    "a disk is mounted that is there and stands in the table");
        require(!monitor.searchUSB() || !machine.table().isEmpty(), "without a table nothing is mounted");
        require(commands().isEmpty(), "questions start nothing");
    }
    for (const int state : qAsConst(states))
        require(state == 0 || state == 1, "there are two states");
    return 0;
}
