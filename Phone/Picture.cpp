#include "Phone/Picture.h"

extern "C" {
#include <libswscale/swscale.h>
}
#include <png.h>

#include <cstdlib>
#include <memory>

#include "Phone/PrivateFiles.h"

namespace orvel::phone {

namespace {

struct FreeScaler {
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};

int coefficientsOf(YuvMatrix matrix) {
    switch (matrix) {
        case YuvMatrix::bt709:
            return SWS_CS_ITU709;
        case YuvMatrix::bt2020:
            return SWS_CS_BT2020;
        case YuvMatrix::bt601:
            break;
    }
    return SWS_CS_ITU601;
}

}  // namespace

Picture rgbFrom(const YuvPlanes& planes, YuvMatrix matrix, bool isFull) {
    const int width = planes.width, height = planes.height;
    Picture picture{width, height, {}};
    if (width <= 0 || height <= 0) return picture;
    picture.rgb.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3);
    const std::unique_ptr<SwsContext, FreeScaler> scaler(sws_getContext(
        width, height, AV_PIX_FMT_YUV420P, width, height, AV_PIX_FMT_RGB24,
        SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT, nullptr, nullptr, nullptr));
    if (!scaler) std::abort();  // out of memory
    constexpr int unchanged = 1 << 16;
    sws_setColorspaceDetails(scaler.get(), sws_getCoefficients(coefficientsOf(matrix)),
                             isFull ? 1 : 0, sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, unchanged,
                             unchanged);
    const std::uint8_t* sources[] = {planes.luma, planes.cb, planes.cr};
    const int sourceStrides[] = {planes.lumaStride, planes.chromaStride, planes.chromaStride};
    std::uint8_t* rows[] = {picture.rgb.data()};
    const int strides[] = {width * 3};
    sws_scale(scaler.get(), sources, sourceStrides, 0, height, rows, strides);
    return picture;
}

std::string writePng(const Picture& picture, const std::string& path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(picture.width);
    image.height = static_cast<png_uint_32>(picture.height);
    image.format = PNG_FORMAT_RGB;
    png_alloc_size_t length = PNG_IMAGE_PNG_SIZE_MAX(image);
    Bytes file(length);
    if (!png_image_write_to_memory(&image, file.data(), &length, 0, picture.rgb.data(), 0,
                                   nullptr)) {
        return image.message;
    }
    file.resize(length);
    return replaceFile(path, file, FileAccess::asUsual);
}

}  // namespace orvel::phone
