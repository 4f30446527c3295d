// The panels of the timeline's clips: the selected video clip, and the zoom, camera,
// mask, text and music lanes with their selected clip.

#include "app/icons.h"
#include "app/settings_sidebar.h"
#include "app/settings_sidebar_controls.h"
#include "app/theme.h"
#include "editor/clip_lane.h"
#include "editor/editor_store.h"
#include "playback/playback_model.h"

#include <QButtonGroup>
#include <QEvent>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QToolButton>
#include <cmath>

namespace orvelle {

namespace {

template <class Clip>
const Clip* selectedClip(const ClipLane<Clip>& lane, const EditorProjectState& project,
                         const EditorSelectionState& selection) {
    const auto id = lane.selectedID(selection);
    if (!id) {
        return nullptr;
    }
    for (const Clip& clip : lane.clipsOf(project)) {
        if (clip.id == *id) {
            return &clip;
        }
    }
    return nullptr;
}

template <class Clip>
Clip* selectedClip(const ClipLane<Clip>& lane, EditorProjectState& project,
                   const EditorSelectionState& selection) {
    return const_cast<Clip*>(selectedClip(lane, std::as_const(project), selection));
}

const TimelineClip* selectedVideoClip(const EditorProjectState& project,
                                      const EditorSelectionState& selection) {
    const auto id = selection.selectedID(EditorSelectionState::Kind::timelineClip);
    if (!id) {
        return nullptr;
    }
    for (const auto& clip : project.timeline.clips) {
        if (clip.id == *id) {
            return &clip;
        }
    }
    return nullptr;
}

// A reader and a writer of one number of the selected clip of a lane.
template <class Clip, class Value>
std::pair<ProjectReader, ProjectWriter> clipNumber(const ClipLane<Clip>& lane, Value Clip::*field) {
    return {[&lane, field](const EditorProjectState& p, const EditorSelectionState& s) {
                const Clip* clip = selectedClip(lane, p, s);
                return clip ? std::optional<double>(static_cast<double>(clip->*field))
                            : std::nullopt;
            },
            [&lane, field](EditorProjectState& p, EditorSelectionState& s, double v) {
                if (Clip* clip = selectedClip(lane, p, s)) {
                    clip->*field = static_cast<Value>(v);
                }
            }};
}

template <class Clip>
void addClipToggle(InspectorPanel* panel, const ClipLane<Clip>& lane, const QString& label,
                   bool Clip::*field, bool inverted = false) {
    panel->addToggle(
        label, std::string(lane.changeLabel),
        [&lane, field, inverted](const EditorProjectState& p, const EditorSelectionState& s) {
            const Clip* clip = selectedClip(lane, p, s);
            return clip ? std::optional<bool>((clip->*field) != inverted) : std::nullopt;
        },
        [&lane, field, inverted](EditorProjectState& p, EditorSelectionState& s, bool on) {
            if (Clip* clip = selectedClip(lane, p, s)) {
                clip->*field = on != inverted;
            }
        });
}

template <class Clip>
void addClipSlider(InspectorPanel* panel, const ClipLane<Clip>& lane, const QString& label,
                   double Clip::*field, double minimum, double maximum,
                   std::function<QString(double)> format) {
    auto [read, write] = clipNumber(lane, field);
    panel->addSlider(label, minimum, maximum, std::move(format), std::string(lane.changeLabel),
                     read, write);
}

// "Add Zoom at Playhead", and a line that says what is selected.
template <class Clip>
QPushButton* addLaneHeader(InspectorPanel* panel, InspectorContext& context,
                           const ClipLane<Clip>& lane, const QString& noun,
                           std::function<void(EditTime)> add) {
    auto* button =
        new QPushButton(icon(IconName::plus), QStringLiteral("Add %1 at Playhead").arg(noun));
    panel->addWidget(button);
    QObject::connect(button, &QPushButton::clicked, panel, [&context, add, &lane, panel] {
        add(EditTime(context.playback->timelinePlayheadTime().value()));
        if (!lane.selectedID(context.store->selection())) {
            context.showStatus(QStringLiteral("There is no room on this lane at the playhead"));
        }
        panel->refresh();
    });
    QLabel* note = panel->addNote({});
    panel->addRefresher([&context, &lane, note, noun] {
        const Clip* clip = selectedClip(lane, context.store->project(), context.store->selection());
        note->setText(clip ? QStringLiteral("%1 from %2 s to %3 s")
                                 .arg(noun)
                                 .arg(clip->start.seconds, 0, 'f', 2)
                                 .arg(clip->end.seconds, 0, 'f', 2)
                           : QStringLiteral("Select a %1 clip on the timeline to change it, or "
                                            "double-click its lane to add one.")
                                 .arg(noun.toLower()));
    });
    return button;
}

QString secondsText(double value) {
    return QStringLiteral("%1 s").arg(value, 0, 'f', 2);
}

QString degreesText(double value) {
    return QStringLiteral("%1°").arg(std::lround(value));
}

QString timesText(double value) {
    return QStringLiteral("%1×").arg(value, 0, 'f', 2);
}

QString offsetText(double value) {
    return QStringLiteral("%1").arg(value, 0, 'f', 2);
}

const QStringList& positionNames() {
    static const QStringList names{
        QStringLiteral("Top left"),    QStringLiteral("Top"),    QStringLiteral("Top right"),
        QStringLiteral("Left"),        QStringLiteral("Centre"), QStringLiteral("Right"),
        QStringLiteral("Bottom left"), QStringLiteral("Bottom"), QStringLiteral("Bottom right")};
    return names;
}

} // namespace

InspectorPanel* makeClipPanel(InspectorContext& context) {
    EditorStore& store = *context.store;
    auto* panel = new InspectorPanel(store, QStringLiteral("Clip"));
    QLabel* note = panel->addNote({});
    panel->addRefresher([&store, note] {
        const TimelineClip* clip = selectedVideoClip(store.project(), store.selection());
        note->setText(clip ? QStringLiteral("Plays the recording from %1 s to %2 s.")
                                 .arg(clip->start.seconds, 0, 'f', 2)
                                 .arg(clip->end.seconds, 0, 'f', 2)
                           : QStringLiteral("Select a clip on the video lane to change its speed, "
                                            "fades and sound."));
    });
    const auto number = [](double TimelineClip::*field) {
        return std::pair<ProjectReader, ProjectWriter>{
            [field](const EditorProjectState& p, const EditorSelectionState& s) {
                const TimelineClip* clip = selectedVideoClip(p, s);
                return clip ? std::optional<double>(clip->*field) : std::nullopt;
            },
            [field](EditorProjectState& p, EditorSelectionState& s, double v) {
                if (const TimelineClip* clip = selectedVideoClip(p, s)) {
                    const_cast<TimelineClip*>(clip)->*field = v;
                }
            }};
    };
    panel->addSection(QStringLiteral("Speed"));
    static const std::vector<double> speeds{0.75, 1, 1.25, 1.5, 2, 3, 4, 8, 16, 24};
    QStringList speedNames;
    for (const double speed : speeds) {
        speedNames << timesText(speed);
    }
    panel->addChoice(
        QStringLiteral("Speed"), speedNames, "Change Clip",
        [](const EditorProjectState& p, const EditorSelectionState& s) -> std::optional<int> {
            const TimelineClip* clip = selectedVideoClip(p, s);
            if (!clip) {
                return std::nullopt;
            }
            size_t best = 0;
            for (size_t i = 0; i < speeds.size(); ++i) {
                if (std::abs(speeds[i] - clip->sanitisedSpeed()) <
                    std::abs(speeds[best] - clip->sanitisedSpeed())) {
                    best = i;
                }
            }
            return static_cast<int>(best);
        },
        [](EditorProjectState& p, EditorSelectionState& s, int index) {
            if (const TimelineClip* clip = selectedVideoClip(p, s)) {
                const_cast<TimelineClip*>(clip)->speed = speeds[static_cast<size_t>(index)];
            }
        });
    panel->addSection(QStringLiteral("Fades"));
    auto [fadeInRead, fadeInWrite] = number(&TimelineClip::fadeInDuration);
    panel->addSlider(QStringLiteral("Fade in"), 0, kMaximumClipFadeDuration, secondsText,
                     "Change Clip", fadeInRead, fadeInWrite);
    auto [fadeOutRead, fadeOutWrite] = number(&TimelineClip::fadeOutDuration);
    panel->addSlider(QStringLiteral("Fade out"), 0, kMaximumClipFadeDuration, secondsText,
                     "Change Clip", fadeOutRead, fadeOutWrite);
    panel->addSection(QStringLiteral("Pointer"));
    panel->addToggle(
        QStringLiteral("Hide the pointer in this clip"), "Change Clip",
        [](const EditorProjectState& p, const EditorSelectionState& s) {
            const TimelineClip* clip = selectedVideoClip(p, s);
            return clip ? std::optional<bool>(clip->hidesCursor) : std::nullopt;
        },
        [](EditorProjectState& p, EditorSelectionState& s, bool on) {
            if (const TimelineClip* clip = selectedVideoClip(p, s)) {
                const_cast<TimelineClip*>(clip)->hidesCursor = on;
            }
        });
    panel->addSection(QStringLiteral("Sound of this clip"));
    const auto level = [&](const QString& label,
                           std::optional<double> TimelineClipAudioSettings::*field,
                           double AudioSettings::*projectField) {
        panel->addSlider(
            label, 0, 1, percentText, "Change Clip",
            [field, projectField](const EditorProjectState& p, const EditorSelectionState& s) {
                const TimelineClip* clip = selectedVideoClip(p, s);
                return clip ? std::optional<double>(
                                  (clip->audio.*field).value_or(p.audio.*projectField))
                            : std::nullopt;
            },
            [field](EditorProjectState& p, EditorSelectionState& s, double v) {
                if (const TimelineClip* clip = selectedVideoClip(p, s)) {
                    const_cast<TimelineClip*>(clip)->audio.*field = v;
                }
            });
    };
    level(QStringLiteral("Microphone"), &TimelineClipAudioSettings::microphoneVolume,
          &AudioSettings::microphoneVolume);
    level(QStringLiteral("System audio"), &TimelineClipAudioSettings::systemAudioVolume,
          &AudioSettings::systemAudioVolume);
    level(QStringLiteral("Music"), &TimelineClipAudioSettings::musicVolume,
          &AudioSettings::musicVolume);
    panel->addToggle(
        QStringLiteral("Lower the music under speech"), "Change Clip",
        [](const EditorProjectState& p, const EditorSelectionState& s) {
            const TimelineClip* clip = selectedVideoClip(p, s);
            return clip ? std::optional<bool>(clip->audio.ducksMusicDuringVoice) : std::nullopt;
        },
        [](EditorProjectState& p, EditorSelectionState& s, bool on) {
            if (const TimelineClip* clip = selectedVideoClip(p, s)) {
                const_cast<TimelineClip*>(clip)->audio.ducksMusicDuringVoice = on;
            }
        });
    auto* reset = new QPushButton(QStringLiteral("Use the Edit's Sound Levels"));
    panel->addWidget(reset);
    QObject::connect(reset, &QPushButton::clicked, panel, [&store] {
        if (const auto clip = store.selectedTimelineClip()) {
            store.updateTimelineClip(clip->id, [](TimelineClip& c) {
                c.audio.microphoneVolume.reset();
                c.audio.systemAudioVolume.reset();
                c.audio.musicVolume.reset();
            });
        }
    });
    panel->addRefresher([&store, reset] {
        const TimelineClip* clip = selectedVideoClip(store.project(), store.selection());
        reset->setEnabled(clip && (clip->audio.microphoneVolume || clip->audio.systemAudioVolume ||
                                   clip->audio.musicVolume));
    });
    panel->addStretch();
    return panel;
}

InspectorPanel* makeZoomPanel(InspectorContext& context) {
    EditorStore& store = *context.store;
    auto* panel = new InspectorPanel(store, QStringLiteral("Zoom"));
    addLaneHeader<AnimationClip>(
        panel, context, animationLane, QStringLiteral("Zoom"), [&context](EditTime at) {
            context.store->addAnimationClip(at, context.store->project().screen.zoomScale,
                                            context.playback->gestures().laneMinimumClipDuration());
        });
    panel->addSection(QStringLiteral("Zoom"));
    addClipSlider(panel, animationLane, QStringLiteral("Scale"), &AnimationClip::zoomScale, 1, 4,
                  timesText);
    panel->addSegments(
        QStringLiteral("Follows"), {QStringLiteral("The pointer"), QStringLiteral("A fixed spot")},
        "Change Zoom",
        [](const EditorProjectState& p, const EditorSelectionState& s) {
            const AnimationClip* clip = selectedClip(animationLane, p, s);
            return clip ? std::optional<int>(clip->zoomMode == AnimationZoomMode::manual ? 1 : 0)
                        : std::nullopt;
        },
        [](EditorProjectState& p, EditorSelectionState& s, int index) {
            if (AnimationClip* clip = selectedClip(animationLane, p, s)) {
                clip->zoomMode =
                    index == 1 ? AnimationZoomMode::manual : AnimationZoomMode::automatic;
                if (index == 1 && !clip->manualOffset) {
                    clip->manualOffset = ZoomManualOffset();
                }
            }
        });
    const auto offset = [&](const QString& label, bool horizontal) {
        panel->addSlider(
            label, -1.5, 1.5, offsetText, "Change Zoom",
            [horizontal](const EditorProjectState& p,
                         const EditorSelectionState& s) -> std::optional<double> {
                const AnimationClip* clip = selectedClip(animationLane, p, s);
                if (!clip || clip->zoomMode != AnimationZoomMode::manual) {
                    return std::nullopt;
                }
                const ZoomManualOffset o = clip->manualOffset.value_or(ZoomManualOffset());
                return horizontal ? o.x : o.y;
            },
            [horizontal](EditorProjectState& p, EditorSelectionState& s, double v) {
                if (AnimationClip* clip = selectedClip(animationLane, p, s)) {
                    const ZoomManualOffset o = clip->manualOffset.value_or(ZoomManualOffset());
                    clip->manualOffset =
                        horizontal ? ZoomManualOffset(v, o.y) : ZoomManualOffset(o.x, v);
                }
            });
    };
    offset(QStringLiteral("Spot across"), true);
    offset(QStringLiteral("Spot down"), false);
    panel->addSection(QStringLiteral("Motion"));
    addClipToggle(panel, animationLane, QStringLiteral("Cut in without easing"),
                  &AnimationClip::instantAnimation);
    addClipToggle(panel, animationLane, QStringLiteral("Keep near the centre"),
                  &AnimationClip::centerBias);
    addClipSlider(panel, animationLane, QStringLiteral("Tilt"), &AnimationClip::tiltDegrees, 0,
                  kMaximumTiltDegrees, degreesText);
    addClipSlider(panel, animationLane, QStringLiteral("Tilt direction"),
                  &AnimationClip::tiltDirectionDegrees, 0, 359, degreesText);
    addClipToggle(panel, animationLane, QStringLiteral("Enabled"), &AnimationClip::isDisabled,
                  true);
    panel->addStretch();
    return panel;
}

InspectorPanel* makeCameraPanel(InspectorContext& context) {
    EditorStore& store = *context.store;
    auto* panel = new InspectorPanel(store, QStringLiteral("Camera"));
    QLabel* missing = panel->addNote(QStringLiteral("This take has no camera recording; these "
                                                    "settings apply when it has one."));
    panel->addRefresher([&store, missing] {
        missing->setVisible(
            store.project().manifest.segmentsFor(MediaTrackManifest::Kind::camera).empty());
    });
    panel->addSection(QStringLiteral("Overlay"));
    // The corner or edge it sits on, as a grid of nine.
    auto* grid = new QWidget;
    auto* gridLayout = new QGridLayout(grid);
    gridLayout->setContentsMargins(0, 0, 0, 0);
    gridLayout->setSpacing(4);
    auto* group = new QButtonGroup(grid);
    std::vector<QToolButton*> spots;
    for (int i = 0; i < 9; ++i) {
        auto* spot = new QToolButton(grid);
        spot->setCheckable(true);
        spot->setFixedSize(34, 22);
        spot->setStyleSheet(
            QStringLiteral("QToolButton { padding: 0px; min-height: 0px; border-radius: 4px; }"
                           "QToolButton:checked { background: %1; border-color: %1; }")
                .arg(Theme::accent().name()));
        spot->setToolTip(positionNames()[i]);
        spot->setFocusPolicy(Qt::TabFocus);
        group->addButton(spot, i);
        gridLayout->addWidget(spot, i / 3, i % 3);
        spots.push_back(spot);
    }
    grid->setFixedSize(3 * 34 + 2 * 4, 3 * 22 + 2 * 4);
    panel->addRow(QStringLiteral("Position"), grid);
    QObject::connect(group, &QButtonGroup::idClicked, panel, [&store](int index) {
        store.edit("Change Camera Position", [&](EditorProjectState& p, EditorSelectionState&) {
            p.camera.position = static_cast<CameraOverlayPosition>(index);
        });
    });
    panel->addRefresher([&store, spots] {
        for (size_t i = 0; i < spots.size(); ++i) {
            spots[i]->setChecked(static_cast<size_t>(store.project().camera.position) == i);
        }
    });
    const auto amount = [&](const QString& label, const std::string& undo,
                            double CameraOverlaySettings::*field) {
        panel->addSlider(
            label, 0, 1, percentText, undo,
            [field](const EditorProjectState& p, const EditorSelectionState&) {
                return std::optional<double>(p.camera.*field);
            },
            [field](EditorProjectState& p, EditorSelectionState&, double v) {
                p.camera.*field = v;
            });
    };
    amount(QStringLiteral("Size"), "Change Camera Size", &CameraOverlaySettings::sizeAmount);
    amount(QStringLiteral("Roundness"), "Change Camera Roundness",
           &CameraOverlaySettings::roundnessAmount);
    amount(QStringLiteral("Size while zoomed"), "Change Camera Size",
           &CameraOverlaySettings::zoomSizeAmount);
    panel->addSegments(
        QStringLiteral("Shape"),
        {QStringLiteral("Square"), QStringLiteral("Wide"), QStringLiteral("Tall"),
         QStringLiteral("Original")},
        "Change Camera Shape",
        [](const EditorProjectState& p, const EditorSelectionState&) {
            return std::optional<int>(static_cast<int>(p.camera.shape));
        },
        [](EditorProjectState& p, EditorSelectionState&, int index) {
            p.camera.shape = static_cast<CameraOverlayShape>(index);
        });
    panel->addToggle(
        QStringLiteral("Mirror"), "Mirror Camera",
        [](const EditorProjectState& p, const EditorSelectionState&) {
            return std::optional<bool>(p.camera.isMirrored);
        },
        [](EditorProjectState& p, EditorSelectionState&, bool on) { p.camera.isMirrored = on; });
    panel->addToggle(
        QStringLiteral("Hide the camera"), "Hide Camera",
        [](const EditorProjectState& p, const EditorSelectionState&) {
            return std::optional<bool>(p.camera.isHidden);
        },
        [](EditorProjectState& p, EditorSelectionState&, bool on) { p.camera.isHidden = on; });

    panel->addSection(QStringLiteral("Layout clip"));
    addLaneHeader<CameraLayoutClip>(
        panel, context, cameraLayoutLane, QStringLiteral("Layout"), [&context](EditTime at) {
            context.store->addCameraLayoutClip(
                at, context.playback->gestures().laneMinimumClipDuration());
        });
    panel->addSegments(
        QStringLiteral("Camera"),
        {QStringLiteral("Fullscreen"), QStringLiteral("Overlay"), QStringLiteral("Hidden")},
        "Change Camera Layout",
        [](const EditorProjectState& p, const EditorSelectionState& s) {
            const CameraLayoutClip* clip = selectedClip(cameraLayoutLane, p, s);
            return clip ? std::optional<int>(static_cast<int>(clip->mode)) : std::nullopt;
        },
        [](EditorProjectState& p, EditorSelectionState& s, int index) {
            if (CameraLayoutClip* clip = selectedClip(cameraLayoutLane, p, s)) {
                clip->mode = static_cast<CameraLayoutMode>(index);
            }
        });
    QStringList positions{QStringLiteral("As the overlay")};
    positions << positionNames();
    panel->addChoice(
        QStringLiteral("Position"), positions, "Change Camera Layout",
        [](const EditorProjectState& p, const EditorSelectionState& s) -> std::optional<int> {
            const CameraLayoutClip* clip = selectedClip(cameraLayoutLane, p, s);
            if (!clip) {
                return std::nullopt;
            }
            return clip->position ? static_cast<int>(*clip->position) + 1 : 0;
        },
        [](EditorProjectState& p, EditorSelectionState& s, int index) {
            if (CameraLayoutClip* clip = selectedClip(cameraLayoutLane, p, s)) {
                clip->position = index == 0
                                     ? std::nullopt
                                     : std::optional(static_cast<CameraOverlayPosition>(index - 1));
            }
        });
    addClipSlider(panel, cameraLayoutLane, QStringLiteral("Size"), &CameraLayoutClip::sizeAmount, 0,
                  1, percentText);
    panel->addChoice(
        QStringLiteral("Mirror"),
        {QStringLiteral("As the overlay"), QStringLiteral("Mirrored"),
         QStringLiteral("Not mirrored")},
        "Change Camera Layout",
        [](const EditorProjectState& p, const EditorSelectionState& s) -> std::optional<int> {
            const CameraLayoutClip* clip = selectedClip(cameraLayoutLane, p, s);
            if (!clip) {
                return std::nullopt;
            }
            return clip->isMirrored ? (*clip->isMirrored ? 1 : 2) : 0;
        },
        [](EditorProjectState& p, EditorSelectionState& s, int index) {
            if (CameraLayoutClip* clip = selectedClip(cameraLayoutLane, p, s)) {
                clip->isMirrored = index == 0 ? std::nullopt : std::optional<bool>(index == 1);
            }
        });
    addClipToggle(panel, cameraLayoutLane, QStringLiteral("Animate the change"),
                  &CameraLayoutClip::animatesTransition);
    addClipToggle(panel, cameraLayoutLane, QStringLiteral("Enabled"), &CameraLayoutClip::isDisabled,
                  true);
    panel->addStretch();
    return panel;
}

InspectorPanel* makeMaskPanel(InspectorContext& context) {
    EditorStore& store = *context.store;
    auto* panel = new InspectorPanel(store, QStringLiteral("Mask"));
    addLaneHeader<MaskClip>(
        panel, context, maskLane, QStringLiteral("Mask"), [&context](EditTime at) {
            context.store->addMaskClip(at, context.playback->gestures().laneMinimumClipDuration());
        });
    panel->addSection(QStringLiteral("Area"));
    const auto rect = [&](const QString& label, double MaskRect::*field) {
        panel->addSlider(
            label, 0, 1, percentText, "Change Mask",
            [field](const EditorProjectState& p, const EditorSelectionState& s) {
                const MaskClip* clip = selectedClip(maskLane, p, s);
                return clip ? std::optional<double>(clip->rect.*field) : std::nullopt;
            },
            [field](EditorProjectState& p, EditorSelectionState& s, double v) {
                if (MaskClip* clip = selectedClip(maskLane, p, s)) {
                    MaskRect r = clip->rect;
                    r.*field = v;
                    clip->rect = r.normalized();
                }
            });
    };
    rect(QStringLiteral("Left"), &MaskRect::x);
    rect(QStringLiteral("Top"), &MaskRect::y);
    rect(QStringLiteral("Width"), &MaskRect::width);
    rect(QStringLiteral("Height"), &MaskRect::height);
    panel->addSection(QStringLiteral("Look"));
    addClipToggle(panel, maskLane, QStringLiteral("Spotlight (dim outside)"),
                  &MaskClip::isInverted);
    addClipSlider(panel, maskLane, QStringLiteral("Opacity"), &MaskClip::opacity, 0, 1,
                  percentText);
    addClipSlider(panel, maskLane, QStringLiteral("Corner radius"), &MaskClip::cornerRadiusAmount,
                  0, 1, percentText);
    addClipSlider(panel, maskLane, QStringLiteral("Feather"), &MaskClip::featherAmount, 0, 1,
                  percentText);
    addClipToggle(panel, maskLane, QStringLiteral("Fade in"), &MaskClip::fadesIn);
    addClipToggle(panel, maskLane, QStringLiteral("Fade out"), &MaskClip::fadesOut);
    addClipToggle(panel, maskLane, QStringLiteral("Enabled"), &MaskClip::isDisabled, true);
    panel->addSection(QStringLiteral("Border"));
    panel->addChoice(
        QStringLiteral("Border"),
        {QStringLiteral("None"), QStringLiteral("Comet"), QStringLiteral("Twin comet"),
         QStringLiteral("Pulse"), QStringLiteral("Trace")},
        "Change Mask",
        [](const EditorProjectState& p, const EditorSelectionState& s) {
            const MaskClip* clip = selectedClip(maskLane, p, s);
            return clip ? std::optional<int>(static_cast<int>(clip->borderStyle)) : std::nullopt;
        },
        [](EditorProjectState& p, EditorSelectionState& s, int index) {
            if (MaskClip* clip = selectedClip(maskLane, p, s)) {
                clip->borderStyle = static_cast<MaskBorder::Style>(index);
            }
        });
    panel->addColor(
        QStringLiteral("Border colour"), "Change Mask",
        [](const EditorProjectState& p, const EditorSelectionState& s) {
            const MaskClip* clip = selectedClip(maskLane, p, s);
            return clip ? std::optional<BackgroundColorRGBA>(clip->borderColor) : std::nullopt;
        },
        [](EditorProjectState& p, EditorSelectionState& s, const BackgroundColorRGBA& color) {
            if (MaskClip* clip = selectedClip(maskLane, p, s)) {
                clip->borderColor = color;
            }
        });
    addClipSlider(panel, maskLane, QStringLiteral("Border speed"), &MaskClip::borderSpeed, 0.25, 8,
                  timesText);
    addClipToggle(panel, maskLane, QStringLiteral("Repeat the border"), &MaskClip::borderRepeats);
    panel->addStretch();
    return panel;
}

namespace {

// A text editor whose typing, from focus in to focus out, is one undo step.
class ClipTextEdit final : public QPlainTextEdit {
public:
    explicit ClipTextEdit(EditorStore& store) : store_(store) {
        setMinimumHeight(72);
        setMaximumHeight(110);
        connect(this, &QPlainTextEdit::textChanged, this, [this] {
            if (updating_) {
                return;
            }
            const std::string text = toPlainText().toStdString();
            store_.edit("Change Text", [&](EditorProjectState& p, EditorSelectionState& s) {
                if (TextClip* clip = selectedClip(textLane, p, s)) {
                    clip->text = text;
                }
            });
        });
    }
    void show(const TextClip* clip) {
        setEnabled(clip != nullptr);
        const QString text = clip ? QString::fromStdString(clip->text) : QString();
        if (text != toPlainText()) {
            updating_ = true;
            setPlainText(text);
            updating_ = false;
        }
    }

protected:
    void focusInEvent(QFocusEvent* event) override {
        store_.beginUndoTransaction("Change Text");
        open_ = true;
        QPlainTextEdit::focusInEvent(event);
    }
    void focusOutEvent(QFocusEvent* event) override {
        if (open_) {
            open_ = false;
            store_.endUndoTransaction();
        }
        QPlainTextEdit::focusOutEvent(event);
    }

private:
    EditorStore& store_;
    bool updating_ = false;
    bool open_ = false;
};

} // namespace

InspectorPanel* makeTextPanel(InspectorContext& context) {
    EditorStore& store = *context.store;
    auto* panel = new InspectorPanel(store, QStringLiteral("Text"));
    addLaneHeader<TextClip>(
        panel, context, textLane, QStringLiteral("Text"), [&context](EditTime at) {
            context.store->addTextClip(at, context.playback->gestures().laneMinimumClipDuration());
        });
    panel->addSection(QStringLiteral("Words"));
    auto* editor = new ClipTextEdit(store);
    panel->addWidget(editor);
    panel->addRefresher([&store, editor] {
        editor->show(selectedClip(textLane, store.project(), store.selection()));
    });
    panel->addSection(QStringLiteral("Style"));
    panel->addSegments(
        QStringLiteral("Entrance"),
        {QStringLiteral("Rise"), QStringLiteral("Slide"), QStringLiteral("Pop")}, "Change Text",
        [](const EditorProjectState& p, const EditorSelectionState& s) {
            const TextClip* clip = selectedClip(textLane, p, s);
            return clip ? std::optional<int>(static_cast<int>(clip->preset)) : std::nullopt;
        },
        [](EditorProjectState& p, EditorSelectionState& s, int index) {
            if (TextClip* clip = selectedClip(textLane, p, s)) {
                clip->preset = static_cast<TextAnimationPreset>(index);
            }
        });
    panel->addSegments(
        QStringLiteral("Alignment"),
        {QStringLiteral("Left"), QStringLiteral("Centre"), QStringLiteral("Right")}, "Change Text",
        [](const EditorProjectState& p, const EditorSelectionState& s) {
            const TextClip* clip = selectedClip(textLane, p, s);
            return clip ? std::optional<int>(static_cast<int>(clip->alignment)) : std::nullopt;
        },
        [](EditorProjectState& p, EditorSelectionState& s, int index) {
            if (TextClip* clip = selectedClip(textLane, p, s)) {
                clip->alignment = static_cast<TextBlockAlignment>(index);
            }
        });
    panel->addColor(
        QStringLiteral("Colour"), "Change Text",
        [](const EditorProjectState& p, const EditorSelectionState& s) {
            const TextClip* clip = selectedClip(textLane, p, s);
            return clip ? std::optional<BackgroundColorRGBA>(clip->color) : std::nullopt;
        },
        [](EditorProjectState& p, EditorSelectionState& s, const BackgroundColorRGBA& color) {
            if (TextClip* clip = selectedClip(textLane, p, s)) {
                clip->color = color;
            }
        });
    addClipSlider(panel, textLane, QStringLiteral("Size"), &TextClip::size, 0.5, 4, timesText);
    addClipSlider(panel, textLane, QStringLiteral("Line height"), &TextClip::lineHeight, 1, 4,
                  timesText);
    addClipSlider(panel, textLane, QStringLiteral("Animation speed"), &TextClip::animationSpeed,
                  0.25, 3, timesText);
    panel->addSection(QStringLiteral("Position"));
    const auto anchor = [&](const QString& label, double TextAnchor::*field) {
        panel->addSlider(
            label, 0, 1, percentText, "Change Text",
            [field](const EditorProjectState& p, const EditorSelectionState& s) {
                const TextClip* clip = selectedClip(textLane, p, s);
                return clip ? std::optional<double>(clip->position.*field) : std::nullopt;
            },
            [field](EditorProjectState& p, EditorSelectionState& s, double v) {
                if (TextClip* clip = selectedClip(textLane, p, s)) {
                    clip->position.*field = v;
                }
            });
    };
    anchor(QStringLiteral("Across"), &TextAnchor::x);
    anchor(QStringLiteral("Down"), &TextAnchor::y);
    panel->addStretch();
    return panel;
}

InspectorPanel* makeMusicPanel(InspectorContext& context) {
    EditorStore& store = *context.store;
    auto* panel = new InspectorPanel(store, QStringLiteral("Music"));
    auto* add =
        new QPushButton(icon(IconName::music, Qt::white), QStringLiteral("Add Music File…"));
    add->setProperty("primary", true);
    panel->addWidget(add);
    QObject::connect(add, &QPushButton::clicked, panel, [&context] {
        if (context.addMusicFile) {
            context.addMusicFile(context.playback->timelinePlayheadTime().value());
        }
    });
    QLabel* note = panel->addNote({});
    panel->addRefresher([&store, note] {
        const MusicClip* clip = selectedClip(musicLane, store.project(), store.selection());
        note->setText(clip
                          ? QStringLiteral("“%1” plays from %2 s to %3 s, looped to fill its clip.")
                                .arg(QString::fromStdString(clip->title))
                                .arg(clip->start.seconds, 0, 'f', 2)
                                .arg(clip->end.seconds, 0, 'f', 2)
                          : QStringLiteral("A music file plays from the playhead and loops to fill "
                                           "its clip; it dips under speech. Select a music clip to "
                                           "change it."));
    });
    panel->addSection(QStringLiteral("Selected music"));
    auto* title = new QLineEdit;
    panel->addRow(QStringLiteral("Title"), title);
    title->setMinimumWidth(180);
    QObject::connect(title, &QLineEdit::editingFinished, panel, [&store, title] {
        const std::string text = title->text().trimmed().toStdString();
        store.edit("Change Music", [&](EditorProjectState& p, EditorSelectionState& s) {
            if (MusicClip* clip = selectedClip(musicLane, p, s); clip && !text.empty()) {
                clip->title = text;
            }
        });
    });
    panel->addRefresher([&store, title] {
        const MusicClip* clip = selectedClip(musicLane, store.project(), store.selection());
        title->setEnabled(clip != nullptr);
        if (!title->hasFocus()) {
            title->setText(clip ? QString::fromStdString(clip->title) : QString());
        }
    });
    panel->addSlider(
        QStringLiteral("Start in the file"), 0, 120, secondsText, "Change Music",
        [](const EditorProjectState& p, const EditorSelectionState& s) {
            const MusicClip* clip = selectedClip(musicLane, p, s);
            return clip ? std::optional<double>(clip->mediaOffset) : std::nullopt;
        },
        [](EditorProjectState& p, EditorSelectionState& s, double v) {
            if (MusicClip* clip = selectedClip(musicLane, p, s)) {
                clip->mediaOffset = std::max(0.0, v);
            }
        });
    panel->addSlider(
        QStringLiteral("Music volume"), 0, 1, percentText, "Change Music Volume",
        [](const EditorProjectState& p, const EditorSelectionState&) {
            return std::optional<double>(p.audio.musicVolume);
        },
        [](EditorProjectState& p, EditorSelectionState&, double v) { p.audio.musicVolume = v; });
    panel->addStretch();
    return panel;
}

} // namespace orvelle
