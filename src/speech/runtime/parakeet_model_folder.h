#pragma once

// The files of a speech model folder. Two layouts are read:
//   split  encoder.onnx, decoder.onnx, joint.onnx and tokenizer.json, with the tensor
//          names of the model runner's contract;
//   fused  encoder-model.onnx, decoder_joint-model.onnx and vocab.txt, the layout in which
//          the model is commonly published for ONNX Runtime (decoder and joint in one
//          graph, encoder output channel-major).
// A folder is fused when it holds encoder-model.onnx or decoder_joint-model.onnx and not
// the complete split set; otherwise it is split.

#include <filesystem>
#include <vector>

namespace orvelle {

enum class ParakeetModelLayout { split, fused };

struct ParakeetModelFolder {
    std::filesystem::path root;
    ParakeetModelLayout layout = ParakeetModelLayout::split;
    std::vector<std::filesystem::path> models; // in the order they are checked and loaded
    std::filesystem::path tokenizer;           // tokenizer.json or vocab.txt

    // Never throws; says nothing about whether the files exist (the model locator asks
    // that, the transcriber reports the first one missing).
    static ParakeetModelFolder at(const std::filesystem::path& root);
    friend bool operator==(const ParakeetModelFolder&, const ParakeetModelFolder&) = default;
};

} // namespace orvelle
