#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QVector>

class QDialog;
class QFileDialog;
class QMessageBox;

/// A message box or a dialog for a file's name that came up, and what was done about it.
struct SeenBox
{
    QString title;
    QString text;        ///< of a dialog for a file's name: the directory it starts in
    QStringList buttons; ///< their captions without mnemonics, in the box's order
    QString answer;      ///< caption of the button that was pressed, or the name that was given
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
    /// The next dialog that asks for a file's name is given this one; without one it is
    /// cancelled.
    void giveNextFileName(const QString& fileName);
    /// Forgets the announced boxes and names that have
    /// not come up, and returns their number.
    int forgetAwaited();
    /// The boxes so far, oldest first.
    const QVector<SeenBox>& boxes() const { return m_boxes; }

signals:
    /// The box is on the screen and is about to be answered.
    void boxShown();

private:
    void look();
    void answer(QDialog& dialog);
    void answerBox(QMessageBox& box);
    void answerFileDialog(QFileDialog& dialog);

    QTimer m_timer;
    QStringList m_answers;
    QStringList m_fileNames;
    QVector<SeenBox> m_boxes;
    QPointer<QDialog> m_current;
    int m_looksAtCurrent = 0;
};
