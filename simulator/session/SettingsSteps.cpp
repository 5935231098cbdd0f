#include "simulator/session/SettingsSteps.h"

#include "simulator/instrument/SimulatedInstrument.h"
#include "simulator/session/SettingsFiles.h"

namespace {

const QString kMainFile = QStringLiteral("ORLA3.ini: ");
const QString kStageFile = QStringLiteral("Orla2.ini: Z stage/");
const QString kNtbSection = QStringLiteral("Calibration_BFN.ini: 1280/");
constexpr std::uint16_t kSavedRegisters[] = {0x3501, 0x3502, 0x350A, 0x350B, 0x3400,
                                             0x3401, 0x3402, 0x3403, 0x3404, 0x3405};
// The positions of other chambers, as distances from the Z reference.
constexpr int kTwoChannelOffset_steps = 2560;
constexpr int kReusableOffset_steps = 5120;

constexpr int kSerialMiddle = 7;
constexpr int kSerialNumber = 1234;
const QString kSerial = QStringLiteral("OR3-07-01234");
constexpr int kTooManyFrames = 31;
constexpr int kSkippedFrames = 7;

const QString kMessage = QStringLiteral("ORLA-III");

} // namespace

bool SettingsSteps::boxAfter(const QString& button, const QString& title, const QString& text)
{
    m_operator.expectBox("OK");
    m_operator.click(button);
    return m_context.boxWas(title, text);
}

// Only what is expected may change; a value that stays counts where it is as expected.
StepResult SettingsSteps::save(const QString& page, const Entries& expected)
{
    m_operator.openTab(page);
    const auto read = [this] {
        return SettingsFiles::read(m_instrument.root(), SimulatedInstrument::settingsFiles());
    };
    const SettingsFiles before = read();
    const bool told = boxAfter("BUTTON_SAVE_INI", kMessage, "INI saved !");
    const SettingsFiles after = read();
    const Entries then = before.entries();
    const Entries now = after.entries();
    QStringList wrong = SettingsFiles::harm(before, after);
    for (const auto& [key, value] : expected)
        if (const auto found = now.find(key); found == now.end() || found->second != value)
            wrong.append(QStringLiteral("%1 is not %2").arg(key, value));
    int changed = 0;
    for (const auto& [key, value] : now) {
        const auto old = then.find(key);
        if (old != then.end() && old->second == value)
            continue;
        ++changed;
        if (expected.count(key) == 0)
            wrong.append(QStringLiteral("%1 became %2").arg(key, value));
    }
    if (!told)
        wrong.prepend(QStringLiteral("not told that it is saved"));
    for (const QString& each : qAsConst(wrong))
        m_context.findings.failedSaves.append(QStringLiteral("%1: %2").arg(page, each));
    return {wrong.isEmpty(),
            QStringLiteral("%1, %2 of %3 values new")
                .arg(told ? "told" : "not told")
                .arg(changed)
                .arg(now.size()),
            wrong.isEmpty() ? QStringLiteral("%1 values as expected, no other changed").arg(expected.size())
                            : wrong.join("; ")};
}

StepResult SettingsSteps::saveStage()
{
    const int reference = m_operator.text("EDIT_Z_REFERENCE").toInt();
    const auto text = [reference](int offset) { return QString::number(reference + offset); };
    const QString group = kMainFile + "Calibration/";
    return save("TAB_STAGE", {{kStageFile + "Step", m_operator.text("SPIN_Z_STEP")},
                              {kStageFile + "Speed", m_operator.text("SPIN_Z_SPEED")},
                              {group + "Z reference", text(0)},
                              {group + "Z reset pos", text(0)},
                              {group + "Z ref Validation", text(0)},
                              {group + "Z ref 2ch", text(kTwoChannelOffset_steps)},
                              {group + "Z ref Reusable", text(kReusableOffset_steps)}});
}

StepResult SettingsSteps::saveCamera()
{
    Entries expected{{kMainFile + "Ch. BF/LED", QString::number(m_instrument.light().ledLevel)}};
    for (const std::uint16_t address : kSavedRegisters)
        expected[kNtbSection + QString::asprintf("0x%04X", static_cast<unsigned>(address))] =
            QString::asprintf("0x%02X", static_cast<unsigned>(m_instrument.camera().sensorRegister(address)));
    return save("TAB_CAMERA", expected);
}

StepResult SettingsSteps::saveQc()
{
    Entries expected{{kMainFile + "ORLA-III/Serial", kSerial},
                     {kMainFile + "Cell counting/Skip frame", QString::number(kSkippedFrames)}};
    // The shown texts are the values, with as many decimals or fewer than the file keeps.
    const double magnification = m_operator.text("EDIT_MAGNIFICATION").toDouble();
    const double volume = m_operator.text("EDIT_VOLUME_FACTOR").toDouble();
    if (magnification != 0.0 && volume != 0.0) {
        expected[kMainFile + "ORLA-III/Magnification"] = QString::number(magnification);
        expected[kMainFile + "ORLA-III/Volume factor"] = QString::number(volume);
    }
    return save("TAB_QC", expected);
}

StepResult SettingsSteps::serial()
{
    m_operator.type("EDIT_SERIAL_MIDFIX", QString::number(kSerialMiddle));
    m_operator.type("EDIT_SERIAL_SUFFIX", QString::number(kSerialNumber));
    const QString middle = m_operator.text("EDIT_SERIAL_MIDFIX");
    const QString suffix = m_operator.text("EDIT_SERIAL_SUFFIX");
    return {middle.toInt() == kSerialMiddle && suffix.toInt() == kSerialNumber,
            QStringLiteral("%1 and %2").arg(middle, suffix),
            {}};
}

StepResult SettingsSteps::skipFrame()
{
    m_operator.type("EDIT_SKIP_FRAME", QString::number(kTooManyFrames));
    const bool refused = boxAfter("BUTTON_SKIP_FRAME", "Error", "Possible range: 1 to 30");
    m_operator.type("EDIT_SKIP_FRAME", QString::number(kSkippedFrames));
    const bool taken = boxAfter("BUTTON_SKIP_FRAME", kMessage,
                                "Skip frame value is set. \nPress [Save Ini] to save the value.");
    return {refused && taken,
            QStringLiteral("%1 %2, %3 %4")
                .arg(kTooManyFrames)
                .arg(refused ? "refused" : "not refused")
                .arg(kSkippedFrames)
                .arg(taken ? "taken" : "not taken"),
            {}};
}

StepResult SettingsSteps::password()
{
    const bool told =
        boxAfter("BUTTON_PASSWORD", kMessage, "The serial number has been set as the password!");
    const QVector<PasswordRun> runs = m_instrument.tree().passwordRuns();
    const QString set = runs.isEmpty() ? QStringLiteral("no password set") : runs.last().password;
    const QString saved = m_instrument.setting("ORLA-III/Serial", {});
    return {told && runs.size() == 1 && runs.last().arguments.isEmpty() && set == saved,
            told ? "told" : "not told", QStringLiteral("script ran %1 times, %2").arg(runs.size()).arg(set)};
}
