// The listener of the serial line: a stream of bytes that arrives in pieces of any size.
#include <utility>
#include <vector>

#include <QByteArray>

#include "FuzzInput.h"
#include "PlainNumber.h"
#include "SerialPeer.h"

namespace {

// Longer streams would find nothing new, but byte by byte take long.
constexpr int kLongestStream = 96;

using Event = std::pair<char, int>; // which signal, and the tracked position at that moment

struct Heard
{
    std::vector<Event> events;
    QByteArray fields[4];
    int position = 0;
    QByteArray waiting;

    bool operator==(const Heard& other) const
    {
        return events == other.events && std::equal(std::begin(fields), std::end(fields), other.fields) &&
               position == other.position && waiting == other.waiting;
    }
};

class Listener
{
public:
    Listener()
    {
        Controller& controller = m_peer.controller();
        controller.setPortListener(true);
        const auto note = [this, &controller](char name) {
            return [this, &controller, name] { m_events.emplace_back(name, controller.m_zStagePosition); };
        };
        QObject::connect(&controller, &Controller::sig_z_stage_origin, note('o'));
        QObject::connect(&controller, &Controller::sig_z_stage_mvn, note('n'));
        QObject::connect(&controller, &Controller::sig_z_stage_mvp, note('p'));
        QObject::connect(&controller, &Controller::sig_z_stage_abs, note('a'));
    }

    // The stream in pieces of the sizes that come round; 0 is all at once.
    Heard hear(const QByteArray& stream, const std::vector<int>& sizes, int position)
    {
        Controller& controller = m_peer.controller();
        taken();
        arrive("$,,,,\r\n"); // a record of empty fields, as at the start
        controller.m_zStagePosition = position;
        m_events.clear();
        std::size_t round = 0;
        for (int begin = 0; begin < stream.size();) {
            const int wanted = sizes[round++ % sizes.size()];
            const int size = wanted > 0 ? wanted : stream.size();
            arrive(stream.mid(begin, size));
            begin += size;
        }
        // A line for each notification: the lines behind it are due one by one.
        while (m_peer.port().canReadLine())
            emit m_peer.port().readyRead();

        const responseInfo_t& info = controller.responseInfo();
        return {
            m_events,
            {info.result.toLatin1(), info.target.toLatin1(), info.command.toLatin1(), info.value.toLatin1()},
            controller.m_zStagePosition,
            taken()};
    }

private:
    QByteArray taken() { return m_peer.port().read(m_peer.port().bytesAvailable()); }

    // Puts bytes behind those that the port holds, as its device does, and tells of them.
    void arrive(const QByteArray& bytes)
    {
        const QByteArray all = taken() + bytes;
        for (int i = all.size() - 1; i >= 0; --i)
            m_peer.port().ungetChar(all[i]);
        emit m_peer.port().readyRead();
    }

    SerialPeer m_peer;
    std::vector<Event> m_events;
};

Heard expected(const QByteArray& stream, int position)
{
    Heard heard;
    heard.position = position;
    int begin = 0;
    for (int end = stream.indexOf('\n'); end >= 0; end = stream.indexOf('\n', begin)) {
        const PlainReply reply(stream.mid(begin, end + 1 - begin));
        begin = end + 1;
        if (reply.good)
            std::copy(std::begin(reply.fields), std::end(reply.fields), heard.fields);
        // A line that is no reply has the effect of the one before it once more.
        const QByteArray& word = heard.fields[2];
        const int value = plainNumber(heard.fields[3]);
        char name = 0;
        if (word.contains("ORIGIN")) {
            name = 'o';
            heard.position = 0;
        } else if (word.contains("MVN")) {
            name = 'n';
            heard.position = wrapped(static_cast<long long>(heard.position) - value);
        } else if (word.contains("MVP")) {
            name = 'p';
            heard.position = wrapped(static_cast<long long>(heard.position) + value);
        } else if (word.contains("ABS")) {
            name = 'a';
            heard.position = value;
        }
        if (name != 0)
            heard.events.emplace_back(name, heard.position);
    }
    heard.waiting = stream.mid(begin);
    return heard;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Listener listener;
    FuzzInput input(data, size);
    const std::vector<int> sizes{1 + input.byte() % 16, 1 + input.byte() % 16};
    const int start = wrapped(static_cast<long long>(static_cast<std::int8_t>(input.byte())) * 0x01020304);
    const QByteArray stream = input.rest().left(kLongestStream);

    const Heard whole = listener.hear(stream, {0}, start);
    require(whole == expected(stream, start), "fields, position and signals are those of the lines");
    require(listener.hear(stream, {1}, start) == whole, "byte by byte gives the same");
    require(listener.hear(stream, sizes, start) == whole, "any pieces give the same");
    return 0;
}
