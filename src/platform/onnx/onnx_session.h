#pragma once

// A model file run by ONNX Runtime, with named tensor inputs and outputs. Inputs live in
// an OnnxFeatureBag: tensors bound to their names once and overwritten in place before
// each run, so a loop of runs allocates no input. Outputs are handed back as OnnxOutput
// values that own ONNX Runtime's memory. Failures throw OnnxError with ONNX Runtime's
// reason after ours.

#include "platform/onnx/onnx_runtime.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

struct OrtValue;

namespace orvelle {

enum class OnnxElementType { float32, int32, int64, other };

struct OnnxTensorInfo {
    std::string name;
    OnnxElementType elementType = OnnxElementType::float32;
    std::vector<int64_t> shape; // -1 where the model leaves a dimension open
    friend bool operator==(const OnnxTensorInfo&, const OnnxTensorInfo&) = default;
};

// Where a session runs. The CPU is always there; a GPU or NPU provider is used only when
// the loaded ONNX Runtime offers one, and the CPU takes what it cannot run.
enum class OnnxDevice { cpu, gpu, npu, any };

struct OnnxSessionOptions {
    OnnxDevice device = OnnxDevice::cpu;
    int intraOpThreads = 0; // threads inside one operator; 0 is one per physical core
    friend bool operator==(const OnnxSessionOptions&, const OnnxSessionOptions&) = default;
};

// An input tensor in memory of our own. Its data pointers stay valid until reshape().
class OnnxTensor {
public:
    OnnxTensor(OnnxElementType elementType, std::vector<int64_t> shape);
    ~OnnxTensor();
    OnnxTensor(const OnnxTensor&) = delete;
    OnnxTensor& operator=(const OnnxTensor&) = delete;

    OnnxElementType elementType() const { return elementType_; }
    const std::vector<int64_t>& shape() const { return shape_; }
    size_t elementCount() const { return elementCount_; }

    // The data as the element type; asking for another type throws OnnxError.
    float* floats();
    int32_t* int32s();
    int64_t* int64s();
    void zero();

    // A new shape (all dimensions at least 0). Memory is allocated again only when the
    // tensor grows; the contents are unspecified afterwards.
    void reshape(std::vector<int64_t> shape);

    // For OnnxSession: the runtime's view of this memory, made when first asked for.
    const OrtValue* value() const;

private:
    void* bytes(OnnxElementType wanted);

    OnnxElementType elementType_;
    std::vector<int64_t> shape_;
    size_t elementCount_ = 0;
    std::vector<std::byte> storage_;
    mutable OrtValue* value_ = nullptr;
};

// Named input tensors for one caller at a time.
class OnnxFeatureBag {
public:
    OnnxFeatureBag() = default;
    OnnxFeatureBag(const OnnxFeatureBag&) = delete;
    OnnxFeatureBag& operator=(const OnnxFeatureBag&) = delete;

    // Adds a zeroed tensor; a name given twice throws OnnxError.
    OnnxTensor& add(std::string name, OnnxElementType elementType, std::vector<int64_t> shape);
    // The tensor of that name; throws OnnxError when there is none.
    OnnxTensor& operator[](std::string_view name);
    const std::vector<std::string>& names() const { return names_; }
    size_t size() const { return names_.size(); }
    const OnnxTensor& tensor(size_t index) const { return *tensors_[index]; }

private:
    std::vector<std::string> names_;
    std::vector<std::unique_ptr<OnnxTensor>> tensors_;
};

// One output of a run, in memory that ONNX Runtime allocated. Move-only.
class OnnxOutput {
public:
    explicit OnnxOutput(OrtValue* value); // takes ownership
    ~OnnxOutput();
    OnnxOutput(OnnxOutput&& other) noexcept;
    OnnxOutput& operator=(OnnxOutput&& other) noexcept;
    OnnxOutput(const OnnxOutput&) = delete;
    OnnxOutput& operator=(const OnnxOutput&) = delete;

    OnnxElementType elementType() const { return elementType_; }
    const std::vector<int64_t>& shape() const { return shape_; }
    size_t elementCount() const { return elementCount_; }
    // The data as the element type; asking for another type throws OnnxError.
    std::span<const float> floats() const;
    std::span<const int32_t> int32s() const;
    std::span<const int64_t> int64s() const;

private:
    const void* bytes(OnnxElementType wanted) const;

    OrtValue* value_ = nullptr;
    OnnxElementType elementType_ = OnnxElementType::other;
    std::vector<int64_t> shape_;
    size_t elementCount_ = 0;
    const void* data_ = nullptr;
};

// A loaded model. run() may be called from several threads at once, each with a bag of
// its own.
class OnnxSession {
public:
    OnnxSession(const std::filesystem::path& modelPath, const OnnxSessionOptions& options = {});
    ~OnnxSession();
    OnnxSession(const OnnxSession&) = delete;
    OnnxSession& operator=(const OnnxSession&) = delete;

    const std::filesystem::path& modelPath() const { return modelPath_; }
    const std::vector<OnnxTensorInfo>& inputs() const { return inputs_; }
    const std::vector<OnnxTensorInfo>& outputs() const { return outputs_; }
    // The description of an input or output, or null when the model has none of the name.
    const OnnxTensorInfo* input(std::string_view name) const;
    const OnnxTensorInfo* output(std::string_view name) const;
    // The execution provider that runs the model ("CPUExecutionProvider" and so on).
    const std::string& provider() const { return provider_; }

    // Runs the model on the bag's tensors (every name must be an input of the model) and
    // returns the outputs named, in that order. An output name the model lacks throws.
    std::vector<OnnxOutput> run(const OnnxFeatureBag& inputs,
                                std::span<const std::string> outputNames) const;

private:
    struct State;
    std::filesystem::path modelPath_;
    std::unique_ptr<State> state_;
    std::vector<OnnxTensorInfo> inputs_;
    std::vector<OnnxTensorInfo> outputs_;
    std::string provider_;
};

} // namespace orvelle
