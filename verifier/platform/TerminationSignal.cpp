#include "platform/TerminationSignal.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
constexpr int kShellSignalBase = 128;

// Read by the signal handler, which may do little more than write a byte there.
volatile std::sig_atomic_t g_signalPipe = -1;

void reportSignal(int number)
{
    const int interrupted = errno;
    const auto byte = static_cast<unsigned char>(number);
    // A pipe that is full has told enough.
    [[maybe_unused]] const ssize_t written = ::write(g_signalPipe, &byte, sizeof byte);
    errno = interrupted;
}

} // namespace

TerminationSignal::TerminationSignal(Second second)
{
    if (::pipe2(m_pipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    m_notifier = new QSocketNotifier(m_pipe[0], QSocketNotifier::Read, this);
    m_notifier->setEnabled(false);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] { readPipe(); });
    g_signalPipe = m_pipe[1];
    for (const int number : kSignals)
        takeOver(number, second);
}

TerminationSignal::~TerminationSignal()
{
    for (const Handler& handler : m_handlers)
        ::sigaction(handler.number, &handler.before, nullptr);
    if (m_notifier == nullptr)
        return;
    g_signalPipe = -1;
    ::close(m_pipe[0]);
    ::close(m_pipe[1]);
}

void TerminationSignal::connectNotify(const QMetaMethod& signal)
{
    if (m_notifier != nullptr && signal == QMetaMethod::fromSignal(&TerminationSignal::received))
        m_notifier->setEnabled(true);
}

void TerminationSignal::takeOver(int number, Second second)
{
    struct sigaction before = {};
    if (::sigaction(number, nullptr, &before) != 0 || before.sa_handler == SIG_IGN)
        return;
    struct sigaction action = {};
    action.sa_handler = reportSignal;
    action.sa_flags = SA_RESTART;
    if (second == Second::EndsTheProcess)
        action.sa_flags |= static_cast<int>(SA_RESETHAND);
    if (::sigaction(number, &action, nullptr) == 0)
        m_handlers.push_back({number, before});
}

int TerminationSignal::exitStatus() const
{
    return kShellSignalBase + m_number;
}

QString TerminationSignal::name() const
{
    switch (m_number) {
    case 0:
        return {};
    case SIGINT:
        return QStringLiteral("Ctrl-C (SIGINT)");
    case SIGTERM:
        return QStringLiteral("The signal SIGTERM");
    default:
        return QStringLiteral("The end of the terminal (SIGHUP)");
    }
}

void TerminationSignal::readPipe()
{
    unsigned char number = 0;
    if (::read(m_pipe[0], &number, sizeof number) != sizeof number || isReceived())
        return;
    m_number = number;
    emit received();
}
