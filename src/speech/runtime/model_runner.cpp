#include "speech/runtime/model_runner.h"

#include "speech/runtime/parakeet_error.h"

#include <algorithm>
#include <cstring>

namespace orvelle {

namespace {

bool isInteger(const OnnxTensorInfo& info) {
    return info.elementType == OnnxElementType::int32 || info.elementType == OnnxElementType::int64;
}

// The inputs or outputs of one kind (float or integer), in the model's order.
std::vector<const OnnxTensorInfo*> ofKind(const std::vector<OnnxTensorInfo>& all, bool integers) {
    std::vector<const OnnxTensorInfo*> result;
    for (const auto& info : all) {
        if (isInteger(info) == integers &&
            (integers || info.elementType == OnnxElementType::float32)) {
            result.push_back(&info);
        }
    }
    return result;
}

// "a", "b" and "c" for a message.
std::string listed(const std::vector<OnnxTensorInfo>& all) {
    std::string text;
    for (size_t i = 0; i < all.size(); ++i) {
        text += (i == 0 ? "\"" : i + 1 == all.size() ? " and \"" : ", \"") + all[i].name + "\"";
    }
    return text.empty() ? "nothing" : text;
}

// A fixed dimension of a declared shape; -1 when it is open or the shape has no such axis.
int64_t dimension(const OnnxTensorInfo& info, size_t axis) {
    return axis < info.shape.size() && info.shape[axis] > 0 ? info.shape[axis] : -1;
}

// Layers and width of a decoder state shaped [layers, batch, width]; anything else (an open
// or undeclared shape, another rank) reads as 2 layers of 640.
std::pair<int, int> stateShape(const OnnxTensorInfo& info) {
    if (info.shape.size() == 3 && dimension(info, 0) > 0 && dimension(info, 2) > 0) {
        return {static_cast<int>(info.shape[0]), static_cast<int>(info.shape[2])};
    }
    return {2, 640};
}

// An integer input of the type the model declares.
OnnxTensor& addInteger(OnnxFeatureBag& bag, const OnnxTensorInfo& info,
                       std::vector<int64_t> shape) {
    return bag.add(info.name, info.elementType, std::move(shape));
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

void copyLimited(float* destination, size_t capacity, std::span<const float> source) {
    std::memcpy(destination, source.data(), std::min(capacity, source.size()) * sizeof(float));
}

// The names of a model's outputs.
std::vector<std::string> names(const std::vector<const OnnxTensorInfo*>& infos) {
    std::vector<std::string> result;
    for (const auto* info : infos) {
        result.push_back(info->name);
    }
    return result;
}

// A vector input, [1, width] or [1, width, 1] as the model declares it.
OnnxTensor& addVector(OnnxFeatureBag& bag, const OnnxTensorInfo& info, int64_t width) {
    std::vector<int64_t> shape{1, width};
    if (info.shape.size() == 3) {
        shape.push_back(1);
    }
    return bag.add(info.name, OnnxElementType::float32, std::move(shape));
}

// The predictor's inputs: its two float states, and its integer inputs, which are the held
// token (the one not of rank 1) and its length (rank 1, always 1).
struct PredictorInputs {
    OnnxTensor* token = nullptr;
    OnnxTensor* hidden = nullptr;
    OnnxTensor* cell = nullptr;
};

PredictorInputs bindPredictor(OnnxFeatureBag& bag, const OnnxSession& session,
                              const OnnxTensorInfo& hidden, const OnnxTensorInfo& cell, int layers,
                              int size) {
    PredictorInputs bound;
    for (const OnnxTensorInfo* info : ofKind(session.inputs(), true)) {
        if (info->shape.size() == 1) {
            setInteger(addInteger(bag, *info, {1}), 0, 1);
        } else if (bound.token == nullptr) {
            bound.token = &addInteger(bag, *info, {1, 1});
        } else {
            throw ParakeetError::unsupportedModel(session.modelPath(),
                                                  "it takes two token inputs (" +
                                                      listed(session.inputs()) + ")");
        }
    }
    if (bound.token == nullptr) {
        throw ParakeetError::unsupportedModel(session.modelPath(), "it takes no token input");
    }
    bound.hidden = &bag.add(hidden.name, OnnxElementType::float32, {layers, 1, size});
    bound.cell = &bag.add(cell.name, OnnxElementType::float32, {layers, 1, size});
    return bound;
}

// Every float output of the predictor in order: its output, then the two new states.
std::vector<const OnnxTensorInfo*> predictorOutputs(const OnnxSession& session,
                                                    std::string_view what) {
    auto outputs = ofKind(session.outputs(), false);
    if (outputs.size() < 3) {
        throw ParakeetError::unsupportedModel(session.modelPath(),
                                              "a " + std::string(what) +
                                                  " gives its output and two states, not " +
                                                  listed(session.outputs()));
    }
    outputs.resize(3);
    return outputs;
}

// Copies the last time step of a predictor's output, `width` values a step, laid out
// [..., steps, width] or [1, width, steps].
void copyLastStep(const OnnxOutput& output, float* destination, size_t width) {
    const auto values = output.floats();
    const auto& shape = output.shape();
    if (values.size() <= width) {
        copyLimited(destination, width, values);
    } else if (shape.size() == 3 && static_cast<size_t>(shape[1]) == width &&
               static_cast<size_t>(shape[2]) != width) {
        const auto steps = static_cast<size_t>(shape[2]);
        for (size_t h = 0; h < width; ++h) {
            destination[h] = values[h * steps + steps - 1];
        }
    } else {
        copyLimited(destination, width, values.subspan(values.size() - width));
    }
}

// decoder.onnx and joint.onnx (or joiner.onnx) as separate models.
class SplitDecoderWorker final : public DecoderWorker {
public:
    SplitDecoderWorker(const OnnxSession& decoder, const OnnxSession& joint, int layers, int size,
                       int encoderWidth, size_t vocabSize, size_t durationCount)
        : DecoderWorker(layers, size), decoder_(decoder), joint_(joint), vocabSize_(vocabSize),
          durationCount_(durationCount) {
        const auto states = ofKind(decoder.inputs(), false);
        predictor_ = bindPredictor(decoderInputs_, decoder, *states[0], *states[1], layers, size);
        decoderOutputNames_ = names(predictorOutputs(decoder, "decoder"));
        const auto jointInputs = ofKind(joint.inputs(), false);
        encoderFrame_ = &addVector(jointInputs_, *jointInputs[0], encoderWidth);
        const int64_t stateWidth = dimension(*jointInputs[1], 1);
        decoderState_ =
            &addVector(jointInputs_, *jointInputs[1], stateWidth > 0 ? stateWidth : size);
        auto logits = ofKind(joint.outputs(), false);
        logits.resize(std::min<size_t>(logits.size(), 2));
        jointOutputNames_ = names(logits);
    }

    void reset(int32_t blankTokenId) override {
        predictor_.hidden->zero();
        predictor_.cell->zero();
        inputId_ = blankTokenId;
    }
    int32_t inputId() const override { return inputId_; }
    void setInputId(int32_t id) override { inputId_ = id; }
    void setEncoderFrame(std::span<const float> frame) override {
        copyLimited(encoderFrame_->floats(), encoderFrame_->elementCount(), frame);
    }

    void runDecoderStep() override {
        setInteger(*predictor_.token, 0, inputId_);
        const auto outputs = decoder_.run(decoderInputs_, decoderOutputNames_);
        copyLastStep(outputs[0], decoderState_->floats(), decoderState_->elementCount());
        copyLimited(predictor_.hidden->floats(), predictor_.hidden->elementCount(),
                    outputs[1].floats());
        copyLimited(predictor_.cell->floats(), predictor_.cell->elementCount(),
                    outputs[2].floats());
    }

    JointLogits runJoint() override {
        lastJoint_ = joint_.run(jointInputs_, jointOutputNames_);
        if (lastJoint_.size() == 2) {
            return {lastJoint_[0].floats(), lastJoint_[1].floats()};
        }
        return splitLogits(lastJoint_[0], vocabSize_, durationCount_);
    }

    // One output of token and duration logits one after the other.
    static JointLogits splitLogits(const OnnxOutput& output, size_t vocabSize,
                                   size_t durationCount) {
        const auto logits = output.floats();
        if (logits.size() < vocabSize + durationCount) {
            throw ParakeetError::unexpectedOutputShape("joint logits", output.shape(),
                                                       std::to_string(vocabSize) + " token and " +
                                                           std::to_string(durationCount) +
                                                           " duration logits");
        }
        return {logits.first(vocabSize), logits.subspan(vocabSize, durationCount)};
    }

private:
    const OnnxSession& decoder_;
    const OnnxSession& joint_;
    size_t vocabSize_;
    size_t durationCount_;
    OnnxFeatureBag decoderInputs_;
    OnnxFeatureBag jointInputs_;
    PredictorInputs predictor_;
    int32_t inputId_ = 0;
    OnnxTensor* encoderFrame_ = nullptr;
    OnnxTensor* decoderState_ = nullptr;
    std::vector<OnnxOutput> lastJoint_;
    std::vector<std::string> decoderOutputNames_;
    std::vector<std::string> jointOutputNames_;
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
                       size_t vocabSize, size_t durationCount)
        : DecoderWorker(layers, size), decoderJoint_(decoderJoint), vocabSize_(vocabSize),
          durationCount_(durationCount), hidden_(static_cast<size_t>(layers * size)),
          cell_(hidden_.size()) {
        const auto floats = ofKind(decoderJoint.inputs(), false);
        encoderFrame_ = &addVector(inputs_, *floats[0], encoderWidth);
        predictor_ = bindPredictor(inputs_, decoderJoint, *floats[1], *floats[2], layers, size);
        stepOutputNames_ = names(predictorOutputs(decoderJoint, "decoder and joint"));
        jointOutputNames_ = {stepOutputNames_[0]};
    }

    void reset(int32_t blankTokenId) override {
        std::fill(hidden_.begin(), hidden_.end(), 0.0f);
        std::fill(cell_.begin(), cell_.end(), 0.0f);
        predictor_.hidden->zero();
        predictor_.cell->zero();
        inputId_ = blankTokenId;
        setInteger(*predictor_.token, 0, blankTokenId);
        fresh_ = false;
    }
    int32_t inputId() const override { return inputId_; }
    void setInputId(int32_t id) override { inputId_ = id; }
    void setEncoderFrame(std::span<const float> frame) override {
        copyLimited(encoderFrame_->floats(), encoderFrame_->elementCount(), frame);
        fresh_ = false;
    }

    void runDecoderStep() override {
        setInteger(*predictor_.token, 0, inputId_);
        std::copy(hidden_.begin(), hidden_.end(), predictor_.hidden->floats());
        std::copy(cell_.begin(), cell_.end(), predictor_.cell->floats());
        last_ = decoderJoint_.run(inputs_, stepOutputNames_);
        copyLimited(hidden_.data(), hidden_.size(), last_[1].floats());
        copyLimited(cell_.data(), cell_.size(), last_[2].floats());
        fresh_ = true; // last_[0] already holds the joint on this frame and this state
    }

    JointLogits runJoint() override {
        if (!fresh_) {
            last_ = decoderJoint_.run(inputs_, jointOutputNames_);
            fresh_ = true;
        }
        return SplitDecoderWorker::splitLogits(last_[0], vocabSize_, durationCount_);
    }

private:
    const OnnxSession& decoderJoint_;
    size_t vocabSize_;
    size_t durationCount_;
    OnnxFeatureBag inputs_;
    OnnxTensor* encoderFrame_ = nullptr;
    PredictorInputs predictor_;
    std::vector<float> hidden_; // the state after the last step
    std::vector<float> cell_;
    int32_t inputId_ = 0;
    bool fresh_ = false; // last_ answers the current frame and decoder state
    std::vector<OnnxOutput> last_;
    std::vector<std::string> stepOutputNames_;
    std::vector<std::string> jointOutputNames_;
};

// Checks that a model takes `floats` float inputs, between `fewestIntegers` and
// `mostIntegers` integer ones and nothing else; says what it takes otherwise.
void requireInputs(const OnnxSession& session, size_t floats, size_t fewestIntegers,
                   size_t mostIntegers, std::string_view what) {
    const size_t floatCount = ofKind(session.inputs(), false).size();
    const size_t integerCount = ofKind(session.inputs(), true).size();
    if (floatCount != floats || integerCount < fewestIntegers || integerCount > mostIntegers ||
        floatCount + integerCount != session.inputs().size()) {
        throw ParakeetError::unsupportedModel(
            session.modelPath(), std::string(what) + ", but it takes " + listed(session.inputs()));
    }
}

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

    encoder_ = std::make_unique<OnnxSession>(folder.models.at(0), encoderOptions);
    bindEncoder();
    decoder_ = std::make_unique<OnnxSession>(folder.models.at(1), decoderOptions);
    const auto vocabSize = static_cast<size_t>(configuration.vocabSize);
    const size_t durationCount = configuration.durations.size();
    const int workerCount = std::max(configuration.workerCount, 1);
    if (layout_ == ParakeetModelLayout::split) {
        joint_ = std::make_unique<OnnxSession>(folder.models.at(2), decoderOptions);
        requireInputs(*decoder_, 2, 1, 2, "a decoder takes a token and two float states");
        requireInputs(*joint_, 2, 0, 0,
                      "a joint takes two float inputs, an encoder frame and a decoder state");
        std::tie(decoderHiddenLayers_, decoderHiddenSize_) =
            stateShape(*ofKind(decoder_->inputs(), false)[0]);
        encoderWidth_ = dimension(*ofKind(joint_->inputs(), false)[0], 1);
        const int width = encoderWidth_ > 0 ? static_cast<int>(encoderWidth_) : decoderHiddenSize_;
        for (int i = 0; i < workerCount; ++i) {
            decoderWorkers_.push_back(std::make_unique<SplitDecoderWorker>(
                *decoder_, *joint_, decoderHiddenLayers_, decoderHiddenSize_, width, vocabSize,
                durationCount));
        }
    } else {
        requireInputs(*decoder_, 3, 1, 2,
                      "a decoder and joint takes an encoder frame, a token and two float states");
        const auto floats = ofKind(decoder_->inputs(), false);
        std::tie(decoderHiddenLayers_, decoderHiddenSize_) = stateShape(*floats[1]);
        encoderWidth_ = dimension(*floats[0], 1);
        const int width = encoderWidth_ > 0 ? static_cast<int>(encoderWidth_) : 1024;
        for (int i = 0; i < workerCount; ++i) {
            decoderWorkers_.push_back(std::make_unique<FusedDecoderWorker>(
                *decoder_, decoderHiddenLayers_, decoderHiddenSize_, width, vocabSize,
                durationCount));
        }
    }
    std::vector<DecoderWorker*> workers;
    for (const auto& worker : decoderWorkers_) {
        workers.push_back(worker.get());
    }
    workerPool_ = std::make_unique<BlockingWorkerPool>(std::move(workers));
}

ModelRunner::~ModelRunner() = default;

// The encoder takes one float input of mel features, frame-major [1, T, bins] or
// channel-major [1, bins, T], and one integer input: a mask [1, T] or the count of valid
// frames [1]. It gives the encoded frames and, as integers, their mask or count.
void ModelRunner::bindEncoder() {
    const OnnxSession& encoder = *encoder_;
    requireInputs(encoder, 1, 1, 1,
                  "an encoder takes one float input of features and one integer input");
    const OnnxTensorInfo& features = *ofKind(encoder.inputs(), false)[0];
    const OnnxTensorInfo& counts = *ofKind(encoder.inputs(), true)[0];
    const int64_t bins = encoderShapes().numMelBins;
    EncoderBinding& b = encoderBinding_;
    b.features = features.name;
    b.frameCounts = counts.name;
    b.countsAreMask = counts.shape.size() == 2 ||
                      (counts.shape.empty() && counts.name.find("mask") != std::string::npos);
    if (dimension(features, 2) == bins) {
        b.channelMajor = false;
    } else if (dimension(features, 1) == bins) {
        b.channelMajor = true;
    } else {
        b.channelMajor = !b.countsAreMask;
    }
    b.openTime = dimension(features, b.channelMajor ? 2 : 1) < 0;
    const auto hidden = ofKind(encoder.outputs(), false);
    const auto encoded = ofKind(encoder.outputs(), true);
    if (hidden.empty() || encoded.empty()) {
        throw ParakeetError::unsupportedModel(
            encoder.modelPath(),
            "an encoder gives float frames and their integer mask or count, but it gives " +
                listed(encoder.outputs()));
    }
    b.outputs = {hidden[0]->name, encoded[0]->name};
    encoderInputs_.add(b.features, OnnxElementType::float32, {1, 1, 1});
    encoderInputs_.add(b.frameCounts, counts.elementType, {1});
}

EncoderOutput ModelRunner::runEncoder(const MelFeatureExtractor::Features& features) {
    const EncoderBinding& b = encoderBinding_;
    const auto maxTime = static_cast<size_t>(encoderShapes().maxTime);
    const auto bins = static_cast<size_t>(encoderShapes().numMelBins);
    const size_t frames = std::min(maxTime, features.frameCount());
    // A model of open length takes the real frames only; a fixed one, zeros after them.
    const size_t time = b.openTime ? std::max<size_t>(frames, 1) : maxTime;
    const auto t64 = static_cast<int64_t>(time);
    const auto bins64 = static_cast<int64_t>(bins);
    OnnxTensor& input = encoderInputs_[b.features];
    input.reshape(b.channelMajor ? std::vector<int64_t>{1, bins64, t64}
                                 : std::vector<int64_t>{1, t64, bins64});
    input.zero();
    const size_t width = std::min(bins, static_cast<size_t>(features.numMelFilters));
    float* values = input.floats();
    for (size_t t = 0; t < frames; ++t) {
        const float* frame = features.frame(t).data();
        if (b.channelMajor) {
            for (size_t m = 0; m < width; ++m) {
                values[m * time + t] = frame[m];
            }
        } else {
            std::memcpy(values + t * bins, frame, width * sizeof(float));
        }
    }
    const size_t maskCount = std::min(time, features.attentionMask.size());
    OnnxTensor& counts = encoderInputs_[b.frameCounts];
    if (b.countsAreMask) {
        counts.reshape({1, t64});
        counts.zero();
        for (size_t t = 0; t < maskCount; ++t) {
            setInteger(counts, t, features.attentionMask[t]);
        }
    } else {
        const auto valid =
            std::count_if(features.attentionMask.begin(),
                          features.attentionMask.begin() + static_cast<std::ptrdiff_t>(maskCount),
                          [](int32_t value) { return value != 0; });
        setInteger(counts, 0, valid);
    }

    const auto outputs = encoder_->run(encoderInputs_, b.outputs);
    const auto& shape = outputs[0].shape();
    if (shape.size() != 3) {
        throw ParakeetError::unexpectedOutputShape(b.outputs[0], shape, "[1, T, hidden]");
    }
    // Channel-major frames come out [1, hidden, T']: known by the width the decoder takes,
    // or else by the input's layout.
    bool channelMajor = b.channelMajor;
    if (encoderWidth_ > 0 && (shape[1] == encoderWidth_) != (shape[2] == encoderWidth_)) {
        channelMajor = shape[1] == encoderWidth_;
    }
    const auto encoded = static_cast<size_t>(channelMajor ? shape[2] : shape[1]);
    const auto hiddenWidth = static_cast<size_t>(channelMajor ? shape[1] : shape[2]);
    const auto hidden = outputs[0].floats();
    EncoderOutput result;
    result.hiddenShape = {1, static_cast<int64_t>(encoded), static_cast<int64_t>(hiddenWidth)};
    if (channelMajor) {
        result.hidden.resize(encoded * hiddenWidth);
        for (size_t h = 0; h < hiddenWidth; ++h) {
            for (size_t t = 0; t < encoded; ++t) {
                result.hidden[t * hiddenWidth + h] = hidden[h * encoded + t];
            }
        }
    } else {
        result.hidden.assign(hidden.begin(), hidden.end());
    }
    auto mask = integers(outputs[1], b.outputs[1]);
    if (outputs[1].shape().size() >= 2) {
        result.maskShape = outputs[1].shape();
        result.mask = std::move(mask);
    } else {
        // A count of valid frames.
        const size_t valid =
            mask.empty() ? 0 : std::min(encoded, static_cast<size_t>(std::max(mask[0], 0)));
        result.maskShape = {1, static_cast<int64_t>(encoded)};
        result.mask.assign(encoded, 0);
        std::fill_n(result.mask.begin(), valid, 1);
    }
    return result;
}

} // namespace orvelle
