// Compiled against the engine's include root: a header of a layer below.
#include "core/grid_table.h"

int main() { return arven::GridTable(1).cols() == 1 ? 0 : 1; }
