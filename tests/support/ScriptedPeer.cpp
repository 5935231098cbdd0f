#include "support/ScriptedPeer.h"

#include <chrono>
#include <cstdint>

#include <poll.h>
#include <sys/eventfd.h>

#include <QDir>
#include <QFile>

ScriptedPeer::ScriptedPeer(const QString& rootDirectory)
    : m_link(rootDirectory + QStringLiteral("/dev/ttyS2")), m_end(::eventfd(0, EFD_CLOEXEC))
{
    QDir(rootDirectory).mkpath(QStringLiteral("dev"));
    QFile::remove(m_link);
    QFile::link(QString::fromStdString(m_terminal.devicePath()), m_link);
    m_thread = std::thread(&ScriptedPeer::serve, this);
}

ScriptedPeer::~ScriptedPeer()
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(m_end.get(), &one, sizeof one);
    m_thread.join();
    QFile::remove(m_link);
}

void ScriptedPeer::answer(const Answer& pieces)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_answers.push_back(pieces);
}

void ScriptedPeer::send(const QByteArray& bytes)
{
    [[maybe_unused]] const ssize_t written =
        ::write(m_terminal.descriptor(), bytes.constData(), static_cast<std::size_t>(bytes.size()));
}

QList<QByteArray> ScriptedPeer::received() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_received;
}

void ScriptedPeer::serve()
{
    pollfd sources[] = {{m_terminal.descriptor(), POLLIN, 0}, {m_end.get(), POLLIN, 0}};
    while (::poll(sources, 2, -1) > 0 && sources[1].revents == 0) {
        char chunk[256];
        const ssize_t count = ::read(m_terminal.descriptor(), chunk, sizeof chunk);
        if (count > 0)
            m_input.append(chunk, static_cast<int>(count));
        takeLines();
    }
}

void ScriptedPeer::takeLines()
{
    for (int end = m_input.indexOf('\n'); end >= 0; end = m_input.indexOf('\n')) {
        Answer pieces;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_received << m_input.left(end + 1);
            if (!m_answers.empty()) {
                pieces = m_answers.front();
                m_answers.pop_front();
            }
        }
        m_input.remove(0, end + 1);
        for (const Piece& piece : pieces) {
            std::this_thread::sleep_for(std::chrono::milliseconds(piece.pause_ms));
            send(piece.bytes);
        }
    }
}
