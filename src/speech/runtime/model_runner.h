#pragma once

// The speech model on ONNX Runtime. ModelRunner owns the sessions, the encoder's input
// buffers (so one encoder call runs at a time, from one thread) and the decoder workers;
// each DecoderWorker owns one decoding stream's buffers over the shared decoder sessions,
// so several chunks can be decoded at once. Both folder layouts end in the same contract:
// the encoder gives [1, T', H] frames with a mask, the worker runs a decoder step and a
// joint step on bound buffers. Exports name and shape their tensors differently, so each
// tensor's part is read from the model: by element type and order, and the layout of the
// features and frames by the sizes the model declares. A model with inputs that fit no
// part is refused with the names it has.

#include "platform/onnx/onnx_session.h"
#include "speech/runtime/mel_feature_extractor.h"
#include "speech/runtime/parakeet_model_folder.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <semaphore>
#include <span>
#include <string>
#include <vector>

namespace orvelle {

struct EncoderShapes {
    int batch = 1;
    int maxTime = 3000; // mel frames per chunk
    int numMelBins = 128;
    friend bool operator==(const EncoderShapes&, const EncoderShapes&) = default;
};

// The encoder's answer for one chunk as the decoder reads it, whatever the layout:
// hidden frame-major with shape [1, T', H], and one mask value per encoder frame.
struct EncoderOutput {
    std::vector<int64_t> hiddenShape;
    std::vector<float> hidden;
    std::vector<int64_t> maskShape;
    std::vector<int32_t> mask;
    friend bool operator==(const EncoderOutput&, const EncoderOutput&) = default;
};

struct JointLogits {
    std::span<const float> tokenLogits;
    std::span<const float> durationLogits;
};

// One decoding stream. Used by one thread at a time (the pool sees to that).
class DecoderWorker {
public:
    DecoderWorker(int decoderHiddenLayers, int decoderHiddenSize)
        : decoderHiddenLayers_(decoderHiddenLayers), decoderHiddenSize_(decoderHiddenSize) {}
    virtual ~DecoderWorker() = default;
    DecoderWorker(const DecoderWorker&) = delete;
    DecoderWorker& operator=(const DecoderWorker&) = delete;

    int decoderHiddenLayers() const { return decoderHiddenLayers_; }
    int decoderHiddenSize() const { return decoderHiddenSize_; }

    // A fresh predictor for a new chunk: zero state, the blank as the held id.
    virtual void reset(int32_t blankTokenId) = 0;
    virtual int32_t inputId() const = 0;
    virtual void setInputId(int32_t id) = 0;
    // Copies an encoder frame into the joint's input (as many values as it takes).
    virtual void setEncoderFrame(std::span<const float> frame) = 0;
    // Runs the predictor on the held id. The state advances at once, and the predictor's
    // output is the joint's decoder state until the next step.
    virtual void runDecoderStep() = 0;
    // The joint on the current encoder frame and decoder state; the logits stay valid
    // until the next call on this worker. Throws ParakeetError for logits of the wrong size.
    virtual JointLogits runJoint() = 0;

private:
    int decoderHiddenLayers_;
    int decoderHiddenSize_;
};

// Hands out workers. acquire() blocks until one is free, and gives nothing once closed.
class BlockingWorkerPool {
public:
    explicit BlockingWorkerPool(std::vector<DecoderWorker*> workers);
    DecoderWorker* acquire();
    void release(DecoderWorker* worker);
    void close();

private:
    std::vector<DecoderWorker*> available_; // guarded by lock_
    std::mutex lock_;
    std::counting_semaphore<> semaphore_;
    bool closed_ = false; // guarded by lock_
};

class ModelRunner {
public:
    struct Configuration {
        EncoderShapes encoderShapes;
        int blankTokenId = 8192;
        std::vector<int> durations{0, 1, 2, 3, 4};
        int vocabSize = 8193;
        int maxSymbolsPerStep = 10;
        int workerCount = 1;
        OnnxDevice device = OnnxDevice::cpu;
    };

    // Loads the folder's models in order (encoder first). Throws OnnxError when a model
    // cannot be loaded, ParakeetError unsupportedModel when its inputs and outputs are not
    // those of its part; the caller checks that the files exist.
    ModelRunner(const ParakeetModelFolder& folder, const Configuration& configuration);
    ~ModelRunner();
    ModelRunner(const ModelRunner&) = delete;
    ModelRunner& operator=(const ModelRunner&) = delete;

    // Cuts the features to maxTime frames of numMelBins values (a model of fixed length gets
    // them zero-padded to maxTime), runs the encoder and returns its frames. One call at a
    // time. Throws ParakeetError for an output of the wrong rank, OnnxError for a failed run.
    EncoderOutput runEncoder(const MelFeatureExtractor::Features& features);

    // A free worker, waiting for one; nothing once the pool is closed.
    DecoderWorker* acquireWorker() { return workerPool_->acquire(); }
    void releaseWorker(DecoderWorker* worker) { workerPool_->release(worker); }

    ParakeetModelLayout layout() const { return layout_; }
    const EncoderShapes& encoderShapes() const { return configuration_.encoderShapes; }
    int decoderHiddenLayers() const { return decoderHiddenLayers_; }
    int decoderHiddenSize() const { return decoderHiddenSize_; }
    int blankTokenId() const { return configuration_.blankTokenId; }
    const std::vector<int>& durations() const { return configuration_.durations; }
    int vocabSize() const { return configuration_.vocabSize; }
    int maxSymbolsPerStep() const { return configuration_.maxSymbolsPerStep; }
    size_t workerCount() const { return decoderWorkers_.size(); }

private:
    // Which of the encoder's tensors is which, read from the model.
    struct EncoderBinding {
        std::string features;      // float mel features
        bool channelMajor = false; // [1, bins, T] rather than [1, T, bins]
        bool openTime = true;      // the model takes any number of frames
        std::string frameCounts;   // integer: a mask [1, T] or the valid frame count [1]
        bool countsAreMask = true;
        std::vector<std::string> outputs; // the encoded frames, then their mask or count
    };
    void bindEncoder();

    ParakeetModelLayout layout_;
    Configuration configuration_;
    std::unique_ptr<OnnxSession> encoder_;
    std::unique_ptr<OnnxSession> decoder_; // the decoder, or decoder and joint in one
    std::unique_ptr<OnnxSession> joint_;   // split layout only
    int decoderHiddenLayers_ = 2;
    int decoderHiddenSize_ = 640;
    int64_t encoderWidth_ = -1; // an encoded frame's width as the decoder side declares it
    EncoderBinding encoderBinding_;
    OnnxFeatureBag encoderInputs_;
    std::vector<std::unique_ptr<DecoderWorker>> decoderWorkers_;
    std::unique_ptr<BlockingWorkerPool> workerPool_;
};

} // namespace orvelle
