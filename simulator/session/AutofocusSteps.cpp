#include "simulator/session/SessionSteps.h"

#include <cstddef>

#include <QDir>
#include <QFile>

#include "simulator/instrument/SimulatedInstrument.h"

namespace {

constexpr std::size_t kSamples = 15;
constexpr int kSampleDistance_steps = 640;
// The sweep's accuracy: one interval, with frames that may be a little old.
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

QString newestLog(SessionContext& session)
{
    const QDir logs(session.instrument.usb().filesOf() + QStringLiteral("/ORLA-II/Autofocus"));
    const QStringList runs = logs.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    return runs.isEmpty() ? QString() : logs.filePath(runs.last() + QStringLiteral("/Step1"));
}

// "index,Z,sharpness" for each sample, an empty line, and the best one, counted from 1.
bool readFocusCurve(SessionContext& session, const QString& directory)
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
    session.findings.focusCurve = curve;
    session.findings.bestFocusSample = best.first().toInt() - 1;
    return curve.size() == kSamples && best.size() == 3 && best[1] == session.user.text("EDIT_Z_POSITION");
}

bool logHolds(SessionContext& session, QString& text)
{
    const QString directory = newestLog(session);
    const auto pictures =
        static_cast<std::size_t>(QDir(directory).entryList({"Autofocus_*.tiff"}, QDir::Files).size());
    const bool curve = !directory.isEmpty() && readFocusCurve(session, directory);
    text = QStringLiteral(", %1 pictures and %2 on the disk")
               .arg(pictures)
               .arg(curve ? "the values" : "no right values");
    const bool whole = pictures == kSamples && curve;
    if (!whole)
        session.findings.failedSaves.append(QStringLiteral("The log of the autofocus is not whole"));
    return whole;
}

} // namespace

StepResult steps::disk(SessionContext& session)
{
    session.user.setChecked("CHECK_DEBUG_AUTOFOCUS", true);
    session.user.expectBox("OK");
    session.user.click("BUTTON_AUTOFOCUS");
    const bool asked = session.boxWas("Error", kNoDisk);
    session.instrument.usb().plug();
    const auto mounted = [&] {
        const QStringList commands = session.instrument.usb().commands();
        return !commands.isEmpty() && commands.last().startsWith("mount ");
    };
    session.user.waitUntil(mounted, session.patience * kDisk_ms, QStringLiteral("the disk is not mounted"));
    return {asked, asked ? "asked for the disk" : "did not ask for the disk",
            session.instrument.usb().commands().join("; ")};
}

StepResult steps::autofocus(SessionContext& session)
{
    session.user.click("BUTTON_RESOLUTION_1280");
    session.settle();
    // A sample is right only if frames of the new position arrive while the stage moves, and if
    // the machine is not too busy to take them in.
    session.instrument.setRealTimeMotion(true);
    session.instrument.answerMovesWithFreshFrames(session.answersHeldBack);
    session.user.expectBox("OK");
    if (session.user.click("BUTTON_AUTOFOCUS"))
        session.user.waitUntil([&] { return session.user.boxSinceExpected() != nullptr; },
                               session.patience * kRun_ms, QStringLiteral("the autofocus does not end"));
    session.instrument.answerMovesWithFreshFrames(false);
    session.instrument.setRealTimeMotion(!session.instrument.isInstant());
    const bool finished = session.boxWas("ORLA-III", "Finish AutoFocus !");
    session.settle();
    session.user.takePicture("autofocus");
    const QString progress = session.user.text("PROGRESS_AUTOFOCUS");
    const QString position = session.user.text("EDIT_Z_POSITION");
    const int stage = session.instrument.stagePosition_steps();
    session.findings.trueFocus_steps = session.instrument.bestFocus_steps();
    QString log;
    const bool logged = !session.user.isChecked("CHECK_DEBUG_AUTOFOCUS") || logHolds(session, log);
    return {finished && logged && progress.startsWith("100") && position == QString::number(stage),
            QStringLiteral("position %1, progress %2%3").arg(position, progress, log),
            QStringLiteral("stage at %1, focus at %2")
                .arg(QString::number(stage), number(session.findings.trueFocus_steps)),
            {{"best Z", "steps", finished ? session.numberShown("EDIT_Z_POSITION") : kNotTaken,
              session.findings.trueFocus_steps, kFocusTolerance_steps}}};
}

StepResult steps::graph(SessionContext& session)
{
    session.user.type("SPIN_DEBUG", "3");
    session.user.setChecked("BUTTON_DEBUG", true);
    session.user.wait(kGraphPaint_ms);
    const QImage graph = session.user.liveView();
    session.user.takePicture("focus-graph");
    session.user.setChecked("BUTTON_DEBUG", false);
    session.user.type("SPIN_DEBUG", "1");
    const bool liveAgain = session.settle();
    const int best = session.findings.bestFocusSample;
    const std::vector<QPointF>& curve = session.findings.focusCurve;
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
