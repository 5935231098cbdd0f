#pragma once

#include <QImage>
#include <QRect>

/// The smallest area that holds every pixel within another one for which a condition on its
/// colour is met.
template <class Condition>
QRect boundsOf(const QImage& image, const QRect& within, Condition isMet)
{
    QRect bounds;
    for (int y = within.top(); y <= within.bottom(); ++y)
        for (int x = within.left(); x <= within.right(); ++x)
            if (isMet(image.pixel(x, y)))
                bounds |= QRect(x, y, 1, 1);
    return bounds;
}
