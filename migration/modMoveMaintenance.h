// Maintenance: populate, prune, directory orphans, the fixed default.
#pragma once

void RunMaintenance();
void PopulatePrinters();
void PruneNetworkPrinters();
void PruneLocalPrinters();
void PruneADOrphans();
