// The steps from trimming the picture to results on the disk.

#include "simulator/session/ShortVisit.h"

#include <array>

#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QPixmap>
#include <QScreen>
#include <QSettings>

#include <opencv2/imgcodecs.hpp>

#include "simulator/SimulatedInstrument.h"
#include "simulator/session/PictureMeasures.h"

namespace {

constexpr int kAnswer_ms = 20000;
constexpr int kFrames_ms = 15000;
constexpr int kFramesUnderWay = 8;

const QString kNoDiskText = QStringLiteral("Please insert USB disk !!!");
const QString kOk = QStringLiteral("OK");

/// A setting of the camera tab: its widgets' name, its registers, and how it is trimmed.
struct Setting
{
    const char* name;
    quint16 high;
    quint16 low;
    int fineUps;
    int coarseUps;
};

constexpr int kCoarseStep = 16;

constexpr std::array<Setting, 5> kSettings{{
    {"EXPOSURE", 0x3501, 0x3502, 1, 20},
    {"GAIN", 0x350A, 0x350B, 2, 0},
    {"COLOR_RED", 0x3400, 0x3401, 1, 3},
    {"COLOR_GREEN", 0x3402, 0x3403, 1, 1},
    {"COLOR_BLUE", 0x3404, 0x3405, 1, 2},
}};

constexpr double kWantedBrightness = 150.0;
constexpr double kBrightnessTolerance = 4.0;
constexpr double kDark = 10.0;
constexpr int kHighestTypedLevel = 999;

const QString kPictureName = QStringLiteral("frame of the visit");
const QString kScreenshotName = QStringLiteral("KorvexCap-0001.png");

const QString kSerialMidfix = QStringLiteral("12");
const QString kSerialSuffix = QStringLiteral("345");
const QString kSerial = QStringLiteral("OR3-12-00345");
const QString kSkipFrames = QStringLiteral("9");

QString edit(const Setting& setting)
{
    return QStringLiteral("EDIT_") + setting.name;
}

QString button(const Setting& setting, const char* step)
{
    return QStringLiteral("BUTTON_%1_%2").arg(setting.name, step);
}

QImage readTiff(const QString& path)
{
    const cv::Mat bgr = cv::imread(QFile::encodeName(path).toStdString(), cv::IMREAD_UNCHANGED);
    if (bgr.type() != CV_8UC3)
        return {};
    return QImage(bgr.data, bgr.cols, bgr.rows, static_cast<int>(bgr.step), QImage::Format_BGR888).copy();
}

} // namespace

bool ShortVisit::lastBoxSaid(const QString& title, const QString& text) const
{
    return !m_hand.boxes().isEmpty() && m_hand.boxes().last().title == title &&
           m_hand.boxes().last().text == text;
}

bool ShortVisit::asksForDisk()
{
    m_hand.expectBox(kOk);
    m_hand.click("BUTTON_CAPTURE");
    return lastBoxSaid("Error", kNoDiskText);
}

double ShortVisit::brightnessNow()
{
    m_hand.waitForFrames(kFramesUnderWay, kFrames_ms);
    return measurePicture(m_hand.liveView()).brightness;
}

QStringList ShortVisit::shownSettings()
{
    QStringList shown;
    for (const Setting& setting : kSettings)
        shown.append(m_hand.text(edit(setting)));
    return shown;
}

QStringList ShortVisit::sensorSettings()
{
    QStringList held;
    for (const Setting& setting : kSettings)
        held.append(QString::asprintf("0x%02X%02X", m_instrument.camera().sensorRegister(setting.high),
                                      m_instrument.camera().sensorRegister(setting.low)));
    return held;
}

StepResult ShortVisit::plug()
{
    UsbPort& usb = m_instrument.usb();
    const bool asked = usb.isPlugged() || asksForDisk();
    if (!usb.isPlugged())
        usb.plug();
    const bool mounted = m_hand.waitUntil([&usb] { return usb.isMounted(); }, kAnswer_ms,
                                          QStringLiteral("the disk is not mounted"));
    return {asked && mounted, asked ? "asked for a disk" : "not asked for a disk",
            mounted ? "disk mounted" : "disk not mounted"};
}

StepResult ShortVisit::trim()
{
    m_hand.click("BUTTON_RESOLUTION_1280");
    const double before = brightnessNow();
    QStringList expected;
    for (const Setting& setting : kSettings) {
        const uint value = m_hand.text(edit(setting)).toUInt(nullptr, 16);
        expected.append(
            QString::asprintf("0x%04X", value + uint(setting.fineUps + kCoarseStep * setting.coarseUps)));
        for (int i = 0; i < setting.fineUps; ++i)
            m_hand.click(button(setting, "FINE_UP"));
        for (int i = 0; i < setting.coarseUps; ++i)
            m_hand.click(button(setting, "COARSE_UP"));
    }
    const double after = brightnessNow();
    m_hand.takePicture("trimmed");
    const QStringList shown = shownSettings();
    const QStringList held = sensorSettings();
    return {shown == expected && shown == held && after > before,
            QStringLiteral("%1, brightness from %2 to %3")
                .arg(shown.join(' '))
                .arg(before, 0, 'f', 1)
                .arg(after, 0, 'f', 1),
            held.join(' ')};
}

StepResult ShortVisit::light()
{
    int low = 0;
    int high = kHighestTypedLevel;
    double brightness = brightnessNow();
    while (qAbs(brightness - kWantedBrightness) > kBrightnessTolerance / 2 && high - low > 1 &&
           !m_hand.hasGivenUp()) {
        const int level = (low + high) / 2;
        m_hand.type("EDIT_LED", QString::number(level));
        brightness = brightnessNow();
        (brightness < kWantedBrightness ? low : high) = level;
    }
    const QString level = m_hand.text("EDIT_LED");
    m_hand.takePicture("light");
    const BoardLight set = m_instrument.light();
    m_hand.setChecked("BUTTON_LED", true);
    const double dark = brightnessNow();
    const bool wentOff = !m_instrument.light().ledOn;
    m_hand.setChecked("BUTTON_LED", false);
    const double again = brightnessNow();
    return {qAbs(brightness - kWantedBrightness) <= kBrightnessTolerance && set.ledOn &&
                QString::number(set.ledLevel) == level && wentOff && dark < kDark &&
                qAbs(again - brightness) < kBrightnessTolerance && m_instrument.light().ledOn,
            QStringLiteral("brightness %1 at level %2, %3 without light")
                .arg(brightness, 0, 'f', 1)
                .arg(level)
                .arg(dark, 0, 'f', 1),
            QStringLiteral("level %1, off and on again").arg(set.ledLevel)};
}

StepResult ShortVisit::staining()
{
    const QStringList trimmed = shownSettings();
    m_hand.click("BUTTON_STAINING_TB");
    const QStringList other = shownSettings();
    const bool otherHeld = other == sensorSettings();
    m_hand.waitForFrames(kFramesUnderWay, kFrames_ms);
    m_hand.takePicture("stained");
    m_hand.click("BUTTON_STAINING_NTB");
    const QStringList again = shownSettings();
    m_hand.waitForFrames(kFramesUnderWay, kFrames_ms);
    return {otherHeld && again == trimmed && again == sensorSettings(),
            QStringLiteral("TB %1, NTB %2").arg(other.join(' '), again.join(' ')),
            QStringLiteral("NTB ") + sensorSettings().join(' ')};
}

// What each file holds that belongs to a tab is compared with what the window shows and the
// sensor holds; the first difference is told, nothing where all is right.

QString ShortVisit::savedStage()
{
    const QSettings stage(m_instrument.root() + "/root/Orla2/Orla2.ini", QSettings::IniFormat);
    const QString step = stage.value("Z stage/Step").toString();
    const QString speed = stage.value("Z stage/Speed").toString();
    if (step != m_hand.text("SPIN_Z_STEP") || speed != m_hand.text("SPIN_Z_SPEED"))
        return QStringLiteral("step %1, speed %2").arg(step, speed);
    const int reference = m_hand.text("EDIT_Z_REFERENCE").toInt();
    const QMap<QString, int> offsets{
        {"reference", 0}, {"reset pos", 0}, {"ref 2ch", 2560}, {"ref Reusable", 5120}, {"ref Validation", 0}};
    for (auto it = offsets.cbegin(); it != offsets.cend(); ++it) {
        const QString saved = m_instrument.setting("Calibration/Z " + it.key(), "missing");
        if (saved != QString::number(reference + it.value()))
            return QStringLiteral("Z %1 %2").arg(it.key(), saved);
    }
    return {};
}

QString ShortVisit::savedCamera()
{
    const QSettings file(m_instrument.root() + "/opt/ORLA3/conf/Calibration_BFN.ini", QSettings::IniFormat);
    for (const Setting& setting : kSettings) {
        for (const quint16 address : {setting.high, setting.low}) {
            const QString saved = file.value(QString::asprintf("1280/0x%04X", address)).toString();
            if (saved != QString::asprintf("0x%02X", m_instrument.camera().sensorRegister(address)))
                return QString::asprintf("0x%04X: ", address) + saved;
        }
    }
    const QString level = m_instrument.setting("Ch. BF/LED", "missing");
    return level == m_hand.text("EDIT_LED") ? QString() : "LED " + level;
}

QString ShortVisit::savedQC()
{
    const QString serial = m_instrument.setting("ORLA-III/Serial", "missing");
    const QString skip = m_instrument.setting("Cell counting/Skip frame", "missing");
    if (serial == kSerial && skip == kSkipFrames)
        return {};
    return QStringLiteral("serial %1, skip frame %2").arg(serial, skip);
}

StepResult ShortVisit::save()
{
    m_hand.type("EDIT_SERIAL_MIDFIX", kSerialMidfix);
    m_hand.type("EDIT_SERIAL_SUFFIX", kSerialSuffix);
    m_hand.type("EDIT_SKIP_FRAME", kSkipFrames);
    m_hand.expectBox(kOk);
    m_hand.click("BUTTON_SKIP_FRAME");

    struct Tab
    {
        const char* name;
        QString (ShortVisit::*difference)();
    };
    constexpr Tab kTabs[] = {{"TAB_STAGE", &ShortVisit::savedStage},
                             {"TAB_CAMERA", &ShortVisit::savedCamera},
                             {"TAB_QC", &ShortVisit::savedQC}};
    int confirmed = 0;
    QStringList differences;
    for (const Tab& tab : kTabs) {
        m_hand.openTab(tab.name);
        m_hand.expectBox(kOk);
        m_hand.click("BUTTON_SAVE_INI");
        confirmed += lastBoxSaid("ORLA-III", "INI saved !") ? 1 : 0;
        const QString difference = (this->*tab.difference)();
        if (!difference.isEmpty())
            differences.append(QStringLiteral("%1 %2").arg(tab.name, difference));
    }
    return {confirmed == 3 && differences.isEmpty(), QStringLiteral("%1 of 3 saves confirmed").arg(confirmed),
            differences.isEmpty() ? "the files hold what the window shows"
                                  : "in the files: " + differences.join("; ")};
}

StepResult ShortVisit::password()
{
    const int before = m_instrument.tree().passwordRuns().size();
    m_hand.expectBox(kOk);
    m_hand.click("BUTTON_PASSWORD");
    const bool told = lastBoxSaid("ORLA-III", "The serial number has been set as the password!");
    const QVector<PasswordRun> runs = m_instrument.tree().passwordRuns();
    const QString password = runs.isEmpty() ? QString() : runs.last().password;
    return {told && runs.size() == before + 1 &&
                password == m_instrument.setting("ORLA-III/Serial", "missing"),
            told ? "told that it is set" : "not told",
            QStringLiteral("%1 runs of the script, password %2").arg(runs.size() - before).arg(password)};
}

StepResult ShortVisit::capture()
{
    m_hand.click("BUTTON_RESOLUTION_VGA");
    m_hand.setChecked("CHECK_SCALED_TO_FIT", true);
    m_hand.waitForFrames(kFramesUnderWay, kFrames_ms);
    const QImage shown = m_hand.liveView();
    m_hand.saveNextAs(kPictureName);
    m_hand.click("BUTTON_CAPTURE");
    const QImage saved = readTiff(m_instrument.usb().filesOf() + '/' + kPictureName + ".tif");
    const double difference = pictureDifference(shown, saved);
    return {m_hand.windowIsEnabled() && difference == 0.0,
            m_hand.windowIsEnabled() ? "window takes presses again" : "window stays disabled",
            QStringLiteral("%1 x %2 on the disk, %3")
                .arg(saved.width())
                .arg(saved.height())
                .arg(difference == 0.0 ? "the picture on the screen" : "another picture")};
}

StepResult ShortVisit::screenshot()
{
    // A platform without a screen that can be grabbed has the window say so.
    const bool canGrab = !QGuiApplication::primaryScreen()->grabWindow(0).isNull();
    const QImage screen = m_hand.screen();
    m_hand.expectBox(kOk);
    m_hand.pressKey(Qt::Key_Print);
    const QString name = "/mnt/" + kScreenshotName;
    const bool told = canGrab ? lastBoxSaid("ORLA-III", name + " saved !")
                              : lastBoxSaid("Error", name + " saving failed !!!");
    const QImage saved(m_instrument.usb().filesOf() + '/' + kScreenshotName);
    const double difference = pictureDifference(screen, saved);
    return {told && (difference == 0.0 || !canGrab), told ? "told as it should" : "not told as it should",
            !canGrab            ? "this platform's screen cannot be grabbed"
            : difference == 0.0 ? "the screen is on the disk"
                                : "another picture is on the disk"};
}

StepResult ShortVisit::unplug()
{
    UsbPort& usb = m_instrument.usb();
    usb.pull();
    const bool gone = m_hand.waitUntil([&usb] { return !usb.isMounted(); }, kAnswer_ms,
                                       QStringLiteral("the pulled disk stays mounted"));
    const bool asked = asksForDisk();
    return {gone && asked, asked ? "asked for a disk" : "not asked for a disk",
            gone ? "disk pulled and unmounted" : "disk pulled, still mounted"};
}
