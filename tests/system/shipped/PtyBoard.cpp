#include "PtyBoard.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

PtyBoard::PtyBoard()
{
    char name[64];
    if (::openpty(&m_board, &m_computer, name, nullptr, nullptr) != 0)
        return;
    ::fcntl(m_board, F_SETFD, FD_CLOEXEC);
    ::fcntl(m_computer, F_SETFD, FD_CLOEXEC);
    termios raw{};
    ::tcgetattr(m_computer, &raw);
    ::cfmakeraw(&raw);
    ::tcsetattr(m_computer, TCSANOW, &raw);
    if (::pipe2(m_wake, O_CLOEXEC) != 0)
        return;
    m_path = name;
    m_thread = std::thread([this] { answerLines(); });
}

PtyBoard::~PtyBoard()
{
    ::close(m_wake[1]);
    if (m_thread.joinable())
        m_thread.join();
    for (const int fd : {m_board, m_computer, m_wake[0]})
        ::close(fd);
}

QStringList PtyBoard::lines(int from) const
{
    const std::lock_guard<std::mutex> hold(m_lock);
    return m_lines.mid(from);
}

bool PtyBoard::isSetAsTheBoardExpects() const
{
    termios set{};
    ::tcgetattr(m_computer, &set);
    return ::cfgetispeed(&set) == B115200 && ::cfgetospeed(&set) == B115200 && (set.c_cflag & CSIZE) == CS8 &&
           !(set.c_cflag & (PARENB | CSTOPB | CRTSCTS)) && !(set.c_iflag & (IXON | IXOFF | ICRNL)) &&
           !(set.c_oflag & OPOST) && !(set.c_lflag & (ECHO | ICANON));
}

void PtyBoard::say(const QByteArray& line) const
{
    [[maybe_unused]] const ssize_t count = ::write(m_board, line.constData(), std::size_t(line.size()));
}

void PtyBoard::answerLines()
{
    QByteArray pending;
    for (;;) {
        pollfd ends[] = {{m_board, POLLIN, 0}, {m_wake[0], POLLIN, 0}};
        ::poll(ends, 2, -1);
        if (ends[1].revents)
            return;
        char chunk[256];
        const ssize_t count = ::read(m_board, chunk, sizeof chunk);
        if (count <= 0)
            return;
        pending.append(chunk, int(count));
        for (int end; (end = pending.indexOf("\r\n")) >= 0;) {
            answer(pending.left(end));
            pending.remove(0, end + 2);
        }
    }
}

void PtyBoard::answer(const QByteArray& line)
{
    {
        const std::lock_guard<std::mutex> hold(m_lock);
        m_lines.append(line.startsWith("$,") ? line.mid(2) : "unexpected: " + line);
    }
    const QList<QByteArray> fields = line.split(',');
    if (silent || fields.size() != 5)
        return;
    const QByteArray& command = fields[2];
    QByteArray value = fields[3];
    if (command == "ORIGIN")
        position = 0;
    else if (command == "ABS")
        position = value.toInt();
    else if (command == "MVP")
        position += value.toInt();
    else if (command == "MVN")
        position -= value.toInt();
    else if (command == "GET_POS")
        value = QByteArray::number(position);
    else if (command == "SELF_DIAG")
        value = "17";
    if (moved)
        moved(position);
    say("$OK," + fields[1] + ',' + command + ',' + value + ",\r\n");
}
