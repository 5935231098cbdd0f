#include "FocusRig.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include <QDir>
#include <QFile>
#include <QSignalSpy>

#include "Controller/Controller.h"
#include "platform/InstrumentPath.h"

namespace {

// The brightest stripes whose sum over a VGA frame stays below 2^32.
constexpr int kPeakContrast = 85;

} // namespace

std::function<int(int)> peakAt(int peak)
{
    return [peak](int z) { return std::max(1, kPeakContrast - std::abs(z - peak) / 100); };
}

QStringList repeated(const QString& line, int times)
{
    QStringList lines;
    for (int i = 0; i < times; ++i) {
        lines << line;
    }
    return lines;
}

FocusRig::FocusRig() : m_board(std::make_unique<ScriptedBoard>())
{
    setInstrumentRoot(m_root.path());
    QDir(m_root.path()).mkpath(QStringLiteral("dev"));
    QFile::link(m_board->terminal(), diskPath(QStringLiteral("/dev/ttyS2")));
    QSignalSpy connected(Controller::getInstance(), &Controller::sig_connected_controller);
    Controller::getInstance()->openSerialPort();
    m_camera = std::make_unique<OV5642Camera>();
    const bool streams = m_camera->open(0, "/opt/ORLA3/conf/Calibration_BFN.ini", false);
    m_up = m_root.isValid() && streams && connected.size() == 1;
}

FocusRig::~FocusRig()
{
    m_board->setOnMove({});
    m_camera->close();
    setInstrumentRoot({});
}

void FocusRig::reset()
{
    QDir(diskPath(QStringLiteral("/mnt"))).removeRecursively();
    QFile::remove(diskPath(QStringLiteral("/mnt")));
    show(peakAt(0));
}

bool FocusRig::putStage(int position, ScriptedBoard::Script script)
{
    m_board->reset(position);
    const bool followed = Controller::getInstance()->z_stage_pos() == position;
    m_board->reset(position, std::move(script));
    return followed;
}

void FocusRig::show(const std::function<int(int)>& contrastAt)
{
    m_board->setOnMove([this, contrastAt](int z) { m_capture.show(contrastAt(z)); });
}

std::unique_ptr<alg_Autofocus> FocusRig::autofocus(int centre, bool save)
{
    return std::make_unique<alg_Autofocus>(nullptr, m_camera.get(), centre, kWidth, kHeight, save);
}
