#include "simulator/operator/BoxWatcher.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDialog>

namespace {

constexpr int kLookInterval_ms = 50;
constexpr int kLooksUntilPainted = 4;
constexpr int kShortInterval_ms = 5;

/// The caption of the button that lets the program go on.
QString wayOutOf(const QDialog& dialog, const SeenBox& record)
{
    const auto* box = qobject_cast<const QMessageBox*>(&dialog);
    if (box != nullptr && box->escapeButton() != nullptr)
        return box->escapeButton()->text().remove(QLatin1Char('&'));
    return record.buttons.isEmpty() ? QString() : record.buttons.last();
}

} // namespace

BoxWatcher::BoxWatcher(QWidget& window, OperatorPace pace, QObject* parent)
    : QObject(parent),
      m_window(window),
      m_looksUntilAnswer(pace == OperatorPace::ToBeSeen ? kLooksUntilPainted : 1)
{
    connect(&m_timer, &QTimer::timeout, this, &BoxWatcher::look);
    m_timer.start(pace == OperatorPace::ToBeSeen ? kLookInterval_ms : kShortInterval_ms);
}

int BoxWatcher::forgetAwaited()
{
    const int count = m_answers.size() + m_fileNames.size();
    m_answers.clear();
    m_fileNames.clear();
    return count;
}

QStringList BoxWatcher::texts() const
{
    QStringList texts;
    for (const SeenBox& box : m_boxes)
        if (!box.isFileDialog)
            texts.append(box.text);
    return texts;
}

void BoxWatcher::look()
{
    auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
    if (dialog == nullptr || !dialog->isVisible()) {
        m_current.clear();
        return;
    }
    if (dialog != m_current) {
        m_current = dialog;
        m_looksAtCurrent = 0;
    }
    if (++m_looksAtCurrent == m_looksUntilAnswer)
        answer(*dialog);
}

// The record comes first: a press returns only after everything that it sets off has ended.
void BoxWatcher::answer(QDialog& dialog)
{
    SeenBox record = recordOf(dialog, m_window);
    QStringList& announced = record.isFileDialog ? m_fileNames : m_answers;
    record.expected = !announced.isEmpty();
    if (record.expected)
        record.answer = announced.takeFirst();
    if (!record.isFileDialog && !record.buttons.contains(record.answer))
        record.answer = wayOutOf(dialog, record);
    m_boxes.append(record);
    emit boxShown();
    const bool done = record.isFileDialog ? record.expected && giveFileName(dialog, record.answer)
                                          : pressButton(dialog, record.answer);
    if (!done)
        dialog.reject();
}
