#include "camera/YuvConversion.h"

#include <cstddef>
#include <cstring>

extern "C" {
#include <libswscale/swscale.h>
}

#include "settings/CaptureModes.h"

namespace {

// libswscale is built without ThreadSanitizer, which would not see its reads: a frame that is
// written while it is converted would go unnoticed. So each word is read here once before.
void showReads([[maybe_unused]] const uchar* bytes, [[maybe_unused]] std::size_t size)
{
#ifdef __SANITIZE_THREAD__
    quint64 all = 0;
    for (std::size_t i = 0; i + sizeof all <= size; i += sizeof all) {
        quint64 word = 0;
        std::memcpy(&word, bytes + i, sizeof word);
        all ^= word;
    }
    volatile quint64 used = all;
    static_cast<void>(used);
#endif
}

} // namespace

void sws_yuv2rgb24(unsigned int width, int height, const uchar* source, uchar* destination)
{
    if (source == nullptr || destination == nullptr)
        return;
    const int columns = static_cast<int>(width);
    SwsContext* context = sws_getContext(columns, height, AV_PIX_FMT_YUYV422, columns, height,
                                         AV_PIX_FMT_RGB24, SWS_BILINEAR, nullptr, nullptr, nullptr);
    if (context == nullptr)
        return;
    showReads(source, std::size_t(width) * kYuyvBytesPerPixel * std::size_t(height));
    const uchar* const sourcePlanes[] = {source};
    const int sourceStrides[] = {columns * kYuyvBytesPerPixel};
    uchar* const destinationPlanes[] = {destination};
    const int destinationStrides[] = {columns * kRgbBytesPerPixel};
    sws_scale(context, sourcePlanes, sourceStrides, 0, height, destinationPlanes, destinationStrides);
    sws_freeContext(context);
}
