#include "core/cancellation.h"
#include "platform/http/http.h"

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <memory>
#include <mutex>

namespace orvelle {

namespace {

void initialiseCurl() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

std::string trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) {
        return {};
    }
    const auto last = text.find_last_not_of(" \t\r\n");
    return std::string(text.substr(first, last - first + 1));
}

struct CurlDeleter {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct HeaderListDeleter {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

// Everything one transfer's callbacks share.
struct Transfer {
    const HttpProgressCallback* progress = nullptr;
    const std::stop_token* stop = nullptr;
    std::uint64_t progressBase = 0; // bytes counted before this transfer (a resumed download)

    int status = 0;
    std::vector<HttpHeader> headers;
    // Where the body goes: a string, or (for downloads) a sink chosen at the first byte.
    std::string body;
    std::function<bool(const char*, size_t)> sink;

    std::ifstream bodyFile;
    std::uint64_t bodyLeft = 0;
    std::string failure; // a file error inside a callback
    std::string url;     // after redirects
};

size_t onHeader(char* data, size_t size, size_t count, void* context) {
    auto& transfer = *static_cast<Transfer*>(context);
    const std::string_view line(data, size * count);
    if (line.starts_with("HTTP/")) {
        // A new answer (after a redirect or a 100 Continue): its headers replace the last.
        transfer.headers.clear();
        const auto blank = line.find(' ');
        transfer.status = blank == std::string_view::npos
                              ? 0
                              : std::atoi(std::string(line.substr(blank + 1, 3)).c_str());
        return size * count;
    }
    const auto colon = line.find(':');
    if (colon != std::string_view::npos) {
        transfer.headers.push_back(
            {trimmed(line.substr(0, colon)), trimmed(line.substr(colon + 1))});
    }
    return size * count;
}

size_t onBody(char* data, size_t size, size_t count, void* context) {
    auto& transfer = *static_cast<Transfer*>(context);
    const size_t bytes = size * count;
    if (transfer.sink) {
        return transfer.sink(data, bytes) ? bytes : 0;
    }
    transfer.body.append(data, bytes);
    return bytes;
}

size_t onRead(char* buffer, size_t size, size_t count, void* context) {
    auto& transfer = *static_cast<Transfer*>(context);
    const auto wanted = static_cast<std::uint64_t>(size * count);
    const auto chunk = static_cast<std::streamsize>(std::min(wanted, transfer.bodyLeft));
    if (chunk == 0) {
        return 0;
    }
    transfer.bodyFile.read(buffer, chunk);
    const auto got = transfer.bodyFile.gcount();
    if (got != chunk) {
        transfer.failure = "the body file ended early";
        return CURL_READFUNC_ABORT;
    }
    transfer.bodyLeft -= static_cast<std::uint64_t>(got);
    return static_cast<size_t>(got);
}

int onProgress(void* context, curl_off_t downloadTotal, curl_off_t downloaded,
               curl_off_t uploadTotal, curl_off_t uploaded) {
    auto& transfer = *static_cast<Transfer*>(context);
    if (transfer.stop != nullptr && transfer.stop->stop_requested()) {
        return 1; // aborts the transfer
    }
    if (transfer.progress != nullptr && *transfer.progress) {
        HttpProgress progress;
        progress.received = transfer.progressBase + static_cast<std::uint64_t>(downloaded);
        if (downloadTotal > 0) {
            progress.receiveTotal =
                transfer.progressBase + static_cast<std::uint64_t>(downloadTotal);
        }
        progress.sent = static_cast<std::uint64_t>(uploaded);
        if (uploadTotal > 0) {
            progress.sendTotal = static_cast<std::uint64_t>(uploadTotal);
        }
        (*transfer.progress)(progress);
    }
    return 0;
}

[[noreturn]] void fail(CURLcode code, const char* detail, const HttpRequest& request,
                       const Transfer& transfer) {
    const std::string what = std::string(detail[0] != '\0' ? detail : curl_easy_strerror(code));
    switch (code) {
    case CURLE_ABORTED_BY_CALLBACK:
        throw CancellationError();
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
        throw HttpError(HttpErrorCode::couldNotResolve,
                        "Could not find the server of " + request.url + ": " + what);
    case CURLE_COULDNT_CONNECT:
        throw HttpError(HttpErrorCode::couldNotConnect,
                        "Could not connect to " + request.url + ": " + what);
    case CURLE_OPERATION_TIMEDOUT:
        throw HttpError(HttpErrorCode::timedOut,
                        "The request to " + request.url + " took too long: " + what);
    case CURLE_URL_MALFORMAT:
    case CURLE_UNSUPPORTED_PROTOCOL:
        throw HttpError(HttpErrorCode::invalidRequest,
                        "Cannot request " + request.url + ": " + what);
    case CURLE_READ_ERROR:
    case CURLE_WRITE_ERROR:
        if (!transfer.failure.empty()) {
            throw HttpError(HttpErrorCode::fileError,
                            "The transfer of " + request.url + " stopped: " + transfer.failure);
        }
        [[fallthrough]];
    default:
        throw HttpError(HttpErrorCode::transferFailed,
                        "The transfer of " + request.url + " failed: " + what);
    }
}

// Sets up the handle for the request and runs it; the transfer's callbacks do the rest.
void perform(const HttpRequest& request, Transfer& transfer,
             const std::function<void(CURL*)>& adjust = {}) {
    initialiseCurl();
    throwIfCancelled(*transfer.stop);
    std::unique_ptr<CURL, CurlDeleter> handle(curl_easy_init());
    if (!handle) {
        throw HttpError(HttpErrorCode::invalidRequest, "Could not start an HTTP request.");
    }
    CURL* curl = handle.get();
    char detail[CURL_ERROR_SIZE] = {};
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, detail);
    curl_easy_setopt(curl, CURLOPT_URL, request.url.c_str());
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, request.followRedirects ? 1L : 0L);
    curl_easy_setopt(curl, CURLOPT_MAXREDIRS, 10L);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS,
                     static_cast<long>(request.connectTimeout.count()));
    if (request.timeout) {
        curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(request.timeout->count()));
    }
    // Below one byte a second for the stall time: given up.
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME,
                     std::max(1L, static_cast<long>(request.stallTimeout.count() / 1000)));
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, onHeader);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &transfer);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, onBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &transfer);
    curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, onProgress);
    curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &transfer);

    std::unique_ptr<curl_slist, HeaderListDeleter> headers;
    const auto addHeader = [&headers](const std::string& line) {
        headers.reset(curl_slist_append(headers.release(), line.c_str()));
    };
    for (const auto& header : request.headers) {
        addHeader(header.name + ": " + header.value);
    }

    if (request.bodyFile) {
        const auto& range = *request.bodyFile;
        std::error_code error;
        const auto fileSize = std::filesystem::file_size(range.file, error);
        transfer.bodyFile.open(range.file, std::ios::binary);
        if (error || !transfer.bodyFile || range.offset > fileSize) {
            throw HttpError(HttpErrorCode::fileError,
                            "Could not read " + range.file.string() + " to send it.");
        }
        transfer.bodyFile.seekg(static_cast<std::streamoff>(range.offset));
        transfer.bodyLeft = std::min<std::uint64_t>(range.length.value_or(fileSize - range.offset),
                                                    fileSize - range.offset);
        curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
        curl_easy_setopt(curl, CURLOPT_READFUNCTION, onRead);
        curl_easy_setopt(curl, CURLOPT_READDATA, &transfer);
        curl_easy_setopt(curl, CURLOPT_INFILESIZE_LARGE,
                         static_cast<curl_off_t>(transfer.bodyLeft));
        addHeader("Expect:"); // no 100-continue round trip
    } else if (!request.body.empty()) {
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, request.body.data());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE,
                         static_cast<curl_off_t>(request.body.size()));
    }
    if (request.method == "HEAD") {
        curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
    } else if (request.method != (request.bodyFile       ? "PUT"
                                  : request.body.empty() ? "GET"
                                                         : "POST")) {
        curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    }
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers.get());
    if (adjust) {
        adjust(curl);
    }
    const CURLcode code = curl_easy_perform(curl);
    if (code != CURLE_OK) {
        fail(code, detail, request, transfer);
    }
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    transfer.status = static_cast<int>(status);
    char* effective = nullptr;
    curl_easy_getinfo(curl, CURLINFO_EFFECTIVE_URL, &effective);
    transfer.url = effective != nullptr ? effective : request.url;
}

} // namespace

std::optional<std::string> HttpResponse::header(std::string_view name) const {
    for (auto entry = headers.rbegin(); entry != headers.rend(); ++entry) {
        if (equalsIgnoringCase(entry->name, name)) {
            return entry->value;
        }
    }
    return std::nullopt;
}

HttpResponse sendHttpRequest(const HttpRequest& request, const HttpProgressCallback& progress,
                             const std::stop_token& stop) {
    Transfer transfer;
    transfer.progress = &progress;
    transfer.stop = &stop;
    perform(request, transfer);
    return {transfer.status, std::move(transfer.headers), std::move(transfer.body),
            std::move(transfer.url)};
}

HttpDownload downloadHttpFile(const HttpRequest& request, const std::filesystem::path& destination,
                              bool resume, const HttpProgressCallback& progress,
                              const std::stop_token& stop) {
    std::error_code error;
    std::uint64_t existing = 0;
    if (resume && std::filesystem::is_regular_file(destination, error)) {
        existing = std::filesystem::file_size(destination, error);
        if (error) {
            existing = 0;
        }
    }
    Transfer transfer;
    transfer.progress = &progress;
    transfer.stop = &stop;
    transfer.progressBase = existing;
    std::ofstream file;
    bool opened = false;
    HttpDownload result;
    std::string errorBody;
    transfer.sink = [&](const char* data, size_t size) {
        if (transfer.status < 200 || transfer.status >= 300) {
            if (errorBody.size() < 4096) {
                errorBody.append(data, std::min<size_t>(size, 4096 - errorBody.size()));
            }
            return true;
        }
        if (!opened) {
            opened = true;
            // The first byte of a success: append to what is there only when the server
            // sends the rest.
            const bool append = transfer.status == 206 && existing > 0;
            result.resumedFrom = append ? existing : 0;
            transfer.progressBase = result.resumedFrom;
            if (destination.has_parent_path()) {
                std::filesystem::create_directories(destination.parent_path(), error);
            }
            file.open(destination, append ? std::ios::binary | std::ios::app
                                          : std::ios::binary | std::ios::trunc);
            if (!file) {
                transfer.failure = "could not write " + destination.string();
                return false;
            }
        }
        file.write(data, static_cast<std::streamsize>(size));
        if (!file) {
            transfer.failure = "could not write " + destination.string();
            return false;
        }
        return true;
    };
    const auto unexpected = [&request, &errorBody](int status) {
        return HttpError(HttpErrorCode::unexpectedStatus,
                         "The server answered " + std::to_string(status) + " for " + request.url +
                             (errorBody.empty() ? "." : ": " + errorBody),
                         status);
    };
    try {
        perform(request, transfer, [existing](CURL* curl) {
            if (existing > 0) {
                curl_easy_setopt(curl, CURLOPT_RESUME_FROM_LARGE,
                                 static_cast<curl_off_t>(existing));
            }
        });
    } catch (const HttpError&) {
        file.close();
        // libcurl gives up on an answer to a range request that is not the range.
        if (existing > 0 && transfer.status == 200 && !opened) {
            return downloadHttpFile(request, destination, false, progress, stop);
        }
        if (transfer.status >= 300 && transfer.status != 416) {
            throw unexpected(transfer.status);
        }
        throw;
    }
    file.close();
    result.status = transfer.status;
    result.headers = std::move(transfer.headers);
    if (transfer.status == 416 && existing > 0) {
        // Nothing after the end of what we have: the file is already whole, or the server
        // has a shorter one now. Ask for all of it.
        std::filesystem::remove(destination, error);
        return downloadHttpFile(request, destination, false, progress, stop);
    }
    if (result.status < 200 || result.status >= 300) {
        throw unexpected(result.status);
    }
    if (!opened && transfer.status != 206) {
        // An empty success: the file is empty.
        std::ofstream(destination, std::ios::binary | std::ios::trunc);
    }
    result.size = std::filesystem::file_size(destination, error);
    return result;
}

} // namespace orvelle
