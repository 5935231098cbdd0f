#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <QByteArray>
#include <QString>
#include <QtGlobal>

/// Called once for each input, by libFuzzer or by replay.cpp. Always 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Takes down what a harness has set up, where that cannot wait until after main(); libFuzzer
/// does not call it. A harness may leave it out.
extern "C" [[gnu::weak]] void endOfReplay();

/// One input, taken from its front piece by piece; where it is used up, zeros and empty texts
/// follow.
class FuzzInput
{
public:
    FuzzInput(const std::uint8_t* data, std::size_t size)
        : m_bytes(reinterpret_cast<const char*>(data), static_cast<int>(size))
    {
    }

    bool isEmpty() const { return m_position >= m_bytes.size(); }

    std::uint8_t byte() { return isEmpty() ? 0 : static_cast<std::uint8_t>(m_bytes[m_position++]); }

    /// Any number of 32 bits, the least byte first.
    std::uint32_t word()
    {
        std::uint32_t value = 0;
        for (unsigned shift = 0; shift < 32; shift += 8)
            value |= std::uint32_t{byte()} << shift;
        return value;
    }

    /// The bytes in front of the next separator, which is passed over, or all that are left.
    QByteArray upTo(char separator)
    {
        const int end = m_bytes.indexOf(separator, m_position);
        QByteArray part = m_bytes.mid(m_position, end < 0 ? -1 : end - m_position);
        m_position = end < 0 ? m_bytes.size() : end + 1;
        return part;
    }

    /// All bytes that are left.
    QByteArray rest()
    {
        QByteArray part = m_bytes.mid(m_position);
        m_position = m_bytes.size();
        return part;
    }

private:
    QByteArray m_bytes;
    int m_position = 0;
};

/// Ends the program, as the sanitizers do, where an invariant does not hold.
inline void require(bool holds, const char* invariant)
{
    if (holds)
        return;
    std::fprintf(stderr, "Broken: %s\n", invariant);
    std::abort();
}

/// The debug stream is no part of what is looked at, and writing it takes most of the time.
inline void muteDebugStream()
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
}

/// What stands for the program around what is fed: QCoreApplication or QApplication, muted.
template <class Application>
class FuzzedProgram
{
public:
    FuzzedProgram() { muteDebugStream(); }

private:
    int m_argumentCount = 1;
    char m_name[5] = "fuzz";
    char* m_arguments[2] = {m_name, nullptr};
    Application m_application{m_argumentCount, m_arguments};
};
