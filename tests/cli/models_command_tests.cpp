// `orvelle models` on a private data folder: installs from folders, files and a local HTTP
// server (with resume and checksums), verification, and the refusals that leave nothing
// half-installed.

#include "cli/cli_test_support.h"
#include "core/files.h"
#include "platform/crypto/sha256.h"
#include "support/http_test_server.h"
#include "support/temporary_directory.h"

namespace orvelle {
namespace {

using testing::orvelleJson;
using testing::runProgram;
using testing::TemporaryDirectory;
namespace fs = std::filesystem;

class ModelsCommand : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(folder / "served");
        // A language model file: the GGUF magic and some bytes (nothing here runs it).
        std::string gguf = "GGUF";
        for (int i = 0; i < 300000; ++i) {
            gguf.push_back(static_cast<char>(i * 7 % 256));
        }
        testing::writeTextFile(folder / "served/tiny.gguf", gguf);
    }

    std::map<std::string, std::string> environment() const {
        return {{"XDG_DATA_HOME", (folder / "data").string()}};
    }
    Json run(const std::vector<std::string>& arguments) const {
        return orvelleJson(arguments, environment());
    }
    testing::ProgramResult attempt(const std::vector<std::string>& arguments) const {
        return runProgram(testing::orvelleBinary(), arguments, environment());
    }
    ::testing::AssertionResult refuses(const std::vector<std::string>& arguments,
                                       std::string_view message) const {
        return testing::orvelleRefuses(arguments, 1, message, environment());
    }
    fs::path modelFolder(const std::string& name) const {
        return folder / "data/Orvelle/Models" / name;
    }

    TemporaryDirectory folder;
};

TEST_F(ModelsCommand, InstallsVerifiesAndRemovesEachKindOfModel) {
    const Json before = run({"models", "list", "--json"});
    ASSERT_EQ(before["models"].size(), 3u);
    for (const auto& model : before["models"]) {
        EXPECT_FALSE(model["installed"].get<bool>()) << model["id"];
    }
    EXPECT_EQ(before["models"][2]["folder"], modelFolder("qwen-youtube-metadata").string());

    const auto testModels = testing::binaryDirectory() / "test-models";
    struct Case {
        std::string id;
        fs::path source;
        std::string folderName;
    };
    for (const auto& each :
         {Case{"speech", testModels / "parakeet-split", "parakeet-tdt-0.6b-v3-coreml"},
          Case{"alignment", testModels / "ctc-char", "precise-word-timing-wav2vec2-base-960h"},
          Case{"language", folder / "served/tiny.gguf", "qwen-youtube-metadata"}}) {
        const Json installed =
            run({"models", "install", each.id, "--from", each.source.string(), "--json"});
        EXPECT_TRUE(installed["installed"].get<bool>()) << each.id;
        EXPECT_EQ(installed["folder"], modelFolder(each.folderName).string());
        EXPECT_TRUE(fs::exists(modelFolder(each.folderName) / "orvelle-model.json"));
        EXPECT_GE(installed["files"].size(), 1u);
        EXPECT_EQ(run({"models", "verify", each.id, "--json"})["verifiedFiles"],
                  installed["files"].size());
    }
    EXPECT_EQ(readFile(modelFolder("qwen-youtube-metadata") / "tiny.gguf"),
              readFile(folder / "served/tiny.gguf"));

    // A changed file no longer verifies.
    testing::writeTextFile(modelFolder("qwen-youtube-metadata") / "tiny.gguf", "GGUF changed");
    EXPECT_TRUE(refuses({"models", "verify", "language"}, "does not match its checksum"));

    EXPECT_TRUE(run({"models", "remove", "language", "--json"})["removed"].get<bool>());
    EXPECT_FALSE(fs::exists(modelFolder("qwen-youtube-metadata")));
    EXPECT_FALSE(run({"models", "list", "--json"})["models"][2]["installed"].get<bool>());
    EXPECT_TRUE(run({"models", "list", "--json"})["models"][0]["installed"].get<bool>());
}

TEST_F(ModelsCommand, DownloadsResumeAndChecksumsAreCheckedBeforeAnythingMoves) {
    testing::HttpTestServer server(folder / "served");
    const std::string sha = sha256HexOfFile(folder / "served/tiny.gguf");
    const std::string url = server.url("/files/tiny.gguf");

    // A first install that later fails its checksum leaves the installed model alone.
    run({"models", "install", "language", "--from", url, "--json"});
    const auto installedBytes = readFile(modelFolder("qwen-youtube-metadata") / "tiny.gguf");
    EXPECT_TRUE(
        refuses({"models", "install", "language", "--from", url, "--sha256", std::string(64, '0')},
                "not the expected " + std::string(64, '0') + ". Nothing was installed."));
    EXPECT_EQ(readFile(modelFolder("qwen-youtube-metadata") / "tiny.gguf"), installedBytes);
    for (const auto& entry : fs::directory_iterator(folder / "data/Orvelle/Models")) {
        EXPECT_FALSE(entry.path().filename().string().find(".install-") != std::string::npos)
            << entry.path();
    }

    // A download cut short stays for the next try, which goes on from there.
    run({"models", "remove", "language", "--json"});
    const auto cut = attempt({"models", "install", "language", "--from", url + "?drop=100000"});
    EXPECT_EQ(cut.status, 1);
    EXPECT_FALSE(fs::exists(modelFolder("qwen-youtube-metadata")));
    const Json resumed =
        run({"models", "install", "language", "--from", url, "--sha256", sha, "--json"});
    EXPECT_EQ(resumed["resumedFrom"], 100000);
    EXPECT_EQ(resumed["sourceSHA256"], sha);
    EXPECT_TRUE(resumed["installed"].get<bool>());
    EXPECT_FALSE(fs::exists(folder / "data/Orvelle/Models/.downloads/language-tiny.gguf.part"));
}

TEST_F(ModelsCommand, RefusesWhatIsNotTheModelOrEscapesItsFolder) {
    // A manifest that names a file outside the model's folder.
    const auto bundle = folder / "escaping";
    fs::copy(testing::binaryDirectory() / "test-models/parakeet-split", bundle,
             fs::copy_options::recursive);
    testing::writeTextFile(folder / "outside.bin", "secret");
    testing::writeTextFile(bundle / "orvelle-model.json",
                           R"({"files": [{"path": "../outside.bin", "size": 6, "sha256": ")" +
                               sha256HexOfFile(folder / "outside.bin") + R"("}]})");
    EXPECT_TRUE(refuses({"models", "install", "speech", "--from", bundle.string()},
                        "names a file outside its folder: '../outside.bin'"));

    // A manifest whose checksum does not hold.
    testing::writeTextFile(bundle / "orvelle-model.json",
                           R"({"files": [{"path": "tokenizer.json", "size": 1, "sha256": ")" +
                               std::string(64, 'a') + R"("}]})");
    EXPECT_TRUE(refuses({"models", "install", "speech", "--from", bundle.string()},
                        "tokenizer.json does not match its checksum"));

    // The wrong kind of thing, and nothing at all.
    EXPECT_TRUE(refuses(
        {"models", "install", "speech", "--from", (folder / "served/tiny.gguf").string()}, ""));
    EXPECT_TRUE(refuses({"models", "install", "alignment", "--from",
                         (testing::binaryDirectory() / "test-models/parakeet-split").string()},
                        "Nothing was installed."));
    const auto unknown = attempt({"models", "install", "vision", "--from", bundle.string()});
    EXPECT_NE(unknown.err.find("The models are speech, alignment, language."), std::string::npos);

    EXPECT_FALSE(fs::exists(modelFolder("parakeet-tdt-0.6b-v3-coreml")));
    EXPECT_FALSE(fs::exists(modelFolder("precise-word-timing-wav2vec2-base-960h")));
    if (fs::exists(folder / "data/Orvelle/Models")) {
        for (const auto& entry : fs::directory_iterator(folder / "data/Orvelle/Models")) {
            EXPECT_EQ(entry.path().filename().string().find(".install-"), std::string::npos);
        }
    }
}

} // namespace
} // namespace orvelle
