#pragma once

#include <array>
#include <cstdint>
#include <vector>

/// A disc as one picture shows it: in picture pixels, with the blur it has there.
struct BlurredDisc
{
    double x_px;
    double y_px;
    double radius_px;
    /// Sigma of the Gaussian that blurs the edge; above 0.
    double sigma_px;
    /// Part of the light taken away at the middle of the sharp disc, 0..1.
    double absorption;
};

/// How much smaller than the picture a plane may be whose sharpest edge has this blur, without
/// the interpolation being seen: 1, 2, 4 or 8. Any thread.
int reductionFor(double sigma_px);

/// Paints blurred discs into rows of absorption, 8 bits a pixel: 0 clear, 255 opaque.
/// Overlapping discs add up. Where every disc is strongly blurred, the plane is painted at
/// 1/2, 1/4 or 1/8 of the size and interpolated, which the eye and the focus measure cannot
/// tell from the full one. Works strip by strip in a few hundred kilobytes, so that no plane
/// of the whole picture is needed and each strip stays in the cache. One thread at a time.
class BlurredDiscs
{
public:
    static constexpr int kStripRows = 32;

    /// Takes the discs of one picture of that width, a multiple of 8.
    void prepare(const std::vector<BlurredDisc>& discs, int width_px);
    /// Paints the rows firstRow..firstRow + kStripRows - 1; firstRow is a multiple of
    /// kStripRows. Row r of the strip is found by row(r) until the next call.
    void paintStrip(int firstRow);
    /// Row r of the strip painted last: width_px bytes.
    const std::uint8_t* row(int r);

private:
    static constexpr int kProfileSize = 512;

    /// A disc in the reduced plane, with its absorption by the square of the distance.
    struct Painted
    {
        float x;
        float y;
        float reach;
        float indexPerSquare;
        std::array<std::uint8_t, kProfileSize + 1> profile;
    };

    static Painted painted(const BlurredDisc& disc, int reduction);
    void paint(const Painted& disc, int firstPlaneRow, int planeRows);

    int m_width_px = 0;
    int m_reduction = 1;
    int m_planeWidth = 0;
    std::vector<Painted> m_discs;
    /// Absorption of the strip in the reduced plane, m_planeWidth bytes a row.
    std::vector<std::uint8_t> m_plane;
    /// Two plane rows mixed, and the row that row() hands out.
    std::vector<std::uint16_t> m_mixed;
    std::vector<std::uint8_t> m_row;
};
