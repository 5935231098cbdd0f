#pragma once

#include <array>

#include <QtTest>

#include "ORLA_II_Plus_Verifier.h"
#include "camera/OV5642Camera.h"
#include "settings/GlobalIni.h"
#include "support/WindowFixture.h"

using Window = ORLA_II_Plus_Verifier;

/// One sensor setting of the tab, written down apart from the program's own table.
struct Family
{
    const char* name;
    const char* edit;
    const char* fineDown;
    const char* fineUp;
    const char* coarseDown;
    const char* coarseUp;
    quint16 high;
    quint16 low;
    int column;
    unsigned int maximum;
    void (Window::*setter)(unsigned int);
};

#define BUTTONS(NAME)                                                                                        \
    "EDIT_" NAME, "BUTTON_" NAME "_FINE_DOWN", "BUTTON_" NAME "_FINE_UP", "BUTTON_" NAME "_COARSE_DOWN",     \
        "BUTTON_" NAME "_COARSE_UP"

inline constexpr std::array<Family, 5> kFamilies{{
    {"EXPOSURE", BUTTONS("EXPOSURE"), 0x3501, 0x3502, 0, 65535, &Window::set_EXPOSURE},
    {"GAIN", BUTTONS("GAIN"), 0x350A, 0x350B, 2, 511, &Window::set_GAIN},
    {"COLOR_RED", BUTTONS("COLOR_RED"), 0x3400, 0x3401, 4, 4095, &Window::set_COLOR_RED},
    {"COLOR_GREEN", BUTTONS("COLOR_GREEN"), 0x3402, 0x3403, 6, 4095, &Window::set_COLOR_GREEN},
    {"COLOR_BLUE", BUTTONS("COLOR_BLUE"), 0x3404, 0x3405, 8, 4095, &Window::set_COLOR_BLUE},
}};

#undef BUTTONS

inline constexpr const char* kLedWidgets[] = {"EDIT_LED", "BUTTON_LED_FINE_DOWN", "BUTTON_LED_FINE_UP",
                                              "BUTTON_LED_COARSE_DOWN", "BUTTON_LED_COARSE_UP"};

inline constexpr int kNothing = -1;

/// What step buttons show: fine down, coarse down, fine up, coarse up, each "1" or "0".
using Enabled = QString;

/// The camera tab on an instrument whose calibration files hold another value in each place.
class TrimTab : public WindowFixture
{
public:
    TrimTab();

    /// The settings as they were loaded, NTB at 1280 x 960, LED on at 225, the step
    /// buttons enabled, the tab open, and nothing remembered of consoles, board lines and bus calls.
    void reset();
    /// Opens the camera anew for staining and resolution, which loads the sensor's registers
    /// from the settings record.
    void choose(bool stained, int resolution);

    void enableAll(const Family& f);
    Enabled enabledOf(const Family& f);
    Enabled ledEnabled();

    /// The sensor's bus traffic since the trace was cleared, one line for each call.
    QStringList busCalls();

    /// The low byte of a setting in the calibration files; the high byte is 1.
    static int calibratedLowByte(bool stained, int resolution, std::size_t family);

private:
    global_ini_t m_loaded{};
};

Enabled enabledText(bool fineDown, bool coarseDown, bool fineUp, bool coarseUp);
/// A register pair's value as the tab shows it.
QString shown(unsigned int value);
/// The bus calls that write a setting.
QStringList pairWrite(const Family& f, int value);
bool sameTables(const global_ini_t& a, const global_ini_t& b);
