// What really happened: the engine's output files gathered in a folder (a
// share), read back run by run and client by client.
#pragma once

#include "app/zandolin-fleet/Report.h"

#include <filesystem>

namespace fleet {

// Reads every file below folder. A file that is no output file of the
// engine is skipped and counted; a line the reader does not know is kept
// with its client.
Report Collect(const std::filesystem::path& folder);

}  // namespace fleet
