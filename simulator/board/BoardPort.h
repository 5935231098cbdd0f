#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "platform/FileDescriptor.h"
#include "simulator/board/Board.h"
#include "simulator/board/PseudoTerminal.h"

/// How fast the board's commands are done.
enum class BoardPace {
    RealTime, ///< as long as the instrument takes
    Instant   ///< at once: the instrument's time jumps to the command's end
};

/// The serial line of the simulated instrument: puts "/dev/ttyS2" below a root directory and
/// serves it with a Board on a thread of its own, by the monotonic clock. The host may open
/// and close the port as it likes. Any thread.
class BoardPort
{
public:
    using Clock = std::chrono::steady_clock;

    /// Begins to serve; isServing() tells whether the device could be created. powerOn is the
    /// moment from which the board's time counts.
    explicit BoardPort(const std::string& rootDirectory, const BoardParameters& parameters = {},
                       BoardPace pace = BoardPace::RealTime, Clock::time_point powerOn = Clock::now());
    /// Takes the device away and ends the thread.
    ~BoardPort();
    BoardPort(const BoardPort&) = delete;
    BoardPort& operator=(const BoardPort&) = delete;

    bool isServing() const { return m_thread.joinable(); }
    /// The device below the root directory.
    const std::string& devicePath() const { return m_devicePath; }
    /// The pseudo-terminal that the device leads to, such as "/dev/pts/7".
    const std::string& terminalPath() const { return m_terminal.devicePath(); }

    /// Sets how fast later commands are done.
    void setPace(BoardPace pace);
    /// Stage, LED state and level at this moment.
    BoardLight light() const;
    /// Runs a function on the board at its present time, while the serving thread leaves it alone:
    /// to switch power or faults, or to ask for the truth.
    void withBoard(const std::function<void(Board& board, InstrumentTime now)>& function);

    /// Stage, LED state and level at a time within the latest motion, or after it.
    BoardLight light(InstrumentTime time) const;
    /// Calls a function, on the serving thread, whenever a command that takes time has ended or
    /// was skipped, before its answer leaves. The function is given the present time, which at
    /// instant pace is the command's end, and may ask the board. An empty function: none.
    void setArrivalWatcher(std::function<void(InstrumentTime arrival)> watcher);

private:
    bool createDevice(const std::string& rootDirectory);
    void serve();
    void exchange();
    bool waitForWork() const;
    InstrumentTime now() const;
    bool skipToCommandEnd();

    const Clock::time_point m_powerOn;
    PseudoTerminal m_terminal;
    std::string m_devicePath;
    FileDescriptor m_wake;      // readable when the serving thread has to wake up
    mutable std::mutex m_mutex; // guards everything below but the thread
    BoardPace m_pace;
    Board m_board;
    InstrumentTime m_skipped{0}; // time that the instrument is ahead of the clock
    std::function<void(InstrumentTime)> m_arrivalWatcher;
    bool m_ending = false;
    std::thread m_thread;
};
