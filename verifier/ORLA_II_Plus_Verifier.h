#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QElapsedTimer>
#include <QMainWindow>
#include <QPixmap>
#include <QPoint>
#include <QRect>
#include <QStringList>

#include "Algorithm/AutoFocusingData.h"
#include "NoticeLines.h"
#include "QC/QC_measure.h"
#include "RegisterSteps.h"
#include "media/MediaMonitor.h"
#include "settings/CaptureModes.h"

class DebugController;
class DebugMessage;
class GrabThread;
class LiveViewNotice;
class OV5642Camera;
class QLineEdit;
class QPainter;
class QPushButton;
class QSettings;
class QTimer;
class Ui_ORLA_II_Plus_Verifier;
class alg_Autofocus;

/// Enable state of the QC tab's controls.
enum QC_widget_e {
    QC_WIDGET_HIDDEN = 0,   ///< no frozen frame: still image hidden, controls disabled
    QC_WIDGET_POINTS = 1,   ///< frame frozen, targeting off
    QC_WIDGET_TARGETING = 2 ///< frame frozen, targeting on
};

/// The whole user interface: one fixed 800 x 480 window, live view on the left 640 x 480,
/// controls on the right.
///
/// GUI thread, which controller exchanges and sensor accesses block while they last. Slots
/// named on_<widget>_<signal> are bound by name. Each source file is one concern; the
/// sections below follow the files.
class ORLA_II_Plus_Verifier : public QMainWindow
{
    Q_OBJECT

public:
    explicit ORLA_II_Plus_Verifier(QWidget* parent = nullptr);
    ~ORLA_II_Plus_Verifier() override;

    /// What Exit does with the hardware, for a process whose event loop has ended or will not go on,
    /// perhaps for want of a screen: shows and reports nothing. After Exit it does nothing.
    void parkUnseen();

signals:
    /// One log message: the emitting function's signature text, then labels and values.
    void sig_debug_Message(QStringList parts);
    /// The delivered frame has been made into a picture; its buffer may be filled again.
    void updateFrameDone();

    // ORLA_II_Plus_Verifier.cpp: life cycle, controller connection, consoles
public slots:
    /// Flushes the file systems while a USB disk is mounted, so that it can be pulled.
    void slot_Timer_sync();
    /// The board answered: homes the stage and applies the stored settings.
    void slot_connected_controller();
    /// Formats one message into the message console.
    void slot_debug_Message(const QStringList& parts);
    /// Shows one line of controller traffic as sent or received.
    void slot_debug_Controller(const QString& line);
    /// The process was asked from outside to end: does what Exit does after Yes.
    void slot_terminate();

private slots:
    void on_BUTTON_CONNECT_clicked();
    void on_BUTTON_EXIT_clicked();
    void on_BUTTON_PASSWORD_clicked();
    void on_BUTTON_DEBUG_clicked(bool checked);

protected:
    /// Only the exit button ends the program: a window manager's close request asks its question.
    void closeEvent(QCloseEvent* event) override;
    /// Lets go of a button that is held when a box comes up.
    bool event(QEvent* event) override;

private:
    void letGoOfButtons();
    void releaseDisplayLayer();
    void createConsoles();
    void createFrames();
    void connectController();
    void connectQC();
    void shutDown(const char* signature);
    void parkHardware();
    void disableAndPaint();
    void showBusy(QPushButton* button);
    void endBusy(QPushButton* button, const QString& style);
    void markButton(QPushButton* button, bool highlighted);
    template <class Work>
    void runBusy(QPushButton* button, Work work);

    // ORLA_II_Plus_Verifier_Stage.cpp
public slots:
    /// A non-blocking stage command was answered: asks for the position and shows it. The end
    /// of homing and of an absolute move also unlock the window, which the latter locks.
    void slot_z_stage_origin();
    void slot_z_stage_mvn();
    void slot_z_stage_mvp();
    void slot_z_stage_abs();

private slots:
    void on_SPIN_Z_STEP_valueChanged(int steps);
    void on_SPIN_Z_SPEED_valueChanged(int speed);
    void on_BUTTON_Z_POSITION_clicked();
    void on_BUTTON_Z_MOVE_PLUS_clicked();
    void on_BUTTON_Z_MOVE_MINUS_clicked();
    void on_BUTTON_Z_ROTATE_PLUS_pressed();
    void on_BUTTON_Z_ROTATE_MINUS_pressed();
    void on_BUTTON_Z_ROTATE_PLUS_released();
    void on_BUTTON_Z_ROTATE_MINUS_released();
    void on_BUTTON_Z_STOP_clicked();
    void on_BUTTON_Z_ABS_clicked();
    void on_BUTTON_Z_ORIGIN_clicked();
    void on_BUTTON_Z_MOVE_REFERENCE_clicked();
    void on_BUTTON_Z_DIAGNOSIS_clicked();
    void on_BUTTON_Z_SET_REFERENCE_clicked();

private:
    void showStagePosition(int position_steps);
    void queryStagePosition();
    void unlockAfterMove();
    void settleTypedNumbers();

    // ORLA_II_Plus_Verifier_Camera.cpp: start and stop, resolution and staining
public:
    /// Creates, wires and starts the grab thread for the mode (a CameraMode).
    void startCamera(int mode);
    /// Stops the grab thread and closes a streaming camera, then leaves the sensor half a second.
    void stopCamera();

private slots:
    void on_BUTTON_RESOLUTION_VGA_clicked();
    void on_BUTTON_RESOLUTION_1280_clicked();
    void on_BUTTON_RESOLUTION_5M_clicked();
    void on_BUTTON_STAINING_NTB_clicked();
    void on_BUTTON_STAINING_TB_clicked();

private:
    void switchResolution(int mode);
    void switchStaining(bool stained);
    void stopForSwitch();
    void discardGrabThread();
    void openCamera(int mode);

    // ORLA_II_Plus_Verifier_Trim.cpp: sensor settings and LED of the camera tab
public:
    /// Shows a setting as four hexadecimal digits, writes its two registers and keeps it in the
    /// table of the staining, in the row of the resolution. Limits are the buttons' (RegisterSteps.h).
    void set_EXPOSURE(unsigned int value);
    void set_GAIN(unsigned int value);
    void set_COLOR_RED(unsigned int value);
    void set_COLOR_GREEN(unsigned int value);
    void set_COLOR_BLUE(unsigned int value);
    /// Stores, shows and sends the LED level (0 to 1000).
    void set_LED(unsigned int level);
    /// Reads the five sensor settings back into the tab.
    void getCamera_reg();

private slots:
    void on_BUTTON_EXPOSURE_FINE_DOWN_clicked();
    void on_BUTTON_EXPOSURE_FINE_UP_clicked();
    void on_BUTTON_EXPOSURE_COARSE_DOWN_clicked();
    void on_BUTTON_EXPOSURE_COARSE_UP_clicked();
    void on_BUTTON_GAIN_FINE_DOWN_clicked();
    void on_BUTTON_GAIN_FINE_UP_clicked();
    void on_BUTTON_GAIN_COARSE_DOWN_clicked();
    void on_BUTTON_GAIN_COARSE_UP_clicked();
    void on_BUTTON_COLOR_RED_FINE_DOWN_clicked();
    void on_BUTTON_COLOR_RED_FINE_UP_clicked();
    void on_BUTTON_COLOR_RED_COARSE_DOWN_clicked();
    void on_BUTTON_COLOR_RED_COARSE_UP_clicked();
    void on_BUTTON_COLOR_GREEN_FINE_DOWN_clicked();
    void on_BUTTON_COLOR_GREEN_FINE_UP_clicked();
    void on_BUTTON_COLOR_GREEN_COARSE_DOWN_clicked();
    void on_BUTTON_COLOR_GREEN_COARSE_UP_clicked();
    void on_BUTTON_COLOR_BLUE_FINE_DOWN_clicked();
    void on_BUTTON_COLOR_BLUE_FINE_UP_clicked();
    void on_BUTTON_COLOR_BLUE_COARSE_DOWN_clicked();
    void on_BUTTON_COLOR_BLUE_COARSE_UP_clicked();
    void on_BUTTON_LED_FINE_DOWN_clicked();
    void on_BUTTON_LED_FINE_UP_clicked();
    void on_BUTTON_LED_COARSE_DOWN_clicked();
    void on_BUTTON_LED_COARSE_UP_clicked();
    void on_EDIT_LED_returnPressed();
    void on_BUTTON_LED_clicked(bool checked);

private:
    /// One sensor setting of the tab: its widgets beside what RegisterSteps.h knows of it.
    struct SettingWidgets
    {
        QLineEdit* edit;
        QPushButton* fineDown;
        QPushButton* fineUp;
        QPushButton* coarseDown;
        QPushButton* coarseUp;
    };
    SettingWidgets settingWidgets(SensorSetting setting) const;
    void setSensorSetting(SensorSetting setting, unsigned int value, const char* signature);
    void stepSensorSetting(SensorSetting setting, SettingStep step);
    void stepLED(SettingStep step);
    static void enableSteps(const SettingWidgets& widgets, const StepsEnabled& enabled);
    void enableLedSteps(int level);

    // ORLA_II_Plus_Verifier_LiveView.cpp
public slots:
    /// A frame was delivered: repaints the live view rectangle only.
    void updateFrame();

public:
    /// Navigator position rectangle of the current mode and view offset.
    void SetNavigatorRect(QRect& rectangle);

private slots:
    void on_CHECK_CROSS_LINE_clicked();
    void on_CHECK_SCALED_TO_FIT_clicked(bool checked);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    void paintBackground(QPainter& painter, const QRegion& region);
    void makeFramePicture();
    void paintPicture(QPainter& painter);
    const QPixmap& fittedPicture(const QPixmap& picture);
    void paintNavigator(QPainter& painter);
    void paintCrossLine(QPainter& painter);

    // ORLA_II_Plus_Verifier_Notice.cpp: what the instrument is missing
private slots:
    void refreshNotice();
    QStringList boardDoubts() const;

private:
    void createNotice();

    // ORLA_II_Plus_Verifier_Capture.cpp: TIFF capture, screenshot, skip frame
protected:
    void keyPressEvent(QKeyEvent* event) override;

private slots:
    void on_BUTTON_CAPTURE_clicked();
    void on_BUTTON_SKIP_FRAME_clicked();

private:
    bool isUsbDiskMounted();
    void writeFrame(const QString& fileName);

    // ORLA_II_Plus_Verifier_Autofocus.cpp
public slots:
    /// The run under way: where the stage stands, a sample taken, the samples of a sweep with
    /// the index of the best, the end. All go to the log, the samples of a step to its review.
    void slot_move_z_position(int position_steps);
    void slot_progress_AutoFocusing(int step);
    void slot_review_AutoFocusing(int step, std::vector<AutoFocusingData_t> samples, int bestIndex);
    void slot_endAutoFocusing(int position_steps);

private slots:
    void on_BUTTON_AUTOFOCUS_clicked();

private:
    void connectAutofocus();
    void enableRunControls(bool on);
    void updateGraph();
    void paintFocusGraph(QPainter& painter);

    // ORLA_II_Plus_Verifier_QC.cpp
public slots:
    void slot_prepare_QC_measure();
    /// What the frozen frame gave: point 0 or 1 at (x, y) in image pixels, a measurement, or the
    /// reason why no point was found. Each unlocks the window.
    void slot_measure_point(int index, int x, int y);
    void slot_measure_result(MeasureInfo_t result);
    void slot_measure_error(TargetingError_e error);

public:
    /// Shows or hides the frozen frame and enables the tab's controls; other values do nothing.
    void setState_QC_widget(QC_widget_e state);

private slots:
    void on_BUTTON_QC_CAPTURE_clicked();
    void on_CHECK_TARGET_clicked(bool checked);
    void on_BUTTON_POINT_1_clicked();
    void on_BUTTON_POINT_2_clicked();
    void on_BUTTON_QC_MEASURE_clicked();
    void on_BUTTON_INTENSITY_clicked();

private:
    void enterQC();
    void leaveQC();
    void findPoint(int index);

    // ORLA_II_Plus_Verifier_Settings.cpp
public:
    /// Loads every settings file into the settings record; once, at construction.
    void get_INI_value(QSettings& settings);
    /// Brings widgets and hardware in line with the settings record.
    void apply_INI_value();
    /// Writes what belongs to the open tab.
    void set_INI_value(QSettings& settings);

private slots:
    void on_BUTTON_SAVE_INI_clicked();

private:
    void logSavedQC(const char* signature, const QString& serial);
    void logUnsaved(const char* signature, const QString& fixedPath);

private:
    static constexpr int kReviewSteps = 3;

    MediaMonitor m_mediaMonitor;
    // The calibration file last chosen by the staining flag.
    std::string m_registerFile;
    // 1 once the settings are loaded. No code reads it: in the core dump of a start that hangs or
    // dies it shows how far the start has come.
    std::int32_t m_settingsState = 0;
    QTimer* m_syncTimer = nullptr;
    DebugMessage* m_messageConsole = nullptr;
    DebugController* m_controllerConsole = nullptr;
    // For the same reader: 0, both consoles hidden, as the start leaves them. Not updated later.
    int m_consoleState = 0;
    // Once set, nothing more is begun: no move of the stage, no opening of a device.
    bool m_quitting = false;
    bool m_parked = false;
    OV5642Camera* m_camera = nullptr;
    std::unique_ptr<GrabThread> m_grabThread;
    // A CameraMode; -1 until the constructor starts the camera, when only a repaint
    // can come: no handler meets it.
    int m_cameraMode = -1;
    // False NTB, true TB.
    bool m_stained = false;
    int m_frameWidth_px = 0;
    int m_frameHeight_px = 0;
    // Null until a mode's first frame: then black is shown.
    std::array<QPixmap, kCameraModeCount> m_framePictures;
    // Number of the frame that each picture was made from; none: of a buffer of nobody's.
    std::array<std::optional<std::uint64_t>, kCameraModeCount> m_pictureContents;
    // A frame picture scaled to the view, and that picture's QPixmap::cacheKey().
    QPixmap m_fittedPicture;
    qint64 m_fittedOf = 0;
    // RGB24, rows top to bottom, no padding. One set for the process, never freed: they
    // outlive the window because a frame may be under way until the very end.
    std::array<unsigned char*, kCameraModeCount> m_frameBuffers{};

    QRect m_viewRect;
    bool m_dragging = false;
    QPoint m_lastMouse;
    // Top-left frame pixel of the 1:1 view.
    QPoint m_viewOffset;
    bool m_graphDisplayed = false;
    int m_screenshotNumber = 1;

    alg_Autofocus* m_autofocus = nullptr;
    int m_autofocusProgress = 0;
    // Of the run under way or the last one: whether the board confirmed all of it.
    int m_unconfirmedBefore = 0;
    bool m_focusDoubtful = false;
    std::array<std::vector<AutoFocusingData_t>, kReviewSteps> m_reviewSamples;
    std::array<int, kReviewSteps> m_reviewBestIndex{};

    std::unique_ptr<Ui_ORLA_II_Plus_Verifier> m_form;
    QString m_settingsFile;
    // 1 while a frame is frozen, or about to be.
    std::int32_t m_QC_mode = 0;
    // True from a capture that found no 5M frame to freeze until the live view is back.
    bool m_fullSizeFrameMissing = false;
    // Runs from a capture in a smaller mode until the 5M frame is frozen.
    QTimer* m_fullSizeTimer = nullptr;

    LiveViewNotice* m_notice = nullptr;
    FrameWatch m_frameWatch;
    QElapsedTimer m_noticeClock;
};
