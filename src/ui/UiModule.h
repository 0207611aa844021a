#pragma once

class QQmlEngine;

namespace limitra::UiModule {

// Makes the Limitra.Panel module (the panel's components, Theme, PanelFormat,
// the record types) and the tinted icons available to an engine. Call once per
// engine before loading any of the module's components.
void prepare(QQmlEngine& engine);

} // namespace limitra::UiModule
