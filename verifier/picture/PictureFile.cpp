#include "picture/PictureFile.h"

#include <stdexcept>
#include <vector>

#include <QFileInfo>
#include <QLibrary>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "platform/DiskFile.h"

namespace {

using Encode = bool (*)(const cv::String&, cv::InputArray, std::vector<unsigned char>&,
                        const std::vector<int>&);

/// cv::imencode(), which is of that type, as the linker knows it.
constexpr const char* kEncode = "_ZN2cv8imencodeERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEERKNS_"
                                "11_InputArrayERSt6vectorIhSaIhEERKSB_IiSaIiEE";

Encode encoder()
{
    // What is loaded stays so: the end of a QLibrary unloads nothing.
    QLibrary library(QStringLiteral(ORLA_PICTURE_LIBRARY));
    const auto encode = reinterpret_cast<Encode>(library.resolve(kEncode));
    if (encode == nullptr)
        throw std::runtime_error(library.errorString().toStdString());
    return encode;
}

} // namespace

bool writePicture(const QString& path, const cv::Mat& rgbFrame)
{
    cv::Mat bgr;
    cv::cvtColor(rgbFrame, bgr, cv::COLOR_RGB2BGR);
    std::vector<unsigned char> bytes;
    return encoder()('.' + QFileInfo(path).suffix().toStdString(), bgr, bytes, {}) &&
           disk_file::write(path, bytes.data(), bytes.size());
}
