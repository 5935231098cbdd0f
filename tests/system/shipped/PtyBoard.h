#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>

#include <QStringList>

/// A controller board on a pseudo-terminal of its own, with a thread that answers each line
/// at once. Its stage is where the lines have sent it.
class PtyBoard
{
public:
    PtyBoard();
    ~PtyBoard();
    PtyBoard(const PtyBoard&) = delete;
    PtyBoard& operator=(const PtyBoard&) = delete;

    /// What to open in the place of the serial port; empty: there are no pseudo-terminals here.
    QString path() const { return m_path; }
    /// The lines received so far, without "$," and line end, from this one on.
    QStringList lines(int from = 0) const;
    /// How the port is set: 8 data bits, no parity, one stop bit, no flow control, 115200 baud.
    bool isSetAsTheBoardExpects() const;
    /// Sends a line that nobody has asked for.
    void say(const QByteArray& line) const;

    std::atomic<bool> silent{false};
    std::atomic<int> position{5000};
    /// Runs in the board's thread before the answer to a stage move. Set before the first line.
    std::function<void(int position)> moved;

private:
    void answerLines();
    void answer(const QByteArray& line);

    int m_board = -1;    // the board's end
    int m_computer = -1; // the other, held open so that a closed port ends nothing
    int m_wake[2] = {-1, -1};
    QString m_path;
    mutable std::mutex m_lock; // of m_lines
    QStringList m_lines;
    std::thread m_thread;
};
