#include "engine/modINIFile.h"

#include "config/modINIDocument.h"
#include "diagnostics/modDebug.h"
#include "engine/Runtime.h"

std::string INIFilePath;

// The INI file is the one path of the command line, quotes removed, or else
// the first *.ini beside the executable. The path is kept as given: it is
// also the key of the run status.
void LocateINIFile() {
  const std::string commandLine = Sys().system->CommandLine();

  WriteBanner(24, "     COMMAND LINE PARAMETERS    ", 23);
  WriteDebug(">> Command line parameter: " + commandLine);

  if (!commandLine.empty()) {
    INIFilePath = ReplaceAll(commandLine, "\"", "");
    WriteDebug(">> Opening INI File: " + INIFilePath);
    LoadINIDocument();
    return;
  }

  const std::string appPath = Sys().system->AppPath();
  const std::string found = Sys().files->FirstFile(appPath + "\\*.ini");
  WriteDebug(">> First found INI file : " + found);
  if (!found.empty()) {
    INIFilePath = appPath + "\\" + found;
    WriteDebug(">> Opening INI File: " + INIFilePath);
    LoadINIDocument();
  } else {
    Sys().ui->MessageBox("Unable to find INI file. Please check your deployment and try again.",
                         "Error", MB_OK | MB_ICONHAND);
    WriteDebug("ERROR: Unable to find an INI File.");
  }
}
