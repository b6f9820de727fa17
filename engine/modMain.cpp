#include "engine/modMain.h"

#include "config/modINIDocument.h"
#include "diagnostics/frmProgress.h"
#include "diagnostics/modDebug.h"
#include "diagnostics/modProgress.h"
#include "engine/Runtime.h"
#include "engine/modClientPrinters.h"
#include "engine/modINIFile.h"
#include "migration/modMoveADPrinters.h"
#include "notification/modEventLog.h"
#include "notification/modNotification.h"

bool AbortStatus = false;
bool OperationsSucceeded = false;

// Opening banner, the INI file, the run unless the load failed, closing
// banner and the debug file.
void Main() {
  INIDocument.DebugOn = true;
  AbortStatus = false;
  OperationsSucceeded = true;

  ClearDebug();
  WriteBanner(30, "     BEGIN DEBUG     ", 29);

  LocateINIFile();

  if (AbortStatus) {
    const std::string text =
        "Unable to get INI file contents, please check your file path and permissions.";
    Sys().ui->MessageBox(text, "Zandolin", MB_OK | MB_ICONHAND);
    WriteDebug(text);
  } else {
    StartProgress();
    RunMigration();
    FinishProgress();
  }

  WriteBanner(31, "     END DEBUG     ", 30);
  SaveDebugFile();
}

// The process lives on after Main while a form of the engine is loaded.
void RunEngineProcess() {
  Main();
  while (LoadedFormCount() > 0) Sys().ui->WaitForEvents();
}

void ResetProcessState() {
  AbortStatus = false;
  OperationsSucceeded = false;

  INIDocument = {};
  INIWriteError = false;
  INIReadError = false;
  INIFilePath.clear();

  Err.Clear();
  gOutcomeText.clear();
  gDebugBuffer.clear();
  gDefaultPrinterName.clear();

  gClientPrinters.assign(1, ClientPrinter{});
  gClientLocalPrinters.assign(1, ClientPrinter{});
  gDirectoryPrinters.assign(1, DirectoryPrinter{});

  EventStringCount = 0;
  EventSourceHandle = nullptr;
  EventMessagePointer = nullptr;
  EventMessageSize = 0;

  frmProgress = ProgressForm{};
  ClearLoadedForms();
}
