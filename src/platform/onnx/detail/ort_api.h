#pragma once

// Internal to platform/onnx: ONNX Runtime's C++ API, bound to the library that
// onnxRuntime() loaded. ORT_API_MANUAL_INIT comes with the target's compile definitions,
// so the headers never refer to the library's symbols themselves.

#include <onnxruntime_cxx_api.h>

#include <string>
#include <string_view>

namespace orvelle::detail {

// The process's environment; loads the library first. Throws OnnxError.
Ort::Env& ortEnvironment();
// Memory descriptions for tensors in our own CPU memory.
const Ort::MemoryInfo& ortCpuMemory();
// Throws OnnxError with "<what we were doing>: <ONNX Runtime's reason>" for a failed status.
void throwOnFailure(OrtStatus* status, std::string_view doing);

} // namespace orvelle::detail
