#include "QC/QC_measure.h"

#include <cstddef>
#include <cstring>
#include <exception>

#include <QDebug>
#include <QImage>
#include <QMouseEvent>
#include <QPainter>

#include <opencv2/core.hpp>

#include "QC/PointMarkers.h"
#include "QC/TargetSearch.h"
#include "QC/ViewOffset.h"
#include "platform/DebugLog.h"
#include "settings/CaptureModes.h"

namespace {

constexpr int kFrameWidth_px = kCaptureModes[kMode5M].width_px;
constexpr int kFrameHeight_px = kCaptureModes[kMode5M].height_px;
constexpr std::size_t kFrameBytes = kCaptureModes[kMode5M].rgbBytes();
constexpr int kBitsPerPixel = kRgbBytesPerPixel * 8;
constexpr int kHalfMarker_px = 20;
constexpr int kPointCount = 2;

const char* const kPointLabels[kPointCount] = {"1", "2"};

/// Searches without letting a failure of the image library out into the event loop.
TargetSearch::Result searched(TargetSearch& search, const FrameView& frame, QPoint target)
{
    try {
        return search.find(frame, target);
    } catch (const std::exception& error) {
        writeDebugStream({Q_FUNC_INFO, QStringLiteral("[Error] ") + QString::fromUtf8(error.what())});
        return {TargetSearch::Outcome::NoObject, {}};
    }
}

} // namespace

QC_measure::QC_measure(QWidget* parent) : QFrame(parent), m_imageSize(kFrameWidth_px, kFrameHeight_px)
{
    qRegisterMetaType<MeasureInfo_t>("MeasureInfo_t");
    qRegisterMetaType<TargetingError_e>("TargetingError_e");
    // What lies below, a live view at its dearest, is not painted.
    setAttribute(Qt::WA_OpaquePaintEvent);
    m_navigation.setNavigationColor(255, 255, 0);
    m_navigation.setNavigationSize(kNavigatorWidth_px, kNavigatorHeight_px);
    m_navigation.setImageSize(kFrameWidth_px, kFrameHeight_px);
    setScale(m_scale);
}

QC_measure::~QC_measure() = default;

void QC_measure::setImageData(unsigned char* rgb)
{
    if (rgb == nullptr) {
        dropFrame();
        return;
    }
    const QSize frameSize(kFrameWidth_px, kFrameHeight_px);
    if (m_imageSize != frameSize || m_bitsPerPixel != kBitsPerPixel) {
        m_image.reset(new unsigned char[kFrameBytes]);
        m_bitsPerPixel = kBitsPerPixel;
    }
    std::memcpy(m_image.get(), rgb, kFrameBytes);
    setImageSize(kFrameWidth_px, kFrameHeight_px);
    makePicture();
    m_navigation.setNavigationSize(kNavigatorWidth_px, kNavigatorHeight_px);
    m_viewOffset = QPoint(0, 0);
    setScale(m_scale);
}

void QC_measure::dropFrame()
{
    m_image.reset();
    m_bitsPerPixel = 0;
    update();
}

void QC_measure::setImageSize(unsigned int width, unsigned int height)
{
    m_imageSize = QSize(static_cast<int>(width), static_cast<int>(height));
    m_navigation.setImageSize(width, height);
}

void QC_measure::setTargetingMode(bool on)
{
    m_targetingMode = on;
    if (on)
        m_targetSet = false;
    update();
}

void QC_measure::setScale(double scale)
{
    if (scale >= 1.0) {
        m_scale = scale;
        m_navigation.setDisplaySize(static_cast<unsigned int>(width() / scale),
                                    static_cast<unsigned int>(height() / scale));
    }
    showOffset(clampedOffset(m_viewOffset));
}

QPoint QC_measure::clampedOffset(QPoint offset) const
{
    return {clampedViewOffset(offset.x(), m_imageSize.width(), width(), m_scale),
            clampedViewOffset(offset.y(), m_imageSize.height(), height(), m_scale)};
}

void QC_measure::showOffset(QPoint offset)
{
    m_viewOffset = offset;
    m_navigation.setNavigationPosition(static_cast<unsigned int>(offset.x()),
                                       static_cast<unsigned int>(offset.y()));
    update();
}

void QC_measure::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    // Nothing of an older picture below may be taken for the frozen one.
    if (!m_image || !m_picture.rect().contains(rect()))
        painter.fillRect(rect(), window()->palette().window());
    if (!m_image)
        return;
    painter.save();
    if (m_scale >= 1.0)
        painter.scale(m_scale, m_scale);
    painter.drawPixmap(QPoint(0, 0), m_picture, QRect(m_viewOffset, size()));
    painter.restore();

    painter.setPen(m_navigation.color());
    painter.drawRect(m_navigation.navigationRect());
    painter.drawRect(m_navigation.positionRect());
    if (m_targetingMode && m_targetSet) {
        // Not zoomed: the square tells where the target is, the zoom does not move it.
        const QPoint centre = m_target - m_viewOffset;
        painter.setPen(Qt::green);
        painter.drawRect(QRect(centre - QPoint(kHalfMarker_px, kHalfMarker_px),
                               centre + QPoint(kHalfMarker_px - 1, kHalfMarker_px - 1)));
    }
}

void QC_measure::mousePressEvent(QMouseEvent* event)
{
    m_mousePressed = true;
    m_lastMouse = event->localPos().toPoint();
    if (!m_targetingMode)
        return;
    m_targetSet = true;
    m_target = m_viewOffset + m_lastMouse;
    update();
}

void QC_measure::mouseMoveEvent(QMouseEvent* event)
{
    if (!m_mousePressed)
        return;
    const QPoint mouse = event->localPos().toPoint();
    const QPoint offset = clampedOffset(m_viewOffset - (mouse - m_lastMouse));
    m_lastMouse = mouse;
    if (m_targetingMode) {
        m_target = m_viewOffset + mouse;
        update();
    } else {
        showOffset(offset);
    }
}

void QC_measure::mouseReleaseEvent(QMouseEvent*)
{
    m_mousePressed = false;
}

/// Whether the stored frame covers the image size, which can be set on its own.
bool QC_measure::holdsWholeFrame() const
{
    if (!m_image || m_imageSize.isEmpty())
        return false;
    const auto pixels = std::size_t(m_imageSize.width()) * std::size_t(m_imageSize.height());
    return pixels <= kFrameBytes / kRgbBytesPerPixel;
}

void QC_measure::makePicture()
{
    const QImage frame(m_image.get(), m_imageSize.width(), m_imageSize.height(),
                       m_imageSize.width() * kRgbBytesPerPixel, QImage::Format_RGB888);
    m_picture = QPixmap::fromImage(frame);
    m_markedAreas.clear();
}

/// Draws the points that are set into the picture; the stored frame stays clean for the next
/// search. Only the areas of old and new markers are made again from the frame, so that
/// neither a marked copy of the frame nor a second picture is needed.
void QC_measure::markPoints()
{
    if (m_picture.size() != m_imageSize)
        makePicture();
    std::vector<PointMarker> markers;
    std::vector<QRect> changed = m_markedAreas;
    m_markedAreas.clear();
    for (int i = 0; i < kPointCount; ++i) {
        if (!m_points[i].set)
            continue;
        markers.push_back({m_points[i].position, kPointLabels[i]});
        m_markedAreas.push_back(markedArea(m_points[i].position));
    }
    changed.insert(changed.end(), m_markedAreas.begin(), m_markedAreas.end());

    const cv::Mat frame(m_imageSize.height(), m_imageSize.width(), CV_8UC3, m_image.get());
    QPainter painter(&m_picture);
    for (const QRect& area : changed)
        paintMarkedArea(painter, frame, area, markers);
}

void QC_measure::setPoint(int index)
{
    if (!holdsWholeFrame()) {
        emit sig_measure_error(TARGETING_NO_CELL);
        return;
    }
    if (!m_search)
        m_search = std::make_unique<TargetSearch>();
    const TargetSearch::Result result =
        searched(*m_search, {m_image.get(), m_imageSize, m_bitsPerPixel}, m_target);
    if (result.outcome != TargetSearch::Outcome::Found) {
        emit sig_measure_error(result.outcome == TargetSearch::Outcome::NoObject ? TARGETING_NO_CELL
                                                                                 : TARGETING_TOO_MANY_CELLS);
        return;
    }
    if (index >= 0 && index < kPointCount) {
        m_points[index] = {true, result.point};
        emit sig_measure_point(index, result.point.x(), result.point.y());
    }
    markPoints();
    update();
}

void QC_measure::measure2Point()
{
    const TwoPointMeasurement measured =
        measureTwoPoints(m_points[0].position, m_points[1].position, m_imageSize);
    m_MeasureInfo = measured.info;
    const MeasureInfo_t& info = m_MeasureInfo;
    const struct
    {
        int line;
        const char* label;
        float value;
    } rows[] = {
        {__LINE__, "----->Before Magnification :", measured.exactMagnification},
        {__LINE__, "----->after Magnification :", info.Magnification},
        {__LINE__, "----->length_pixel :", info.length_pixel},
        {__LINE__, "----->length_mm :", info.length_mm},
        {__LINE__, "----->pixel_size :", info.pixel_size},
        {__LINE__, "----->Magnification :", info.Magnification},
        {__LINE__, "----->m_MeasureInfo.area_mm :", info.area_mm},
        {__LINE__, "----->area_mm :", measured.area_mm},
        {__LINE__, "----->m_MeasureInfo.Volume_factor :", info.Volume_factor},
        {__LINE__, "----->Volume_factor :", measured.exactVolumeFactor},
    };
    for (const auto& row : rows)
        qDebug() << Q_FUNC_INFO << row.line << row.label << row.value;
    emit sig_measure_result(m_MeasureInfo);
}

float QC_measure::diameter(cv::Point_<int> point1, cv::Point_<int> point2) const
{
    return pointDistance({point1.x, point1.y}, {point2.x, point2.y});
}

float QC_measure::round2(float value, float factor) const
{
    return roundToFraction(value, factor);
}

void QC_measure::getIntensityMean(unsigned char* rgb, int width, int height, float& red, float& green,
                                  float& blue) const
{
    const cv::Scalar mean = cv::mean(cv::Mat(height, width, CV_8UC3, rgb));
    red = static_cast<float>(mean[0]);
    green = static_cast<float>(mean[1]);
    blue = static_cast<float>(mean[2]);
}
