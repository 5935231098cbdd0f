// The live view: painting, navigator, panning.

#include "ORLA_II_Plus_Verifier.h"

#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>

#include "LiveViewGeometry.h"
#include "camera/GrabThread.h"
#include "camera/OV5642Camera.h"
#include "ui_ORLA_II_Plus_Verifier.h"

namespace {

constexpr QColor kNavigatorColour(255, 255, 0);
constexpr QColor kCrossLineColour(255, 0, 0);

QPoint roundedPosition(const QMouseEvent* event)
{
    return {qRound(event->localPos().x()), qRound(event->localPos().y())};
}

} // namespace

void ORLA_II_Plus_Verifier::updateFrame()
{
    update(m_viewRect);
}

void ORLA_II_Plus_Verifier::SetNavigatorRect(QRect& rectangle)
{
    rectangle = navigatorPosition(m_cameraMode, m_viewOffset);
}

/// Turns the mode's buffer into its picture, while the buffer is this thread's: from the
/// delivery of a frame to updateFrameDone(), or when nothing grabs. A repaint in between
/// (a drag, an uncovered part) shows the last picture again instead of a half filled buffer.
/// So does one that the hand-shake asks for without a new frame: it comes three times as
/// often as the camera's frames. Without a grab thread nobody knows what the buffer holds.
void ORLA_II_Plus_Verifier::makeFramePicture()
{
    if (m_grabThread != nullptr && !m_grabThread->frameDelivered())
        return;
    const auto mode = static_cast<std::size_t>(m_cameraMode);
    std::optional<std::uint64_t> content;
    if (m_grabThread != nullptr)
        content = m_grabThread->deliveredNumber();
    if (content && content == m_pictureContents[mode])
        return;
    m_pictureContents[mode] = content;
    const QImage frame(m_frameBuffers[mode], m_frameWidth_px, m_frameHeight_px,
                       m_frameWidth_px * kRgbBytesPerPixel, QImage::Format_RGB888);
    // Gone before its successor is made: its memory serves again, still warm.
    m_framePictures[mode] = QPixmap();
    m_framePictures[mode] = QPixmap::fromImage(frame);
}

/// The window is opaque to Qt, which would otherwise fill the live view before every frame
/// that covers it anyway; so the rest of it is filled here.
void ORLA_II_Plus_Verifier::paintBackground(QPainter& painter, const QRegion& region)
{
    const bool covered = m_graphDisplayed || m_cameraMode >= 0;
    const QRegion bare = covered ? region - m_viewRect : region;
    for (const QRect& part : bare)
        painter.fillRect(part, palette().window());
}

void ORLA_II_Plus_Verifier::paintEvent(QPaintEvent* event)
{
    QPainter painter(this);
    paintBackground(painter, event->region());
    if (m_graphDisplayed) {
        paintFocusGraph(painter);
        return;
    }
    if (m_cameraMode < 0)
        return;
    makeFramePicture();
    paintPicture(painter);
    if (m_form->CHECK_CROSS_LINE->isChecked())
        paintCrossLine(painter);
    painter.end();
    if (m_grabThread != nullptr && m_grabThread->isRunning())
        emit updateFrameDone();
}

void ORLA_II_Plus_Verifier::paintPicture(QPainter& painter)
{
    const QPixmap& picture = m_framePictures[static_cast<std::size_t>(m_cameraMode)];
    const QRect target(QPoint(0, 0), m_viewRect.size());
    if (picture.isNull())
        painter.fillRect(target, Qt::black);
    if (m_form->CHECK_SCALED_TO_FIT->isChecked()) {
        painter.drawPixmap(target.topLeft(), fittedPicture(picture));
        return;
    }
    const QRect source(m_viewOffset, m_viewRect.size());
    // An offset left from a larger mode: where the frame ends, the old picture must not stay.
    if (!picture.isNull() && !picture.rect().contains(source))
        painter.fillRect(target, palette().window());
    painter.drawPixmap(target, picture, source);
    paintNavigator(painter);
}

/// The picture in the size of the view. A frame is shown some times over: it is scaled once.
const QPixmap& ORLA_II_Plus_Verifier::fittedPicture(const QPixmap& picture)
{
    if (picture.isNull() || picture.size() == m_viewRect.size())
        return picture;
    if (m_fittedOf != picture.cacheKey()) {
        if (m_fittedPicture.isNull()) {
            m_fittedPicture = QPixmap(m_viewRect.size());
            m_fittedPicture.fill(Qt::black);
        }
        QPainter painter(&m_fittedPicture);
        painter.drawPixmap(m_fittedPicture.rect(), picture, QRect(0, 0, m_frameWidth_px, m_frameHeight_px));
        m_fittedOf = picture.cacheKey();
    }
    return m_fittedPicture;
}

void ORLA_II_Plus_Verifier::paintNavigator(QPainter& painter)
{
    QRect position;
    SetNavigatorRect(position);
    painter.setPen(kNavigatorColour);
    painter.drawRect(kNavigatorRect);
    painter.drawRect(position);
}

void ORLA_II_Plus_Verifier::paintCrossLine(QPainter& painter)
{
    const int width = m_viewRect.width();
    const int height = m_viewRect.height();
    painter.setPen(kCrossLineColour);
    painter.drawLine(0, height / 2, width, height / 2);
    painter.drawLine(width / 2, 0, width / 2, height);
}

void ORLA_II_Plus_Verifier::mousePressEvent(QMouseEvent* event)
{
    const QPoint point = roundedPosition(event);
    m_dragging = m_viewRect.contains(point, true);
    if (m_dragging)
        m_lastMouse = point;
}

void ORLA_II_Plus_Verifier::mouseMoveEvent(QMouseEvent* event)
{
    const QPoint point = roundedPosition(event);
    if (!m_dragging || !m_viewRect.contains(point, false))
        return;
    m_viewOffset = pannedOffset(m_viewOffset, m_lastMouse, point, modeFrameSize(m_camera->mode()));
    m_lastMouse = point;
    update(m_viewRect);
}

void ORLA_II_Plus_Verifier::mouseReleaseEvent(QMouseEvent*)
{
    m_dragging = false;
}

// Both boxes repaint by themselves: a camera that is gone brings no frame that would.
void ORLA_II_Plus_Verifier::on_CHECK_CROSS_LINE_clicked()
{
    update(m_viewRect);
}

void ORLA_II_Plus_Verifier::on_CHECK_SCALED_TO_FIT_clicked(bool checked)
{
    if (checked)
        m_viewOffset = QPoint(0, 0);
    update(m_viewRect);
}
