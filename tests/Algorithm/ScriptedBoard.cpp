#include "ScriptedBoard.h"

#include <cstdlib>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace {

constexpr int kStopPoll_ms = 20;

void send(int fd, const QByteArray& bytes)
{
    if (!bytes.isEmpty() && ::write(fd, bytes.constData(), static_cast<std::size_t>(bytes.size())) < 0) {
        qWarning("the board could not answer");
    }
}

} // namespace

ScriptedBoard::ScriptedBoard() : m_master(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))
{
    ::grantpt(m_master);
    ::unlockpt(m_master);
    m_terminal = QString::fromLocal8Bit(::ptsname(m_master));
    m_slave = ::open(m_terminal.toLocal8Bit().constData(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings{};
    ::tcgetattr(m_slave, &settings);
    ::cfmakeraw(&settings);
    ::tcsetattr(m_slave, TCSANOW, &settings);
    m_thread = std::thread([this] { run(); });
}

ScriptedBoard::~ScriptedBoard()
{
    m_stop = true;
    m_thread.join();
    ::close(m_slave);
    ::close(m_master);
}

void ScriptedBoard::reset(int position, Script script)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_position = position;
    m_lines.clear();
    m_held.clear();
    m_script = std::move(script);
}

void ScriptedBoard::setOnMove(std::function<void(int)> onMove)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_onMove = std::move(onMove);
}

void ScriptedBoard::release()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    send(m_master, m_held);
    m_held.clear();
}

QStringList ScriptedBoard::lines() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

void ScriptedBoard::run()
{
    QByteArray input;
    while (!m_stop) {
        pollfd poll{m_master, POLLIN, 0};
        if (::poll(&poll, 1, kStopPoll_ms) <= 0) {
            continue;
        }
        char bytes[256];
        const ssize_t count = ::read(m_master, bytes, sizeof bytes);
        if (count > 0) {
            input.append(bytes, static_cast<int>(count));
        }
        for (int end = input.indexOf("\r\n"); end >= 0; end = input.indexOf("\r\n")) {
            handle(input.left(end));
            input.remove(0, end + 2);
        }
    }
}

void ScriptedBoard::handle(const QByteArray& line)
{
    const QStringList fields = QString::fromLatin1(line).split(QLatin1Char(','));
    const QString target = fields.value(1);
    const QString command = fields.value(2);
    const QString argument = fields.value(3);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_lines << command + QLatin1Char(',') + argument;
    const Answer answer = m_script ? m_script(m_lines.size(), command) : Answer::Ok;
    if (answer == Answer::Ignore) {
        return;
    }
    if (answer != Answer::Refuse) {
        move(command, argument.toInt());
    }
    const QString value = command == QLatin1String("GET_POS") ? QString::number(m_position) : argument;
    const QByteArray reply = QStringLiteral("$%1,%2,%3,%4,\r\n")
                                 .arg(answer == Answer::Refuse ? QStringLiteral("NG") : QStringLiteral("OK"),
                                      target, command, value)
                                 .toLatin1();
    if (answer == Answer::Hold) {
        m_held += reply;
    } else {
        send(m_master, reply);
    }
}

void ScriptedBoard::move(const QString& command, int argument)
{
    if (command == QLatin1String("MVP")) {
        m_position = m_position + argument;
    } else if (command == QLatin1String("MVN")) {
        m_position = m_position - argument;
    } else {
        return;
    }
    if (m_onMove) {
        m_onMove(m_position);
    }
}
