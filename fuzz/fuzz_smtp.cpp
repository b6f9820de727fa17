// The SMTP session: a peer of this target's own answers the engine with any
// replies, in any pieces, at any time, and may fail the connection or close
// it. The session must end as its failure table says: the message sent and
// QUIT, or the failure branch with its back-up file, or no mail after no
// connection within 30 ticks; or the process is reported stuck (an error
// event, or no reply within 30 ticks, leaves a wait that cannot end); or
// the run-time error of a send on a socket closed under a step that goes on.
//
// The input: the first byte says how the connection goes (0: at once,
// 1: an error event before it, 2: never, 3: after byte/4 pump rounds);
// then steps, one a pump round: 0x00-0x3F a piece of data of (step & 0x3F) + 1
// bytes that follow, 0x40-0x7F (step & 0x3F) + 1 rounds of nothing, 0x80-0xBF
// an error event, 0xC0-0xFF the peer closes.
#include "FuzzClient.h"

#include "config/modINIDocument.h"
#include "diagnostics/modDebug.h"
#include "engine/Runtime.h"
#include "notification/modNotification.h"

#include <deque>

namespace {

struct Step {
  enum Kind { kData, kNothing, kError, kClose } kind;
  std::string data;
};

// The socket layer of the target: one socket, its peer played from the
// script.
class ScriptedSockets : public platform::Sockets {
 public:
  void Start(std::deque<Step> script, int connectAfter, bool errorFirst) {
    script_ = std::move(script);
    connectAfter_ = connectAfter;
    errorFirst_ = errorFirst;
    owner_ = nullptr;
    state_ = platform::kSocketClosed;
    sent_.clear();
    inbox_.clear();
  }

  // One pump round of the peer; true when an event was delivered.
  bool Pump() {
    if (!owner_ || state_ == platform::kSocketClosed) return false;
    if (state_ == platform::kSocketConnecting) {
      if (errorFirst_) {
        state_ = platform::kSocketError;
        owner_->OnError(10061, "Connection is forcefully rejected");
        return true;
      }
      if (connectAfter_ < 0 || connectAfter_-- > 0) return false;
      state_ = platform::kSocketConnected;
      owner_->OnConnect();
      return true;
    }
    if (state_ != platform::kSocketConnected || script_.empty()) return false;
    Step step = std::move(script_.front());
    script_.pop_front();
    switch (step.kind) {
      case Step::kData:
        inbox_ += step.data;
        owner_->OnDataArrival(static_cast<long>(step.data.size()));
        return true;
      case Step::kNothing: return false;
      case Step::kError:
        state_ = platform::kSocketError;
        owner_->OnError(10054, "The connection is reset by remote side");
        return true;
      case Step::kClose: state_ = platform::kSocketClosing; return true;
    }
    return false;
  }

  const std::string& sent() const { return sent_; }
  bool Open() const { return state_ == platform::kSocketConnected || state_ == platform::kSocketClosing; }

  int CreateSocket(platform::SocketEvents* owner) override {
    owner_ = owner;
    return 1;
  }
  void DestroySocket(int) override { owner_ = nullptr; }
  platform::Failure Connect(int, const std::string&, const std::string&) override {
    state_ = platform::kSocketConnecting;
    return {};
  }
  // As the simulated socket: a connection the peer is closing still takes
  // data; a closed one refuses it.
  platform::Failure SendData(int, const std::string& data) override {
    if (!Open())
      return {40006, "Wrong protocol or connection state for the requested transaction or request"};
    sent_ += data;
    return {};
  }
  std::string GetData(int) override { return std::exchange(inbox_, std::string()); }
  void Close(int) override { state_ = platform::kSocketClosed; }
  int State(int) override { return state_; }
  std::string LocalHostName() override { return "PC042"; }

 private:
  std::deque<Step> script_;
  int connectAfter_ = 0;
  bool errorFirst_ = false;
  platform::SocketEvents* owner_ = nullptr;
  int state_ = platform::kSocketClosed;
  std::string sent_, inbox_;
};

// The simulated client's pump, with the scripted peer's events in each
// round. An event counts as something the engine did, so that the pump
// neither sleeps nor finds the process stuck while the peer still speaks.
class ScriptedUserInterface : public platform::UserInterface {
 public:
  ScriptedUserInterface(platform::UserInterface& inner, ScriptedSockets& sockets) : inner_(inner), sockets_(sockets) {}
  int MessageBox(const std::string& t, const std::string& c, UINT s) override { return inner_.MessageBox(t, c, s); }
  void DoEvents() override {
    if (sockets_.Pump()) ++sim::Current().boundaryCalls;
    inner_.DoEvents();
  }
  void WaitForEvents() override {
    if (sockets_.Pump()) ++sim::Current().boundaryCalls;
    inner_.DoEvents();
  }
  int CreateTimer(platform::TimerEvents* o, DWORD i, bool e) override { return inner_.CreateTimer(o, i, e); }
  void EnableTimer(int t, bool e) override { inner_.EnableTimer(t, e); }
  void DestroyTimer(int t) override { inner_.DestroyTimer(t); }
  HWND CreateProgressWindow() override { return inner_.CreateProgressWindow(); }
  void ShowProgressWindow() override { inner_.ShowProgressWindow(); }
  void SetProgressLabel(const std::string& t) override { inner_.SetProgressLabel(t); }
  void SetProgressBar(int m, int v) override { inner_.SetProgressBar(m, v); }
  void MoveProgressBar(int v) override { inner_.MoveProgressBar(v); }
  void RedrawProgressWindow() override { inner_.RedrawProgressWindow(); }
  void DestroyProgressWindow() override { inner_.DestroyProgressWindow(); }

 private:
  platform::UserInterface& inner_;
  ScriptedSockets& sockets_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Ticks take no wall-clock time: 30 of them pass in 30 rounds.
  static fuzz::Client client("fuzz-smtp", R"({"timerIntervalMs": 0, "clock": "2026-03-01T08:00:00"})");
  static ScriptedSockets sockets;
  if (size == 0) return 0;

  std::deque<Step> script;
  for (size_t i = 1; i < size;) {
    const uint8_t step = data[i++];
    if (step < 0x40) {
      const size_t length = std::min<size_t>((step & 0x3F) + 1u, size - i);
      script.push_back({Step::kData, std::string(reinterpret_cast<const char*>(data + i), length)});
      i += length;
    } else if (step < 0x80) {
      for (int k = 0; k <= (step & 0x3F); ++k) script.push_back({Step::kNothing, {}});
    } else {
      script.push_back({step < 0xC0 ? Step::kError : Step::kClose, {}});
    }
  }
  const int how = data[0] & 3;
  sockets.Start(std::move(script), how == 2 ? -1 : how == 3 ? data[0] >> 2 : 0, how == 1);

  client.Install();
  sim::Current().stuckAtOnce = true;
  platform::ServiceSet services = platform::Services();
  static ScriptedUserInterface ui(*services.ui, sockets);
  services.sockets = &sockets;
  services.ui = &ui;
  platform::SetServices(services);

  INIDocument.DebugOn = true;
  INIDocument.SMTPServerNameOrIP = "mail.corp.example.com";
  INIDocument.ServerPort = "25";
  INIDocument.EmailFrom = "zandolin@corp.example.com";
  INIDocument.EmailSubject = "Printer migration";
  INIDocument.EmailTo = {"helpdesk@corp.example.com", ""};
  gOutcomeText = "\r\nMigrating: \\\\OLD\\laser to \\\\NEW\\laser";
  bool stuck = false;
  try {
    StartSMTPSession();
    while (LoadedFormCount() > 0) Sys().ui->WaitForEvents();
  } catch (const sim::StuckError&) {
    stuck = true;
  } catch (const FatalError& e) {
    // The socket was closed under a step that goes on: by an error event
    // while the message went out, or by the 30th tick in the very round its
    // reply came. The next send is refused, and nothing traps that.
    fuzz::Require(e.Number == 40006 && !sockets.Open(), "only a send on a closed socket ends the process");
    return 0;
  }

  const bool quit = sockets.sent().size() >= 4 && sockets.sent().compare(sockets.sent().size() - 4, 4, "QUIT") == 0;
  const bool failed = gDebugBuffer.find("ERROR: Sending SMTP email <<\r\n") != std::string::npos;
  bool backUp = false;
  for (const std::string& written : sim::Current().filesWritten)
    backUp = backUp || written.find("_EmailFailure.txt") != std::string::npos;
  fuzz::Require(!(quit && failed), "a session that sent QUIT did not fail");
  fuzz::Require(!quit || !stuck, "a session that sent QUIT ends");
  fuzz::Require(!failed || !stuck, "a refused step ends the session");
  fuzz::Require(failed == backUp || gDebugBuffer.find("ERROR: Saving email failure file <<") != std::string::npos,
                "a refused step writes the back-up file");
  fuzz::Require(quit || failed || stuck || sockets.sent().empty(),
                "a session ends with QUIT, with its failure branch, or stuck, unless no connection came");
  fuzz::Require(how != 1 || stuck, "an error event before the connection leaves the process stuck");
  fuzz::Require(how != 2 || (!stuck && sockets.sent().empty()), "no connection: no mail, and the session ends");
  return 0;
}
