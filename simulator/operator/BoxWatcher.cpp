#include "simulator/operator/BoxWatcher.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QtTest>

#include "platform/InstrumentPath.h"

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

void BoxWatcher::giveNextFileName(const QString& fileName)
{
    m_fileNames.append(fileName);
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
    if (++m_looksAtCurrent == kLooksUntilAnswer)
        answer(*dialog);
}

void BoxWatcher::answer(QDialog& dialog)
{
    if (auto* box = qobject_cast<QMessageBox*>(&dialog))
        answerBox(*box);
    else if (auto* fileDialog = qobject_cast<QFileDialog*>(&dialog))
        answerFileDialog(*fileDialog);
    else
        dialog.reject();
}

void BoxWatcher::answerFileDialog(QFileDialog& dialog)
{
    const bool expected = !m_fileNames.isEmpty();
    const QString name = expected ? m_fileNames.takeFirst() : QString();
    m_boxes.append({dialog.windowTitle(), fixedPathOf(dialog.directory().path()), {}, name, expected});
    auto* edit = dialog.findChild<QLineEdit*>();
    if (!expected || edit == nullptr) {
        emit boxShown();
        dialog.reject();
        return;
    }
    edit->selectAll();
    QTest::keyClicks(edit, name);
    emit boxShown();
    QTest::keyClick(edit, Qt::Key_Return);
}

void BoxWatcher::answerBox(QMessageBox& box)
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
