#include "platform/onnx/onnx_session.h"

#include "core/log.h"
#include "platform/onnx/detail/ort_api.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <numeric>

namespace orvelle {

namespace {

ONNXTensorElementDataType runtimeType(OnnxElementType type) {
    switch (type) {
    case OnnxElementType::float32:
        return ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT;
    case OnnxElementType::int32:
        return ONNX_TENSOR_ELEMENT_DATA_TYPE_INT32;
    case OnnxElementType::int64:
        return ONNX_TENSOR_ELEMENT_DATA_TYPE_INT64;
    case OnnxElementType::other:
        break;
    }
    return ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED;
}

OnnxElementType elementTypeOf(ONNXTensorElementDataType type) {
    switch (type) {
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT:
        return OnnxElementType::float32;
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT32:
        return OnnxElementType::int32;
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT64:
        return OnnxElementType::int64;
    default:
        return OnnxElementType::other;
    }
}

size_t elementSize(OnnxElementType type) {
    return type == OnnxElementType::int64 ? sizeof(int64_t) : sizeof(float);
}

const char* typeName(OnnxElementType type) {
    switch (type) {
    case OnnxElementType::float32:
        return "float32";
    case OnnxElementType::int32:
        return "int32";
    case OnnxElementType::int64:
        return "int64";
    case OnnxElementType::other:
        break;
    }
    return "another type";
}

size_t countElements(const std::vector<int64_t>& shape) {
    size_t count = 1;
    for (const int64_t dimension : shape) {
        if (dimension < 0) {
            throw OnnxError("A tensor dimension must not be negative.");
        }
        count *= static_cast<size_t>(dimension);
    }
    return count;
}

void typeMismatch(OnnxElementType held, OnnxElementType wanted) {
    throw OnnxError(std::string("A tensor of ") + typeName(held) + " was read as " +
                    typeName(wanted) + ".");
}

// Inputs and outputs are few; the name and value arrays of a run live on the stack.
constexpr size_t maximumArity = 32;

} // namespace

// OnnxTensor

OnnxTensor::OnnxTensor(OnnxElementType elementType, std::vector<int64_t> shape)
    : elementType_(elementType) {
    if (elementType == OnnxElementType::other) {
        throw OnnxError("Input tensors hold float32, int32 or int64 values.");
    }
    reshape(std::move(shape));
    zero();
}

OnnxTensor::~OnnxTensor() {
    if (value_ != nullptr) {
        Ort::GetApi().ReleaseValue(value_);
    }
}

void OnnxTensor::reshape(std::vector<int64_t> shape) {
    const size_t count = countElements(shape);
    // At least one element, so that even an empty tensor has an address to hand over.
    const size_t bytes = std::max<size_t>(count, 1) * elementSize(elementType_);
    if (bytes > storage_.size()) {
        storage_.assign(bytes, std::byte{0});
    }
    shape_ = std::move(shape);
    elementCount_ = count;
    if (value_ != nullptr) {
        Ort::GetApi().ReleaseValue(value_);
        value_ = nullptr;
    }
}

void* OnnxTensor::bytes(OnnxElementType wanted) {
    if (wanted != elementType_) {
        typeMismatch(elementType_, wanted);
    }
    return storage_.data();
}

float* OnnxTensor::floats() {
    return static_cast<float*>(bytes(OnnxElementType::float32));
}
int32_t* OnnxTensor::int32s() {
    return static_cast<int32_t*>(bytes(OnnxElementType::int32));
}
int64_t* OnnxTensor::int64s() {
    return static_cast<int64_t*>(bytes(OnnxElementType::int64));
}

void OnnxTensor::zero() {
    std::fill(storage_.begin(), storage_.end(), std::byte{0});
}

const OrtValue* OnnxTensor::value() const {
    if (value_ == nullptr) {
        const Ort::MemoryInfo& memory = detail::ortCpuMemory();
        detail::throwOnFailure(Ort::GetApi().CreateTensorWithDataAsOrtValue(
                                   memory, const_cast<std::byte*>(storage_.data()),
                                   elementCount_ * elementSize(elementType_), shape_.data(),
                                   shape_.size(), runtimeType(elementType_), &value_),
                               "Could not make an input tensor");
    }
    return value_;
}

// OnnxFeatureBag

OnnxTensor& OnnxFeatureBag::add(std::string name, OnnxElementType elementType,
                                std::vector<int64_t> shape) {
    if (std::find(names_.begin(), names_.end(), name) != names_.end()) {
        throw OnnxError("The input \"" + name + "\" was bound twice.");
    }
    tensors_.push_back(std::make_unique<OnnxTensor>(elementType, std::move(shape)));
    names_.push_back(std::move(name));
    return *tensors_.back();
}

OnnxTensor& OnnxFeatureBag::operator[](std::string_view name) {
    const auto found = std::find(names_.begin(), names_.end(), name);
    if (found == names_.end()) {
        throw OnnxError("No input \"" + std::string(name) + "\" is bound.");
    }
    return *tensors_[static_cast<size_t>(found - names_.begin())];
}

// OnnxOutput

OnnxOutput::OnnxOutput(OrtValue* value) : value_(value) {
    const OrtApi& api = Ort::GetApi();
    OrtTensorTypeAndShapeInfo* info = nullptr;
    detail::throwOnFailure(api.GetTensorTypeAndShape(value_, &info),
                           "Could not read a model output");
    ONNXTensorElementDataType type = ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED;
    size_t rank = 0;
    OrtStatus* status = api.GetTensorElementType(info, &type);
    if (status == nullptr) {
        status = api.GetDimensionsCount(info, &rank);
    }
    if (status == nullptr) {
        shape_.resize(rank);
        status = api.GetDimensions(info, shape_.data(), rank);
    }
    if (status == nullptr) {
        status = api.GetTensorShapeElementCount(info, &elementCount_);
    }
    api.ReleaseTensorTypeAndShapeInfo(info);
    detail::throwOnFailure(status, "Could not read a model output");
    elementType_ = elementTypeOf(type);
    void* data = nullptr;
    detail::throwOnFailure(api.GetTensorMutableData(value_, &data),
                           "Could not read a model output");
    data_ = data;
}

OnnxOutput::~OnnxOutput() {
    if (value_ != nullptr) {
        Ort::GetApi().ReleaseValue(value_);
    }
}

OnnxOutput::OnnxOutput(OnnxOutput&& other) noexcept
    : value_(std::exchange(other.value_, nullptr)), elementType_(other.elementType_),
      shape_(std::move(other.shape_)), elementCount_(other.elementCount_), data_(other.data_) {}

OnnxOutput& OnnxOutput::operator=(OnnxOutput&& other) noexcept {
    if (this != &other) {
        if (value_ != nullptr) {
            Ort::GetApi().ReleaseValue(value_);
        }
        value_ = std::exchange(other.value_, nullptr);
        elementType_ = other.elementType_;
        shape_ = std::move(other.shape_);
        elementCount_ = other.elementCount_;
        data_ = other.data_;
    }
    return *this;
}

const void* OnnxOutput::bytes(OnnxElementType wanted) const {
    if (wanted != elementType_) {
        typeMismatch(elementType_, wanted);
    }
    return data_;
}

std::span<const float> OnnxOutput::floats() const {
    return {static_cast<const float*>(bytes(OnnxElementType::float32)), elementCount_};
}
std::span<const int32_t> OnnxOutput::int32s() const {
    return {static_cast<const int32_t*>(bytes(OnnxElementType::int32)), elementCount_};
}
std::span<const int64_t> OnnxOutput::int64s() const {
    return {static_cast<const int64_t*>(bytes(OnnxElementType::int64)), elementCount_};
}

// OnnxSession

struct OnnxSession::State {
    Ort::Session session{nullptr};
};

namespace {

OnnxTensorInfo describe(const std::string& name, const Ort::TypeInfo& typeInfo) {
    OnnxTensorInfo info;
    info.name = name;
    if (typeInfo.GetONNXType() != ONNX_TYPE_TENSOR) {
        info.elementType = OnnxElementType::other;
        return info;
    }
    const auto tensor = typeInfo.GetTensorTypeAndShapeInfo();
    info.elementType = elementTypeOf(tensor.GetElementType());
    info.shape = tensor.GetShape();
    return info;
}

bool offers(const OnnxRuntimeInfo& runtime, std::string_view provider) {
    return std::find(runtime.providers.begin(), runtime.providers.end(), provider) !=
           runtime.providers.end();
}

} // namespace

OnnxSession::OnnxSession(const std::filesystem::path& modelPath, const OnnxSessionOptions& options)
    : modelPath_(modelPath), state_(std::make_unique<State>()) {
    const OnnxRuntimeInfo& runtime = onnxRuntime();
    const std::string doing = "Could not load the model " + modelPath.string();
    try {
        Ort::SessionOptions sessionOptions;
        sessionOptions.SetIntraOpNumThreads(std::max(options.intraOpThreads, 0));
        sessionOptions.SetInterOpNumThreads(1);
        sessionOptions.SetGraphOptimizationLevel(GraphOptimizationLevel::ORT_ENABLE_ALL);
        // Threads that spin between operators would take the CPU from the other stages
        // of a pipeline.
        sessionOptions.AddConfigEntry("session.intra_op.allow_spinning", "0");

        const bool wantsGpu =
            options.device == OnnxDevice::gpu || options.device == OnnxDevice::any;
        const bool wantsNpu =
            options.device == OnnxDevice::npu || options.device == OnnxDevice::any;
        provider_ = "CPUExecutionProvider";
        // A provider compiled into the library may still lack its own shared library (which
        // sits beside the main one) or its device; then the CPU runs the model.
        const auto tryProvider = [&](std::string_view name, std::string_view library,
                                     const auto& append) {
            if (provider_ != "CPUExecutionProvider" || !offers(runtime, name) ||
                !std::filesystem::exists(runtime.library.parent_path() / library)) {
                return;
            }
            try {
                append();
                provider_ = std::string(name);
            } catch (const Ort::Exception& error) {
                logInfo("onnx", name,
                        " is not usable here, so the CPU runs the model: ", error.what());
            }
        };
        if (wantsGpu) {
            tryProvider("CUDAExecutionProvider", "libonnxruntime_providers_cuda.so", [&] {
                sessionOptions.AppendExecutionProvider_CUDA(OrtCUDAProviderOptions{});
            });
        }
        if (wantsNpu) {
            tryProvider("OpenVINOExecutionProvider", "libonnxruntime_providers_openvino.so",
                        [&] { sessionOptions.AppendExecutionProvider_OpenVINO_V2({}); });
        }
        state_->session = Ort::Session(detail::ortEnvironment(), modelPath.c_str(), sessionOptions);

        Ort::AllocatorWithDefaultOptions allocator;
        const Ort::Session& session = state_->session;
        for (size_t i = 0; i < session.GetInputCount(); ++i) {
            inputs_.push_back(describe(session.GetInputNameAllocated(i, allocator).get(),
                                       session.GetInputTypeInfo(i)));
        }
        for (size_t i = 0; i < session.GetOutputCount(); ++i) {
            outputs_.push_back(describe(session.GetOutputNameAllocated(i, allocator).get(),
                                        session.GetOutputTypeInfo(i)));
        }
    } catch (const Ort::Exception& error) {
        throw OnnxError(doing + ": " + error.what());
    }
    if (inputs_.size() > maximumArity || outputs_.size() > maximumArity) {
        throw OnnxError(doing + ": it has more inputs or outputs than this program runs.");
    }
    logDebug("onnx", "loaded ", modelPath.string(), " on ", provider_);
}

OnnxSession::~OnnxSession() = default;

const OnnxTensorInfo* OnnxSession::input(std::string_view name) const {
    const auto found = std::find_if(inputs_.begin(), inputs_.end(),
                                    [&](const OnnxTensorInfo& info) { return info.name == name; });
    return found == inputs_.end() ? nullptr : &*found;
}

const OnnxTensorInfo* OnnxSession::output(std::string_view name) const {
    const auto found = std::find_if(outputs_.begin(), outputs_.end(),
                                    [&](const OnnxTensorInfo& info) { return info.name == name; });
    return found == outputs_.end() ? nullptr : &*found;
}

std::vector<OnnxOutput> OnnxSession::run(const OnnxFeatureBag& inputs,
                                         std::span<const std::string> outputNames) const {
    const std::string model = modelPath_.filename().string();
    if (inputs.size() > maximumArity || outputNames.size() > maximumArity) {
        throw OnnxError("Running the model " + model + " failed: too many inputs or outputs.");
    }
    std::array<const char*, maximumArity> inputNames{};
    std::array<const OrtValue*, maximumArity> inputValues{};
    for (size_t i = 0; i < inputs.size(); ++i) {
        inputNames[i] = inputs.names()[i].c_str();
        inputValues[i] = inputs.tensor(i).value();
    }
    std::array<const char*, maximumArity> names{};
    for (size_t i = 0; i < outputNames.size(); ++i) {
        if (output(outputNames[i]) == nullptr) {
            throw OnnxError("The model " + model + " has no output \"" + outputNames[i] + "\".");
        }
        names[i] = outputNames[i].c_str();
    }
    std::array<OrtValue*, maximumArity> values{};
    detail::throwOnFailure(Ort::GetApi().Run(state_->session, nullptr, inputNames.data(),
                                             inputValues.data(), inputs.size(), names.data(),
                                             outputNames.size(), values.data()),
                           "Running the model " + model + " failed");
    std::vector<OnnxOutput> result;
    result.reserve(outputNames.size());
    for (size_t i = 0; i < outputNames.size(); ++i) {
        result.emplace_back(values[i]);
    }
    return result;
}

} // namespace orvelle
