#pragma once

#include <cstddef>
#include <stdexcept>

#include <pthread.h>

/**
 * While it lives, no thread can be started in this process: each would want a stack that no
 * machine has. Not for several threads.
 */
class NoMoreThreads
{
public:
    /** Throws std::runtime_error where the library does not take such a size. */
    NoMoreThreads()
    {
        pthread_attr_t huge;
        pthread_attr_init(&huge);
        // Nearly all that can be addressed, less what the library rounds it up by.
        const std::size_t size = ~std::size_t(0) - (std::size_t(1) << 26);
        const bool refused = pthread_getattr_default_np(&m_usual) != 0 ||
                             pthread_attr_setstacksize(&huge, size) != 0 ||
                             pthread_setattr_default_np(&huge) != 0;
        pthread_attr_destroy(&huge);
        if (refused)
            throw std::runtime_error("the size of a thread's stack cannot be set");
    }
    ~NoMoreThreads()
    {
        pthread_setattr_default_np(&m_usual);
        pthread_attr_destroy(&m_usual);
    }
    NoMoreThreads(const NoMoreThreads&) = delete;
    NoMoreThreads& operator=(const NoMoreThreads&) = delete;

private:
    pthread_attr_t m_usual{};
};
