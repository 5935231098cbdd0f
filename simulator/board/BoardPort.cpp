#include "simulator/board/BoardPort.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <system_error>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>

namespace {

constexpr char kDevice[] = "/dev/ttyS2";

constexpr const char* kLockDirectories[] = {"/var/lock", "/run/lock", "/var/spool/locks", "/tmp"};

// QSerialPort marks an open port by a lock file. The verifier's port stays open to the end of
// the process, so QSerialPort never removes the file.
void removePortLock(const std::string& devicePath)
{
    std::string name = "LCK.." + devicePath;
    std::replace(name.begin(), name.end(), '/', '_');
    std::error_code ignored;
    for (const char* directory : kLockDirectories)
        std::filesystem::remove(std::filesystem::path(directory) / name, ignored);
}

void signalEvent(int fd)
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(fd, &one, sizeof one);
}

void clearEvent(int fd)
{
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t taken = ::read(fd, &count, sizeof count);
}

std::string readAvailable(int fd)
{
    std::string bytes;
    char chunk[256];
    for (ssize_t count = ::read(fd, chunk, sizeof chunk); count > 0; count = ::read(fd, chunk, sizeof chunk))
        bytes.append(chunk, static_cast<std::size_t>(count));
    return bytes;
}

// What the host does not read from the line is lost, as on a real one.
void writeOrLose(int fd, const std::string& bytes)
{
    if (!bytes.empty()) [[maybe_unused]]
        const ssize_t written = ::write(fd, bytes.data(), bytes.size());
}

} // namespace

BoardPort::BoardPort(const std::string& rootDirectory, const BoardParameters& parameters, BoardPace pace,
                     Clock::time_point powerOn)
    : m_powerOn(powerOn), m_wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), m_pace(pace), m_board(parameters)
{
    if (createDevice(rootDirectory))
        m_thread = std::thread(&BoardPort::serve, this);
}

BoardPort::~BoardPort()
{
    if (!isServing())
        return;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_ending = true;
    }
    signalEvent(m_wake.get());
    m_thread.join();
    std::error_code ignored;
    std::filesystem::remove(m_devicePath, ignored);
    removePortLock(m_devicePath);
}

bool BoardPort::createDevice(const std::string& rootDirectory)
{
    if (!m_terminal.isOpen() || !m_wake.isOpen())
        return false;
    m_devicePath = rootDirectory + kDevice;
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(m_devicePath).parent_path(), error);
    std::filesystem::remove(m_devicePath, error);
    std::filesystem::create_symlink(m_terminal.devicePath(), m_devicePath, error);
    return !error;
}

InstrumentTime BoardPort::now() const
{
    return std::chrono::duration_cast<InstrumentTime>(Clock::now() - m_powerOn) + m_skipped;
}

void BoardPort::setPace(BoardPace pace)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_pace = pace;
}

BoardLight BoardPort::light() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_board.light(now());
}

BoardLight BoardPort::light(InstrumentTime time) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_board.light(time);
}

void BoardPort::setArrivalWatcher(std::function<void(InstrumentTime)> watcher)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_arrivalWatcher = std::move(watcher);
}

void BoardPort::withBoard(const std::function<void(Board&, InstrumentTime)>& function)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        function(m_board, now());
    }
    signalEvent(m_wake.get());
}

void BoardPort::serve()
{
    while (waitForWork())
        exchange();
}

void BoardPort::exchange()
{
    const std::string received = readAvailable(m_terminal.descriptor());
    std::function<void(InstrumentTime)> watcher;
    InstrumentTime arrival{0};
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const std::optional<InstrumentTime> end = m_board.commandEnd();
        const InstrumentTime time = now();
        m_board.receive(received, time);
        const bool ended = end && *end <= time;
        const bool skipped = m_pace == BoardPace::Instant && skipToCommandEnd();
        if (ended || skipped)
            watcher = m_arrivalWatcher;
        arrival = now();
    }
    if (watcher)
        watcher(arrival);
    std::string replies;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        replies = m_board.takeOutput(now());
    }
    writeOrLose(m_terminal.descriptor(), replies);
}

// Only the commands' own time is skipped: a late or trickled answer stays one. True if any
// command took time.
bool BoardPort::skipToCommandEnd()
{
    bool skipped = false;
    while (const std::optional<InstrumentTime> end = m_board.commandEnd()) {
        const InstrumentTime left = *end - now();
        skipped = skipped || left > InstrumentTime{0};
        m_skipped += std::max(InstrumentTime{0}, left);
        m_board.receive({}, now());
    }
    return skipped;
}

// False when the thread is to end.
bool BoardPort::waitForWork() const
{
    std::optional<InstrumentTime> left;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_ending)
            return false;
        if (const std::optional<InstrumentTime> next = m_board.nextEvent())
            left = std::max(InstrumentTime{0}, *next - now());
    }
    pollfd sources[] = {{m_terminal.descriptor(), POLLIN, 0}, {m_wake.get(), POLLIN, 0}};
    timespec timeout{};
    if (left) {
        timeout.tv_sec = std::chrono::duration_cast<std::chrono::seconds>(*left).count();
        timeout.tv_nsec = (left->count() % std::micro::den) * 1000;
    }
    ::ppoll(sources, std::size(sources), left ? &timeout : nullptr, nullptr);
    clearEvent(m_wake.get());
    return true;
}
