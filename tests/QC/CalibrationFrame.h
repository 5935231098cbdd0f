#pragma once

#include <vector>

#include <QColor>
#include <QPoint>
#include <QRect>
#include <QSize>

/// A bright RGB24 frame on which a test places dark things.
class CalibrationFrame
{
public:
    explicit CalibrationFrame(QSize size_px, const QColor& background = QColor(200, 200, 200))
        : m_size(size_px), m_data(std::size_t(size_px.width()) * size_px.height() * 3)
    {
        fill(QRect(QPoint(0, 0), m_size), background);
    }

    void fill(const QRect& area, const QColor& color)
    {
        const QRect inside = area & QRect(QPoint(0, 0), m_size);
        const unsigned char rgb[3] = {static_cast<unsigned char>(color.red()),
                                      static_cast<unsigned char>(color.green()),
                                      static_cast<unsigned char>(color.blue())};
        for (int y = inside.top(); y <= inside.bottom(); ++y) {
            unsigned char* row = &m_data[(std::size_t(y) * m_size.width() + inside.left()) * 3];
            for (int i = 0; i < inside.width() * 3; ++i)
                row[i] = rgb[i % 3];
        }
    }

    /// All pixels with inner <= distance <= outer from centre.
    void ring(QPoint centre, int inner, int outer, const QColor& color)
    {
        for (int dy = -outer; dy <= outer; ++dy)
            for (int dx = -outer; dx <= outer; ++dx) {
                const int square = dx * dx + dy * dy;
                if (square >= inner * inner && square <= outer * outer)
                    fill(QRect(centre.x() + dx, centre.y() + dy, 1, 1), color);
            }
    }

    void dot(QPoint centre, int radius, const QColor& color = Qt::black) { ring(centre, 0, radius, color); }

    void set(int x, int y, const QColor& color) { fill(QRect(x, y, 1, 1), color); }

    QSize size() const { return m_size; }
    unsigned char* data() { return m_data.data(); }
    const std::vector<unsigned char>& bytes() const { return m_data; }

private:
    QSize m_size;
    std::vector<unsigned char> m_data;
};
