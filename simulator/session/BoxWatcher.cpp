#include "simulator/session/BoxWatcher.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
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

// Where the toolkit's own file dialog takes the name.
QLineEdit& nameEdit(const QFileDialog& dialog)
{
    return *dialog.findChild<QLineEdit*>(QStringLiteral("fileNameEdit"));
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
    const int count = m_answers.size() + m_fileNames.size();
    m_answers.clear();
    m_fileNames.clear();
    return count;
}

void BoxWatcher::look()
{
    auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
    if (dialog == nullptr || !dialog->isVisible())
        return;
    if (dialog != m_current) {
        m_current = dialog;
        m_looksAtCurrent = 0;
    }
    ++m_looksAtCurrent;
    auto* files = qobject_cast<QFileDialog*>(dialog);
    if (files != nullptr && m_looksAtCurrent == 1)
        nameEdit(*files).setText(m_fileNames.value(0));
    if (m_looksAtCurrent != kLooksUntilAnswer)
        return;
    if (auto* box = qobject_cast<QMessageBox*>(dialog))
        answer(*box);
    else if (files != nullptr)
        answer(*files);
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
        press(box, *button);
}

void BoxWatcher::answer(QFileDialog& dialog)
{
    const bool expected = !m_fileNames.isEmpty();
    const QString name = expected ? m_fileNames.takeFirst() : QString();
    m_boxes.append(
        {dialog.windowTitle(), dialog.nameFilters().join(QStringLiteral("; ")), {}, name, expected});
    emit boxShown();
    if (expected)
        press(dialog, *dialog.findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Save));
    else
        dialog.reject();
}

void BoxWatcher::press(QDialog& dialog, QWidget& button)
{
    QTest::mouseClick(dialog.windowHandle(), Qt::LeftButton, {},
                      button.mapTo(&dialog, button.rect().center()));
}
