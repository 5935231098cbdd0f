#include "simulator/session/SessionSteps.h"

#include <map>

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

using Entries = std::map<QString, QString>;

bool boxAfter(SessionContext& session, const QString& button, const QString& title, const QString& text)
{
    session.user.expectBox("OK");
    session.user.click(button);
    return session.boxWas(title, text);
}

// Only expected values may change. An expected value that was there before is right as well.
StepResult save(SessionContext& session, const QString& page, const Entries& expected)
{
    session.user.openTab(page);
    const auto read = [&] {
        return SettingsFiles::read(session.instrument.root(), InstrumentTree::settingsFiles());
    };
    const SettingsFiles before = read();
    const bool told = boxAfter(session, "BUTTON_SAVE_INI", kMessage, "INI saved !");
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
        session.findings.failedSaves.append(QStringLiteral("%1: %2").arg(page, each));
    return {wrong.isEmpty(),
            QStringLiteral("%1, %2 of %3 values new")
                .arg(told ? "told" : "not told")
                .arg(changed)
                .arg(now.size()),
            wrong.isEmpty() ? QStringLiteral("%1 values as expected, no other changed").arg(expected.size())
                            : wrong.join("; ")};
}

} // namespace

StepResult steps::saveStage(SessionContext& session)
{
    const int reference = session.user.text("EDIT_Z_REFERENCE").toInt();
    const auto text = [reference](int offset) { return QString::number(reference + offset); };
    const QString group = kMainFile + "Calibration/";
    return save(session, "TAB_STAGE",
                {{kStageFile + "Step", session.user.text("SPIN_Z_STEP")},
                 {kStageFile + "Speed", session.user.text("SPIN_Z_SPEED")},
                 {group + "Z reference", text(0)},
                 {group + "Z reset pos", text(0)},
                 {group + "Z ref Validation", text(0)},
                 {group + "Z ref 2ch", text(kTwoChannelOffset_steps)},
                 {group + "Z ref Reusable", text(kReusableOffset_steps)}});
}

StepResult steps::saveCamera(SessionContext& session)
{
    Entries expected{{kMainFile + "Ch. BF/LED", QString::number(session.instrument.light().ledLevel)}};
    for (const std::uint16_t address : kSavedRegisters)
        expected[kNtbSection + QString::asprintf("0x%04X", static_cast<unsigned>(address))] =
            QString::asprintf("0x%02X",
                              static_cast<unsigned>(session.instrument.camera().sensorRegister(address)));
    return save(session, "TAB_CAMERA", expected);
}

StepResult steps::saveQc(SessionContext& session)
{
    Entries expected{{kMainFile + "ORLA-III/Serial", kSerial},
                     {kMainFile + "Cell counting/Skip frame", QString::number(kSkippedFrames)}};
    // The window shows at most as many decimals as the file keeps.
    const double magnification = session.user.text("EDIT_MAGNIFICATION").toDouble();
    const double volume = session.user.text("EDIT_VOLUME_FACTOR").toDouble();
    if (magnification != 0.0 && volume != 0.0) {
        expected[kMainFile + "ORLA-III/Magnification"] = QString::number(magnification);
        expected[kMainFile + "ORLA-III/Volume factor"] = QString::number(volume);
    }
    return save(session, "TAB_QC", expected);
}

StepResult steps::serial(SessionContext& session)
{
    session.user.type("EDIT_SERIAL_MIDFIX", QString::number(kSerialMiddle));
    session.user.type("EDIT_SERIAL_SUFFIX", QString::number(kSerialNumber));
    const QString middle = session.user.text("EDIT_SERIAL_MIDFIX");
    const QString suffix = session.user.text("EDIT_SERIAL_SUFFIX");
    return {middle.toInt() == kSerialMiddle && suffix.toInt() == kSerialNumber,
            QStringLiteral("%1 and %2").arg(middle, suffix),
            {}};
}

StepResult steps::skipFrame(SessionContext& session)
{
    session.user.type("EDIT_SKIP_FRAME", QString::number(kTooManyFrames));
    const bool refused = boxAfter(session, "BUTTON_SKIP_FRAME", "Error", "Possible range: 1 to 30");
    session.user.type("EDIT_SKIP_FRAME", QString::number(kSkippedFrames));
    const bool taken = boxAfter(session, "BUTTON_SKIP_FRAME", kMessage,
                                "Skip frame value is set. \nPress [Save Ini] to save the value.");
    return {refused && taken,
            QStringLiteral("%1 %2, %3 %4")
                .arg(kTooManyFrames)
                .arg(refused ? "refused" : "not refused")
                .arg(kSkippedFrames)
                .arg(taken ? "taken" : "not taken"),
            {}};
}

StepResult steps::password(SessionContext& session)
{
    const bool told =
        boxAfter(session, "BUTTON_PASSWORD", kMessage, "The serial number has been set as the password!");
    const QVector<PasswordRun> runs = session.instrument.tree().passwordRuns();
    const QString set = runs.isEmpty() ? QStringLiteral("no password set") : runs.last().password;
    const QString saved = session.instrument.setting("ORLA-III/Serial", {});
    return {told && runs.size() == 1 && runs.last().arguments.isEmpty() && set == saved,
            told ? "told" : "not told", QStringLiteral("script ran %1 times, %2").arg(runs.size()).arg(set)};
}
