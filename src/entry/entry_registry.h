// Every exported entry by its own name, with argument kinds from its signature.
#pragma once

#include "dispatch_table.h"

namespace algofactory
{

// Entries taking typed arguments (name == entry name), sorted by name.
const std::vector<DispatchRow>& entryRegistry();
// Entries taking one JSON object text.
const std::vector<DirectNameRow>& jsonTextEntryRegistry();

} // namespace algofactory
