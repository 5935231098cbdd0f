#include <map>

#include <QCheckBox>
#include <QFileDialog>
#include <QLineEdit>
#include <QMainWindow>
#include <QMessageBox>
#include <QPushButton>
#include <QSpinBox>
#include <QTabWidget>
#include <QTextStream>
#include <QtTest>

#include "simulator/instrument/InstrumentFaults.h"
#include "simulator/instrument/InstrumentParameters.h"
#include "simulator/instrument/SimulatedInstrument.h"
#include "simulator/operator/Operator.h"
#include "simulator/session/PictureMeasures.h"
#include "simulator/session/Session.h"
#include "simulator/session/SessionRunner.h"

namespace {

/// A window with what the operator has to handle, by names of its own.
class PracticeWindow : public QMainWindow
{
    Q_OBJECT

public:
    PracticeWindow()
    {
        setFixedSize(800, 480);
        auto* tabs = new QTabWidget(this);
        tabs->setGeometry(400, 0, 400, 300);
        tabs->addTab(new QWidget, "one");
        tabs->addTab(new QWidget, "two");
        tabs->widget(0)->setObjectName("PAGE_ONE");
        tabs->widget(1)->setObjectName("PAGE_TWO");
        button = place(new QPushButton("Press", tabs->widget(1)), "BUTTON", 10, 10);
        box = place(new QCheckBox("Check", tabs->widget(1)), "CHECK", 10, 60);
        edit = place(new QLineEdit("old", tabs->widget(0)), "EDIT", 10, 10);
        spin = place(new QSpinBox(tabs->widget(0)), "SPIN", 10, 60);
        spin->setRange(0, 1000);
        covered = place(new QPushButton("Under", this), "COVERED", 10, 10);
        cover = place(new QWidget(this), "COVER", 0, 0);
        asker = place(new QPushButton("Ask", this), "ASKER", 10, 100);
        connect(asker, &QPushButton::clicked, this, [this] {
            answer = QMessageBox::question(this, "Title", "Text ?", QMessageBox::Yes | QMessageBox::No);
        });
    }

    QPushButton* button;
    QCheckBox* box;
    QLineEdit* edit;
    QSpinBox* spin;
    QPushButton* covered;
    QWidget* cover;
    QPushButton* asker;
    int answer = 0;
    QString fileName;
    QVector<QPoint> dragged; ///< places of the mouse with the button down

protected:
    void mousePressEvent(QMouseEvent* event) override { dragged = {event->pos()}; }
    void mouseMoveEvent(QMouseEvent* event) override
    {
        if (event->buttons() == Qt::LeftButton)
            dragged.append(event->pos());
    }
    void mouseReleaseEvent(QMouseEvent* event) override { dragged.append(event->pos()); }

signals:
    void updateFrameDone();

private:
    template <class Widget>
    Widget* place(Widget* widget, const char* name, int x, int y)
    {
        widget->setObjectName(name);
        widget->setGeometry(x, y, 150, 40);
        return widget;
    }
};

QImage grey(int width, int height, int level)
{
    QImage picture(width, height, QImage::Format_RGB32);
    picture.fill(qRgb(level, level, level));
    return picture;
}

QImage stripes(int width, int period)
{
    QImage picture(width, 32, QImage::Format_RGB32);
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < width; ++x)
            picture.setPixel(x, y, x / period % 2 == 0 ? qRgb(100, 100, 100) : qRgb(150, 150, 150));
    return picture;
}

} // namespace

class TestSessionParts : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_window = std::make_unique<PracticeWindow>();
        m_window->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
        m_operator = std::make_unique<Operator>(*m_window, QString());
    }

    void cleanup()
    {
        m_operator.reset();
        m_window.reset();
    }

    void aClickOpensTheTabFirst()
    {
        QSignalSpy clicked(m_window->button, &QPushButton::clicked);
        QVERIFY(!m_window->button->isVisible());
        QVERIFY(m_operator->click("BUTTON"));
        QCOMPARE(clicked.count(), 1);
        QVERIFY(m_operator->isShown("BUTTON"));
        QVERIFY(m_operator->openTab("PAGE_ONE"));
        QVERIFY(!m_operator->isShown("BUTTON"));
        QCOMPARE(m_operator->takeProblems(), QString());
    }

    void aDisabledWidgetDoesNotReact()
    {
        QSignalSpy clicked(m_window->button, &QPushButton::clicked);
        m_window->button->setEnabled(false);
        QVERIFY(!m_operator->click("BUTTON"));
        QCOMPARE(m_operator->takeProblems(), QString("BUTTON is disabled"));
        m_window->button->setEnabled(true);
        m_window->setEnabled(false);
        QVERIFY(!m_operator->click("BUTTON"));
        QVERIFY(!m_operator->windowIsEnabled());
        QCOMPARE(clicked.count(), 0);
    }

    void aCoveredWidgetDoesNotReact()
    {
        QSignalSpy clicked(m_window->covered, &QPushButton::clicked);
        QVERIFY(!m_operator->click("COVERED"));
        QCOMPARE(m_operator->takeProblems(), QString("COVERED is covered by COVER"));
        m_window->cover->hide();
        QVERIFY(m_operator->click("COVERED"));
        QCOMPARE(clicked.count(), 1);
    }

    void aMissingWidgetIsAProblem()
    {
        QVERIFY(!m_operator->click("NOTHING"));
        QCOMPARE(m_operator->text("NOTHING"), QString());
        QCOMPARE(m_operator->takeProblems(), QString("there is no NOTHING"));
        QCOMPARE(m_operator->takeProblems(), QString());
    }

    void typingReplacesTheText()
    {
        QSignalSpy returned(m_window->edit, &QLineEdit::returnPressed);
        QVERIFY(m_operator->type("EDIT", "-120"));
        QCOMPARE(m_operator->text("EDIT"), QString("-120"));
        QCOMPARE(returned.count(), 1);
        QVERIFY(m_operator->type("SPIN", "640"));
        QCOMPARE(m_window->spin->value(), 640);
        QCOMPARE(m_operator->text("SPIN"), QString("640"));
    }

    void aCheckBoxIsSetOnlyWhenItIsNot()
    {
        QSignalSpy clicked(m_window->box, &QCheckBox::clicked);
        QVERIFY(m_operator->setChecked("CHECK", true));
        QVERIFY(m_operator->setChecked("CHECK", true));
        QVERIFY(m_operator->isChecked("CHECK"));
        QCOMPARE(clicked.count(), 1);
        QVERIFY(m_operator->setChecked("CHECK", false));
        QVERIFY(!m_window->box->isChecked());
    }

    void aHeldButtonIsDownUntilReleased()
    {
        bool wasDown = false;
        QTimer::singleShot(50, this, [&] { wasDown = m_window->button->isDown(); });
        QVERIFY(m_operator->hold("BUTTON", 200));
        QVERIFY(wasDown);
        QVERIFY(!m_window->button->isDown());
    }

    // A button that repeats while it is held must not do so for a machine that is busy: the finger
    // is up again before the window turns to anything else.
    void aSlowClickDoesNotRepeat()
    {
        constexpr int kRepeatDelay_ms = 1;
        m_window->button->setAutoRepeat(true);
        m_window->button->setAutoRepeatDelay(kRepeatDelay_ms);
        connect(m_window->button, &QPushButton::pressed, this, [] { QTest::qSleep(20 * kRepeatDelay_ms); });
        QSignalSpy clicked(m_window->button, &QPushButton::clicked);
        QVERIFY(m_operator->click("BUTTON"));
        QCOMPARE(clicked.count(), 1);
    }

    void anAnnouncedBoxIsAnswered()
    {
        m_operator->expectBox("Yes");
        m_operator->click("ASKER");
        QCOMPARE(m_window->answer, int(QMessageBox::Yes));
        QCOMPARE(m_operator->takeProblems(), QString());
        QCOMPARE(m_operator->boxes().size(), 1);
        const SeenBox& box = m_operator->boxes().first();
        QCOMPARE(box.title, QString("Title"));
        QCOMPARE(box.text, QString("Text ?"));
        QCOMPARE(box.buttons.size(), 2);
        QCOMPARE(box.answer, QString("Yes"));
    }

    void anUnexpectedBoxIsAnsweredAndIsAProblem()
    {
        m_operator->click("ASKER");
        QCOMPARE(m_window->answer, int(QMessageBox::No));
        QCOMPARE(m_operator->takeProblems(), QString("unexpected box \"Title\": \"Text ?\""));
    }

    void aBoxThatDoesNotComeIsAProblem()
    {
        m_operator->expectBox("Yes");
        m_operator->wait(10);
        QCOMPARE(m_operator->takeProblems(), QString("an expected box did not come up"));
        m_operator->click("ASKER");
        QCOMPARE(m_window->answer, int(QMessageBox::No));
    }

    void aWaitEndsWhenGivenUp()
    {
        QTimer::singleShot(20, this, [this] { m_operator->giveUp(); });
        QElapsedTimer clock;
        clock.start();
        QVERIFY(!m_operator->waitUntil([] { return false; }, 60000, "waited in vain"));
        QVERIFY(clock.elapsed() < 30000);
        QCOMPARE(m_operator->takeProblems(), QString("waited in vain"));
    }

    void framesAreCounted()
    {
        QTimer::singleShot(10, m_window.get(), [this] {
            for (int i = 0; i < 3; ++i)
                emit m_window->updateFrameDone();
        });
        QVERIFY(m_operator->waitForFrames(3, 10000));
        QCOMPARE(m_operator->paintedFrames(), 3);
        QVERIFY(!m_operator->waitForFrames(1, 20));
        QCOMPARE(m_operator->takeProblems(), QString("the live view stands still"));
    }

    void pictureMeasuresOfKnownPictures()
    {
        const PictureMeasures flat = measurePicture(grey(40, 30, 80));
        QCOMPARE(flat.brightness, 80.0);
        // Less than the square root of what a double leaves of 80^2: the library may fuse its sums.
        QVERIFY2(flat.contrast < 2e-6, qPrintable(QString::number(flat.contrast)));
        QCOMPARE(flat.sharpness, 0.0);
        const PictureMeasures striped = measurePicture(stripes(64, 8));
        QCOMPARE(striped.brightness, 125.0);
        QCOMPARE(striped.contrast, 25.0);
        // Seven edges, each met by two of the 62 pairs of a row.
        QCOMPARE(striped.sharpness, 7.0 * 2.0 * 50.0 * 50.0 / 62.0);
        QCOMPARE(measurePicture(QImage()).sharpness, 0.0);
    }

    void sharperPicturesMeasureSharper()
    {
        const QImage sharp = stripes(240, 12);
        double last = measurePicture(sharp).sharpness;
        for (const int width : {120, 60, 30}) {
            const QImage blurred = sharp.scaled(width, 32, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                                       .scaled(240, 32, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
            const double sharpness = measurePicture(blurred).sharpness;
            QVERIFY(sharpness < last);
            last = sharpness;
        }
    }

    void differencesNeedTheSameSize()
    {
        const QImage first = grey(4, 4, 10);
        QCOMPARE(pictureDifference(first, grey(4, 4, 10)), 0.0);
        QCOMPARE(pictureDifference(first, grey(4, 4, 30)), 20.0);
        QCOMPARE(pictureDifference(first, grey(4, 5, 10)), -1.0);
        QCOMPARE(pictureDifference(QImage(), QImage()), -1.0);
    }

    void darkSpotsAreFoundApart()
    {
        QImage picture = grey(200, 100, 180);
        QCOMPARE(darkSpots(picture, 2), QVector<QPoint>());
        picture.setPixel(40, 50, qRgb(60, 60, 60));
        picture.setPixel(42, 50, qRgb(70, 70, 70));
        picture.setPixel(100, 10, qRgb(150, 150, 150));
        QCOMPARE(darkSpots(picture, 2), QVector<QPoint>({{40, 50}}));
        picture.setPixel(150, 20, qRgb(30, 30, 30));
        QCOMPARE(darkSpots(picture, 2), QVector<QPoint>({{150, 20}, {40, 50}}));
        QCOMPARE(darkSpots(picture, 1), QVector<QPoint>({{150, 20}}));
        QCOMPARE(darkSpots(QImage(), 2), QVector<QPoint>());
    }

    void aStepWithAProblemFails()
    {
        QString text;
        QTextStream output(&text);
        const auto good = [] { return StepResult{true, "seen", "truth"}; };
        const auto bad = [] { return StepResult{false, "seen", {}}; };
        const auto hard = [this] {
            m_operator->noteProblem("stuck");
            return StepResult{true, {}, {}};
        };
        SessionRunner runner(*m_operator,
                             {{"good", "", false, good}, {"bad", "", false, bad}, {"hard", "", true, hard}},
                             output);
        runner.runInEventLoop();
        QCOMPARE(runner.reports().size(), std::size_t(2));
        runner.runAfterEventLoop();
        QCOMPARE(runner.exitStatus(), 1);
        QVERIFY(runner.reports()[0].holds());
        QVERIFY(!runner.reports()[1].holds());
        QCOMPARE(runner.reports()[2].problems, QString("stuck"));
        QVERIFY(!runner.reports()[2].holds());
        const QStringList lines = text.split('\n');
        QVERIFY(lines[0].contains("ok     good") && lines[0].contains("seen | true: truth"));
        QVERIFY(lines[1].contains("FAILED bad"));
        QVERIFY(lines[2].contains("FAILED hard") && lines[2].contains("problems: stuck"));
        QCOMPARE(lines[3], QString("1 of 3 steps as they should be"));
    }

    void stepsThatWereNotMadeFailTheSession()
    {
        QString text;
        QTextStream output(&text);
        const auto fine = [] { return StepResult{true, {}, {}}; };
        SessionRunner whole(*m_operator, {{"one", "", false, fine}, {"two", "", false, fine}}, output);
        whole.runInEventLoop();
        QCOMPARE(whole.exitStatus(), 0);
        std::vector<StepReport> duringStep;
        SessionRunner stopped(*m_operator,
                              {{"one", "", false,
                                [&] {
                                    // What asks from another thread sees it already.
                                    duringStep = stopped.reports();
                                    m_operator->giveUp();
                                    return fine();
                                }},
                               {"two", "", false, fine}},
                              output);
        stopped.runInEventLoop();
        stopped.runAfterEventLoop();
        QCOMPARE(stopped.reports().size(), std::size_t(1));
        QVERIFY(stopped.reports()[0].interrupted);
        QVERIFY(!stopped.reports()[0].holds());
        QCOMPARE(stopped.stepNames(), QStringList({"one", "two"}));
        QCOMPARE(duringStep.size(), std::size_t(1));
        QVERIFY(duringStep[0].interrupted && duringStep[0].name == "one");
        QVERIFY(text.endsWith("stopped in step one\n0 of 2 steps as they should be\n"));
        QCOMPARE(stopped.exitStatus(), 1);
    }

    void everyParameterTakesItsDefault()
    {
        InstrumentParameters parameters;
        for (const InstrumentParameter& parameter : instrumentParameters(parameters)) {
            const std::string value = parameterValue(parameter);
            if (value == "from the seed")
                continue;
            QCOMPARE(setParameter(parameters, std::string(parameter.name) + "=" + value), std::string());
            QCOMPARE(parameterValue(parameter), value);
            QVERIFY(*parameter.text != '\0');
        }
    }

    void aWrongValueChangesNothing()
    {
        InstrumentParameters parameters;
        for (const InstrumentParameter& parameter : instrumentParameters(parameters)) {
            const std::string before = parameterValue(parameter);
            const std::string sentence = setParameter(parameters, std::string(parameter.name) + "=$nonsense");
            QVERIFY2(sentence.find(parameter.name) != std::string::npos, parameter.name);
            QCOMPARE(parameterValue(parameter), before);
        }
        for (const char* wrong : {"target-dots=1,2,3", "target-dots=1,2,3,4,", "target-dots=1,2,3,2593",
                                  "led-on=yes", "dust=1.5", "noise=nan"})
            QVERIFY2(!setParameter(parameters, wrong).empty(), wrong);
    }

    void everyParameterHasItsOwnPlace()
    {
        InstrumentParameters plain;
        const std::vector<InstrumentParameter> before = instrumentParameters(plain);
        for (std::size_t changed = 0; changed < before.size(); ++changed) {
            InstrumentParameters parameters;
            const char* const name = before[changed].name;
            const std::string value = parameterValue(before[changed]);
            const std::string other = value == "on"    ? "off"
                                      : value == "off" ? "on"
                                      : name == std::string("target-dots")
                                          ? "1,2,3,4"
                                          : std::to_string(int(before[changed].most));
            QCOMPARE(setParameter(parameters, std::string(name) + "=" + other), std::string());
            const std::vector<InstrumentParameter> after = instrumentParameters(parameters);
            for (std::size_t i = 0; i < before.size(); ++i)
                QCOMPARE(parameterValue(after[i]) != parameterValue(before[i]),
                         i == changed && other != value);
        }
    }

    void everyFaultIsUnderstood()
    {
        for (const InstrumentFaultText& fault : instrumentFaultTexts()) {
            InstrumentFaults faults;
            const std::string text = fault.name == "ioctl" ? "ioctl:VIDIOC_QBUF:EBUSY:2" : fault.name;
            QCOMPARE(addFault(faults, text), std::string());
            QVERIFY(!fault.text.empty());
        }
        InstrumentFaults faults;
        QCOMPARE(addFault(faults, "late:MVP:3"), std::string());
        QCOMPARE(faults.line.size(), std::size_t(1));
        QCOMPARE(faults.line[0].command, std::string("MVP"));
        QCOMPARE(faults.line[0].nth, 3);
        QVERIFY(!addFault(faults, "late:MVP:0").empty());
        QVERIFY(!addFault(faults, "late:MVP:1/0").empty());
        QCOMPARE(addFault(faults, "late::1/20"), std::string());
        QCOMPARE(faults.line.back().nth, 0);
        QCOMPARE(faults.line.back().oneIn, 20);
        InstrumentFaults worn;
        QCOMPARE(addFault(worn, "worn-out"), std::string());
        QVERIFY(worn.stagePlay_steps > 0.0);
        QCOMPARE(worn.line.size(), std::size_t(2));
        QCOMPARE(worn.camera.size(), std::size_t(2));
        QVERIFY(!addFault(faults, "no-power:1").empty());
        QVERIFY(!addFault(faults, "").empty());
        QCOMPARE(faults.line.size(), std::size_t(2));
        QVERIFY(!faults.noBoardPower);
    }

    void aDragMovesWithTheButtonDown()
    {
        auto* field = new QWidget(m_window.get());
        field->setObjectName("FIELD");
        field->setGeometry(0, 200, 300, 200);
        field->show();
        QVERIFY(m_operator->dragOn("FIELD", {50, 60}, {90, 30}));
        QVERIFY(m_window->dragged.size() > 2);
        QCOMPARE(m_window->dragged.first(), QPoint(50, 260));
        QCOMPARE(m_window->dragged.last(), QPoint(140, 290));
        QVERIFY(m_operator->dragOn("FIELD", {20, 20}));
        QCOMPARE(m_window->dragged, QVector<QPoint>({{20, 220}, {20, 220}}));
        QCOMPARE(m_operator->takeProblems(), QString());
        // Only where it is covered itself, wherever its middle lies.
        m_window->cover->setGeometry(0, 200, 30, 30);
        m_window->cover->raise();
        QVERIFY(!m_operator->dragOn("FIELD", {20, 20}, {90, 30}));
        QCOMPARE(m_operator->takeProblems(), QString("FIELD is covered by COVER"));
    }

    void aFileDialogGetsItsName()
    {
        QTemporaryDir directory;
        QTimer::singleShot(0, m_window.get(), [&] {
            m_window->fileName =
                QFileDialog::getSaveFileName(m_window.get(), "Save", directory.path(), "Text (*.txt)");
        });
        m_operator->expectFileDialog("note");
        QVERIFY(m_operator->waitUntil([this] { return !m_window->fileName.isEmpty(); }, 20000));
        QCOMPARE(m_window->fileName, directory.filePath("note"));
        QCOMPARE(m_operator->boxes().size(), 1);
        QCOMPARE(m_operator->boxes().first().answer, QString("note"));
        QCOMPARE(m_operator->takeProblems(), QString());
    }

    void anUnexpectedFileDialogIsCancelledAndIsAProblem()
    {
        bool closed = false;
        QTimer::singleShot(
            0, m_window.get(),
            [&] {
                m_window->fileName = QFileDialog::getSaveFileName(m_window.get(), "Save", QDir::tempPath());
                closed = true;
            });
        QVERIFY(m_operator->waitUntil([&] { return closed; }, 20000));
        QCOMPARE(m_window->fileName, QString());
        QVERIFY(m_operator->takeProblems().startsWith("unexpected box \"Save\""));
        m_operator->expectFileDialog("never");
        QCOMPARE(m_operator->takeProblems(), QString("an expected box did not come up"));
    }

    void disabledControlsAreNamed()
    {
        QCOMPARE(m_operator->disabledControls(), QStringList());
        m_window->button->setEnabled(false);
        QCOMPARE(m_operator->disabledControls(), QStringList("BUTTON"));
        m_window->setEnabled(false);
        QCOMPARE(m_operator->disabledControls(), QStringList("the whole window"));
    }

    void oneTableOrdersThePlans()
    {
        InstrumentParameters parameters;
        parameters.instant = true;
        SimulatedInstrument instrument(parameters);
        QCOMPARE(instrument.error(), QString());
        SessionContext context(*m_operator, instrument);
        const std::map<SessionPlan, int> sizes{{SessionPlan::Day, 40}, {SessionPlan::Calibration, 11}};
        for (const auto& [plan, size] : sizes) {
            QStringList names;
            for (const SessionStep& step : sessionSteps(context, plan)) {
                names.append(step.name);
                QVERIFY(*step.text != '\0');
                QCOMPARE(step.afterEventLoop, names.last() == "ended" || names.last() == "parked");
            }
            QCOMPARE(names.size(), size);
            QCOMPARE(names, sessionStepNames(plan));
            QCOMPARE(names.removeDuplicates(), 0);
            QCOMPARE(sessionSteps(context, plan, {"exit", "window"}).size(), std::size_t(2));
            QCOMPARE(QString(sessionSteps(context, plan, {"exit", "window"})[0].name), QString("window"));
        }
        // A plan leaves steps out, and never makes them in another order.
        QStringList day = sessionStepNames(SessionPlan::Day);
        for (const QString& name : sessionStepNames(SessionPlan::Day))
            if (!sessionStepNames(SessionPlan::Calibration).contains(name))
                day.removeAll(name);
        QCOMPARE(day, sessionStepNames(SessionPlan::Calibration));
    }

private:
    std::unique_ptr<PracticeWindow> m_window;
    std::unique_ptr<Operator> m_operator;
};

QTEST_MAIN(TestSessionParts)
#include "test_session_parts.moc"
