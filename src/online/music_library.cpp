#include "online/music_library.h"

#include "core/cancellation.h"
#include "core/log.h"
#include "core/uuid.h"
#include "online/online_url.h"
#include "platform/http/http.h"
#include "platform/secrets/secret_store.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <future>
#include <set>

namespace orvelle {

namespace {

constexpr const char* kUserAgent = "Orvelle music sidebar";
constexpr size_t kMaximumTracks = 24;
constexpr int kWaveformBars = 28;

constexpr std::array<EnumName<MusicVibe>, 8> kVibeNames{{
    {MusicVibe::cleanPulse, "cleanPulse"},
    {MusicVibe::startupBeat, "startupBeat"},
    {MusicVibe::darkSynth, "darkSynth"},
    {MusicVibe::trapClicks, "trapClicks"},
    {MusicVibe::glassBounce, "glassBounce"},
    {MusicVibe::ambientDrive, "ambientDrive"},
    {MusicVibe::cinematicLift, "cinematicLift"},
    {MusicVibe::playfulPop, "playfulPop"},
}};

std::string messageFor(MusicLibraryErrorCode code) {
    switch (code) {
    case MusicLibraryErrorCode::httpStatus:
        return "Openverse returned an error.";
    case MusicLibraryErrorCode::secretStore:
        return "Saving credentials failed.";
    case MusicLibraryErrorCode::invalidURL:
        return "The Openverse URL could not be built.";
    case MusicLibraryErrorCode::invalidResponse:
        return "Openverse returned an invalid response.";
    case MusicLibraryErrorCode::emptyToken:
        return "Openverse returned an empty access token.";
    }
    return "Openverse failed.";
}

std::string trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) {
        return {};
    }
    const auto last = text.find_last_not_of(" \t\r\n");
    return std::string(text.substr(first, last - first + 1));
}

// At most the first 240 bytes of the body, line ends as blanks, trimmed; a character cut
// in half at the end is dropped.
std::string bodyExcerpt(const std::string& body) {
    std::string text = body.substr(0, 240);
    size_t keep = text.size();
    size_t i = text.size();
    while (i > 0 && (static_cast<unsigned char>(text[i - 1]) & 0xC0U) == 0x80U) {
        --i;
    }
    if (i > 0) {
        const auto lead = static_cast<unsigned char>(text[i - 1]);
        const size_t expected = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
        if (text.size() - (i - 1) < expected) {
            keep = i - 1;
        }
    }
    text.resize(keep);
    for (char& c : text) {
        if (c == '\r' || c == '\n') {
            c = ' ';
        }
    }
    return trimmed(text);
}

HttpResponse checked(const HttpResponse& response) {
    if (response.status < 100) {
        throw MusicLibraryError(MusicLibraryErrorCode::invalidResponse);
    }
    if (response.status < 200 || response.status > 299) {
        throw MusicLibraryError::httpStatus(response.status, bodyExcerpt(response.body));
    }
    return response;
}

Json parsedBody(const HttpResponse& response) {
    Json json = Json::parse(response.body, nullptr, false);
    if (json.is_discarded() || !json.is_object()) {
        throw MusicLibraryError(MusicLibraryErrorCode::invalidResponse);
    }
    return json;
}

std::optional<std::string> stringAt(const Json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || !found->is_string()) {
        return std::nullopt;
    }
    return found->get<std::string>();
}

std::string lowercasedExtension(const std::string& url) {
    const auto parts = URLComponents::parse(url);
    const std::string path = parts ? parts->path : url;
    const auto slash = path.rfind('/');
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    const auto dot = name.rfind('.');
    std::string extension = dot == std::string::npos ? "" : name.substr(dot + 1);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

const SecretItemName& credentialsItem() {
    static const SecretItemName item{"orvelle.openverse", "audio-api"};
    return item;
}

} // namespace

OpenverseCredentials JsonCoder<OpenverseCredentials>::decode(const Json& json,
                                                             const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return {reader.required<std::string>("client_id"),
            reader.required<std::string>("client_secret"), reader.value<std::string>("name", "")};
}

Json JsonCoder<OpenverseCredentials>::encode(const OpenverseCredentials& value) {
    return {
        {"client_id", value.clientID}, {"client_secret", value.clientSecret}, {"name", value.name}};
}

MusicTrack JsonCoder<MusicTrack>::decode(const Json& json, const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    MusicTrack track;
    track.id = reader.required<std::string>("id");
    track.title = reader.value<std::string>("title", "Untitled track");
    track.creator = reader.optional<std::string>("creator");
    track.duration = reader.optional<double>("duration");
    track.provider = reader.optional<std::string>("provider");
    track.license = reader.optional<std::string>("license");
    track.licenseURL = reader.optional<std::string>("licenseURL");
    track.audioURL = reader.optional<std::string>("audioURL");
    track.landingURL = reader.optional<std::string>("landingURL");
    track.waveformURL = reader.optional<std::string>("waveformURL");
    track.waveformLevels = reader.optional<std::vector<double>>("waveformLevels");
    return track;
}

Json JsonCoder<MusicTrack>::encode(const MusicTrack& value) {
    Json json{{"id", value.id}, {"title", value.title}};
    setOptional(json, "creator", value.creator);
    setOptional(json, "duration", value.duration);
    setOptional(json, "provider", value.provider);
    setOptional(json, "license", value.license);
    setOptional(json, "licenseURL", value.licenseURL);
    setOptional(json, "audioURL", value.audioURL);
    setOptional(json, "landingURL", value.landingURL);
    setOptional(json, "waveformURL", value.waveformURL);
    setOptional(json, "waveformLevels", value.waveformLevels);
    return json;
}

std::span<const EnumName<MusicVibe>> jsonNames(MusicVibe) {
    return kVibeNames;
}

std::vector<std::string> musicVibeQueries(MusicVibe vibe) {
    switch (vibe) {
    case MusicVibe::cleanPulse:
        return {"minimal electronic pulse instrumental"};
    case MusicVibe::startupBeat:
        return {"upbeat electronic technology instrumental", "corporate electronic"};
    case MusicVibe::darkSynth:
        return {"dark synth electronic instrumental"};
    case MusicVibe::trapClicks:
        return {"trap beat clicks electronic instrumental"};
    case MusicVibe::glassBounce:
        return {"glitch pop bright electronic instrumental", "bright electronic"};
    case MusicVibe::ambientDrive:
        return {"ambient electronic driving pulse"};
    case MusicVibe::cinematicLift:
        return {"cinematic build electronic instrumental"};
    case MusicVibe::playfulPop:
        return {"playful pop electronic upbeat"};
    }
    return {};
}

MusicLibraryError::MusicLibraryError(MusicLibraryErrorCode code)
    : CodedError(code, messageFor(code)) {}

MusicLibraryError::MusicLibraryError(MusicLibraryErrorCode code, const std::string& message,
                                     int status)
    : CodedError(code, message), status_(status) {}

MusicLibraryError MusicLibraryError::httpStatus(int status, const std::string& detail) {
    if (status == 403) {
        return {MusicLibraryErrorCode::httpStatus, "Openverse rejected the request (403).", status};
    }
    return {MusicLibraryErrorCode::httpStatus,
            "Openverse returned HTTP " + std::to_string(status) +
                (detail.empty() ? std::string(".") : ": " + detail),
            status};
}

MusicLibraryError MusicLibraryError::secretStore(const std::string& detail) {
    return {MusicLibraryErrorCode::secretStore, "Saving credentials failed (" + detail + ").", 0};
}

MusicLibraryClient::MusicLibraryClient(Options options) : options_(std::move(options)) {
    requireSecureURL(options_.baseURL, "the music library");
}

Json MusicLibraryClient::getJSON(const std::string& url, const std::string& token,
                                 const std::stop_token& stop) {
    HttpRequest request;
    request.url = url;
    request.headers = {{"User-Agent", kUserAgent}, {"Accept", "application/json"}};
    if (!token.empty()) {
        request.headers.push_back({"Authorization", "Bearer " + token});
    }
    request.timeout = options_.timeout;
    return parsedBody(checked(sendHttpRequest(request, {}, stop)));
}

OpenverseCredentials MusicLibraryClient::registerClient(const std::string& email,
                                                        const std::stop_token& stop) {
    const std::lock_guard lock(mutex_);
    HttpRequest request;
    request.method = "POST";
    request.url = joinedURL(options_.baseURL, "auth_tokens/register/");
    request.headers = {{"User-Agent", kUserAgent},
                       {"Content-Type", "application/json"},
                       {"Accept", "application/json"}};
    request.body = Json{
        {"name", "Orvelle " + Uuid::random().string().substr(0, 8)},
        {"description", "Music sidebar for the Orvelle editor."},
        {"email",
         email}}.dump();
    request.timeout = options_.timeout;
    const Json json = parsedBody(checked(sendHttpRequest(request, {}, stop)));
    try {
        return decodeJson<OpenverseCredentials>(json);
    } catch (const JsonDecodeError&) {
        throw MusicLibraryError(MusicLibraryErrorCode::invalidResponse);
    }
}

std::string MusicLibraryClient::accessToken(const OpenverseCredentials& credentials,
                                            const std::stop_token& stop) {
    const std::lock_guard lock(mutex_);
    const auto now = std::chrono::system_clock::now();
    if (cachedToken_ && cachedToken_->clientID == credentials.clientID &&
        cachedToken_->expiresAt > now + std::chrono::seconds(45)) {
        return cachedToken_->accessToken;
    }
    HttpRequest request;
    request.method = "POST";
    request.url = joinedURL(options_.baseURL, "auth_tokens/token/");
    request.headers = {{"User-Agent", kUserAgent},
                       {"Content-Type", "application/x-www-form-urlencoded"},
                       {"Accept", "application/json"}};
    // Every character of ":#[]@!$&'()*+,;=" escaped as well.
    const auto escape = [](const std::string& value) { return percentEscaped(value); };
    request.body = "grant_type=client_credentials&client_id=" + escape(credentials.clientID) +
                   "&client_secret=" + escape(credentials.clientSecret);
    request.timeout = options_.timeout;
    const Json json = parsedBody(checked(sendHttpRequest(request, {}, stop)));
    const auto token = stringAt(json, "access_token");
    const auto expiresIn = json.find("expires_in");
    if (!token || expiresIn == json.end() || !expiresIn->is_number()) {
        throw MusicLibraryError(MusicLibraryErrorCode::invalidResponse);
    }
    if (token->empty()) {
        throw MusicLibraryError(MusicLibraryErrorCode::emptyToken);
    }
    const double seconds = std::max(expiresIn->get<double>(), 60.0) - 30.0;
    cachedToken_ = CachedToken{
        credentials.clientID, *token,
        now + std::chrono::milliseconds(static_cast<std::int64_t>(std::llround(seconds * 1000)))};
    logInfo("music", "got a library token for ", static_cast<int>(seconds), " s");
    return *token;
}

std::vector<MusicTrack> MusicLibraryClient::search(MusicVibe vibe,
                                                   const OpenverseCredentials& credentials,
                                                   const std::stop_token& stop) {
    const std::lock_guard lock(mutex_);
    const std::string token = accessToken(credentials, stop);
    std::vector<MusicTrack> tracks;
    std::set<std::string> seen;
    for (const auto& query : musicVibeQueries(vibe)) {
        if (tracks.size() > kMaximumTracks) {
            break;
        }
        for (auto& track : search(query, token, stop)) {
            if (seen.insert(track.id).second) {
                tracks.push_back(std::move(track));
            }
        }
    }
    if (tracks.size() > kMaximumTracks) {
        tracks.resize(kMaximumTracks);
    }
    return addingWaveforms(std::move(tracks), token, stop);
}

std::vector<MusicTrack> MusicLibraryClient::search(const std::string& query,
                                                   const std::string& token,
                                                   const std::stop_token& stop) {
    const std::lock_guard lock(mutex_);
    const std::string url = appendingQueryItems(
        joinedURL(options_.baseURL, "audio/"),
        {{"q", query}, {"category", "music"}, {"length", "short"}, {"page_size", "16"}});
    const Json json = getJSON(url, token, stop);
    const auto results = json.find("results");
    if (results == json.end() || !results->is_array()) {
        throw MusicLibraryError(MusicLibraryErrorCode::invalidResponse);
    }
    std::vector<MusicTrack> tracks;
    for (const auto& result : *results) {
        if (!result.is_object() || !result.contains("id") || !result["id"].is_string()) {
            continue;
        }
        MusicTrack track = trackFromResult(result);
        if (isListable(track)) {
            tracks.push_back(std::move(track));
        }
    }
    return tracks;
}

std::vector<MusicTrack> MusicLibraryClient::addingWaveforms(std::vector<MusicTrack> tracks,
                                                            const std::string& token,
                                                            const std::stop_token& stop) {
    const std::lock_guard lock(mutex_);
    std::vector<std::future<std::optional<std::vector<double>>>> fetches(tracks.size());
    for (size_t i = 0; i < tracks.size(); ++i) {
        if (const auto& url = tracks[i].waveformURL) {
            fetches[i] = std::async(
                std::launch::async,
                [this, url = *url, token, stop]() -> std::optional<std::vector<double>> {
                    try {
                        return fetchWaveformLevels(url, token, stop);
                    } catch (const std::exception& error) {
                        logInfo("music", "a waveform could not be fetched: ", error.what());
                        return std::nullopt;
                    }
                });
        }
    }
    for (size_t i = 0; i < tracks.size(); ++i) {
        if (fetches[i].valid()) {
            tracks[i].waveformLevels = fetches[i].get();
        }
    }
    throwIfCancelled(stop);
    return tracks;
}

std::vector<double> MusicLibraryClient::fetchWaveformLevels(const std::string& url,
                                                            const std::string& token,
                                                            const std::stop_token& stop) {
    // No lock: the waveforms of one search are fetched side by side.
    const Json json = getJSON(url, token, stop);
    const auto points = json.find("points");
    if (points == json.end() || !points->is_array()) {
        throw MusicLibraryError(MusicLibraryErrorCode::invalidResponse);
    }
    std::vector<double> values;
    for (const auto& point : *points) {
        if (point.is_number()) {
            values.push_back(point.get<double>());
        }
    }
    return downsample(values, kWaveformBars);
}

MusicTrack MusicLibraryClient::track(const std::string& id, const OpenverseCredentials& credentials,
                                     const std::stop_token& stop) {
    const std::lock_guard lock(mutex_);
    if (id.empty() || id.find_first_of("/?#") != std::string::npos) {
        throw MusicLibraryError(MusicLibraryErrorCode::invalidURL);
    }
    const std::string token = accessToken(credentials, stop);
    const Json json =
        getJSON(joinedURL(options_.baseURL, "audio/" + percentEscaped(id) + "/"), token, stop);
    if (!json.contains("id") || !json["id"].is_string()) {
        throw MusicLibraryError(MusicLibraryErrorCode::invalidResponse);
    }
    return trackFromResult(json);
}

std::string MusicLibraryClient::downloadTrack(const MusicTrack& track,
                                              const std::function<void(double)>& progress,
                                              const std::stop_token& stop) {
    if (!track.audioURL || !URLComponents::parse(*track.audioURL)) {
        throw MusicLibraryError(MusicLibraryErrorCode::invalidURL);
    }
    HttpRequest request;
    request.url = *track.audioURL;
    request.headers = {{"User-Agent", kUserAgent}};
    request.timeout = options_.timeout;
    return checked(sendHttpRequest(
                       request,
                       [&](const HttpProgress& step) {
                           if (progress && step.receiveTotal && *step.receiveTotal > 0) {
                               progress(static_cast<double>(step.received) /
                                        static_cast<double>(*step.receiveTotal));
                           }
                       },
                       stop))
        .body;
}

MusicTrack MusicLibraryClient::trackFromResult(const Json& result) {
    MusicTrack track;
    track.id = result.value("id", "");
    track.title = trimmed(stringAt(result, "title").value_or(""));
    if (track.title.empty()) {
        track.title = "Untitled track";
    }
    if (auto creator = trimmed(stringAt(result, "creator").value_or("")); !creator.empty()) {
        track.creator = std::move(creator);
    }
    if (const auto duration = result.find("duration");
        duration != result.end() && duration->is_number()) {
        track.duration = duration->get<double>() / 1000.0;
    }
    track.provider = stringAt(result, "provider");
    track.license = stringAt(result, "license");
    track.licenseURL = stringAt(result, "license_url");
    track.audioURL = stringAt(result, "url");
    track.landingURL = stringAt(result, "foreign_landing_url");
    track.waveformURL = stringAt(result, "waveform");
    return track;
}

bool MusicLibraryClient::isListable(const MusicTrack& track) {
    if (!track.duration || *track.duration < 30.0 || *track.duration > 120.0 || !track.audioURL) {
        return false;
    }
    const std::string extension = lowercasedExtension(*track.audioURL);
    return extension != "ogg" && extension != "oga" && extension != "opus" && extension != "webm";
}

std::vector<double> MusicLibraryClient::downsample(const std::vector<double>& points,
                                                   int barCount) {
    if (points.empty() || barCount < 1) {
        return {};
    }
    const double count = static_cast<double>(points.size());
    const double step = count / barCount;
    std::vector<double> bars;
    bars.reserve(static_cast<size_t>(barCount));
    for (int i = 0; i < barCount; ++i) {
        const auto start = static_cast<size_t>(std::floor(step * i));
        auto end = static_cast<size_t>(std::ceil(step * (i + 1)));
        end = std::min(std::max(end, start + 1), points.size());
        double largest = 0;
        bool any = false;
        for (size_t k = start; k < end; ++k) {
            if (!any || points[k] > largest) {
                largest = points[k];
                any = true;
            }
        }
        bars.push_back(std::clamp(any ? largest : 0.0, 0.18, 1.0));
    }
    return bars;
}

MusicCredentialsStore::MusicCredentialsStore(std::shared_ptr<SecretStore> store)
    : store_(std::move(store)) {}

std::optional<OpenverseCredentials> MusicCredentialsStore::load() {
    std::optional<std::string> data;
    try {
        data = store_->read(credentialsItem());
    } catch (const SecretStoreError& error) {
        throw MusicLibraryError::secretStore(error.detail());
    }
    if (!data) {
        return std::nullopt;
    }
    const Json json = Json::parse(*data, nullptr, false);
    try {
        return json.is_discarded() ? std::nullopt
                                   : std::optional(decodeJson<OpenverseCredentials>(json));
    } catch (const JsonDecodeError&) {
        return std::nullopt;
    }
}

void MusicCredentialsStore::save(const OpenverseCredentials& credentials) {
    try {
        store_->write(credentialsItem(), prettyJson(encodeJson(credentials)));
    } catch (const SecretStoreError& error) {
        throw MusicLibraryError::secretStore(error.detail());
    }
}

bool MusicCredentialsStore::remove() {
    try {
        return store_->remove(credentialsItem());
    } catch (const SecretStoreError& error) {
        throw MusicLibraryError::secretStore(error.detail());
    }
}

std::string MusicCredentialsStore::kind() const {
    return store_->kind();
}

} // namespace orvelle
