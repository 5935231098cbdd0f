#include "simulator/program/UsbSockets.h"

#include <array>
#include <csignal>
#include <cstdio>

#include <sys/signalfd.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <QStringList>

namespace {

struct ConditionName
{
    const char* name;
    UsbDiskCondition condition;
};

constexpr std::array<ConditionName, 5> kConditions{{
    {"good", UsbDiskCondition::Good},
    {"unmountable", UsbDiskCondition::Unmountable},
    {"full", UsbDiskCondition::Full},
    {"read-only", UsbDiskCondition::ReadOnly},
    {"pulled", UsbDiskCondition::Pulled},
}};

const QString kOut = QStringLiteral("out");

struct Socket
{
    int signal;
    const char* device;
    const char* uuid;
};

constexpr std::array<Socket, UsbSockets::kCount> kSockets{{
    {SIGUSR1, "sda1", "2A5C-11F0"},
    {SIGUSR2, "sdb1", "7B30-04D2"},
}};

sigset_t socketSignals()
{
    sigset_t wanted;
    sigemptyset(&wanted);
    for (const Socket& socket : kSockets)
        sigaddset(&wanted, socket.signal);
    return wanted;
}

} // namespace

QString readPlannedDisk(const QString& text, PlannedDisk& disk)
{
    const QStringList words = text.split(QLatin1Char(','));
    for (const ConditionName& condition : kConditions) {
        if (words.first() != QLatin1String(condition.name))
            continue;
        if (words.size() > 2 || (words.size() == 2 && words.last() != kOut))
            break;
        disk = {condition.condition, words.size() == 1};
        return {};
    }
    return QStringLiteral(
               "A disk is good, unmountable, full, read-only or pulled, with \",out\" where it is not "
               "plugged in yet, not \"%1\".")
        .arg(text);
}

void UsbSockets::holdSignals()
{
    const sigset_t wanted = socketSignals();
    ::pthread_sigmask(SIG_BLOCK, &wanted, nullptr);
}

UsbSockets::UsbSockets(UsbPort& port, const QVector<PlannedDisk>& disks) : m_port(port), m_disks(disks) {}

UsbSockets::~UsbSockets()
{
    if (m_signals >= 0)
        ::close(m_signals);
}

UsbDisk UsbSockets::diskOf(int socket) const
{
    const Socket& place = kSockets.at(static_cast<std::size_t>(socket));
    const PlannedDisk planned = m_disks.value(socket);
    return {QLatin1String(place.device), QLatin1String(place.uuid), planned.condition};
}

QString UsbSockets::plugAtStart()
{
    for (int socket = 0; socket < m_disks.size(); ++socket)
        if (m_disks.at(socket).pluggedAtStart && !m_port.plug(diskOf(socket)))
            return QStringLiteral(
                "The USB disk cannot be made: full and read-only ones need the right to mount.");
    return {};
}

void UsbSockets::listen()
{
    const sigset_t wanted = socketSignals();
    m_signals = ::signalfd(-1, &wanted, SFD_CLOEXEC | SFD_NONBLOCK);
    if (m_signals < 0)
        return;
    auto* notifier = new QSocketNotifier(m_signals, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, [this] { obeySignal(); });
}

void UsbSockets::obeySignal()
{
    signalfd_siginfo received = {};
    if (::read(m_signals, &received, sizeof received) != sizeof received)
        return;
    for (int socket = 0; socket < kCount; ++socket)
        if (kSockets.at(static_cast<std::size_t>(socket)).signal == static_cast<int>(received.ssi_signo))
            toggle(socket);
}

void UsbSockets::toggle(int socket)
{
    const UsbDisk disk = diskOf(socket);
    const bool pulled = m_port.pull(disk.device);
    const bool plugged = !pulled && m_port.plug(disk);
    std::fprintf(stderr, "USB disk %s %s\n", qPrintable(disk.device),
                 pulled    ? "pulled"
                 : plugged ? "plugged in"
                           : "cannot be plugged in");
}
