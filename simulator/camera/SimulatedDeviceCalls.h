#pragma once

#include <array>

#include "simulator/camera/CameraDevices.h"
#include "simulator/optics/LightPath.h"
#include "simulator/optics/Optics.h"
#include "simulator/optics/PictureSource.h"
#include "simulator/optics/Slide.h"

/// All parameters of the simulated camera.
struct SimulatedCameraParameters : CameraDeviceParameters
{
    SlideParameters slide;
    OpticsParameters optics;
    PictureSourceParameters picture;
};

/// What the simulated camera looks at; made before the devices that draw from it.
struct SimulatedScene
{
    Optics m_optics;
    PictureSource m_pictures;
};

/// The simulated camera: its devices, and the slide under the objective that they show. Any
/// thread.
class SimulatedDeviceCalls : private SimulatedScene, public CameraDevices
{
public:
    /// lightPath is asked on the thread that uses the capture device. Without a clock, frames
    /// are counted from the construction on.
    SimulatedDeviceCalls(const SimulatedCameraParameters& parameters, LightPathSource lightPath,
                         InstrumentClock clock = {});

    /// Puts another slide under the objective, for the frames from now on.
    void changeSlide(const SlideParameters& parameters);

    /// The truth, to judge results by. The slide: one thread at a time, with changeSlide().
    const Slide& slide() const { return m_optics.slide(); }
    /// Red, green and blue, 0..255, of the clear field in this light, before noise.
    std::array<double, 3> fieldColour(const LightPath& light) const
    {
        return m_optics.colour({light, sensorSettings()}, 0.0);
    }
    double bestFocus_steps() const { return m_optics.bestFocus_steps(); }
};
