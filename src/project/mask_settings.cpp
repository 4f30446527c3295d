#include "project/mask_settings.h"

#include "timeline/clip_neighbours.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace orvelle {

namespace {

constexpr std::array<EnumName<MaskBorder::Style>, 5> kBorderStyleNames{{
    {MaskBorder::Style::none, "none"},
    {MaskBorder::Style::comet, "comet"},
    {MaskBorder::Style::twinComet, "twinComet"},
    {MaskBorder::Style::pulse, "pulse"},
    {MaskBorder::Style::trace, "trace"},
}};

double clampedExtent(double value) {
    return std::isfinite(value) ? std::clamp(value, kMinimumMaskExtent, 1.0) : kMinimumMaskExtent;
}

double clampedOrigin(double value, double extent) {
    return std::isfinite(value) ? std::clamp(value, 0.0, std::max(0.0, 1.0 - extent)) : 0.0;
}

double unit(double value) {
    return std::isfinite(value) ? std::clamp(value, 0.0, 1.0) : 0.0;
}

// The fractional part, wrapped into 0...1 for negative values too.
double wrapped(double value) {
    const double result = value - std::floor(value);
    return result >= 1.0 ? 0.0 : result;
}

struct Span {
    double min;
    double max;
};

// One axis of a resize from the centre: the half-extent is the target's distance from the
// centre, no further than the near stage edge, and never under half the minimum extent.
Span grownAboutCentre(double origin, double extent, double target) {
    const double centre = origin + extent / 2;
    const double limit = std::min(centre, 1.0 - centre);
    const double half = std::max(0.005, std::min(std::fabs(unit(target) - centre), limit));
    const double size = std::max(kMinimumMaskExtent, 2 * half);
    return {centre - size / 2, centre + size / 2};
}

} // namespace

std::span<const EnumName<MaskBorder::Style>> MaskBorder::jsonNames(Style) {
    return kBorderStyleNames;
}

MaskRect MaskRect::normalized() const {
    MaskRect result;
    result.width = clampedExtent(width);
    result.height = clampedExtent(height);
    result.x = clampedOrigin(x, result.width);
    result.y = clampedOrigin(y, result.height);
    return result;
}

MaskRect MaskRect::offsetBy(double dx, double dy) const {
    return MaskRect{x + dx, y + dy, width, height}.normalized();
}

MaskRect MaskRect::resized(MaskResizeHandle handle, MaskPoint to, bool fromCenter) const {
    using enum MaskResizeHandle;
    const bool movesLeft = handle == topLeft || handle == left || handle == bottomLeft;
    const bool movesRight = handle == topRight || handle == right || handle == bottomRight;
    const bool movesTop = handle == topLeft || handle == top || handle == topRight;
    const bool movesBottom = handle == bottomLeft || handle == bottom || handle == bottomRight;

    Span horizontal{x, x + width};
    Span vertical{y, y + height};
    if (fromCenter) {
        if (movesLeft || movesRight) {
            horizontal = grownAboutCentre(x, width, to.x);
        }
        if (movesTop || movesBottom) {
            vertical = grownAboutCentre(y, height, to.y);
        }
    } else {
        if (movesLeft) {
            horizontal.min = std::min(unit(to.x), horizontal.max - kMinimumMaskExtent);
        }
        if (movesRight) {
            horizontal.max = std::max(unit(to.x), horizontal.min + kMinimumMaskExtent);
        }
        if (movesTop) {
            vertical.min = std::min(unit(to.y), vertical.max - kMinimumMaskExtent);
        }
        if (movesBottom) {
            vertical.max = std::max(unit(to.y), vertical.min + kMinimumMaskExtent);
        }
    }
    return MaskRect{horizontal.min, vertical.min, horizontal.max - horizontal.min,
                    vertical.max - vertical.min}
        .normalized();
}

MaskRect MaskRect::fromCorners(MaskPoint a, MaskPoint b) {
    const double minX = std::min(a.x, b.x);
    const double minY = std::min(a.y, b.y);
    const double maxX = std::max(std::max(a.x, b.x), minX + kMinimumMaskExtent);
    const double maxY = std::max(std::max(a.y, b.y), minY + kMinimumMaskExtent);
    return MaskRect{minX, minY, maxX - minX, maxY - minY}.normalized();
}

MaskRect MaskRect::lerp(const MaskRect& a, const MaskRect& b, double fraction) {
    const auto mix = [fraction](double from, double to) { return from + (to - from) * fraction; };
    return MaskRect{mix(a.x, b.x), mix(a.y, b.y), mix(a.width, b.width), mix(a.height, b.height)}
        .normalized();
}

double MaskClip::effectiveOpacity(EditTime time, bool suppressFadeIn, bool suppressFadeOut) const {
    double base = std::isfinite(opacity) ? opacity : 0.72;
    if (base <= 0) {
        return 0;
    }
    base = std::min(base, 1.0);
    const double length = end.seconds - start.seconds;
    if (!(length > 0)) {
        return 0;
    }
    // Either flag makes the mask fade at both ends: they are not independent switches.
    if (!fadesIn && !fadesOut) {
        return base;
    }
    const double fade = std::min(kMaskFadeDuration, length / 2);
    double factor = 1;
    if (!suppressFadeIn) {
        factor = std::min(factor, std::clamp((time.seconds - start.seconds) / fade, 0.0, 1.0));
    }
    if (!suppressFadeOut) {
        factor = std::min(factor, std::clamp((end.seconds - time.seconds) / fade, 0.0, 1.0));
    }
    return base * factor;
}

std::optional<MaskClip> MaskSettings::activeClip(EditTime time) const {
    for (const auto& clip : clips) {
        if (!clip.isDisabled && clip.start <= time && time < clip.end) {
            return clip;
        }
    }
    return std::nullopt;
}

namespace {

// Touching masks hand over within this much.
constexpr double kMaskAdjacencyTolerance = 0.001;
constexpr double kMaskSeamHalfWidth = 0.35;

// Half of a seam's window on one clip's side.
double seamHalfWidth(const MaskClip& clip) {
    return std::max(std::min((clip.end.seconds - clip.start.seconds) * 0.5, kMaskSeamHalfWidth),
                    0.0);
}

// The clip's own opacity, without fades.
double steadyOpacity(const MaskClip& clip, EditTime time) {
    return clip.effectiveOpacity(time, true, true);
}

} // namespace

std::optional<ResolvedMaskState> MaskSettings::resolvedState(EditTime time) const {
    std::optional<size_t> active;
    for (size_t i = 0; i < clips.size(); ++i) {
        if (!clips[i].isDisabled && clips[i].start <= time && time < clips[i].end) {
            active = i;
            break;
        }
    }
    if (!active) {
        return std::nullopt;
    }
    const MaskClip& clip = clips[*active];
    const auto [previousIndex, nextIndex] = neighboursInStartOrder<MaskClip>(clips, *active);
    const MaskClip* previous = nullptr;
    const MaskClip* next = nullptr;
    if (previousIndex && clips[*previousIndex].isInverted == clip.isInverted &&
        std::abs(clip.start.seconds - clips[*previousIndex].end.seconds) <=
            kMaskAdjacencyTolerance) {
        previous = &clips[*previousIndex];
    }
    if (nextIndex && clips[*nextIndex].isInverted == clip.isInverted &&
        std::abs(clips[*nextIndex].start.seconds - clip.end.seconds) <= kMaskAdjacencyTolerance) {
        next = &clips[*nextIndex];
    }

    ResolvedMaskState state{clip, clip.rect,
                            clip.effectiveOpacity(time, previous != nullptr, next != nullptr),
                            clip.cornerRadiusAmount, clip.featherAmount};
    const auto glide = [&](const MaskClip& earlier, const MaskClip& later, double seam) {
        const double hEarlier = seamHalfWidth(earlier);
        const double hLater = seamHalfWidth(later);
        const double t = time.seconds;
        if (!(hEarlier + hLater > 0) || t < seam - hEarlier || t > seam + hLater) {
            return false;
        }
        const double s = MaskBorder::smoothStep((t - (seam - hEarlier)) / (hEarlier + hLater));
        const auto mix = [s](double from, double to) { return from + (to - from) * s; };
        state.rect = MaskRect::lerp(earlier.rect, later.rect, s);
        state.cornerRadiusAmount = mix(earlier.cornerRadiusAmount, later.cornerRadiusAmount);
        state.featherAmount = mix(earlier.featherAmount, later.featherAmount);
        state.opacity = mix(steadyOpacity(earlier, time), steadyOpacity(later, time));
        return true;
    };
    if (next != nullptr && glide(clip, *next, clip.end.seconds)) {
        return state;
    }
    if (previous != nullptr) {
        glide(*previous, clip, clip.start.seconds);
    }
    return state;
}

namespace MaskBorder {

double smoothStep(double u) {
    const double v = unit(u);
    return v * v * (3 - 2 * v);
}

double repeatEnvelope(double cycles, const MaskClip& clip) {
    if (clip.borderRepeats) {
        return 1;
    }
    switch (clip.borderStyle) {
    case Style::trace:
        return cycles < 1 ? 1 : 0;
    case Style::pulse:
        return 1 - smoothStep((cycles - 3) / 1.0);
    case Style::comet:
    case Style::twinComet: {
        const double runs = std::max(1.0, std::round(clip.borderSpeed));
        return 1 - smoothStep((cycles - runs) / 0.25);
    }
    case Style::none:
        break;
    }
    return 1;
}

double opacity(const MaskClip& clip, double fadeFraction, EditTime time) {
    if (clip.isDisabled || clip.borderStyle == Style::none) {
        return 0;
    }
    const double phase = clip.borderSpeed * std::max(0.0, time.seconds - clip.start.seconds);
    const double cycles = clip.borderStyle == Style::pulse ? phase / 2 : phase / 3;
    const double value = unit(fadeFraction) * repeatEnvelope(cycles, clip);
    switch (clip.borderStyle) {
    case Style::pulse:
        return value * (0.725 - 0.275 * std::cos(std::numbers::pi * phase));
    case Style::trace: {
        const double f = wrapped(phase / 3);
        return value * (f < 0.75 ? 1.0 : 1.0 - smoothStep((f - 0.75) * 4));
    }
    case Style::comet:
    case Style::twinComet:
    case Style::none:
        break;
    }
    return value;
}

double energyBrightness(double offset) {
    const double o = unit(offset);
    return std::max(1 - smoothStep(o / 0.1), smoothStep((o - 0.55) / 0.45));
}

double angularBrightness(double bearing, double phase, Style style) {
    switch (style) {
    case Style::none:
    case Style::pulse:
        return 1;
    case Style::comet:
        return energyBrightness(wrapped(bearing - phase));
    case Style::twinComet:
        return energyBrightness(wrapped(2 * wrapped(bearing - phase)));
    case Style::trace:
        // The line is drawn around the loop during the first half of the phase.
        if (phase < 0.5) {
            return bearing <= 2 * phase ? std::min(1.0, (2 * phase - bearing) / 0.06) : 0.0;
        }
        return 1;
    }
    return 1;
}

} // namespace MaskBorder

MaskRect JsonCoder<MaskRect>::decode(const Json& json, const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return MaskRect{reader.required<double>("x"), reader.required<double>("y"),
                    reader.required<double>("width"), reader.required<double>("height")}
        .normalized();
}

Json JsonCoder<MaskRect>::encode(const MaskRect& rect) {
    return {{"x", rect.x}, {"y", rect.y}, {"width", rect.width}, {"height", rect.height}};
}

MaskClip JsonCoder<MaskClip>::decode(const Json& json, const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    const MaskClip defaults;
    MaskClip clip;
    clip.id = reader.required<Uuid>("id");
    clip.start = reader.required<EditTime>("start");
    clip.end = reader.required<EditTime>("end");
    const double reference = reader.value<EditTime>("referenceTime", clip.start).seconds;
    clip.referenceTime = EditTime(std::isfinite(reference) && reference > 0 ? reference : 0.0);
    clip.rect = reader.value<MaskRect>("rect", defaults.rect);
    clip.opacity = reader.sanitised("opacity", 0, 1, defaults.opacity);
    clip.cornerRadiusAmount =
        reader.sanitised("cornerRadiusAmount", 0, 1, defaults.cornerRadiusAmount);
    clip.featherAmount = reader.sanitised("featherAmount", 0, 1, defaults.featherAmount);
    clip.isInverted = reader.value<bool>("isInverted", defaults.isInverted);
    clip.fadesIn = reader.value<bool>("fadesIn", defaults.fadesIn);
    clip.fadesOut = reader.value<bool>("fadesOut", defaults.fadesOut);
    clip.isDisabled = reader.value<bool>("isDisabled", defaults.isDisabled);
    clip.borderStyle = reader.value<MaskBorder::Style>("borderStyle", defaults.borderStyle);
    clip.borderColor = reader.value<BackgroundColorRGBA>("borderColor", defaults.borderColor);
    clip.borderSpeed = reader.sanitised("borderSpeed", 0.25, 8, defaults.borderSpeed);
    clip.borderRepeats = reader.value<bool>("borderRepeats", defaults.borderRepeats);
    return clip;
}

Json JsonCoder<MaskClip>::encode(const MaskClip& clip) {
    return {{"id", encodeJson(clip.id)},
            {"start", encodeJson(clip.start)},
            {"end", encodeJson(clip.end)},
            {"referenceTime", encodeJson(clip.referenceTime)},
            {"rect", encodeJson(clip.rect)},
            {"opacity", clip.opacity},
            {"cornerRadiusAmount", clip.cornerRadiusAmount},
            {"featherAmount", clip.featherAmount},
            {"isInverted", clip.isInverted},
            {"fadesIn", clip.fadesIn},
            {"fadesOut", clip.fadesOut},
            {"isDisabled", clip.isDisabled},
            {"borderStyle", encodeJson(clip.borderStyle)},
            {"borderColor", encodeJson(clip.borderColor)},
            {"borderSpeed", clip.borderSpeed},
            {"borderRepeats", clip.borderRepeats}};
}

MaskSettings JsonCoder<MaskSettings>::decode(const Json& json, const JsonDecodeContext& context) {
    const JsonObjectReader reader(json, context);
    return {reader.value<std::vector<MaskClip>>("clips", {})};
}

Json JsonCoder<MaskSettings>::encode(const MaskSettings& settings) {
    return {{"clips", encodeJson(settings.clips)}};
}

} // namespace orvelle
