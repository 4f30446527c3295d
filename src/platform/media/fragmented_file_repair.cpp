#include "platform/media/fragmented_file_repair.h"

#include <array>
#include <fstream>
#include <string>
#include <system_error>

namespace orvelle {

namespace {

struct BoxHeader {
    std::string type;
    std::uintmax_t size = 0; // 0: to the end of the file
};

std::optional<BoxHeader> readHeader(std::ifstream& in, std::uintmax_t offset,
                                    std::uintmax_t fileSize) {
    if (offset + 8 > fileSize) {
        return std::nullopt;
    }
    std::array<unsigned char, 16> bytes{};
    in.seekg(static_cast<std::streamoff>(offset));
    in.read(reinterpret_cast<char*>(bytes.data()), 8);
    if (!in) {
        return std::nullopt;
    }
    BoxHeader header;
    header.size = (std::uintmax_t{bytes[0]} << 24) | (std::uintmax_t{bytes[1]} << 16) |
                  (std::uintmax_t{bytes[2]} << 8) | std::uintmax_t{bytes[3]};
    header.type.assign(reinterpret_cast<const char*>(bytes.data() + 4), 4);
    if (header.size == 1) {
        if (offset + 16 > fileSize) {
            return std::nullopt;
        }
        in.read(reinterpret_cast<char*>(bytes.data() + 8), 8);
        if (!in) {
            return std::nullopt;
        }
        header.size = 0;
        for (int i = 8; i < 16; ++i) {
            header.size = (header.size << 8) | bytes[static_cast<size_t>(i)];
        }
    } else if (header.size != 0 && header.size < 8) {
        return std::nullopt; // not a box: garbage
    }
    return header;
}

} // namespace

std::optional<std::uintmax_t> wholeFragmentsLength(const std::filesystem::path& path) {
    std::error_code error;
    const std::uintmax_t fileSize = std::filesystem::file_size(path, error);
    if (error) {
        return std::nullopt;
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return std::nullopt;
    }
    std::uintmax_t offset = 0;
    std::uintmax_t whole = 0;    // end of the last box after which the file may stop
    bool sawMovieHeader = false; // ftyp or moov first
    bool openFragment = false;   // a moof whose samples have not come yet
    while (offset < fileSize) {
        const auto header = readHeader(in, offset, fileSize);
        if (!header) {
            break;
        }
        if (offset == 0 && header->type != "ftyp" && header->type != "moov") {
            return std::nullopt;
        }
        const std::uintmax_t end = header->size == 0 ? fileSize : offset + header->size;
        if (header->size == 0 || end > fileSize) {
            break; // torn: the writer died inside this box
        }
        sawMovieHeader = true;
        if (header->type == "moof") {
            openFragment = true;
        } else if (header->type == "mdat") {
            openFragment = false;
            whole = end;
        } else if (!openFragment) {
            whole = end; // ftyp, moov, free, mfra, ...
        }
        offset = end;
    }
    if (!sawMovieHeader) {
        return std::nullopt;
    }
    return whole;
}

bool truncateToWholeFragments(const std::filesystem::path& path) {
    const auto whole = wholeFragmentsLength(path);
    if (!whole) {
        return false;
    }
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    if (error) {
        return false;
    }
    if (*whole == size) {
        return true;
    }
    std::filesystem::resize_file(path, *whole, error);
    return !error;
}

} // namespace orvelle
