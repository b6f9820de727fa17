#include "notification/modNotification.h"

#include "config/modINIDocument.h"
#include "diagnostics/modDebug.h"
#include "diagnostics/modProgress.h"
#include "engine/Runtime.h"
#include "engine/modClientPrinters.h"
#include "engine/modMain.h"
#include "notification/frmWinsockContainer.h"
#include "notification/modEventLog.h"

std::string gOutcomeText;

void AppendOutcome(const std::string& line) {
  gOutcomeText += "\r\n";
  gOutcomeText += line;
}

// The computer's name from the network automation object, or "Computer
// UNKNOWN" when the object cannot be made. Faults are swallowed: a name that
// cannot be read after the object was made gives "".
std::string GetClientComputerName() {
  Err.Clear();
  Err.Take(Sys().system->CreateNetworkObject());
  std::string result;
  if (Err.Number == 0) {
    std::string name;
    Err.Take(Sys().system->NetworkComputerName(name));
    if (Err.Number == 0) result = name;
  } else {
    result = "Computer UNKNOWN";
  }
  Err.Clear();
  return result;
}

namespace {

// A modal box with OK alone and no icon; "^CRLF" stands for a line end.
void ShowClientPopup(const std::string& message) {
  Sys().ui->MessageBox(ReplaceAll(message, "^CRLF", "\r\n"), "Zandolin", MB_OK);
}

}  // namespace

// The report goes to each channel whose flag is on, in a fixed order; no
// channel depends on another.
void DispatchNotifications() {
  const INIDocumentRecord& d = INIDocument;

  if (d.UseSMTP) {
    WriteBanner(24, "     NOTFICATION VIA EMAIL    ", 24);
    UpdateProgress("Sending SMTP mail ...");
    StartSMTPSession();
  }

  if (d.UseFileOutput) {
    WriteBanner(22, "     NOTIFICATION VIA FILE OUTPUT     ", 21);
    UpdateProgress("Saving migration file ...");
    WriteNotificationFile();
  }

  if (d.UseClientPopup) {
    WriteBanner(21, "     NOTIFICATION VIA CLIENT POP-UP    ", 20);
    if (!AbortStatus && d.UseSuccessClientPopup) {
      WriteDebug(">> Showing client pop-up success message. <<");
      ShowClientPopup(d.SuccessMessage);
    } else if (AbortStatus && d.UseFailureClientPopup) {
      WriteDebug(">> Showing client pop-up failure message. <<");
      ShowClientPopup(d.FailureMessage);
    }
  }

  if (d.WriteToEventLog) {
    WriteBanner(23, "     NOTIFICATION VIA EVENT LOG    ", 22);
    UpdateProgress("Writing to event log ...");
    WriteOutcomeToEventLog();
  }
}

// The output file's name: path, computer and user, outcome, the given name.
std::string NotificationFileName() {
  const INIDocumentRecord& d = INIDocument;
  std::string fileName = d.FileOutputPath + "\\";
  if (d.IncludeComputerName) fileName += GetClientComputerName() + "_" + GetCurrentUserName() + "_";
  if (d.IncludeOutcome) fileName += AbortStatus ? "FAILED_" : "SUCCESS_";
  return fileName + d.FileOutputName;
}

// Appends the report, under a "Report At: " head, to the output file. The
// head stays in gOutcomeText for the channels that follow.
void WriteNotificationFile() {
  const std::string fileName = NotificationFileName();

  WriteDebug(">> Writing to notification output file: " + fileName);

  gOutcomeText.insert(
      0, "\r\n\r\nReport At: " + Sys().clock->GeneralDateText(Sys().clock->Now()) + "\r\n\r\n");

  Err.Clear();
  Err.Take(Sys().files->AppendText(fileName, gOutcomeText + "\r\n"));
  if (Err.Number > 0) {
    WriteDebug("ERROR: Saving notification output file <<");
    WriteDebug("ERROR: " + Str(Err.Number));
    WriteDebug("ERROR DESCRIPTION: " + Err.Description);
    Err.Clear();
  }
}

// Loads the hidden form and starts the connection; the dialogue runs in the
// form's handlers. The wait counts loaded forms: with the progress window on
// it lasts until the hidden form is unloaded, with it off it ends at once and
// the session runs on after Main.
void StartSMTPSession() {
  const INIDocumentRecord& d = INIDocument;
  WriteDebug(">> Sending nofication via STMP, server (port): " + d.SMTPServerNameOrIP + "(" +
             d.ServerPort + ")");
  LoadWinsockContainerForm();
  const platform::Failure failure =
      Sys().sockets->Connect(frmWinsockContainer.wnsMain, d.SMTPServerNameOrIP, d.ServerPort);
  if (failure.failed()) RaiseFatal(failure.Number, failure.Description);
  for (;;) {
    if (LoadedFormCount() == 1) return;
    Sys().ui->DoEvents();
  }
}

// Aborts the run and reports the pending error in the outcome text.
void ReportErrorOutcome(const std::string& Text) {
  AbortStatus = true;
  gOutcomeText += "\r\n" + Text + "\r\n> Error Number: " + Str(Err.Number) +
                  "\r\n> Error Description: " + Err.Description;
  Err.Clear();
}
