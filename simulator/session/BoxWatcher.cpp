#include "simulator/session/BoxWatcher.h"

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QtTest>

namespace {

constexpr int kLookInterval_ms = 50;
// A box is given this many looks until it is painted and can be seen in a picture.
constexpr int kLooksUntilAnswer = 4;

QString captionOf(const QAbstractButton& button)
{
    return button.text().remove(QLatin1Char('&'));
}

QAbstractButton* buttonFor(QMessageBox& box, const QString& caption)
{
    const QList<QAbstractButton*> buttons = box.buttons();
    for (QAbstractButton* button : buttons)
        if (captionOf(*button) == caption)
            return button;
    if (box.escapeButton() != nullptr)
        return box.escapeButton();
    return buttons.isEmpty() ? nullptr : buttons.last();
}

} // namespace

BoxWatcher::BoxWatcher(QObject* parent) : QObject(parent)
{
    connect(&m_timer, &QTimer::timeout, this, &BoxWatcher::look);
    m_timer.start(kLookInterval_ms);
}

void BoxWatcher::answerNextWith(const QString& caption)
{
    m_answers.append(caption);
}

int BoxWatcher::forgetAwaited()
{
    const int count = m_answers.size();
    m_answers.clear();
    return count;
}

void BoxWatcher::look()
{
    auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    if (box == nullptr || !box->isVisible())
        return;
    if (box != m_current) {
        m_current = box;
        m_looksAtCurrent = 0;
    }
    if (++m_looksAtCurrent == kLooksUntilAnswer)
        answer(*box);
}

void BoxWatcher::answer(QMessageBox& box)
{
    const bool expected = !m_answers.isEmpty();
    QAbstractButton* button = buttonFor(box, expected ? m_answers.takeFirst() : QString());
    SeenBox seen{box.windowTitle(), box.text(), {}, button ? captionOf(*button) : QString(), expected};
    for (const QAbstractButton* each : box.buttons())
        seen.buttons.append(captionOf(*each));
    m_boxes.append(seen);
    emit boxShown();
    if (button == nullptr)
        box.reject();
    else
        QTest::mouseClick(box.windowHandle(), Qt::LeftButton, {},
                          button->mapTo(&box, button->rect().center()));
}
