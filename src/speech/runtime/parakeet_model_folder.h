#pragma once

// The files of a speech model folder. Two layouts are read:
//   split  encoder, decoder and joint as three models with their tokens: encoder.onnx,
//          decoder.onnx, joint.onnx or joiner.onnx, and tokenizer.json or tokens.txt;
//   fused  encoder-model.onnx, decoder_joint-model.onnx and vocab.txt (decoder and joint in
//          one graph).
// Any model may instead be a quantised export named *.int8.onnx; the full one wins when both
// are there. The models' tensor names and shapes are read from the files themselves (see
// ModelRunner), so exports that name their tensors differently load alike. A folder is fused
// when it holds a fused model and not a complete split set; otherwise it is split.

#include <filesystem>
#include <string>
#include <vector>

namespace orvelle {

enum class ParakeetModelLayout { split, fused };

struct ParakeetModelFolder {
    std::filesystem::path root;
    ParakeetModelLayout layout = ParakeetModelLayout::split;
    std::vector<std::filesystem::path> models; // in the order they are loaded, encoder first
    std::filesystem::path tokenizer;           // tokenizer.json, tokens.txt or vocab.txt
    // What the folder lacks for its layout, each as the names that would do
    // ("joint.onnx or joiner.onnx"); empty when the folder is complete.
    std::vector<std::string> missing;

    bool complete() const { return missing.empty(); }
    // Never throws. Looks only at which files exist.
    static ParakeetModelFolder at(const std::filesystem::path& root);
    friend bool operator==(const ParakeetModelFolder&, const ParakeetModelFolder&) = default;
};

} // namespace orvelle
