#pragma once

#include <QColor>
#include <QRect>
#include <QSize>
#include <QStringList>
#include <QVector>
#include <QWidget>

/// Checks of a window's look, for tests. Each returns one sentence per fault, naming the
/// widget, and an empty list when all is well. They look at the named widgets below
/// `container` that are visible and carry something of their own: labels, buttons, check
/// boxes, line edits, spin boxes, progress bars, frames with a name, and tab bars (named
/// after their tab widget). GUI thread; the window must be shown.
namespace layout {

/// A text as it is painted: whose it is, whether that is enabled, and the contrast to its ground:
/// the most frequent colour of the text's place against the one that stands out most from it.
struct PaintedText
{
    QString name;
    QString text;
    bool enabled;
    double contrast;
};

/// The widgets that the checks look at, in creation order.
QVector<QWidget*> visibleParts(const QWidget* container);

/// Texts, current ones, that do not fit into their widget with the widget's font.
QStringList clippedTexts(const QWidget* container);

/// Pairs of widgets, of whatever parent, that share a pixel; what lies inside its own parent, such
/// as a caption in a button, does not count.
QStringList overlaps(const QWidget* container);

/// Widgets that reach out of `bounds`, in pixels of the window.
QStringList outside(const QWidget* container, const QRect& bounds);

/// Places to press or to type that are smaller than `least` pixels in either direction:
/// buttons, check boxes (where they react), editable lines, spin boxes with each of their
/// arrows, tabs.
QStringList smallTargets(const QWidget* container, const QSize& least);

/// Widgets whose middle is covered by another one, so that no finger reaches them. What lets a
/// press through to its own parent is not covered by it.
QStringList covered(const QWidget* container);

/// All texts that are not blank.
QVector<PaintedText> paintedTexts(const QWidget* container);

/// Texts of `paintedTexts` whose contrast is below `least`.
QStringList faintTexts(const QWidget* container, double least);

/// Contrast of two colours, 1 to 21, by their relative luminance (WCAG 2.1, "contrast ratio").
double contrast(const QColor& a, const QColor& b);

} // namespace layout
