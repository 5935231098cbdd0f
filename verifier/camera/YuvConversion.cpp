#include "camera/YuvConversion.h"

extern "C" {
#include <libswscale/swscale.h>
}

void sws_yuv2rgb24(unsigned int width, int height, const uchar* source, uchar* destination)
{
    if (source == nullptr || destination == nullptr)
        return;
    const int columns = static_cast<int>(width);
    SwsContext* context = sws_getContext(columns, height, AV_PIX_FMT_YUYV422, columns, height,
                                         AV_PIX_FMT_RGB24, SWS_BILINEAR, nullptr, nullptr, nullptr);
    if (context == nullptr)
        return;
    const uchar* const sourcePlanes[] = {source};
    const int sourceStrides[] = {columns * 2};
    uchar* const destinationPlanes[] = {destination};
    const int destinationStrides[] = {columns * 3};
    sws_scale(context, sourcePlanes, sourceStrides, 0, height, destinationPlanes, destinationStrides);
    sws_freeContext(context);
}
