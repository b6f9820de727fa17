#include "migration/modMoveADPrinters.h"

std::vector<DirectoryPrinter> gDirectoryPrinters(1);

// Placeholder bodies until directory-driven migration lands.
void GetADPrinters() {}
void MoveADPrinters() {}
void MigrateADPrinters() {}
