#pragma once

// The open music library behind the editor's music sidebar (the Openverse audio API): an
// API client registered once with the user's e-mail address, a short-lived token for it,
// searches by eight fixed vibes, waveforms for the list, and the audio itself. The
// client's credentials are kept in the secret store under "orvelle.openverse".

#include "core/error.h"
#include "core/json.h"

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

namespace orvelle {

class SecretStore;

// The registered API client; the same JSON is the secret store's data.
struct OpenverseCredentials {
    std::string clientID;
    std::string clientSecret;
    std::string name;

    friend bool operator==(const OpenverseCredentials&, const OpenverseCredentials&) = default;
};

template <>
struct JsonCoder<OpenverseCredentials> {
    static OpenverseCredentials decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const OpenverseCredentials& value);
};

// A track as the sidebar lists it and the project keeps it.
struct MusicTrack {
    std::string id;
    std::string title;
    std::optional<std::string> creator;
    std::optional<double> duration; // seconds
    std::optional<std::string> provider;
    std::optional<std::string> license;
    std::optional<std::string> licenseURL;
    std::optional<std::string> audioURL;
    std::optional<std::string> landingURL;
    std::optional<std::string> waveformURL;
    std::optional<std::vector<double>> waveformLevels;

    friend bool operator==(const MusicTrack&, const MusicTrack&) = default;
};

template <>
struct JsonCoder<MusicTrack> {
    static MusicTrack decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const MusicTrack& value);
};

enum class MusicVibe {
    cleanPulse,
    startupBeat,
    darkSynth,
    trapClicks,
    glassBounce,
    ambientDrive,
    cinematicLift,
    playfulPop,
};
std::span<const EnumName<MusicVibe>> jsonNames(MusicVibe);
// The search queries of a vibe, tried in order.
std::vector<std::string> musicVibeQueries(MusicVibe vibe);

enum class MusicLibraryErrorCode {
    httpStatus,
    secretStore,
    invalidURL,
    invalidResponse,
    emptyToken
};

class MusicLibraryError : public CodedError<MusicLibraryErrorCode> {
public:
    explicit MusicLibraryError(MusicLibraryErrorCode code);
    // "Openverse returned HTTP 500: <text>"; 403 is "Openverse rejected the request (403)."
    static MusicLibraryError httpStatus(int status, const std::string& detail);
    // "Saving credentials failed (<detail>)."
    static MusicLibraryError secretStore(const std::string& detail);
    int status() const { return status_; }

private:
    MusicLibraryError(MusicLibraryErrorCode code, const std::string& message, int status);
    int status_ = 0;
};

// The sidebar's own words.
inline constexpr const char* kMusicNoTracksMessage = "No tracks found for this vibe. Try another.";
inline constexpr const char* kMusicUnreadableAudioMessage =
    "The downloaded file couldn't be read as audio.";
inline constexpr const char* kMusicLaneFullMessage = "No room left on the music lane.";
inline constexpr const char* kMusicEmailExplanation =
    "Openverse asks for an email address to issue the free API key that Orvelle uses to search. "
    "There's no account, no password, and nothing to confirm — the address is only tied to the "
    "key, and Orvelle stores the key privately in your keyring.";

// Calls are serialised by the client itself: it may be shared between threads.
class MusicLibraryClient {
public:
    struct Options {
        // The API's version-1 root; https unless it is this machine.
        std::string baseURL = "https://api.openverse.org/v1/";
        std::chrono::milliseconds timeout{60000};
    };

    // Throws OnlineConfigurationError for an insecure base URL.
    explicit MusicLibraryClient(Options options);

    // Registers a new API client for the address. The caller saves the credentials.
    OpenverseCredentials registerClient(const std::string& email, const std::stop_token& stop = {});
    // The kept token while it has more than 45 s to live, otherwise a new one.
    std::string accessToken(const OpenverseCredentials& credentials,
                            const std::stop_token& stop = {});
    // Up to 24 tracks of the vibe's queries, each once, with their waveforms where the
    // server has them.
    std::vector<MusicTrack> search(MusicVibe vibe, const OpenverseCredentials& credentials,
                                   const std::stop_token& stop = {});
    // One query, with the filters of the sidebar (30 to 120 s, playable formats).
    std::vector<MusicTrack> search(const std::string& query, const std::string& token,
                                   const std::stop_token& stop = {});
    // The tracks with `waveformLevels` filled where the fetch succeeds, in their order.
    std::vector<MusicTrack> addingWaveforms(std::vector<MusicTrack> tracks,
                                            const std::string& token,
                                            const std::stop_token& stop = {});
    std::vector<double> fetchWaveformLevels(const std::string& url, const std::string& token,
                                            const std::stop_token& stop = {});
    // One track by its identifier, unfiltered.
    MusicTrack track(const std::string& id, const OpenverseCredentials& credentials,
                     const std::stop_token& stop = {});
    // The audio file's bytes (no token goes with it). `progress` gets 0...1.
    std::string downloadTrack(const MusicTrack& track,
                              const std::function<void(double)>& progress = {},
                              const std::stop_token& stop = {});

    // A server's audio result as a track: titles trimmed ("Untitled track" when empty), an
    // empty creator absent, milliseconds to seconds.
    static MusicTrack trackFromResult(const Json& result);
    // What the sidebar lists: 30 to 120 s long, with an audio address whose extension is
    // not ogg, oga, opus or webm.
    static bool isListable(const MusicTrack& track);
    // The largest point of each of `barCount` stretches, clamped to 0.18...1.
    static std::vector<double> downsample(const std::vector<double>& points, int barCount);

private:
    struct CachedToken {
        std::string clientID;
        std::string accessToken;
        std::chrono::system_clock::time_point expiresAt;
    };

    Json getJSON(const std::string& url, const std::string& token, const std::stop_token& stop);

    Options options_;
    std::recursive_mutex mutex_; // serialises the client's calls
    std::optional<CachedToken> cachedToken_;
};

// The registered client's credentials in the secret store: service "orvelle.openverse",
// account "audio-api".
class MusicCredentialsStore {
public:
    explicit MusicCredentialsStore(std::shared_ptr<SecretStore> store);
    // Absent when none are kept or they do not decode. Throws MusicLibraryError
    // secretStore when the store cannot be read.
    std::optional<OpenverseCredentials> load();
    // Throws MusicLibraryError secretStore.
    void save(const OpenverseCredentials& credentials);
    bool remove();
    std::string kind() const;

private:
    std::shared_ptr<SecretStore> store_;
};

} // namespace orvelle
