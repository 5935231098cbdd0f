#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// Size of the sensor's full frame, in whose pixels every place on a slide is given.
/// The centre of pixel (column, row) is at x = column, y = row.
inline constexpr int kFullWidth_px = 2592;
inline constexpr int kFullHeight_px = 1944;

/// A place on the slide in pixels of the full frame.
struct SlidePoint
{
    double x_px = 0.0;
    double y_px = 0.0;
};

/// One absorbing disc on the slide.
struct SlideDisc
{
    SlidePoint centre;
    double radius_px = 0.0;
    /// Part of the light that the disc takes away, 0 (clear) .. 1 (opaque), before the
    /// stain's colour is counted in.
    double absorption = 0.0;
    /// Where the disc is in focus, relative to the slide's best focus.
    double focusOffset_steps = 0.0;
};

class SlidePicture;

/// What a slide carries: stained cells, the two dots of the calibration target, nothing, or
/// what a picture shows.
enum class SlideKind { Cells, Target, Empty, Picture };

/// What is on a slide, and how it lies.
struct SlideParameters
{
    SlideKind kind = SlideKind::Cells;
    /// What a slide of the kind Picture shows; the seed and all below are for the other kinds.
    std::shared_ptr<const SlidePicture> picture;
    std::uint32_t seed = 1;
    /// Cells in the whole field, denser towards its middle; about half of them lie in the
    /// central quarter, which is what the 640 x 480 picture shows.
    int cellCount = 420;
    double smallestCellRadius_px = 13.0;
    double largestCellRadius_px = 34.0;
    /// Places of the target's two dots; from the seed where they are not given.
    std::optional<std::array<SlidePoint, 2>> targetDots;
    double targetDotRadius_px = 9.0;
    /// How much the focus differs between the left and the right edge of the field, and
    /// between the upper and the lower one.
    double tiltAcross_steps = 0.0;
    double tiltDown_steps = 0.0;
    /// A layer of dust whose own focus lies this far from the slide's: a second, false
    /// focus peak. None at 0.
    double dustOffset_steps = 0.0;
    int dustCount = 130;
};

/// What lies under the microscope: a seeded scene of discs that do not overlap, or a picture.
/// Never changes but by assignment; any thread.
class Slide
{
public:
    explicit Slide(const SlideParameters& parameters = {});

    SlideKind kind() const { return m_kind; }
    const std::vector<SlideDisc>& discs() const { return m_discs; }
    /// The picture that is shown instead of discs; null on a slide of another kind.
    const SlidePicture* picture() const { return m_picture.get(); }
    /// How much of a disc's absorption red, green and blue light get, 0..1.
    const std::array<double, 3>& stainColour() const { return m_stainColour; }
    /// The target's dots; none on any other slide.
    std::vector<SlidePoint> targetDots() const;
    /// True distance of the target's dots in pixels of the full frame; 0 on any other slide.
    double targetDistance_px() const;

private:
    SlideKind m_kind;
    std::array<double, 3> m_stainColour;
    std::vector<SlideDisc> m_discs;
    std::shared_ptr<const SlidePicture> m_picture;
};

/// The kind named "cells", "target" or "empty"; nothing for any other name.
std::optional<SlideKind> slideKindNamed(const std::string& name);
