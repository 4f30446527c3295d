#include "core/files.h"

#include "core/error.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

namespace orvelle {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void throwFileError(const std::string& what, const fs::path& path, int error) {
    throw FileError(what + " \"" + path.string() + "\": " + std::strerror(error));
}

} // namespace

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throwFileError("Could not open", path, errno);
    }
    std::ostringstream buffer;
    buffer << in.rdbuf();
    if (in.bad()) {
        throwFileError("Could not read", path, errno);
    }
    return std::move(buffer).str();
}

void writeFileAtomically(const fs::path& path, std::string_view bytes) {
    const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
    std::string pattern = (folder / ("." + path.filename().string() + ".XXXXXX")).string();
    const int fd = ::mkstemp(pattern.data());
    if (fd < 0) {
        throwFileError("Could not create a temporary file for", path, errno);
    }
    const fs::path temporary = pattern;
    auto fail = [&](const char* what) {
        const int error = errno;
        ::close(fd);
        ::unlink(temporary.c_str());
        throwFileError(what, path, error);
    };
    size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            fail("Could not write");
        }
        written += static_cast<size_t>(n);
    }
    // mkstemp makes the file private; keep the mode of the file we replace, or use the mode
    // of any file the user saves.
    struct stat existing {};
    ::fchmod(fd, ::stat(path.c_str(), &existing) == 0 ? (existing.st_mode & 07777) : 0644);
    if (::fsync(fd) != 0) {
        fail("Could not flush");
    }
    if (::close(fd) != 0) {
        const int error = errno;
        ::unlink(temporary.c_str());
        throwFileError("Could not close", path, error);
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        const int error = errno;
        ::unlink(temporary.c_str());
        throwFileError("Could not replace", path, error);
    }
    // The rename itself is durable only once the folder is flushed.
    const int dirFd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY);
    if (dirFd >= 0) {
        ::fsync(dirFd);
        ::close(dirFd);
    }
}

bool fileExists(const fs::path& path) {
    std::error_code error;
    return fs::exists(fs::symlink_status(path, error)) && !error;
}

void removeIgnoringErrors(const fs::path& path) {
    std::error_code error;
    fs::remove_all(path, error);
}

} // namespace orvelle
