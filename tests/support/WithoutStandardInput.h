#pragma once

#include <fcntl.h>
#include <unistd.h>

/// While it lives, the process has no standard input, and the next file that is opened gets its
/// number, as in a program that was started so.
class WithoutStandardInput
{
public:
    WithoutStandardInput() : m_input(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1))
    {
        ::close(STDIN_FILENO);
    }
    ~WithoutStandardInput()
    {
        if (m_input < 0)
            return;
        ::dup2(m_input, STDIN_FILENO);
        ::close(m_input);
    }
    WithoutStandardInput(const WithoutStandardInput&) = delete;
    WithoutStandardInput& operator=(const WithoutStandardInput&) = delete;

private:
    int m_input;
};
