#include "simulator/optics/BlurredPicture.h"

#include <cmath>
#include <cstddef>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "simulator/optics/BlurredDiscs.h"
#include "simulator/optics/Slide.h"

namespace {

// Averaging over the pixels of a reduced one, and interpolating between two of them, blur by
// a twelfth and a sixth of its width squared.
constexpr double kReductionVariance = 1.0 / 12.0 + 1.0 / 6.0;

// A view of memory that OpenCV is not to change.
cv::Mat viewOf(const std::uint8_t* bytes, int width_px, int height_px)
{
    return {height_px, width_px, CV_8UC3, const_cast<std::uint8_t*>(bytes)};
}

void blur(const cv::Mat& sharp, cv::Mat& blurred, double sigma_px)
{
    const int reduction = reductionFor(sigma_px);
    if (reduction == 1) {
        cv::GaussianBlur(sharp, blurred, {}, sigma_px, sigma_px, cv::BORDER_REPLICATE);
        return;
    }
    cv::Mat reduced;
    cv::resize(sharp, reduced, {sharp.cols / reduction, sharp.rows / reduction}, 0.0, 0.0, cv::INTER_AREA);
    const double sigma = sigma_px / reduction;
    const double rest = std::sqrt(sigma * sigma - kReductionVariance);
    cv::GaussianBlur(reduced, reduced, {}, rest, rest, cv::BORDER_REPLICATE);
    cv::resize(reduced, blurred, blurred.size(), 0.0, 0.0, cv::INTER_LINEAR);
}

} // namespace

void BlurredPicture::prepare(const SlidePicture& picture, const PictureMode& mode, double sigma_px)
{
    const std::size_t bytes = static_cast<std::size_t>(mode.width_px) * mode.height_px * 3;
    const bool samePicture = m_picture == &picture && m_mode == &mode;
    if (!samePicture) {
        m_sharp.resize(bytes);
        const cv::Mat field = viewOf(picture.row(0), kFullWidth_px, kFullHeight_px);
        const cv::Rect part(cvRound(mode.left_px), cvRound(mode.top_px), cvRound(mode.width_px * mode.scale),
                            cvRound(mode.height_px * mode.scale));
        cv::Mat sharp(mode.height_px, mode.width_px, CV_8UC3, m_sharp.data());
        cv::resize(field(part), sharp, sharp.size(), 0.0, 0.0, cv::INTER_AREA);
        m_picture = &picture;
        m_mode = &mode;
    }
    if (samePicture && m_sigma_px == sigma_px)
        return;
    m_sigma_px = sigma_px;
    m_blurred.resize(bytes);
    cv::Mat blurred(mode.height_px, mode.width_px, CV_8UC3, m_blurred.data());
    blur(viewOf(m_sharp.data(), mode.width_px, mode.height_px), blurred, sigma_px / mode.scale);
}

const std::uint8_t* BlurredPicture::row(int y) const
{
    return m_blurred.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(m_mode->width_px) * 3;
}
