#include "speech/align/onnx_ctc_logits_provider.h"

#include "platform/onnx/onnx_session.h"
#include "speech/align/alignment_error.h"
#include "speech/align/alignment_model_bundle.h"
#include "speech/runtime/mel_feature_extractor.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <sstream>
#include <string>

namespace orvelle {

namespace {

[[noreturn]] void failOutput(const std::string& reason) {
    throw AlignmentError(AlignmentErrorCode::malformedModelOutput, reason);
}

std::string shapeText(const std::vector<std::int64_t>& shape) {
    std::ostringstream text;
    text << "[";
    for (size_t i = 0; i < shape.size(); ++i) {
        text << (i ? ", " : "") << shape[i];
    }
    text << "]";
    return text.str();
}

bool isFeatureInput(const AlignmentModelManifest& manifest) {
    return manifest.model.inputShape && manifest.model.inputShape->size() == 3;
}

// A length or mask input in the integer type the model declares (32-bit unless it says
// 64-bit).
void addIntegers(OnnxFeatureBag& bag, const OnnxSession& model, const std::string& name,
                 std::vector<std::int64_t> shape, std::int64_t ones, std::int64_t value) {
    const OnnxTensorInfo* info = model.input(name);
    const bool wide = info != nullptr && info->elementType == OnnxElementType::int64;
    OnnxTensor& tensor =
        bag.add(name, wide ? OnnxElementType::int64 : OnnxElementType::int32, std::move(shape));
    const size_t count = tensor.elementCount();
    for (size_t i = 0; i < count; ++i) {
        const std::int64_t element = value >= 0 ? value : (static_cast<std::int64_t>(i) < ones);
        if (wide) {
            tensor.int64s()[i] = element;
        } else {
            tensor.int32s()[i] = static_cast<std::int32_t>(element);
        }
    }
}

} // namespace

int wav2vec2FrameCount(std::int64_t samples) {
    static constexpr std::array<int, 7> kKernels{10, 3, 3, 3, 3, 2, 2};
    static constexpr std::array<int, 7> kStrides{5, 2, 2, 2, 2, 2, 2};
    if (samples < 400) {
        return 1;
    }
    std::int64_t length = samples;
    for (size_t i = 0; i < kKernels.size(); ++i) {
        length = (length - kKernels[i]) / kStrides[i] + 1;
    }
    return static_cast<int>(length);
}

void logSoftmaxRows(std::span<float> values, int tokenCount) {
    const auto width = static_cast<size_t>(tokenCount);
    for (size_t start = 0; start + width <= values.size(); start += width) {
        const std::span<float> row = values.subspan(start, width);
        const float largest = *std::max_element(row.begin(), row.end());
        float sum = 0;
        for (const float value : row) {
            sum += std::exp(value - largest);
        }
        const float logSum = sum > 1e-45f ? std::log(sum) : -103.27893f;
        const float shift = largest + logSum;
        for (float& value : row) {
            value -= shift;
        }
    }
}

OnnxCTCLogitsProvider::OnnxCTCLogitsProvider(const std::filesystem::path& modelURL,
                                             AlignmentModelManifest manifest)
    : manifest_(std::move(manifest)), model_(std::make_unique<OnnxSession>(modelURL)) {
    const auto& entry = manifest_.model;
    for (const std::optional<std::string>& name :
         {std::optional<std::string>(entry.audioInputName), entry.audioLengthInputName,
          entry.attentionMaskInputName}) {
        if (name && model_->input(*name) == nullptr) {
            throw AlignmentError(AlignmentErrorCode::modelBundleValidationFailed,
                                 "the model has no input named '" + *name + "'");
        }
    }
    if (isFeatureInput(manifest_)) {
        const auto& shape = *entry.inputShape;
        MelFeatureSettings settings;
        settings.sampleRate = manifest_.sampleRate;
        settings.hopLength = entry.featureHopLength.value_or(160);
        settings.winLength = 400;
        settings.nFFT = 512;
        settings.numMelFilters = shape[2] > 0 ? static_cast<int>(shape[2]) : 128;
        featureExtractor_ = std::make_unique<MelFeatureExtractor>(settings);
    }
}

OnnxCTCLogitsProvider::~OnnxCTCLogitsProvider() = default;

std::optional<double> OnnxCTCLogitsProvider::maximumAudioDuration() const {
    return orvelle::maximumAudioDuration(manifest_);
}

std::optional<size_t> OnnxCTCLogitsProvider::maximumSampleCount() const {
    const auto& shape = manifest_.model.inputShape;
    if (!shape || shape->empty()) {
        return std::nullopt;
    }
    if (shape->size() == 3) {
        const std::int64_t frames = (*shape)[1];
        if (frames < 1) {
            return std::nullopt;
        }
        // n samples make n / hop + 1 frames.
        const std::int64_t hop = manifest_.model.featureHopLength.value_or(160);
        return static_cast<size_t>(frames * hop - 1);
    }
    if (shape->size() > 2 || shape->back() < 1) {
        return std::nullopt;
    }
    return static_cast<size_t>(shape->back());
}

CTCFrameLogProbabilities OnnxCTCLogitsProvider::logProbabilities(std::span<const float> samples) {
    if (samples.empty()) {
        failOutput("audio chunk contained no samples");
    }
    const auto& entry = manifest_.model;
    OnnxFeatureBag inputs;
    std::int64_t length = 0;       // what the length input says: samples or feature frames
    std::int64_t maskLength = 0;   // the size of the mask's last dimension
    std::optional<int> realFrames; // output frames the real input makes, when it was padded

    if (isFeatureInput(manifest_)) {
        if (!featureExtractor_) {
            failOutput("manifest declares a feature input but no feature extractor was "
                       "configured");
        }
        const auto& shape = *entry.inputShape;
        const MelFeatureExtractor::Features features = featureExtractor_->extract(samples);
        const auto frames = static_cast<std::int64_t>(features.frameCount());
        const std::int64_t limit = shape[1];
        if (shape[2] > 0 && features.numMelFilters != shape[2]) {
            failOutput("feature extractor produced " + std::to_string(features.numMelFilters) +
                       " mel bins, expected " + std::to_string(shape[2]));
        }
        if (limit > 0 && frames > limit) {
            const double seconds = static_cast<double>(limit) *
                                   entry.featureHopLength.value_or(160) / manifest_.sampleRate;
            std::ostringstream about;
            about << seconds;
            failOutput("audio chunk produced " + std::to_string(frames) +
                       " feature frames, exceeding model limit " + std::to_string(limit) +
                       " (about " + about.str() + "s)");
        }
        const std::int64_t inputFrames = limit > 0 ? limit : frames;
        OnnxTensor& tensor = inputs.add(entry.audioInputName, OnnxElementType::float32,
                                        {1, inputFrames, features.numMelFilters});
        std::copy(features.mel.begin(), features.mel.end(), tensor.floats());
        length = frames;
        maskLength = inputFrames;
        if (inputFrames > frames) {
            const int subsampling = entry.featureSubsamplingFactor.value_or(1);
            realFrames = static_cast<int>((frames + subsampling - 1) / subsampling);
        }
    } else if (entry.inputShape) {
        const auto& shape = *entry.inputShape;
        if (shape.empty() || shape.size() > 2) {
            failOutput("raw audio input_shape must be [samples] or [batch, samples], got " +
                       shapeText(shape));
        }
        const std::int64_t size = shape.back();
        if (size < 1) {
            failOutput("raw audio input_shape does not declare a positive sample count");
        }
        std::vector<std::int64_t> tensorShape = shape;
        if (tensorShape.size() == 2 && tensorShape[0] < 1) {
            tensorShape[0] = 1;
        }
        OnnxTensor& tensor =
            inputs.add(entry.audioInputName, OnnxElementType::float32, tensorShape);
        const auto used = std::min<std::int64_t>(static_cast<std::int64_t>(samples.size()), size);
        std::copy_n(samples.begin(), used, tensor.floats()); // the rest stays zero
        length = used;
        maskLength = size;
        realFrames = wav2vec2FrameCount(used);
    } else {
        const auto count = static_cast<std::int64_t>(samples.size());
        OnnxTensor& tensor = inputs.add(entry.audioInputName, OnnxElementType::float32, {1, count});
        std::copy(samples.begin(), samples.end(), tensor.floats());
        length = count;
        maskLength = count;
    }
    if (entry.audioLengthInputName) {
        addIntegers(inputs, *model_, *entry.audioLengthInputName, {1}, 0, length);
    }
    if (entry.attentionMaskInputName) {
        addIntegers(inputs, *model_, *entry.attentionMaskInputName, {1, maskLength}, length, -1);
    }

    if (model_->output(entry.logitsOutputName) == nullptr) {
        failOutput("missing ONNX output '" + entry.logitsOutputName + "'");
    }
    const std::string outputName = entry.logitsOutputName;
    std::vector<OnnxOutput> outputs = model_->run(inputs, std::span(&outputName, 1));
    const OnnxOutput& output = outputs.front();
    const std::vector<std::int64_t>& shape = output.shape();
    if (shape.size() != 2 && shape.size() != 3) {
        failOutput("expected CTC logits shaped [frames, vocab] or [batch, frames, vocab], got " +
                   shapeText(shape));
    }
    const std::int64_t frames = shape[shape.size() - 2];
    const std::int64_t vocabulary = shape.back();
    if (frames < 1 || vocabulary < 1) {
        failOutput("CTC logits shape must contain positive frame and vocabulary dimensions, got " +
                   shapeText(shape));
    }
    if (output.elementType() != OnnxElementType::float32) {
        failOutput("CTC logits must be 32-bit floats");
    }
    const std::span<const float> scores = output.floats();
    const auto needed = static_cast<size_t>(frames * vocabulary);
    if (scores.size() < needed) {
        failOutput("CTC logits contain " + std::to_string(scores.size()) +
                   " values but expected at least " + std::to_string(needed));
    }
    const int keptFrames =
        realFrames ? std::min(static_cast<int>(frames), *realFrames) : static_cast<int>(frames);
    std::vector<float> values(
        scores.begin(), scores.begin() + static_cast<std::ptrdiff_t>(keptFrames * vocabulary));
    if (entry.outputKind == AlignmentModelOutputKind::logits) {
        logSoftmaxRows(values, static_cast<int>(vocabulary));
    }
    return CTCFrameLogProbabilities(std::move(values), keptFrames, static_cast<int>(vocabulary),
                                    entry.frameStrideSeconds);
}

} // namespace orvelle
