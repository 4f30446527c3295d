#include "cli/commands.h"
#include "cli/interrupt.h"
#include "cli/output.h"
#include "local_ai/local_models.h"

#include <iostream>

namespace orvelle::cli {

namespace {

constexpr int kInterruptedStatus = 130;

Json modelJson(const LocalModelDescription& model) {
    const auto status = LocalModelCatalog::status(model);
    Json json = {{"id", model.id},
                 {"name", model.name},
                 {"folder", model.folder.string()},
                 {"contents", model.contents},
                 {"installed", status.installed},
                 {"size", static_cast<std::int64_t>(status.size)}};
    if (!status.installed) {
        json["problem"] = status.problem;
    }
    if (status.manifest) {
        json["source"] = status.manifest->source;
        json["installedAt"] = encodeJson(status.manifest->installedAt);
    }
    return json;
}

int runList(const Arguments& arguments) {
    const auto models = LocalModelCatalog::all();
    if (arguments.flag("--json")) {
        Json list = Json::array();
        for (const auto& model : models) {
            list.push_back(modelJson(model));
        }
        printJson({{"models", list}});
        return 0;
    }
    for (const auto& model : models) {
        const auto status = LocalModelCatalog::status(model);
        std::cout << model.id << ": " << model.name << "\n  "
                  << (status.installed ? "installed in " : "not installed; put in ")
                  << model.folder.string() << "\n";
        if (!status.installed) {
            std::cout << "  needs " << model.contents << "\n  ('orvelle models install " << model.id
                      << " --from FOLDER|FILE|URL')\n";
        }
    }
    return 0;
}

int runInstall(const Arguments& arguments) {
    const auto model = LocalModelCatalog::find(
        arguments.positional(0, "the model (speech, alignment or language)"));
    const auto source = arguments.value("--from");
    if (!source) {
        throw UsageError("Say where the model comes from with --from FOLDER, FILE or URL.");
    }
    LocalModelInstaller::Options options;
    options.sha256 = arguments.value("--sha256");
    std::optional<ProgressReporter> bar;
    options.stage = [&bar](const std::string& stage) {
        if (bar) {
            bar->finish();
            bar.reset();
        }
        std::cerr << stage << "\n";
    };
    options.progress = [&bar](const HttpProgress& step) {
        if (!step.receiveTotal || *step.receiveTotal == 0) {
            return;
        }
        if (!bar) {
            bar.emplace("Downloading");
        }
        bar->update(static_cast<double>(step.received) / static_cast<double>(*step.receiveTotal));
    };
    InterruptStop interrupt;
    LocalModelInstaller::Result result;
    try {
        result = LocalModelInstaller::install(model, *source, options, interrupt.token());
    } catch (const CancellationError&) {
        std::cerr << "orvelle models install: cancelled; nothing was installed (a download goes "
                     "on from where it stopped next time).\n";
        return kInterruptedStatus;
    }
    if (bar) {
        bar->finish();
    }
    if (arguments.flag("--json")) {
        Json json = modelJson(model);
        json["files"] = Json::array();
        for (const auto& file : result.manifest.files) {
            json["files"].push_back({{"path", file.path},
                                     {"size", static_cast<std::int64_t>(file.size)},
                                     {"sha256", file.sha256}});
        }
        if (result.sourceSHA256) {
            json["sourceSHA256"] = *result.sourceSHA256;
        }
        json["resumedFrom"] = static_cast<std::int64_t>(result.resumedFrom);
        printJson(json);
    } else {
        std::cout << "Installed the " << model.name << " in " << result.folder.string() << " ("
                  << result.manifest.files.size() << " files).\n";
    }
    return 0;
}

int runVerify(const Arguments& arguments) {
    const auto model = LocalModelCatalog::find(
        arguments.positional(0, "the model (speech, alignment or language)"));
    const auto manifest = LocalModelInstaller::verify(model);
    if (arguments.flag("--json")) {
        Json json = modelJson(model);
        json["verifiedFiles"] = manifest.files.size();
        printJson(json);
    } else {
        std::cout << "The " << model.name << " in " << model.folder.string() << " is whole ("
                  << manifest.files.size() << " files match their checksums).\n";
    }
    return 0;
}

int runRemove(const Arguments& arguments) {
    const auto model = LocalModelCatalog::find(
        arguments.positional(0, "the model (speech, alignment or language)"));
    const bool removed = LocalModelInstaller::remove(model);
    if (arguments.flag("--json")) {
        printJson({{"id", model.id}, {"folder", model.folder.string()}, {"removed", removed}});
    } else {
        std::cout << (removed ? "Removed " : "Nothing to remove at ") << model.folder.string()
                  << ".\n";
    }
    return 0;
}

} // namespace

Command modelsListCommand() {
    return {"models list",
            "the local models, where they go and whether they are installed",
            "orvelle models list [--json]\n\n"
            "Lists the speech transcription, precise word timing and text assistant models:\n"
            "the folder each one lives in under the data folder, what it must hold, and whether\n"
            "it is installed.",
            {{"--json"}},
            runList};
}

Command modelsInstallCommand() {
    return {"models install",
            "install a local model from a folder, a file or a URL",
            "orvelle models install speech|alignment|language --from FOLDER|FILE|URL\n"
            "       [--sha256 HEX] [--json]\n\n"
            "Copies a folder, unpacks a .tar/.tar.gz/.tgz/.tar.xz archive, or takes a .gguf\n"
            "file (the language model), downloading an http(s) URL first (with a progress bar;\n"
            "an interrupted download goes on where it stopped). --sha256 checks the file or\n"
            "download before anything else. The model is checked and given a manifest of\n"
            "checksums beside its folder, then moved into place; the model it replaces stays\n"
            "until then.",
            {{"--from", true}, {"--sha256", true}, {"--json"}},
            runInstall};
}

Command modelsVerifyCommand() {
    return {"models verify",
            "check an installed model against its checksums",
            "orvelle models verify speech|alignment|language [--json]\n\n"
            "Checks that the model's folder holds what it needs and that every file matches the\n"
            "checksum recorded when it was installed.",
            {{"--json"}},
            runVerify};
}

Command modelsRemoveCommand() {
    return {"models remove",
            "remove an installed model",
            "orvelle models remove speech|alignment|language [--json]",
            {{"--json"}},
            runRemove};
}

} // namespace orvelle::cli
