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

/// A message box or file dialog that came up, and what was done about it.
struct SeenBox
{
    QString title;
    QString text;
    QStringList buttons; ///< their captions without mnemonics, in the box's order
    QString answer;      ///< caption of the button that was pressed, or name of the file
    bool expected;
};

/// Looks for message boxes and file dialogs while the handler that opened one is blocked in it,
/// and presses a button, or types a name, as a finger would. One that nobody announced is
/// answered as well, a box by its escape button or else its last one, a dialog by Cancel, so
/// that the program goes on. GUI thread.
class BoxWatcher : public QObject
{
    Q_OBJECT

public:
    explicit BoxWatcher(QObject* parent = nullptr);

    /// The next box is answered by the button with this caption (without mnemonic).
    void answerNextWith(const QString& caption);
    /// The next file dialog is answered by this name.
    void saveNextAs(const QString& name) { m_fileNames.append(name); }
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
    void answer(QFileDialog& dialog);
    void press(QDialog& dialog, QWidget& button);

    QTimer m_timer;
    QStringList m_answers;
    QStringList m_fileNames;
    QVector<SeenBox> m_boxes;
    QPointer<QDialog> m_current;
    int m_looksAtCurrent = 0;
};
