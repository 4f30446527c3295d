#include "speech/transcript/recording_transcription_service.h"

#include "core/file_url.h"
#include "core/files.h"
#include "platform/media/audio_decoder.h"
#include "platform/media/movie_writer.h"
#include "speech/transcript/parakeet_transcript_analyzer.h"
#include "speech/transcript/transcript_model_locator.h"

#include <algorithm>
#include <cmath>

namespace orvelle {

namespace {

using Kind = MediaTrackManifest::Kind;

constexpr int kRenderRate = 48000;
constexpr size_t kBlockFrames = 4096;

bool opens(const std::filesystem::path& url) {
    if (!fileExists(url)) {
        return false;
    }
    try {
        const AudioDecoder decoder(url, AudioFormat{kRenderRate, 1});
        return true;
    } catch (const Error&) {
        return false; // an unreadable segment costs its words, not the transcript
    }
}

// Each segment's used stretch at its take time, silence between, in blocks so that a long
// take is never held whole.
void renderSegments(const std::vector<TakeSegmentManifest>& segments,
                    const std::filesystem::path& output) {
    MovieAudioSettings settings;
    settings.input = AudioFormat{kRenderRate, 1};
    settings.output = AudioFormat{kRenderRate, 1};
    AudioFileWriter writer(output, MovieContainer::m4a, settings);
    std::vector<float> block(kBlockFrames, 0.0f);
    int64_t written = 0;
    const auto writeSilence = [&](int64_t frames) {
        std::fill(block.begin(), block.end(), 0.0f);
        while (frames > 0) {
            const auto count = static_cast<size_t>(std::min<int64_t>(frames, kBlockFrames));
            writer.append(block.data(), count);
            frames -= static_cast<int64_t>(count);
            written += static_cast<int64_t>(count);
        }
    };
    for (const TakeSegmentManifest& segment : segments) {
        const auto start = static_cast<int64_t>(std::llround(segment.programStart * kRenderRate));
        auto remaining = static_cast<int64_t>(
            std::llround(std::min(segment.duration, segment.mediaDuration) * kRenderRate));
        if (start > written) {
            writeSilence(start - written);
        }
        AudioDecoder decoder(segment.url, AudioFormat{kRenderRate, 1});
        decoder.seek(segment.mediaStart);
        // Where segments overlap, the earlier one keeps its samples.
        int64_t skip = std::max<int64_t>(0, written - start);
        while (remaining > 0) {
            const size_t read = decoder.read(
                block.data(), static_cast<size_t>(std::min<int64_t>(remaining, kBlockFrames)));
            if (read == 0) {
                break;
            }
            remaining -= static_cast<int64_t>(read);
            const auto dropped = static_cast<size_t>(std::min<int64_t>(skip, read));
            skip -= static_cast<int64_t>(dropped);
            if (read > dropped) {
                writer.append(block.data() + dropped, read - dropped);
                written += static_cast<int64_t>(read - dropped);
            }
        }
        if (remaining > 0 && skip == 0) {
            writeSilence(remaining); // a file shorter than its row: keep later times true
        }
    }
    writer.finish();
}

std::optional<RecordingTranscriptionRequest>
requestFor(const EditorDocument& document, std::optional<TranscriptModelSource> modelSource) {
    const auto audio = RecordingTranscriptionService::prepareAudio(document);
    if (!audio) {
        return std::nullopt;
    }
    return RecordingTranscriptionRequest{document.screenURL, *audio, std::move(modelSource)};
}

} // namespace

RecordingTranscriptionError::RecordingTranscriptionError(RecordingTranscriptionErrorCode code)
    : CodedError(code, code == RecordingTranscriptionErrorCode::modelNotInstalled
                           ? "The transcription model is not installed."
                           : "The microphone recording could not be prepared for "
                             "transcription.") {}

namespace RecordingTranscriptionService {

std::filesystem::path transcriptionAudioURL(const EditorDocument& document) {
    return replacingExtension(document.documentURL, "transcription.m4a");
}

std::optional<std::filesystem::path> prepareAudio(const EditorDocument& document) {
    std::vector<TakeSegmentManifest> segments;
    for (const TakeSegmentManifest& segment : document.manifest.segmentsFor(Kind::microphone)) {
        if (opens(segment.url)) {
            segments.push_back(segment);
        }
    }
    if (segments.empty()) {
        return std::nullopt;
    }
    const TakeSegmentManifest& first = segments.front();
    // One segment that is its whole file from the start is used as it is; one trimmed at its
    // head (or anywhere) is rendered from its media start.
    if (segments.size() == 1 && first.programStart <= 0.001 && first.mediaStart <= 0.001 &&
        std::abs(first.duration - first.mediaDuration) <= 0.001) {
        return first.url;
    }
    const auto url = transcriptionAudioURL(document);
    removeIgnoringErrors(url);
    try {
        renderSegments(segments, url);
    } catch (const Error&) {
        removeIgnoringErrors(url);
        throw RecordingTranscriptionError(RecordingTranscriptionErrorCode::audioPreparationFailed);
    }
    return url;
}

std::optional<RecordingTranscriptionRequest> makeRequest(const EditorDocument& document) {
    const auto model = TranscriptModelLocator::defaultModelSource(
        document.documentURL.has_parent_path() ? document.documentURL.parent_path()
                                               : std::filesystem::path("."));
    if (!model) {
        return std::nullopt;
    }
    return requestFor(document, model);
}

std::optional<RecordingTranscriptionRequest> makeRequest(const EditorDocument& document,
                                                         const TranscriptModelSource& modelSource) {
    return requestFor(document, modelSource);
}

RecordingTranscriptionResult transcribe(const RecordingTranscriptionRequest& request) {
    if (!request.modelSource) {
        throw RecordingTranscriptionError(RecordingTranscriptionErrorCode::modelNotInstalled);
    }
    const ParakeetTranscriptAnalyzer analyzer(*request.modelSource, TranscriptComputeUnits::gpu);
    return {analyzer.analyze(request.audioURL)};
}

} // namespace RecordingTranscriptionService

} // namespace orvelle
