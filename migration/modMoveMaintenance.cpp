#include "migration/modMoveMaintenance.h"

// Placeholder bodies until maintenance lands.
void RunMaintenance() {}
void PopulatePrinters() {}
void PruneNetworkPrinters() {}
void PruneLocalPrinters() {}
void PruneADOrphans() {}
