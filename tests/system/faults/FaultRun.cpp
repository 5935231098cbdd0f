// The shipped program through a short day with one call failing: a line of JSON in says which,
// a line of JSON out what could be seen of it. fault_matrix.py asks and judges.

#include <cstring>
#include <iostream>
#include <string>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include "FaultPlan.h"
#include "tests/system/shipped/ShippedProgram.h"

namespace {

/// Times faster than the clock: what the program waits for takes little, and a board that is
/// asked on a busy machine still answers within the five seconds that it has.
constexpr int kSpeed = 10;
/// Frames a second of the program's time: twenty on the clock.
constexpr int kFrameRate = 2;
constexpr int kFewFrames = 3;
constexpr int kManyFrames = 110;

const QStringList kSettings{"opt/ORLA3/conf/ORLA3.ini", "opt/ORLA3/conf/Calibration_BFN.ini",
                            "opt/ORLA3/conf/Calibration_CUS.ini", "root/Orla2/Orla2.ini"};

/// The plan file of one run, mapped.
class MappedPlan
{
public:
    explicit MappedPlan(const QString& path)
    {
        QFile file(path);
        if (file.open(QIODevice::ReadWrite) && file.resize(sizeof(FaultPlan)))
            m_plan = static_cast<FaultPlan*>(
                ::mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, file.handle(), 0));
        if (!m_plan || m_plan == MAP_FAILED)
            qFatal("no plan for the failing calls");
    }
    ~MappedPlan() { ::munmap(m_plan, sizeof(FaultPlan)); }
    MappedPlan(const MappedPlan&) = delete;
    MappedPlan& operator=(const MappedPlan&) = delete;

    FaultPlan* operator->() { return m_plan; }

private:
    FaultPlan* m_plan = nullptr;
};

QStringList entries(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot);
}

/// One day of the program.
class Day
{
public:
    explicit Day(const QJsonObject& request) : m_plan(m_program.file("plan")), m_request(request)
    {
        const QByteArray call = request["call"].toString().toLatin1();
        std::memcpy(m_plan->call.data(), call.constData(),
                    std::size_t(qMin(call.size(), int(m_plan->call.size()) - 1)));
        m_plan->turn = request["turn"].toInt();
        m_plan->error = request["errno"].toInt();
        m_plan->speed = kSpeed;
        m_program.setVariables({{"FAULT_PLAN", m_program.file("plan")},
                                {"STAND_IN_FRAME_RATE", QString::number(kFrameRate)},
                                {"FIRST_PRELOAD", FAULT_CALLS}});
        m_program.write("opt/ORLA3/bin/set_password.sh", "#!/bin/sh\n:\n");
        QFile::setPermissions(m_program.file("home"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        m_program.plugDisk();
        m_seen["files before"] = settingsFiles();
    }

    QJsonObject run()
    {
        QElapsedTimer time;
        time.start();
        if (m_program.start()) {
            m_seen["started"] = true;
            note("start");
            useCamera();
            useStage();
            useQc();
            save();
            usePassword();
            recover();
            countHoldings();
            m_program.boxOf("BUTTON_EXIT");
            m_program.answer("Yes");
        }
        m_seen["exit"] = m_program.waitForEnd();
        m_seen["hangs"] = m_program.isRunning();
        m_seen["seconds"] = time.elapsed() / 1000.0;
        lookAtFiles();
        m_seen["struck"] = int(m_plan->struck);
        m_seen["signals to all"] = int(m_plan->signalsToAll);
        m_seen["problems"] = QJsonArray::fromStringList(m_problems);
        m_seen["boxes"] = QJsonArray::fromStringList(m_boxes);
        m_seen["notices"] = QJsonArray::fromStringList(m_notices);
        m_seen["log"] = QString::fromUtf8(m_program.output());
        if (m_request["counts"].toBool())
            m_seen["counts"] = counts();
        return m_seen;
    }

private:
    void useCamera()
    {
        m_program.chooseTab(1);
        press("BUTTON_RESOLUTION_VGA");
        waitForFrames(m_request["turn"].toInt() >= 100 ? kManyFrames : kFewFrames);
        press("BUTTON_STAINING_TB");
        waitForFrames(kFewFrames);
        press("BUTTON_EXPOSURE_FINE_UP");
        note("camera");
        const SeenBox dialog = boxOf("BUTTON_CAPTURE");
        if (dialog.isFileDialog) {
            m_program.ask({{"do", "file"}, {"path", "/mnt/cells"}, {"later", true}});
            m_program.waitUntil([this] { return !m_program.isBoxOpen(); }, kStep_ms);
        }
        m_program.waitEnabled(kStep_ms);
    }

    void useStage()
    {
        m_program.chooseTab(0);
        press("BUTTON_Z_MOVE_PLUS");
        press("BUTTON_Z_POSITION");
        press("CHECK_DEBUG_AUTOFOCUS");
        // Without a board no move is answered, and the run does not end.
        const bool boardMissing = m_program.text("LABEL_NOTICE").contains("Controller board");
        boxOf("BUTTON_AUTOFOCUS", boardMissing ? kNoAnswer_ms : kStep_ms);
        m_seen["tabs enabled after the autofocus"] = m_program.enabled("TAB_MENU");
        note("stage");
    }

    void useQc()
    {
        m_program.chooseTab(2);
        // The frame that is frozen is to be one of full size, however busy the machine.
        press("BUTTON_RESOLUTION_5M");
        waitForFrames(kFewFrames);
        press("BUTTON_QC_CAPTURE");
        m_program.waitEnabled(kStep_ms);
        pan(476, 432);
        pan(0, 300);
        press("CHECK_TARGET");
        point("BUTTON_POINT_1", 326, 235);
        press("CHECK_TARGET");
        pan(500, 0);
        pan(500, 0);
        press("CHECK_TARGET");
        point("BUTTON_POINT_2", 315, 244);
        press("BUTTON_QC_MEASURE");
        m_program.waitEnabled(kStep_ms);
        m_seen["magnification"] = m_program.text("EDIT_MAGNIFICATION");
        note("frozen frame");
        press("BUTTON_QC_CAPTURE");
        m_program.waitEnabled(kStep_ms);
        press("BUTTON_INTENSITY");
        press("BUTTON_RESOLUTION_1280");
    }

    void save()
    {
        for (int tab = 0; tab < 3; ++tab) {
            m_program.chooseTab(tab);
            boxOf("BUTTON_SAVE_INI");
        }
    }

    void usePassword() { boxOf("BUTTON_PASSWORD"); }

    /// What a technician does who has seen something go wrong, and anybody else at the day's end.
    void recover()
    {
        m_program.pullDisk();
        m_program.chooseTab(1);
        press("BUTTON_RESOLUTION_VGA");
        m_seen["frames at the end"] = waitForFrames(kFewFrames);
        m_program.waitUntil([this] { return m_program.commands().count("umount") > 0; }, kDiskLimit_ms);
        m_seen["disk released"] = m_program.commands().count("umount") > 0;
        m_seen["window enabled"] = m_program.enabled("ORLA_II_Plus_Verifier");
        m_seen["tabs enabled"] = m_program.enabled("TAB_MENU");
        note("end");
    }

    void countHoldings()
    {
        m_seen["descriptors"] = QJsonArray::fromStringList(m_program.descriptors());
        m_seen["threads"] = m_program.threads();
        QFile maps(QString("/proc/%1/maps").arg(m_program.processId()));
        maps.open(QIODevice::ReadOnly);
        m_seen["mappings"] = maps.readAll().count("/memfd:frame (deleted)");
    }

    void lookAtFiles()
    {
        m_seen["files"] = settingsFiles();
        m_seen["folders"] = QJsonArray::fromStringList(entries(m_program.file("opt/ORLA3/conf")) +
                                                       entries(m_program.file("root/Orla2")));
        m_seen["commands"] = QString::fromUtf8(m_program.commands());
    }

    QJsonObject settingsFiles() const
    {
        QJsonObject files;
        for (const QString& name : kSettings)
            files[name.section('/', -1)] = QString::fromUtf8(m_program.content(name));
        return files;
    }

    QJsonObject counts()
    {
        QJsonObject counts;
        for (int i = 0; i < m_plan->callCount; ++i) {
            const FaultPlan::Count& entry = m_plan->counts[std::size_t(i)];
            counts[QString::fromLatin1(entry.call.data())] = int(entry.calls);
        }
        return counts;
    }

    void press(const QString& name)
    {
        const QString error = m_program.ask({{"do", "click"}, {"name", name}})["error"].toString();
        if (!error.isEmpty())
            m_problems += name + ": " + error;
    }

    /// A press that ends in a box; answers it.
    SeenBox boxOf(const QString& button, int limit_ms = kStep_ms)
    {
        m_program.ask({{"do", "click"}, {"name", button}, {"later", true}});
        SeenBox box = m_program.waitForBox(limit_ms);
        if (box.title.isEmpty())
            m_problems += button + ": no box";
        else if (!box.isFileDialog) {
            m_boxes += box.title + ": " + box.text;
            m_program.answer("OK");
        }
        return box;
    }

    void point(const QString& button, int x, int y)
    {
        m_program.touch(x, y);
        m_program.ask({{"do", "click"}, {"name", button}, {"later", true}});
        m_program.waitUntil(
            [this] { return m_program.isBoxOpen() || m_program.enabled("ORLA_II_Plus_Verifier"); }, kStep_ms);
        if (m_program.isBoxOpen()) {
            const SeenBox box = m_program.waitForBox();
            m_boxes += box.title + ": " + box.text;
            m_program.answer("OK");
        }
    }

    void pan(int x, int y) { m_program.drag({620, 460}, {620 - x, 460 - y}); }

    bool waitForFrames(int count)
    {
        const int frames = m_program.scene().framesTaken;
        return m_program.waitUntil(
            [this, frames, count] { return m_program.scene().framesTaken >= frames + count; },
            kFrameLimit_ms + count * 1000 / (kSpeed * kFrameRate) * 3);
    }

    void note(const QString& moment)
    {
        const QJsonObject notice = m_program.look("LABEL_NOTICE");
        if (notice["visible"].toBool())
            m_notices += moment + ": " + notice["text"].toString();
    }

    // Long enough for a machine that does many other things beside.
    static constexpr int kStep_ms = 30000;
    static constexpr int kNoAnswer_ms = 1000;
    static constexpr int kFrameLimit_ms = 10000;
    static constexpr int kDiskLimit_ms = 5000;

    ShippedProgram m_program;
    MappedPlan m_plan;
    const QJsonObject m_request;
    QJsonObject m_seen;
    QStringList m_problems;
    QStringList m_boxes;
    QStringList m_notices;
};

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    if (const QString hindrance = ShippedProgram::hindrance(); !hindrance.isEmpty()) {
        std::cout
            << QJsonDocument(QJsonObject{{"hindrance", hindrance}}).toJson(QJsonDocument::Compact).data()
            << std::endl;
        return 0;
    }
    for (std::string line; std::getline(std::cin, line);) {
        const QJsonObject request = QJsonDocument::fromJson(QByteArray::fromStdString(line)).object();
        const QJsonObject seen = Day(request).run();
        std::cout << QJsonDocument(seen).toJson(QJsonDocument::Compact).data() << std::endl;
    }
    return 0;
}
