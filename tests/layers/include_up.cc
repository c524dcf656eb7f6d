// Compiled against the engine's include root: a header of a layer above,
// which the engine must not see.
#include "reports/list_sorting.h"

int main() { return 0; }
