#pragma once

#include <QTemporaryDir>

#include "Controller/Controller.h"
#include "platform/InstrumentPath.h"
#include "support/LogRecorder.h"
#include "support/ScriptedPeer.h"

/// A controller that is not the process's one, so that every test begins with a fresh one.
class BenchController : public Controller
{
public:
    BenchController() = default;
};

/// A root directory that stands in for the machine as long as the bench lives.
class BenchRoot
{
public:
    BenchRoot() { setInstrumentRoot(m_directory.path()); }
    ~BenchRoot() { setInstrumentRoot(QStringLiteral("/")); }
    BenchRoot(const BenchRoot&) = delete;
    BenchRoot& operator=(const BenchRoot&) = delete;

    QString path() const { return m_directory.path(); }

private:
    QTemporaryDir m_directory;
};

/// A controller on a serial line with a scripted peer, and what it logs.
struct ControllerBench
{
    BenchRoot root;
    ScriptedPeer peer{root.path()};
    LogRecorder log;
    BenchController controller;

    /// Opens the line without asking the peer anything.
    void open()
    {
        controller.m_skipProbe = true;
        controller.openSerialPort();
        controller.m_skipProbe = false;
        log.clear();
    }
};
