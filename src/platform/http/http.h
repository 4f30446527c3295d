#pragma once

// HTTP requests behind a plain interface (libcurl inside): headers and bodies, a body
// streamed from a range of a file (uploads), downloads into a file that resume where a
// partial file ends, time-outs, cancellation by stop token, and progress. Any HTTP status is
// an answer, not an error, except where a download needs a success to go on.

#include "core/error.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace orvelle {

enum class HttpErrorCode {
    invalidRequest,   // a URL or option libcurl refused
    couldNotResolve,  // the host name is unknown
    couldNotConnect,  // nobody answered at that address
    timedOut,         // connecting, the whole transfer or a stalled transfer took too long
    transferFailed,   // the connection broke or the answer was malformed
    fileError,        // the body file or the download target could not be used
    unexpectedStatus, // a download answered with a status other than success
};

class HttpError : public CodedError<HttpErrorCode> {
public:
    HttpError(HttpErrorCode code, const std::string& message, int status = 0)
        : CodedError(code, message), status_(status) {}
    int status() const { return status_; } // the HTTP status of unexpectedStatus
private:
    int status_;
};

struct HttpHeader {
    std::string name;
    std::string value;

    friend bool operator==(const HttpHeader&, const HttpHeader&) = default;
};

// A stretch of a file sent as the body, read as it goes out.
struct HttpFileRange {
    std::filesystem::path file;
    std::uint64_t offset = 0;
    std::optional<std::uint64_t> length; // absent: to the end of the file
};

struct HttpRequest {
    std::string method = "GET";
    std::string url;
    std::vector<HttpHeader> headers;
    std::string body;                      // sent when there is no bodyFile and it is not empty
    std::optional<HttpFileRange> bodyFile; // a body streamed from a file
    std::chrono::milliseconds connectTimeout{15000};
    std::optional<std::chrono::milliseconds> timeout; // the whole exchange
    // A transfer that moves no byte for this long is given up (timedOut).
    std::chrono::milliseconds stallTimeout{60000};
    bool followRedirects = true;
};

struct HttpProgress {
    std::uint64_t received = 0;
    std::optional<std::uint64_t> receiveTotal; // when the server said
    std::uint64_t sent = 0;
    std::optional<std::uint64_t> sendTotal;
};
using HttpProgressCallback = std::function<void(const HttpProgress&)>;

struct HttpResponse {
    int status = 0;
    std::vector<HttpHeader> headers; // of the final answer, in order
    std::string body;
    std::string url; // after redirects

    // The last header of that name, compared without case.
    std::optional<std::string> header(std::string_view name) const;
};

// Sends the request and reads the whole answer. Throws HttpError for transport failures,
// CancellationError once `stop` is requested.
HttpResponse sendHttpRequest(const HttpRequest& request, const HttpProgressCallback& progress = {},
                             const std::stop_token& stop = {});

struct HttpDownload {
    int status = 0;
    std::uint64_t size = 0;        // of the file now
    std::uint64_t resumedFrom = 0; // bytes that were there and kept; 0 when started afresh
    std::vector<HttpHeader> headers;
};

// Downloads into `destination`. With `resume` and a partial file there, asks for the rest
// (Range) and appends when the server sends it (206), or starts over when it sends the
// whole (200). A status other than 2xx is unexpectedStatus and leaves the file as it was;
// a broken transfer leaves what arrived, for the next resume. Progress counts the whole
// file, the kept part included.
HttpDownload downloadHttpFile(const HttpRequest& request, const std::filesystem::path& destination,
                              bool resume = true, const HttpProgressCallback& progress = {},
                              const std::stop_token& stop = {});

} // namespace orvelle
