#include "Phone/Picture.h"

#include <png.h>

#include <cstdlib>

#include "Phone/PrivateFiles.h"

namespace orvel::phone {

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
