#include "settings/update_check.h"

namespace arven {

SilentCheckResult silent_update_check() { return {}; }

}  // namespace arven
