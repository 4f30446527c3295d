#include "speech/runtime/parakeet_model_folder.h"

#include "core/files.h"

namespace orvelle {

ParakeetModelFolder ParakeetModelFolder::at(const std::filesystem::path& root) {
    ParakeetModelFolder folder;
    folder.root = root;
    const bool splitComplete =
        fileExists(root / "encoder.onnx") && fileExists(root / "decoder.onnx") &&
        fileExists(root / "joint.onnx") && fileExists(root / "tokenizer.json");
    const bool fused = !splitComplete && (fileExists(root / "encoder-model.onnx") ||
                                          fileExists(root / "decoder_joint-model.onnx"));
    if (fused) {
        folder.layout = ParakeetModelLayout::fused;
        folder.models = {root / "encoder-model.onnx", root / "decoder_joint-model.onnx"};
        folder.tokenizer = root / "vocab.txt";
    } else {
        folder.layout = ParakeetModelLayout::split;
        folder.models = {root / "encoder.onnx", root / "decoder.onnx", root / "joint.onnx"};
        folder.tokenizer = root / "tokenizer.json";
    }
    return folder;
}

} // namespace orvelle
