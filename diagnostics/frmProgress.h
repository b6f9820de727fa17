// The progress window: a label and a bar, loaded or not.
#pragma once

#include "platform/Win32Types.h"

#include <string>

struct ProgressForm {
  bool Loaded = false;
  HWND Window = nullptr;
  std::string Label;   // lblProgress
  int Max = 100;       // prbProgress
  int Value = 0;
};

extern ProgressForm frmProgress;

// Loads the form, hidden, when it is not loaded yet.
void LoadProgressForm();
void UnloadProgressForm();
// The window's handle; loads the form, hidden, when it is not loaded.
HWND ProgressWindowHandle();
