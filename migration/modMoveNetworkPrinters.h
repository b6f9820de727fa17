// Manual migration: printer to printer, server to server, mixed.
#pragma once

void MoveManualPrinters();
void MovePrinterToPrinter();
void MoveServerToServer();
void MoveMixed();
