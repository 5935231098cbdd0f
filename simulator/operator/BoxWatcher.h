#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QVector>

#include "simulator/operator/BoxRecord.h"

/// How an operator works.
enum class OperatorPace {
    ToBeSeen, ///< a box is painted before it is answered, and the program runs between two presses
    AtOnce    ///< a press is followed by the next one before anything that waits for its turn
};

/// Looks for message boxes and dialogs for a file's name while the handler that opened one is
/// blocked in it, and presses a button as a finger would. A box that nobody announced is
/// answered as well, by its escape button or else its last one, so that the program goes on.
/// GUI thread.
class BoxWatcher : public QObject
{
    Q_OBJECT

public:
    /// window: the one that the boxes come up over.
    explicit BoxWatcher(QWidget& window, OperatorPace pace = OperatorPace::ToBeSeen,
                        QObject* parent = nullptr);

    /// The next box is answered by the button with this caption (without mnemonic).
    void answerNextWith(const QString& caption) { m_answers.append(caption); }
    /// The next dialog that asks for a file's name is given this one; without one it is
    /// cancelled.
    void giveNextFileName(const QString& fileName) { m_fileNames.append(fileName); }
    /// Forgets the announced boxes and names that have not come up, and returns their number.
    int forgetAwaited();
    /// From now on boxes stay open, and are not recorded.
    void stop() { m_timer.stop(); }

    /// The boxes so far, oldest first.
    const QVector<SeenBox>& seen() const { return m_boxes; }
    /// The texts of the message boxes so far.
    QStringList texts() const;
    /// Forgets the boxes so far.
    void clear() { m_boxes.clear(); }

signals:
    /// The box is on the screen and is about to be answered.
    void boxShown();

private:
    void look();
    void answer(QDialog& dialog);

    QWidget& m_window;
    const int m_looksUntilAnswer;
    QTimer m_timer;
    QStringList m_answers;
    QStringList m_fileNames;
    QVector<SeenBox> m_boxes;
    QPointer<QDialog> m_current;
    int m_looksAtCurrent = 0;
};
