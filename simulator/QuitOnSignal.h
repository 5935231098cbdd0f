#pragma once

#include <QObject>
#include <QSocketNotifier>

/// Turns SIGINT, SIGTERM and SIGHUP into an orderly end of the event loop. A second one of
/// the same kind ends the process at once, in case a handler blocks. One at a time, on the
/// GUI thread, while a QCoreApplication exists.
class QuitOnSignal : public QObject
{
    Q_OBJECT

public:
    QuitOnSignal();
    ~QuitOnSignal() override;

    /// Whether a signal has come.
    bool received() const { return m_signal != 0; }
    /// What a shell reports for a process that the signal ended.
    int exitStatus() const;

signals:
    /// A signal has come, and the event loop is about to end.
    void quitting();

private:
    void quit();

    int m_signal = 0;
    int m_pipe[2] = {-1, -1};
    QSocketNotifier* m_notifier = nullptr;
};
