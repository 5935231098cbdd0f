#include <stdexcept>

#include <dlfcn.h>

#include <QDir>
#include <QFile>
#include <QImage>
#include <QTemporaryDir>
#include <QtTest>

#include "picture/PictureFile.h"
#include "platform/InstrumentPath.h"
#include "support/FileBytes.h"

namespace {

bool g_libraryIsMissing = false;

bool isLoaded()
{
    return bytesOf("/proc/self/maps").contains("libopencv_imgcodecs");
}

} // namespace

/// In the place of the system's, for all libraries of this process.
extern "C" __attribute__((visibility("default"))) void* dlopen(const char* file, int flags)
{
    static const auto real = reinterpret_cast<void* (*)(const char*, int)>(dlsym(RTLD_NEXT, "dlopen"));
    if (g_libraryIsMissing && file != nullptr && QByteArray(file).contains("imgcodecs"))
        return nullptr;
    return real(file, flags);
}

/// The test functions stand in order: the library, once loaded, stays.
class TestPictureFile : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(QDir(m_root.path()).mkdir("mnt"));
        setInstrumentRoot(m_root.path());
    }

    void cleanupTestCase() { setInstrumentRoot({}); }

    void aMissingLibraryIsTold()
    {
        QVERIFY(!isLoaded());
        g_libraryIsMissing = true;
        QVERIFY_EXCEPTION_THROWN(writePicture("/mnt/a.png", frame()), std::runtime_error);
        g_libraryIsMissing = false;
        QVERIFY(!QFile::exists(m_root.filePath("mnt/a.png")));
        QVERIFY(!isLoaded());
    }

    void theFirstPictureLoadsIt()
    {
        QVERIFY(writePicture("/mnt/a.png", frame()));
        QVERIFY(isLoaded());
        const QImage picture(m_root.filePath("mnt/a.png"));
        QCOMPARE(picture.size(), QSize(3, 2));
        QCOMPARE(picture.pixel(0, 0), qRgb(1, 2, 3));
        QCOMPARE(picture.pixel(2, 1), qRgb(250, 130, 10));
    }

    void theEndingSaysTheFormat()
    {
        QVERIFY(writePicture("/mnt/a.png.tif", frame()));
        QCOMPARE(bytesOf(m_root.filePath("mnt/a.png.tif")).left(4), QByteArray("II*\0", 4));
    }

private:
    /// Two rows of three columns.
    static cv::Mat frame()
    {
        cv::Mat rgb(2, 3, CV_8UC3, cv::Scalar(1, 2, 3));
        rgb.at<cv::Vec3b>(1, 2) = {250, 130, 10};
        return rgb;
    }

    QTemporaryDir m_root;
};

QTEST_GUILESS_MAIN(TestPictureFile)
#include "test_picture_file.moc"
