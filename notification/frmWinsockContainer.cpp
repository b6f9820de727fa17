#include "notification/frmWinsockContainer.h"

#include "config/modINIDocument.h"
#include "diagnostics/modDebug.h"
#include "engine/Runtime.h"
#include "engine/modClientPrinters.h"
#include "notification/modNotification.h"

#include <cstdio>

WinsockContainerForm frmWinsockContainer;

namespace {

constexpr DWORD kTimerInterval = 1000;
constexpr int16_t kTicksToGiveUp = 30;

// The controls of an unloaded form are gone: the socket reads as closed and
// the calls on them do nothing.
int SocketState() {
  if (frmWinsockContainer.wnsMain == 0) return platform::kSocketClosed;
  return Sys().sockets->State(frmWinsockContainer.wnsMain);
}

void CloseSocket() {
  if (frmWinsockContainer.wnsMain != 0) Sys().sockets->Close(frmWinsockContainer.wnsMain);
}

void EnableTimer(bool enabled) {
  if (frmWinsockContainer.timMain != 0) Sys().ui->EnableTimer(frmWinsockContainer.timMain, enabled);
}

// Sends text and pumps events once; a refused send is a failure nothing
// traps.
void SendAndPump(const std::string& text) {
  if (frmWinsockContainer.wnsMain == 0) RaiseFatal(40006,
      "Wrong protocol or connection state for the requested transaction or request");
  const platform::Failure failure = Sys().sockets->SendData(frmWinsockContainer.wnsMain, text);
  if (failure.failed()) RaiseFatal(failure.Number, failure.Description);
  Sys().ui->DoEvents();
}

// The head of the message; the subject line is given.
std::string MessageHead(const std::string& subjectLine) {
  const INIDocumentRecord& d = INIDocument;
  return "From: <" + d.EmailFrom + ">\r\n" + "To: " + frmWinsockContainer.RecipientList() + "\r\n" +
         subjectLine + "\r\n" + "X-Mailer: Zandolin\r\n" + "Mime-Version: 1.0\r\n" +
         "Content-Type: text/charset=us-ascii\r\n" + "\r\n";
}

// "<app path>\<computer>_mm.dd.yyyy_hh.nn.ss_EmailFailure.txt", from the
// clock as it reads now.
std::string BackupFileName() {
  const platform::LocalTime t = Sys().clock->Now();
  char stamp[64];
  std::snprintf(stamp, sizeof stamp, "%02d.%02d.%04d_%02d.%02d.%02d", t.Month, t.Day, t.Year, t.Hour,
                t.Minute, t.Second);
  return Sys().system->AppPath() + "\\" + GetClientComputerName() + "_" + stamp +
         "_EmailFailure.txt";
}

}  // namespace

void LoadWinsockContainerForm() {
  if (IsFormLoaded(&frmWinsockContainer)) return;
  WinsockContainerForm& f = frmWinsockContainer;
  f.TickCount = 0;
  f.ReplyComplete = false;
  f.ReplyBuffer.clear();
  f.SendFailed = false;
  f.wnsMain = Sys().sockets->CreateSocket(&f);
  // timMain is enabled from design: it ticks from the load on.
  f.timMain = Sys().ui->CreateTimer(&f, kTimerInterval, true);
  FormLoaded(&f);
}

void UnloadWinsockContainerForm() {
  if (!IsFormLoaded(&frmWinsockContainer)) return;
  WinsockContainerForm& f = frmWinsockContainer;
  if (f.timMain != 0) Sys().ui->DestroyTimer(f.timMain);
  if (f.wnsMain != 0) Sys().sockets->DestroySocket(f.wnsMain);
  f.timMain = 0;
  f.wnsMain = 0;
  FormUnloaded(&f);
}

// Thirty ticks without a reset give up: from the load to the Connect event,
// and for each reply after it.
void WinsockContainerForm::timMain_Timer() {
  TickCount = CInt(TickCount + 1.0);
  if (TickCount == kTicksToGiveUp) {
    CloseSocket();
    EnableTimer(false);
    UnloadWinsockContainerForm();
  }
}

void WinsockContainerForm::wnsMain_DataArrival(long bytesTotal) {
  const std::string data = wnsMain != 0 ? Sys().sockets->GetData(wnsMain) : std::string();
  ReplyBuffer += data;
  if (ReplyBuffer.size() >= 2 && ReplyBuffer.compare(ReplyBuffer.size() - 2, 2, "\r\n") == 0)
    ReplyComplete = true;
}

// Stops the timer and closes the socket, and nothing more: a wait for a
// reply goes on.
void WinsockContainerForm::wnsMain_Error(int32_t Number, const std::string& Description) {
  EnableTimer(false);
  CloseSocket();
}

// Only a line-ended reply ends the wait. Only the code in front of the
// reply's first blank counts.
std::string WinsockContainerForm::WaitForReply(int16_t& expectedCode) {
  TickCount = 0;
  EnableTimer(true);
  while (!ReplyComplete) {
    if (SocketState() == platform::kSocketClosed) SendFailed = true;
    Sys().ui->DoEvents();
  }
  EnableTimer(false);

  const std::string reply = ReplyBuffer;
  ReplyBuffer.clear();
  ReplyComplete = false;

  const std::vector<std::string> pieces = Split(reply, " ");
  if (pieces.empty()) RaiseFatal(kErrSubscriptOutOfRange);
  if (Val(pieces[0]) != expectedCode) {
    CloseSocket();
    SendFailed = true;
  }
  return "";
}

// Slots 0 to the upper bound less one; the last slot is left out.
std::string WinsockContainerForm::RecipientList() {
  const std::vector<std::string>& to = INIDocument.EmailTo;
  std::string list;
  for (int16_t i = 0; i <= CInt(UBound(to) - 1.0); ++i) {
    if (to[i].empty()) continue;
    if (list.empty())
      list = to[i];
    else
      list += ";" + to[i];
  }
  return list;
}

// The whole dialogue, step by step, each step only while nothing has
// failed; a refused step saves the message beside the executable.
void WinsockContainerForm::wnsMain_Connect() {
  const INIDocumentRecord& d = INIDocument;
  int16_t code = 0;

  if (!SendFailed) {
    WriteDebug(">> Connected to SMTP Server << ");
    code = 220;
    WaitForReply(code);
  }

  if (!SendFailed) {
    const std::string hello = "HELO " + Sys().sockets->LocalHostName();
    WriteDebug(">> Sending HELLO: " + hello);
    SendAndPump(hello + "\r\n");
    code = 250;
    WaitForReply(code);
  }

  if (!SendFailed) {
    const std::string from = "MAIL FROM:<" + d.EmailFrom + ">";
    WriteDebug(">> Sending FROM list: " + from);
    SendAndPump(from + "\r\n");
    code = 250;
    WaitForReply(code);
  }

  if (!SendFailed) {
    const std::string to = "RCPT TO:<" + RecipientList() + ">";
    WriteDebug(">> Sending TO list: " + to);
    SendAndPump(to + "\r\n");
    code = 250;
    WaitForReply(code);
  }

  if (!SendFailed) {
    WriteDebug(">> Sending DATA start <<");
    SendAndPump("DATA\r\n");
    code = 354;
    WaitForReply(code);
  }

  if (!SendFailed) {
    const std::string subject = "Subject: Computer (" + GetClientComputerName() + "-" +
                                GetCurrentUserName() + ") " + d.EmailSubject;
    WriteDebug(">> Sending DATA: " + MessageHead("Subject: " + d.EmailSubject) + gOutcomeText);
    SendAndPump(MessageHead(subject) + gOutcomeText);
    SendAndPump("\r\n.\r\n");
    code = 250;
    WaitForReply(code);
  }

  if (!SendFailed) {
    WriteDebug(">> Sending QUIT <<");
    SendAndPump("QUIT");
    CloseSocket();
  }

  if (SendFailed) {
    WriteDebug("ERROR: Sending SMTP email <<");
    WriteDebug("ERROR: " + Str(Err.Number));
    WriteDebug("ERROR DESCRIPTION: " + Err.Description);
    Err.Clear();
    WriteDebug(">> Writing to back-up file: " + BackupFileName());
    Err.Take(Sys().files->AppendText(BackupFileName(), gOutcomeText + "\r\n"));
    if (Err.Number > 0) {
      WriteDebug("ERROR: Saving email failure file <<");
      WriteDebug("ERROR: " + Str(Err.Number));
      WriteDebug("ERROR DESCRIPTION: " + Err.Description);
      Err.Clear();
    }
  }

  UnloadWinsockContainerForm();
}
