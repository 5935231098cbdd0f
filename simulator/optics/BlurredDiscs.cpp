#include "simulator/optics/BlurredDiscs.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr int kLargestReduction = 8;
// A Gaussian is safely sampled once a sigma. With twice as many samples the interpolation
// between them cannot be seen either.
constexpr double kSamplesPerSigma = 2.5;
// Beyond so many sigmas an opaque disc's edge adds less than half a level of 255.
constexpr double kReach_sigmas = 2.9;

// The normal distribution's integral, from a table: it is asked for some hundred thousand
// times a picture, and a thousandth is less than a level.
class NormalIntegral
{
public:
    NormalIntegral()
    {
        for (int i = 0; i <= kSteps; ++i) {
            // An entry holds the value at the middle of its step, so that a look-up need not round.
            const double x = -kLimit + (i + 0.5) / kStepsPerUnit;
            m_values[static_cast<std::size_t>(i)] = static_cast<float>(0.5 * std::erfc(-x / std::sqrt(2.0)));
        }
    }

    float operator()(float x) const
    {
        const float limit = static_cast<float>(kLimit);
        const float steps = (std::clamp(x, -limit, limit) + limit) * kStepsPerUnit;
        return m_values[static_cast<std::size_t>(steps)];
    }

private:
    static constexpr double kLimit = 4.0;
    static constexpr float kStepsPerUnit = 256.0F;
    static constexpr int kSteps = 2048;
    std::array<float, kSteps + 1> m_values{};
};

double sharpestOf(const std::vector<BlurredDisc>& discs)
{
    double sharpest_px = std::numeric_limits<double>::infinity();
    for (const BlurredDisc& disc : discs)
        sharpest_px = std::min(sharpest_px, disc.sigma_px);
    return sharpest_px;
}

// Mixes two rows by their nearness: Reduction times the value between them.
void mixRows(const std::uint8_t* upper, const std::uint8_t* lower, int lowerWeight, int reduction, int count,
             std::uint16_t* mixed)
{
    const auto weight = static_cast<std::uint16_t>(lowerWeight);
    const auto rest = static_cast<std::uint16_t>(reduction - lowerWeight);
    for (int x = 0; x < count; ++x)
        mixed[x] = static_cast<std::uint16_t>(upper[x] * rest + lower[x] * weight);
}

template <int Reduction>
void stretchRow(const std::uint16_t* mixed, int width, std::uint8_t* row)
{
    constexpr int kScale = Reduction * Reduction;
    const int whole = width / Reduction;
    for (int x = 0; x < whole; ++x) {
        const int left = mixed[x];
        const int right = mixed[x + 1];
        for (int k = 0; k < Reduction; ++k) {
            row[x * Reduction + k] =
                static_cast<std::uint8_t>((left * (Reduction - k) + right * k + kScale / 2) / kScale);
        }
    }
}

} // namespace

int reductionFor(double sigma_px)
{
    int reduction = 1;
    while (reduction < kLargestReduction && 2 * reduction * kSamplesPerSigma <= sigma_px)
        reduction *= 2;
    return reduction;
}

void BlurredDiscs::prepare(const std::vector<BlurredDisc>& discs, int width_px)
{
    m_width_px = width_px;
    m_reduction = reductionFor(sharpestOf(discs));
    // One sample more than the picture needs, for the interpolation beyond the last one.
    m_planeWidth = m_reduction == 1 ? width_px : width_px / m_reduction + 1;
    m_discs.clear();
    for (const BlurredDisc& disc : discs)
        m_discs.push_back(painted(disc, m_reduction));
    m_plane.resize(static_cast<std::size_t>(m_planeWidth) * (kStripRows + 1));
    m_mixed.resize(static_cast<std::size_t>(m_planeWidth));
    m_row.resize(static_cast<std::size_t>(width_px));
}

// Across its edge a blurred disc falls off as the normal integral does; a disc smaller than
// the blur also loses height, exactly 1 - exp(-r^2 / 2 sigma^2) of it remains in the middle.
BlurredDiscs::Painted BlurredDiscs::painted(const BlurredDisc& disc, int reduction)
{
    static const NormalIntegral normal;
    Painted result{};
    const double reach_px = disc.radius_px + kReach_sigmas * disc.sigma_px;
    result.x = static_cast<float>(disc.x_px / reduction);
    result.y = static_cast<float>(disc.y_px / reduction);
    result.reach = static_cast<float>(reach_px / reduction);
    result.indexPerSquare = static_cast<float>(kProfileSize) / (result.reach * result.reach);

    const auto radius = static_cast<float>(disc.radius_px / disc.sigma_px);
    const double middle = 1.0 - std::exp(-0.5 * static_cast<double>(radius) * static_cast<double>(radius));
    const double slabMiddle = std::erf(static_cast<double>(radius) / std::sqrt(2.0));
    const auto height = static_cast<float>(255.0 * disc.absorption * middle / slabMiddle);
    for (int i = 0; i < kProfileSize; ++i) {
        const auto square = (static_cast<float>(i) + 0.5F) / static_cast<float>(kProfileSize);
        const float distance = std::sqrt(square) * static_cast<float>(reach_px / disc.sigma_px);
        const float part = normal(radius - distance) + normal(radius + distance) - 1.0F;
        result.profile[static_cast<std::size_t>(i)] =
            static_cast<std::uint8_t>(std::clamp(height * part + 0.5F, 0.0F, 255.0F));
    }
    return result;
}

void BlurredDiscs::paintStrip(int firstRow)
{
    const int firstPlaneRow = firstRow / m_reduction;
    const int planeRows = kStripRows / m_reduction + (m_reduction == 1 ? 0 : 1);
    std::fill_n(m_plane.begin(), static_cast<std::ptrdiff_t>(m_planeWidth) * planeRows, std::uint8_t{0});
    for (const Painted& disc : m_discs) {
        const auto firstY = static_cast<float>(firstPlaneRow);
        if (disc.y + disc.reach >= firstY && disc.y - disc.reach <= firstY + static_cast<float>(planeRows))
            paint(disc, firstPlaneRow, planeRows);
    }
}

void BlurredDiscs::paint(const Painted& disc, int firstPlaneRow, int planeRows)
{
    const float reachSquare = disc.reach * disc.reach;
    for (int r = 0; r < planeRows; ++r) {
        const float dy = static_cast<float>(firstPlaneRow + r) - disc.y;
        const float halfSquare = reachSquare - dy * dy;
        if (halfSquare <= 0.0F)
            continue;
        const float half = std::sqrt(halfSquare);
        const int left = std::max(0, static_cast<int>(std::ceil(disc.x - half)));
        const int right = std::min(m_planeWidth - 1, static_cast<int>(std::floor(disc.x + half)));
        std::uint8_t* row = m_plane.data() + static_cast<std::ptrdiff_t>(r) * m_planeWidth;
        const float base = dy * dy * disc.indexPerSquare;
        for (int x = left; x <= right; ++x) {
            const float dx = static_cast<float>(x) - disc.x;
            // The last entry, always 0, catches what rounding puts on the very edge.
            const auto index = static_cast<std::size_t>(
                std::min(static_cast<int>(dx * dx * disc.indexPerSquare + base), kProfileSize));
            row[x] = static_cast<std::uint8_t>(std::min(row[x] + disc.profile[index], 255));
        }
    }
}

const std::uint8_t* BlurredDiscs::row(int r)
{
    if (m_reduction == 1)
        return m_plane.data() + static_cast<std::ptrdiff_t>(r) * m_planeWidth;
    const std::uint8_t* upper = m_plane.data() + static_cast<std::ptrdiff_t>(r / m_reduction) * m_planeWidth;
    mixRows(upper, upper + m_planeWidth, r % m_reduction, m_reduction, m_planeWidth, m_mixed.data());
    switch (m_reduction) {
    case 2:
        stretchRow<2>(m_mixed.data(), m_width_px, m_row.data());
        break;
    case 4:
        stretchRow<4>(m_mixed.data(), m_width_px, m_row.data());
        break;
    default:
        stretchRow<8>(m_mixed.data(), m_width_px, m_row.data());
        break;
    }
    return m_row.data();
}
