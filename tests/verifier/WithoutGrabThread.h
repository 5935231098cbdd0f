#pragma once

#include <optional>

#include "support/NoMoreThreads.h"
#include "support/WindowFixture.h"

/// Presses a button that switches the camera: this one gets its thread, and the live view's is
/// refused. False if none was started that could have been refused.
inline bool clickWithoutAGrabThread(WindowFixture& fixture, const char* button)
{
    std::optional<NoMoreThreads> none;
    const auto listening = QObject::connect(&fixture.window(), &ORLA_II_Plus_Verifier::sig_debug_Message,
                                            &fixture.window(), [&none](const QStringList& parts) {
                                                if (parts.first().contains("::startCamera") && !none)
                                                    none.emplace();
                                            });
    fixture.click(button);
    QObject::disconnect(listening);
    return none.has_value();
}
