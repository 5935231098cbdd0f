// What a line costs that comes into a console, hidden and on the screen, by the lines that it holds already.

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <vector>

#include <QApplication>
#include <QPushButton>
#include <QString>

#include "benchmarks/Measure.h"
#include "debug/DebugMessage.h"

namespace {

constexpr int kLinesAtATime = 20;
constexpr int kLinesInAChunk = 10000;

const QString kLine = QStringLiteral("void ORLA_II_Plus_Verifier::slot_z_stage_mvp() position: 32000 \r\n");

void fill(DebugMessage& console, int lines)
{
    for (int held = 0; held < lines; held += kLinesInAChunk)
        console.insertPlainText(kLine.repeated(std::min(kLinesInAChunk, lines - held)));
    console.ensureCursorVisible();
    QCoreApplication::processEvents();
}

/// Lines one by one, each painted before the next where the console is shown.
void addLines(DebugMessage& console)
{
    for (int line = 0; line < kLinesAtATime; ++line) {
        console.insertPlainText(kLine);
        console.ensureCursorVisible();
        QCoreApplication::processEvents();
    }
}

/// What a line costs beside one into a console of the fewest lines, in the same round.
void tellLines(const std::array<std::string, 2>& names, const std::array<int, 3>& held, bool shown,
               int rounds)
{
    std::array<std::unique_ptr<DebugMessage>, 3> consoles;
    for (std::size_t i = 0; i < consoles.size(); ++i) {
        consoles[i] = std::make_unique<DebugMessage>();
        consoles[i]->setVisible(shown);
        fill(*consoles[i], held[i]);
    }
    std::array<std::vector<double>, 3> costs_ms;
    // The first round is for the caches.
    for (int round = -1; round < rounds; ++round) {
        consoles[0]->findChild<QPushButton*>("BUTTON_CLEAR")->click();
        fill(*consoles[0], held[0]);
        for (std::size_t i = 0; i < consoles.size(); ++i) {
            const double cost_ms = timeOf_ms(threadTime_ms, [&] { addLines(*consoles[i]); }) / kLinesAtATime;
            if (round >= 0)
                costs_ms[i].push_back(cost_ms);
        }
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
        std::vector<double> ratios;
        for (std::size_t round = 0; round < costs_ms[0].size(); ++round)
            ratios.push_back(costs_ms[i + 1][round] / costs_ms[0][round]);
        tell(names[i], median(ratios),
             QString::asprintf("%.4f ms at %d lines, %.4f ms at %d", median(costs_ms[i + 1]), held[i + 1],
                               median(costs_ms[0]), held[0]));
    }
}

} // namespace

int main(int argc, char** argv)
{
    const bool shortRun = isShort(argc, argv);
    const QApplication application(argc, argv);
    const int rounds = shortRun ? 1 : 15;
    const int most = shortRun ? 10000 : 1000000;
    // The least is what fills the page: from there on a line moves it.
    tellLines({"console_10k", "console_1m"}, {10, most / 100, most}, false, rounds);
    tellLines({"console_shown_10k", "console_shown_1m"}, {100, most / 100, most}, true, rounds);
    return 0;
}
