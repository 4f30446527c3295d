#pragma once

// Masks: rectangles of the stage that dim or reveal a part of the picture over a stretch
// of the edit, with an optional animated border.

#include "core/json.h"
#include "core/uuid.h"
#include "project/background_settings.h"
#include "timeline/timeline_time.h"

#include <optional>
#include <vector>

namespace orvelle {

// A point of the stage's unit square, origin top left.
struct MaskPoint {
    double x = 0;
    double y = 0;

    friend bool operator==(const MaskPoint&, const MaskPoint&) = default;
};

enum class MaskResizeHandle {
    topLeft,
    top,
    topRight,
    right,
    bottomRight,
    bottom,
    bottomLeft,
    left
};

inline constexpr double kMinimumMaskExtent = 0.01;

// A rectangle of the stage's unit square. Every operation returns a normalised rectangle:
// each extent in [0.01, 1], the origin keeping the whole rectangle on the stage.
struct MaskRect {
    double x = 0.25;
    double y = 0.25;
    double width = 0.5;
    double height = 0.5;

    MaskRect normalized() const;
    // Moves by the offset; at an edge the rectangle slides along it, its size unchanged.
    MaskRect offsetBy(double dx, double dy) const;
    // Moves the edges the handle names to the point, keeping 0.01 from the opposite edge.
    // From the centre, the rectangle grows about its centre on the axes the handle touches.
    MaskRect resized(MaskResizeHandle handle, MaskPoint to, bool fromCenter) const;
    static MaskRect fromCorners(MaskPoint a, MaskPoint b);
    static MaskRect lerp(const MaskRect& a, const MaskRect& b, double fraction);

    friend bool operator==(const MaskRect&, const MaskRect&) = default;
};

namespace MaskBorder {

enum class Style { none, comet, twinComet, pulse, trace };
std::span<const EnumName<Style>> jsonNames(Style);

} // namespace MaskBorder

inline constexpr double kMaskFadeDuration = 0.35;

struct MaskClip {
    Uuid id;
    EditTime start;
    EditTime end;
    EditTime referenceTime;
    MaskRect rect;
    double opacity = 0.72;
    double cornerRadiusAmount = 0.03;
    double featherAmount = 0;
    bool isInverted = false;
    bool fadesIn = true;
    bool fadesOut = true;
    bool isDisabled = false;
    MaskBorder::Style borderStyle = MaskBorder::Style::none;
    BackgroundColorRGBA borderColor{1.0, 0.78, 0.25, 1.0};
    double borderSpeed = 1.0; // [0.25, 8]
    bool borderRepeats = true;

    // The mask's opacity at an edit time. A clip that fades fades at both ends; the
    // suppress flags hold a side steady (a neighbour continues the mask there).
    double effectiveOpacity(EditTime time, bool suppressFadeIn, bool suppressFadeOut) const;

    friend bool operator==(const MaskClip&, const MaskClip&) = default;
};

// A mask at an instant, with the glide between touching clips applied.
struct ResolvedMaskState {
    MaskClip clip; // the active clip
    MaskRect rect;
    double opacity = 0;
    double cornerRadiusAmount = 0;
    double featherAmount = 0;

    friend bool operator==(const ResolvedMaskState&, const ResolvedMaskState&) = default;
};

struct MaskSettings {
    std::vector<MaskClip> clips;

    // The first enabled clip, in list order, with start <= t < end.
    std::optional<MaskClip> activeClip(EditTime time) const;

    // The active clip's mask at an edit time. Touching clips of the same kind (both
    // inverted or both not) neither fade at their seam nor jump: rectangle, radius,
    // feather and opacity glide over up to 0.35 s either side of it. Allocates nothing.
    std::optional<ResolvedMaskState> resolvedState(EditTime time) const;

    friend bool operator==(const MaskSettings&, const MaskSettings&) = default;
};

// The lit band that runs around a mask's outline. Phase p = borderSpeed x time since the
// clip's start, in cycles of motion; bearings and phases below are in turns.
namespace MaskBorder {

// u held to 0...1, then u^2 (3 - 2u).
double smoothStep(double u);
// How much of the border is still lit after some cycles when it does not repeat.
double repeatEnvelope(double cycles, const MaskClip& clip);
// The border's overall opacity at an edit time, given the mask's fade fraction.
double opacity(const MaskClip& clip, double fadeFraction, EditTime time);
// Brightness along the comet's head and tail, at an offset 0...1 behind the head.
double energyBrightness(double offset);
// Brightness of the border at a bearing around the loop, at a phase.
double angularBrightness(double bearing, double phase, Style style);

} // namespace MaskBorder

template <>
struct JsonCoder<MaskRect> {
    static MaskRect decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const MaskRect& value);
};

template <>
struct JsonCoder<MaskClip> {
    static MaskClip decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const MaskClip& value);
};

template <>
struct JsonCoder<MaskSettings> {
    static MaskSettings decode(const Json& json, const JsonDecodeContext& context);
    static Json encode(const MaskSettings& value);
};

} // namespace orvelle
