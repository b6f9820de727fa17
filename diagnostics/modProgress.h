// The progress window: one statement at a time, and a bar that moves.
#pragma once

#include <string>

void StartProgress();
void UpdateProgress(const std::string& text);
void FinishProgress();
