#include "platform/secrets/secret_store.h"
#include "support/private_secret_service.h"
#include "support/scoped_environment.h"
#include "support/temporary_directory.h"
#include "support/thrown.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>

namespace orvelle {
namespace {

using testing::PrivateSecretService;
using testing::TemporaryDirectory;

mode_t modeOf(const std::filesystem::path& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

// What every store must do with items: keep them apart by service and account, replace,
// delete, and report what is not there.
void exerciseItems(SecretStore& store) {
    const SecretItemName google{"orvelle.test.google", "youtube-upload"};
    const SecretItemName music{"orvelle.test.music", "audio-api"};
    store.remove(google);
    store.remove(music);
    EXPECT_FALSE(store.read(google));

    store.write(google, R"({"token":"first"})");
    store.write(music, "key with blanks and ünïcode");
    EXPECT_EQ(store.read(google), R"({"token":"first"})");
    EXPECT_EQ(store.read(music), "key with blanks and ünïcode");

    store.write(google, R"({"token":"second"})");
    EXPECT_EQ(store.read(google), R"({"token":"second"})");

    EXPECT_TRUE(store.remove(google));
    EXPECT_FALSE(store.remove(google));
    EXPECT_FALSE(store.read(google));
    EXPECT_EQ(store.read(music), "key with blanks and ünïcode");
    EXPECT_TRUE(store.remove(music));
}

TEST(FileSecretStore, KeepsItemsInFilesOnlyTheUserCanRead) {
    TemporaryDirectory home;
    const auto folder = home / "data/Orvelle/Secrets";
    const auto store = openFileSecretStore(folder);
    EXPECT_EQ(store->kind(), "private file");
    exerciseItems(*store);

    // A umask that would leave files open to everyone changes nothing.
    const mode_t old = ::umask(0);
    store->write({"orvelle.google.oauth", "youtube-upload"}, "secret");
    ::umask(old);
    EXPECT_EQ(modeOf(folder), 0700U);
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        EXPECT_EQ(modeOf(entry.path()), 0600U) << entry.path();
        ++files;
    }
    EXPECT_EQ(files, 1); // no temporary file left behind

    // A name that tries to leave the folder stays inside it.
    store->write({"../../escape", "x/y"}, "kept inside");
    EXPECT_EQ(store->read({"../../escape", "x/y"}), "kept inside");
    EXPECT_FALSE(std::filesystem::exists(home / "data/escape--x"));
    for (const auto& entry : std::filesystem::recursive_directory_iterator(home.path())) {
        if (entry.is_regular_file()) {
            EXPECT_EQ(entry.path().parent_path(), folder) << entry.path();
        }
    }
}

TEST(FileSecretStore, AnUnwritableFolderIsAClearError) {
    TemporaryDirectory home;
    testing::writeTextFile(home / "blocked", "a file where the folder should be");
    const auto store = openFileSecretStore(home / "blocked/Secrets");
    if (const auto error = testing::thrown<SecretStoreError>([&] {
            store->write({"orvelle.openverse", "audio-api"}, "key");
        })) {
        EXPECT_NE(std::string(error->what()).find("Saving credentials failed (private file error"),
                  std::string::npos)
            << error->what();
    }
}

TEST(SecretStoreChoice, FallsBackToPrivateFilesWithoutASessionBus) {
    TemporaryDirectory home;
    const testing::ScopedEnvironment noBus(
        {{"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + (home / "no-bus").string()}});
    std::string reason;
    EXPECT_EQ(openSecretServiceStore(&reason), nullptr);
    EXPECT_FALSE(reason.empty());
    const auto store = openSecretStore(home / "Secrets");
    EXPECT_EQ(store->kind(), "private file");
    store->write({"orvelle.openverse", "audio-api"}, "key");
    EXPECT_TRUE(std::filesystem::exists(home / "Secrets/orvelle.openverse--audio-api"));
}

// The only test here that reaches a bus: the process keeps its first bus connection.
TEST(SecretServiceStore, KeepsItemsInTheKeyringAndNoFile) {
    if (!PrivateSecretService::installed()) {
        GTEST_SKIP() << "gnome-keyring-daemon is not installed";
    }
    PrivateSecretService service;
    ::setenv("DBUS_SESSION_BUS_ADDRESS", service.busAddress().c_str(), 1);
    TemporaryDirectory fallback;
    const auto store = openSecretStore(fallback / "Secrets");
    ASSERT_EQ(store->kind(), "Secret Service");
    exerciseItems(*store);
    store->write({"orvelle.google.oauth", "youtube-upload"}, R"({"token":"kept"})");
    EXPECT_FALSE(std::filesystem::exists(fallback / "Secrets"));
    // A second connection (as a later run of the program) finds the item.
    const auto again = openSecretServiceStore();
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(again->read({"orvelle.google.oauth", "youtube-upload"}), R"({"token":"kept"})");
    EXPECT_TRUE(again->remove({"orvelle.google.oauth", "youtube-upload"}));
}

} // namespace
} // namespace orvelle
