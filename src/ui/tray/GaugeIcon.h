#pragma once

#include "ui/tray/SniTypes.h"

#include <QImage>
#include <QString>

#include <optional>

namespace limitra {

class UsageStore;

// The tray's gauge: its needle shows the lowest left percentage of the shown
// services in steps of 10, and its dial is solid up to the needle and faint
// beyond, so the icon alone tells where the user stands on hosts that draw no
// label, even at 16 px.
namespace GaugeIcon {
inline constexpr int kNoData = -1;

// 0, 10, ... 100 for a left percentage (halves round up); kNoData for nothing.
int step(std::optional<double> worstLeft);
// The step the store's records and the shown services give.
int stepOf(const UsageStore& store);
// The symbolic icon name, e.g. "limitra-gauge-40-symbolic".
QString name(int step);
// The SVG as installed, with its colour left to the host's stylesheet.
QByteArray svg(int step);
// Drawn light with a dark rim, legible on light and dark panels alike: the
// solid part of the dial reads light, the faint part dark.
QImage image(int step, int size);
// The pixmaps hosts that ignore names use: 16, 22, 32 and 48 px.
SniPixmaps pixmaps(int step);
// A folder holding hicolor/symbolic/apps with every gauge: the installed one
// when the binary runs from an installation, else one written under the
// user's runtime folder. Empty when none could be written.
QString themePath();
} // namespace GaugeIcon

} // namespace limitra
