#pragma once

// A picture in memory: premultiplied BGRA, 8 bits a channel, rows from the top. Copies
// share their pixels (a bitmap handed to an image is not changed afterwards); clone() makes
// an independent one.

#include "core/error.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>

namespace orvelle {

// An image file that could not be read or written; the text names the file.
class ImageFileError : public Error {
public:
    using Error::Error;
};

class Bitmap {
public:
    Bitmap() = default;
    Bitmap(int width, int height); // transparent black
    // Pixels owned by the caller, who keeps them alive as long as any copy of the bitmap.
    static Bitmap wrapping(uint8_t* pixels, int width, int height, size_t stride);

    int width() const { return width_; }
    int height() const { return height_; }
    size_t stride() const { return stride_; }
    bool empty() const { return width_ <= 0 || height_ <= 0; }

    uint8_t* row(int y) {
        return data_ + static_cast<ptrdiff_t>(y) * static_cast<ptrdiff_t>(stride_);
    }
    const uint8_t* row(int y) const {
        return data_ + static_cast<ptrdiff_t>(y) * static_cast<ptrdiff_t>(stride_);
    }
    // B, G, R, A of one pixel, premultiplied.
    std::array<uint8_t, 4> pixel(int x, int y) const;
    void setPixel(int x, int y, std::array<uint8_t, 4> bgra);

    Bitmap clone() const;
    // Every pixel with alpha 255.
    bool isOpaque() const;

private:
    std::shared_ptr<uint8_t> storage_;
    uint8_t* data_ = nullptr;
    int width_ = 0;
    int height_ = 0;
    size_t stride_ = 0;
};

// PNG files. Reading throws ImageFileError naming the file; writing replaces the file
// atomically, so a failed write leaves the old file as it was.
Bitmap readPNG(const std::filesystem::path& path);
void writePNG(const Bitmap& bitmap, const std::filesystem::path& path);

} // namespace orvelle
