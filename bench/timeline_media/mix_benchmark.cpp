// Mixing an hour of edited audio with 200 cuts, as the export does: a 70-minute take whose
// microphone was recorded in seven files of ten minutes (AAC, mono; a take with six pauses),
// cut into 201 clips that leave an hour, with crossfades at every cut, and a 3-minute music
// file looped under it with its ducking envelope. The figure is the mix's time as a share
// of the edit's length (goal: under 3 %). The source files are made once with the project's
// writer and kept in bench-media/ beside the binary; the seven microphone files are links to
// one, so that making them costs ten minutes of audio, not seventy.

#include "platform/media/movie_writer.h"
#include "timeline_media/composition_audio_mixer.h"
#include "timeline_media/timeline_composition.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <ctime>
#include <filesystem>
#include <random>

namespace orvelle {
namespace {

constexpr int rate = 48000;
constexpr int segmentCount = 7;
constexpr double segmentSeconds = 600;
constexpr double sourceMinutes = segmentCount * segmentSeconds / 60;

// Speech-like material: bursts of a voiced tone over a quiet hiss, made in blocks so that an
// hour never sits in memory.
void writeSource(const std::filesystem::path& path, double seconds, int channels, double pitch) {
    MovieAudioSettings settings;
    settings.input = {rate, channels};
    settings.output = {rate, channels};
    AudioFileWriter writer(path.string() + ".partial.m4a", MovieContainer::m4a, settings);
    std::mt19937 random(5);
    std::uniform_real_distribution<float> hiss(-0.003f, 0.003f);
    const auto total = static_cast<int64_t>(seconds * rate);
    std::vector<float> block(static_cast<size_t>(rate) * static_cast<size_t>(channels));
    for (int64_t start = 0; start < total; start += rate) {
        const int64_t count = std::min<int64_t>(rate, total - start);
        for (int64_t i = 0; i < count; ++i) {
            const double t = static_cast<double>(start + i) / rate;
            const bool voiced = std::fmod(t, 3.7) < 2.4;
            const auto value =
                static_cast<float>((voiced ? 0.3 : 0.0) * std::sin(2 * M_PI * pitch * t) *
                                   (0.6 + 0.4 * std::sin(2 * M_PI * 3 * t)));
            for (int c = 0; c < channels; ++c) {
                block[static_cast<size_t>(i * channels + c)] = value + hiss(random);
            }
        }
        writer.append(block.data(), static_cast<size_t>(count));
    }
    writer.finish();
    std::filesystem::rename(path.string() + ".partial.m4a", path);
}

std::filesystem::path mediaFolder() {
    std::error_code error;
    auto folder = std::filesystem::canonical("/proc/self/exe", error).parent_path().parent_path() /
                  "bench-media";
    std::filesystem::create_directories(folder, error);
    return folder;
}

TimelineClip clip(double start, double end, double speed) {
    TimelineClip value;
    value.id = Uuid::random();
    value.start = SourceTime(start);
    value.end = SourceTime(end);
    value.speed = speed;
    value.audio.ducksMusicDuringVoice = true;
    value.audio.musicVolume = 0.3;
    return value;
}

// 201 clips: each keeps 6/7 of its stretch of the source, so the edit is an hour long.
// Every `speedEvery`-th clip plays at 1.5 (0: none).
std::vector<TimelineClip> editClips(int speedEvery) {
    std::vector<TimelineClip> clips;
    const double stretch = sourceMinutes * 60 / 201;
    for (int i = 0; i < 201; ++i) {
        const double start = i * stretch + 0.37;
        const double speed = speedEvery > 0 && i % speedEvery == 0 ? 1.5 : 1.0;
        clips.push_back(clip(start, start + stretch * 6 / 7, speed));
    }
    return clips;
}

void mixAnHour(benchmark::State& state) {
    const auto folder = mediaFolder();
    const auto mic = folder / "mic-10min.m4a";
    const auto music = folder / "music-3min.m4a";
    if (!std::filesystem::exists(mic)) {
        writeSource(mic, segmentSeconds, 1, 180);
    }
    if (!std::filesystem::exists(music)) {
        writeSource(music, 180, 2, 440);
    }
    TimelineCompositionSource source;
    source.duration = sourceMinutes * 60;
    for (int i = 0; i < segmentCount; ++i) {
        const auto segment = folder / ("mic-segment-" + std::to_string(i + 1) + ".m4a");
        if (!std::filesystem::exists(segment)) {
            std::filesystem::create_hard_link(mic, segment);
        }
        const double start = i * segmentSeconds;
        source.videoSegments.push_back({folder / ("screen-" + std::to_string(i + 1) + ".mov"),
                                        {},
                                        start,
                                        segmentSeconds,
                                        0,
                                        segmentSeconds});
        source.audioSources.push_back({TimelineCompositionAudioRole::microphone,
                                       segment,
                                       {},
                                       start,
                                       segmentSeconds,
                                       0,
                                       segmentSeconds});
    }
    source.musicSources["music-0001"] = {music, {}, 180};
    const auto clips = editClips(static_cast<int>(state.range(0)));
    const double duration = TimelineComposition::editDuration(clips);
    const std::vector<MusicClip> musicClips{
        {Uuid::random(), EditTime(0), EditTime(duration), 0, "music-0001", "Loop"}};
    // Speech every 3.7 s, as the source's bursts, for the envelope's dips.
    std::vector<VoiceInterval> voice;
    for (double t = 0; t < source.duration; t += 3.7) {
        voice.push_back({t, t + 2.4});
    }
    const auto result = TimelineComposition::make(clips, source, {}, musicClips, voice);
    std::vector<float> block(48000 * 2);
    double elapsed = 0;
    double processor = 0;
    for (auto _ : state) {
        const auto started = std::chrono::steady_clock::now();
        const std::clock_t startedOnProcessor = std::clock();
        CompositionAudioMixer mixer(result->composition, result->audioMix);
        for (int64_t frame = 0; frame < mixer.frameCount(); frame += 48000) {
            const auto count =
                static_cast<size_t>(std::min<int64_t>(48000, mixer.frameCount() - frame));
            mixer.render(frame, count, block.data());
            benchmark::DoNotOptimize(block.data());
        }
        elapsed +=
            std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        processor += static_cast<double>(std::clock() - startedOnProcessor) / CLOCKS_PER_SEC;
    }
    state.counters["edit_minutes"] = duration / 60;
    state.counters["cuts"] = static_cast<double>(clips.size() - 1);
    state.counters["share_of_real_time_%"] =
        100.0 * elapsed / static_cast<double>(state.iterations()) / duration;
    // The same on the processor clock, which a busy machine disturbs less.
    state.counters["cpu_share_%"] =
        100.0 * processor / static_cast<double>(state.iterations()) / duration;
}

// Argument: every n-th clip at speed 1.5 (0: all at speed 1).
BENCHMARK(mixAnHour)->Arg(0)->Arg(10)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

} // namespace
} // namespace orvelle

BENCHMARK_MAIN();
