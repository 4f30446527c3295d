#include "platform/onnx/onnx_runtime.h"

#include "core/log.h"
#include "platform/onnx/detail/ort_api.h"

#include <dlfcn.h>

#include <charconv>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

namespace orvelle {

namespace {

// Where CMake found the library when the program was built; the dynamic linker's own
// search (LD_LIBRARY_PATH, the system's folders) is tried after it.
constexpr const char* configuredLibrary = ORVELLE_ONNXRUNTIME_LIBRARY;
constexpr const char* libraryName = "libonnxruntime.so.1";
constexpr const char* minimumVersion = ORVELLE_ONNXRUNTIME_MINIMUM;

struct LoadedRuntime {
    void* handle = nullptr;
    OnnxRuntimeInfo info;
    Ort::Env environment{nullptr};
    Ort::MemoryInfo cpuMemory{nullptr};
};

// Process-wide and never unloaded: sessions may live until exit.
std::mutex loadMutex;
LoadedRuntime* loadedRuntime = nullptr; // guarded by loadMutex until set

std::optional<std::pair<int, int>> majorMinor(std::string_view version) {
    int major = 0;
    int minor = 0;
    const char* end = version.data() + version.size();
    auto [afterMajor, majorError] = std::from_chars(version.data(), end, major);
    if (majorError != std::errc() || afterMajor == end || *afterMajor != '.') {
        return std::nullopt;
    }
    auto [afterMinor, minorError] = std::from_chars(afterMajor + 1, end, minor);
    if (minorError != std::errc()) {
        return std::nullopt;
    }
    return std::pair{major, minor};
}

// ONNX Runtime's errors come back to us as statuses that become exceptions with the same
// words, and its warnings are about graph details; both are for the developer only.
void logFromRuntime(void*, OrtLoggingLevel severity, const char*, const char*, const char*,
                    const char* message) {
    const LogLevel level = severity >= ORT_LOGGING_LEVEL_FATAL  ? LogLevel::error
                           : severity >= ORT_LOGGING_LEVEL_INFO ? LogLevel::info
                                                                : LogLevel::debug;
    logMessage(level, "onnx", message);
}

std::string whatToDo() {
    return std::string("Run scripts/fetch-onnxruntime to fetch it, or install ONNX Runtime ") +
           minimumVersion + " or newer.";
}

std::unique_ptr<LoadedRuntime> load() {
    auto runtime = std::make_unique<LoadedRuntime>();
    runtime->handle = dlopen(configuredLibrary, RTLD_NOW | RTLD_LOCAL);
    if (runtime->handle == nullptr) {
        const std::string reason = dlerror();
        runtime->handle = dlopen(libraryName, RTLD_NOW | RTLD_LOCAL);
        if (runtime->handle == nullptr) {
            throw OnnxError("ONNX Runtime could not be loaded from " +
                            std::string(configuredLibrary) + " (" + reason + "). " + whatToDo());
        }
    }
    struct Closer {
        void* handle;
        bool keep = false;
        ~Closer() {
            if (!keep) {
                dlclose(handle);
            }
        }
    } closer{runtime->handle};

    using GetApiBase = const OrtApiBase* (*)();
    auto* getApiBase = reinterpret_cast<GetApiBase>(dlsym(runtime->handle, "OrtGetApiBase"));
    Dl_info where{};
    if (getApiBase != nullptr && dladdr(reinterpret_cast<void*>(getApiBase), &where) != 0 &&
        where.dli_fname != nullptr) {
        runtime->info.library = where.dli_fname;
    } else {
        runtime->info.library = configuredLibrary;
    }
    if (getApiBase == nullptr) {
        throw OnnxError(runtime->info.library.string() + " is not an ONNX Runtime library. " +
                        whatToDo());
    }
    const OrtApiBase* base = getApiBase();
    runtime->info.version = base->GetVersionString();
    const auto version = majorMinor(runtime->info.version);
    const auto minimum = majorMinor(minimumVersion);
    const OrtApi* api = base->GetApi(ORT_API_VERSION);
    if (!version || !minimum || *version < *minimum || api == nullptr) {
        throw OnnxError("ONNX Runtime " + runtime->info.version + " at " +
                        runtime->info.library.string() + " is too old: speech recognition needs " +
                        minimumVersion + " or newer. " + whatToDo());
    }
    Ort::InitApi(api);
    try {
        runtime->environment =
            Ort::Env(ORT_LOGGING_LEVEL_WARNING, "orvelle", logFromRuntime, nullptr);
        runtime->cpuMemory = Ort::MemoryInfo::CreateCpu(OrtDeviceAllocator, OrtMemTypeDefault);
        runtime->info.providers = Ort::GetAvailableProviders();
    } catch (const Ort::Exception& error) {
        throw OnnxError("ONNX Runtime " + runtime->info.version +
                        " could not start: " + error.what());
    }
    closer.keep = true;
    logInfo("onnx", "ONNX Runtime ", runtime->info.version, " from ",
            runtime->info.library.string());
    return runtime;
}

LoadedRuntime& loaded() {
    std::lock_guard lock(loadMutex);
    if (loadedRuntime == nullptr) {
        loadedRuntime = load().release();
    }
    return *loadedRuntime;
}

} // namespace

const OnnxRuntimeInfo& onnxRuntime() {
    return loaded().info;
}

namespace detail {

Ort::Env& ortEnvironment() {
    return loaded().environment;
}

const Ort::MemoryInfo& ortCpuMemory() {
    return loaded().cpuMemory;
}

void throwOnFailure(OrtStatus* status, std::string_view doing) {
    if (status == nullptr) {
        return;
    }
    const Ort::Status owned(status);
    throw OnnxError(std::string(doing) + ": " + owned.GetErrorMessage());
}

} // namespace detail

} // namespace orvelle
