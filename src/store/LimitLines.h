#pragma once

#include "model/PercentMode.h"
#include "model/ServiceUsage.h"

#include <QString>
#include <QStringList>

namespace limitra::LimitLines {

// What stands before the percentage and before the countdown of a row's line.
struct Style
{
    QString beforePercent;
    QString beforeCountdown;
};

// The tray menu's style: "Claude Code · Sesión de 5 h — 63 % restante · 2h 5m".
Style menu();
// A status bar's tooltip: "Claude Code · Sesión de 5 h · 63 % restante · Se reinicia en 2h 5m".
Style tooltip();

// One line per limit row of the service named `name` (the countdown only for
// rows with a reset time), its error text in place of its rows, or "Cargando…"
// while it has neither.
QStringList of(
    const QString& name, const ServiceUsage& usage, const PercentMode& mode, double now, const Style& style);

} // namespace limitra::LimitLines
