#pragma once

// The editor's look: one dark theme (palette, style sheet, the interface font) and the
// colours that carry meaning, such as each lane's. Applied once to the application.

#include "editor/timeline_lane_policy.h"

#include <QColor>
#include <QFont>

class QApplication;

namespace orvelle::Theme {

void apply(QApplication& application);

QColor windowBackground(); // behind everything
QColor panelBackground();  // inspector, timeline
QColor raisedBackground(); // controls, clips
QColor separator();
QColor text();
QColor secondaryText();
QColor tertiaryText();
QColor accent();
QColor accentText(); // text on the accent colour
QColor destructive();
QColor playhead();
QColor videoClip();
QColor laneColor(AuxiliaryTimelineTrack track);
QColor waveform();

// Sizes of the layout grid.
inline constexpr int kSpacing = 8;
inline constexpr int kPanelMargin = 16;
inline constexpr int kCornerRadius = 6;

QFont interfaceFont(double pointSize = 10, int weight = 400);
QFont monospacedDigitsFont(double pointSize = 10);

} // namespace orvelle::Theme
