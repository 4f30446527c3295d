#pragma once

// Sends a finished movie to YouTube by the resumable upload protocol of the Data API: one
// request opens an upload session with the video's metadata, then the file goes up in
// chunks of 8 MiB, each read from the file as it is sent. A chunk that fails on the way
// (a dropped connection, a time-out, 408, 429 or a 5xx) is retried after asking the
// server how much it has, so the upload goes on from there; a chunk gets four tries. The
// access token is read once per upload and never refreshed during it.

#include "core/error.h"
#include "core/json.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

namespace orvelle {

enum class YouTubeUploadPrivacyStatus { privateVideo, unlisted, publicVideo };
enum class YouTubeUploadLicense { youtube, creativeCommon };

std::span<const EnumName<YouTubeUploadPrivacyStatus>> jsonNames(YouTubeUploadPrivacyStatus);
std::span<const EnumName<YouTubeUploadLicense>> jsonNames(YouTubeUploadLicense);

struct YouTubeUploadRequest {
    std::filesystem::path fileURL;
    std::string title;
    std::string description;
    YouTubeUploadPrivacyStatus privacyStatus = YouTubeUploadPrivacyStatus::privateVideo;
    bool madeForKids = false;
    std::vector<std::string> tags;
    std::optional<std::string> categoryID;
    std::optional<std::string> defaultLanguage;
    YouTubeUploadLicense license = YouTubeUploadLicense::youtube;
    bool hasPaidProductPlacement = false;
    bool containsSyntheticMedia = false;

    friend bool operator==(const YouTubeUploadRequest&, const YouTubeUploadRequest&) = default;
};

struct YouTubeUploadResult {
    std::string videoID;
};

enum class YouTubeUploadErrorCode {
    httpFailure,
    emptyFile,
    fileReadFailed,
    invalidHTTPResponse,
    missingUploadLocation,
    missingVideoID,
};

class YouTubeUploadError : public CodedError<YouTubeUploadErrorCode> {
public:
    explicit YouTubeUploadError(YouTubeUploadErrorCode code);
    // "YouTube upload failed with HTTP 503: <detail>"
    static YouTubeUploadError httpFailure(int statusCode, const std::optional<std::string>& detail,
                                          bool retryable,
                                          std::optional<std::chrono::seconds> retryAfter = {});

    int statusCode() const { return statusCode_; }
    bool retryable() const { return retryable_; }
    // What the server's Retry-After asked for.
    std::optional<std::chrono::seconds> retryAfter() const { return retryAfter_; }

private:
    YouTubeUploadError(int statusCode, const std::optional<std::string>& detail, bool retryable,
                       std::optional<std::chrono::seconds> retryAfter);
    int statusCode_ = 0;
    bool retryable_ = false;
    std::optional<std::chrono::seconds> retryAfter_;
};

namespace YouTubeUploadClient {

constexpr std::uint64_t kChunkSize = 8388608;

struct Options {
    // The host of the upload endpoint; https unless it is this machine.
    std::string endpointURL = "https://www.googleapis.com";
    std::chrono::milliseconds requestTimeout{60000};
    // The first retry waits this long, each next one twice as long, at most 4 s; longer
    // when the server asks for it with Retry-After (up to maximumRetryAfter).
    std::chrono::milliseconds retryDelay{500};
    std::chrono::milliseconds maximumRetryAfter{60000};
};

// Uploads the file and returns the video's identifier. `progress` (0...1) is called from
// the calling thread as bytes go out. Throws YouTubeUploadError, HttpError for a transport
// failure after the last try, OnlineConfigurationError for an insecure endpoint, or
// CancellationError once `stop` is requested.
YouTubeUploadResult upload(const YouTubeUploadRequest& request, const std::string& accessToken,
                           const std::function<void(double)>& progress, const Options& options,
                           const std::stop_token& stop = {});

// The watch page of an uploaded video.
std::string watchURL(const YouTubeUploadResult& result,
                     const std::string& watchPage = "https://www.youtube.com/watch");

// The metadata of the session request (snippet, status, paid product placement).
Json insertBody(const YouTubeUploadRequest& request);
// "video/mp4", "video/quicktime", or "video/*", by the file's extension.
std::string mimeType(const std::filesystem::path& file);
// The offset after the last byte of a "Range: bytes=0-N" header: N + 1.
std::optional<std::uint64_t> nextOffset(const std::optional<std::string>& rangeHeader);
// Whether a failure is worth another try.
bool shouldRetry(const std::exception& error);
// 0.5 s, 1 s, 2 s, then 4 s at most (for the default delay).
std::chrono::milliseconds retryDelay(int attempt, std::chrono::milliseconds first);

} // namespace YouTubeUploadClient

} // namespace orvelle
