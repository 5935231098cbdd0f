#include "ORLA_II_Plus_Verifier.h"

#include <algorithm>
#include <cstdio>
#include <initializer_list>
#include <utility>

#include <QAbstractButton>
#include <QApplication>
#include <QCloseEvent>
#include <QMessageBox>
#include <QMouseEvent>
#include <QSettings>
#include <QTimer>

#include "BoardState.h"
#include "Controller/Controller.h"
#include "PanelSetup.h"
#include "WindowStyle.h"
#include "camera/FrameSlots.h"
#include "camera/GrabThread.h"
#include "camera/OV5642Camera.h"
#include "debug/DebugController.h"
#include "debug/DebugFormat.h"
#include "debug/DebugMessage.h"
#include "platform/ChildProcess.h"
#include "platform/DebugLog.h"
#include "platform/DeviceCalls.h"
#include "platform/InstrumentPath.h"
#include "settings/GlobalIni.h"
#include "settings/SettingsFiles.h"
#include "settings/StoredObjects.h"
#include "ui_ORLA_II_Plus_Verifier.h"

namespace {

constexpr int kWindowWidth_px = 800;
constexpr int kWindowHeight_px = 480;
constexpr int kSyncInterval_ms = 1000;

constexpr const char* kDisplayLayerParameter = "/sys/module/disp/parameters/disp_layer_protect";
constexpr const char* kInstrumentDirectory = "/opt/ORLA3";
constexpr const char* kScriptDirectory = "/bin";

/// What BUTTON_DEBUG shows, as SPIN_DEBUG counts it.
enum DebugDisplay { kShowMessages = 1, kShowController = 2, kShowFocusGraph = 3 };

} // namespace

ORLA_II_Plus_Verifier::ORLA_II_Plus_Verifier(QWidget* parent)
    : QMainWindow(parent), m_form(std::make_unique<Ui_ORLA_II_Plus_Verifier>())
{
    Q_INIT_RESOURCE(GUI);
    setUpFont();
    m_form->setupUi(this);
    releaseDisplayLayer();
    setFixedSize(kWindowWidth_px, kWindowHeight_px);
    setAttribute(Qt::WA_OpaquePaintEvent);
    std::copy(kCalibrationRegisters.begin(), kCalibrationRegisters.end(), g_RegIdx);

    m_settingsFile = kMainSettingsFile;
    QSettings settings(readableSettingsPath(m_settingsFile), QSettings::IniFormat);
    get_INI_value(settings);
    m_settingsState = 1;

    m_syncTimer = new QTimer(this);
    connect(m_syncTimer, &QTimer::timeout, this, &ORLA_II_Plus_Verifier::slot_Timer_sync);
    m_syncTimer->setInterval(kSyncInterval_ms);
    m_syncTimer->start();

    createConsoles();
    markButton(m_form->BUTTON_CAPTURE, true);
    m_viewRect = kLiveViewRect;
    createFrames();

    m_camera = new OV5642Camera(this);
    connect(m_camera, &OV5642Camera::sig_debug_Message, this, &ORLA_II_Plus_Verifier::slot_debug_Message);
    m_cameraMode = -1;
    markButton(m_form->BUTTON_STAINING_NTB, true);
    markButton(m_form->BUTTON_STAINING_TB, false);
    m_stained = false;
    on_BUTTON_RESOLUTION_1280_clicked();

    m_form->BUTTON_CONNECT->setEnabled(global_ini()->bZig_mode);
    if (global_ini()->bZig_mode)
        showBoardState(m_form->BUTTON_CONNECT);
    connectController();

    setState_QC_widget(QC_WIDGET_HIDDEN);
    connectQC();
    createNotice();
}

ORLA_II_Plus_Verifier::~ORLA_II_Plus_Verifier()
{
    // Exit stops the camera before the event loop ends. Should the window go another way,
    // its grab thread must not outlive the camera that goes with it.
    discardGrabThread();
}

/// Lets the video layer of the panel through; the parameter exists only with its driver.
void ORLA_II_Plus_Verifier::releaseDisplayLayer()
{
    if (std::FILE* file = std::fopen(instrumentPath(std::string(kDisplayLayerParameter)).c_str(), "w")) {
        std::fprintf(file, "%d", 0);
        std::fclose(file);
    }
}

void ORLA_II_Plus_Verifier::createConsoles()
{
    m_messageConsole = new DebugMessage(this);
    m_messageConsole->setGeometry(kLiveViewRect);
    m_messageConsole->hide();
    m_controllerConsole = new DebugController(this);
    m_controllerConsole->setGeometry(kLiveViewRect);
    m_controllerConsole->hide();
    m_consoleState = 0;
    connect(this, &ORLA_II_Plus_Verifier::sig_debug_Message, this,
            &ORLA_II_Plus_Verifier::slot_debug_Message);
}

void ORLA_II_Plus_Verifier::createFrames()
{
    static std::array<unsigned char*, kCameraModeCount> processBuffers{};
    for (int mode = 0; mode < kCameraModeCount; ++mode) {
        unsigned char*& buffer = processBuffers.at(mode);
        // Of zeros, and no memory's worth until a frame comes: a mode that is not used costs none.
        if (buffer == nullptr)
            buffer = allocateZeroed(kCaptureModes.at(mode).rgbBytes()).release();
        Q_CHECK_PTR(buffer);
    }
    m_frameBuffers = processBuffers;
}

void ORLA_II_Plus_Verifier::connectController()
{
    Controller* controller = Controller::getInstance();
    // Before the port is opened, so that the handshake can be read in the console.
    connect(controller, &Controller::sig_debug_Controller, this,
            &ORLA_II_Plus_Verifier::slot_debug_Controller);
    connect(controller, &Controller::sig_connected_controller, this,
            &ORLA_II_Plus_Verifier::slot_connected_controller, Qt::UniqueConnection);
    connect(controller, &Controller::sig_z_stage_origin, this, &ORLA_II_Plus_Verifier::slot_z_stage_origin);
    connect(controller, &Controller::sig_z_stage_mvn, this, &ORLA_II_Plus_Verifier::slot_z_stage_mvn);
    connect(controller, &Controller::sig_z_stage_mvp, this, &ORLA_II_Plus_Verifier::slot_z_stage_mvp);
    connect(controller, &Controller::sig_z_stage_abs, this, &ORLA_II_Plus_Verifier::slot_z_stage_abs);
    controller->m_bZigMode = global_ini()->bZig_mode;
    controller->openSerialPort();
}

void ORLA_II_Plus_Verifier::connectQC()
{
    QC_measure* measure = m_form->QC_MEASURE;
    connect(measure, &QC_measure::sig_measure_point, this, &ORLA_II_Plus_Verifier::slot_measure_point);
    connect(measure, &QC_measure::sig_measure_result, this, &ORLA_II_Plus_Verifier::slot_measure_result);
    connect(measure, &QC_measure::sig_measure_error, this, &ORLA_II_Plus_Verifier::slot_measure_error);
    m_fullSizeTimer = new QTimer(this);
    m_fullSizeTimer->setSingleShot(true);
    // A coarse timer of this length may be up to 125 ms early.
    m_fullSizeTimer->setTimerType(Qt::PreciseTimer);
    connect(m_fullSizeTimer, &QTimer::timeout, this, &ORLA_II_Plus_Verifier::slot_prepare_QC_measure);
}

/// Locks the window against presses and shows it before a step that blocks.
void ORLA_II_Plus_Verifier::disableAndPaint()
{
    setEnabled(false);
    QCoreApplication::processEvents();
}

void ORLA_II_Plus_Verifier::markButton(QPushButton* button, bool highlighted)
{
    button->setStyleSheet(highlighted ? kHighlightStyle : kPlainStyle);
}

/// Before a step that may block for many seconds: highlights the button and locks the whole
/// window, so that no press gets in when the events are processed, nor waits for the end.
void ORLA_II_Plus_Verifier::showBusy(QPushButton* button)
{
    markButton(button, true);
    button->setEnabled(false);
    disableAndPaint();
}

void ORLA_II_Plus_Verifier::endBusy(QPushButton* button, const QString& style)
{
    button->setStyleSheet(style);
    button->setEnabled(true);
}

void ORLA_II_Plus_Verifier::slot_Timer_sync()
{
    m_mediaMonitor.keepWatching();
    if (m_mediaMonitor.searchUSB())
        deviceCalls().syncFileSystems();
}

void ORLA_II_Plus_Verifier::slot_connected_controller()
{
    logMessage(this, {Q_FUNC_INFO});
    if (global_ini()->bZig_mode) {
        markButton(m_form->BUTTON_CONNECT, true);
        m_form->BUTTON_CONNECT->setText("O");
        repaint();
    }
    Controller::getInstance()->z_stage_origin(SERIAL_BLOCKING);
    apply_INI_value();
}

void ORLA_II_Plus_Verifier::slot_debug_Message(const QStringList& parts)
{
    m_messageConsole->insertPlainText(formatDebugMessage(parts));
    m_messageConsole->ensureCursorVisible();
}

void ORLA_II_Plus_Verifier::slot_debug_Controller(const QString& line)
{
    m_controllerConsole->insertPlainText(line);
    m_controllerConsole->ensureCursorVisible();
}

void ORLA_II_Plus_Verifier::on_BUTTON_CONNECT_clicked()
{
    logMessage(this, {Q_FUNC_INFO});
    markButton(m_form->BUTTON_CONNECT, false);
    m_form->BUTTON_CONNECT->setText("X");
    // What is pressed already waits: it would lose its answers to the exchanges that follow.
    QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
    // It would open the port again.
    if (!m_quitting)
        Controller::getInstance()->trySerialPort();
}

void ORLA_II_Plus_Verifier::on_BUTTON_EXIT_clicked()
{
    logMessage(this, {Q_FUNC_INFO});
    if (QMessageBox::question(this, kMessageTitle, "Are you sure quit ?", QMessageBox::Yes | QMessageBox::No,
                              QMessageBox::NoButton) == QMessageBox::Yes)
        shutDown(Q_FUNC_INFO);
}

void ORLA_II_Plus_Verifier::slot_terminate()
{
    logMessage(this, {Q_FUNC_INFO});
    shutDown(Q_FUNC_INFO);
}

/// Parks the hardware and ends the event loop, once. The window stays locked: what was pressed
/// meanwhile is not to be carried out between here and the end.
void ORLA_II_Plus_Verifier::shutDown(const char* signature)
{
    if (m_quitting)
        return;
    m_quitting = true;
    logMessage(this, {signature, "shutdown hardware"});
    Controller* controller = Controller::getInstance();
    // A reply or a frame that comes now does not carry on what is waiting for it.
    controller->setPortListener(false);
    m_fullSizeTimer->stop();
    const QString style = m_form->BUTTON_EXIT->styleSheet();
    showBusy(m_form->BUTTON_EXIT);
    parkHardware();
    endBusy(m_form->BUTTON_EXIT, style);
    QCoreApplication::quit();
}

/// LED off and stage home, unless in Zig mode; camera and port closed.
void ORLA_II_Plus_Verifier::parkHardware()
{
    if (std::exchange(m_parked, true))
        return;
    Controller* controller = Controller::getInstance();
    if (!global_ini()->bZig_mode) {
        controller->led_off();
        controller->z_stage_origin(SERIAL_BLOCKING);
    }
    stopCamera();
    controller->closeSerialPort();
}

void ORLA_II_Plus_Verifier::parkUnseen()
{
    m_quitting = true;
    for (QObject* sender : std::initializer_list<QObject*>{this, Controller::getInstance(), m_camera})
        sender->blockSignals(true);
    parkHardware();
}

void ORLA_II_Plus_Verifier::on_BUTTON_PASSWORD_clicked()
{
    logMessage(this, {Q_FUNC_INFO});
    const QString script = QString("%1%2/set_password.sh").arg(kInstrumentDirectory, kScriptDirectory);
    showBusy(m_form->BUTTON_PASSWORD);
    if (m_quitting)
        return;
    runChildProcess(instrumentPath(script), QStringList());
    endBusy(m_form->BUTTON_PASSWORD, kPlainStyle);
    setEnabled(true);
    repaint();
    QMessageBox::information(this, kMessageTitle, "The serial number has been set as the password!",
                             QMessageBox::Ok);
}

void ORLA_II_Plus_Verifier::on_BUTTON_DEBUG_clicked(bool checked)
{
    markButton(m_form->BUTTON_DEBUG, checked);
    if (checked) {
        switch (m_form->SPIN_DEBUG->value()) {
        case kShowMessages:
            m_messageConsole->show();
            m_messageConsole->raise();
            break;
        case kShowController:
            m_controllerConsole->show();
            m_controllerConsole->raise();
            break;
        case kShowFocusGraph:
            m_graphDisplayed = true;
            break;
        default:
            break;
        }
    } else {
        m_messageConsole->hide();
        m_controllerConsole->hide();
        m_graphDisplayed = false;
    }
    repaint();
}

bool ORLA_II_Plus_Verifier::event(QEvent* event)
{
    if (event->type() == QEvent::WindowBlocked)
        letGoOfButtons();
    return QMainWindow::event(event);
}

/// A box or a dialog comes up: the window does not hear any more that a button is let go. One
/// that is held would stay down, and the stage go on behind the box. It takes this for the
/// finger's sliding off.
void ORLA_II_Plus_Verifier::letGoOfButtons()
{
    const QPointF outside(-1.0, -1.0);
    const QList<QAbstractButton*> buttons = findChildren<QAbstractButton*>();
    for (QAbstractButton* button : buttons) {
        if (!button->isDown())
            continue;
        QMouseEvent away(QEvent::MouseMove, outside, Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(button, &away);
    }
}

void ORLA_II_Plus_Verifier::closeEvent(QCloseEvent* event)
{
    event->ignore();
    if (isEnabled())
        on_BUTTON_EXIT_clicked();
}
