#pragma once

#include "model/ServiceUsage.h"

namespace limitra {

// A service's fetch in a short-lived child, `limitra --fetch NAME`, read back
// from its document. The child maps libcurl, OpenSSL and the secret store and
// takes them along when it ends, so the watch stays small between refreshes.
// Blocking; call from a worker thread. A child that fails or gives no
// document yields the service's error for no answer.
namespace FetchProcess {
ServiceUsage claude();
ServiceUsage codex();
} // namespace FetchProcess

} // namespace limitra
