#include "simulator/session/ShortVisit.h"

#include <algorithm>

#include <QElapsedTimer>

#include "simulator/SimulatedInstrument.h"
#include "simulator/session/PictureMeasures.h"

namespace {

// Answers may take the serial link's five seconds, twice, and a motion in between.
constexpr int kAnswer_ms = 20000;
constexpr int kFrames_ms = 15000;
constexpr int kRateSpan_ms = 2000;
// Until a window that has just come up is painted, with or without a camera.
constexpr int kFirstPaint_ms = 500;
constexpr double kMsPerSecond = 1000.0;

// The frames that may still show what was before a change: in the driver's buffers, in the
// grab thread and on the screen.
constexpr int kFramesUnderWay = 8;

constexpr double kDarkest = 30.0;
constexpr double kBrightest = 250.0;
constexpr double kLeastContrast = 2.0;
constexpr double kLeastDifference = 0.5;
// A busy machine paints fewer frames than the device delivers; so few would look stuck.
constexpr double kLeastPartPainted = 0.2;

// What the label shows when the settings file has no version.
const QString kVersionWithoutSettings = QStringLiteral("0.0.1");

constexpr int kJogStep = 640;
constexpr int kRotation_ms = 500;
// The focus lies at most 2000 steps from here; the sweep covers that.
constexpr int kSweepStart = 29440;
constexpr int kSweepMoves = 9;

QString number(double value, int decimals = 0)
{
    return QString::number(value, 'f', decimals);
}

QString onOff(bool on)
{
    return on ? QStringLiteral("on") : QStringLiteral("off");
}

QString lightText(const BoardLight& light)
{
    return QStringLiteral("LED %1 at %2").arg(onOff(light.ledOn)).arg(light.ledLevel);
}

bool isNavigatorColour(const QImage& view, int x, int y)
{
    return QColor(view.pixel(x, y)) == QColor(255, 255, 0);
}

} // namespace

struct ShortVisit::StepRow
{
    const char* name;
    const char* text;
    StepResult (ShortVisit::*run)();
    bool afterEventLoop = false;
};

const ShortVisit::StepRow ShortVisit::kSteps[] = {
    {"window", "waits for the window, and reads title and version", &ShortVisit::window},
    {"tabs", "opens each tab", &ShortVisit::tabs},
    {"handshake", "compares what the window shows with the board, after the handshake",
     &ShortVisit::handshake},
    {"vga", "looks at the live view in 640 x 480", &ShortVisit::viewVga},
    {"1280", "looks at the live view in 1280 x 960", &ShortVisit::view1280},
    {"5m", "looks at the live view in 2592 x 1944", &ShortVisit::view5M},
    {"jog", "moves the stage up and down by one step width", &ShortVisit::jog},
    {"focus", "goes through the focus, and looks where the picture is sharpest", &ShortVisit::focus},
    {"autofocus", "runs the autofocus with its pictures on a USB disk, and looks at the graph",
     &ShortVisit::autofocus},
    {"plug", "asks for a picture without a USB disk, then plugs one in", &ShortVisit::plug},
    {"trim", "trims exposure, gain and colours", &ShortVisit::trim},
    {"light", "sets the LED to a brightness of the picture, and switches it off and on", &ShortVisit::light},
    {"staining", "changes the staining, and back", &ShortVisit::staining},
    {"save", "saves on each tab", &ShortVisit::save},
    {"password", "sets the password", &ShortVisit::password},
    {"capture", "saves the frame", &ShortVisit::capture},
    {"screenshot", "saves the screen", &ShortVisit::screenshot},
    {"unplug", "pulls the USB disk, and asks for a picture", &ShortVisit::unplug},
    {"calibrate", "measures the calibration target, under the microscope for this step",
     &ShortVisit::calibrate},
    {"intensity", "reads the mean colour of the live view", &ShortVisit::intensity},
    {"rotate", "lets the stage run while a button is held", &ShortVisit::rotate},
    {"home", "sends the stage to its origin", &ShortVisit::home},
    {"consoles", "reads both consoles", &ShortVisit::consoles},
    {"stay", "presses Exit, and answers No", &ShortVisit::stay},
    {"exit", "presses Exit, and answers Yes", &ShortVisit::exit},
    {"ended", "waits for the program's end", &ShortVisit::ended, true},
    {"parked", "looks at the instrument that is left behind", &ShortVisit::parked, true},
};

struct ShortVisit::View
{
    QString button;
    QString name;
    /// Lower right corner of the navigator's position rectangle in the unscaled view: as
    /// large as the part of the frame that is on the screen.
    QPoint navigatorCorner;
};

QStringList ShortVisit::stepNames()
{
    QStringList names;
    for (const StepRow& row : kSteps)
        names.append(row.name);
    return names;
}

std::vector<SessionStep> ShortVisit::steps(const QStringList& names)
{
    std::vector<SessionStep> chosen;
    for (const StepRow& row : kSteps)
        if (names.isEmpty() || names.contains(row.name))
            chosen.push_back(
                {row.name, row.text, row.afterEventLoop, [this, &row] { return (this->*row.run)(); }});
    return chosen;
}

StepResult ShortVisit::window()
{
    m_hand.waitUntil([this] { return m_hand.windowIsEnabled(); }, kAnswer_ms,
                     QStringLiteral("the window does not take presses"));
    m_hand.wait(kFirstPaint_ms);
    const QString title = m_hand.windowTitle();
    const QString version = m_hand.text("LABEL_VERSION");
    const QString saved = m_instrument.setting("Software/Version QC", kVersionWithoutSettings);
    m_hand.takePicture("window");
    return {title == "ORLA-II Plus Verifier" && version == saved,
            QStringLiteral("\"%1\", version %2").arg(title, version),
            QStringLiteral("settings of version ") + saved};
}

StepResult ShortVisit::tabs()
{
    int opened = 0;
    for (const char* page : {"TAB_CAMERA", "TAB_QC", "TAB_STAGE"}) {
        opened += m_hand.openTab(page) ? 1 : 0;
        m_hand.takePicture(QString(page).toLower().replace('_', '-'));
    }
    return {opened == 3, QStringLiteral("%1 of 3 tabs open").arg(opened), {}};
}

StepResult ShortVisit::handshake()
{
    const QStringList lines = m_instrument.boardLines();
    const bool homed = lines.indexOf("$,DEVICE,READY,,") >= 0 &&
                       lines.indexOf("$,STM1,ORIGIN,,") > lines.indexOf("$,DEVICE,READY,,");
    const QString reference = m_hand.text("EDIT_Z_REFERENCE");
    const QString level = m_hand.text("EDIT_LED");
    const int position = m_instrument.stagePosition_steps();
    const BoardLight light = m_instrument.light();
    return {homed && reference == QString::number(position) && light.ledOn &&
                level == QString::number(light.ledLevel),
            QStringLiteral("reference %1, LED level %2").arg(reference, level),
            QStringLiteral("ready and origin %1, stage at %2, %3")
                .arg(homed ? "received" : "missing", QString::number(position), lightText(light))};
}

StepResult ShortVisit::viewVga()
{
    return lookAt({"BUTTON_RESOLUTION_VGA", "vga", {80, 60}});
}

StepResult ShortVisit::view1280()
{
    return lookAt({"BUTTON_RESOLUTION_1280", "1280", {40, 30}});
}

StepResult ShortVisit::view5M()
{
    return lookAt({"BUTTON_RESOLUTION_5M", "5m", {20, 15}});
}

double ShortVisit::countFrames(double& delivered_hz)
{
    QElapsedTimer clock;
    clock.start();
    const int painted = m_hand.paintedFrames();
    const auto delivered = m_instrument.camera().counters().framesDelivered;
    m_hand.wait(kRateSpan_ms);
    const double span_s = static_cast<double>(clock.elapsed()) / kMsPerSecond;
    delivered_hz = static_cast<double>(m_instrument.camera().counters().framesDelivered - delivered) / span_s;
    return (m_hand.paintedFrames() - painted) / span_s;
}

StepResult ShortVisit::lookAt(const View& view)
{
    m_hand.click(view.button);
    m_hand.setChecked("CHECK_SCALED_TO_FIT", true);
    m_hand.waitForFrames(kFramesUnderWay, kFrames_ms);
    double delivered_hz = 0.0;
    const double painted_hz = countFrames(delivered_hz);
    const PictureMeasures measures = measurePicture(m_hand.liveView());
    m_hand.takePicture(QStringLiteral("live-view-") + view.name);

    m_hand.setChecked("CHECK_SCALED_TO_FIT", false);
    m_hand.waitForFrames(kFramesUnderWay, kFrames_ms);
    const QImage unscaled = m_hand.liveView();
    m_hand.takePicture(QStringLiteral("unscaled-") + view.name);
    m_hand.setChecked("CHECK_SCALED_TO_FIT", true);
    const bool rightSize = isNavigatorColour(unscaled, view.navigatorCorner.x(), view.navigatorCorner.y());
    const bool differs =
        m_lastUnscaledView.isNull() || pictureDifference(m_lastUnscaledView, unscaled) > kLeastDifference;
    m_lastUnscaledView = unscaled;

    const bool isEmptySlide = m_instrument.slide().kind() == SlideKind::Empty;
    const bool sensible = measures.brightness > kDarkest && measures.brightness < kBrightest &&
                          (isEmptySlide || measures.contrast > kLeastContrast);
    const SensorSettings sensor = m_instrument.sensor();
    return {painted_hz > 0.0 && painted_hz >= kLeastPartPainted * delivered_hz && rightSize && differs &&
                sensible,
            QStringLiteral("%1 frames/s, brightness %2, contrast %3%4%5")
                .arg(number(painted_hz, 1), number(measures.brightness), number(measures.contrast, 1),
                     rightSize ? "" : ", navigator of another size",
                     differs ? "" : ", the same picture as before"),
            QStringLiteral("%1 frames/s, %2, exposure %3 lines, gain %4")
                .arg(number(delivered_hz, 1), lightText(m_instrument.light()), number(sensor.exposure_lines),
                     number(sensor.gain, 1))};
}

StepResult ShortVisit::jog()
{
    m_hand.type("SPIN_Z_STEP", QString::number(kJogStep));
    m_hand.click("BUTTON_Z_POSITION");
    const int start = m_hand.text("EDIT_Z_POSITION").toInt();
    bool holds = start == m_instrument.stagePosition_steps();
    QStringList seen{QString::number(start)};
    QStringList truth{QString::number(m_instrument.stagePosition_steps())};
    int expected = start;
    for (const int direction : {1, 1, -1}) {
        m_hand.click(direction > 0 ? "BUTTON_Z_MOVE_PLUS" : "BUTTON_Z_MOVE_MINUS");
        expected += direction * kJogStep;
        seen.append(m_hand.text("EDIT_Z_POSITION"));
        truth.append(QString::number(m_instrument.stagePosition_steps()));
        holds = holds && seen.last() == QString::number(expected) && seen.last() == truth.last();
    }
    m_hand.takePicture("jog");
    return {holds, seen.join(", "), truth.join(", ")};
}

void ShortVisit::moveTo(int position_steps)
{
    m_hand.type("EDIT_Z_ABS", QString::number(position_steps));
    m_hand.click("BUTTON_Z_ABS");
    m_hand.waitUntil([this] { return m_hand.windowIsEnabled(); }, kAnswer_ms,
                     QStringLiteral("the window stays disabled after an absolute move"));
}

double ShortVisit::sharpnessNow()
{
    m_hand.waitForFrames(kFramesUnderWay, kFrames_ms);
    return measurePicture(m_hand.liveView()).sharpness;
}

StepResult ShortVisit::focus()
{
    m_hand.click("BUTTON_RESOLUTION_VGA");
    m_hand.waitForFrames(1, kFrames_ms);
    std::map<double, int> positionBySharpness;
    moveTo(kSweepStart);
    positionBySharpness[sharpnessNow()] = kSweepStart;
    m_hand.takePicture("far-from-focus");
    m_hand.type("SPIN_Z_STEP", QString::number(kJogStep));
    for (int move = 1; move < kSweepMoves && !m_hand.hasGivenUp(); ++move) {
        m_hand.click("BUTTON_Z_MOVE_PLUS");
        positionBySharpness[sharpnessNow()] = m_hand.text("EDIT_Z_POSITION").toInt();
    }
    const auto [sharpest, position] = *positionBySharpness.rbegin();
    const double dullest = positionBySharpness.begin()->first;
    moveTo(position);
    sharpnessNow();
    m_hand.takePicture("in-focus");
    const double truth = m_instrument.bestFocus_steps();
    return {sharpest > 2.0 * dullest && std::abs(position - truth) <= kJogStep,
            QStringLiteral("sharpest at %1, %2 times the dullest")
                .arg(position)
                .arg(number(sharpest / dullest, 1)),
            QStringLiteral("focus at ") + number(truth)};
}

int ShortVisit::positionAtRest()
{
    m_hand.waitUntil([this] { return !m_instrument.stageIsMoving(); }, kAnswer_ms,
                     QStringLiteral("the stage does not come to rest"));
    m_hand.click("BUTTON_Z_POSITION");
    return m_hand.text("EDIT_Z_POSITION").toInt();
}

StepResult ShortVisit::rotate()
{
    const int start = positionAtRest();
    m_hand.press("BUTTON_Z_ROTATE_PLUS");
    m_hand.wait(kRotation_ms);
    const bool movedUp = m_instrument.stageIsMoving();
    m_hand.release("BUTTON_Z_ROTATE_PLUS");
    const int up = positionAtRest();
    const int trueUp = m_instrument.stagePosition_steps();
    m_hand.press("BUTTON_Z_ROTATE_MINUS");
    m_hand.wait(kRotation_ms);
    const bool movedDown = m_instrument.stageIsMoving();
    m_hand.release("BUTTON_Z_ROTATE_MINUS");
    m_hand.click("BUTTON_Z_STOP");
    const int down = positionAtRest();
    const int trueDown = m_instrument.stagePosition_steps();
    return {movedUp && up > start && up == trueUp && movedDown && down < up && down == trueDown,
            QStringLiteral("%1, held plus to %2, held minus to %3").arg(start).arg(up).arg(down),
            QStringLiteral("%1, %2, each at rest").arg(trueUp).arg(trueDown)};
}

StepResult ShortVisit::home()
{
    m_hand.click("BUTTON_Z_ORIGIN");
    m_hand.click("BUTTON_Z_POSITION");
    const QString position = m_hand.text("EDIT_Z_POSITION");
    const int truth = m_instrument.stagePosition_steps();
    m_hand.takePicture("home");
    return {position == "0" && truth == 0, QStringLiteral("position ") + position,
            QStringLiteral("stage at %1").arg(truth)};
}

QString ShortVisit::showConsole(const QString& number, const QString& name, const QString& textArea)
{
    m_hand.type("SPIN_DEBUG", number);
    m_hand.setChecked("BUTTON_DEBUG", true);
    QString text = m_hand.isShown(textArea) ? m_hand.text(textArea) : QString();
    m_hand.takePicture(name + QStringLiteral("-console"));
    m_hand.setChecked("BUTTON_DEBUG", false);
    if (m_hand.isShown(textArea))
        m_hand.noteTrouble(QStringLiteral("the console does not go away"));
    return text;
}

StepResult ShortVisit::consoles()
{
    const QString messages = showConsole("1", "message", "PLAIN_DEBUG_MESSAGE");
    const QString traffic = showConsole("2", "controller", "PLAIN_DEBUG_CONTROLLER");
    m_hand.type("SPIN_DEBUG", "1");
    QStringList missing;
    for (const char* expected : {"startCamera", "slot_connected_controller()"})
        if (!messages.contains(expected))
            missing.append(expected);
    for (const char* expected : {"$,DEVICE,READY,,\r\n", "$,STM1,ORIGIN,,\r\n", "$OK,STM1,ORIGIN,"})
        if (!traffic.contains(QString(expected).remove('\r')))
            missing.append(QString(expected).trimmed());
    return {missing.isEmpty(),
            QStringLiteral("%1 lines of messages, %2 of traffic%3")
                .arg(messages.count('\n'))
                .arg(traffic.count('\n'))
                .arg(missing.isEmpty() ? QString() : QStringLiteral(", without ") + missing.join(" and ")),
            QStringLiteral("%1 lines received").arg(m_instrument.boardLines().size())};
}

bool ShortVisit::lastBoxAsked() const
{
    if (m_hand.boxes().isEmpty())
        return false;
    const SeenBox& box = m_hand.boxes().last();
    return box.title == "ORLA-III" && box.text == "Are you sure quit ?" && box.buttons.size() == 2;
}

StepResult ShortVisit::stay()
{
    const int linesBefore = m_instrument.boardLines().size();
    const BoardLight before = m_instrument.light();
    m_hand.expectBox("No");
    m_hand.click("BUTTON_EXIT");
    const bool asked = lastBoxAsked();
    const bool running = m_hand.waitForFrames(kFramesUnderWay, kFrames_ms) && m_hand.windowIsEnabled();
    const int newLines = m_instrument.boardLines().size() - linesBefore;
    const BoardLight after = m_instrument.light();
    return {asked && running && newLines == 0 && after.ledOn == before.ledOn,
            QStringLiteral("%1, live view %2")
                .arg(asked ? "asked" : "not asked as it should", running ? "goes on" : "stands still"),
            QStringLiteral("%1 lines received, %2").arg(newLines).arg(lightText(after))};
}

StepResult ShortVisit::exit()
{
    m_linesBeforeExit = m_instrument.boardLines().size();
    m_hand.expectBox("Yes");
    m_hand.click("BUTTON_EXIT");
    const bool asked = lastBoxAsked();
    return {asked, asked ? "asked" : "not asked as it should", {}};
}

StepResult ShortVisit::ended()
{
    const auto descriptors = m_instrument.camera().openDescriptors();
    const auto mappings = m_instrument.camera().openMappings();
    return {!m_forcedEnd && descriptors == 0 && mappings == 0,
            m_forcedEnd ? "the program had to be stopped" : "the program left by itself",
            QStringLiteral("%1 devices open, %2 buffers mapped").arg(descriptors).arg(mappings)};
}

StepResult ShortVisit::parked()
{
    const QStringList lines = m_instrument.boardLines().mid(m_linesBeforeExit);
    const BoardLight light = m_instrument.light();
    const int position = m_instrument.stagePosition_steps();
    const bool parked =
        lines == QStringList{"$,LED4,OFF,,", "$,STM1,ORIGIN,,"} && !light.ledOn && position == 0;
    return {m_instrument.zigMode() ? lines.isEmpty() : parked,
            m_instrument.zigMode() ? "Zig mode, nothing to park" : "instrument parked",
            QStringLiteral("received %1, %2, stage at %3")
                .arg(lines.isEmpty() ? QStringLiteral("nothing") : lines.join(" "), lightText(light))
                .arg(position)};
}
