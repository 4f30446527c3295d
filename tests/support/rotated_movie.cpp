#include "support/rotated_movie.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/display.h>
}

#include <memory>
#include <stdexcept>
#include <string>

namespace orvelle::testing {

namespace {

void check(int code, const std::string& what) {
    if (code < 0) {
        char text[AV_ERROR_MAX_STRING_SIZE] = {};
        av_strerror(code, text, sizeof text);
        throw std::runtime_error("rotated movie: " + what + ": " + text);
    }
}

struct InputCloser {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};

struct OutputCloser {
    void operator()(AVFormatContext* context) const {
        if (context->pb != nullptr) {
            avio_closep(&context->pb);
        }
        avformat_free_context(context);
    }
};

struct PacketCloser {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

} // namespace

void copyMovieWithRotation(const std::filesystem::path& source, const std::filesystem::path& target,
                           double rotationDegrees) {
    AVFormatContext* rawInput = nullptr;
    check(avformat_open_input(&rawInput, source.c_str(), nullptr, nullptr), "open source");
    std::unique_ptr<AVFormatContext, InputCloser> input(rawInput);
    check(avformat_find_stream_info(input.get(), nullptr), "read source streams");

    AVFormatContext* rawOutput = nullptr;
    check(avformat_alloc_output_context2(&rawOutput, nullptr, nullptr, target.c_str()),
          "choose container");
    std::unique_ptr<AVFormatContext, OutputCloser> output(rawOutput);

    for (unsigned i = 0; i < input->nb_streams; ++i) {
        const AVStream* in = input->streams[i];
        AVStream* out = avformat_new_stream(output.get(), nullptr);
        check(avcodec_parameters_copy(out->codecpar, in->codecpar), "copy parameters");
        out->codecpar->codec_tag = 0;
        out->time_base = in->time_base;
        out->avg_frame_rate = in->avg_frame_rate;
        if (in->codecpar->codec_type == AVMEDIA_TYPE_VIDEO) {
            auto* matrix = reinterpret_cast<int32_t*>(
                av_stream_new_side_data(out, AV_PKT_DATA_DISPLAYMATRIX, sizeof(int32_t) * 9));
            if (matrix == nullptr) {
                throw std::runtime_error("rotated movie: no memory for the display matrix");
            }
            av_display_rotation_set(matrix, rotationDegrees);
        }
    }

    check(avio_open(&output->pb, target.c_str(), AVIO_FLAG_WRITE), "open target");
    check(avformat_write_header(output.get(), nullptr), "write header");
    std::unique_ptr<AVPacket, PacketCloser> packet(av_packet_alloc());
    while (av_read_frame(input.get(), packet.get()) >= 0) {
        const auto index = static_cast<unsigned>(packet->stream_index);
        av_packet_rescale_ts(packet.get(), input->streams[index]->time_base,
                             output->streams[index]->time_base);
        packet->pos = -1;
        check(av_interleaved_write_frame(output.get(), packet.get()), "write packet");
    }
    check(av_write_trailer(output.get()), "write trailer");
}

} // namespace orvelle::testing
