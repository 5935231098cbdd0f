#include "simulator/optics/Slide.h"

#include <cmath>
#include <random>

namespace {

// A stained cell looks blue: it takes red and green light and lets blue pass.
constexpr std::array<double, 3> kBlueStain{1.0, 0.92, 0.45};
constexpr std::array<double, 3> kBlackInk{1.0, 1.0, 1.0};

constexpr double kPi = 3.14159265358979323846;
constexpr double kCellGap_px = 5.0;
constexpr double kFaintestCell = 0.5;
constexpr double kDarkestCell = 0.9;
constexpr double kSmallestDust_px = 10.0;
constexpr double kLargestDust_px = 18.0;
constexpr double kDustAbsorption = 0.75;
constexpr double kDotAbsorption = 0.95;
// One millimetre on the instrument's slide covers about as many pixels.
constexpr double kDotDistance_px = 1000.0;
constexpr double kDotDistanceSpread_px = 60.0;
constexpr double kDotLineTilt_rad = 5.0 * kPi / 180.0;
// Draws after which a crowded field is left with fewer discs.
constexpr int kPlacementTries = 400;

struct Area
{
    double left;
    double top;
    double right;
    double bottom;
};

constexpr Area kField{0.0, 0.0, kFullWidth_px - 1.0, kFullHeight_px - 1.0};

// The standard distributions differ between libraries; a seed has to give one slide everywhere.
class Dice
{
public:
    explicit Dice(std::uint32_t seed) : m_engine(seed) {}

    double between(double low, double high)
    {
        return low + (high - low) * (static_cast<double>(m_engine()) / 4294967296.0);
    }

    SlidePoint within(const Area& area)
    {
        const double x_px = between(area.left, area.right);
        return {x_px, between(area.top, area.bottom)};
    }

    // The mean of two places: the middle is the likeliest, the corners are the least likely.
    SlidePoint towardsMiddle(const Area& area)
    {
        const SlidePoint one = within(area);
        const SlidePoint other = within(area);
        return {(one.x_px + other.x_px) / 2.0, (one.y_px + other.y_px) / 2.0};
    }

private:
    std::mt19937 m_engine;
};

bool isFree(const std::vector<SlideDisc>& discs, const SlidePoint& place, double radius_px)
{
    for (const SlideDisc& disc : discs) {
        const double distance = std::hypot(disc.centre.x_px - place.x_px, disc.centre.y_px - place.y_px);
        if (distance < disc.radius_px + radius_px + kCellGap_px)
            return false;
    }
    return true;
}

void addCells(const SlideParameters& parameters, Dice& dice, std::vector<SlideDisc>& discs)
{
    for (int cell = 0; cell < parameters.cellCount; ++cell) {
        const double radius = dice.between(parameters.smallestCellRadius_px, parameters.largestCellRadius_px);
        const double absorption = dice.between(kFaintestCell, kDarkestCell);
        for (int attempt = 0; attempt < kPlacementTries; ++attempt) {
            const SlidePoint place = dice.towardsMiddle(kField);
            if (isFree(discs, place, radius)) {
                discs.push_back({place, radius, absorption, 0.0});
                break;
            }
        }
    }
}

void addDust(const SlideParameters& parameters, Dice& dice, std::vector<SlideDisc>& discs)
{
    if (parameters.dustOffset_steps == 0.0)
        return;
    for (int speck = 0; speck < parameters.dustCount; ++speck) {
        const SlidePoint place = dice.within(kField);
        const double radius = dice.between(kSmallestDust_px, kLargestDust_px);
        discs.push_back({place, radius, kDustAbsorption, parameters.dustOffset_steps});
    }
}

std::array<SlidePoint, 2> seededDots(Dice& dice)
{
    const SlidePoint middle = dice.within({1046.0, 472.0, 1546.0, 1472.0});
    const double half =
        dice.between(kDotDistance_px - kDotDistanceSpread_px, kDotDistance_px + kDotDistanceSpread_px) / 2.0;
    const double angle = dice.between(-kDotLineTilt_rad, kDotLineTilt_rad);
    const double dx = half * std::cos(angle);
    const double dy = half * std::sin(angle);
    return {SlidePoint{middle.x_px - dx, middle.y_px - dy}, SlidePoint{middle.x_px + dx, middle.y_px + dy}};
}

void addDots(const SlideParameters& parameters, Dice& dice, std::vector<SlideDisc>& discs)
{
    const std::array<SlidePoint, 2> dots =
        parameters.targetDots.has_value() ? *parameters.targetDots : seededDots(dice);
    for (const SlidePoint& dot : dots)
        discs.push_back({dot, parameters.targetDotRadius_px, kDotAbsorption, 0.0});
}

} // namespace

Slide::Slide(const SlideParameters& parameters)
    : m_kind(parameters.kind), m_stainColour(parameters.kind == SlideKind::Cells ? kBlueStain : kBlackInk)
{
    Dice dice(parameters.seed);
    switch (m_kind) {
    case SlideKind::Cells:
        addCells(parameters, dice, m_discs);
        addDust(parameters, dice, m_discs);
        break;
    case SlideKind::Target:
        addDots(parameters, dice, m_discs);
        break;
    case SlideKind::Empty:
        break;
    case SlideKind::Picture:
        m_picture = parameters.picture;
        break;
    }
    for (SlideDisc& disc : m_discs) {
        disc.focusOffset_steps += parameters.tiltAcross_steps * (disc.centre.x_px / kFullWidth_px - 0.5) +
                                  parameters.tiltDown_steps * (disc.centre.y_px / kFullHeight_px - 0.5);
    }
}

std::vector<SlidePoint> Slide::targetDots() const
{
    std::vector<SlidePoint> dots;
    if (m_kind == SlideKind::Target)
        for (const SlideDisc& disc : m_discs)
            dots.push_back(disc.centre);
    return dots;
}

double Slide::targetDistance_px() const
{
    const std::vector<SlidePoint> dots = targetDots();
    if (dots.size() != 2)
        return 0.0;
    return std::hypot(dots[1].x_px - dots[0].x_px, dots[1].y_px - dots[0].y_px);
}

std::optional<SlideKind> slideKindNamed(const std::string& name)
{
    if (name == "cells")
        return SlideKind::Cells;
    if (name == "target")
        return SlideKind::Target;
    if (name == "empty")
        return SlideKind::Empty;
    return std::nullopt;
}
