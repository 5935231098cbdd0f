#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>

#include <QByteArray>
#include <QString>
#include <QStringList>

/// A controller board at the far end of a pseudo-terminal, answering on a thread of its own:
/// every command at once and with "OK", stage moves tracked, unless scripted otherwise.
class ScriptedBoard
{
public:
    /// What becomes of a command ("MVP", "GET_POS", ...); n counts the commands from 1 since
    /// reset().
    enum class Answer {
        Ok,     ///< done and answered
        Refuse, ///< not done, answered "NG"
        Hold,   ///< done, answered by release()
        Ignore, ///< neither done nor answered
    };
    using Script = std::function<Answer(int n, const QString& command)>;

    ScriptedBoard();
    ~ScriptedBoard();

    /// The terminal's name, to be linked to where the controller looks for its serial line.
    QString terminal() const { return m_terminal; }
    /// Puts the stage at a position, forgets the lines and takes another script (none: all OK).
    void reset(int position, Script script = {});
    /// Called on the board's thread with every new position before the move is answered.
    void setOnMove(std::function<void(int)> onMove);
    /// Sends the answers held back.
    void release();
    int position() const { return m_position; }
    /// "<command>,<argument>" of every command line received since reset().
    QStringList lines() const;

private:
    void run();
    void handle(const QByteArray& line);
    void move(const QString& command, int argument);

    int m_master = -1;
    int m_slave = -1; // kept open, so that closing the port at the near end is no hang-up here
    QString m_terminal;
    mutable std::mutex m_mutex; // guards the next four
    QStringList m_lines;
    QByteArray m_held;
    Script m_script;
    std::function<void(int)> m_onMove;
    std::atomic<int> m_position{0};
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};
