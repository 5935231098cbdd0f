#include "simulator/session/AutofocusSteps.h"

#include <cstddef>

#include <QDir>
#include <QFile>

#include "simulator/instrument/SimulatedInstrument.h"

namespace {

constexpr std::size_t kSamples = 15;
constexpr int kSampleDistance_steps = 640;
// What the sweep promises: within one interval, with frames that may be a little old.
constexpr double kFocusTolerance_steps = kSampleDistance_steps;
constexpr int kRun_ms = 60000;
constexpr int kDisk_ms = 10000;
const QString kNoDisk = QStringLiteral("Please insert USB disk !!!");

// Where the graph of 1280 x 960 draws a sample.
constexpr int kGraphLeft_px = 50;
constexpr int kGraphSpacing_px = 40;
constexpr int kGraphBase_px = 351;
constexpr double kGraphDivisor = 2.0;
constexpr int kGraphHeight_px = 480;
constexpr int kGraphPaint_ms = 300;

} // namespace

StepResult AutofocusSteps::disk()
{
    m_operator.setChecked("CHECK_DEBUG_AUTOFOCUS", true);
    m_operator.expectBox("OK");
    m_operator.click("BUTTON_AUTOFOCUS");
    const bool asked = m_context.boxWas("Error", kNoDisk);
    m_instrument.usb().plug();
    const auto mounted = [this] {
        const QStringList commands = m_instrument.usb().commands();
        return !commands.isEmpty() && commands.last().startsWith("mount ");
    };
    m_operator.waitUntil(mounted, kDisk_ms, QStringLiteral("the disk is not mounted"));
    return {asked, asked ? "asked for the disk" : "did not ask for the disk",
            m_instrument.usb().commands().join("; ")};
}

StepResult AutofocusSteps::autofocus()
{
    m_operator.click("BUTTON_RESOLUTION_1280");
    m_context.settle();
    // A sample belongs to its place only if frames pass while the stage moves, and if the
    // machine is not too busy to take them in.
    m_instrument.setRealTimeMotion(true);
    m_instrument.answerMovesWithFreshFrames(m_context.answersHeldBack);
    m_operator.expectBox("OK");
    if (m_operator.click("BUTTON_AUTOFOCUS"))
        m_operator.waitUntil([this] { return m_operator.boxSinceExpected() != nullptr; }, kRun_ms,
                             QStringLiteral("the autofocus does not end"));
    m_instrument.answerMovesWithFreshFrames(false);
    m_instrument.setRealTimeMotion(!m_instrument.isInstant());
    const bool finished = m_context.boxWas("ORLA-III", "Finish AutoFocus !");
    m_context.settle();
    m_operator.takePicture("autofocus");
    const QString progress = m_operator.text("PROGRESS_AUTOFOCUS");
    const QString position = m_operator.text("EDIT_Z_POSITION");
    const int stage = m_instrument.stagePosition_steps();
    m_context.findings.trueFocus_steps = m_instrument.bestFocus_steps();
    QString log;
    const bool logged = !m_operator.isChecked("CHECK_DEBUG_AUTOFOCUS") || logHolds(log);
    return {finished && logged && progress.startsWith("100") && position == QString::number(stage),
            QStringLiteral("position %1, progress %2%3").arg(position, progress, log),
            QStringLiteral("stage at %1, focus at %2")
                .arg(QString::number(stage), number(m_context.findings.trueFocus_steps)),
            {{"best Z", "steps", finished ? m_context.numberShown("EDIT_Z_POSITION") : kNotTaken,
              m_context.findings.trueFocus_steps, kFocusTolerance_steps}}};
}

QString AutofocusSteps::newestLog() const
{
    const QDir logs(m_instrument.usb().filesOf() + QStringLiteral("/ORLA-II/Autofocus"));
    const QStringList runs = logs.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    return runs.isEmpty() ? QString() : logs.filePath(runs.last() + QStringLiteral("/Step1"));
}

// "index,Z,sharpness" for each sample, an empty line, and the best one, counted from 1.
bool AutofocusSteps::readFocusCurve(const QString& directory)
{
    QFile file(directory + QStringLiteral("/best_focus_value.csv"));
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QStringList lines = QString::fromLatin1(file.readAll()).split('\n');
    std::vector<QPointF> curve;
    for (const QString& line : lines) {
        const QStringList fields = line.split(',');
        if (line.isEmpty())
            break;
        if (fields.size() != 3 || fields[0].toUInt() != curve.size())
            return false;
        curve.emplace_back(fields[1].toDouble(), fields[2].toDouble());
    }
    const QStringList best = lines.last().split(',');
    m_context.findings.focusCurve = curve;
    m_context.findings.bestFocusSample = best.first().toInt() - 1;
    return curve.size() == kSamples && best.size() == 3 && best[1] == m_operator.text("EDIT_Z_POSITION");
}

bool AutofocusSteps::logHolds(QString& text)
{
    const QString directory = newestLog();
    const auto pictures =
        static_cast<std::size_t>(QDir(directory).entryList({"Autofocus_*.tiff"}, QDir::Files).size());
    const bool curve = !directory.isEmpty() && readFocusCurve(directory);
    text = QStringLiteral(", %1 pictures and %2 on the disk")
               .arg(pictures)
               .arg(curve ? "the values" : "no right values");
    const bool whole = pictures == kSamples && curve;
    if (!whole)
        m_context.findings.failedSaves.append(QStringLiteral("The log of the autofocus is not whole"));
    return whole;
}

StepResult AutofocusSteps::graph()
{
    m_operator.type("SPIN_DEBUG", "3");
    m_operator.setChecked("BUTTON_DEBUG", true);
    m_operator.wait(kGraphPaint_ms);
    const QImage graph = m_operator.liveView();
    m_operator.takePicture("focus-graph");
    m_operator.setChecked("BUTTON_DEBUG", false);
    m_operator.type("SPIN_DEBUG", "1");
    const bool liveAgain = m_context.settle();
    const int best = m_context.findings.bestFocusSample;
    const std::vector<QPointF>& curve = m_context.findings.focusCurve;
    if (best < 0 || static_cast<std::size_t>(best) >= curve.size())
        return {false, QStringLiteral("no curve to compare with"), {}};
    const int x = kGraphLeft_px + kGraphSpacing_px * best;
    const int y = static_cast<int>(kGraphBase_px - curve[static_cast<std::size_t>(best)].y() / kGraphDivisor);
    const bool onGraph = y >= 0 && y < kGraphHeight_px;
    const bool dot = !onGraph || QColor(graph.pixel(x, y)) == QColor(255, 0, 0);
    const bool white = QColor(graph.pixel(1, 1)) == QColor(255, 255, 255);
    return {dot && white && liveAgain,
            QStringLiteral("%1, live view %2")
                .arg(dot && white ? "best sample marked" : "best sample not marked",
                     liveAgain ? "back" : "not back"),
            QStringLiteral("sample %1 is the best one%2")
                .arg(best + 1)
                .arg(onGraph ? "" : ", above the graph's upper end")};
}
