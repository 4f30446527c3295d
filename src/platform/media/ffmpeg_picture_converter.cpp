#include "platform/media/detail/picture_converter.h"
#include "platform/media/detail/row_kernel.h"

#include <libyuv/convert_argb.h>

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <cstring>
#include <optional>

namespace orvelle::detail {

namespace {

// Planar YUV without alpha, as the decoders of the movies we read give it.
struct PlanarYuv {
    int depth = 8;        // bits a sample: 8 (one byte) or 10 (two bytes, little-endian)
    int chromaShiftX = 1; // log2 of the chroma subsampling across
    int chromaShiftY = 1; // and down
};

std::optional<PlanarYuv> planarYuv(AVPixelFormat format) {
    switch (format) {
    case AV_PIX_FMT_YUV420P:
    case AV_PIX_FMT_YUVJ420P:
        return PlanarYuv{8, 1, 1};
    case AV_PIX_FMT_YUV422P:
    case AV_PIX_FMT_YUVJ422P:
        return PlanarYuv{8, 1, 0};
    case AV_PIX_FMT_YUV444P:
    case AV_PIX_FMT_YUVJ444P:
        return PlanarYuv{8, 0, 0};
    case AV_PIX_FMT_YUV420P10LE:
        return PlanarYuv{10, 1, 1};
    case AV_PIX_FMT_YUV422P10LE:
        return PlanarYuv{10, 1, 0};
    case AV_PIX_FMT_YUV444P10LE:
        return PlanarYuv{10, 0, 0};
    default:
        return std::nullopt;
    }
}

bool isFullRange(const AVFrame* picture) {
    const auto format = static_cast<AVPixelFormat>(picture->format);
    return picture->color_range == AVCOL_RANGE_JPEG || format == AV_PIX_FMT_YUVJ420P ||
           format == AV_PIX_FMT_YUVJ422P || format == AV_PIX_FMT_YUVJ444P;
}

// The YUV to RGB matrix of a picture, absent for matrices the fast path does not know.
const libyuv::YuvConstants* bgraConstants(const AVFrame* picture) {
    const bool full = isFullRange(picture);
    switch (effectiveColorSpace(picture->colorspace, picture->height)) {
    case AVCOL_SPC_BT709:
        return full ? &libyuv::kYuvF709Constants : &libyuv::kYuvH709Constants;
    case AVCOL_SPC_BT470BG:
    case AVCOL_SPC_SMPTE170M:
        return full ? &libyuv::kYuvJPEGConstants : &libyuv::kYuvI601Constants;
    case AVCOL_SPC_BT2020_NCL:
        return full ? &libyuv::kYuvV2020Constants : &libyuv::kYuv2020Constants;
    default:
        return nullptr;
    }
}

// 10-bit samples to 8, rounded.
ORVELLE_ROW_KERNEL void narrowRow(const uint16_t* __restrict source, uint8_t* __restrict output,
                                  int count) {
    for (int i = 0; i < count; ++i) {
        const unsigned value = (source[i] + 2u) >> 2;
        output[i] = static_cast<uint8_t>(value > 255u ? 255u : value);
    }
}

// Two rows of 10-bit chroma averaged into one of 8 bits: 4:2:2 to 4:2:0.
ORVELLE_ROW_KERNEL void averageNarrowRows(const uint16_t* __restrict upper,
                                          const uint16_t* __restrict lower,
                                          uint8_t* __restrict output, int count) {
    for (int i = 0; i < count; ++i) {
        const unsigned value = (upper[i] + lower[i] + 4u) >> 3;
        output[i] = static_cast<uint8_t>(value > 255u ? 255u : value);
    }
}

ORVELLE_ROW_KERNEL void averageRows(const uint8_t* __restrict upper,
                                    const uint8_t* __restrict lower, uint8_t* __restrict output,
                                    int count) {
    for (int i = 0; i < count; ++i) {
        output[i] = static_cast<uint8_t>((upper[i] + lower[i] + 1u) >> 1);
    }
}

const uint8_t* sourceRow(const AVFrame* picture, int plane, int row) {
    return picture->data[plane] + static_cast<ptrdiff_t>(row) * picture->linesize[plane];
}

const uint16_t* sourceRow16(const AVFrame* picture, int plane, int row) {
    return reinterpret_cast<const uint16_t*>(sourceRow(picture, plane, row));
}

// Rows [top, bottom) of a planar YUV picture into BGRA.
void bandToBgra(const AVFrame* picture, const PlanarYuv& shape,
                const libyuv::YuvConstants* constants, VideoFrame& frame, int top, int bottom) {
    const int chromaTop = top >> shape.chromaShiftY;
    uint8_t* output = frame.row(0, top);
    const int stride = frame.strides[0];
    const int width = frame.width;
    const int height = bottom - top;
    if (shape.depth == 8) {
        const uint8_t* y = sourceRow(picture, 0, top);
        const uint8_t* u = sourceRow(picture, 1, chromaTop);
        const uint8_t* v = sourceRow(picture, 2, chromaTop);
        const int ys = picture->linesize[0];
        const int us = picture->linesize[1];
        const int vs = picture->linesize[2];
        if (shape.chromaShiftY == 1) {
            libyuv::I420ToARGBMatrix(y, ys, u, us, v, vs, output, stride, constants, width, height);
        } else if (shape.chromaShiftX == 1) {
            libyuv::I422ToARGBMatrix(y, ys, u, us, v, vs, output, stride, constants, width, height);
        } else {
            libyuv::I444ToARGBMatrix(y, ys, u, us, v, vs, output, stride, constants, width, height);
        }
    } else {
        const uint16_t* y = sourceRow16(picture, 0, top);
        const uint16_t* u = sourceRow16(picture, 1, chromaTop);
        const uint16_t* v = sourceRow16(picture, 2, chromaTop);
        const int ys = picture->linesize[0] / 2;
        const int us = picture->linesize[1] / 2;
        const int vs = picture->linesize[2] / 2;
        if (shape.chromaShiftY == 1) {
            libyuv::I010ToARGBMatrix(y, ys, u, us, v, vs, output, stride, constants, width, height);
        } else if (shape.chromaShiftX == 1) {
            libyuv::I210ToARGBMatrix(y, ys, u, us, v, vs, output, stride, constants, width, height);
        } else {
            libyuv::I410ToARGBMatrix(y, ys, u, us, v, vs, output, stride, constants, width, height);
        }
    }
}

// Rows [top, bottom) of a 4:2:0 or 4:2:2 picture into yuv420p: the same matrix and range,
// 10-bit samples rounded to 8, 4:2:2 chroma averaged in pairs of rows. `top` is even.
void bandToYuv420p(const AVFrame* picture, const PlanarYuv& shape, VideoFrame& frame, int top,
                   int bottom) {
    const int width = frame.width;
    for (int row = top; row < bottom; ++row) {
        if (shape.depth == 8) {
            std::memcpy(frame.row(0, row), sourceRow(picture, 0, row), static_cast<size_t>(width));
        } else {
            narrowRow(sourceRow16(picture, 0, row), frame.row(0, row), width);
        }
    }
    const int chromaWidth = frame.planeWidthBytes(1);
    const int lastSourceRow = (frame.height - 1) >> shape.chromaShiftY;
    for (int plane = 1; plane < 3; ++plane) {
        for (int row = top / 2; row < (bottom + 1) / 2; ++row) {
            uint8_t* output = frame.row(plane, row);
            if (shape.chromaShiftY == 1) {
                if (shape.depth == 8) {
                    std::memcpy(output, sourceRow(picture, plane, row),
                                static_cast<size_t>(chromaWidth));
                } else {
                    narrowRow(sourceRow16(picture, plane, row), output, chromaWidth);
                }
                continue;
            }
            const int upper = 2 * row;
            const int lower = std::min(upper + 1, lastSourceRow);
            if (shape.depth == 8) {
                averageRows(sourceRow(picture, plane, upper), sourceRow(picture, plane, lower),
                            output, chromaWidth);
            } else {
                averageNarrowRows(sourceRow16(picture, plane, upper),
                                  sourceRow16(picture, plane, lower), output, chromaWidth);
            }
        }
    }
}

} // namespace

PictureConverter::PictureConverter(PixelLayout layout, int width, int height, int threadCount)
    : layout_(layout), width_(width), height_(height),
      bands_(threadCount > 0 ? threadCount : BandRunner::machineThreads()) {}

void PictureConverter::convert(const AVFrame* source, VideoFrame& frame,
                               const std::filesystem::path& path) {
    frame.allocate(layout_, width_, height_);
    if (!convertInBands(source, frame)) {
        convertWithScaler(source, frame, path);
    }
}

bool PictureConverter::convertInBands(const AVFrame* source, VideoFrame& frame) {
    if (source->width != width_ || source->height != height_) {
        return false;
    }
    const auto shape = planarYuv(static_cast<AVPixelFormat>(source->format));
    if (!shape) {
        return false;
    }
    const libyuv::YuvConstants* constants = nullptr;
    if (layout_ == PixelLayout::bgra) {
        constants = bgraConstants(source);
        if (constants == nullptr) {
            return false;
        }
    } else if (shape->chromaShiftX != 1) {
        return false; // 4:4:4 to 4:2:0 is left to the scaler
    }
    bands_.runRows(height_, [&](int top, int bottom) {
        if (layout_ == PixelLayout::bgra) {
            bandToBgra(source, *shape, constants, frame, top, bottom);
        } else {
            bandToYuv420p(source, *shape, frame, top, bottom);
        }
    });
    return true;
}

void PictureConverter::convertWithScaler(const AVFrame* source, VideoFrame& frame,
                                         const std::filesystem::path& path) {
    const auto sourceFormat = static_cast<AVPixelFormat>(source->format);
    const AVPixelFormat destinationFormat = pixelFormat(layout_);
    uint8_t* destination[4] = {frame.planes[0].data(), nullptr, nullptr, nullptr};
    int destinationStrides[4] = {frame.strides[0], 0, 0, 0};
    if (layout_ == PixelLayout::yuv420p) {
        for (int plane = 1; plane < 3; ++plane) {
            destination[plane] = frame.planes[static_cast<size_t>(plane)].data();
            destinationStrides[plane] = frame.strides[static_cast<size_t>(plane)];
        }
    }
    if (sourceFormat == destinationFormat && source->width == width_ && source->height == height_) {
        for (int plane = 0; plane < frame.planeCount(); ++plane) {
            av_image_copy_plane(destination[plane], destinationStrides[plane], source->data[plane],
                                source->linesize[plane], frame.planeWidthBytes(plane),
                                frame.planeHeight(plane));
        }
        return;
    }
    const bool scaling = source->width != width_ || source->height != height_;
    SwsContext* previous = scaler_.release();
    scaler_.reset(sws_getCachedContext(
        previous, source->width, source->height, sourceFormat, width_, height_, destinationFormat,
        scaling ? SWS_BICUBIC : SWS_BILINEAR, nullptr, nullptr, nullptr));
    if (!scaler_) {
        throw MediaError("Could not convert the pictures of " + quoted(path) + ".");
    }
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(sourceFormat);
    const bool sourceIsYuv =
        descriptor != nullptr && (descriptor->flags & AV_PIX_FMT_FLAG_RGB) == 0;
    const AVColorSpace space = effectiveColorSpace(source->colorspace, source->height);
    setColorDetails(scaler_.get(), space, sourceIsYuv && isFullRange(source), sourceIsYuv,
                    layout_ == PixelLayout::yuv420p);
    sws_scale(scaler_.get(), source->data, source->linesize, 0, source->height, destination,
              destinationStrides);
}

} // namespace orvelle::detail
