#pragma once

#include <cstddef>
#include <vector>

#include <QObject>
#include <QString>
#include <QStringList>

#include <opencv2/core.hpp>

#include "Algorithm/AutoFocusingData.h"
#include "Algorithm/FocusMeasures.h"
#include "Algorithm/FocusSweep.h"

class OV5642Camera;

/// One autofocus run: moves the stage through a sweep of positions, scores the camera's
/// picture at each, and goes to the best.
///
/// Event-driven: every stage movement that the controller reports enters
/// slot_z_stage_moved(), and the state decides what comes next.
///
/// There is no time-out. A move whose end the controller never reports leaves the run waiting.
/// A run whose best position is where the stage already stands makes no last move, and so
/// never emits sig_endAutoFocusing().
///
/// Its owner may delete the object whenever the event loop runs, and in a slot of
/// sig_endAutoFocusing(); the controller's signals then no longer reach it.
///
/// GUI thread. Positions are in motor steps.
class alg_Autofocus : public QObject
{
    Q_OBJECT

public:
    /// camera is borrowed and outlives the run. frameWidth_px and frameHeight_px are the
    /// size of the RGB24 frames that its getFrame() hands out. With saveImages every frame
    /// is written as a TIFF file, and each sweep's scores as a CSV file, to the USB disk.
    alg_Autofocus(QObject* parent, OV5642Camera* camera, int centreZ, int frameWidth_px, int frameHeight_px,
                  bool saveImages);

    /// Starts a run around the centre position.
    void process();
    /// The state machine: called at the start and after every reported move.
    void dispatch_proc();
    /// Reads the reached position, reports it and, during a sweep, takes a sample there.
    void function_Z_stage();
    /// Scores the camera's newest frame. Where there is none (camera missing) the sample
    /// gets the score 0.0, so that the run goes on.
    void trigger_image_grab();

    /// Begins a sweep of `count` positions `interval` apart around the result position.
    void prepareAutoFocusing_Step(int interval, int count);
    void prepareAutoFocusing_Step2(int interval, int count);
    /// Relative non-blocking move; a negative interval moves towards negative.
    void adjust_z_position(int interval);
    /// Chooses the best sample (see focus_sweep::bestSample()). Without samples `best` stays
    /// as it was.
    AutoFocusingResult_e find_best_focus(std::vector<AutoFocusingData_s>& samples, std::size_t& best,
                                         bool checkThirdStep);
    /// Sets the result position from the samples, writes the CSV file, reports the samples.
    AutoFocusingResult_e find_AutoFocusing_Position(bool checkThirdStep);
    /// Moves the stage to the result position; issues no move if it stands there already.
    void prepareEndAutoFocusing();
    /// Disconnects the controller's signals.
    void endAutoFocusing();

    /// focus_measures::brennerGradient().
    double brennerGradient(const cv::Mat& plane);
    /// Scores the green plane of an RGB frame (rows x columns, 8-bit, 3 channels), appends
    /// the sample with the current position, saves the frame if asked to, reports progress.
    /// A frame that cannot be scored gives the score 0.0.
    void analyze_grabbed_image_bG(cv::Mat& frame);
    /// focus_measures::varianceOfLaplacian().
    double varianceOfLaplacian(const cv::Mat& image);
    /// The same as varianceOfLaplacian().
    double get_focusValue(cv::Mat& image);
    /// focus_measures::darkPixelCount().
    int find_fv_korvex_dark_edge(cv::Mat& frame, int channelMode, FOCUS_WINDOW_SIZE window);
    /// Computes the chosen measure of a tightly packed RGB24 picture into `value` and into
    /// the list of focus values; returns the seconds spent. A criterion other than 0 leaves
    /// both as they were. Null data of a non-zero size is OpenCV's assertion (cv::Exception).
    double find_focus_value(unsigned char* data, int width, int height, double& value,
                            FOCUS_VALUE_CRITERIA criteria, int channelMode, FOCUS_WINDOW_SIZE window);
    /// Keeps the best score seen. True when the peak has been passed: from index 7 on, a
    /// score more than 50.0 below the best; the result position is then that of the best
    /// sample (and stays as it was if there is no such sample). False in every other case.
    bool compare_focus(double focusValue, int index);

    focus_sweep::State state() const { return m_state; }
    /// The best position found; the sweep's centre before that.
    int resultZ() const { return m_resultZ; }
    int sweepStartZ() const { return m_sweepStartZ; }
    const std::vector<AutoFocusingData_s>& samples() const { return m_samples; }
    const std::vector<double>& focusValues() const { return m_focusValues; }
    double bestFocusValue() const { return m_bestFocusValue; }
    int bestFocusIndex() const { return m_bestFocusIndex; }
    /// As it stands in the log, "/mnt/ORLA-II/Autofocus/..."; empty when nothing is saved.
    QString logDirectory() const { return m_logDirectory; }

signals:
    /// The stage has reached this position.
    void sig_move_z_position(int z);
    /// A sample was taken in this step (1, 2 or 3).
    void sig_progress_AutoFocusing(int step);
    /// A sweep is over: its step number, its samples in the order taken, the best index.
    void sig_review_AutoFocusing(int step, std::vector<AutoFocusingData_t> samples, int bestIndex);
    /// The run is over and the stage stands at z.
    void sig_endAutoFocusing(int z);
    /// A log message: this function's signature text, then labels and values.
    void sig_debug_Message(QStringList message);

public slots:
    /// The controller has reported the end of a move.
    void slot_z_stage_moved();

protected:
    /// Continues from the given state instead of the run's own: the only way into the sweeps
    /// that no run enters.
    void enterState(focus_sweep::State state) { m_state = state; }

private:
    int beginSweep(int interval, int count);
    void moveToSweepStart(int currentZ);
    void evaluateFineSweep();
    void goToResult();
    bool holdsWholeFrame() const;
    double scoreOf(const cv::Mat& frame);
    void saveFrame(const cv::Mat& frame, double score);
    void saveScores(std::size_t best);
    void logErrorOnce(const QString& function, const QString& text, const QString& detail = {});

    OV5642Camera* m_camera;
    int m_centreZ;
    int m_frameWidth_px;
    int m_frameHeight_px;
    bool m_saveImages;
    QString m_logDirectory;
    focus_sweep::State m_state = focus_sweep::State::Start;
    int m_resultZ;
    int m_sweepStartZ = 0;
    int m_currentZ = 0; ///< As of the last reported move.
    std::vector<AutoFocusingData_s> m_samples;
    std::vector<double> m_focusValues;
    double m_bestFocusValue = 0.0;
    int m_bestFocusIndex = 0;
    QStringList m_loggedErrors; ///< Error texts of this run: each is logged once, not per sample.
};
