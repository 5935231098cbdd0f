#include "simulator/optics/Optics.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

namespace {

constexpr double kNearFocus_steps = 32000.0;
constexpr double kFocusSpreadLow_steps = 200.0;
constexpr double kFocusSpreadHigh_steps = 2000.0;
// A pixel averages over its own width, which blurs by a twelfth of a pixel squared.
constexpr double kPixelVariance_px2 = 1.0 / 12.0;

constexpr int kLumaBlack = 16;
constexpr int kChromaZero = 128;
// The noise of a byte is limited, so that luma without its 16 and noise with it added can
// be summed a word at a time: neither 0 nor 255 is ever crossed.
constexpr int kNoiseLimit = 16;
static_assert(kNoiseLimit == kLumaBlack, "noise is added in place of the luma's offset");
// Rows start at any word of the tile; the tail is as long as half the widest row.
constexpr std::size_t kNoiseTileWords = 1U << 15U;
constexpr std::size_t kNoiseTailWords = kFullWidth_px / 2;
constexpr double kUnitNoise = 1000.0;

constexpr std::size_t kRed = 0;
constexpr std::size_t kGreen = 1;
constexpr std::size_t kBlue = 2;

double focusFromSeed(std::uint32_t seed)
{
    std::mt19937 engine(seed);
    const double distance =
        kFocusSpreadLow_steps + (kFocusSpreadHigh_steps - kFocusSpreadLow_steps) * (engine() / 4294967296.0);
    return kNearFocus_steps + ((engine() & 1U) != 0 ? distance : -distance);
}

// A well-mixed number from a counter (the finaliser of splitmix64).
std::uint64_t mixed(std::uint64_t counter)
{
    std::uint64_t value = counter * 0x9E3779B97F4A7C15ULL;
    value = (value ^ (value >> 30U)) * 0xBF58476D1CE4E5B9ULL;
    value = (value ^ (value >> 27U)) * 0x94D049BB133111EBULL;
    return value ^ (value >> 31U);
}

struct Yuv
{
    int luma;
    int chromaBlue;
    int chromaRed;
};

// BT.601, limited range: what red, green and blue add.
constexpr std::array<double, 3> kToLuma{0.257, 0.504, 0.098};
constexpr std::array<double, 3> kToChromaBlue{-0.148, -0.291, 0.439};
constexpr std::array<double, 3> kToChromaRed{0.439, -0.368, -0.071};

double weighed(const std::array<double, 3>& weights, const std::array<double, 3>& rgb)
{
    return weights[kRed] * rgb[kRed] + weights[kGreen] * rgb[kGreen] + weights[kBlue] * rgb[kBlue];
}

Yuv yuvOf(const std::array<double, 3>& rgb)
{
    const double luma = weighed(kToLuma, rgb);
    const double blue = weighed(kToChromaBlue, rgb);
    const double red = weighed(kToChromaRed, rgb);
    return {static_cast<int>(std::lround(luma)), kChromaZero + static_cast<int>(std::lround(blue)),
            kChromaZero + static_cast<int>(std::lround(red))};
}

std::uint32_t wordOf(int byte0, int byte1, int byte2, int byte3)
{
    const std::array<std::uint8_t, 4> bytes{
        static_cast<std::uint8_t>(byte0), static_cast<std::uint8_t>(byte1), static_cast<std::uint8_t>(byte2),
        static_cast<std::uint8_t>(byte3)};
    std::uint32_t word = 0;
    std::memcpy(&word, bytes.data(), sizeof word);
    return word;
}

using ToneTable = std::array<std::uint32_t, 256>;

void developRow(const std::uint8_t* absorption, const std::uint32_t* noise, std::size_t pairs,
                const ToneTable& left, const ToneTable& right, std::uint8_t* yuyv)
{
    for (std::size_t i = 0; i < pairs; ++i) {
        const std::uint32_t word = left[absorption[2 * i]] + right[absorption[2 * i + 1]] + noise[i];
        std::memcpy(yuyv + 4 * i, &word, sizeof word);
    }
}

// Whole numbers count so many parts of a level.
constexpr int kPartsOfALevel = 256;

using PartTable = std::array<std::array<std::int32_t, 256>, 3>;

std::int32_t partsOf(const PartTable& table, const std::uint8_t* rgb)
{
    return table[kRed][rgb[kRed]] + table[kGreen][rgb[kGreen]] + table[kBlue][rgb[kBlue]];
}

std::int32_t levelOf(std::int32_t parts)
{
    return (parts + kPartsOfALevel / 2) / kPartsOfALevel;
}

} // namespace

// What each value of a picture's red, green and blue adds to luma (without its offset) and
// chroma, in parts of a level.
struct Optics::PictureTones
{
    PartTable luma;
    PartTable chromaBlue;
    PartTable chromaRed;
};

// What a pixel of each absorption adds to the word Y0 U Y1 V of its pair, as the left and as
// the right pixel: its own luma, and half of the pair's chroma.
struct Optics::ToneTables
{
    ToneTable left;
    ToneTable right;
};

Optics::Optics(const OpticsParameters& parameters, const Slide& slide)
    : m_parameters(parameters),
      m_slide(slide),
      m_bestFocus_steps(parameters.bestFocus_steps.value_or(focusFromSeed(parameters.seed)))
{
    std::mt19937 engine(parameters.seed);
    std::normal_distribution<double> normal(0.0, kUnitNoise);
    m_unitNoise.resize(2 * (kNoiseTileWords + kNoiseTailWords));
    for (std::int16_t& value : m_unitNoise)
        value = static_cast<std::int16_t>(normal(engine));
    m_noiseWords.resize(m_unitNoise.size() / 2);
}

double Optics::blur_px(double stagePosition_steps, const SlideDisc& disc) const
{
    const double distance_steps = stagePosition_steps - m_bestFocus_steps - disc.focusOffset_steps;
    const double blur =
        std::hypot(m_parameters.sharpestBlur_px, m_parameters.blurPerStep_px * distance_steps);
    return std::min(blur, m_parameters.largestBlur_px);
}

// Level 0..255 of a colour where this part of its light passes.
double Optics::level(const PictureInputs& inputs, std::size_t channel, double passed) const
{
    const double led = inputs.light.ledOn ? inputs.light.ledLevel / m_parameters.nominalLedLevel : 0.0;
    const double light =
        led * inputs.sensor.gain * inputs.sensor.exposure_lines / m_parameters.nominalExposure_lines;
    const double lit = (m_parameters.fieldLevel - m_parameters.darkLevel) * light *
                       inputs.sensor.colourGains[channel] * passed;
    return std::clamp(m_parameters.darkLevel + lit, 0.0, 255.0);
}

std::array<double, 3> Optics::colour(const PictureInputs& inputs, double absorption) const
{
    std::array<double, 3> rgb{};
    for (std::size_t channel = 0; channel < rgb.size(); ++channel)
        rgb[channel] = level(inputs, channel, 1.0 - absorption * m_slide.stainColour()[channel]);
    return rgb;
}

void Optics::draw(const PictureMode& mode, const PictureInputs& inputs, std::uint64_t noiseNumber,
                  std::uint8_t* yuyv)
{
    scaleNoise(inputs.sensor.gain);
    const std::uint64_t noiseSeed = mixed(noiseNumber + (std::uint64_t{m_parameters.seed} << 32U));
    if (m_slide.picture() != nullptr)
        drawPicture(mode, inputs, noiseSeed, yuyv);
    else
        drawDiscs(mode, inputs, noiseSeed, yuyv);
}

const std::uint32_t* Optics::noiseOfRow(std::uint64_t noiseSeed, int y) const
{
    return m_noiseWords.data() + mixed(noiseSeed + static_cast<std::uint64_t>(y)) % kNoiseTileWords;
}

void Optics::drawDiscs(const PictureMode& mode, const PictureInputs& inputs, std::uint64_t noiseSeed,
                       std::uint8_t* yuyv)
{
    const double stage_steps = inputs.light.stagePosition_steps;
    std::vector<BlurredDisc> discs;
    for (const SlideDisc& disc : m_slide.discs()) {
        const double blur = blur_px(stage_steps, disc) / mode.scale;
        discs.push_back({(disc.centre.x_px + 0.5 - mode.left_px) / mode.scale - 0.5,
                         (disc.centre.y_px + 0.5 - mode.top_px) / mode.scale - 0.5,
                         disc.radius_px / mode.scale, std::sqrt(blur * blur + kPixelVariance_px2),
                         disc.absorption});
    }
    m_painter.prepare(discs, mode.width_px);
    const ToneTables tones = toneTables(inputs);
    const std::size_t pairs = static_cast<std::size_t>(mode.width_px) / 2;
    for (int y = 0; y < mode.height_px; ++y) {
        const int stripRow = y % BlurredDiscs::kStripRows;
        if (stripRow == 0)
            m_painter.paintStrip(y);
        developRow(m_painter.row(stripRow), noiseOfRow(noiseSeed, y), pairs, tones.left, tones.right,
                   yuyv + static_cast<std::size_t>(y) * pairs * sizeof(std::uint32_t));
    }
}

void Optics::drawPicture(const PictureMode& mode, const PictureInputs& inputs, std::uint64_t noiseSeed,
                         std::uint8_t* yuyv)
{
    m_blurredPicture.prepare(*m_slide.picture(), mode, blur_px(inputs.light.stagePosition_steps, {}));
    const PictureTones tones = pictureTones(inputs);
    const std::size_t pairs = static_cast<std::size_t>(mode.width_px) / 2;
    for (int y = 0; y < mode.height_px; ++y) {
        const std::uint8_t* left = m_blurredPicture.row(y);
        const std::uint32_t* noise = noiseOfRow(noiseSeed, y);
        for (std::size_t i = 0; i < pairs; ++i, left += 6, yuyv += sizeof(std::uint32_t)) {
            const std::uint8_t* right = left + 3;
            const int blue = (partsOf(tones.chromaBlue, left) + partsOf(tones.chromaBlue, right)) / 2;
            const int red = (partsOf(tones.chromaRed, left) + partsOf(tones.chromaRed, right)) / 2;
            const std::uint32_t word =
                wordOf(levelOf(partsOf(tones.luma, left)), levelOf(kChromaZero * kPartsOfALevel + blue),
                       levelOf(partsOf(tones.luma, right)), levelOf(kChromaZero * kPartsOfALevel + red)) +
                noise[i];
            std::memcpy(yuyv, &word, sizeof word);
        }
    }
}

Optics::PictureTones Optics::pictureTones(const PictureInputs& inputs) const
{
    PictureTones tones{};
    for (std::size_t channel = 0; channel < 3; ++channel) {
        for (std::size_t value = 0; value < 256; ++value) {
            const double parts = level(inputs, channel, static_cast<double>(value) / 255.0) * kPartsOfALevel;
            tones.luma[channel][value] = static_cast<std::int32_t>(std::lround(kToLuma[channel] * parts));
            tones.chromaBlue[channel][value] =
                static_cast<std::int32_t>(std::lround(kToChromaBlue[channel] * parts));
            tones.chromaRed[channel][value] =
                static_cast<std::int32_t>(std::lround(kToChromaRed[channel] * parts));
        }
    }
    return tones;
}

Optics::ToneTables Optics::toneTables(const PictureInputs& inputs) const
{
    ToneTables tables{};
    for (std::size_t level = 0; level < tables.left.size(); ++level) {
        const Yuv yuv = yuvOf(colour(inputs, static_cast<double>(level) / 255.0));
        tables.left[level] = wordOf(yuv.luma, (yuv.chromaBlue + 1) / 2, 0, (yuv.chromaRed + 1) / 2);
        tables.right[level] = wordOf(0, yuv.chromaBlue / 2, yuv.luma, yuv.chromaRed / 2);
    }
    return tables;
}

void Optics::scaleNoise(double gain)
{
    const double levels = m_parameters.noise_levels * std::sqrt(gain);
    if (levels == m_scaledNoise_levels)
        return;
    m_scaledNoise_levels = levels;
    const auto scaled = [levels](std::int16_t unit) {
        const long noise = std::lround(unit / kUnitNoise * levels);
        return kNoiseLimit + static_cast<int>(std::clamp(noise, static_cast<long>(-kNoiseLimit),
                                                         static_cast<long>(kNoiseLimit)));
    };
    const std::int16_t* unit = m_unitNoise.data();
    for (std::uint32_t& word : m_noiseWords) {
        word = wordOf(scaled(unit[0]), 0, scaled(unit[1]), 0);
        unit += 2;
    }
}
