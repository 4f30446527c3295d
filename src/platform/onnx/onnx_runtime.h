#pragma once

// The ONNX Runtime library of this process. It is loaded on first use, not at program
// start, so that everything else runs on a machine without it and speech recognition can
// say what is missing. Thread-safe.

#include "core/error.h"

#include <filesystem>
#include <string>
#include <vector>

namespace orvelle {

// ONNX Runtime is missing, too old, or refused a model or a run. The text says which and,
// for a missing library, what to do about it.
class OnnxError : public Error {
public:
    using Error::Error;
};

struct OnnxRuntimeInfo {
    std::string version;           // "1.30.0"
    std::filesystem::path library; // the file that was loaded
    // Execution providers compiled in, CPU last. A provider may still lack its own library
    // or its device; a session then falls back to the CPU.
    std::vector<std::string> providers;
    friend bool operator==(const OnnxRuntimeInfo&, const OnnxRuntimeInfo&) = default;
};

// Loads the library once (later calls return the same record) and checks that it offers
// the API this build was compiled against. Throws OnnxError when it cannot be loaded or is
// older than that; a later call tries again.
const OnnxRuntimeInfo& onnxRuntime();

} // namespace orvelle
