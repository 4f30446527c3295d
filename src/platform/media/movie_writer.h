#pragma once

// Writes movies (mov, mp4) and audio files (m4a, wav) with FFmpeg's encoders.
//
// Pacing. An offline writer encodes in the caller's thread: each append returns when the
// data is encoded, so the caller is paced by the encoder. A real-time writer hands data to
// an encoder thread through a short queue and never makes a capture thread wait on the
// encoder: when the queue is full a video frame is dropped (and counted); audio is never
// dropped. Real-time writers also pick the faster encoder settings and encode pictures on
// frame threads (a frame or two in flight, so that the next picture's conversion overlaps
// the encoding of the last).
//
// Fragmented writing puts the index in a fragment every `fragmentInterval` seconds (at the
// next keyframe for video), so a file whose writer dies stays readable up to its last
// complete fragment.
//
// A writer is used from one thread at a time. Failures throw MediaError with FFmpeg's
// reason; after a failure the writer accepts nothing more. A writer destroyed without
// finish() closes its file as far as it got.

#include "platform/media/audio_decoder.h"
#include "platform/media/media_error.h"
#include "platform/media/video_frame.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>

namespace orvelle {

enum class MovieContainer { mov, mp4, m4a, wav };

enum class VideoCodec {
    h264High,       // libx264, High profile, average bit rate, yuv420p BT.709
    proRes422Proxy, // prores_ks profile 0 with a fixed quantiser, yuv422p10le
};

enum class WriterPacing { offline, realTime };

enum class EncoderSpeed { balanced, fast, fastest };

enum class WavSampleFormat { int16, float32 };

struct MovieVideoSettings {
    VideoCodec codec = VideoCodec::h264High;
    int width = 0;
    int height = 0;
    double frameRate = 60;      // nominal; frame times may vary
    int64_t averageBitRate = 0; // bits a second for H.264; 0 picks width * height * 2.8
    int keyframeInterval = 0;   // frames; 0 picks two seconds' worth
    // H.264 only: trades a larger file for less encoding time (a real-time writer is always
    // at least `fast`).
    EncoderSpeed speed = EncoderSpeed::balanced;
    // H.264 only: a fixed quantiser (lower is better) instead of a bit rate. The cheapest
    // steady quality: with no rate control to feed, x264's fastest preset takes about a
    // third less time than at a constant quality (CRF) giving the same picture.
    std::optional<int> quantiser;
    // Encoding threads; 0 lets the encoder pick (about one a core).
    int encoderThreads = 0;
};

struct MovieAudioSettings {
    AudioFormat input{48000, 2};  // what append hands in (converted when it differs)
    AudioFormat output{48000, 2}; // what the file holds
    int64_t bitRate = 192000;     // AAC
    WavSampleFormat wavFormat = WavSampleFormat::int16;
};

struct MovieWriterSettings {
    MovieContainer container = MovieContainer::mp4;
    std::optional<MovieVideoSettings> video; // required for mov and mp4; absent for m4a, wav
    std::optional<MovieAudioSettings> audio; // AAC in mov, mp4 and m4a; PCM in wav
    bool fragmented = false;                 // mov, mp4, m4a only
    WriterPacing pacing = WriterPacing::offline;
    double fragmentInterval = 1; // seconds between fragments
    // A real-time writer drops a picture when this many already wait for the encoder.
    int realTimeQueueLimit = 8;
    // The encoders are set up at once, the file is created with the first data (or at
    // finish): a writer made ahead of its pictures keeps the setup off their path and
    // leaves no file while it waits.
    bool createFileWithFirstData = false;
};

// The container for a file name's extension (".mov", ".mp4", ".m4a", ".wav"), if any.
std::optional<MovieContainer> containerForPath(const std::filesystem::path& path);

class MovieWriter {
public:
    // Sets up the encoders and creates the file (replacing one that exists) with its
    // header, unless the file is to come with the first data.
    MovieWriter(const std::filesystem::path& path, MovieWriterSettings settings);
    ~MovieWriter();
    MovieWriter(const MovieWriter&) = delete;
    MovieWriter& operator=(const MovieWriter&) = delete;

    // A picture at `time` seconds (0 is the movie's start). The frame is BGRA or yuv420p of
    // the configured size; it is copied or converted before this returns. Times must
    // increase: a frame at or before the previous one's time is passed over (false).
    // Returns false too when a real-time writer had to drop the frame.
    bool appendVideoFrame(const VideoFrame& frame, double time);
    // The same from raw BGRA rows.
    bool appendVideoFrame(const uint8_t* bgra, int stride, double time);
    // Raw BGRA rows that stay valid as long as `lender` is held: a real-time writer keeps
    // the lender until the picture is encoded instead of copying it (an offline one encodes
    // it at once). The rows must not change meanwhile.
    bool appendLentVideoFrame(std::shared_ptr<const void> lender, const uint8_t* bgra, int stride,
                              double time);

    // Interleaved float samples in the input format, continuing the track without gaps from
    // time 0.
    void appendAudio(const float* interleaved, size_t frameCount);

    // Encodes what is pending, writes the index and closes the file. Throws on failure.
    void finish();

    const std::filesystem::path& path() const;
    int64_t videoFramesWritten() const;
    int64_t droppedVideoFrames() const;
    // A real-time writer: the most pictures that ever waited for the encoder at once.
    int64_t videoBacklogHighWater() const;
    int64_t audioFramesWritten() const; // at the input rate

private:
    struct State;
    std::unique_ptr<State> state_;
};

// An audio-only file (m4a with AAC, or wav): a take's microphone track, a mixed-down edit.
class AudioFileWriter {
public:
    AudioFileWriter(const std::filesystem::path& path, MovieContainer container,
                    MovieAudioSettings settings = {}, bool fragmented = false,
                    WriterPacing pacing = WriterPacing::offline, double fragmentInterval = 1);
    ~AudioFileWriter();
    AudioFileWriter(const AudioFileWriter&) = delete;
    AudioFileWriter& operator=(const AudioFileWriter&) = delete;

    void append(const float* interleaved, size_t frameCount);
    void finish();
    int64_t framesWritten() const;

private:
    MovieWriter writer_;
};

} // namespace orvelle
