#include "online/youtube_upload_client.h"

#include "core/cancellation.h"
#include "core/log.h"
#include "online/google_api_error.h"
#include "online/online_url.h"
#include "platform/http/http.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <condition_variable>
#include <mutex>
#include <variant>

namespace orvelle {

namespace {

constexpr std::array<EnumName<YouTubeUploadPrivacyStatus>, 3> kPrivacyNames{{
    {YouTubeUploadPrivacyStatus::privateVideo, "privateVideo"},
    {YouTubeUploadPrivacyStatus::unlisted, "unlisted"},
    {YouTubeUploadPrivacyStatus::publicVideo, "publicVideo"},
}};
constexpr std::array<EnumName<YouTubeUploadLicense>, 2> kLicenseNames{{
    {YouTubeUploadLicense::youtube, "youtube"},
    {YouTubeUploadLicense::creativeCommon, "creativeCommon"},
}};

std::string messageFor(YouTubeUploadErrorCode code) {
    switch (code) {
    case YouTubeUploadErrorCode::httpFailure:
        return "YouTube upload failed.";
    case YouTubeUploadErrorCode::emptyFile:
        return "The video file is empty.";
    case YouTubeUploadErrorCode::fileReadFailed:
        return "Could not read the video file.";
    case YouTubeUploadErrorCode::invalidHTTPResponse:
        return "YouTube returned an invalid HTTP response.";
    case YouTubeUploadErrorCode::missingUploadLocation:
        return "YouTube did not return an upload location.";
    case YouTubeUploadErrorCode::missingVideoID:
        return "YouTube did not return a video ID.";
    }
    return "YouTube upload failed.";
}

bool isRetryableStatus(int status) {
    return status == 408 || status == 429 || (status >= 500 && status <= 599);
}

std::optional<std::chrono::seconds> retryAfterOf(const HttpResponse& response) {
    const auto header = response.header("Retry-After");
    if (!header) {
        return std::nullopt;
    }
    long seconds = 0;
    const auto [end, error] =
        std::from_chars(header->data(), header->data() + header->size(), seconds);
    if (error != std::errc() || end != header->data() + header->size() || seconds < 0) {
        return std::nullopt; // an HTTP date: the usual back-off will do
    }
    return std::chrono::seconds(seconds);
}

YouTubeUploadError failureOf(const HttpResponse& response) {
    return YouTubeUploadError::httpFailure(response.status, googleErrorDetail(response.body),
                                           isRetryableStatus(response.status),
                                           retryAfterOf(response));
}

// What a chunk or a recovery request learnt: the finished video, or where to go on.
using UploadOutcome = std::variant<YouTubeUploadResult, std::uint64_t>;

YouTubeUploadResult finishedVideo(const HttpResponse& response) {
    const Json json = Json::parse(response.body, nullptr, false);
    if (json.is_discarded() || !json.is_object()) {
        throw YouTubeUploadError(YouTubeUploadErrorCode::invalidHTTPResponse);
    }
    const auto id = json.find("id");
    if (id == json.end() || !id->is_string() || id->get<std::string>().empty()) {
        throw YouTubeUploadError(YouTubeUploadErrorCode::missingVideoID);
    }
    return {id->get<std::string>()};
}

struct Session {
    std::string uploadURL;
    std::string accessToken;
    std::uint64_t fileSize = 0;
    std::string mimeType;
    const YouTubeUploadClient::Options* options = nullptr;
};

std::string resolvedLocation(const std::string& location, const std::string& endpoint) {
    if (!location.starts_with('/')) {
        return location;
    }
    const auto parts = URLComponents::parse(endpoint);
    std::string origin = parts ? parts->scheme + "://" + parts->host : endpoint;
    if (parts && parts->port) {
        origin += ":" + std::to_string(*parts->port);
    }
    return origin + location;
}

std::string startResumableSession(const YouTubeUploadRequest& upload, const Session& session,
                                  const std::stop_token& stop) {
    HttpRequest request;
    request.method = "POST";
    request.url = joinedURL(session.options->endpointURL, "upload/youtube/v3/videos") +
                  "?uploadType=resumable&part=snippet,status,paidProductPlacementDetails";
    request.headers = {{"Authorization", "Bearer " + session.accessToken},
                       {"Content-Type", "application/json; charset=UTF-8"},
                       {"X-Upload-Content-Length", std::to_string(session.fileSize)},
                       {"X-Upload-Content-Type", session.mimeType}};
    request.body = YouTubeUploadClient::insertBody(upload).dump();
    request.timeout = session.options->requestTimeout;
    request.followRedirects = false;
    const HttpResponse response = sendHttpRequest(request, {}, stop);
    if (response.status < 100) {
        throw YouTubeUploadError(YouTubeUploadErrorCode::invalidHTTPResponse);
    }
    if (response.status < 200 || response.status > 299) {
        throw failureOf(response);
    }
    const auto location = response.header("Location");
    if (!location || location->empty()) {
        throw YouTubeUploadError(YouTubeUploadErrorCode::missingUploadLocation);
    }
    std::string url = resolvedLocation(*location, session.options->endpointURL);
    requireSecureURL(url, "the YouTube upload session");
    return url;
}

UploadOutcome answerOf(const HttpResponse& response, std::uint64_t incompleteOffset) {
    if (response.status < 100) {
        throw YouTubeUploadError(YouTubeUploadErrorCode::invalidHTTPResponse);
    }
    if (response.status == 308) {
        return YouTubeUploadClient::nextOffset(response.header("Range")).value_or(incompleteOffset);
    }
    if (response.status >= 200 && response.status <= 299) {
        return finishedVideo(response);
    }
    throw failureOf(response);
}

UploadOutcome uploadChunk(const Session& session, const std::filesystem::path& file,
                          std::uint64_t offset, std::uint64_t length,
                          const std::function<void(double)>& progress,
                          const std::stop_token& stop) {
    const std::uint64_t end = offset + length - 1;
    HttpRequest request;
    request.method = "PUT";
    request.url = session.uploadURL;
    request.headers = {{"Authorization", "Bearer " + session.accessToken},
                       {"Content-Type", session.mimeType},
                       {"Content-Range", "bytes " + std::to_string(offset) + "-" +
                                             std::to_string(end) + "/" +
                                             std::to_string(session.fileSize)}};
    request.bodyFile = HttpFileRange{file, offset, length};
    request.timeout = session.options->requestTimeout;
    request.followRedirects = false;
    const double size = static_cast<double>(session.fileSize);
    HttpResponse response;
    try {
        response = sendHttpRequest(
            request,
            [&](const HttpProgress& sent) {
                if (progress) {
                    progress(std::min(1.0, static_cast<double>(offset + sent.sent) / size));
                }
            },
            stop);
    } catch (const HttpError& error) {
        if (error.code() == HttpErrorCode::fileError) {
            throw YouTubeUploadError(YouTubeUploadErrorCode::fileReadFailed);
        }
        throw;
    }
    return answerOf(response, end + 1);
}

UploadOutcome recoverUploadProgress(const Session& session, const std::stop_token& stop) {
    HttpRequest request;
    request.method = "PUT";
    request.url = session.uploadURL;
    request.headers = {{"Authorization", "Bearer " + session.accessToken},
                       {"Content-Length", "0"},
                       {"Content-Range", "bytes */" + std::to_string(session.fileSize)}};
    request.timeout = session.options->requestTimeout;
    request.followRedirects = false;
    return answerOf(sendHttpRequest(request, {}, stop), 0);
}

// The session's address is a capability of its own: it stays out of logs and messages.
std::string scrubbed(std::string text, const std::string& uploadURL) {
    if (uploadURL.empty()) {
        return text;
    }
    for (auto at = text.find(uploadURL); at != std::string::npos; at = text.find(uploadURL, at)) {
        text.replace(at, uploadURL.size(), "the YouTube upload session");
    }
    return text;
}

void sleepBeforeRetry(std::chrono::milliseconds delay, const std::stop_token& stop) {
    std::mutex mutex;
    std::condition_variable_any wake;
    std::unique_lock lock(mutex);
    wake.wait_for(lock, stop, delay, [] { return false; });
    throwIfCancelled(stop);
}

} // namespace

std::span<const EnumName<YouTubeUploadPrivacyStatus>> jsonNames(YouTubeUploadPrivacyStatus) {
    return kPrivacyNames;
}
std::span<const EnumName<YouTubeUploadLicense>> jsonNames(YouTubeUploadLicense) {
    return kLicenseNames;
}

YouTubeUploadError::YouTubeUploadError(YouTubeUploadErrorCode code)
    : CodedError(code, messageFor(code)) {}

YouTubeUploadError::YouTubeUploadError(int statusCode, const std::optional<std::string>& detail,
                                       bool retryable,
                                       std::optional<std::chrono::seconds> retryAfter)
    : CodedError(YouTubeUploadErrorCode::httpFailure,
                 httpFailureMessage("YouTube upload failed with HTTP", statusCode, detail)),
      statusCode_(statusCode), retryable_(retryable), retryAfter_(retryAfter) {}

YouTubeUploadError YouTubeUploadError::httpFailure(int statusCode,
                                                   const std::optional<std::string>& detail,
                                                   bool retryable,
                                                   std::optional<std::chrono::seconds> retryAfter) {
    return {statusCode, detail, retryable, retryAfter};
}

namespace YouTubeUploadClient {

Json insertBody(const YouTubeUploadRequest& request) {
    Json snippet{{"title", request.title}, {"description", request.description}};
    if (!request.tags.empty()) {
        snippet["tags"] = request.tags;
    }
    if (request.categoryID) {
        snippet["categoryId"] = *request.categoryID;
    }
    if (request.defaultLanguage) {
        snippet["defaultLanguage"] = *request.defaultLanguage;
    }
    const char* privacy =
        request.privacyStatus == YouTubeUploadPrivacyStatus::publicVideo ? "public"
        : request.privacyStatus == YouTubeUploadPrivacyStatus::unlisted  ? "unlisted"
                                                                         : "private";
    return {{"snippet", snippet},
            {"status",
             {{"privacyStatus", privacy},
              {"license", request.license == YouTubeUploadLicense::creativeCommon ? "creativeCommon"
                                                                                  : "youtube"},
              {"selfDeclaredMadeForKids", request.madeForKids},
              {"containsSyntheticMedia", request.containsSyntheticMedia}}},
            {"paidProductPlacementDetails",
             {{"hasPaidProductPlacement", request.hasPaidProductPlacement}}}};
}

std::string mimeType(const std::filesystem::path& file) {
    std::string extension = file.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (extension == ".mp4") {
        return "video/mp4";
    }
    if (extension == ".mov") {
        return "video/quicktime";
    }
    return "video/*";
}

std::optional<std::uint64_t> nextOffset(const std::optional<std::string>& rangeHeader) {
    if (!rangeHeader) {
        return std::nullopt;
    }
    const auto dash = rangeHeader->rfind('-');
    if (dash == std::string::npos) {
        return std::nullopt;
    }
    std::string_view last = std::string_view(*rangeHeader).substr(dash + 1);
    while (!last.empty() && std::isspace(static_cast<unsigned char>(last.back())) != 0) {
        last.remove_suffix(1);
    }
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(last.data(), last.data() + last.size(), value);
    if (error != std::errc() || end != last.data() + last.size() || last.empty()) {
        return std::nullopt;
    }
    return value + 1;
}

bool shouldRetry(const std::exception& error) {
    if (dynamic_cast<const CancellationError*>(&error) != nullptr) {
        return false;
    }
    if (const auto* upload = dynamic_cast<const YouTubeUploadError*>(&error)) {
        return upload->code() == YouTubeUploadErrorCode::httpFailure && upload->retryable();
    }
    if (const auto* http = dynamic_cast<const HttpError*>(&error)) {
        switch (http->code()) {
        case HttpErrorCode::couldNotResolve:
        case HttpErrorCode::couldNotConnect:
        case HttpErrorCode::timedOut:
        case HttpErrorCode::transferFailed:
            return true;
        default:
            return false;
        }
    }
    return false;
}

std::chrono::milliseconds retryDelay(int attempt, std::chrono::milliseconds first) {
    const auto cap = std::chrono::milliseconds(4000);
    if (attempt < 0 || attempt > 62) {
        return cap;
    }
    const auto factor = std::int64_t{1} << attempt;
    if (first.count() > cap.count() / factor) {
        return cap;
    }
    return std::min(cap, first * factor);
}

namespace {

YouTubeUploadResult uploadFile(const YouTubeUploadRequest& request, Session& session,
                               const std::function<void(double)>& progress, const Options& options,
                               const std::stop_token& stop);

} // namespace

YouTubeUploadResult upload(const YouTubeUploadRequest& request, const std::string& accessToken,
                           const std::function<void(double)>& progress, const Options& options,
                           const std::stop_token& stop) {
    Session session;
    session.accessToken = accessToken;
    try {
        return uploadFile(request, session, progress, options, stop);
    } catch (const HttpError& error) {
        throw HttpError(error.code(), scrubbed(error.what(), session.uploadURL), error.status());
    }
}

namespace {

YouTubeUploadResult uploadFile(const YouTubeUploadRequest& request, Session& session,
                               const std::function<void(double)>& progress, const Options& options,
                               const std::stop_token& stop) {
    requireSecureURL(options.endpointURL, "the YouTube upload service");
    std::error_code error;
    const auto size = std::filesystem::file_size(request.fileURL, error);
    if (error || size < 1) {
        throw YouTubeUploadError(YouTubeUploadErrorCode::emptyFile);
    }
    session.fileSize = size;
    session.mimeType = mimeType(request.fileURL);
    session.options = &options;
    session.uploadURL = startResumableSession(request, session, stop);
    logInfo("youtube", "upload session opened for ", size, " bytes");

    const auto report = [&](std::uint64_t offset) {
        if (progress) {
            progress(std::min(1.0, static_cast<double>(offset) / static_cast<double>(size)));
        }
    };
    std::uint64_t offset = 0;
    int attempt = 0;
    while (true) {
        throwIfCancelled(stop);
        if (offset >= size) {
            throw YouTubeUploadError(YouTubeUploadErrorCode::missingVideoID);
        }
        const std::uint64_t length = std::min(kChunkSize, size - offset);
        try {
            const UploadOutcome outcome =
                uploadChunk(session, request.fileURL, offset, length, progress, stop);
            if (const auto* video = std::get_if<YouTubeUploadResult>(&outcome)) {
                report(size);
                logInfo("youtube", "upload finished");
                return *video;
            }
            offset = std::get<std::uint64_t>(outcome);
            attempt = 0;
            report(offset);
            if (offset >= size) {
                throw YouTubeUploadError(YouTubeUploadErrorCode::missingVideoID);
            }
        } catch (const CancellationError&) {
            throw;
        } catch (const std::exception& failure) {
            if (!shouldRetry(failure) || attempt > 2) {
                throw;
            }
            std::chrono::milliseconds delay = retryDelay(attempt, options.retryDelay);
            if (const auto* http = dynamic_cast<const YouTubeUploadError*>(&failure);
                http != nullptr && http->retryAfter()) {
                delay = std::max(delay, std::min(options.maximumRetryAfter,
                                                 std::chrono::milliseconds(*http->retryAfter())));
            }
            logInfo("youtube", "chunk at byte ", offset, " failed (",
                    scrubbed(failure.what(), session.uploadURL),
                    "); asking the server what it has");
            try {
                const UploadOutcome outcome = recoverUploadProgress(session, stop);
                if (const auto* video = std::get_if<YouTubeUploadResult>(&outcome)) {
                    report(size);
                    return *video;
                }
                offset = std::get<std::uint64_t>(outcome);
                report(offset);
            } catch (const CancellationError&) {
                throw;
            } catch (const std::exception& recoveryFailure) {
                logInfo("youtube", "asking for the received range failed: ",
                        scrubbed(recoveryFailure.what(), session.uploadURL));
            }
            sleepBeforeRetry(delay, stop);
            ++attempt;
        }
    }
}

} // namespace

std::string watchURL(const YouTubeUploadResult& result, const std::string& watchPage) {
    return appendingQueryItems(watchPage, {{"v", result.videoID}});
}

} // namespace YouTubeUploadClient

} // namespace orvelle
