// The number fields of the window: whatever text stands in them when a button is pressed.
#include <memory>

#include <QApplication>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>

#include "FuzzInput.h"
#include "PlainNumber.h"
#include "RegisterSteps.h"
#include "settings/GlobalIni.h"
#include "support/WindowFixture.h"

namespace {

struct Desk
{
    FuzzedProgram<QApplication> program;
    WindowFixture fixture;
};

// The window goes before what it stands on, which is in nobody's hands once main() has ended.
std::unique_ptr<Desk>& desk()
{
    static auto* const place = new std::unique_ptr<Desk>;
    return *place;
}

constexpr const char* kStepNames[] = {"FINE_DOWN", "FINE_UP", "COARSE_DOWN", "COARSE_UP"};
constexpr const char* kSettingNames[] = {"EXPOSURE", "GAIN", "COLOR_RED", "COLOR_GREEN", "COLOR_BLUE"};
constexpr int kMostLed = static_cast<int>(kLedMaximum);

void press(WindowFixture& fixture, const QString& button)
{
    // A locked button takes no click, as under the finger.
    fixture.find<QPushButton>(qPrintable(button))->click();
}

QString boardLine(const char* command, int number)
{
    return QString("$,%1,%2,").arg(command).arg(number);
}

void typeLevel(WindowFixture& fixture, int number)
{
    const int before = global_ini()->LED_brightness;
    emit fixture.find<QLineEdit>("EDIT_LED")->returnPressed();
    const bool taken = number >= 0 && number < kMostLed;
    require(global_ini()->LED_brightness == (taken ? number : before), "a level is taken that is in range");
    require(fixture.takeBoardLines() == (taken ? QStringList(boardLine("LED4,BRT", number)) : QStringList()),
            "the board is told what was taken");
}

void stepLevel(WindowFixture& fixture, std::uint8_t choice)
{
    press(fixture, QString("BUTTON_LED_") + kStepNames[choice % 4]);
    const QStringList lines = fixture.takeBoardLines();
    require(lines.size() <= 1, "a press is one line at most");
    if (lines.isEmpty())
        return;
    const int level = global_ini()->LED_brightness;
    require(level >= 0 && level <= kMostLed, "a step ends in range, wherever it began");
    require(lines.first() == boardLine("LED4,BRT", level), "the board is told the step");
    require(fixture.text("EDIT_LED") == QString::number(level), "the field shows the step");
}

void stepSensor(WindowFixture& fixture, std::uint8_t choice, const QString& text)
{
    const int setting = choice % 5;
    const QString edit = QString("EDIT_") + kSettingNames[setting];
    fixture.setText(qPrintable(edit), text);
    press(fixture, QString("BUTTON_%1_%2").arg(kSettingNames[setting], kStepNames[choice / 5 % 4]));
    const unsigned int shown = shownRegisterValue(fixture.text(qPrintable(edit)));
    const int column = kSensorSettings[static_cast<std::size_t>(setting)].column;
    for (const auto& row : global_ini()->BFN_reg)
        for (const quint16 byte : row)
            require(byte <= 0xFF, "a register has eight bits");
    if (fixture.text(qPrintable(edit)) != text) {
        const auto& row = global_ini()->BFN_reg[kMode1280];
        require(row[column] * 256u + row[column + 1] == shown, "what is shown is what is kept");
    }
}

void setSkipFrame(WindowFixture& fixture, int number)
{
    const int before = global_ini()->Skip_frame;
    const int boxes = fixture.boxes().seen().size();
    press(fixture, "BUTTON_SKIP_FRAME");
    require(fixture.waitUntil([&] { return fixture.boxes().seen().size() > boxes; }), "a press is answered");
    const bool taken = number >= 1 && number <= 30;
    require(global_ini()->Skip_frame == (taken ? number : before), "a count is taken that is in range");
}

void moveTo(WindowFixture& fixture, int number)
{
    press(fixture, "BUTTON_Z_MOVE_REFERENCE");
    require(fixture.takeBoardLines() == QStringList(boardLine("STM1,ABS", number)),
            "the stage is sent where the field says, or to 0");
}

} // namespace

extern "C" void endOfReplay()
{
    desk().reset();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (desk() == nullptr)
        desk() = std::make_unique<Desk>();
    WindowFixture& fixture = desk()->fixture;
    fixture.takeBoardLines();
    fixture.boxes().clear();

    FuzzInput input(data, size);
    const std::uint8_t kind = input.byte();
    const std::uint8_t choice = input.byte();
    // Letters that a number can be read from differently stand in the first 256. No keyboard has
    // the letter 0, behind which Qt reads no further.
    const QByteArray bytes(input.rest().constData());
    const QString text = QString::fromLatin1(bytes);
    const int number = plainNumber(bytes);
    constexpr const char* kEdits[] = {"EDIT_LED", "EDIT_LED", "EDIT_SKIP_FRAME", "EDIT_Z_REFERENCE"};
    if (kind % 5 < 4)
        fixture.setText(kEdits[kind % 5], text);
    switch (kind % 5) {
    case 0:
        typeLevel(fixture, number);
        break;
    case 1:
        stepLevel(fixture, choice);
        break;
    case 2:
        setSkipFrame(fixture, number);
        break;
    case 3:
        moveTo(fixture, number);
        break;
    default:
        stepSensor(fixture, choice, text);
        break;
    }
    return 0;
}
