#include "speech/runtime/model_runner.h"

#include "speech/runtime/parakeet_error.h"

#include <algorithm>
#include <cstring>

namespace orvelle {

namespace {

// Layers and width of a decoder state input shaped [layers, batch, width]; anything else
// (no such input, an open or another rank) reads as 2 layers of 640.
std::pair<int, int> stateShape(const OnnxSession& session, std::string_view input) {
    const OnnxTensorInfo* info = session.input(input);
    if (info != nullptr && info->shape.size() == 3 && info->shape[0] > 0 && info->shape[2] > 0) {
        return {static_cast<int>(info->shape[0]), static_cast<int>(info->shape[2])};
    }
    return {2, 640};
}

// The fixed size of one dimension of an input, or the fallback when it is open.
int inputDimension(const OnnxSession& session, std::string_view input, size_t rank,
                   size_t dimension, int fallback) {
    const OnnxTensorInfo* info = session.input(input);
    if (info != nullptr && info->shape.size() == rank && info->shape[dimension] > 0) {
        return static_cast<int>(info->shape[dimension]);
    }
    return fallback;
}

// An integer input of the type the model declares (int32 unless it says int64).
OnnxTensor& addIntegerInput(OnnxFeatureBag& bag, const OnnxSession& session, std::string name,
                            std::vector<int64_t> shape, OnnxElementType usual) {
    const OnnxTensorInfo* info = session.input(name);
    OnnxElementType type = usual;
    if (info != nullptr && (info->elementType == OnnxElementType::int32 ||
                            info->elementType == OnnxElementType::int64)) {
        type = info->elementType;
    }
    return bag.add(std::move(name), type, std::move(shape));
}

void setInteger(OnnxTensor& tensor, size_t index, int64_t value) {
    if (tensor.elementType() == OnnxElementType::int64) {
        tensor.int64s()[index] = value;
    } else {
        tensor.int32s()[index] = static_cast<int32_t>(value);
    }
}

std::vector<int32_t> integers(const OnnxOutput& output, std::string_view name) {
    if (output.elementType() == OnnxElementType::int32) {
        const auto values = output.int32s();
        return {values.begin(), values.end()};
    }
    if (output.elementType() == OnnxElementType::int64) {
        std::vector<int32_t> result;
        for (const int64_t value : output.int64s()) {
            result.push_back(static_cast<int32_t>(value));
        }
        return result;
    }
    throw ParakeetError::unexpectedOutputShape(name, output.shape(), "integers");
}

// Throws missingOutput for the first of the names that the model lacks.
void requireOutputs(const OnnxSession& session, const std::vector<std::string>& names) {
    for (const auto& name : names) {
        if (session.output(name) == nullptr) {
            throw ParakeetError::missingOutput(name);
        }
    }
}

void copyLimited(float* destination, size_t capacity, std::span<const float> source) {
    std::memcpy(destination, source.data(), std::min(capacity, source.size()) * sizeof(float));
}

// decoder.onnx and joint.onnx as separate small models.
class SplitDecoderWorker final : public DecoderWorker {
public:
    SplitDecoderWorker(const OnnxSession& decoder, const OnnxSession& joint, int layers, int size,
                       int encoderWidth)
        : DecoderWorker(layers, size), decoder_(decoder), joint_(joint) {
        inputIds_ = decoderInputs_.add("input_ids", OnnxElementType::int32, {1, 1}).int32s();
        hidden_ = &decoderInputs_.add("hidden", OnnxElementType::float32, {layers, 1, size});
        cell_ = &decoderInputs_.add("cell", OnnxElementType::float32, {layers, 1, size});
        encoderFrame_ =
            &jointInputs_.add("encoder_frame", OnnxElementType::float32, {1, encoderWidth});
        decoderState_ = &jointInputs_.add("decoder_state", OnnxElementType::float32, {1, size});
    }

    void reset(int32_t blankTokenId) override {
        hidden_->zero();
        cell_->zero();
        inputIds_[0] = blankTokenId;
    }
    int32_t inputId() const override { return inputIds_[0]; }
    void setInputId(int32_t id) override { inputIds_[0] = id; }
    void setEncoderFrame(std::span<const float> frame) override {
        copyLimited(encoderFrame_->floats(), encoderFrame_->elementCount(), frame);
    }

    void runDecoderStep() override {
        requireOutputs(decoder_, decoderOutputNames_);
        const auto outputs = decoder_.run(decoderInputs_, decoderOutputNames_);
        // The last time step of decoder_hidden: [..., L, H] or [..., H].
        const auto& shape = outputs[0].shape();
        const auto steps = shape.size() > 2 ? static_cast<size_t>(shape[shape.size() - 2]) : 1;
        const auto width = shape.empty() ? outputs[0].elementCount()
                                         : static_cast<size_t>(std::max<int64_t>(shape.back(), 0));
        const auto values = outputs[0].floats();
        const size_t offset = std::min(values.size(), (std::max<size_t>(steps, 1) - 1) * width);
        copyLimited(decoderState_->floats(), std::min(width, decoderState_->elementCount()),
                    values.subspan(offset));
        copyLimited(hidden_->floats(), hidden_->elementCount(), outputs[1].floats());
        copyLimited(cell_->floats(), cell_->elementCount(), outputs[2].floats());
    }

    JointLogits runJoint() override {
        requireOutputs(joint_, jointOutputNames_);
        lastJoint_ = joint_.run(jointInputs_, jointOutputNames_);
        return {lastJoint_[0].floats(), lastJoint_[1].floats()};
    }

private:
    const OnnxSession& decoder_;
    const OnnxSession& joint_;
    OnnxFeatureBag decoderInputs_;
    OnnxFeatureBag jointInputs_;
    int32_t* inputIds_ = nullptr;
    OnnxTensor* hidden_ = nullptr;
    OnnxTensor* cell_ = nullptr;
    OnnxTensor* encoderFrame_ = nullptr;
    OnnxTensor* decoderState_ = nullptr;
    std::vector<OnnxOutput> lastJoint_;
    const std::vector<std::string> decoderOutputNames_{"decoder_hidden", "next_hidden",
                                                       "next_cell"};
    const std::vector<std::string> jointOutputNames_{"token_logits", "duration_logits"};
};

// decoder_joint-model.onnx: one graph runs the predictor on (target, state) and the joint
// on its output and the encoder frame. A decoder step feeds the held id with the current
// state, keeps that input as the decoder state and advances the state at once; a joint
// step without a decoder step before it runs the graph again on the same input with the
// new encoder frame, and drops the state it gives back. So the decoding rules stay those
// of the separate models, at one run per step.
class FusedDecoderWorker final : public DecoderWorker {
public:
    FusedDecoderWorker(const OnnxSession& decoderJoint, int layers, int size, int encoderWidth,
                       int vocabSize, size_t durationCount)
        : DecoderWorker(layers, size), decoderJoint_(decoderJoint),
          vocabSize_(static_cast<size_t>(vocabSize)), durationCount_(durationCount),
          hidden_(static_cast<size_t>(layers * size)), cell_(hidden_.size()) {
        encoderFrame_ =
            &inputs_.add("encoder_outputs", OnnxElementType::float32, {1, encoderWidth, 1});
        targets_ =
            &addIntegerInput(inputs_, decoderJoint, "targets", {1, 1}, OnnxElementType::int32);
        setInteger(
            addIntegerInput(inputs_, decoderJoint, "target_length", {1}, OnnxElementType::int32), 0,
            1);
        states1_ = &inputs_.add("input_states_1", OnnxElementType::float32, {layers, 1, size});
        states2_ = &inputs_.add("input_states_2", OnnxElementType::float32, {layers, 1, size});
    }

    void reset(int32_t blankTokenId) override {
        std::fill(hidden_.begin(), hidden_.end(), 0.0f);
        std::fill(cell_.begin(), cell_.end(), 0.0f);
        states1_->zero();
        states2_->zero();
        inputId_ = blankTokenId;
        setInteger(*targets_, 0, blankTokenId);
        fresh_ = false;
    }
    int32_t inputId() const override { return inputId_; }
    void setInputId(int32_t id) override { inputId_ = id; }
    void setEncoderFrame(std::span<const float> frame) override {
        copyLimited(encoderFrame_->floats(), encoderFrame_->elementCount(), frame);
        fresh_ = false;
    }

    void runDecoderStep() override {
        setInteger(*targets_, 0, inputId_);
        std::copy(hidden_.begin(), hidden_.end(), states1_->floats());
        std::copy(cell_.begin(), cell_.end(), states2_->floats());
        requireOutputs(decoderJoint_, stepOutputNames_);
        last_ = decoderJoint_.run(inputs_, stepOutputNames_);
        copyLimited(hidden_.data(), hidden_.size(), last_[1].floats());
        copyLimited(cell_.data(), cell_.size(), last_[2].floats());
        fresh_ = true; // last_[0] already holds the joint on this frame and this state
    }

    JointLogits runJoint() override {
        if (!fresh_) {
            requireOutputs(decoderJoint_, jointOutputNames_);
            last_ = decoderJoint_.run(inputs_, jointOutputNames_);
            fresh_ = true;
        }
        const auto logits = last_[0].floats();
        if (logits.size() < vocabSize_ + durationCount_) {
            throw ParakeetError::unexpectedOutputShape("outputs", last_[0].shape(),
                                                       "[1, 1, 1, " + std::to_string(vocabSize_) +
                                                           " + " + std::to_string(durationCount_) +
                                                           "]");
        }
        return {logits.first(vocabSize_), logits.subspan(vocabSize_)};
    }

private:
    const OnnxSession& decoderJoint_;
    size_t vocabSize_;
    size_t durationCount_;
    OnnxFeatureBag inputs_;
    OnnxTensor* encoderFrame_ = nullptr;
    OnnxTensor* targets_ = nullptr;
    OnnxTensor* states1_ = nullptr;
    OnnxTensor* states2_ = nullptr;
    std::vector<float> hidden_; // the state after the last step
    std::vector<float> cell_;
    int32_t inputId_ = 0;
    bool fresh_ = false; // last_ answers the current frame and decoder state
    std::vector<OnnxOutput> last_;
    const std::vector<std::string> stepOutputNames_{"outputs", "output_states_1",
                                                    "output_states_2"};
    const std::vector<std::string> jointOutputNames_{"outputs"};
};

} // namespace

// BlockingWorkerPool

BlockingWorkerPool::BlockingWorkerPool(std::vector<DecoderWorker*> workers)
    : available_(std::move(workers)), semaphore_(static_cast<std::ptrdiff_t>(available_.size())) {}

DecoderWorker* BlockingWorkerPool::acquire() {
    semaphore_.acquire();
    {
        std::lock_guard lock(lock_);
        if (!closed_ && !available_.empty()) {
            DecoderWorker* worker = available_.back();
            available_.pop_back();
            return worker;
        }
    }
    semaphore_.release();
    return nullptr;
}

void BlockingWorkerPool::release(DecoderWorker* worker) {
    {
        std::lock_guard lock(lock_);
        available_.push_back(worker);
    }
    semaphore_.release();
}

void BlockingWorkerPool::close() {
    {
        std::lock_guard lock(lock_);
        closed_ = true;
    }
    semaphore_.release();
}

// ModelRunner

ModelRunner::ModelRunner(const ParakeetModelFolder& folder, const Configuration& configuration)
    : layout_(folder.layout), configuration_(configuration) {
    OnnxSessionOptions encoderOptions;
    encoderOptions.device = configuration.device;
    // Several workers run the small decoder models at once: one thread each.
    OnnxSessionOptions decoderOptions = encoderOptions;
    decoderOptions.intraOpThreads = 1;

    const EncoderShapes& shapes = configuration.encoderShapes;
    const int workerCount = std::max(configuration.workerCount, 1);
    std::vector<DecoderWorker*> workers;
    if (layout_ == ParakeetModelLayout::split) {
        encoder_ = std::make_unique<OnnxSession>(folder.models.at(0), encoderOptions);
        decoder_ = std::make_unique<OnnxSession>(folder.models.at(1), decoderOptions);
        joint_ = std::make_unique<OnnxSession>(folder.models.at(2), decoderOptions);
        std::tie(decoderHiddenLayers_, decoderHiddenSize_) = stateShape(*decoder_, "hidden");
        const int encoderWidth = inputDimension(*joint_, "encoder_frame", 2, 1, decoderHiddenSize_);
        encoderInputs_.add("input_features", OnnxElementType::float32,
                           {shapes.batch, shapes.maxTime, shapes.numMelBins});
        encoderInputs_.add("attention_mask", OnnxElementType::int32,
                           {shapes.batch, shapes.maxTime});
        encoderOutputNames_ = {"encoder_hidden", "encoder_mask"};
        for (int i = 0; i < workerCount; ++i) {
            decoderWorkers_.push_back(std::make_unique<SplitDecoderWorker>(
                *decoder_, *joint_, decoderHiddenLayers_, decoderHiddenSize_, encoderWidth));
        }
    } else {
        encoder_ = std::make_unique<OnnxSession>(folder.models.at(0), encoderOptions);
        decoder_ = std::make_unique<OnnxSession>(folder.models.at(1), decoderOptions);
        std::tie(decoderHiddenLayers_, decoderHiddenSize_) =
            stateShape(*decoder_, "input_states_1");
        const int encoderWidth = inputDimension(*decoder_, "encoder_outputs", 3, 1, 1024);
        encoderInputs_.add("audio_signal", OnnxElementType::float32,
                           {shapes.batch, shapes.numMelBins, shapes.maxTime});
        addIntegerInput(encoderInputs_, *encoder_, "length", {shapes.batch},
                        OnnxElementType::int64);
        encoderOutputNames_ = {"outputs", "encoded_lengths"};
        for (int i = 0; i < workerCount; ++i) {
            decoderWorkers_.push_back(std::make_unique<FusedDecoderWorker>(
                *decoder_, decoderHiddenLayers_, decoderHiddenSize_, encoderWidth,
                configuration.vocabSize, configuration.durations.size()));
        }
    }
    for (const auto& worker : decoderWorkers_) {
        workers.push_back(worker.get());
    }
    workerPool_ = std::make_unique<BlockingWorkerPool>(std::move(workers));
}

ModelRunner::~ModelRunner() = default;

EncoderOutput ModelRunner::runEncoder(const MelFeatureExtractor::Features& features) {
    return layout_ == ParakeetModelLayout::split ? runSplitEncoder(features)
                                                 : runFusedEncoder(features);
}

EncoderOutput ModelRunner::runSplitEncoder(const MelFeatureExtractor::Features& features) {
    const auto maxTime = static_cast<size_t>(encoderShapes().maxTime);
    const auto bins = static_cast<size_t>(encoderShapes().numMelBins);
    OnnxTensor& input = encoderInputs_["input_features"];
    OnnxTensor& mask = encoderInputs_["attention_mask"];
    input.zero();
    const size_t frames = std::min(maxTime, features.frameCount());
    const size_t width = std::min(bins, static_cast<size_t>(features.numMelFilters));
    for (size_t t = 0; t < frames; ++t) {
        std::memcpy(input.floats() + t * bins, features.frame(t).data(), width * sizeof(float));
    }
    mask.zero();
    std::copy_n(features.attentionMask.begin(), std::min(maxTime, features.attentionMask.size()),
                mask.int32s());

    requireOutputs(*encoder_, encoderOutputNames_);
    const auto outputs = encoder_->run(encoderInputs_, encoderOutputNames_);
    EncoderOutput result;
    result.hiddenShape = outputs[0].shape();
    const auto hidden = outputs[0].floats();
    result.hidden.assign(hidden.begin(), hidden.end());
    result.maskShape = outputs[1].shape();
    result.mask = integers(outputs[1], "encoder_mask");
    return result;
}

EncoderOutput ModelRunner::runFusedEncoder(const MelFeatureExtractor::Features& features) {
    const auto maxTime = static_cast<size_t>(encoderShapes().maxTime);
    const auto bins = static_cast<size_t>(encoderShapes().numMelBins);
    OnnxTensor& input = encoderInputs_["audio_signal"];
    input.zero();
    // This encoder takes the features channel-major: [1, bins, frames].
    const size_t frames = std::min(maxTime, features.frameCount());
    const size_t width = std::min(bins, static_cast<size_t>(features.numMelFilters));
    float* audio = input.floats();
    for (size_t t = 0; t < frames; ++t) {
        const float* frame = features.frame(t).data();
        for (size_t m = 0; m < width; ++m) {
            audio[m * maxTime + t] = frame[m];
        }
    }
    const size_t maskCount = std::min(maxTime, features.attentionMask.size());
    const auto valid = std::count_if(features.attentionMask.begin(),
                                     features.attentionMask.begin() + static_cast<long>(maskCount),
                                     [](int32_t value) { return value != 0; });
    setInteger(encoderInputs_["length"], 0, valid);

    requireOutputs(*encoder_, encoderOutputNames_);
    const auto outputs = encoder_->run(encoderInputs_, encoderOutputNames_);
    const auto& shape = outputs[0].shape();
    if (shape.size() != 3) {
        throw ParakeetError::unexpectedOutputShape("outputs", shape, "[1, hidden, T]");
    }
    const auto hiddenWidth = static_cast<size_t>(shape[1]);
    const auto encoded = static_cast<size_t>(shape[2]);
    EncoderOutput result;
    result.hiddenShape = {1, shape[2], shape[1]};
    result.hidden.resize(encoded * hiddenWidth);
    const auto values = outputs[0].floats();
    for (size_t h = 0; h < hiddenWidth; ++h) {
        for (size_t t = 0; t < encoded; ++t) {
            result.hidden[t * hiddenWidth + h] = values[h * encoded + t];
        }
    }
    const auto lengths = integers(outputs[1], "encoded_lengths");
    const size_t length =
        lengths.empty() ? 0 : std::min(encoded, static_cast<size_t>(std::max(lengths[0], 0)));
    result.maskShape = {1, shape[2]};
    result.mask.assign(encoded, 0);
    std::fill_n(result.mask.begin(), length, 1);
    return result;
}

} // namespace orvelle
