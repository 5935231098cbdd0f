#pragma once

#include <deque>
#include <functional>

#include "simulator/optics/FrameSource.h"

/// How the way from the sensor to the driver behaves.
struct PictureSourceParameters
{
    /// Frames that pass before a change of stage, light or registers reaches the picture.
    int frameDelay_frames = 0;
};

/// The simulated camera's pictures: looks at light path and sensor settings for each frame, and
/// has the optics draw again only when one of them has changed. One thread at a time.
class PictureSource : public FrameSource
{
public:
    using SensorSettingsSource = std::function<SensorSettings()>;

    PictureSource(const PictureSourceParameters& parameters, Optics& optics, LightPathSource lightPath,
                  SensorSettingsSource sensor);

    std::uint64_t look(InstrumentTime time, const PictureMode& mode) override;
    void draw(std::uint8_t* yuyv) override;

    /// Makes the next look() begin a new picture: the optics have another slide.
    void sceneChanged() { m_sceneChanged = true; }

private:
    PictureSourceParameters m_parameters;
    Optics& m_optics;
    LightPathSource m_lightPath;
    SensorSettingsSource m_sensor;
    const PictureMode* m_mode = nullptr;
    /// What was seen at the last frames, oldest first, as long as the delay asks for.
    std::deque<PictureInputs> m_pipeline;
    PictureInputs m_shown;
    bool m_sceneChanged = false;
    std::uint64_t m_picture = 0;
};
