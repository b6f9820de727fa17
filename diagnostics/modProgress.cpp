#include "diagnostics/modProgress.h"

#include "config/modINIDocument.h"
#include "diagnostics/frmProgress.h"
#include "engine/Runtime.h"

// Touching the form loads it, as a reference to an unloaded form does.

void StartProgress() {
  if (!INIDocument.ShowProgress) return;
  LoadProgressForm();
  frmProgress.Label = "Zandolin starting ...";
  Sys().ui->SetProgressLabel(frmProgress.Label);
  frmProgress.Max = 100;
  frmProgress.Value = 1;
  Sys().ui->SetProgressBar(frmProgress.Max, frmProgress.Value);
  Sys().ui->DoEvents();
  Sys().clock->Sleep(250);
  Sys().ui->ShowProgressWindow();
}

void ShowStatementAndStep(const std::string& text) {
  LoadProgressForm();
  Sys().ui->RedrawProgressWindow();
  if (!text.empty()) {
    frmProgress.Label = text;
    Sys().ui->SetProgressLabel(frmProgress.Label);
  }
  frmProgress.Value = NextProgressValue(frmProgress.Value);
  Sys().ui->MoveProgressBar(frmProgress.Value);
  Sys().ui->DoEvents();
}

void FinishProgress() {
  if (!INIDocument.ShowProgress) return;
  LoadProgressForm();
  Sys().ui->RedrawProgressWindow();
  frmProgress.Label = "Zandolin finished ...";
  Sys().ui->SetProgressLabel(frmProgress.Label);
  frmProgress.Value = 100;
  Sys().ui->SetProgressBar(frmProgress.Max, frmProgress.Value);
  Sys().ui->DoEvents();
  Sys().clock->Sleep(2000);
  UnloadProgressForm();
}
