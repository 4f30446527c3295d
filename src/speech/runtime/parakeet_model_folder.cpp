#include "speech/runtime/parakeet_model_folder.h"

#include "core/files.h"

#include <algorithm>

namespace orvelle {

namespace {

// One file of a layout: the names that serve, in order of preference. Every model also
// serves in its quantised form.
struct Part {
    std::vector<std::string> names;
    bool model = true;
};

std::vector<std::string> candidates(const Part& part) {
    std::vector<std::string> all = part.names;
    if (part.model) {
        for (const auto& name : part.names) {
            all.push_back(name.substr(0, name.size() - 5) + ".int8.onnx");
        }
    }
    return all;
}

const std::vector<Part>& partsOf(ParakeetModelLayout layout) {
    static const std::vector<Part> split{{{"encoder.onnx"}},
                                         {{"decoder.onnx"}},
                                         {{"joint.onnx", "joiner.onnx"}},
                                         {{"tokenizer.json", "tokens.txt"}, false}};
    static const std::vector<Part> fused{{{"encoder-model.onnx"}},
                                         {{"decoder_joint-model.onnx"}},
                                         {{"vocab.txt", "tokens.txt"}, false}};
    return layout == ParakeetModelLayout::split ? split : fused;
}

ParakeetModelFolder resolve(const std::filesystem::path& root, ParakeetModelLayout layout) {
    ParakeetModelFolder folder;
    folder.root = root;
    folder.layout = layout;
    for (const Part& part : partsOf(layout)) {
        const auto names = candidates(part);
        const auto found = std::find_if(names.begin(), names.end(), [&](const std::string& name) {
            return fileExists(root / name);
        });
        const std::filesystem::path path = root / (found == names.end() ? names.front() : *found);
        if (found == names.end()) {
            std::string wanted;
            for (const auto& name : part.names) {
                wanted += (wanted.empty() ? "" : " or ") + name;
            }
            folder.missing.push_back(wanted);
        }
        if (part.model) {
            folder.models.push_back(path);
        } else {
            folder.tokenizer = path;
        }
    }
    return folder;
}

} // namespace

ParakeetModelFolder ParakeetModelFolder::at(const std::filesystem::path& root) {
    ParakeetModelFolder split = resolve(root, ParakeetModelLayout::split);
    if (split.complete()) {
        return split;
    }
    ParakeetModelFolder fused = resolve(root, ParakeetModelLayout::fused);
    const bool hasFusedModel =
        std::any_of(fused.models.begin(), fused.models.end(),
                    [](const std::filesystem::path& model) { return fileExists(model); });
    if (hasFusedModel) {
        return fused;
    }
    return split;
}

} // namespace orvelle
