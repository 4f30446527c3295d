#include "sample_take/narration.h"

#include "core/error.h"
#include "platform/media/audio_decoder.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <numbers>
#include <optional>
#include <random>

extern char** environ;

namespace orvelle::SampleTake {

namespace {

namespace fs = std::filesystem;

constexpr const char* kSpeaker = "espeak-ng";

// Starts espeak-ng writing one sentence to a WAV file; returns its process id.
pid_t startSpeaking(const std::string& text, const fs::path& wav) {
    std::vector<std::string> words{kSpeaker, "-v", "en-us", "-s", "158",        "-p",
                                   "42",     "-a", "150",   "-w", wav.string(), text};
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (auto& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    const int code = ::posix_spawnp(&pid, kSpeaker, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (code == ENOENT) {
        throw Error("The sample take's narration is spoken by espeak-ng, which is not "
                    "installed. Run scripts/bootstrap to install it.");
    }
    if (code != 0) {
        throw Error(std::string("Could not start espeak-ng: ") + std::strerror(code));
    }
    return pid;
}

void waitForSpeaker(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) {
            throw Error(std::string("Lost track of espeak-ng: ") + std::strerror(errno));
        }
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        throw Error("espeak-ng could not speak the sample take's narration.");
    }
}

// The sentence without the silence espeak-ng leaves around it, at a speaking level.
std::vector<float> trimmedSpeech(std::vector<float> samples) {
    const auto loud = [](float sample) { return std::fabs(sample) > 0.01f; };
    const auto first = std::find_if(samples.begin(), samples.end(), loud);
    const auto last = std::find_if(samples.rbegin(), samples.rend(), loud).base();
    if (first >= last) {
        return {};
    }
    std::vector<float> speech(first, last);
    float peak = 0;
    for (const float sample : speech) {
        peak = std::max(peak, std::fabs(sample));
    }
    for (float& sample : speech) {
        sample *= 0.5f / peak;
    }
    return speech;
}

size_t sampleIndex(double time) {
    return static_cast<size_t>(std::max(0.0, std::round(time * kAudioSampleRate)));
}

// A key or a button as a desk microphone hears it: a short knock that dies within
// milliseconds.
void addKnock(std::vector<float>& track, double time, float level, std::mt19937& random) {
    std::uniform_real_distribution<float> noise(-1, 1);
    const size_t start = sampleIndex(time);
    const size_t length = sampleIndex(0.03);
    float previous = 0;
    for (size_t i = 0; i < length && start + i < track.size(); ++i) {
        const double t = static_cast<double>(i) / kAudioSampleRate;
        const float white = noise(random);
        const float bright = white - 0.6f * previous; // thin out the low end
        previous = white;
        track[start + i] += level * bright * static_cast<float>(std::exp(-t / 0.004));
    }
}

// The room: a few close reflections of the voice, a soft hiss and the mains hum.
void addRoom(std::vector<float>& samples, std::mt19937& random) {
    const std::vector<float> dry = samples;
    for (const auto& [delay, gain] : {std::pair{0.013, 0.22f}, {0.023, 0.14f}, {0.037, 0.08f}}) {
        const size_t offset = sampleIndex(delay);
        for (size_t i = offset; i < samples.size(); ++i) {
            samples[i] += gain * dry[i - offset];
        }
    }
    std::normal_distribution<float> hiss(0, 1);
    float pink = 0;
    for (size_t i = 0; i < samples.size(); ++i) {
        pink = 0.97f * pink + 0.03f * hiss(random);
        const double t = static_cast<double>(i) / kAudioSampleRate;
        samples[i] +=
            0.012f * pink + 0.0005f * static_cast<float>(std::sin(2 * std::numbers::pi * 50 * t));
    }
}

// Runs espeak-ng on each text, a few at a time; the WAV files in order.
std::vector<fs::path> speakAll(const std::vector<std::string>& texts, const fs::path& folder,
                               const std::string& prefix) {
    constexpr size_t kAtOnce = 8;
    std::vector<fs::path> files;
    for (size_t i = 0; i < texts.size(); ++i) {
        files.push_back(folder / (prefix + "-" + std::to_string(i + 1) + ".wav"));
    }
    std::optional<Error> failure;
    for (size_t from = 0; from < texts.size(); from += kAtOnce) {
        std::vector<pid_t> speakers;
        for (size_t i = from; i < std::min(texts.size(), from + kAtOnce); ++i) {
            speakers.push_back(startSpeaking(texts[i], files[i]));
        }
        for (const pid_t pid : speakers) {
            try {
                waitForSpeaker(pid);
            } catch (const Error& error) {
                failure = failure.value_or(error); // wait for every one, report the first
            }
        }
    }
    if (failure) {
        throw *failure;
    }
    return files;
}

} // namespace

SpokenPassage speakPassage(const std::vector<PassageWord>& words, const fs::path& scratchFolder,
                           double tail, std::uint32_t seed) {
    std::vector<std::string> texts;
    for (const auto& word : words) {
        texts.push_back(word.text);
    }
    const auto files = speakAll(texts, scratchFolder, "word");
    SpokenPassage passage;
    std::vector<std::vector<float>> spoken;
    double time = 0;
    for (size_t i = 0; i < words.size(); ++i) {
        spoken.push_back(trimmedSpeech(decodeAudioFile(files[i], {kAudioSampleRate, 1})));
        time += words[i].pauseBefore;
        // Whole samples, so that the times written are those of the samples.
        const double start = static_cast<double>(sampleIndex(time)) / kAudioSampleRate;
        const double end = start + static_cast<double>(spoken.back().size()) / kAudioSampleRate;
        passage.words.push_back({words[i].text, start, end});
        time = end;
    }
    passage.duration = time + tail;
    passage.samples.assign(sampleIndex(passage.duration), 0.0f);
    for (size_t i = 0; i < words.size(); ++i) {
        const size_t first = sampleIndex(passage.words[i].start);
        std::copy(spoken[i].begin(), spoken[i].end(),
                  passage.samples.begin() + static_cast<long>(first));
    }
    std::mt19937 random(seed * 7919U + 17U);
    addRoom(passage.samples, random);
    for (float& sample : passage.samples) {
        sample = std::clamp(sample, -1.0f, 1.0f);
    }
    return passage;
}

MicrophoneTrack recordNarration(const SampleScript& script, const fs::path& scratchFolder) {
    // The speaker is a separate program: several sentences are spoken at once.
    std::vector<std::string> texts;
    for (const auto& sentence : script.narration) {
        texts.push_back(sentence.text);
    }
    const auto files = speakAll(texts, scratchFolder, "sentence");

    MicrophoneTrack track;
    track.samples.assign(sampleIndex(script.duration), 0.0f);
    double free = 0;
    for (size_t i = 0; i < files.size(); ++i) {
        const auto speech = trimmedSpeech(decodeAudioFile(files[i], {kAudioSampleRate, 1}));
        const double start = std::max(script.narration[i].earliest, free);
        if (start >= script.duration) {
            break; // a take made shorter than the story ends before its last sentences
        }
        const double length = static_cast<double>(speech.size()) / kAudioSampleRate;
        const size_t first = sampleIndex(start);
        for (size_t j = 0; j < speech.size() && first + j < track.samples.size(); ++j) {
            track.samples[first + j] += speech[j];
        }
        track.sentences.push_back(
            {start, std::min(start + length, script.duration), script.narration[i].text});
        free = start + length + 0.4; // a breath
    }

    std::mt19937 random(script.seed * 7919U + 17U);
    addRoom(track.samples, random);
    std::uniform_real_distribution<float> loudness(0.7f, 1.3f);
    for (const auto& key : script.keys) {
        const bool heavy = key.text == " " || key.text == "\n";
        addKnock(track.samples, key.time, (heavy ? 0.07f : 0.045f) * loudness(random), random);
    }
    for (const auto& click : script.clicks) {
        addKnock(track.samples, click.time, 0.035f, random);
        addKnock(track.samples, click.time + 0.09, 0.025f, random); // the button's release
    }
    for (float& sample : track.samples) {
        sample = std::clamp(sample, -1.0f, 1.0f);
    }
    return track;
}

std::vector<float> systemSound(const SampleScript& script) {
    std::vector<float> stereo(2 * sampleIndex(script.duration), 0.0f);
    // Two bell-like notes, a fourth apart.
    for (const auto& [offset, frequency] : {std::pair{0.0, 1318.5}, {0.12, 1760.0}}) {
        const size_t start = sampleIndex(script.chimeTime + offset);
        for (size_t i = 0; i < sampleIndex(1.2) && 2 * (start + i) + 1 < stereo.size(); ++i) {
            const double t = static_cast<double>(i) / kAudioSampleRate;
            const double envelope = std::min(1.0, t / 0.004) * std::exp(-t / 0.32);
            const double tone = std::sin(2 * std::numbers::pi * frequency * t) +
                                0.3 * std::sin(2 * std::numbers::pi * 2 * frequency * t);
            const auto value = static_cast<float>(0.14 * envelope * tone);
            stereo[2 * (start + i)] += value;
            stereo[2 * (start + i) + 1] += value;
        }
    }
    return stereo;
}

} // namespace orvelle::SampleTake
