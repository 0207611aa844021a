#pragma once

#include "model/ServiceUsage.h"

#include <QByteArray>
#include <QString>

namespace limitra {

// One line of `limitra --watch`: what a status bar's custom module reads
// (waybar's "return-type": "json").
namespace StatusLine {
struct Inputs
{
    ServiceUsage claude;
    ServiceUsage codex;
    bool showClaude = true;
    bool showCodex = true;
    QString menuBarStyle;
    QString percentMode;
    double now = 0;
};

// {"text","tooltip","class","percentage"} on one line, without the newline:
// the tray's text (the lowest share when that is empty), one tooltip line per
// shown row, the band of the lowest share ("error" when every shown service
// failed) and that share as a whole number (left out while there is none).
QByteArray compose(const Inputs& in);
} // namespace StatusLine

} // namespace limitra
