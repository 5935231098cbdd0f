#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

/// Ends the process when what it watches does not come to an end: a handler that never
/// returns blocks the GUI thread, so that nothing on that thread could. Any thread.
class Watchdog
{
public:
    using LastWords = std::function<void(const std::string& what)>;

    /// exitStatus: the process's status when a limit has passed.
    explicit Watchdog(int exitStatus);
    ~Watchdog();
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

    /// Sets what is called, on the watchdog's thread, before the process is stopped, with the name
    /// of what did not end.
    void setLastWords(LastWords lastWords);
    /// Watches something new, instead of what it watched before.
    void watch(const std::string& what, std::chrono::milliseconds limit);
    /// Watches nothing.
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
