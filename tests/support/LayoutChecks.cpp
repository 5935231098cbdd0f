#include "tests/support/LayoutChecks.h"

#include <algorithm>
#include <cmath>

#include <QAbstractButton>
#include <QAbstractSpinBox>
#include <QCheckBox>
#include <QFontMetrics>
#include <QHash>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QStyle>
#include <QStyleOption>
#include <QTabBar>
#include <QTabWidget>

namespace layout {

namespace {

/// What QLineEdit keeps free on either side of its text, beyond the style's margins.
constexpr int kLineEditMargin_px = 2;
/// Air between a tab's border with its round corners and its text.
constexpr int kTabMargin_px = 5;

/// A text, where it may be painted (in pixels of its widget) and in which font.
struct Text
{
    QString text;
    QRect place;
    QFont font;
};

QString nameOf(const QWidget* widget)
{
    if (qobject_cast<const QTabBar*>(widget) && widget->parentWidget())
        return widget->parentWidget()->objectName() + " (tabs)";
    return widget->objectName();
}

bool isPartOfAnother(const QWidget* widget)
{
    return qobject_cast<const QAbstractSpinBox*>(widget->parentWidget()) ||
           qobject_cast<const QTabBar*>(widget->parentWidget());
}

bool isPart(const QWidget* widget)
{
    if (!widget->isVisible() || isPartOfAnother(widget))
        return false;
    if (qobject_cast<const QTabBar*>(widget))
        return true;
    if (widget->objectName().isEmpty() || widget->objectName().startsWith("qt_"))
        return false;
    return qobject_cast<const QFrame*>(widget) || qobject_cast<const QAbstractButton*>(widget) ||
           qobject_cast<const QLineEdit*>(widget) || qobject_cast<const QAbstractSpinBox*>(widget) ||
           qobject_cast<const QProgressBar*>(widget);
}

QRect inWindow(const QWidget* widget)
{
    return {widget->mapTo(widget->window(), QPoint()), widget->size()};
}

QRect buttonText(const QAbstractButton* button)
{
    QStyleOptionButton option;
    option.initFrom(button);
    option.text = button->text();
    const bool isCheck = qobject_cast<const QCheckBox*>(button) != nullptr;
    return button->style()->subElementRect(
        isCheck ? QStyle::SE_CheckBoxContents : QStyle::SE_PushButtonContents, &option, button);
}

QRect lineText(const QLineEdit* line)
{
    QStyleOptionFrame option;
    option.initFrom(line);
    option.lineWidth = line->style()->pixelMetric(QStyle::PM_DefaultFrameWidth, &option, line);
    return line->style()
        ->subElementRect(QStyle::SE_LineEditContents, &option, line)
        .marginsRemoved(line->textMargins())
        .adjusted(kLineEditMargin_px, 0, -kLineEditMargin_px, 0);
}

QVector<Text> tabTexts(const QTabBar* bar)
{
    const QMargins air(kTabMargin_px, kTabMargin_px, kTabMargin_px, kTabMargin_px);
    QVector<Text> texts;
    for (int i = 0; i < bar->count(); ++i)
        texts.append({bar->tabText(i), bar->tabRect(i).marginsRemoved(air), bar->font()});
    return texts;
}

QVector<Text> textsOf(const QWidget* widget)
{
    if (const auto* bar = qobject_cast<const QTabBar*>(widget))
        return tabTexts(bar);
    if (const auto* label = qobject_cast<const QLabel*>(widget)) {
        const int margin = label->margin();
        return {
            {label->text(), label->contentsRect().adjusted(margin, margin, -margin, -margin), label->font()}};
    }
    if (const auto* button = qobject_cast<const QAbstractButton*>(widget))
        return {{button->text(), buttonText(button), button->font()}};
    if (const auto* line = qobject_cast<const QLineEdit*>(widget))
        return {{line->text(), lineText(line), line->font()}};
    if (const auto* bar = qobject_cast<const QProgressBar*>(widget); bar && bar->isTextVisible())
        return {{bar->text(), bar->rect().adjusted(1, 1, -1, -1), bar->font()}};
    if (qobject_cast<const QAbstractSpinBox*>(widget)) {
        const auto* line = widget->findChild<QLineEdit*>();
        return {{line->text(), lineText(line).translated(line->pos()), line->font()}};
    }
    return {};
}

struct Target
{
    QString name;
    QSize size;
};

QVector<Target> targetsOf(const QWidget* widget)
{
    const QString name = nameOf(widget);
    QVector<Target> targets;
    if (const auto* bar = qobject_cast<const QTabBar*>(widget)) {
        for (int i = 0; i < bar->count(); ++i)
            targets.append({name + ' ' + bar->tabText(i), (bar->tabRect(i) & bar->rect()).size()});
    } else if (qobject_cast<const QAbstractSpinBox*>(widget)) {
        targets.append({name, widget->size()});
        QStyleOptionSpinBox option;
        option.initFrom(widget);
        option.subControls = QStyle::SC_All;
        for (const auto arrow : {QStyle::SC_SpinBoxUp, QStyle::SC_SpinBoxDown}) {
            const QRect place = widget->style()->subControlRect(QStyle::CC_SpinBox, &option, arrow, widget);
            const QString which = arrow == QStyle::SC_SpinBoxUp ? " (up)" : " (down)";
            targets.append({name + which, (place & widget->rect()).size()});
        }
    } else if (const auto* line = qobject_cast<const QLineEdit*>(widget)) {
        if (!line->isReadOnly())
            targets.append({name, line->size()});
    } else if (qobject_cast<const QCheckBox*>(widget)) {
        QStyleOptionButton option;
        option.initFrom(widget);
        const QRect place = widget->style()->subElementRect(QStyle::SE_CheckBoxClickRect, &option, widget);
        targets.append({name, (place & widget->rect()).size()});
    } else if (qobject_cast<const QAbstractButton*>(widget)) {
        targets.append({name, widget->size()});
    }
    return targets;
}

double luminanceOf(double channel)
{
    return channel <= 0.03928 ? channel / 12.92 : std::pow((channel + 0.055) / 1.055, 2.4);
}

double luminance(const QColor& color)
{
    return 0.2126 * luminanceOf(color.redF()) + 0.7152 * luminanceOf(color.greenF()) +
           0.0722 * luminanceOf(color.blueF());
}

double paintedContrast(const QImage& picture, const QRect& place)
{
    QHash<QRgb, int> counts;
    const QRect inside = place & picture.rect();
    for (int y = inside.top(); y <= inside.bottom(); ++y)
        for (int x = inside.left(); x <= inside.right(); ++x)
            ++counts[picture.pixel(x, y)];
    QRgb ground = 0;
    for (auto it = counts.cbegin(); it != counts.cend(); ++it)
        if (it.value() > counts.value(ground))
            ground = it.key();
    double most = 1.0;
    for (auto it = counts.cbegin(); it != counts.cend(); ++it)
        most = std::max(most, contrast(QColor(it.key()), QColor(ground)));
    return most;
}

} // namespace

QVector<QWidget*> visibleParts(const QWidget* container)
{
    QVector<QWidget*> parts;
    for (QWidget* widget : container->findChildren<QWidget*>())
        if (isPart(widget))
            parts.append(widget);
    return parts;
}

QStringList clippedTexts(const QWidget* container)
{
    QStringList faults;
    for (const QWidget* widget : visibleParts(container)) {
        for (const Text& text : textsOf(widget)) {
            const QFontMetrics metrics(text.font);
            const QSize needed(metrics.horizontalAdvance(text.text), metrics.ascent() + metrics.descent());
            if (!text.text.isEmpty() &&
                (needed.width() > text.place.width() || needed.height() > text.place.height()))
                faults += QString("%1: \"%2\" needs %3 x %4, has %5 x %6")
                              .arg(nameOf(widget), text.text)
                              .arg(needed.width())
                              .arg(needed.height())
                              .arg(text.place.width())
                              .arg(text.place.height());
        }
    }
    return faults;
}

QStringList overlaps(const QWidget* container)
{
    QStringList faults;
    const QVector<QWidget*> parts = visibleParts(container);
    for (int i = 0; i < parts.size(); ++i)
        for (int j = i + 1; j < parts.size(); ++j)
            if (inWindow(parts.at(i)).intersects(inWindow(parts.at(j))) &&
                !parts.at(i)->isAncestorOf(parts.at(j)))
                faults += nameOf(parts.at(i)) + " and " + nameOf(parts.at(j));
    return faults;
}

QStringList outside(const QWidget* container, const QRect& bounds)
{
    QStringList faults;
    for (const QWidget* widget : visibleParts(container)) {
        QRect shown = inWindow(widget);
        for (const QWidget* above = widget->parentWidget(); above; above = above->parentWidget())
            shown &= inWindow(above);
        if (!bounds.contains(inWindow(widget)) || shown != inWindow(widget))
            faults += nameOf(widget);
    }
    return faults;
}

QStringList smallTargets(const QWidget* container, const QSize& least)
{
    QStringList faults;
    for (const QWidget* widget : visibleParts(container))
        for (const Target& target : targetsOf(widget))
            if (target.size.width() < least.width() || target.size.height() < least.height())
                faults += QString("%1: %2 x %3")
                              .arg(target.name)
                              .arg(target.size.width())
                              .arg(target.size.height());
    return faults;
}

QStringList covered(const QWidget* container)
{
    QStringList faults;
    for (const QWidget* widget : visibleParts(container)) {
        const QWidget* top = widget->window()->childAt(inWindow(widget).center());
        const bool letsThrough =
            widget->testAttribute(Qt::WA_TransparentForMouseEvents) && widget->parentWidget() == top;
        if (top != widget && !widget->isAncestorOf(top) && !letsThrough)
            faults += nameOf(widget) + (top ? " by " + nameOf(top) : QString());
    }
    return faults;
}

QVector<PaintedText> paintedTexts(const QWidget* container)
{
    QVector<PaintedText> texts;
    const QImage picture = container->window()->grab().toImage().convertToFormat(QImage::Format_RGB32);
    for (const QWidget* widget : visibleParts(container)) {
        for (const Text& text : textsOf(widget)) {
            if (text.text.trimmed().isEmpty())
                continue;
            const QRect place = text.place.translated(inWindow(widget).topLeft());
            texts.append({nameOf(widget), text.text, widget->isEnabled(), paintedContrast(picture, place)});
        }
    }
    return texts;
}

QStringList faintTexts(const QWidget* container, double least)
{
    QStringList faults;
    for (const PaintedText& text : paintedTexts(container))
        if (text.contrast < least)
            faults += QString("%1: \"%2\" %3").arg(text.name, text.text).arg(text.contrast, 0, 'f', 2);
    return faults;
}

double contrast(const QColor& a, const QColor& b)
{
    const double la = luminance(a);
    const double lb = luminance(b);
    return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

} // namespace layout
