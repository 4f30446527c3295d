#include "platform/image/bitmap.h"

#include "core/files.h"

#include <cairo.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace orvelle {

namespace {

// Rows start on 64-byte boundaries so that vector loops never straddle a cache line.
size_t alignedStride(int width) {
    return (static_cast<size_t>(width) * 4 + 63) / 64 * 64;
}

struct SurfaceDeleter {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
using SurfacePointer = std::unique_ptr<cairo_surface_t, SurfaceDeleter>;

cairo_status_t appendToString(void* closure, const unsigned char* data, unsigned int length) {
    static_cast<std::string*>(closure)->append(reinterpret_cast<const char*>(data), length);
    return CAIRO_STATUS_SUCCESS;
}

} // namespace

Bitmap::Bitmap(int width, int height) {
    if (width <= 0 || height <= 0) {
        return;
    }
    width_ = width;
    height_ = height;
    stride_ = alignedStride(width);
    const size_t size = stride_ * static_cast<size_t>(height);
    auto* memory = static_cast<uint8_t*>(std::aligned_alloc(64, size));
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    std::memset(memory, 0, size);
    storage_ = std::shared_ptr<uint8_t>(memory, [](uint8_t* p) { std::free(p); });
    data_ = memory;
}

Bitmap Bitmap::wrapping(uint8_t* pixels, int width, int height, size_t stride) {
    Bitmap bitmap;
    if (pixels == nullptr || width <= 0 || height <= 0) {
        return bitmap;
    }
    bitmap.data_ = pixels;
    bitmap.width_ = width;
    bitmap.height_ = height;
    bitmap.stride_ = stride;
    return bitmap;
}

std::array<uint8_t, 4> Bitmap::pixel(int x, int y) const {
    const uint8_t* p = row(y) + 4 * x;
    return {p[0], p[1], p[2], p[3]};
}

void Bitmap::setPixel(int x, int y, std::array<uint8_t, 4> bgra) {
    std::memcpy(row(y) + 4 * x, bgra.data(), 4);
}

Bitmap Bitmap::clone() const {
    Bitmap copy(width_, height_);
    for (int y = 0; y < height_; ++y) {
        std::memcpy(copy.row(y), row(y), static_cast<size_t>(width_) * 4);
    }
    return copy;
}

bool Bitmap::isOpaque() const {
    for (int y = 0; y < height_; ++y) {
        const uint8_t* p = row(y);
        for (int x = 0; x < width_; ++x) {
            if (p[4 * x + 3] != 255) {
                return false;
            }
        }
    }
    return true;
}

Bitmap readPNG(const std::filesystem::path& path) {
    SurfacePointer surface(cairo_image_surface_create_from_png(path.c_str()));
    const cairo_status_t status = cairo_surface_status(surface.get());
    if (status != CAIRO_STATUS_SUCCESS) {
        const std::string reason = status == CAIRO_STATUS_FILE_NOT_FOUND
                                       ? "the file does not exist"
                                       : cairo_status_to_string(status);
        throw ImageFileError("The image \"" + path.string() + "\" could not be read: " + reason +
                             ".");
    }
    const int width = cairo_image_surface_get_width(surface.get());
    const int height = cairo_image_surface_get_height(surface.get());
    const cairo_format_t format = cairo_image_surface_get_format(surface.get());
    if (format != CAIRO_FORMAT_ARGB32 && format != CAIRO_FORMAT_RGB24) {
        // Grey and other forms: let Cairo convert by drawing onto a colour surface.
        SurfacePointer converted(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height));
        cairo_t* cr = cairo_create(converted.get());
        cairo_set_source_surface(cr, surface.get(), 0, 0);
        cairo_paint(cr);
        cairo_destroy(cr);
        surface = std::move(converted);
    }
    cairo_surface_flush(surface.get());
    const bool noAlpha = cairo_image_surface_get_format(surface.get()) == CAIRO_FORMAT_RGB24;
    const uint8_t* data = cairo_image_surface_get_data(surface.get());
    const int stride = cairo_image_surface_get_stride(surface.get());
    Bitmap bitmap(width, height);
    for (int y = 0; y < height; ++y) {
        uint8_t* out = bitmap.row(y);
        std::memcpy(out, data + static_cast<ptrdiff_t>(y) * stride, static_cast<size_t>(width) * 4);
        if (noAlpha) {
            for (int x = 0; x < width; ++x) {
                out[4 * x + 3] = 255;
            }
        }
    }
    return bitmap;
}

void writePNG(const Bitmap& bitmap, const std::filesystem::path& path) {
    if (bitmap.empty()) {
        throw ImageFileError("The image \"" + path.string() +
                             "\" could not be written: it is empty.");
    }
    const int stride = cairo_format_stride_for_width(CAIRO_FORMAT_ARGB32, bitmap.width());
    std::string packed(static_cast<size_t>(stride) * static_cast<size_t>(bitmap.height()), '\0');
    for (int y = 0; y < bitmap.height(); ++y) {
        std::memcpy(packed.data() + static_cast<ptrdiff_t>(y) * stride, bitmap.row(y),
                    static_cast<size_t>(bitmap.width()) * 4);
    }
    SurfacePointer surface(cairo_image_surface_create_for_data(
        reinterpret_cast<unsigned char*>(packed.data()), CAIRO_FORMAT_ARGB32, bitmap.width(),
        bitmap.height(), stride));
    std::string bytes;
    const cairo_status_t status =
        cairo_surface_write_to_png_stream(surface.get(), appendToString, &bytes);
    if (status != CAIRO_STATUS_SUCCESS) {
        throw ImageFileError("The image \"" + path.string() +
                             "\" could not be written: " + cairo_status_to_string(status) + ".");
    }
    writeFileAtomically(path, bytes);
}

} // namespace orvelle
