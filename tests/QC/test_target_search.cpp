#include <atomic>
#include <random>

#include <QtTest>

#include <opencv2/imgproc.hpp>

#include "CalibrationFrame.h"
#include "QC/TargetSearch.h"

using Outcome = TargetSearch::Outcome;
Q_DECLARE_METATYPE(TargetSearch::Outcome)

namespace {

constexpr QSize kSmall(200, 160);

FrameView viewOf(CalibrationFrame& frame)
{
    return {frame.data(), frame.size(), 24};
}

/// The filters as plain library calls with their own memory, the median in place.
cv::Mat filteredPlainly(CalibrationFrame& frame)
{
    const cv::Mat image(frame.size().height(), frame.size().width(), CV_8UC3, frame.data());
    std::vector<cv::Mat> channels;
    cv::split(image, channels);
    cv::Mat plane = channels[1];
    cv::threshold(plane, plane, 50, 255, cv::THRESH_BINARY_INV);
    cv::medianBlur(plane, plane, 3);
    cv::Mat filtered;
    cv::bilateralFilter(plane, filtered, 5, 95, 95, 4);
    return filtered;
}

TargetSearch::Result foundPlainly(CalibrationFrame& frame, QPoint target)
{
    const QRect w = searchWindow(target, frame.size());
    const cv::Mat window = filteredPlainly(frame)(cv::Rect(w.x(), w.y(), w.width(), w.height()));
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(window.clone(), contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_SIMPLE);
    if (contours.size() != 1)
        return {contours.empty() ? Outcome::NoObject : Outcome::ManyObjects, {}};
    cv::Point2f centre;
    float radius = 0;
    cv::minEnclosingCircle(contours[0], centre, radius);
    const float x = target.x() > 19 ? float(target.x() - 20) + centre.x : centre.x;
    const float y = target.y() > 19 ? float(target.y() - 20) + centre.y : centre.y;
    return {Outcome::Found, {int(x), int(y)}};
}

/// Counts the library's allocations of at least a plane's size.
class CountingAllocator : public cv::MatAllocator
{
public:
    explicit CountingAllocator(std::size_t least) : m_least(least) { cv::Mat::setDefaultAllocator(this); }
    ~CountingAllocator() override { cv::Mat::setDefaultAllocator(nullptr); }

    cv::UMatData* allocate(int dims, const int* sizes, int type, void* data, std::size_t* step,
                           cv::AccessFlag flags, cv::UMatUsageFlags usage) const override
    {
        cv::UMatData* made =
            cv::Mat::getStdAllocator()->allocate(dims, sizes, type, data, step, flags, usage);
        if (data == nullptr && made->size >= m_least)
            ++m_count;
        return made;
    }
    bool allocate(cv::UMatData* made, cv::AccessFlag flags, cv::UMatUsageFlags usage) const override
    {
        return cv::Mat::getStdAllocator()->allocate(made, flags, usage);
    }
    void deallocate(cv::UMatData* made) const override { cv::Mat::getStdAllocator()->deallocate(made); }

    int takeCount() { return m_count.exchange(0); }

private:
    std::size_t m_least;
    mutable std::atomic<int> m_count{0};
};

} // namespace

class TestTargetSearch : public QObject
{
    Q_OBJECT

private slots:
    void theWindowIsFortyPixelsWhereItFits_data()
    {
        QTest::addColumn<QPoint>("target");
        QTest::addColumn<QRect>("window");
        QTest::newRow("middle") << QPoint(1000, 900) << QRect(980, 880, 40, 40);
        QTest::newRow("first full") << QPoint(20, 20) << QRect(0, 0, 40, 40);
        QTest::newRow("near the left") << QPoint(19, 900) << QRect(0, 880, 39, 40);
        QTest::newRow("near the top") << QPoint(1000, 7) << QRect(980, 0, 40, 27);
        QTest::newRow("top left corner") << QPoint(0, 0) << QRect(0, 0, 20, 20);
        QTest::newRow("last full") << QPoint(2572, 1924) << QRect(2552, 1904, 40, 40);
        QTest::newRow("near the right") << QPoint(2573, 900) << QRect(2553, 880, 39, 40);
        QTest::newRow("near the bottom") << QPoint(1000, 1925) << QRect(980, 1905, 40, 39);
        QTest::newRow("bottom right corner") << QPoint(2591, 1943) << QRect(2571, 1923, 21, 21);
        QTest::newRow("outside, left") << QPoint(-19, 900) << QRect(0, 880, 1, 40);
        QTest::newRow("outside, above") << QPoint(1000, -19) << QRect(980, 0, 40, 1);
        QTest::newRow("outside, right") << QPoint(2611, 900) << QRect(2591, 880, 1, 40);
    }

    void theWindowIsFortyPixelsWhereItFits()
    {
        QFETCH(QPoint, target);
        QTEST(searchWindow(target, QSize(2592, 1944)), "window");
    }

    void aTargetFarOutsideFindsNothing_data()
    {
        QTest::addColumn<QPoint>("target");
        QTest::newRow("left") << QPoint(-20, 80);
        QTest::newRow("far left") << QPoint(-5000, 80);
        QTest::newRow("above") << QPoint(100, -20);
        QTest::newRow("right") << QPoint(220, 80);
        QTest::newRow("far right") << QPoint(9000, 80);
        QTest::newRow("below") << QPoint(100, 180);
    }

    void aTargetFarOutsideFindsNothing()
    {
        QFETCH(QPoint, target);
        CalibrationFrame frame(kSmall, Qt::black);
        QCOMPARE(searchWindow(target, kSmall), QRect());
        QCOMPARE(TargetSearch().find(viewOf(frame), target).outcome, Outcome::NoObject);
    }

    void aDotIsFoundAtItsCentre_data()
    {
        QTest::addColumn<QPoint>("centre");
        QTest::addColumn<QPoint>("target");
        QTest::newRow("under the target") << QPoint(100, 80) << QPoint(100, 80);
        QTest::newRow("beside the target") << QPoint(100, 80) << QPoint(108, 72);
        QTest::newRow("left border, narrow window") << QPoint(10, 80) << QPoint(12, 80);
        QTest::newRow("top border, low window") << QPoint(100, 10) << QPoint(100, 14);
        QTest::newRow("top left corner") << QPoint(10, 10) << QPoint(13, 13);
        QTest::newRow("first shifted window") << QPoint(10, 10) << QPoint(20, 20);
        QTest::newRow("right border") << QPoint(190, 80) << QPoint(188, 80);
        QTest::newRow("bottom border") << QPoint(100, 150) << QPoint(100, 147);
        QTest::newRow("bottom right corner") << QPoint(190, 150) << QPoint(192, 153);
        QTest::newRow("target just outside the image") << QPoint(6, 80) << QPoint(-3, 80);
    }

    void aDotIsFoundAtItsCentre()
    {
        QFETCH(QPoint, centre);
        QFETCH(QPoint, target);
        CalibrationFrame frame(kSmall);
        frame.dot(centre, 6);
        const TargetSearch::Result result = TargetSearch().find(viewOf(frame), target);
        QCOMPARE(result.outcome, Outcome::Found);
        // The centre is truncated to whole pixels.
        QVERIFY2(centre.x() - result.point.x() >= 0 && centre.x() - result.point.x() <= 1,
                 qPrintable(QString::number(result.point.x())));
        QVERIFY2(centre.y() - result.point.y() >= 0 && centre.y() - result.point.y() <= 1,
                 qPrintable(QString::number(result.point.y())));
    }

    void whatIsDarkDependsOnGreenAlone_data()
    {
        QTest::addColumn<QColor>("color");
        QTest::addColumn<Outcome>("outcome");
        QTest::newRow("black") << QColor(0, 0, 0) << Outcome::Found;
        QTest::newRow("50 counts") << QColor(50, 50, 50) << Outcome::Found;
        QTest::newRow("51 does not") << QColor(51, 51, 51) << Outcome::NoObject;
        QTest::newRow("magenta") << QColor(255, 50, 255) << Outcome::Found;
        QTest::newRow("green") << QColor(0, 51, 0) << Outcome::NoObject;
    }

    void whatIsDarkDependsOnGreenAlone()
    {
        QFETCH(QColor, color);
        CalibrationFrame frame(kSmall);
        frame.dot({100, 80}, 6, color);
        QTEST(TargetSearch().find(viewOf(frame), {100, 80}).outcome, "outcome");
    }

    void exactlyOneObjectIsAPoint_data()
    {
        QTest::addColumn<QVector<QPoint>>("dots");
        QTest::addColumn<Outcome>("outcome");
        QTest::newRow("nothing") << QVector<QPoint>{} << Outcome::NoObject;
        QTest::newRow("one") << QVector<QPoint>{{100, 80}} << Outcome::Found;
        QTest::newRow("two") << QVector<QPoint>{{90, 80}, {112, 80}} << Outcome::ManyObjects;
        QTest::newRow("three") << QVector<QPoint>{{90, 70}, {112, 70}, {100, 95}} << Outcome::ManyObjects;
        QTest::newRow("the second partly inside")
            << QVector<QPoint>{{95, 80}, {123, 80}} << Outcome::ManyObjects;
        // The filters widen a dot by up to 2 pixels: 131 - 6 - 2 = 123 is outside of 80 to 119.
        QTest::newRow("the second outside") << QVector<QPoint>{{95, 80}, {131, 80}} << Outcome::Found;
        QTest::newRow("only outside") << QVector<QPoint>{{131, 80}} << Outcome::NoObject;
        QTest::newRow("touching each other") << QVector<QPoint>{{94, 80}, {106, 80}} << Outcome::Found;
    }

    void exactlyOneObjectIsAPoint()
    {
        QFETCH(QVector<QPoint>, dots);
        CalibrationFrame frame(kSmall);
        for (const QPoint& dot : dots)
            frame.dot(dot, 6);
        QTEST(TargetSearch().find(viewOf(frame), {100, 80}).outcome, "outcome");
    }

    void halfADotGivesTheCentreOfWhatIsVisible()
    {
        CalibrationFrame frame(kSmall);
        frame.dot({120, 80}, 10);
        const TargetSearch::Result result = TargetSearch().find(viewOf(frame), {100, 80});
        QCOMPARE(result.outcome, Outcome::Found);
        // The window holds columns 80 to 119, the left half of the dot. The filters widen
        // it to 11 pixels above and below; its straight top and bottom edges reach from
        // column 116 to the window's last one, and the smallest circle goes through their ends:
        // (116 + 119) / 2 = 117.5, truncated.
        QCOMPARE(result.point, QPoint(117, 80));
    }

    void ringsScratchesAndNoise_data()
    {
        QTest::addColumn<QString>("what");
        QTest::addColumn<Outcome>("outcome");
        QTest::newRow("a ring counts by its outer edge") << "ring" << Outcome::Found;
        QTest::newRow("a dot in a ring is inside the outer edge") << "target" << Outcome::Found;
        QTest::newRow("the median removes a thin scratch") << "thin" << Outcome::NoObject;
        QTest::newRow("a wide scratch is an object") << "wide" << Outcome::Found;
        QTest::newRow("a dot beside a wide scratch") << "wide and dot" << Outcome::ManyObjects;
        QTest::newRow("the median removes single pixels") << "pixels" << Outcome::NoObject;
        QTest::newRow("a dot among single pixels") << "pixels and dot" << Outcome::Found;
        QTest::newRow("four pixels are no majority") << "2x2" << Outcome::NoObject;
        QTest::newRow("nine pixels leave a cross") << "3x3" << Outcome::Found;
        QTest::newRow("everything dark is one object") << "dark" << Outcome::Found;
    }

    void ringsScratchesAndNoise()
    {
        QFETCH(QString, what);
        CalibrationFrame frame(kSmall, what == "dark" ? Qt::black : QColor(200, 200, 200));
        if (what == "ring" || what == "target")
            frame.ring({100, 80}, 9, 12, Qt::black);
        if (what == "target" || what == "pixels and dot")
            frame.dot({100, 80}, 4);
        if (what == "wide and dot")
            frame.dot({100, 90}, 4);
        if (what == "thin")
            frame.fill(QRect(0, 75, 200, 1), Qt::black);
        if (what.startsWith("wide"))
            frame.fill(QRect(0, 70, 200, 3), Qt::black);
        if (what.startsWith("pixels"))
            for (int y = 62; y < 100; y += 4)
                for (int x = 82; x < 120; x += 4)
                    if (QPoint(x - 100, y - 80).manhattanLength() > 12)
                        frame.set(x, y, Qt::black);
        if (what == "2x2")
            frame.fill(QRect(100, 80, 2, 2), Qt::black);
        if (what == "3x3")
            frame.fill(QRect(99, 79, 3, 3), Qt::black);
        QTEST(TargetSearch().find(viewOf(frame), {100, 80}).outcome, "outcome");
    }

    void theResultEqualsThePlainLibraryCalls()
    {
        std::mt19937 random(17);
        TargetSearch search;
        int outcomes[3] = {};
        for (int round = 0; round < 300; ++round) {
            CalibrationFrame frame(kSmall);
            const int dots = int(random() % 40);
            for (int i = 0; i < dots; ++i)
                frame.ring({int(random() % 200), int(random() % 160)}, int(random() % 3),
                           2 + int(random() % 9), QColor(90, int(random() % 70), 90));
            const int noise = int(random() % 1500);
            for (int i = 0; i < noise; ++i)
                frame.set(int(random() % 200), int(random() % 160), QColor(0, int(random() % 100), 0));
            const QPoint target(int(random() % 200), int(random() % 160));
            const TargetSearch::Result expected = foundPlainly(frame, target);
            const TargetSearch::Result result = search.find(viewOf(frame), target);
            QCOMPARE(result.outcome, expected.outcome);
            QCOMPARE(result.point, expected.point);
            ++outcomes[int(result.outcome)];
        }
        for (const int count : outcomes)
            QVERIFY2(count > 20, "every outcome takes part");
    }

    void aGreyFrameIsSearchedToo()
    {
        CalibrationFrame colored(kSmall);
        colored.dot({100, 80}, 6);
        std::vector<unsigned char> grey(std::size_t(kSmall.width()) * kSmall.height());
        for (std::size_t i = 0; i < grey.size(); ++i)
            grey[i] = colored.bytes()[3 * i + 1];
        const TargetSearch::Result expected = TargetSearch().find(viewOf(colored), {98, 83});
        const TargetSearch::Result result = TargetSearch().find({grey.data(), kSmall, 8}, {98, 83});
        QCOMPARE(result.outcome, Outcome::Found);
        QCOMPARE(result.point, expected.point);
    }

    void theFrameIsOnlyRead()
    {
        CalibrationFrame frame(kSmall);
        frame.dot({100, 80}, 6);
        const std::vector<unsigned char> before = frame.bytes();
        TargetSearch().find(viewOf(frame), {100, 80});
        QCOMPARE(frame.bytes(), before);
    }

    void searchingAgainTakesNoNewPlanes()
    {
        CalibrationFrame frame(QSize(640, 480));
        frame.dot({100, 80}, 6);
        const cv::Mat plane(480, 640, CV_8UC1, cv::Scalar(0));
        cv::Mat kept(480, 640, CV_8UC1);
        TargetSearch search;
        CountingAllocator allocator(plane.total());

        cv::bilateralFilter(plane, kept, 5, 95, 95, cv::BORDER_DEFAULT);
        const int ofTheFilterItself = allocator.takeCount();
        search.find(viewOf(frame), {100, 80});
        QCOMPARE(allocator.takeCount(), ofTheFilterItself + 2);
        search.find(viewOf(frame), {100, 80});
        QCOMPARE(allocator.takeCount(), ofTheFilterItself);
    }
};

QTEST_GUILESS_MAIN(TestTargetSearch)
#include "test_target_search.moc"
