#pragma once

#include <functional>

#include <QEvent>
#include <QImage>
#include <QObject>
#include <QPoint>
#include <QString>
#include <QStringList>
#include <QVariant>

#include "simulator/operator/BoxWatcher.h"

class QTabWidget;
class QWidget;

/// Sits in front of the verifier's window: presses, types, reads and looks, through the
/// window system's event path, so that a widget that is disabled, covered or on a closed tab
/// does not react. Widgets are known by their object names only.
///
/// What cannot be done is noted as a problem, and the rest goes on: the caller asks for the
/// problems at the end of a step. All functions run on the GUI thread, and the handlers that
/// they set off run inside them.
class Operator : public QObject
{
    Q_OBJECT

public:
    /// window: the verifier's top-level window, shown. pictureDirectory: where pictures go;
    /// empty: nowhere.
    Operator(QWidget& window, const QString& pictureDirectory, OperatorPace pace = OperatorPace::ToBeSeen);

    /// Presses and releases a button, a check box or any other widget at its middle. Opens
    /// the tab that it lies on first. False, with the problem noted, if it is not pressed as it
    /// cannot be seen, or if it is disabled.
    bool click(const QString& name);
    bool press(const QString& name);
    bool release(const QString& name);
    /// Presses a widget for a time, with events going on.
    bool hold(const QString& name, int duration_ms);
    /// Presses at a place of a widget, in its own pixels, and drags by a distance with the
    /// button down before it is released; without a distance it is a click.
    bool dragOn(const QString& name, const QPoint& place, const QPoint& by = {});
    /// The same in single steps at a place of the window, whatever is there.
    void pressAt(const QPoint& position);
    void moveTo(const QPoint& position);
    void releaseAt(const QPoint& position);
    /// Presses and releases a key; the widget with the keyboard focus gets it.
    void pressKey(Qt::Key key);
    /// Replaces the text of a line edit or a spin box, and usually ends with Return.
    bool type(const QString& name, const QString& text, bool endWithReturn = true);
    /// Opens the page with this object name of the tab widget that holds it.
    bool openTab(const QString& pageName);
    /// Opens a page of the tab widget with this object name, counted from 0.
    bool openTab(const QString& tabsName, int index);
    /// Sets a check box or a checkable button.
    bool setChecked(const QString& name, bool checked);

    /// What a widget shows: a label's, button's or edit's text, a spin box's number.
    QString text(const QString& name);
    /// A widget's own style sheet.
    QString style(const QString& name) { return valueOf(name, "styleSheet").toString(); }
    bool isEnabled(const QString& name) { return valueOf(name, "enabled").toBool(); }
    bool isShown(const QString& name) { return valueOf(name, "visible").toBool(); }
    bool isChecked(const QString& name) { return valueOf(name, "checked").toBool(); }
    /// Names of the buttons and edits, the window itself included, that take no presses.
    QStringList disabledControls() const;
    /// Whether the window as a whole takes presses.
    bool windowIsEnabled() const;
    QString windowTitle() const;

    /// Goes on with events until the condition holds; false when the time is up, and
    /// `otherwise`, unless empty, is noted as a problem.
    bool waitUntil(const std::function<bool()>& condition, int timeout_ms, const QString& otherwise = {});
    void wait(int duration_ms);
    /// Waits until that many more live view frames have been painted.
    bool waitForFrames(int count, int timeout_ms);
    /// Live view frames painted so far.
    int paintedFrames() const { return m_paintedFrames; }

    /// The live view as it is on the screen, 640 x 480.
    QImage liveView();
    /// The whole window as it is on the screen with the boxes over it.
    QImage screen();
    /// Saves the screen as "NN-name.png"; the name is also kept for takePictures().
    void takePicture(const QString& name);
    QStringList takePictures();

    /// Announces a message box and the button that will answer it.
    void expectBox(const QString& buttonCaption);
    /// The last box, if it came up since one was announced; otherwise null.
    const SeenBox* boxSinceExpected() const;
    const QVector<SeenBox>& boxes() const { return m_boxes.seen(); }
    BoxWatcher& boxWatcher() { return m_boxes; }
    /// Announces a dialog for a file's name, and the name that will be given to it.
    void expectFileDialog(const QString& fileName) { m_boxes.giveNextFileName(fileName); }

    /// Adds a sentence to the problems of the step under way.
    void noteProblem(const QString& problem);
    /// The problems since the last call, unexpected boxes and expected ones that never came
    /// included; empty when all went well.
    QString takeProblems();

    /// Makes every wait end at once, for when the program is to stop.
    void giveUp() { m_givenUp = true; }
    bool hasGivenUp() const { return m_givenUp; }

private slots:
    void countFrame() { ++m_paintedFrames; }

private:
    QWidget* find(const QString& name);
    /// A widget's property; nothing where there is no such widget, which is a problem.
    QVariant valueOf(const QString& name, const char* property);
    bool reach(const QString& name, QPoint& position);
    bool pressWidget(const QString& name, bool& enabled);
    bool openTabsAround(QWidget& widget);
    bool openPage(QTabWidget& tabs, int page);
    bool uncovered(const QWidget& widget, const QPoint& position);
    void pointAt(const QPoint& position);
    void sendMouse(QEvent::Type type, const QPoint& position);

    QWidget& m_window;
    const QString m_pictureDirectory;
    const OperatorPace m_pace;
    BoxWatcher m_boxes;
    int m_judgedBoxes = 0;
    int m_boxesWhenExpected = 0;
    int m_paintedFrames = 0;
    int m_pictureNumber = 0;
    QStringList m_pictures;
    QStringList m_problems;
    bool m_givenUp = false;
};
