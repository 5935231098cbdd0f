#include "platform/ProcessSetup.h"

#include <csignal>
#include <initializer_list>

#include <fcntl.h>
#include <unistd.h>

namespace {

/// The lowest number that is free is the one that a file gets.
void openMissingStreams()
{
    int fd = 0;
    do
        fd = ::open("/dev/null", O_RDWR);
    while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd >= 0)
        ::close(fd);
}

/// A child gets the first back as it was; to the second it is as if its program did the same.
void letFailedWritesFail()
{
    for (const int number : {SIGPIPE, SIGXFSZ})
        std::signal(number, SIG_IGN);
}

void letSignalsThrough()
{
    sigset_t needed;
    sigemptyset(&needed);
    for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGCHLD})
        sigaddset(&needed, number);
    ::pthread_sigmask(SIG_UNBLOCK, &needed, nullptr);
}

} // namespace

void setUpProcess()
{
    openMissingStreams();
    letFailedWritesFail();
    letSignalsThrough();
}
