#include "simulator/camera/CameraFaults.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <sstream>
#include <string_view>

#include <linux/i2c-dev.h>
#include <linux/videodev2.h>

namespace {

template <class Value>
struct Named
{
    const char* name;
    Value value;
};

constexpr Named<unsigned long> kRequests[] = {
    {"VIDIOC_S_FMT", VIDIOC_S_FMT},         {"VIDIOC_REQBUFS", VIDIOC_REQBUFS},
    {"VIDIOC_QUERYBUF", VIDIOC_QUERYBUF},   {"VIDIOC_QBUF", VIDIOC_QBUF},
    {"VIDIOC_DQBUF", VIDIOC_DQBUF},         {"VIDIOC_STREAMON", VIDIOC_STREAMON},
    {"VIDIOC_STREAMOFF", VIDIOC_STREAMOFF}, {"I2C_SLAVE_FORCE", I2C_SLAVE_FORCE},
};

constexpr Named<int> kErrors[] = {
    {"EACCES", EACCES}, {"EAGAIN", EAGAIN}, {"EBUSY", EBUSY},   {"EINTR", EINTR},
    {"EINVAL", EINVAL}, {"EIO", EIO},       {"ENODEV", ENODEV}, {"ENOMEM", ENOMEM},
    {"ENOSPC", ENOSPC}, {"ENOTTY", ENOTTY}, {"EPERM", EPERM},   {"EREMOTEIO", EREMOTEIO},
    {"ENXIO", ENXIO},   {"EPIPE", EPIPE},   {"EFAULT", EFAULT}, {"ETIMEDOUT", ETIMEDOUT},
};

template <class Value, std::size_t Size>
std::optional<Value> valueNamed(const Named<Value> (&table)[Size], const std::string& name)
{
    for (const Named<Value>& entry : table)
        if (name == entry.name)
            return entry.value;
    return std::nullopt;
}

// "N", or "1/N" for one of N at random, into a rule; false where it is neither.
bool takeCallNumber(const std::string& text, CameraFaultRule& rule)
{
    constexpr std::string_view kOneIn = "1/";
    const bool atRandom = text.compare(0, kOneIn.size(), kOneIn) == 0;
    int number = 0;
    const char* begin = text.data() + (atRandom ? kOneIn.size() : 0);
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(begin, end, number);
    if (result.ec != std::errc() || result.ptr != end || number < 1)
        return false;
    (atRandom ? rule.oneIn : rule.nthCall) = number;
    return true;
}

std::vector<std::string> splitAtColons(const std::string& text)
{
    std::vector<std::string> parts;
    // The colon that is added makes an empty last part count as well.
    std::istringstream stream(text + ':');
    for (std::string part; std::getline(stream, part, ':');)
        parts.push_back(part);
    return parts;
}

const CameraFaultText* faultNamed(const std::string& name)
{
    for (const CameraFaultText& text : kCameraFaults)
        if (name == text.name)
            return &text;
    return nullptr;
}

std::optional<CameraFaultRule> requestRule(const std::vector<std::string>& parts)
{
    CameraFaultRule rule{CameraFault::CallFails};
    if (parts.size() < 2 || parts.size() > 4)
        return std::nullopt;
    const std::optional<int> error = parts.size() > 2 ? valueNamed(kErrors, parts[2]) : EIO;
    if (!valueNamed(kRequests, parts[1]) || !error || (parts.size() > 3 && !takeCallNumber(parts[3], rule)))
        return std::nullopt;
    rule.call = parts[1];
    rule.error = *error;
    return rule;
}

std::optional<CameraFaultRule> ruleOf(const std::string& text)
{
    const std::vector<std::string> parts = splitAtColons(text);
    const CameraFaultText* fault = faultNamed(parts.front());
    if (fault == nullptr)
        return std::nullopt;
    if (fault->fault == CameraFault::CallFails)
        return requestRule(parts);
    const bool countsCalls = fault->arguments[0] != '\0';
    CameraFaultRule rule{fault->fault};
    if (parts.size() > (countsCalls ? 2U : 1U) || (parts.size() > 1 && !takeCallNumber(parts[1], rule)))
        return std::nullopt;
    return rule;
}

} // namespace

void CameraFaults::enable(const CameraFaultRule& rule)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_rules.push_back({rule, 0});
}

bool CameraFaults::enable(const std::string& text)
{
    const std::optional<CameraFaultRule> rule = ruleOf(text);
    if (rule)
        enable(*rule);
    return rule.has_value();
}

void CameraFaults::disable(CameraFault fault)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_rules.erase(std::remove_if(m_rules.begin(), m_rules.end(),
                                 [fault](const Counted& counted) { return counted.rule.fault == fault; }),
                  m_rules.end());
}

void CameraFaults::clear()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_rules.clear();
}

void CameraFaults::setSeed(std::uint32_t seed)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_chance.seed(seed);
}

bool CameraFaults::isOn(CameraFault fault) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return std::any_of(m_rules.begin(), m_rules.end(),
                       [fault](const Counted& counted) { return counted.rule.fault == fault; });
}

bool CameraFaults::strikes(CameraFault fault)
{
    return struckBy(fault, {}).has_value();
}

std::optional<CallEnd> CameraFaults::strikesCall(const std::string& call)
{
    return struckBy(CameraFault::CallFails, call);
}

// Every rule counts the call, so that two rules for one kind of call work independently.
std::optional<CallEnd> CameraFaults::struckBy(CameraFault fault, const std::string& call)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::optional<CallEnd> end;
    for (Counted& counted : m_rules) {
        if (counted.rule.fault == fault && counted.rule.call == call) {
            ++counted.calls;
            const bool strikes = counted.rule.oneIn > 0
                                     ? m_chance() % static_cast<unsigned>(counted.rule.oneIn) == 0
                                     : counted.rule.nthCall == 0 || counted.rule.nthCall == counted.calls;
            if (strikes)
                end = CallEnd{counted.rule.result, counted.rule.error};
        }
    }
    return end;
}

std::string requestName(unsigned long request)
{
    for (const Named<unsigned long>& entry : kRequests)
        if (entry.value == request)
            return entry.name;
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "0x%08lX", request);
    return text.data();
}
