// The hidden form of the SMTP session: the socket wnsMain, the one-second
// timer timMain, and the dialogue with the server, driven by their events.
#pragma once

#include "platform/Platform.h"

#include <cstdint>
#include <string>

class WinsockContainerForm final : public platform::SocketEvents, public platform::TimerEvents {
 public:
  // The controls, as handles of the platform; 0 while the form is unloaded.
  int timMain = 0;
  int wnsMain = 0;

  // Reset only by the load.
  int16_t TickCount = 0;        // ticks since WaitForReply last reset it
  bool ReplyComplete = false;   // ReplyBuffer ends in a line end
  std::string ReplyBuffer;      // received and not yet taken by WaitForReply
  bool SendFailed = false;      // the session has failed: further steps are skipped

  // Waits for a line-ended reply and compares its code; always "".
  std::string WaitForReply(int16_t& expectedCode);
  // The recipients of EmailTo for the one RCPT command, joined by ";".
  std::string RecipientList();

  // Event handlers.
  void timMain_Timer();
  void wnsMain_Connect();
  void wnsMain_DataArrival(long bytesTotal);
  void wnsMain_Error(int32_t Number, const std::string& Description);

  void OnTimer() override { timMain_Timer(); }
  void OnConnect() override { wnsMain_Connect(); }
  void OnDataArrival(long bytesTotal) override { wnsMain_DataArrival(bytesTotal); }
  void OnError(int32_t number, const std::string& description) override {
    wnsMain_Error(number, description);
  }
};

// The one instance. It outlives its unloading, so that a handler that
// unloads it can run on to its end; the unload only releases the socket and
// the timer.
extern WinsockContainerForm frmWinsockContainer;

// Loads the form when it is not loaded: fields reset, socket made, timer
// started.
void LoadWinsockContainerForm();
void UnloadWinsockContainerForm();
