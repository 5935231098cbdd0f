#include "PanelSetup.h"

#include <QApplication>
#include <QByteArray>
#include <QFont>
#include <QStringList>

namespace {

/// What each of Qt's platforms looks at. Its application attributes do not reach so far:
/// Qt::AA_Use96Dpi, which QT_FONT_DPI makes needless, leaves the fonts of widgets alone,
/// Qt::AA_DisableHighDpiScaling leaves QT_SCALE_FACTOR in force.
constexpr const char* kScaleVariables[] = {
    "QT_SCALE_FACTOR",           "QT_SCREEN_SCALE_FACTORS", "QT_AUTO_SCREEN_SCALE_FACTOR",
    "QT_ENABLE_HIGHDPI_SCALING", "QT_DEVICE_PIXEL_RATIO",   "QT_USE_PHYSICAL_DPI",
};

/// The form's font, and those that are no wider. Left to itself, a machine without the first may
/// choose a typewriter's.
constexpr const char* kFont = "DejaVu Sans";
constexpr const char* kOtherFonts[] = {"Bitstream Vera Sans", "Liberation Sans", "Noto Sans", "FreeSans",
                                       "Arial"};

} // namespace

void setUpPanel()
{
    for (const char* variable : kScaleVariables)
        qunsetenv(variable);
    qputenv("QT_FONT_DPI", "96");
    for (const char* font : kOtherFonts)
        QFont::insertSubstitution(kFont, font);
}

void setUpFont()
{
    QFont font = QApplication::font();
    font.setFamily(kFont);
    QApplication::setFont(font);
}
