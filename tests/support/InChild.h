#pragma once

#include <functional>

#include <sys/wait.h>
#include <unistd.h>

/// Runs work in a process of its own and returns its exit status, -1 if it crashed.
inline int inChild(const std::function<int()>& work)
{
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(work());
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return -1;
    return WEXITSTATUS(status);
}
