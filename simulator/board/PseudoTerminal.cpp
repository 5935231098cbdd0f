#include "simulator/board/PseudoTerminal.h"

#include <cstdlib>

#include <fcntl.h>
#include <termios.h>

namespace {

// Without the line discipline's echo and translations.
bool makeRaw(int fd)
{
    termios settings{};
    if (::tcgetattr(fd, &settings) != 0)
        return false;
    ::cfmakeraw(&settings);
    return ::tcsetattr(fd, TCSANOW, &settings) == 0;
}

} // namespace

PseudoTerminal::PseudoTerminal() : m_near(::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC))
{
    char name[64] = {};
    if (!m_near.isOpen() || ::grantpt(m_near.get()) != 0 || ::unlockpt(m_near.get()) != 0 ||
        ::ptsname_r(m_near.get(), name, sizeof name) != 0)
        return;
    FileDescriptor far(::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (!far.isOpen() || !makeRaw(far.get()))
        return;
    m_devicePath = name;
    m_far = std::move(far);
}
