// An empty window of the verifier's size: what a start is held against. Prints the time of its
// first painting, as wallTime_ms() counts it.

#include <cstdio>
#include <ctime>

#include <QApplication>
#include <QMainWindow>

namespace {

class EmptyWindow : public QMainWindow
{
protected:
    void paintEvent(QPaintEvent* event) override
    {
        QMainWindow::paintEvent(event);
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        std::printf("%.3f\n", double(now.tv_sec) * 1e3 + double(now.tv_nsec) / 1e6);
        QCoreApplication::quit();
    }
};

} // namespace

int main(int argc, char** argv)
{
    const QApplication application(argc, argv);
    EmptyWindow window;
    window.setFixedSize(800, 480);
    window.show();
    return QCoreApplication::exec();
}
