#pragma once

namespace arven {

// The outcome of the silent check that the welcome page runs once per start.
struct SilentCheckResult {
  bool updates_available = false;  // a newer program or store for an installed country
};

// Runs the update check without messages. No update server is configured
// in this build, so the check behaves as for an unreachable server: nothing
// is on offer, and the welcome page then records that it has checked.
SilentCheckResult silent_update_check();

}  // namespace arven
