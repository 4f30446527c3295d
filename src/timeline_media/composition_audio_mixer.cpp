#include "timeline_media/composition_audio_mixer.h"

#include "core/log.h"
#include "platform/media/audio_decoder.h"
#include "platform/media/time_stretcher.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <vector>

namespace orvelle {

namespace {

constexpr int64_t framesPerTick = CompositionAudioMixer::kSampleRate / kMediaTimescale; // 80
constexpr size_t channels = CompositionAudioMixer::kChannelCount;
constexpr size_t blockFrames = 4096;
// The channel count of a file not opened yet.
constexpr int unknownChannels = 0;
// After a seek into a stretched insertion, the stretcher starts this many edit frames early.
constexpr int64_t stretchPreroll = CompositionAudioMixer::kSampleRate / 5;
// Open decoders a track keeps.
constexpr size_t decoderLimit = 3;

// One track's decoders, the stretcher of the stretch it plays, and its scratch blocks.
struct TrackPlayer {
    const CompositionTrack* track = nullptr;
    const AudioMixInputParameters* parameters = nullptr;
    std::map<int, std::unique_ptr<AudioDecoder>> decoders; // by media id
    std::vector<int> decoderUse;                           // media ids, most recent last
    size_t stretchInsertion = SIZE_MAX;
    std::unique_ptr<TimeStretcher> stretcher;
    int64_t stretchNextFrame = 0;     // the insertion-relative edit frame the stretcher gives next
    int64_t stretchReadPosition = -1; // where the stretch left its decoder
    std::vector<float> samples;
    std::vector<float> input;
    std::vector<float> volumes;
};

} // namespace

struct CompositionAudioMixer::State {
    MediaComposition composition;
    AudioMix mix;
    std::vector<TrackPlayer> players;
    std::vector<bool> mediaFailed;
    // Per file: mono files are read, stretched and faded as mono and only spread over both
    // channels when mixed in, which halves the work of a microphone.
    std::vector<int> mediaChannels;
    int64_t frames = 0;

    AudioDecoder* decoder(TrackPlayer& player, int mediaID) {
        auto& use = player.decoderUse;
        std::erase(use, mediaID);
        use.push_back(mediaID);
        if (const auto found = player.decoders.find(mediaID); found != player.decoders.end()) {
            return found->second.get();
        }
        if (mediaFailed[static_cast<size_t>(mediaID)]) {
            return nullptr;
        }
        if (player.decoders.size() >= decoderLimit) {
            player.decoders.erase(use.front());
            use.erase(use.begin());
        }
        const auto& url = composition.media[static_cast<size_t>(mediaID)];
        int& channelCount = mediaChannels[static_cast<size_t>(mediaID)];
        try {
            auto made = std::make_unique<AudioDecoder>(
                url, AudioFormat{kSampleRate,
                                 channelCount == unknownChannels ? kChannelCount : channelCount});
            if (channelCount == unknownChannels) {
                channelCount = made->sourceChannelCount() == 1 ? 1 : kChannelCount;
                if (channelCount == 1) {
                    made = std::make_unique<AudioDecoder>(url, AudioFormat{kSampleRate, 1});
                }
            }
            AudioDecoder* raw = made.get();
            player.decoders[mediaID] = std::move(made);
            return raw;
        } catch (const Error& error) {
            logWarning("mixer", "playing ", url.string(), " as silence: ", error.what());
            mediaFailed[static_cast<size_t>(mediaID)] = true;
            std::erase(use, mediaID);
            return nullptr;
        }
    }

    // Reads `count` frames of a file from `mediaFrame` on; silence past its end.
    static void readMedia(AudioDecoder& source, int64_t mediaFrame, size_t count, float* out) {
        if (source.position() != mediaFrame) {
            source.seek(static_cast<double>(std::max<int64_t>(mediaFrame, 0)) / kSampleRate);
        }
        const size_t got = source.read(out, count);
        const auto c = static_cast<size_t>(source.format().channelCount);
        std::fill(out + got * c, out + count * c, 0.0f);
    }

    // Frames [local, local + count) of an insertion, relative to its edit start, with the
    // file's channel count (1 or 2), which it returns. Silence (in stereo) when the file
    // cannot be read.
    size_t renderInsertion(TrackPlayer& player, size_t index, int64_t local, size_t count,
                           float* out) {
        const CompositionTrackInsertion& insertion = player.track->insertions[index];
        AudioDecoder* source = decoder(player, insertion.mediaID);
        if (source == nullptr) {
            std::fill(out, out + count * channels, 0.0f);
            return channels;
        }
        const auto sourceChannels = static_cast<size_t>(source->format().channelCount);
        const int64_t sourceStart = insertion.sourceRange.start * framesPerTick;
        if (insertion.sourceRange.duration == insertion.editRange.duration) {
            readMedia(*source, sourceStart + local, count, out);
            return sourceChannels;
        }
        const double rate = insertion.rate();
        if (player.stretchInsertion != index || player.stretchNextFrame != local ||
            !player.stretcher || source->position() != player.stretchReadPosition) {
            const int64_t begin = std::max<int64_t>(local - stretchPreroll, 0);
            if (!player.stretcher || std::fabs(player.stretcher->speed() - rate) > 1e-12 ||
                static_cast<size_t>(player.stretcher->channelCount()) != sourceChannels) {
                player.stretcher = std::make_unique<TimeStretcher>(
                    kSampleRate, static_cast<int>(sourceChannels), rate);
            } else {
                player.stretcher->reset();
            }
            player.stretchInsertion = index;
            player.stretchNextFrame = begin;
            const auto mediaFrame =
                sourceStart + static_cast<int64_t>(std::llround(static_cast<double>(begin) * rate));
            source->seek(static_cast<double>(mediaFrame) / kSampleRate);
        }
        TimeStretcher& stretcher = *player.stretcher;
        // Pass over the preroll, then take what was asked for.
        auto produce = [&](float* destination, size_t wanted) {
            size_t done = 0;
            while (done < wanted) {
                const size_t got =
                    stretcher.pull(destination + done * sourceChannels, wanted - done);
                done += got;
                if (done == wanted) {
                    break;
                }
                const size_t need = stretcher.inputFramesWanted();
                player.input.resize(need * sourceChannels);
                const size_t read = source->read(player.input.data(), need);
                std::fill(player.input.begin() + static_cast<ptrdiff_t>(read * sourceChannels),
                          player.input.end(), 0.0f);
                stretcher.push(player.input.data(), need);
            }
        };
        if (player.stretchNextFrame < local) {
            std::vector<float> discard(blockFrames * channels);
            while (player.stretchNextFrame < local) {
                const auto take = static_cast<size_t>(std::min<int64_t>(
                    local - player.stretchNextFrame, static_cast<int64_t>(blockFrames)));
                produce(discard.data(), take);
                player.stretchNextFrame += static_cast<int64_t>(take);
            }
        }
        produce(out, count);
        player.stretchNextFrame += static_cast<int64_t>(count);
        player.stretchReadPosition = source->position();
        return sourceChannels;
    }

    void renderTrack(TrackPlayer& player, int64_t start, size_t count, float* output) {
        const auto& insertions = player.track->insertions;
        const int64_t end = start + static_cast<int64_t>(count);
        // The first insertion that ends after `start`.
        auto first = std::upper_bound(insertions.begin(), insertions.end(), start,
                                      [](int64_t frame, const CompositionTrackInsertion& i) {
                                          return frame < i.editRange.end() * framesPerTick;
                                      });
        for (auto it = first; it != insertions.end(); ++it) {
            const int64_t insertionStart = it->editRange.start * framesPerTick;
            const int64_t insertionEnd = it->editRange.end() * framesPerTick;
            if (insertionStart >= end) {
                break;
            }
            const int64_t from = std::max(start, insertionStart);
            const int64_t to = std::min(end, insertionEnd);
            if (to <= from) {
                continue;
            }
            const auto length = static_cast<size_t>(to - from);
            player.samples.resize(length * channels);
            const size_t sourceChannels =
                renderInsertion(player, static_cast<size_t>(it - insertions.begin()),
                                from - insertionStart, length, player.samples.data());
            player.volumes.resize(length);
            if (player.parameters != nullptr) {
                player.parameters->fillVolumes(from, length, kSampleRate, player.volumes.data());
            } else {
                std::fill(player.volumes.begin(), player.volumes.end(), 1.0f);
            }
            float* destination = output + static_cast<size_t>(from - start) * channels;
            const float* samples = player.samples.data();
            const float* volumes = player.volumes.data();
            if (sourceChannels == 1) {
                for (size_t i = 0; i < length; ++i) {
                    const float value = samples[i] * volumes[i];
                    destination[2 * i] += value;
                    destination[2 * i + 1] += value;
                }
                continue;
            }
            for (size_t i = 0; i < length; ++i) {
                destination[2 * i] += samples[2 * i] * volumes[i];
                destination[2 * i + 1] += samples[2 * i + 1] * volumes[i];
            }
        }
    }
};

CompositionAudioMixer::CompositionAudioMixer(MediaComposition composition, AudioMix mix)
    : state_(std::make_unique<State>()) {
    State& s = *state_;
    s.composition = std::move(composition);
    s.mix = std::move(mix);
    s.mediaFailed.assign(s.composition.media.size(), false);
    s.mediaChannels.assign(s.composition.media.size(), unknownChannels);
    for (const auto* track : s.composition.tracksOfType(CompositionMediaType::audio)) {
        TrackPlayer player;
        player.track = track;
        player.parameters = s.mix.parameters(track->trackID);
        s.players.push_back(std::move(player));
        s.frames = std::max(s.frames, track->endTick() * framesPerTick);
    }
}

CompositionAudioMixer::~CompositionAudioMixer() = default;

int64_t CompositionAudioMixer::frameCount() const {
    return state_->frames;
}

void CompositionAudioMixer::render(int64_t startFrame, size_t frameCount, float* output) {
    std::fill(output, output + frameCount * channels, 0.0f);
    size_t done = 0;
    while (done < frameCount) {
        const size_t block = std::min(blockFrames, frameCount - done);
        for (auto& player : state_->players) {
            state_->renderTrack(player, startFrame + static_cast<int64_t>(done), block,
                                output + done * channels);
        }
        done += block;
    }
}

} // namespace orvelle
