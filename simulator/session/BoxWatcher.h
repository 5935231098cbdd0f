#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QVector>

class QMessageBox;

/// A message box that came up, and what was done about it.
struct SeenBox
{
    QString title;
    QString text;
    QStringList buttons; ///< their captions without mnemonics, in the box's order
    QString answer;      ///< caption of the button that was pressed
    bool expected;
};

/// Looks for message boxes while the handler that opened one is blocked in it, and presses a
/// button as a finger would. A box that nobody announced is answered as well, by its escape
/// button or else its last one, so that the program goes on. GUI thread.
class BoxWatcher : public QObject
{
    Q_OBJECT

public:
    explicit BoxWatcher(QObject* parent = nullptr);

    /// The next box is answered by the button with this caption (without mnemonic).
    void answerNextWith(const QString& caption);
    /// Forgets the announced boxes that have not come up, and returns their number.
    int forgetAwaited();
    /// The boxes so far, oldest first.
    const QVector<SeenBox>& boxes() const { return m_boxes; }

signals:
    /// The box is on the screen and is about to be answered.
    void boxShown();

private:
    void look();
    void answer(QMessageBox& box);

    QTimer m_timer;
    QStringList m_answers;
    QVector<SeenBox> m_boxes;
    QPointer<QMessageBox> m_current;
    int m_looksAtCurrent = 0;
};
