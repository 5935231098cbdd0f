#include "simulator/optics/PictureSource.h"

#include <utility>

PictureSource::PictureSource(const PictureSourceParameters& parameters, Optics& optics,
                             LightPathSource lightPath, SensorSettingsSource sensor)
    : m_parameters(parameters),
      m_optics(optics),
      m_lightPath(std::move(lightPath)),
      m_sensor(std::move(sensor))
{
}

std::uint64_t PictureSource::look(InstrumentTime time, const PictureMode& mode)
{
    const bool modeChanged = m_mode != &mode;
    if (modeChanged) {
        m_pipeline.clear();
        m_mode = &mode;
    }
    m_pipeline.push_back({m_lightPath(time), m_sensor()});
    while (m_pipeline.size() > static_cast<std::size_t>(m_parameters.frameDelay_frames) + 1)
        m_pipeline.pop_front();
    if (modeChanged || m_sceneChanged || m_pipeline.front() != m_shown) {
        m_sceneChanged = false;
        m_shown = m_pipeline.front();
        ++m_picture;
    }
    return m_picture;
}

void PictureSource::draw(std::uint8_t* yuyv)
{
    m_optics.draw(*m_mode, m_shown, m_picture, yuyv);
}
