// Numbers in texts that somebody typed or a settings file holds: serial number, steps, levels.
#include <cmath>
#include <cstdlib>

#include <QRegularExpression>
#include <QString>

#include "FuzzInput.h"
#include "settings/GlobalIni.h"
#include "settings/MainSettings.h"
#include "settings/SerialNumber.h"

namespace {

constexpr double kHalfStep = 0.5;

// A number as composed: at least so many digits, without surplus zeros, within int.
void requireDecimal(const QString& text, int fewestDigits)
{
    QString digits = text;
    if (digits.startsWith('-'))
        digits.remove(0, 1);
    require(!digits.isEmpty() && text.size() >= fewestDigits, "a part has its digits");
    for (const QChar digit : qAsConst(digits))
        require(digit >= '0' && digit <= '9', "a part is decimal");
    require(text.size() == fewestDigits || !digits.startsWith('0'), "a part is padded to its width only");
    bool good = false;
    text.toInt(&good);
    require(good, "a part is within the range of int");
}

void composeAndSplit(const QString& serial)
{
    const SerialParts parts = splitSerialNumber(serial);
    require(!parts.midfix.contains('-') && !parts.suffix.contains('-'), "parts end at the dash");
    const QString composed = composeSerialNumber(parts);
    require(composed.startsWith("OR3-"), "a serial number begins with the model");
    const int middle = parts.midfix.toInt();
    const int last = parts.suffix.toInt();
    require(middle >= 0 && last >= 0, "a part split at dashes has no sign");
    requireDecimal(composed.section('-', 1, 1), 2);
    requireDecimal(composed.section('-', 2), 5);
    const SerialParts again = splitSerialNumber(composed);
    require(again.midfix.toInt() == middle && again.suffix.toInt() == last,
            "a saved serial number loads as it was");
    require(composeSerialNumber(again) == composed, "saving it again changes nothing");
}

// The parts as they stand in the two fields, which take a minus sign too.
void composeTyped(const QString& midfix, const QString& suffix)
{
    const QString composed = composeSerialNumber({midfix, suffix});
    static const QRegularExpression form("^OR3-(-?[0-9]{1,10})-(-?[0-9]{4,10})$");
    const QRegularExpressionMatch match = form.match(composed);
    require(match.hasMatch(), "whatever is typed, a serial number has its form");
    require(match.captured(1).toInt() == midfix.toInt() && match.captured(2).toInt() == suffix.toInt(),
            "the numbers are those typed, or 0");
}

void roundCalibration(double magnification, double volumeFactor)
{
    global_ini_t record{};
    record.System = {magnification, volumeFactor};
    const bool finite = std::isfinite(magnification) && std::isfinite(volumeFactor);
    require(isMeasurementWithoutResult(record) == !finite, "only finite numbers are a result");
    if (!hasOpticalCalibration(record)) {
        require(!finite || magnification == 0 || volumeFactor == 0, "a result is saved");
        return;
    }
    require(finite && magnification != 0 && volumeFactor != 0, "what is saved was measured");
    // Beyond this a double has no such decimals to round.
    constexpr double kLargest = 1e9;
    if (std::abs(magnification) < kLargest)
        require(std::abs(savedMagnification(record) - magnification) * 1e4 <= kHalfStep + 1e-6,
                "magnification is rounded to four decimals");
    if (std::abs(volumeFactor) < kLargest)
        require(std::abs(savedVolumeFactor(record) - volumeFactor) * 1e5 <= kHalfStep + 1e-6,
                "volume factor is rounded to five decimals");
    require(std::isfinite(savedMagnification(record)) && std::isfinite(savedVolumeFactor(record)),
            "a number that is saved is finite");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    const QString first = QString::fromUtf8(input.upTo('\n'));
    const QString second = QString::fromUtf8(input.upTo('\n'));
    composeAndSplit(first);
    composeTyped(first, second);
    // A measurement's results are floats.
    roundCalibration(static_cast<double>(first.toFloat()), static_cast<double>(second.toFloat()));
    return 0;
}
