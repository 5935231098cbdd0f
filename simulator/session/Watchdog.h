#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

/// Ends the process when what it watches does not come to an end: a handler that never
/// returns blocks the GUI thread, so that nothing on that thread could.
class Watchdog
{
public:
    using LastWords = std::function<void(const std::string& what)>;

    /// exitStatus: the process's status when a limit has passed.
    explicit Watchdog(int exitStatus);
    ~Watchdog();
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

    /// What is done, on the watchdog's thread, before the process is stopped; it is told what
    /// did not end. Any thread.
    void setLastWords(LastWords lastWords);
    /// Watches something new, instead of what it watched before. Any thread.
    void watch(const std::string& what, std::chrono::milliseconds limit);
    /// Watches nothing. Any thread.
    void rest();

private:
    using Clock = std::chrono::steady_clock;

    void run();

    const int m_exitStatus;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::string m_what; // guarded by m_mutex, like all below
    LastWords m_lastWords;
    Clock::time_point m_deadline = Clock::time_point::max();
    bool m_ending = false;
    std::thread m_thread;
};
