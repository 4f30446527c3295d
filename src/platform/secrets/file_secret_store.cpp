#include "core/files.h"
#include "platform/secrets/secret_store.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace orvelle {

namespace {

namespace fs = std::filesystem;

class FileSecretStore final : public SecretStore {
public:
    explicit FileSecretStore(fs::path folder) : folder_(std::move(folder)) {}

    std::optional<std::string> read(const SecretItemName& item) override {
        const fs::path path = fileFor(item);
        if (!fileExists(path)) {
            return std::nullopt;
        }
        try {
            return readFile(path);
        } catch (const FileError& error) {
            throw SecretStoreError(std::string("private file error: ") + error.what());
        }
    }

    void write(const SecretItemName& item, std::string_view data) override {
        try {
            makeFolder();
            writeFileAtomically(fileFor(item), data,
                                fs::perms::owner_read | fs::perms::owner_write);
        } catch (const FileError& error) {
            throw SecretStoreError(std::string("private file error: ") + error.what());
        }
    }

    bool remove(const SecretItemName& item) override {
        std::error_code error;
        const bool removed = fs::remove(fileFor(item), error);
        if (error) {
            throw SecretStoreError("private file error: could not remove \"" +
                                   fileFor(item).string() + "\": " + error.message());
        }
        return removed;
    }

    std::string kind() const override { return "private file"; }

private:
    // Service and account never hold a path separator in this program; any that came in
    // would be replaced rather than climb out of the folder.
    fs::path fileFor(const SecretItemName& item) const {
        std::string name = item.service + "--" + item.account;
        for (char& c : name) {
            if (c == '/' || c == '\0') {
                c = '_';
            }
        }
        if (name.starts_with('.')) {
            name.insert(0, "_");
        }
        return folder_ / name;
    }

    void makeFolder() const {
        std::error_code error;
        fs::create_directories(folder_, error);
        if (error) {
            throw SecretStoreError("private file error: could not create \"" + folder_.string() +
                                   "\": " + error.message());
        }
        // The folder is ours alone, whatever the umask made of it.
        if (::chmod(folder_.c_str(), S_IRWXU) != 0) {
            throw SecretStoreError("private file error: could not protect \"" + folder_.string() +
                                   "\": " + std::strerror(errno));
        }
    }

    fs::path folder_;
};

} // namespace

std::unique_ptr<SecretStore> openFileSecretStore(const std::filesystem::path& folder) {
    return std::make_unique<FileSecretStore>(folder);
}

} // namespace orvelle
