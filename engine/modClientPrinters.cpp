#include "engine/modClientPrinters.h"

#include "config/modINIDocument.h"
#include "diagnostics/modDebug.h"
#include "diagnostics/modProgress.h"
#include "engine/Runtime.h"
#include "engine/modINIFile.h"
#include "engine/modMain.h"
#include "migration/modMoveADPrinters.h"
#include "migration/modMoveNetworkPrinters.h"
#include "notification/modNotification.h"
#include "printers/modPrinterAPIs.h"

std::vector<ClientPrinter> gClientPrinters(1);
std::vector<ClientPrinter> gClientLocalPrinters(1);
std::string gDefaultPrinterName;

// The phases of a run after the load, or, when this INI file has already
// succeeded for this user, only the notification of that.
void RunMigration() {
  if (ReadRunStatus() && !INIDocument.AlwaysRun) {
    WriteDebug(">> This INI file has already successed on this machine.");
    AppendOutcome("This INI file has already succeeded on this machine.");
    AppendOutcome(
        "If you would like to run this INI file again, please save it as a different name or ");
    AppendOutcome("please select the Always Run feature on the General step.");
  } else {
    WriteDebug(std::string(">> Running Zandolin, abort status: ") + BoolText(AbortStatus));
    WriteBanner(28, "     NETWORK PRINTERS    ", 27);
    UpdateProgress("Getting current list of client printers ...");
    GetClientPrinters(true);
    WriteDebug(std::string(">> Finished getting network printers, abort status: ") +
               BoolText(AbortStatus));
    // The closing texts go with AbortStatus the other way about: "Completed"
    // with an aborted run, "Error" with one that goes well.
    UpdateProgress(AbortStatus ? "Completed getting list of client printers ..."
                               : "Error getting list of client printers ...");
    UpdateProgress("Getting current default printer ...");
    gDefaultPrinterName = GetClientDefaultPrinter();
    UpdateProgress("Finished getting current default printer ...");

    if (!AbortStatus) {
      if (INIDocument.UseActiveDirectory) {
        WriteBanner(28, "     MOVING USING AD    ", 27);
        UpdateProgress("Initializing migration via Active Directory ...");
        MoveADPrinters();
        UpdateProgress(AbortStatus ? "Completed migration via Active Directory ..."
                                   : "Error migrating via Active Directory ...");
        WriteDebug(std::string(">> Finished moving via AD, abort status: ") +
                   BoolText(AbortStatus));
      }
      if (!AbortStatus && INIDocument.UseManualDefinitions) {
        UpdateProgress("Initializing migration via Manual Configuration ...");
        MoveManualPrinters();
        UpdateProgress(AbortStatus ? "Completed migration via Manual Configuration ..."
                                   : "Error migrating via Manual Configuration ...");
        WriteDebug(std::string(">> Finished moving manual, abort status: ") +
                   BoolText(AbortStatus));
      }
    }

    UpdateProgress("Saving Zandolin status ...");
    WriteRunStatus();
  }

  UpdateProgress("Initializing notification methods ...");
  DispatchNotifications();
  WriteDebug(std::string(">> Finished notification, abort status: ") + BoolText(AbortStatus));
}

namespace {

const char* const kStatusFileName = "\\Zandolin_status.log";

// Windows 2000 and later keep the run status in a file in the profile; the
// 9x family, NT 4 and a failed version query use the registry.
bool UseStatusFile() {
  OSVERSIONINFOA info{};
  info.dwOSVersionInfoSize = 148;
  Sys().system->GetVersionExA(&info);
  if (Sys().system->GetLastError() != 0) return false;
  if (info.dwPlatformId != VER_PLATFORM_WIN32_NT || info.dwMajorVersion < 5) return false;
  return true;
}

// The current user's profile folder. Neither call's result is looked at.
std::string ProfileFolder() {
  std::string buffer(255, '\0');
  HANDLE token = nullptr;
  Sys().system->OpenProcessToken(Sys().system->GetCurrentProcess(), TOKEN_QUERY, &token);
  DWORD size = 255;
  Sys().system->GetUserProfileDirectoryA(token, buffer.data(), &size);
  return TrimAtNul(buffer);
}

std::string StatusFilePath() { return ProfileFolder() + kStatusFileName; }

std::string RegistrySection() { return INIFilePath + "\\" + GetCurrentUserName(); }

// The lines of a text file as they are read one by one: a line ends at CR LF
// or at a CR alone, and the last one may have no end.
std::vector<std::string> TextLines(const std::string& content) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < content.size()) {
    const size_t cr = content.find('\r', start);
    if (cr == std::string::npos) {
      lines.push_back(content.substr(start));
      break;
    }
    lines.push_back(content.substr(start, cr - start));
    start = cr + 1;
    if (start < content.size() && content[start] == '\n') ++start;
  }
  return lines;
}

}  // namespace

// True when the store says that this INI file has succeeded for this user.
bool ReadRunStatus() {
  if (!UseStatusFile()) {
    bool result = false;
    if (!INIFilePath.empty()) {
      result = CBool(Sys().registry->GetSetting("Zandolin", RegistrySection(), "SUCCESS", "False"));
    }
    WriteDebug(">> Getting Registry key: " + RegistrySection());
    WriteDebug(std::string(">> Registry Key Value: ") + BoolText(result));
    return result;
  }

  // Reading the status file runs with failures trapped: a file that cannot
  // be read counts as no success.
  bool result = false;
  bool found = false;
  Err.Clear();
  std::string content;
  Err.Take(Sys().files->ReadText(StatusFilePath(), content));
  if (Err.Number == 0) {
    for (const std::string& line : TextLines(content)) {
      if (line.empty()) continue;
      const std::vector<std::string> fields = Split(line, ",");
      if (fields[0] == INIFilePath) {
        found = true;
        result = fields.size() > 1 && fields[1] == "True";
      }
    }
  }
  if (!found) result = false;
  Err.Clear();
  return result;
}

// Records whether this run succeeded: no abort and no failed printer
// operation.
void WriteRunStatus() {
  if (INIFilePath.empty()) return;
  const bool outcome = !AbortStatus && OperationsSucceeded;

  if (!UseStatusFile()) {
    const platform::Failure failure =
        Sys().registry->SaveSetting("Zandolin", RegistrySection(), "SUCCESS", BoolText(outcome));
    if (failure.failed()) RaiseFatal(failure.Number, failure.Description);
    return;
  }

  const std::string path = StatusFilePath();

  // The old records are read with failures trapped. Only the first two
  // fields of a line survive; a line without a comma is dropped.
  std::string text;
  bool found = false;
  Err.Clear();
  std::string content;
  Err.Take(Sys().files->ReadText(path, content));
  if (Err.Number == 0) {
    for (const std::string& line : TextLines(content)) {
      if (line.empty()) continue;
      const std::vector<std::string> fields = Split(line, ",");
      if (fields[0] != INIFilePath) {
        if (fields.size() > 1) text += fields[0] + "," + fields[1] + "\r\n";
      } else {
        found = true;
        text += INIFilePath + (outcome ? ",True" : ",False") + "\r\n";
      }
    }
  }
  Err.Clear();

  // These writes are not trapped: a failure ends the process. Printing the
  // text adds one more line end, so a rewritten file ends in a blank line.
  const platform::Failure failure =
      found ? Sys().files->ReplaceText(path, text + "\r\n")
            : Sys().files->AppendText(path, INIFilePath + "," + BoolText(outcome) + "\r\n");
  if (failure.failed()) RaiseFatal(failure.Number, failure.Description);
}

std::string TrimAtNul(std::string& text) { return CutAtNul(text); }

// The logged-on user, or "" when the name cannot be had. The temporary
// folder is asked for and not used.
std::string GetCurrentUserName() {
  std::string tempPath(100, '\0');
  Sys().system->GetTempPathA(100, tempPath.data());
  tempPath = TrimAtNul(tempPath);

  std::string buffer(100, '\0');
  DWORD size = 100;
  Sys().system->GetUserNameA(buffer.data(), &size);
  return TrimAtNul(buffer);
}
