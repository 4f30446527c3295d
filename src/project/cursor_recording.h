#pragma once

// The pointer data file of a take: positions sampled about 60 times a second and button
// presses, relative to the capture frame (origin top left, 0...1), on the take's clock.
// Stored as "<screen file>.cursor.json"; every key is required when read, others are
// ignored.

#include "core/json.h"

#include <filesystem>
#include <optional>
#include <vector>

namespace orvelle {

// The capture frame in global screen coordinates, as the capture frame has it.
struct CodableRect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    friend bool operator==(const CodableRect&, const CodableRect&) = default;
};

struct CursorSample {
    double time = 0;      // seconds on the take's clock
    double x = 0;         // fraction of the frame from its left
    double y = 0;         // fraction of the frame from its top
    bool visible = false; // the pointer was inside the frame

    friend bool operator==(const CursorSample&, const CursorSample&) = default;
};

struct CursorClick {
    double time = 0;
    int button = 0; // 0 left, 1 right, others as the system numbers them

    friend bool operator==(const CursorClick&, const CursorClick&) = default;
};

// A pointer position for later stages, without its time.
struct CursorPoint {
    double x = 0;
    double y = 0;
    bool visible = false;

    friend bool operator==(const CursorPoint&, const CursorPoint&) = default;
};

struct CursorRecording {
    static constexpr int kCurrentVersion = 1;

    int version = kCurrentVersion;
    CodableRect captureFrame;
    std::vector<CursorSample> samples; // in time order
    std::vector<CursorClick> clicks;   // in time order

    // "Name.mov" has its pointer data in "Name.cursor.json".
    static std::filesystem::path fileURL(const std::filesystem::path& screenURL);

    // Throws FileError or JsonDecodeError naming the offending key.
    static CursorRecording load(const std::filesystem::path& url);
    // Compact JSON with sorted keys, written atomically. Throws FileError.
    void save(const std::filesystem::path& url) const;

    friend bool operator==(const CursorRecording&, const CursorRecording&) = default;
};

struct TakeManifest;

// The pointer data of a take: the file of its first cursor segment. Absent when the take
// has none or the file cannot be read (which is logged): the take then has no pointer
// data, and nothing else is lost.
std::optional<CursorRecording> takeCursorRecording(const TakeManifest& manifest);

template <>
struct JsonCoder<CodableRect> {
    static CodableRect decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const CodableRect& value);
};

template <>
struct JsonCoder<CursorSample> {
    static CursorSample decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const CursorSample& value);
};

template <>
struct JsonCoder<CursorClick> {
    static CursorClick decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const CursorClick& value);
};

template <>
struct JsonCoder<CursorRecording> {
    static CursorRecording decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const CursorRecording& value);
};

} // namespace orvelle
