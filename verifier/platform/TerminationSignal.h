#pragma once

#include <csignal>
#include <vector>

#include <QMetaMethod>
#include <QObject>
#include <QSocketNotifier>
#include <QString>

/// Reports, from the event loop, that the process was asked from outside to end: SIGTERM of a
/// service manager, SIGINT of a keyboard, SIGHUP of a terminal that goes away. A signal that
/// the process was started to ignore (nohup) stays ignored.
///
/// A signal that comes before the event loop runs, before received() is connected, or while a
/// handler blocks the loop, is reported once, when there is a loop and somebody to tell. There may
/// be one object at a time. It is made after the application, whose platform plugin may have
/// handlers of its own; these are back in force when the object goes. GUI thread.
class TerminationSignal : public QObject
{
    Q_OBJECT

public:
    /// What a second signal does, of the same kind or another.
    enum class Second {
        IsAbsorbed,     ///< nothing: the shutdown that has begun goes on
        EndsTheProcess, ///< one of the same kind ends it at once, in case a handler blocks
    };

    explicit TerminationSignal(Second second);
    ~TerminationSignal() override;

    /// Whether signals are watched for. If not, for want of a descriptor, each does what it did
    /// before, which is to end the process at once.
    bool isWatching() const { return m_notifier != nullptr; }
    /// Whether received() has been emitted.
    bool isReceived() const { return m_number != 0; }
    /// What a shell reports for a process that the signal ended.
    int exitStatus() const;
    /// The signal as people know it, such as "Ctrl-C (SIGINT)"; empty before one has come.
    QString name() const;

signals:
    /// A signal has come; emitted for the first one only.
    void received();

protected:
    /// Begins to look for signals with the first one who wants to know.
    void connectNotify(const QMetaMethod& signal) override;

private:
    struct Handler
    {
        int number;
        struct sigaction before;
    };

    void takeOver(int number, Second second);
    void readPipe();

    std::vector<Handler> m_handlers; ///< of the signals taken, to be put back
    int m_number = 0;                ///< of the signal that came first
    int m_pipe[2] = {-1, -1};
    QSocketNotifier* m_notifier = nullptr;
};
