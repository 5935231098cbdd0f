#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "simulator/optics/BlurredDiscs.h"
#include "simulator/optics/BlurredPicture.h"
#include "simulator/optics/LightPath.h"
#include "simulator/optics/PictureMode.h"
#include "simulator/optics/SensorSettings.h"
#include "simulator/optics/Slide.h"

/// Focus, light and noise.
struct OpticsParameters
{
    std::uint32_t seed = 1;
    /// Stage position of the best focus; from the seed where it is not given: 200 to 2000
    /// steps to either side of 32000.
    std::optional<double> bestFocus_steps;
    /// Blur of a disc's edge at best focus, as the sigma of a Gaussian in full-frame pixels.
    double sharpestBlur_px = 1.5;
    /// Blur that each step away from the focus adds (in quadrature), and its limit.
    double blurPerStep_px = 0.0045;
    double largestBlur_px = 45.0;
    /// Red, green and blue level 0..255 of the clear field at the nominal light: this LED
    /// level, exposure, gain 1 and colour gains 1.
    double fieldLevel = 205.0;
    double nominalLedLevel = 225.0;
    double nominalExposure_lines = 768.0;
    /// Level that the sensor shows without light.
    double darkLevel = 2.0;
    /// Standard deviation of the luma noise in levels at gain 1; grows with the gain's root.
    double noise_levels = 1.0;
};

/// Everything that decides what a picture looks like.
struct PictureInputs
{
    LightPath light;
    SensorSettings sensor;

    bool operator==(const PictureInputs& other) const
    {
        return light == other.light && sensor == other.sensor;
    }
    bool operator!=(const PictureInputs& other) const { return !(*this == other); }
};

/// Draws what the sensor sees of a slide. Time and devices are unknown here: the same
/// inputs and noise number give the same picture. One thread at a time.
class Optics
{
public:
    Optics(const OpticsParameters& parameters, const Slide& slide);

    /// Draws one frame: packed YUYV (BT.601, luma 16..235), mode.height_px rows of
    /// mode.width_px * 2 bytes without padding. noiseNumber chooses the noise.
    void draw(const PictureMode& mode, const PictureInputs& inputs, std::uint64_t noiseNumber,
              std::uint8_t* yuyv);

    /// True stage position of the slide's best focus in steps.
    double bestFocus_steps() const { return m_bestFocus_steps; }
    /// True red, green and blue, 0..255, of a place that takes away the given part (0..1)
    /// of the light, before noise. Absorption 0 is the clear field.
    std::array<double, 3> colour(const PictureInputs& inputs, double absorption) const;
    /// True blur of a disc, sigma in full-frame pixels, with the stage at a position.
    double blur_px(double stagePosition_steps, const SlideDisc& disc) const;
    const Slide& slide() const { return m_slide; }
    /// Puts another slide under the objective; the next draw() shows it.
    void setSlide(const Slide& slide) { m_slide = slide; }

private:
    struct ToneTables;
    struct PictureTones;

    void drawDiscs(const PictureMode& mode, const PictureInputs& inputs, std::uint64_t noiseSeed,
                   std::uint8_t* yuyv);
    void drawPicture(const PictureMode& mode, const PictureInputs& inputs, std::uint64_t noiseSeed,
                     std::uint8_t* yuyv);
    double level(const PictureInputs& inputs, std::size_t channel, double passed) const;
    const std::uint32_t* noiseOfRow(std::uint64_t noiseSeed, int y) const;
    ToneTables toneTables(const PictureInputs& inputs) const;
    PictureTones pictureTones(const PictureInputs& inputs) const;
    void scaleNoise(double gain);

    OpticsParameters m_parameters;
    Slide m_slide;
    double m_bestFocus_steps;
    BlurredDiscs m_painter;
    BlurredPicture m_blurredPicture;
    /// Noise of two neighbouring pixels per word: unit (thousandths) and as last scaled.
    std::vector<std::int16_t> m_unitNoise;
    std::vector<std::uint32_t> m_noiseWords;
    double m_scaledNoise_levels = -1.0;
};
