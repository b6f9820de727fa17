// Finding the INI file a run obeys.
#pragma once

#include <string>

// The INI file in force, exactly as chosen; also the key of the run status.
extern std::string INIFilePath;

void LocateINIFile();
