#include "simulator/session/Watchdog.h"

#include <cstdio>
#include <utility>

#include <unistd.h>

Watchdog::Watchdog(int exitStatus) : m_exitStatus(exitStatus), m_thread(&Watchdog::run, this) {}

Watchdog::~Watchdog()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_ending = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void Watchdog::setLastWords(LastWords lastWords)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_lastWords = std::move(lastWords);
}

void Watchdog::watch(const std::string& what, std::chrono::milliseconds limit)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_what = what;
        m_deadline = Clock::now() + limit;
    }
    m_changed.notify_all();
}

void Watchdog::rest()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_deadline = Clock::time_point::max();
}

void Watchdog::run()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_ending) {
        if (m_deadline == Clock::time_point::max()) {
            m_changed.wait(lock);
        } else if (Clock::now() < m_deadline) {
            m_changed.wait_until(lock, m_deadline);
        } else {
            std::printf("%s did not end in time; the program is stopped\n", m_what.c_str());
            std::fflush(stdout);
            if (m_lastWords)
                m_lastWords(m_what);
            // Nothing can be torn down while the GUI thread hangs.
            ::_exit(m_exitStatus);
        }
    }
}
