#include "simulator/optics/SlidePicture.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "simulator/optics/Slide.h"

namespace {

constexpr std::uintmax_t kMostBytes = 1U << 30U;
const cv::Size kField(kFullWidth_px, kFullHeight_px);

// The middle of the picture in the frame's proportions.
cv::Rect partInField(const cv::Size& picture)
{
    const double scale = std::max(static_cast<double>(kField.width) / picture.width,
                                  static_cast<double>(kField.height) / picture.height);
    const int width = std::clamp(cvRound(kField.width / scale), 1, picture.width);
    const int height = std::clamp(cvRound(kField.height / scale), 1, picture.height);
    return {(picture.width - width) / 2, (picture.height - height) / 2, width, height};
}

// Decodes from memory, where the format is known by the content: the library's own reading of a
// file writes to standard error if the file is missing.
cv::Mat decoded(const std::vector<std::uint8_t>& bytes)
{
    return bytes.empty() ? cv::Mat() : cv::imdecode(bytes, cv::IMREAD_COLOR);
}

} // namespace

std::shared_ptr<const SlidePicture> SlidePicture::read(const std::string& file, std::string& error)
{
    std::error_code none;
    // A device or a pipe may never end.
    const bool isFile = std::filesystem::is_regular_file(file, none);
    if (isFile && std::filesystem::file_size(file, none) > kMostBytes) {
        error = "The picture \"" + file + "\" cannot be read; it is larger than a gigabyte.";
        return nullptr;
    }
    std::ifstream stream;
    if (isFile)
        stream.open(file, std::ios::binary);
    if (!stream.is_open()) {
        error = "The picture \"" + file + "\" cannot be opened.";
        return nullptr;
    }
    try {
        const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(stream), {}};
        if (const cv::Mat picture = decoded(bytes); !picture.empty()) {
            const cv::Mat part = picture(partInField(picture.size()));
            std::vector<std::uint8_t> rgb(static_cast<std::size_t>(kField.area()) * 3);
            cv::Mat field(kField, CV_8UC3, rgb.data());
            cv::resize(part, field, kField, 0.0, 0.0,
                       part.cols > kField.width ? cv::INTER_AREA : cv::INTER_CUBIC);
            cv::cvtColor(field, field, cv::COLOR_BGR2RGB);
            return std::shared_ptr<const SlidePicture>(new SlidePicture(std::move(rgb)));
        }
    } catch (const std::exception&) {
        // Too large for the memory, or refused by the decoder: told below like any other.
    }
    error = "The picture \"" + file + "\" cannot be read; PNG, TIFF and JPEG can.";
    return nullptr;
}

const std::uint8_t* SlidePicture::row(int y) const
{
    return m_rgb.data() + static_cast<std::size_t>(y) * kFullWidth_px * 3;
}
