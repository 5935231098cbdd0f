#include "verifier/TrimTab.h"

#include <cstring>

#include <QPushButton>

#include "support/FileBytes.h"

namespace {

constexpr int kFirstCus = 0x20;
constexpr int kFirstBfn = 0x60;

QByteArray calibrationFile(bool stained)
{
    QByteArray content;
    const char* const sections[] = {"VGA", "1280", "5M"};
    for (int resolution = 0; resolution < 3; ++resolution) {
        content += QByteArray("[") + sections[resolution] + "]\n";
        for (std::size_t i = 0; i < kFamilies.size(); ++i) {
            const Family& f = kFamilies[i];
            content += QString::asprintf("0x%04X=0x01\n", f.high).toLatin1();
            content += QString::asprintf("0x%04X=0x%02X\n", f.low,
                                         unsigned(TrimTab::calibratedLowByte(stained, resolution, i)))
                           .toLatin1();
        }
    }
    return content;
}

WindowFixture::Options calibratedOptions()
{
    WindowFixture::Options options;
    options.prepare = [](const QString& root) {
        putBytes(root + "/opt/ORLA3/conf/Calibration_CUS.ini", calibrationFile(true));
        putBytes(root + "/opt/ORLA3/conf/Calibration_BFN.ini", calibrationFile(false));
    };
    return options;
}

} // namespace

TrimTab::TrimTab() : WindowFixture(calibratedOptions()), m_loaded(*global_ini()) {}

int TrimTab::calibratedLowByte(bool stained, int resolution, std::size_t family)
{
    return (stained ? kFirstCus : kFirstBfn) + resolution * int(kFamilies.size()) + int(family);
}

void TrimTab::reset()
{
    clearFaults();
    *global_ini() = m_loaded;
    if (find<QPushButton>("BUTTON_LED")->isChecked())
        click("BUTTON_LED");
    const bool stained = style("BUTTON_STAINING_TB").contains("rgb");
    if (stained || programCamera()->mode() != 1)
        choose(false, 1);
    window().set_LED(225);
    for (const Family& f : kFamilies)
        enableAll(f);
    for (const char* widget : kLedWidgets)
        find<QWidget>(widget)->setEnabled(true);
    openTab(1);
    clearConsoles();
    takeBoardLines();
    camera().trace().clear();
    boxes().clear();
}

void TrimTab::choose(bool stained, int resolution)
{
    click(stained ? "BUTTON_STAINING_TB" : "BUTTON_STAINING_NTB");
    click(kResolutions[resolution]);
    const auto* camera = programCamera();
    QVERIFY(camera->isStreaming());
    QCOMPARE(camera->mode(), resolution);
}

void TrimTab::enableAll(const Family& f)
{
    for (const char* button : {f.fineDown, f.fineUp, f.coarseDown, f.coarseUp})
        find<QWidget>(button)->setEnabled(true);
}

Enabled TrimTab::enabledOf(const Family& f)
{
    return enabledText(isEnabled(f.fineDown), isEnabled(f.coarseDown), isEnabled(f.fineUp),
                       isEnabled(f.coarseUp));
}

Enabled TrimTab::ledEnabled()
{
    return enabledText(isEnabled("BUTTON_LED_FINE_DOWN"), isEnabled("BUTTON_LED_COARSE_DOWN"),
                       isEnabled("BUTTON_LED_FINE_UP"), isEnabled("BUTTON_LED_COARSE_UP"));
}

QStringList TrimTab::busCalls()
{
    QStringList calls;
    for (const TracedCall& call : camera().trace().calls()) {
        const QString details = QString::fromStdString(call.details).toUpper();
        switch (call.kind) {
        case CallKind::Open:
            calls += "open " + QString::fromStdString(call.name);
            break;
        case CallKind::BusAddress:
            calls += "address";
            break;
        case CallKind::BusWrite:
            calls += "write " + details;
            break;
        case CallKind::BusRead:
            calls += "read " + details;
            break;
        case CallKind::Close:
            calls += "close";
            break;
        default:
            break; // the capture thread's
        }
    }
    return calls;
}

Enabled enabledText(bool fineDown, bool coarseDown, bool fineUp, bool coarseUp)
{
    Enabled text;
    for (const bool enabled : {fineDown, coarseDown, fineUp, coarseUp})
        text += enabled ? '1' : '0';
    return text;
}

QString shown(unsigned int value)
{
    return QString::asprintf("0x%04X", value);
}

QStringList pairWrite(const Family& f, int value)
{
    QStringList calls;
    for (const auto& [address, byte] :
         {std::pair<int, int>(f.high, value >> 8), std::pair<int, int>(f.low, value & 0xFF)})
        calls += {"open /dev/i2c-1", "address",
                  QString::asprintf("write %02X %02X %02X", unsigned(address) >> 8U,
                                    unsigned(address) & 0xFFU, unsigned(byte)),
                  "close"};
    return calls;
}

bool sameTables(const global_ini_t& a, const global_ini_t& b)
{
    return std::memcmp(a.CUS_reg, b.CUS_reg, sizeof a.CUS_reg) == 0 &&
           std::memcmp(a.BFN_reg, b.BFN_reg, sizeof a.BFN_reg) == 0 &&
           std::memcmp(a.AE_reg, b.AE_reg, sizeof a.AE_reg) == 0;
}
