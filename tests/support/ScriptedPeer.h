#pragma once

#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include <QByteArray>
#include <QList>
#include <QString>

#include "simulator/FileDescriptor.h"
#include "simulator/PseudoTerminal.h"

/// The other end of the serial line, told by a test what to say: "/dev/ttyS2" below a root
/// directory, served on a thread of its own.
class ScriptedPeer
{
public:
    /// A piece of an answer and the pause before it.
    struct Piece
    {
        QByteArray bytes;
        int pause_ms = 0;
    };
    using Answer = std::vector<Piece>;

    explicit ScriptedPeer(const QString& rootDirectory);
    ~ScriptedPeer();
    ScriptedPeer(const ScriptedPeer&) = delete;
    ScriptedPeer& operator=(const ScriptedPeer&) = delete;

    /// Queues the answer to a line to come. A line without one is not answered.
    void answer(const QByteArray& bytes) { answer(Answer{{bytes, 0}}); }
    void answer(const Answer& pieces);
    /// Sends bytes now, asked or not.
    void send(const QByteArray& bytes);
    /// The lines received so far, with their ends.
    QList<QByteArray> received() const;

private:
    void serve();
    void takeLines();

    PseudoTerminal m_terminal;
    QString m_link;
    FileDescriptor m_end; // readable when the thread has to end
    mutable std::mutex m_mutex;
    std::deque<Answer> m_answers;
    QList<QByteArray> m_received;
    QByteArray m_input; // of the serving thread
    std::thread m_thread;
};
