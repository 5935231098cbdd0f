#include <csignal>
#include <functional>

#include <QtTest>

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include "ProgramEnd.h"
#include "tests/support/Patience.h"

/// The commands of the project's folder, ./run, ./test and the gate, on a copy of their scripts
/// with nothing to install or build: what they say, what they leave behind, what they fall back to.
class TestCommands : public QObject
{
    Q_OBJECT

private slots:
    void aQuestionIsAnswered_data();
    void aQuestionIsAnswered();
    void aWrongArgumentShowsTheUsage();
    void aChoiceOfTestsIsBuiltAndRun_data();
    void aChoiceOfTestsIsBuiltAndRun();
    void aChangedPresetIsConfiguredAnew();
    void anEmulatedMachineWithoutItsPackagesIsSkipped_data();
    void anEmulatedMachineWithoutItsPackagesIsSkipped();
    void aProcessorThatNothingEmulatesIsSkipped_data();
    void aProcessorThatNothingEmulatesIsSkipped();
    void aCommandInARootEndsWithItsCaller_data();
    void aCommandInARootEndsWithItsCaller();
    void theGateGoesThroughAllStepsAndFailsWithAnyOfThem_data();
    void theGateGoesThroughAllStepsAndFailsWithAnyOfThem();
    void aFolderThatCannotBeWrittenIsOneLine_data();
    void aFolderThatCannotBeWrittenIsOneLine();
    void aReadOnlyFileSystemIsOneLine();
    void aVirtualDisplayTakesThePlaceOfAnUnusableOne_data();
    void aVirtualDisplayTakesThePlaceOfAnUnusableOne();
    void anInterruptedRunLeavesNothing_data();
    void anInterruptedRunLeavesNothing();
};

namespace {

const int kRunLimit_ms = patient_ms(120000);
constexpr int kUsageError = 2, kSkipped = 77;

const QStringList kAll{"*"};
constexpr QDir::Filters kEverything = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;

/// A copy of the commands in a folder of its own; cmake and ctest do nothing there, for the
/// program is built already.
class Copy
{
public:
    Copy()
    {
        const QDir source(PROJECT_FOLDER);
        for (const char* folder : {"project/scripts", "project/.ci", "tools", "temporary"})
            QDir(m_folder.path()).mkpath(folder);
        for (const char* script :
             {"run", "test", "scripts/prepare.sh", "scripts/root_packages.sh", ".ci/run"})
            QFile::copy(source.filePath(script), file(script));
        for (const char* list :
             {"scripts/packages.txt", "scripts/test-packages.txt", "scripts/lint-packages.txt",
              "scripts/root-packages.txt", "scripts/machine-packages.txt"})
            write(file(list), "# none\n");
        for (const char* tool : {"cmake", "ctest"})
            writeScript(tools() + '/' + tool, "exit 0\n");
        // Where the build has put it, which is where ./run has to look.
        const QString program =
            file("build/release/" + QDir(BUILD_FOLDER).relativeFilePath(SIMULATOR_PROGRAM));
        QDir().mkpath(QFileInfo(program).path());
        QFile::link(SIMULATOR_PROGRAM, program);
        m_environment.insert("PATH", tools() + ':' + m_environment.value("PATH"));
        m_environment.insert("TMPDIR", temporary());
        for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM", "XDG_RUNTIME_DIR"})
            m_environment.remove(name);
    }

    QString folder() const { return m_folder.filePath("project"); }
    QString file(const QString& path) const { return folder() + '/' + path; }
    QString temporary() const { return m_folder.filePath("temporary"); }
    QStringList leftInTemporary() const { return QDir(temporary()).entryList(kAll, kEverything); }
    void setVariable(const QString& name, const QString& value) { m_environment.insert(name, value); }

    static void write(const QString& path, const QByteArray& text)
    {
        QFile written(path);
        if (!written.open(QIODevice::WriteOnly) || written.write(text) != text.size())
            qFatal("cannot write %s", qPrintable(path));
    }

    static void writeScript(const QString& path, const QByteArray& lines)
    {
        write(path, "#!/bin/sh\n" + lines);
        QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    /// Has one of the tools that do nothing do something.
    void setTool(const QString& name, const QByteArray& lines) { writeScript(tools() + '/' + name, lines); }

    void start(QProcess& process, const QStringList& command) const
    {
        process.setProcessEnvironment(m_environment);
        process.setWorkingDirectory(folder());
        process.start(command.first(), command.mid(1));
    }

    Ended run(const QStringList& command) const
    {
        QProcess process;
        start(process, command);
        return {process, kRunLimit_ms};
    }

    /// Processes that the commands have started and that are still there, by their environment.
    QStringList leftProcesses() const
    {
        QStringList left;
        const QByteArray mark = "TMPDIR=" + temporary().toLocal8Bit();
        for (const QString& process : QDir("/proc").entryList({"[1-9]*"}, QDir::Dirs)) {
            QFile environment("/proc/" + process + "/environ"), line("/proc/" + process + "/cmdline");
            if (environment.open(QIODevice::ReadOnly) && environment.readAll().split('\0').contains(mark) &&
                line.open(QIODevice::ReadOnly))
                left.append(line.readAll().replace('\0', ' '));
        }
        return left;
    }

private:
    QString tools() const { return m_folder.filePath("tools"); }

    QTemporaryDir m_folder;
    QProcessEnvironment m_environment = QProcessEnvironment::systemEnvironment();
};

using Prepare = std::function<void(Copy&)>;

} // namespace

Q_DECLARE_METATYPE(Prepare)

void TestCommands::aQuestionIsAnswered_data()
{
    QTest::addColumn<QStringList>("command");
    QTest::addColumn<QString>("firstWords");
    for (const char* option : {"-h", "--help", "--help-all"})
        QTest::addRow("run %s", option) << QStringList{"./run", option} << "Usage: ./run ";
    for (const char* option : {"-v", "--version"})
        QTest::addRow("run %s", option) << QStringList{"./run", option} << "orla-verifier-simulator ";
    QTest::newRow("run --faults") << QStringList{"./run", "--faults"} << "Faults, ";
    for (const char* option : {"-h", "--help"})
        QTest::addRow("test %s", option) << QStringList{"./test", option} << "Usage: ./test ";
}

void TestCommands::aQuestionIsAnswered()
{
    QFETCH(QStringList, command);
    QFETCH(QString, firstWords);
    const Copy copy;
    const Ended ended = copy.run(command);
    QVERIFY2(ended.status == 0, qPrintable(ended.errors));
    QVERIFY2(ended.output.startsWith(firstWords), qPrintable(ended.output));
}

void TestCommands::aWrongArgumentShowsTheUsage()
{
    const Copy copy;
    const Ended test = copy.run({"./test", "no-such-preset"});
    QCOMPARE(test.status, kUsageError);
    QCOMPARE(test.output, QString());
    QVERIFY2(test.errors.startsWith("Usage: ./test "), qPrintable(test.errors));
    QCOMPARE(copy.run({"./run", "--no-such-option"}).status, kUsageError);
    for (const QStringList& arguments :
         {QStringList{"quick", "long"}, QStringList{"debug", "tsan"}, QStringList{"quick", "release", "all"},
          QStringList{""}, QStringList{"--arch"}, QStringList{"--arch", "mips"},
          QStringList{"--arch", "armhf", "debug"}, QStringList{"--arch", "armhf", "--sources"},
          QStringList{"--sources", "a list"}})
        QCOMPARE(copy.run(QStringList("./test") + arguments).status, kUsageError);
}

void TestCommands::aChoiceOfTestsIsBuiltAndRun_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("preset");
    QTest::addColumn<QString>("built");
    QTest::addColumn<QString>("run");
    const QString quick = " --label-exclude ^(system|slow)$";
    QTest::newRow("all") << QStringList() << "release"
                         << ""
                         << "";
    QTest::newRow("quick") << QStringList{"quick"} << "release"
                           << " --target quick_tests" << quick;
    QTest::newRow("quick, sanitized") << QStringList{"quick", "asan-ubsan"} << "asan-ubsan"
                                      << " --target quick_tests" << quick;
    QTest::newRow("long") << QStringList{"debug", "long"} << "debug"
                          << ""
                          << " --build-config Long --label-regex ^long$";
    QTest::newRow("emulated") << QStringList{"--arch", "armhf"} << "armhf"
                              << ""
                              << "";
    QTest::newRow("quick, emulated") << QStringList{"--arch", "arm64", "--sources", "a list", "quick"}
                                     << "arm64"
                                     << " --target quick_tests" << quick;
}

void TestCommands::aChoiceOfTestsIsBuiltAndRun()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, preset);
    QFETCH(QString, built);
    QFETCH(QString, run);
    Copy copy;
    const QByteArray record = copy.file("record").toLocal8Bit();
    const auto recorder = [&record](const QByteArray& name) {
        return "echo " + name + " \"$@\" >>" + record + "\n";
    };
    for (const char* tool : {"cmake", "ctest"})
        copy.setTool(tool, recorder(tool));
    Copy::writeScript(copy.file("scripts/in_root"), recorder("in_root"));
    const Ended ended = copy.run(QStringList("./test") + arguments);
    QVERIFY2(ended.status == 0, qPrintable(ended.errors));
    QFile file(record);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QStringList lines = QString::fromLocal8Bit(file.readAll()).trimmed().split('\n');
    const QString folder = copy.file("build/" + preset);
    QVERIFY(lines.size() >= 2);
    // Another architecture's tests are built and run where its libraries are.
    QString place;
    if (arguments.contains("--arch")) {
        place = "in_root " + preset + ' ';
        if (arguments.contains("--sources"))
            place += "--sources a list ";
        QCOMPARE(lines.first(), place + "true");
    }
    QCOMPARE(lines[lines.size() - 2], place + "cmake --build " + folder + built);
    QVERIFY2(
        lines.last().startsWith(place + "ctest --test-dir " + folder + " --output-on-failure --parallel "),
        qPrintable(lines.last()));
    QVERIFY2(lines.last().contains(QRegularExpression(" \\d+" + QRegularExpression::escape(run) + '$')),
             qPrintable(lines.last()));
}

void TestCommands::aChangedPresetIsConfiguredAnew()
{
    Copy copy;
    const QString record = copy.file("record"), made = copy.file("build/release/build.ninja");
    const QString presets = copy.file("CMakePresets.json");
    const auto configurations = [&] {
        QFile::remove(record);
        const Ended ended = copy.run({"./test"});
        QFile file(record);
        return ended.status == 0 && file.open(QIODevice::ReadOnly)
                   ? file.readAll().count(" --preset release\n")
                   : -1;
    };
    const auto setAge = [](const QString& path, int hours) {
        QFile file(path);
        return file.open(QIODevice::ReadWrite) &&
               file.setFileTime(QDateTime::currentDateTimeUtc().addSecs(-qint64(3600) * hours),
                                QFileDevice::FileModificationTime);
    };
    copy.setTool("cmake", "echo \"$@\" >>" + record.toLocal8Bit() + "\n");
    Copy::write(presets, "{}\n");
    QCOMPARE(configurations(), 1);
    Copy::write(made, "# rules\n");
    QVERIFY(setAge(presets, 2) && setAge(made, 1));
    QCOMPARE(configurations(), 0);
    QVERIFY(setAge(made, 3));
    QCOMPARE(configurations(), 1);
}

void TestCommands::anEmulatedMachineWithoutItsPackagesIsSkipped_data()
{
    QTest::addColumn<QString>("list");
    for (const char* list : {"machine", "root", "test"})
        QTest::newRow(list) << QString("scripts/%1-packages.txt").arg(list);
}

void TestCommands::anEmulatedMachineWithoutItsPackagesIsSkipped()
{
    QFETCH(QString, list);
    Copy copy;
    // Neither root nor sudo can bring it.
    for (const char* tool : {"apt-get", "sudo"})
        copy.setTool(tool, "exit 1\n");
    Copy::write(copy.file(list), "# one\nno-such-package\n");
    const Ended ended = copy.run({"./test", "machine"});
    QVERIFY2(ended.status == kSkipped, qPrintable(ended.errors));
    QVERIFY2(ended.errors.contains("no-such-package"), qPrintable(ended.errors));
    QVERIFY2(ended.errors.contains("\nskipped: ") && ended.errors.contains(QFileInfo(list).fileName()),
             qPrintable(ended.errors));
}

void TestCommands::aProcessorThatNothingEmulatesIsSkipped_data()
{
    QTest::addColumn<QStringList>("where");
    QTest::addColumn<bool>("machineKnows"); // what the kernel has one table for
    for (const bool machineKnows : {false, true})
        QTest::addRow("in a root, %d", machineKnows) << QStringList() << machineKnows;
    QTest::newRow("outside") << QStringList("--outside") << false;
}

void TestCommands::aProcessorThatNothingEmulatesIsSkipped()
{
    QFETCH(QStringList, where);
    QFETCH(bool, machineKnows);
    Copy copy;
    QFile::copy(QDir(PROJECT_FOLDER).filePath("scripts/in_root"), copy.file("scripts/in_root"));
    QDir().mkpath(copy.file("build/roots/armhf/run"));
    // An older kernel: no table of emulators for a namespace. All else is only said to be mounted.
    copy.setTool("mount", "case \" $* \" in *' binfmt_misc '*) exit 1;; esac\n");
    copy.setTool("chroot", machineKnows ? "echo reached\n" : "exit 1\n");
    // As if within the namespaces already.
    copy.setVariable("IN_ROOT_LOCK", "9");
    const Ended ended =
        copy.run(QStringList{"scripts/in_root", "armhf"} + where + QStringList{"echo", "reached"});
    if (machineKnows) {
        QVERIFY2(ended.status == 0, qPrintable(ended.errors));
        QVERIFY(ended.output.contains("reached"));
        return;
    }
    QCOMPARE(ended.output, QString());
    QVERIFY2(ended.status == kSkipped, qPrintable(ended.errors));
    QVERIFY2(ended.errors.startsWith("skipped: "), qPrintable(ended.errors));
    QVERIFY2(ended.errors.contains("apt-get install qemu-user-static binfmt-support"),
             qPrintable(ended.errors));
}

void TestCommands::aCommandInARootEndsWithItsCaller_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGHUP") << SIGHUP;
}

void TestCommands::aCommandInARootEndsWithItsCaller()
{
    QFETCH(int, signal);
    if (geteuid() != 0)
        QSKIP("a root is made and entered by root");
    if (QProcess::execute("unshare", {"--user", "--mount", "--pid", "--fork", "true"}) != 0)
        QSKIP("no namespaces can be made here");
    Copy copy;
    QFile::copy(QDir(PROJECT_FOLDER).filePath("scripts/in_root"), copy.file("scripts/in_root"));
    Copy::write(copy.file("scripts/emulation-packages.txt"), "# none\n");
    Copy::write(copy.file("scripts/test-packages.txt"), "fonts-none\n");
    copy.setTool("mmdebstrap", "mkdir -p build/roots/armhf/run\n");
    copy.setTool("mount", "case \" $* \" in *' binfmt_misc '*) exit 1;; esac\n");
    copy.setTool("chroot", "case \"$*\" in *without_pidfd*) echo reached; sleep 1000;; esac\n");
    QProcess process;
    copy.start(process, {"scripts/in_root", "armhf", "true"});
    while (!process.readAllStandardOutput().contains("reached"))
        QVERIFY2(process.waitForReadyRead(kRunLimit_ms), process.readAllStandardError());

    kill(pid_t(process.processId()), signal);

    QVERIFY(process.waitForFinished(kRunLimit_ms));
    QTRY_COMPARE(copy.leftProcesses(), QStringList());
    QVERIFY(process.exitStatus() == QProcess::CrashExit || process.exitCode() != 0);
}

void TestCommands::theGateGoesThroughAllStepsAndFailsWithAnyOfThem_data()
{
    QTest::addColumn<QByteArray>("cmake");
    QTest::addColumn<QByteArray>("ctest");
    QTest::addColumn<QByteArray>("lint");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("steps");
    QTest::addColumn<int>("incomplete");
    const QByteArray good = "exit 0\n", bad = "exit 3\n";
    QTest::newRow("nothing is wrong") << good << good << good << 0 << 5 << 0;
    QTest::newRow("it does not build") << bad << good << good << 1 << 1 << 0;
    QTest::newRow("a finding") << good << good << bad << 1 << 5 << 0;
    QTest::newRow("no time for every source") << good << good << QByteArray("exit 77\n") << 0 << 5 << 1;
    QTest::newRow("an include") << good << QByteArray("case \"$*\" in *house*) exit 8;; esac\n") << good << 1
                                << 5 << 0;
    QTest::newRow("a sanitizer") << good << QByteArray("case \"$*\" in *asan*) exit 8;; esac\n") << good << 1
                                 << 5 << 0;
    QTest::newRow("a test") << good
                            << QByteArray("case \"$*\" in *house*|*asan*) exit 0;; *) exit 8;; esac\n")
                            << good << 1 << 5 << 0;
}

void TestCommands::theGateGoesThroughAllStepsAndFailsWithAnyOfThem()
{
    QFETCH(QByteArray, cmake);
    QFETCH(QByteArray, ctest);
    QFETCH(QByteArray, lint);
    QFETCH(int, status);
    QFETCH(int, steps);
    QFETCH(int, incomplete);
    Copy copy;
    copy.setTool("cmake", cmake);
    copy.setTool("ctest", ctest);
    Copy::writeScript(copy.file("scripts/lint"), lint);
    const Ended ended = copy.run({"bash", ".ci/run"});
    QVERIFY2(ended.status == status, qPrintable(ended.errors));
    QCOMPARE(ended.errors.count(QRegularExpression("^==== .*: (passed|INCOMPLETE|FAILED), \\d+ s$",
                                                   QRegularExpression::MultilineOption)),
             steps);
    QCOMPARE(ended.errors.count(": FAILED, "), status);
    QCOMPARE(ended.errors.count(": INCOMPLETE, "), incomplete);
    QCOMPARE(ended.errors.count("\nINCOMPLETE, "), incomplete);
}

void TestCommands::aFolderThatCannotBeWrittenIsOneLine_data()
{
    QTest::addColumn<Prepare>("prepare");
    QTest::addColumn<QString>("named"); // in what is said
    // What root cannot write either.
    QTest::newRow("the build folder is a file") << Prepare([](Copy& copy) {
        QDir(copy.file("build")).removeRecursively();
        Copy::write(copy.file("build"), "");
    }) << "build/release";
    QTest::newRow("the preset's folder is a file") << Prepare([](Copy& copy) {
        QDir(copy.file("build/release")).removeRecursively();
        Copy::write(copy.file("build/release"), "");
    }) << "build/release";
    QTest::newRow("the lock is a folder")
        << Prepare([](Copy& copy) { QDir().mkpath(copy.file("build/release/prepare.lock")); })
        << "build/release";
    QTest::newRow("the log is a folder")
        << Prepare([](Copy& copy) { QDir().mkpath(copy.file("build/release/prepare.log")); })
        << "build/release";
    QTest::newRow("no temporary folder")
        << Prepare([](Copy& copy) { copy.setVariable("TMPDIR", "/no/such/folder"); }) << "/no/such/folder";
    QTest::newRow("the temporary folder is a file")
        << Prepare([](Copy& copy) { copy.setVariable("TMPDIR", copy.file("run")); }) << "project/run";
}

void TestCommands::aFolderThatCannotBeWrittenIsOneLine()
{
    QFETCH(Prepare, prepare);
    QFETCH(QString, named);
    for (const char* command : {"./run", "./test"}) {
        Copy copy;
        prepare(copy);
        const Ended ended = copy.run({command});
        QCOMPARE(ended.status, 1);
        QCOMPARE(ended.output, QString());
        QVERIFY2(ended.errors.contains(named) && ended.errors.contains("cannot be written"),
                 qPrintable(ended.errors));
        QVERIFY2(ended.errors.count('\n') == 1, qPrintable(ended.errors));
    }
}

void TestCommands::aReadOnlyFileSystemIsOneLine()
{
    const QString readOnly = "mount --bind . . && mount -o remount,bind,ro . && cd \"$PWD\" && exec \"$@\"";
    const QStringList command{"unshare", "--mount", "--propagation", "private", "sh", "-c", readOnly, "sh"};
    const Copy copy;
    if (copy.run(command + QStringList("true")).status != 0)
        QSKIP("nothing can be mounted here");
    QVERIFY(copy.run(command + QStringList{"touch", "run"}).status != 0);
    for (const char* own : {"./run", "./test"}) {
        const Ended ended = copy.run(command + QStringList(own));
        QCOMPARE(ended.status, 1);
        QCOMPARE(ended.output, QString());
        QCOMPARE(ended.errors,
                 QString("The build folder, %1/build/release, cannot be written.\n").arg(copy.folder()));
    }
}

void TestCommands::aVirtualDisplayTakesThePlaceOfAnUnusableOne_data()
{
    QTest::addColumn<QString>("display");
    QTest::addColumn<QString>("wayland");
    QTest::newRow("X server that is not there") << QString(":32123") << QString();
    QTest::newRow("no name of a display") << QString("nonsense") << QString();
    QTest::newRow("Wayland that is not there either") << QString(":32123") << QString("wayland-9");
    QTest::newRow("none") << QString() << QString();
}

void TestCommands::aVirtualDisplayTakesThePlaceOfAnUnusableOne()
{
    QFETCH(QString, display);
    QFETCH(QString, wayland);
    Copy copy;
    copy.setVariable("DISPLAY", display);
    copy.setVariable("WAYLAND_DISPLAY", wayland);
    const Ended ended = copy.run({"./run", "--instant", "--steps", "window,exit,ended"});
    QVERIFY2(ended.status == 0, qPrintable(ended.output + ended.errors));
    const QString unusable = wayland.isEmpty() ? display : wayland;
    QVERIFY2(unusable.isEmpty() || ended.errors.contains("The display " + unusable + " cannot be used"),
             qPrintable(ended.errors));
    QVERIFY(QFile::exists(copy.file("out/latest/01-window.png")));
    QCOMPARE(copy.leftInTemporary(), QStringList());
    QCOMPARE(copy.leftProcesses(), QStringList());
}

void TestCommands::anInterruptedRunLeavesNothing_data()
{
    QTest::addColumn<int>("signal");
    QTest::addColumn<bool>("inTheSession"); // or as soon as there is anything to leave
    for (const bool inTheSession : {false, true}) {
        const char* const when = inTheSession ? "in the session" : "while the display starts";
        QTest::addRow("SIGINT %s", when) << SIGINT << inTheSession;
        QTest::addRow("SIGTERM %s", when) << SIGTERM << inTheSession;
        QTest::addRow("SIGHUP %s", when) << SIGHUP << inTheSession;
    }
}

void TestCommands::anInterruptedRunLeavesNothing()
{
    QFETCH(int, signal);
    QFETCH(bool, inTheSession);
    const Copy copy;
    QProcess process;
    copy.start(process, {"./run", "--session"});
    if (inTheSession) {
        while (!process.canReadLine() && process.waitForReadyRead(kRunLimit_ms)) {
        }
        QVERIFY(process.canReadLine());
    } else {
        QTRY_VERIFY_WITH_TIMEOUT(!copy.leftInTemporary().isEmpty(), kRunLimit_ms);
    }
    QCOMPARE(::kill(pid_t(process.processId()), signal), 0);
    QVERIFY(process.waitForFinished(kRunLimit_ms));
    QVERIFY(process.exitStatus() == QProcess::NormalExit && process.exitCode() != 0);
    QCOMPARE(copy.leftInTemporary(), QStringList());
    QCOMPARE(copy.leftProcesses(), QStringList());
}

QTEST_GUILESS_MAIN(TestCommands)
#include "test_commands.moc"
