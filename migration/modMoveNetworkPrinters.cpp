#include "migration/modMoveNetworkPrinters.h"

// Placeholder bodies until manual migration lands.
void MoveManualPrinters() {}
void MovePrinterToPrinter() {}
void MoveServerToServer() {}
void MoveMixed() {}
