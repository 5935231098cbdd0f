#include "Algorithm/alg_Autofocus.h"

#include <cstdint>
#include <cstdlib>
#include <exception>

#include <QDateTime>
#include <QLocale>
#include <QThread>

#include "Algorithm/FocusLog.h"
#include "Controller/Controller.h"
#include "camera/OV5642Camera.h"
#include "platform/DebugLog.h"
#include "settings/CaptureModes.h"

using focus_sweep::Action;
using focus_sweep::boundedSteps;
using focus_sweep::State;

namespace {

// compare_focus(): a peak is believed in from this sample on, and after this much of a fall.
constexpr int kFirstPeakIndex = 7;
constexpr double kPeakFall = 50.0;

Controller* controller()
{
    return Controller::getInstance();
}

QString timeText()
{
    return QLocale::c().toString(QDateTime::currentDateTime(), QStringLiteral("yyyy/MM/dd hh:mm:ss,zzz"));
}

QString sweepText(int interval, int count)
{
    return QStringLiteral("interval: %1, count: %2").arg(interval).arg(count);
}

int registerSampleTypes()
{
    qRegisterMetaType<AutoFocusingData_t>("AutoFocusingData_t");
    return qRegisterMetaType<std::vector<AutoFocusingData_t>>("std::vector<AutoFocusingData_t>");
}

} // namespace

alg_Autofocus::alg_Autofocus(QObject* parent, OV5642Camera* camera, int centreZ, int frameWidth_px,
                             int frameHeight_px, bool saveImages)
    : QObject(parent),
      m_camera(camera),
      m_centreZ(centreZ),
      m_frameWidth_px(frameWidth_px),
      m_frameHeight_px(frameHeight_px),
      m_saveImages(saveImages),
      m_resultZ(centreZ)
{
    static const int sampleListType = registerSampleTypes();
    Q_UNUSED(sampleListType)
}

// ---- run ----

void alg_Autofocus::process()
{
    logMessage(this, {Q_FUNC_INFO});
    m_loggedErrors.clear();
    if (m_saveImages) {
        m_logDirectory = focus_log::directoryOf(QDateTime::currentDateTime());
        const QString directory = focus_log::stepDirectory(m_logDirectory, 1);
        if (!focus_log::createDirectory(directory))
            logErrorOnce(Q_FUNC_INFO, QStringLiteral("[Error] create directory failed:"), directory);
    }
    m_state = State::Start;
    m_resultZ = m_centreZ;
    m_currentZ = controller()->m_zStagePosition;
    connect(controller(), &Controller::sig_z_stage_mvn, this, &alg_Autofocus::slot_z_stage_moved,
            Qt::UniqueConnection);
    connect(controller(), &Controller::sig_z_stage_mvp, this, &alg_Autofocus::slot_z_stage_moved,
            Qt::UniqueConnection);
    dispatch_proc();
}

// Every call into the state machine is its caller's last act: the object may be gone, deleted
// by whoever heard of the run's end, when it returns.
void alg_Autofocus::slot_z_stage_moved()
{
    logMessage(this, {Q_FUNC_INFO, timeText()});
    function_Z_stage();
    dispatch_proc();
}

void alg_Autofocus::dispatch_proc()
{
    const focus_sweep::Transition transition = focus_sweep::transitionOf(m_state, m_samples.size());
    m_state = transition.next;
    switch (transition.action) {
    case Action::None:
        break;
    case Action::PrepareCoarse:
        prepareAutoFocusing_Step2(focus_sweep::kCoarseInterval_steps, focus_sweep::kCoarseCount);
        break;
    case Action::StepCoarse:
        adjust_z_position(focus_sweep::kCoarseInterval_steps);
        break;
    case Action::StepFine:
        adjust_z_position(focus_sweep::kFineInterval_steps);
        break;
    case Action::StepCoarseBlocking:
        // The controller reports no blocking move, so the next sample is asked for here. The
        // coarse sweep recurses once per sample and ends, at fifteen, whatever the board does.
        logMessage(this, {Q_FUNC_INFO, timeText()});
        controller()->z_stage_mvp(SERIAL_BLOCKING, focus_sweep::kCoarseInterval_steps);
        slot_z_stage_moved();
        break;
    case Action::EvaluateCoarse:
        find_AutoFocusing_Position(false);
        goToResult();
        break;
    case Action::EvaluateFine:
        evaluateFineSweep();
        break;
    case Action::EvaluateThird:
        find_AutoFocusing_Position(true);
        goToResult();
        break;
    case Action::Finish:
        endAutoFocusing();
        emit sig_endAutoFocusing(m_resultZ);
        break;
    }
}

void alg_Autofocus::evaluateFineSweep()
{
    if (find_AutoFocusing_Position(true) == AutoFocusingResult_ThirdStepNecessary) {
        m_state = State::ThirdFirstStep;
        prepareAutoFocusing_Step(focus_sweep::kFineInterval_steps, focus_sweep::kFineCount);
    } else {
        goToResult();
    }
}

void alg_Autofocus::goToResult()
{
    m_state = State::MovingToResult;
    prepareEndAutoFocusing();
}

// ---- stage ----

void alg_Autofocus::function_Z_stage()
{
    m_currentZ = controller()->m_zStagePosition;
    emit sig_move_z_position(m_currentZ);
    if (focus_sweep::takesSamples(m_state)) {
        QThread::usleep(0);
        trigger_image_grab();
    }
}

void alg_Autofocus::prepareAutoFocusing_Step(int interval, int count)
{
    logMessage(this, {Q_FUNC_INFO, sweepText(interval, count)});
    const int position = beginSweep(interval, count);
    if (position == m_sweepStartZ) {
        dispatch_proc();
        return;
    }
    moveToSweepStart(position);
    controller()->z_stage_mvp(SERIAL_NON_BLOCKING, std::abs(interval));
}

void alg_Autofocus::prepareAutoFocusing_Step2(int interval, int count)
{
    logMessage(this, {Q_FUNC_INFO, sweepText(interval, count)});
    const int position = beginSweep(interval, count);
    writeDebugStream({QStringLiteral("------------> target : "), QString::number(m_sweepStartZ)});
    writeDebugStream({QStringLiteral("------------> current : "), QString::number(position)});
    if (position == m_sweepStartZ) {
        dispatch_proc();
        return;
    }
    moveToSweepStart(position);
    writeDebugStream({QStringLiteral("After move m_current_pos  : "), QString::number(m_currentZ)});
    writeDebugStream(
        {QStringLiteral("After move Real current : "), QString::number(controller()->z_stage_pos())});
    // The last act before the event loop: a blocking exchange after it would swallow the
    // reply that takes the first sample.
    controller()->z_stage_mvp(SERIAL_NON_BLOCKING, std::abs(interval));
}

int alg_Autofocus::beginSweep(int interval, int count)
{
    m_samples.clear();
    m_sweepStartZ = focus_sweep::sweepStart(m_resultZ, interval, count);
    return controller()->z_stage_pos();
}

void alg_Autofocus::moveToSweepStart(int currentZ)
{
    const std::int64_t distance = std::int64_t{m_sweepStartZ} - currentZ;
    if (distance < 0)
        controller()->z_stage_mvn(SERIAL_BLOCKING, boundedSteps(-distance));
    else
        controller()->z_stage_mvp(SERIAL_BLOCKING, boundedSteps(distance));
}

void alg_Autofocus::adjust_z_position(int interval)
{
    if (interval < 0)
        controller()->z_stage_mvn(SERIAL_NON_BLOCKING, boundedSteps(-std::int64_t{interval}));
    else
        controller()->z_stage_mvp(SERIAL_NON_BLOCKING, interval);
}

void alg_Autofocus::prepareEndAutoFocusing()
{
    logMessage(this, {Q_FUNC_INFO});
    const int position = controller()->z_stage_pos();
    if (m_resultZ != position)
        adjust_z_position(boundedSteps(std::int64_t{m_resultZ} - position));
}

void alg_Autofocus::endAutoFocusing()
{
    logMessage(this, {Q_FUNC_INFO});
    disconnect(controller(), &Controller::sig_z_stage_mvn, this, &alg_Autofocus::slot_z_stage_moved);
    disconnect(controller(), &Controller::sig_z_stage_mvp, this, &alg_Autofocus::slot_z_stage_moved);
}

// ---- samples ----

void alg_Autofocus::trigger_image_grab()
{
    cv::Mat frame;
    uchar* data = m_camera != nullptr ? m_camera->getFrame() : nullptr;
    if (data != nullptr && holdsWholeFrame()) {
        const std::size_t rowStep = static_cast<std::size_t>(m_frameWidth_px) * kRgbBytesPerPixel;
        frame = cv::Mat(m_frameHeight_px, m_frameWidth_px, CV_8UC3, data, rowStep);
    }
    analyze_grabbed_image_bG(frame);
}

bool alg_Autofocus::holdsWholeFrame() const
{
    return m_frameWidth_px > 0 && m_frameHeight_px > 0 &&
           std::uint64_t{m_camera->rgbFrameSize()} >=
               std::uint64_t(m_frameWidth_px) * std::uint64_t(m_frameHeight_px) * kRgbBytesPerPixel;
}

void alg_Autofocus::analyze_grabbed_image_bG(cv::Mat& frame)
{
    const double score = scoreOf(frame);
    m_samples.push_back({score, m_currentZ});
    if (m_saveImages)
        saveFrame(frame, score);
    emit sig_progress_AutoFocusing(focus_sweep::stepNumber(m_state));
}

double alg_Autofocus::scoreOf(const cv::Mat& frame)
{
    if (frame.empty() || frame.type() != CV_8UC3) {
        logErrorOnce(Q_FUNC_INFO, QStringLiteral("[Error] no frame"));
        return 0.0;
    }
    try {
        std::vector<cv::Mat> planes;
        cv::split(frame, planes);
        return brennerGradient(planes[focus_measures::kGreenPlane]);
    } catch (const std::exception& error) { // memory, at worst: the run goes on
        logErrorOnce(Q_FUNC_INFO, QStringLiteral("[Error] frame not scored:"),
                     QString::fromLocal8Bit(error.what()));
        return 0.0;
    }
}

void alg_Autofocus::saveFrame(const cv::Mat& frame, double score)
{
    const QString path = focus_log::frameFile(m_logDirectory, focus_sweep::stepNumber(m_state),
                                              m_samples.size(), m_currentZ, score);
    if (!frame.empty() && !focus_log::writeFrame(path, frame))
        logErrorOnce(Q_FUNC_INFO, QStringLiteral("[Error] write image failed:"), path);
}

void alg_Autofocus::saveScores(std::size_t best)
{
    const QString path = focus_log::scoreFile(m_logDirectory, focus_sweep::stepNumber(m_state));
    if (!focus_log::writeText(path, focus_log::scoreTable(m_samples, best)))
        logErrorOnce(Q_FUNC_INFO, QStringLiteral("[Error] write file failed:"), path);
}

AutoFocusingResult_e alg_Autofocus::find_best_focus(std::vector<AutoFocusingData_s>& samples,
                                                    std::size_t& best, bool checkThirdStep)
{
    const focus_sweep::BestSample verdict = focus_sweep::bestSample(samples, checkThirdStep);
    if (verdict.result != AutoFocusingResult_NoSample)
        best = verdict.index;
    if (verdict.result == AutoFocusingResult_ThirdStepNecessary)
        logMessage(this, {Q_FUNC_INFO, QStringLiteral("!!! AutoFocusingResult_ThirdStepNecessary !!!")});
    return verdict.result;
}

AutoFocusingResult_e alg_Autofocus::find_AutoFocusing_Position(bool checkThirdStep)
{
    std::size_t best = 0;
    const AutoFocusingResult_e result = find_best_focus(m_samples, best, checkThirdStep);
    m_resultZ = focus_sweep::resultPosition(m_samples, {result, best}, m_resultZ);
    if (result == AutoFocusingResult_NoSample)
        return result;
    if (m_saveImages)
        saveScores(best);
    emit sig_review_AutoFocusing(focus_sweep::stepNumber(m_state), m_samples, static_cast<int>(best));
    return result;
}

void alg_Autofocus::logErrorOnce(const QString& function, const QString& text, const QString& detail)
{
    if (m_loggedErrors.contains(text))
        return;
    m_loggedErrors.append(text);
    logMessage(this, detail.isEmpty() ? QStringList{function, text} : QStringList{function, text, detail});
}

// ---- measures ----

double alg_Autofocus::brennerGradient(const cv::Mat& plane)
{
    return focus_measures::brennerGradient(plane);
}

double alg_Autofocus::varianceOfLaplacian(const cv::Mat& image)
{
    return focus_measures::varianceOfLaplacian(image);
}

double alg_Autofocus::get_focusValue(cv::Mat& image)
{
    return varianceOfLaplacian(image);
}

int alg_Autofocus::find_fv_korvex_dark_edge(cv::Mat& frame, int channelMode, FOCUS_WINDOW_SIZE window)
{
    return focus_measures::darkPixelCount(frame, channelMode, window);
}

double alg_Autofocus::find_focus_value(unsigned char* data, int width, int height, double& value,
                                       FOCUS_VALUE_CRITERIA criteria, int channelMode,
                                       FOCUS_WINDOW_SIZE window)
{
    const std::int64_t start = cv::getTickCount();
    if (criteria == FOCUS_VALUE_DARK_PIXELS) {
        const std::size_t rowStep = static_cast<std::size_t>(width) * kRgbBytesPerPixel;
        cv::Mat frame(height, width, CV_8UC3, data, rowStep);
        value = find_fv_korvex_dark_edge(frame, channelMode, window);
        m_focusValues.push_back(value);
    }
    return static_cast<double>(cv::getTickCount() - start) / cv::getTickFrequency();
}

bool alg_Autofocus::compare_focus(double focusValue, int index)
{
    if (m_bestFocusValue <= focusValue) {
        m_bestFocusValue = focusValue;
        m_bestFocusIndex = index;
        return false;
    }
    // What is not a number is neither a best score nor a fall.
    if (index < kFirstPeakIndex || !(focusValue < m_bestFocusValue - kPeakFall))
        return false;
    if (m_bestFocusIndex >= 0 && static_cast<std::size_t>(m_bestFocusIndex) < m_samples.size())
        m_resultZ = m_samples[m_bestFocusIndex].zPosition;
    return true;
}
