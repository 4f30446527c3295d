#include "platform/media/audio_filter.h"
#include "platform/media/detail/ffmpeg_util.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}

#include <cstring>

namespace orvelle {

namespace {

struct GraphFree {
    void operator()(AVFilterGraph* graph) const { avfilter_graph_free(&graph); }
};
struct InOutFree {
    void operator()(AVFilterInOut* list) const { avfilter_inout_free(&list); }
};

} // namespace

struct AudioFilterChain::State {
    AudioFormat format;
    std::string filters;
    std::unique_ptr<AVFilterGraph, GraphFree> graph;
    AVFilterContext* source = nullptr;
    AVFilterContext* sink = nullptr;
    detail::FramePtr input = detail::makeFrame();
    detail::FramePtr output = detail::makeFrame();
    int64_t nextPts = 0;
    bool finished = false;

    [[noreturn]] void fail(const std::string& what, int code) const {
        detail::throwMediaError(what + " \"" + filters + "\"", code);
    }

    void drain(std::vector<float>& out) {
        const auto channels = static_cast<size_t>(format.channelCount);
        while (true) {
            const int code = av_buffersink_get_frame(sink, output.get());
            if (code == AVERROR(EAGAIN) || code == AVERROR_EOF) {
                return;
            }
            if (code < 0) {
                fail("Could not run the audio filters", code);
            }
            const auto frames = static_cast<size_t>(output->nb_samples);
            const size_t old = out.size();
            out.resize(old + frames * channels);
            std::memcpy(out.data() + old, output->data[0], frames * channels * sizeof(float));
            av_frame_unref(output.get());
        }
    }
};

AudioFilterChain::AudioFilterChain(AudioFormat format, const std::string& filters)
    : state_(std::make_unique<State>()) {
    detail::configureLogging();
    State& s = *state_;
    s.format = format;
    s.filters = filters;
    s.graph.reset(avfilter_graph_alloc());
    if (!s.graph) {
        throw MediaError("Out of memory for audio filters.");
    }
    AVChannelLayout layout{};
    av_channel_layout_default(&layout, format.channelCount);
    char layoutName[64] = {};
    av_channel_layout_describe(&layout, layoutName, sizeof layoutName);
    av_channel_layout_uninit(&layout);
    const std::string sourceArguments = "sample_rate=" + std::to_string(format.sampleRate) +
                                        ":sample_fmt=flt:channel_layout=" + layoutName +
                                        ":time_base=1/" + std::to_string(format.sampleRate);
    if (const int code =
            avfilter_graph_create_filter(&s.source, avfilter_get_by_name("abuffer"), "in",
                                         sourceArguments.c_str(), nullptr, s.graph.get());
        code < 0) {
        s.fail("Could not set up the audio filters", code);
    }
    if (const int code = avfilter_graph_create_filter(&s.sink, avfilter_get_by_name("abuffersink"),
                                                      "out", nullptr, nullptr, s.graph.get());
        code < 0) {
        s.fail("Could not set up the audio filters", code);
    }
    // The output keeps the input's format, rate and channels.
    const std::string formatChain =
        filters + ",aformat=sample_fmts=flt:sample_rates=" + std::to_string(format.sampleRate) +
        ":channel_layouts=" + layoutName;
    AVFilterInOut* outputs = avfilter_inout_alloc();
    AVFilterInOut* inputs = avfilter_inout_alloc();
    std::unique_ptr<AVFilterInOut, InOutFree> outputsGuard(outputs);
    std::unique_ptr<AVFilterInOut, InOutFree> inputsGuard(inputs);
    if (outputs == nullptr || inputs == nullptr) {
        throw MediaError("Out of memory for audio filters.");
    }
    outputs->name = av_strdup("in");
    outputs->filter_ctx = s.source;
    inputs->name = av_strdup("out");
    inputs->filter_ctx = s.sink;
    AVFilterInOut* openInputs = inputsGuard.release();
    AVFilterInOut* openOutputs = outputsGuard.release();
    const int parsed = avfilter_graph_parse_ptr(s.graph.get(), formatChain.c_str(), &openInputs,
                                                &openOutputs, nullptr);
    avfilter_inout_free(&openInputs);
    avfilter_inout_free(&openOutputs);
    if (parsed < 0) {
        s.fail("Could not understand the audio filters", parsed);
    }
    if (const int code = avfilter_graph_config(s.graph.get(), nullptr); code < 0) {
        s.fail("Could not set up the audio filters", code);
    }
}

AudioFilterChain::~AudioFilterChain() = default;

void AudioFilterChain::process(const float* interleaved, size_t frameCount,
                               std::vector<float>& output) {
    State& s = *state_;
    if (s.finished || frameCount == 0) {
        return;
    }
    AVFrame* frame = s.input.get();
    frame->format = AV_SAMPLE_FMT_FLT;
    frame->sample_rate = s.format.sampleRate;
    av_channel_layout_default(&frame->ch_layout, s.format.channelCount);
    frame->nb_samples = static_cast<int>(frameCount);
    frame->pts = s.nextPts;
    if (const int code = av_frame_get_buffer(frame, 0); code < 0) {
        s.fail("Could not run the audio filters", code);
    }
    std::memcpy(frame->data[0], interleaved,
                frameCount * static_cast<size_t>(s.format.channelCount) * sizeof(float));
    s.nextPts += static_cast<int64_t>(frameCount);
    const int code = av_buffersrc_add_frame(s.source, frame);
    av_frame_unref(frame);
    if (code < 0) {
        s.fail("Could not run the audio filters", code);
    }
    s.drain(output);
}

void AudioFilterChain::finish(std::vector<float>& output) {
    State& s = *state_;
    if (s.finished) {
        return;
    }
    s.finished = true;
    if (const int code = av_buffersrc_add_frame(s.source, nullptr); code < 0) {
        s.fail("Could not run the audio filters", code);
    }
    s.drain(output);
}

} // namespace orvelle
