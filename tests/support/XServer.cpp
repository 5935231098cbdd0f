#include "support/XServer.h"

#include <csignal>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// The line that the server writes when it is ready: the number that it chose.
std::string readLine(int fd)
{
    std::string line;
    char character = 0;
    while (::read(fd, &character, 1) == 1 && character != '\n')
        line += character;
    return character == '\n' ? line : std::string();
}

} // namespace

XServer::XServer(int width_px, int height_px, int resolution_dpi)
{
    int ready[2] = {-1, -1};
    if (::pipe2(ready, O_CLOEXEC) != 0)
        return;
    const std::string resolution = std::to_string(resolution_dpi);
    const std::string screen = std::to_string(width_px) + "x" + std::to_string(height_px) + "x24";
    // Descriptor 3 survives the start; the pipe's own ends do not.
    const char* const arguments[] = {"Xvfb",      "-displayfd",   "3",    "-screen",
                                     "0",         screen.c_str(), "-dpi", resolution.c_str(),
                                     "-nolisten", "tcp",          nullptr};
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, ready[1], 3);
    ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const int error =
        ::posix_spawnp(&m_process, "Xvfb", &actions, nullptr, const_cast<char* const*>(arguments), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(ready[1]);
    if (error != 0)
        m_process = -1;
    else if (const std::string number = readLine(ready[0]); !number.empty())
        m_display = ":" + number;
    ::close(ready[0]);
}

XServer::~XServer()
{
    if (m_process < 0)
        return;
    ::kill(m_process, SIGTERM);
    ::waitpid(m_process, nullptr, 0);
}
