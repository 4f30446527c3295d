// The music's loudness over edit time: the project's music level, each clip's own level,
// and dips under speech with a short ramp down before it and a slower recovery after it.

#include "timeline_media/timeline_composition.h"

#include <algorithm>
#include <cmath>
#include <set>

namespace orvelle::TimelineComposition {

namespace {

// Not finite reads 1; anything else [0, 1].
float unitLevel(double value) {
    return std::isfinite(value) ? static_cast<float>(std::clamp(value, 0.0, 1.0)) : 1.0f;
}

} // namespace

std::vector<MusicVolumeRegion> musicVolumeRegions(const std::vector<TimelineClip>& timelineClips,
                                                  bool audioDisabled,
                                                  const std::vector<VoiceInterval>& voiceIntervals,
                                                  double musicVolume) {
    std::vector<TimelineClip> clips = timelineClips;
    std::stable_sort(clips.begin(), clips.end(),
                     [](const auto& a, const auto& b) { return a.start < b.start; });
    const float project = unitLevel(musicVolume);
    std::vector<MusicVolumeRegion> regions;
    double cursor = 0;
    for (const auto& clip : clips) {
        const double speed = clip.sanitisedSpeed();
        const double length = std::max(clip.end.seconds - clip.start.seconds, 0.0) / speed;
        if (!(length > 0)) {
            continue;
        }
        const float own = clip.audio.musicVolume ? unitLevel(*clip.audio.musicVolume) : 1.0f;
        const float product = own * project;
        const float level = std::isfinite(product) ? std::clamp(product, 0.0f, 1.0f) : 1.0f;
        MusicVolumeRegion region{cursor, cursor + length, level, {}};
        if (audioDisabled) {
            region.baseVolume = 0;
        } else if (clip.audio.ducksMusicDuringVoice) {
            region.baseVolume = project;
            if (level < project - 0.0005f) {
                for (const auto& interval : voiceIntervals) {
                    const double a = std::max(interval.lower, clip.start.seconds);
                    const double b = std::min(interval.upper, clip.end.seconds);
                    if (a <= b) {
                        region.dips.push_back({cursor + (a - clip.start.seconds) / speed,
                                               cursor + (b - clip.start.seconds) / speed, level});
                    }
                }
            }
        }
        regions.push_back(std::move(region));
        cursor += length;
    }
    return regions;
}

float baseVolume(const std::vector<MusicVolumeRegion>& regions, double t) {
    for (const auto& region : regions) {
        if (region.editStart <= t && t < region.editEnd) {
            return region.baseVolume;
        }
    }
    return regions.empty() ? 0.0f : regions.back().baseVolume;
}

std::optional<float> dipLevel(const std::vector<MusicVolumeRegion>& regions, double t) {
    std::optional<float> lowest;
    auto consider = [&](float level) { lowest = lowest ? std::min(*lowest, level) : level; };
    for (const auto& region : regions) {
        for (const auto& dip : region.dips) {
            if (dip.start <= t && t <= dip.end) {
                consider(dip.floor);
            } else if (dip.start - kDuckRampDown <= t && t < dip.start) {
                const float base = baseVolume(regions, t);
                consider(base + (dip.floor - base) *
                                    static_cast<float>((t - (dip.start - kDuckRampDown)) * 2.0));
            } else if (dip.end < t && t <= dip.end + kDuckRecovery) {
                const float base = baseVolume(regions, t);
                consider(dip.floor + (base - dip.floor) * static_cast<float>(t - dip.end));
            }
        }
    }
    return lowest;
}

std::vector<DuckAnchor> duckAnchors(const std::vector<MusicVolumeRegion>& regions) {
    if (regions.empty()) {
        return {};
    }
    std::set<double> times;
    for (const auto& region : regions) {
        times.insert(region.editStart);
        times.insert(region.editEnd);
        for (const auto& dip : region.dips) {
            times.insert(dip.start);
            times.insert(dip.end);
            times.insert(std::max(dip.start - kDuckRampDown, region.editStart));
            times.insert(dip.end + kDuckRecovery);
        }
    }
    std::vector<DuckAnchor> anchors;
    anchors.reserve(times.size());
    for (const double t : times) {
        float level = baseVolume(regions, t);
        if (const auto dip = dipLevel(regions, t)) {
            level = std::min(level, *dip);
        }
        anchors.push_back({t, level});
    }
    return anchors;
}

float interpolatedLevel(double t, const std::vector<DuckAnchor>& anchors, float fallback) {
    if (anchors.empty()) {
        return fallback;
    }
    if (t <= anchors.front().time) {
        return anchors.front().level;
    }
    if (t >= anchors.back().time) {
        return anchors.back().level;
    }
    const auto after =
        std::upper_bound(anchors.begin(), anchors.end(), t,
                         [](double time, const DuckAnchor& a) { return time < a.time; });
    const DuckAnchor& b = *after;
    const DuckAnchor& a = *(after - 1);
    if (b.time == a.time) {
        return a.level;
    }
    return a.level + (b.level - a.level) * static_cast<float>((t - a.time) / (b.time - a.time));
}

std::vector<MusicEnvelopeSegment>
musicEnvelopeSegments(const std::vector<MusicClip>& musicClips,
                      const std::vector<TimelineClip>& timelineClips, bool audioDisabled,
                      const std::vector<VoiceInterval>& voiceIntervals, double musicVolume,
                      double timelineDuration) {
    const auto regions =
        musicVolumeRegions(timelineClips, audioDisabled, voiceIntervals, musicVolume);
    const auto anchors = duckAnchors(regions);
    const float fallback = audioDisabled || !(musicVolume > 0) ? 0.0f : unitLevel(musicVolume);
    auto level = [&](double t) { return interpolatedLevel(t, anchors, fallback); };
    std::vector<MusicClip> clips = musicClips;
    std::stable_sort(clips.begin(), clips.end(),
                     [](const auto& a, const auto& b) { return a.start < b.start; });
    std::vector<MusicEnvelopeSegment> segments;
    for (const auto& clip : clips) {
        const double s = clip.start.seconds;
        const double e = std::min(clip.end.seconds, timelineDuration);
        if (!(e - s > 0.01)) {
            continue;
        }
        const double fade = std::min((e - s) * 0.25, 0.35);
        std::vector<double> knots{s + fade};
        for (const auto& anchor : anchors) {
            if (anchor.time > s + fade && anchor.time < e - fade) {
                knots.push_back(anchor.time);
            }
        }
        knots.push_back(e - fade);
        segments.push_back({s, s + fade, 0.0f, level(s + fade)});
        for (size_t i = 0; i + 1 < knots.size(); ++i) {
            const double a = knots[i];
            const double b = knots[i + 1];
            if (b - a > 0.0001) {
                segments.push_back({a, b, level(a), level(b)});
            }
        }
        segments.push_back({e - fade, e, level(e - fade), 0.0f});
    }
    return segments;
}

void applyMusicEnvelope(AudioMixInputParameters& parameters,
                        const std::vector<MusicEnvelopeSegment>& envelope) {
    parameters.setVolume(0, 0);
    for (const auto& segment : envelope) {
        parameters.setVolumeRamp(segment.fromVolume, segment.toVolume,
                                 MediaTimeRange::between(segment.start, segment.end));
    }
}

} // namespace orvelle::TimelineComposition
