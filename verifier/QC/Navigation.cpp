#include "QC/Navigation.h"

#include <cstdint>

namespace {

/// Extent of the visible part in a navigator of extent pixels. The product wraps at 32 bits
/// and is signed from there on, so that a view larger than its image still gives a size.
int visibleExtent(unsigned int extent, unsigned int image, unsigned int display)
{
    const auto hidden = static_cast<std::int32_t>(extent * (image - display));
    const std::int64_t hiddenExtent = std::int64_t(hidden) / static_cast<std::int32_t>(image);
    return static_cast<int>(extent - static_cast<unsigned int>(hiddenExtent));
}

} // namespace

void Navigation::setNavigationColor(unsigned int red, unsigned int green, unsigned int blue)
{
    m_color.setRgb(static_cast<int>(red), static_cast<int>(green), static_cast<int>(blue));
}

void Navigation::setNavigationSize(unsigned int width, unsigned int height)
{
    m_navigationRect.setSize(QSize(static_cast<int>(width), static_cast<int>(height)));
}

void Navigation::setDisplaySize(unsigned int width, unsigned int height)
{
    m_displayWidth = width;
    m_displayHeight = height;
}

void Navigation::setImageSize(unsigned int width, unsigned int height)
{
    m_imageWidth = width;
    m_imageHeight = height;
}

void Navigation::setNavigationPosition(unsigned int x, unsigned int y)
{
    if (m_imageWidth == 0 || m_imageHeight == 0) {
        m_positionRect = QRect();
        return;
    }
    const auto width = static_cast<unsigned int>(m_navigationRect.width());
    const auto height = static_cast<unsigned int>(m_navigationRect.height());
    m_positionRect.setRect(static_cast<int>(x * width / m_imageWidth),
                           static_cast<int>(y * height / m_imageHeight),
                           visibleExtent(width, m_imageWidth, m_displayWidth),
                           visibleExtent(height, m_imageHeight, m_displayHeight));
}
