// What a line costs that comes into a console, hidden and on the screen, by the lines that it holds
// already; and how that grows beside the toolkit's text area, in which a console keeps its lines.

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <vector>

#include <QApplication>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QString>

#include "benchmarks/Measure.h"
#include "debug/DebugMessage.h"

namespace {

constexpr int kLinesAtATime = 20;
constexpr int kLinesInAChunk = 10000;
constexpr std::size_t kSizes = 3;

const QString kLine = QStringLiteral("void ORLA_II_Plus_Verifier::slot_z_stage_mvp() position: 32000 \r\n");

void clear(DebugMessage& console)
{
    console.findChild<QPushButton*>("BUTTON_CLEAR")->click();
}

void clear(QPlainTextEdit& area)
{
    area.clear();
}

void setUp(DebugMessage&) {}

/// As a console has it, but for what marks the errors and follows the finger.
void setUp(QPlainTextEdit& area)
{
    area.resize(640, 480);
    area.setUndoRedoEnabled(false);
    area.setTextInteractionFlags(Qt::NoTextInteraction);
}

/// Consoles, or bare text areas, of different numbers of lines.
template <class Console>
class Held
{
public:
    Held(const std::array<int, kSizes>& held, bool shown) : m_held(held)
    {
        for (std::size_t i = 0; i < kSizes; ++i) {
            m_consoles[i] = std::make_unique<Console>();
            setUp(*m_consoles[i]);
            m_consoles[i]->setVisible(shown);
            fill(i);
        }
    }

    /// Of one line in ms, by the numbers of lines. Some come before without being timed, so that
    /// each finds the caches as the others do.
    std::array<double, kSizes> lineCosts_ms()
    {
        std::array<double, kSizes> costs_ms{};
        clear(*m_consoles[0]);
        fill(0);
        for (std::size_t i = 0; i < kSizes; ++i) {
            addLines(i);
            costs_ms[i] = timeOf_ms(threadTime_ms, [&] { addLines(i); }) / kLinesAtATime;
        }
        return costs_ms;
    }

private:
    void fill(std::size_t i)
    {
        for (int held = 0; held < m_held[i]; held += kLinesInAChunk)
            m_consoles[i]->insertPlainText(kLine.repeated(std::min(kLinesInAChunk, m_held[i] - held)));
        m_consoles[i]->ensureCursorVisible();
        QCoreApplication::processEvents();
    }

    /// Lines one by one, each painted before the next where the console is shown.
    void addLines(std::size_t i)
    {
        for (int line = 0; line < kLinesAtATime; ++line) {
            m_consoles[i]->insertPlainText(kLine);
            m_consoles[i]->ensureCursorVisible();
            QCoreApplication::processEvents();
        }
    }

    const std::array<int, kSizes> m_held;
    std::array<std::unique_ptr<Console>, kSizes> m_consoles;
};

/// What a line costs beside one into a console of the fewest lines, in the same round; and how
/// much more that is than it is in a bare text area.
void tellLines(const std::array<std::string, kSizes - 1>& names, const std::array<int, kSizes>& held,
               bool shown, int rounds)
{
    Held<DebugMessage> consoles(held, shown);
    Held<QPlainTextEdit> areas(held, shown);
    std::array<std::vector<double>, kSizes> costs_ms;
    std::array<std::vector<double>, kSizes> growths;
    std::array<std::vector<double>, kSizes> beyond;
    // The first round is for the caches.
    for (int round = -1; round < rounds; ++round) {
        const std::array<double, kSizes> ofConsole_ms = consoles.lineCosts_ms();
        const std::array<double, kSizes> ofArea_ms = areas.lineCosts_ms();
        for (std::size_t i = 0; round >= 0 && i < kSizes; ++i) {
            costs_ms[i].push_back(ofConsole_ms[i]);
            growths[i].push_back(ofConsole_ms[i] / ofConsole_ms[0]);
            beyond[i].push_back(growths[i].back() * ofArea_ms[0] / ofArea_ms[i]);
        }
    }
    for (std::size_t i = 1; i < kSizes; ++i) {
        const std::string& name = names[i - 1];
        tell(name, median(growths[i]),
             QString::asprintf("%.4f ms at %d lines, %.4f ms at %d", median(costs_ms[i]), held[i],
                               median(costs_ms[0]), held[0]));
        tell(name + "_beyond", median(beyond[i]));
    }
}

} // namespace

int main(int argc, char** argv)
{
    const bool shortRun = isShort(argc, argv);
    const QApplication application(argc, argv);
    const int rounds = shortRun ? 1 : 15;
    constexpr int kMany = 10000;
    const int most = shortRun ? kMany : 1000000;
    // The least is what fills the page: from there on a line moves it.
    tellLines({"console_10k", "console_1m"}, {10, kMany, most}, false, rounds);
    tellLines({"console_shown_10k", "console_shown_1m"}, {100, kMany, most}, true, rounds);
    return 0;
}
