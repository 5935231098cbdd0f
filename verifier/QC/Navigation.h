#pragma once

#include <QColor>
#include <QRect>

/// Navigator of an image that is larger than its view: a small frame that stands for the
/// whole image and, in it, the part that is on screen. Pure arithmetic; one thread at a time.
class Navigation
{
public:
    /// Pen colour of both rectangles, 0 to 255 each.
    void setNavigationColor(unsigned int red, unsigned int green, unsigned int blue);
    /// Size of the navigator frame in widget pixels; its top left corner is (0, 0).
    void setNavigationSize(unsigned int width, unsigned int height);
    /// Size of the visible part, in image pixels.
    void setDisplaySize(unsigned int width, unsigned int height);
    /// Size of the whole image, in pixels.
    void setImageSize(unsigned int width, unsigned int height);
    /// Places the position rectangle for the top left visible image pixel (x, y).
    /// The sizes come first. Without an image (a width or height of 0) the position is
    /// the empty rectangle.
    void setNavigationPosition(unsigned int x, unsigned int y);

    /// Invalid until set.
    const QColor& color() const { return m_color; }
    /// The navigator frame, in widget pixels.
    const QRect& navigationRect() const { return m_navigationRect; }
    /// The part of the image on screen, in navigator pixels.
    const QRect& positionRect() const { return m_positionRect; }

private:
    static constexpr unsigned int kUnset = 0xFFFFFFFF;

    QColor m_color;
    QRect m_navigationRect;
    QRect m_positionRect;
    unsigned int m_imageWidth = kUnset;
    unsigned int m_imageHeight = kUnset;
    unsigned int m_displayWidth = kUnset;
    unsigned int m_displayHeight = kUnset;
};
