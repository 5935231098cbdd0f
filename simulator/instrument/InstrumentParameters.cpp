#include "simulator/instrument/InstrumentParameters.h"

#include <charconv>
#include <cmath>
#include <sstream>

namespace {

using P = InstrumentParameters;

constexpr double kAnySteps = 1e6;
constexpr double kAnyPlace_px = 2592;

/// Texts for values that are not numbers.
constexpr const char* kFromSeed = "from the seed";
constexpr const char* kOn = "on";
constexpr const char* kOff = "off";

std::vector<InstrumentParameter> boardParameters()
{
    return {
        {"stage-minimum", "steps", "lower end of the stage's travel", -kAnySteps, 0,
         +[](P& p) -> int& { return p.board.stage.minimum_steps; }},
        {"stage-maximum", "steps", "upper end of the stage's travel", 1, kAnySteps,
         +[](P& p) -> int& { return p.board.stage.maximum_steps; }},
        {"stage-start", "steps", "where the stage stands at power-on", -kAnySteps, kAnySteps,
         +[](P& p) -> int& { return p.board.stage.start_steps; }},
        {"stage-acceleration", "steps/s^2", "of moves, accelerating and braking", 1, 1e9,
         +[](P& p) -> double& { return p.board.stage.acceleration_stepsPerS2; }},
        {"stage-speed", "steps/s", "highest speed of moves and homing", 1, 1e9,
         +[](P& p) -> double& { return p.board.stage.maximumSpeed_stepsPerS; }},
        {"stage-run-speed", "steps/s", "speed of continuous motion for each unit of the run value", 0.01, 1e6,
         +[](P& p) -> double& { return p.board.stage.runValueSpeed_stepsPerS; }},
        {"stage-backlash", "steps", "play between motor and carriage", 0, 1000,
         +[](P& p) -> double& { return p.board.stage.backlash_steps; }},
        {"stage-vibration", "steps", "how far the carriage rings when a motion ends", 0, 1000,
         +[](P& p) -> double& { return p.board.stage.vibrationAmplitude_steps; }},
        {"stage-vibration-frequency", "Hz", "of that ringing", 0.1, 10000,
         +[](P& p) -> double& { return p.board.stage.vibrationFrequency_hz; }},
        {"stage-vibration-decay", "s", "time in which it falls to 1/e", 0.001, 60,
         +[](P& p) -> double& { return p.board.stage.vibrationDecay_s; }},
        {"led-on", "", "whether the LED shines at power-on", 0, 0,
         +[](P& p) -> bool& { return p.board.ledOn; }},
        {"led-level", "", "its level at power-on", 0, 1000, +[](P& p) -> int& { return p.board.ledLevel; }},
        {"diagnosis-duration", "s", "of the stage's self-diagnosis", 0, 600,
         +[](P& p) -> double& { return p.board.diagnosisDuration_s; }},
        {"diagnosis-value", "", "its result", -kAnySteps, kAnySteps,
         +[](P& p) -> int& { return p.board.diagnosisValue; }},
        {"firmware-version", "", "as the board tells it", 0, 0,
         +[](P& p) -> std::string& { return p.board.firmwareVersion; }},
        {"firmware-build", "", "as the board tells it", 0, 0,
         +[](P& p) -> std::string& { return p.board.firmwareBuild; }},
        {"late-answer", "s", "delay of the fault \"late\"", 0, 600,
         +[](P& p) -> double& { return p.board.lateAnswer_s; }},
        {"trickled-byte", "s", "pause between bytes of the fault \"trickled\"", 0, 60,
         +[](P& p) -> double& { return p.board.trickledByte_s; }},
    };
}

std::vector<InstrumentParameter> slideParameters()
{
    return {
        {"cells", "", "cells on the slide", 0, 2000, +[](P& p) -> int& { return p.camera.slide.cellCount; }},
        {"smallest-cell", "px", "radius of the smallest cell, in the 5-megapixel picture", 1, 500,
         +[](P& p) -> double& { return p.camera.slide.smallestCellRadius_px; }},
        {"largest-cell", "px", "radius of the largest cell", 1, 500,
         +[](P& p) -> double& { return p.camera.slide.largestCellRadius_px; }},
        {"target-dots", "px", "places of the target's dots in the 5-megapixel picture, as x1,y1,x2,y2", 0,
         kAnyPlace_px, +[](P& p) -> std::optional<TargetDots>& { return p.camera.slide.targetDots; }},
        {"target-radius", "px", "radius of the target's dots", 1, 500,
         +[](P& p) -> double& { return p.camera.slide.targetDotRadius_px; }},
        {"tilt-across", "steps", "how much the focus differs between left and right edge", -kAnySteps,
         kAnySteps, +[](P& p) -> double& { return p.camera.slide.tiltAcross_steps; }},
        {"tilt-down", "steps", "how much it differs between upper and lower edge", -kAnySteps, kAnySteps,
         +[](P& p) -> double& { return p.camera.slide.tiltDown_steps; }},
        {"dust-offset", "steps", "distance of a layer of dust, with a focus of its own; 0: no dust",
         -kAnySteps, kAnySteps, +[](P& p) -> double& { return p.camera.slide.dustOffset_steps; }},
        {"dust", "", "grains in it", 0, 2000, +[](P& p) -> int& { return p.camera.slide.dustCount; }},
    };
}

std::vector<InstrumentParameter> cameraParameters()
{
    return {
        {"best-focus", "steps", "stage position of the sharpest picture", -kAnySteps, kAnySteps,
         +[](P& p) -> std::optional<double>& { return p.camera.optics.bestFocus_steps; }},
        {"sharpest-blur", "px", "blur of an edge at best focus (sigma)", 0.1, 100,
         +[](P& p) -> double& { return p.camera.optics.sharpestBlur_px; }},
        {"blur-per-step", "px", "blur that each step away from it adds", 0, 10,
         +[](P& p) -> double& { return p.camera.optics.blurPerStep_px; }},
        {"largest-blur", "px", "where that ends", 0.1, 1000,
         +[](P& p) -> double& { return p.camera.optics.largestBlur_px; }},
        {"field-level", "", "level 0..255 of the clear field at nominal light", 0, 255,
         +[](P& p) -> double& { return p.camera.optics.fieldLevel; }},
        {"nominal-led-level", "", "LED level of the nominal light", 1, 1000,
         +[](P& p) -> double& { return p.camera.optics.nominalLedLevel; }},
        {"nominal-exposure", "lines", "exposure of the nominal light", 1, 4096,
         +[](P& p) -> double& { return p.camera.optics.nominalExposure_lines; }},
        {"dark-level", "", "level of the picture without light", 0, 255,
         +[](P& p) -> double& { return p.camera.optics.darkLevel; }},
        {"noise", "", "standard deviation of the noise in levels, at gain 1", 0, 100,
         +[](P& p) -> double& { return p.camera.optics.noise_levels; }},
        {"frame-delay", "frames", "until a change reaches the picture", 0, 100,
         +[](P& p) -> int& { return p.camera.picture.frameDelay_frames; }},
        {"default-exposure", "lines", "of the sensor after power-on", 1, 4096,
         +[](P& p) -> int& { return p.camera.sensor.defaultExposure_lines; }},
        {"format-held", "", "whether allocated buffers refuse a change of format", 0, 0,
         +[](P& p) -> bool& { return p.camera.capture.formatHeldByBuffers; }},
        {"most-columns", "px", "widest picture that the driver grants", 2, 2592,
         +[](P& p) -> int& { return p.camera.capture.mostColumns_px; }},
        {"most-rows", "px", "highest picture that it grants", 1, 1944,
         +[](P& p) -> int& { return p.camera.capture.mostRows_px; }},
        {"row-padding", "bytes", "that it puts behind the pixels of each row", 0, 65536,
         +[](P& p) -> int& { return p.camera.capture.rowPadding_bytes; }},
        {"zig-mode", "", "how the main settings file starts; if on, the exit parks nothing", 0, 0,
         +[](P& p) -> bool& { return p.zigMode; }},
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

const InstrumentParameter* parameterNamed(const std::string& name)
{
    for (const InstrumentParameter& parameter : instrumentParameters())
        if (name == parameter.name)
            return &parameter;
    return nullptr;
}

std::string expectation(const InstrumentParameter& parameter)
{
    const auto isKeptAs = [&](auto place) {
        return std::holds_alternative<decltype(place)>(parameter.place);
    };
    if (isKeptAs(static_cast<bool& (*)(P&)>(nullptr)))
        return "on or off";
    if (isKeptAs(static_cast<std::string& (*)(P&)>(nullptr)))
        return "a text without \"$\" and \",\"";
    const std::string range = " from " + numberText(parameter.least) + " to " + numberText(parameter.most);
    if (isKeptAs(static_cast<int& (*)(P&)>(nullptr)))
        return "a whole number" + range;
    if (isKeptAs(static_cast<std::optional<TargetDots>& (*)(P&)>(nullptr)))
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

const std::vector<InstrumentParameter>& instrumentParameters()
{
    static const std::vector<InstrumentParameter> all = [] {
        std::vector<InstrumentParameter> parameters = boardParameters();
        for (const auto& group : {slideParameters(), cameraParameters()})
            parameters.insert(parameters.end(), group.begin(), group.end());
        return parameters;
    }();
    return all;
}

std::string parameterValue(const InstrumentParameter& parameter, InstrumentParameters& parameters)
{
    return std::visit([&](auto place) { return ValueText()(place(parameters)); }, parameter.place);
}

std::string setParameter(InstrumentParameters& parameters, const std::string& assignment)
{
    const std::size_t sign = assignment.find('=');
    if (sign == std::string::npos)
        return "A parameter is given as name=value, not as \"" + assignment + "\".";
    const std::string name = assignment.substr(0, sign);
    const std::string value = assignment.substr(sign + 1);
    const InstrumentParameter* parameter = parameterNamed(name);
    if (parameter == nullptr)
        return "There is no parameter \"" + name + "\"; --help lists them.";
    const ValueReader reader{*parameter, value};
    if (std::visit([&](auto place) { return reader(place(parameters)); }, parameter->place))
        return {};
    return "Parameter " + name + " takes " + expectation(*parameter) + ", not \"" + value + "\".";
}
