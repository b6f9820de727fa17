#include "diagnostics/frmProgress.h"

#include "engine/Runtime.h"

ProgressForm frmProgress;

// Loading makes the window hidden, with the design values of its label and
// bar; it is shown only by StartProgress.
void LoadProgressForm() {
  if (frmProgress.Loaded) return;
  frmProgress = ProgressForm{};
  frmProgress.Window = Sys().ui->CreateProgressWindow();
  frmProgress.Label = "Progress statements ...";
  frmProgress.Max = 100;
  frmProgress.Value = 0;
  frmProgress.Loaded = true;
  FormLoaded(&frmProgress);
}

void UnloadProgressForm() {
  if (!frmProgress.Loaded) return;
  Sys().ui->DestroyProgressWindow();
  frmProgress = ProgressForm{};
  FormUnloaded(&frmProgress);
}

HWND ProgressWindowHandle() {
  LoadProgressForm();
  return frmProgress.Window;
}
