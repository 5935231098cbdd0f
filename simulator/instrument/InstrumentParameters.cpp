#include "simulator/instrument/InstrumentParameters.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <sstream>

namespace {

constexpr double kAnySteps = 1e6;
constexpr double kAnyPlace_px = 2592;

/// Texts for values that are not numbers.
constexpr const char* kFromSeed = "from the seed";
constexpr const char* kOn = "on";
constexpr const char* kOff = "off";

std::vector<InstrumentParameter> boardParameters(BoardParameters& board)
{
    StageParameters& stage = board.stage;
    return {
        {"stage-minimum", "steps", "lower end of the stage's travel", -kAnySteps, 0, &stage.minimum_steps},
        {"stage-maximum", "steps", "upper end of the stage's travel", 1, kAnySteps, &stage.maximum_steps},
        {"stage-start", "steps", "where the stage stands at power-on", -kAnySteps, kAnySteps,
         &stage.start_steps},
        {"stage-acceleration", "steps/s^2", "of moves, accelerating and braking", 1, 1e9,
         &stage.acceleration_stepsPerS2},
        {"stage-speed", "steps/s", "highest speed of moves and homing", 1, 1e9,
         &stage.maximumSpeed_stepsPerS},
        {"stage-run-speed", "steps/s", "speed of continuous motion for each unit of the run value", 0.01, 1e6,
         &stage.runValueSpeed_stepsPerS},
        {"stage-backlash", "steps", "play between motor and carriage", 0, 1000, &stage.backlash_steps},
        {"stage-vibration", "steps", "how far the carriage rings when a motion ends", 0, 1000,
         &stage.vibrationAmplitude_steps},
        {"stage-vibration-frequency", "Hz", "of that ringing", 0.1, 10000, &stage.vibrationFrequency_hz},
        {"stage-vibration-decay", "s", "time in which it falls to 1/e", 0.001, 60, &stage.vibrationDecay_s},
        {"led-on", "", "whether the LED shines at power-on", 0, 0, &board.ledOn},
        {"led-level", "", "its level at power-on", 0, 1000, &board.ledLevel},
        {"diagnosis-duration", "s", "of the stage's self-diagnosis", 0, 600, &board.diagnosisDuration_s},
        {"diagnosis-value", "", "its result", -kAnySteps, kAnySteps, &board.diagnosisValue},
        {"firmware-version", "", "as the board tells it", 0, 0, &board.firmwareVersion},
        {"firmware-build", "", "as the board tells it", 0, 0, &board.firmwareBuild},
        {"late-answer", "s", "delay of the fault \"late\"", 0, 600, &board.lateAnswer_s},
        {"trickled-byte", "s", "pause between bytes of the fault \"trickled\"", 0, 60, &board.trickledByte_s},
    };
}

std::vector<InstrumentParameter> slideParameters(SlideParameters& slide)
{
    return {
        {"cells", "", "cells on the slide", 0, 2000, &slide.cellCount},
        {"smallest-cell", "px", "radius of the smallest cell, in the 5-megapixel picture", 1, 500,
         &slide.smallestCellRadius_px},
        {"largest-cell", "px", "radius of the largest cell", 1, 500, &slide.largestCellRadius_px},
        {"target-dots", "px", "places of the target's dots in the 5-megapixel picture, as x1,y1,x2,y2", 0,
         kAnyPlace_px, &slide.targetDots},
        {"target-radius", "px", "radius of the target's dots", 1, 500, &slide.targetDotRadius_px},
        {"tilt-across", "steps", "how much the focus differs between left and right edge", -kAnySteps,
         kAnySteps, &slide.tiltAcross_steps},
        {"tilt-down", "steps", "how much it differs between upper and lower edge", -kAnySteps, kAnySteps,
         &slide.tiltDown_steps},
        {"dust-offset", "steps", "distance of a layer of dust, with a focus of its own; 0: no dust",
         -kAnySteps, kAnySteps, &slide.dustOffset_steps},
        {"dust", "", "grains in it", 0, 2000, &slide.dustCount},
    };
}

std::vector<InstrumentParameter> cameraParameters(InstrumentParameters& all)
{
    OpticsParameters& optics = all.camera.optics;
    CaptureParameters& capture = all.camera.capture;
    return {
        {"best-focus", "steps", "stage position of the sharpest picture", -kAnySteps, kAnySteps,
         &optics.bestFocus_steps},
        {"sharpest-blur", "px", "blur of an edge at best focus (sigma)", 0.1, 100, &optics.sharpestBlur_px},
        {"blur-per-step", "px", "blur that each step away from it adds", 0, 10, &optics.blurPerStep_px},
        {"largest-blur", "px", "where that ends", 0.1, 1000, &optics.largestBlur_px},
        {"field-level", "", "level 0..255 of the clear field at nominal light", 0, 255, &optics.fieldLevel},
        {"nominal-led-level", "", "LED level of the nominal light", 1, 1000, &optics.nominalLedLevel},
        {"nominal-exposure", "lines", "exposure of the nominal light", 1, 4096,
         &optics.nominalExposure_lines},
        {"dark-level", "", "level of the picture without light", 0, 255, &optics.darkLevel},
        {"noise", "", "standard deviation of the noise in levels, at gain 1", 0, 100, &optics.noise_levels},
        {"frame-delay", "frames", "until a change reaches the picture", 0, 100,
         &all.camera.picture.frameDelay_frames},
        {"default-exposure", "lines", "of the sensor after power-on", 1, 4096,
         &all.camera.sensor.defaultExposure_lines},
        {"format-held", "", "whether allocated buffers refuse a change of format", 0, 0,
         &capture.formatHeldByBuffers},
        {"most-columns", "px", "widest picture that the driver grants", 2, 2592, &capture.mostColumns_px},
        {"most-rows", "px", "highest picture that it grants", 1, 1944, &capture.mostRows_px},
        {"row-padding", "bytes", "that it puts behind the pixels of each row", 0, 65536,
         &capture.rowPadding_bytes},
        {"zig-mode", "", "how the main settings file starts; if on, the exit parks nothing", 0, 0,
         &all.zigMode},
    };
}

std::string numberText(double value)
{
    std::ostringstream text;
    text.precision(9);
    text << value;
    return text.str();
}

/// A value as text, by the type that it is kept in.
struct ValueText
{
    std::string operator()(int value) const { return std::to_string(value); }
    std::string operator()(double value) const { return numberText(value); }
    std::string operator()(bool value) const { return value ? kOn : kOff; }
    std::string operator()(const std::string& value) const { return value; }
    std::string operator()(const std::optional<double>& value) const
    {
        return value ? numberText(*value) : kFromSeed;
    }
    std::string operator()(const std::optional<TargetDots>& dots) const
    {
        if (!dots)
            return kFromSeed;
        return numberText((*dots)[0].x_px) + ',' + numberText((*dots)[0].y_px) + ',' +
               numberText((*dots)[1].x_px) + ',' + numberText((*dots)[1].y_px);
    }
};

template <class Number>
bool parseNumber(const std::string& text, const InstrumentParameter& parameter, Number& number)
{
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end && number >= parameter.least && number <= parameter.most;
}

/// Reads a text into a value, by the type that it is kept in; false where it is none.
struct ValueReader
{
    const InstrumentParameter& parameter;
    const std::string& text;

    template <class Number>
    bool readNumber(Number& value) const
    {
        Number read{};
        if (!parseNumber(text, parameter, read))
            return false;
        value = read;
        return true;
    }

    bool operator()(int& value) const { return readNumber(value); }
    bool operator()(double& value) const { return readNumber(value); }
    bool operator()(bool& value) const
    {
        if (text != kOn && text != kOff)
            return false;
        value = text == kOn;
        return true;
    }
    bool operator()(std::string& value) const
    {
        // The protocol's separators would break every answer that contains the text.
        if (text.find_first_of(",$\r\n") != std::string::npos)
            return false;
        value = text;
        return true;
    }
    bool operator()(std::optional<double>& value) const
    {
        double read = 0.0;
        if (!readNumber(read))
            return false;
        value = read;
        return true;
    }
    bool operator()(std::optional<TargetDots>& value) const
    {
        std::vector<double> numbers;
        std::istringstream parts(text);
        for (std::string part; std::getline(parts, part, ',');)
            if (double number = 0.0; parseNumber(part, parameter, number))
                numbers.push_back(number);
            else
                return false;
        if (numbers.size() != 4 || text.back() == ',')
            return false;
        value = TargetDots{{{numbers[0], numbers[1]}, {numbers[2], numbers[3]}}};
        return true;
    }
};

std::string expectation(const InstrumentParameter& parameter)
{
    if (std::holds_alternative<bool*>(parameter.place))
        return "on or off";
    if (std::holds_alternative<std::string*>(parameter.place))
        return "a text without \"$\" and \",\"";
    const std::string range = " from " + numberText(parameter.least) + " to " + numberText(parameter.most);
    if (std::holds_alternative<int*>(parameter.place))
        return "a whole number" + range;
    if (std::holds_alternative<std::optional<TargetDots>*>(parameter.place))
        return "four numbers" + range + ", separated by commas";
    return "a number" + range;
}

} // namespace

void InstrumentParameters::setSeed(std::uint32_t seed)
{
    camera.slide.seed = seed;
    camera.optics.seed = seed;
    faultSeed = seed;
}

std::vector<InstrumentParameter> instrumentParameters(InstrumentParameters& parameters)
{
    std::vector<InstrumentParameter> all = boardParameters(parameters.board);
    for (const auto& group : {slideParameters(parameters.camera.slide), cameraParameters(parameters)})
        all.insert(all.end(), group.begin(), group.end());
    return all;
}

std::string parameterValue(const InstrumentParameter& parameter)
{
    return std::visit([](const auto* value) { return ValueText()(*value); }, parameter.place);
}

std::string setParameter(InstrumentParameters& parameters, const std::string& assignment)
{
    const std::size_t sign = assignment.find('=');
    if (sign == std::string::npos)
        return "A parameter is given as name=value, not as \"" + assignment + "\".";
    const std::string name = assignment.substr(0, sign);
    const std::string value = assignment.substr(sign + 1);
    const std::vector<InstrumentParameter> all = instrumentParameters(parameters);
    const auto parameter = std::find_if(all.begin(), all.end(),
                                        [&](const InstrumentParameter& each) { return name == each.name; });
    if (parameter == all.end())
        return "There is no parameter \"" + name + "\"; --help lists them.";
    const ValueReader reader{*parameter, value};
    if (std::visit([&](auto* place) { return reader(*place); }, parameter->place))
        return {};
    return "Parameter " + name + " takes " + expectation(*parameter) + ", not \"" + value + "\".";
}
