#include "simulator/camera/SimulatedDeviceCalls.h"

#include <utility>

SimulatedDeviceCalls::SimulatedDeviceCalls(const SimulatedCameraParameters& parameters,
                                           LightPathSource lightPath, InstrumentClock clock)
    : SimulatedScene{Optics(parameters.optics, Slide(parameters.slide)),
                     PictureSource(parameters.picture, m_optics, std::move(lightPath),
                                   [this] { return sensorSettings(); })},
      CameraDevices(parameters, m_pictures, std::move(clock))
{
}

void SimulatedDeviceCalls::changeSlide(const SlideParameters& parameters)
{
    const auto lock = holdPictures();
    m_optics.setSlide(Slide(parameters));
    m_pictures.sceneChanged();
}
