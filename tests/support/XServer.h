#pragma once

#include <string>

#include <sys/types.h>

/// An X server of its own without hardware behind it, for tests that need a real screen: its
/// contents can be grabbed, which the platform without a display does not offer.
class XServer
{
public:
    /// Starts one with a screen of this size and waits until it answers. Programs take its
    /// resolution, in dots per inch, for the size of their points.
    XServer(int width_px, int height_px, int resolution_dpi = 96);
    ~XServer();
    XServer(const XServer&) = delete;
    XServer& operator=(const XServer&) = delete;

    /// Its name for DISPLAY, ":99"; empty where no X server could be started.
    const std::string& display() const { return m_display; }

private:
    pid_t m_process = -1;
    std::string m_display;
};
