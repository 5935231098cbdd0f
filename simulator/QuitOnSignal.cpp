#include "simulator/QuitOnSignal.h"

#include <csignal>

#include <fcntl.h>
#include <unistd.h>

#include <QCoreApplication>

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
constexpr int kShellSignalBase = 128;

// Written by the signal handler, which may do little more.
volatile std::sig_atomic_t g_signalPipe = -1;

void reportSignal(int number)
{
    const auto byte = static_cast<unsigned char>(number);
    [[maybe_unused]] const ssize_t written = ::write(g_signalPipe, &byte, sizeof byte);
}

void setHandler(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = handler == reportSignal ? SA_RESETHAND | SA_RESTART : SA_RESTART;
    for (const int number : kSignals)
        ::sigaction(number, &action, nullptr);
}

} // namespace

QuitOnSignal::QuitOnSignal()
{
    if (::pipe2(m_pipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    m_notifier = new QSocketNotifier(m_pipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] { quit(); });
    g_signalPipe = m_pipe[1];
    setHandler(reportSignal);
}

QuitOnSignal::~QuitOnSignal()
{
    if (m_notifier == nullptr)
        return;
    setHandler(SIG_DFL);
    ::close(m_pipe[0]);
    ::close(m_pipe[1]);
}

int QuitOnSignal::exitStatus() const
{
    return kShellSignalBase + m_signal;
}

void QuitOnSignal::quit()
{
    unsigned char number = 0;
    if (::read(m_pipe[0], &number, sizeof number) != sizeof number)
        return;
    m_signal = number;
    emit quitting();
    QCoreApplication::quit();
}
