// The sockets of the simulated client: a refused connection on the network,
// and the SMTP peer played inside the simulator: what it answers, when the
// answers arrive, and what the transcript keeps. The engine's session on
// real sockets is tested in frmWinsockContainerTest.cpp against real peers.
#include "SimFixture.h"

#include "engine/Runtime.h"
#include "platform/sim/SimContext.h"
#include "tests/servers/smtp/SmtpPeer.h"

namespace {

using nlohmann::json;

struct Recorder : platform::SocketEvents {
  std::vector<std::string> events;
  void OnConnect() override { events.push_back("connect"); }
  void OnDataArrival(long bytesTotal) override { events.push_back("data " + std::to_string(bytesTotal)); }
  void OnError(int32_t number, const std::string& description) override {
    events.push_back("error " + std::to_string(number) + " " + description);
  }
};

class SimSocketsTest : public SimFixture {
 protected:
  // Installs the client with the peer and connects one socket to it.
  void ConnectTo(const json& peer, const std::string& port = "25") {
    machine["smtp"] = peer;
    Install();
    socket = Sys().sockets->CreateSocket(&recorder);
    ASSERT_FALSE(Sys().sockets->Connect(socket, "mail.example.com", port).failed());
  }

  // Pumps once and gives what arrived since the last take.
  std::string Take() {
    Sys().ui->DoEvents();
    return Sys().sockets->GetData(socket);
  }

  std::string Send(const std::string& text) {
    EXPECT_FALSE(Sys().sockets->SendData(socket, text).failed());
    return Take();
  }

  Recorder recorder;
  int socket = 0;
};

TEST_F(SimSocketsTest, Network_NoPeerListens_ConnectionIsRefusedInsideThePump) {
  Install();
  socket = Sys().sockets->CreateSocket(&recorder);
  const std::string port = smtppeer::ClosedPort();
  EXPECT_FALSE(Sys().sockets->Connect(socket, "127.0.0.1", port).failed());
  EXPECT_EQ(Sys().sockets->State(socket), platform::kSocketConnecting);
  EXPECT_TRUE(recorder.events.empty());
  while (recorder.events.empty()) Sys().ui->DoEvents();
  EXPECT_EQ(recorder.events, std::vector<std::string>{"error 10061 Connection is forcefully rejected"});
  EXPECT_EQ(Sys().sockets->State(socket), platform::kSocketError);
  platform::Failure send = Sys().sockets->SendData(socket, "HELO PC042\r\n");
  EXPECT_EQ(send.Number, 40006);
  Sys().sockets->Close(socket);
  EXPECT_EQ(Sys().sockets->State(socket), platform::kSocketClosed);
  Sys().sockets->DestroySocket(socket);
  EXPECT_EQ(Transcript()["sockets"],
            json::parse(R"([{"host": "127.0.0.1", "port": ")" + port + R"(", "sent": "",
              "received": "", "peer": "network", "connected": false,
              "error": {"number": 10061, "description": "Connection is forcefully rejected"}}])"));
}

TEST_F(SimSocketsTest, Accept_AnswersEachStepOnlyAtThePumpAfterIt) {
  ConnectTo("accept");
  EXPECT_EQ(Sys().sockets->State(socket), platform::kSocketConnecting);
  EXPECT_TRUE(recorder.events.empty());
  EXPECT_EQ(Take(), "");   // the Connect event; the greeting comes with the next pump
  EXPECT_EQ(recorder.events, std::vector<std::string>{"connect"});
  EXPECT_EQ(Sys().sockets->State(socket), platform::kSocketConnected);
  EXPECT_EQ(Take(), "220 mail.example.com Service ready\r\n");
  EXPECT_EQ(Send("HELO PC042\r\n"), "250 mail.example.com\r\n");
  EXPECT_EQ(Send("MAIL FROM:<a@b>\r\n"), "250 OK\r\n");
  EXPECT_EQ(Send("RCPT TO:<c@d>\r\n"), "250 OK\r\n");
  EXPECT_EQ(Send("DATA\r\n"), "354 Start mail input; end with <CRLF>.<CRLF>\r\n");
  // The message and its end mark in two sends, as the engine sends them.
  EXPECT_EQ(Send("Subject: x\r\n\r\nline"), "");
  EXPECT_EQ(Send("\r\n.\r\n"), "250 OK\r\n");
  EXPECT_EQ(Send("QUIT\r\n"), "221 mail.example.com Service closing transmission channel\r\n");
  Sys().ui->DoEvents();
  EXPECT_EQ(Sys().sockets->State(socket), platform::kSocketClosing);   // the peer closed
  EXPECT_EQ(recorder.events, (std::vector<std::string>{"connect", "data 36", "data 22", "data 8", "data 8",
                                                      "data 46", "data 8", "data 59"}));
  const json entry = Transcript()["sockets"][0];
  EXPECT_EQ(entry["peer"], "accept");
  EXPECT_EQ(entry["connected"], true);
  EXPECT_EQ(entry["sent"], "HELO PC042\r\nMAIL FROM:<a@b>\r\nRCPT TO:<c@d>\r\nDATA\r\nSubject: x\r\n\r\nline\r\n.\r\nQUIT\r\n");
  EXPECT_EQ(entry["received"],
            "220 mail.example.com Service ready\r\n250 mail.example.com\r\n250 OK\r\n250 OK\r\n"
            "354 Start mail input; end with <CRLF>.<CRLF>\r\n250 OK\r\n"
            "221 mail.example.com Service closing transmission channel\r\n");
}

TEST_F(SimSocketsTest, Accept_AWholeLineIsOneCommand_AnUnknownOneIs500) {
  ConnectTo("accept");
  Take();
  Take();
  EXPECT_EQ(Send("HE"), "");
  EXPECT_EQ(Send("LO x\r\nNOPE\r\n"), "250 mail.example.com\r\n500 Command not recognized\r\n");
  // A QUIT without its line end is not yet a command.
  EXPECT_EQ(Send("QUIT"), "");
  Sys().sockets->Close(socket);
  EXPECT_EQ(Sys().sockets->State(socket), platform::kSocketClosed);
  EXPECT_EQ(Transcript()["sockets"][0]["received"], "220 mail.example.com Service ready\r\n250 mail.example.com\r\n"
                                                    "500 Command not recognized\r\n");
}

TEST_F(SimSocketsTest, Refuse_TheStepNamedIs550) {
  ConnectTo(json{{"refuse", 5}});
  Take();
  EXPECT_EQ(Take(), "220 mail.example.com Service ready\r\n");
  EXPECT_EQ(Send("HELO a\r\nMAIL FROM:<a>\r\nRCPT TO:<b>\r\n"), "250 mail.example.com\r\n250 OK\r\n250 OK\r\n");
  EXPECT_EQ(Send("DATA\r\n"), "550 Requested action not taken\r\n");
  // Refused, DATA opens no message: the next line is a command again.
  EXPECT_EQ(Send("x\r\n.\r\n"), "500 Command not recognized\r\n500 Command not recognized\r\n");
}

TEST_F(SimSocketsTest, Refuse_TheGreetingAndTheMessage) {
  ConnectTo(json{{"refuse", 1}});
  Take();
  EXPECT_EQ(Take(), "550 Requested action not taken\r\n");
  ConnectTo(json{{"refuse", 6}});
  Take();
  Take();
  Send("HELO a\r\nMAIL FROM:<a>\r\nRCPT TO:<b>\r\nDATA\r\n");
  EXPECT_EQ(Send("text\r\n.\r\n"), "550 Requested action not taken\r\n");
}

TEST_F(SimSocketsTest, Silent_ConnectsAndNeverAnswers) {
  ConnectTo("silent");
  EXPECT_EQ(Take(), "");
  EXPECT_EQ(recorder.events, std::vector<std::string>{"connect"});
  EXPECT_EQ(Send("HELO PC042\r\n"), "");
  EXPECT_EQ(Take(), "");
  EXPECT_EQ(recorder.events, std::vector<std::string>{"connect"});
  EXPECT_EQ(Sys().sockets->State(socket), platform::kSocketConnected);
  EXPECT_EQ(Transcript()["sockets"][0]["received"], "");
}

TEST_F(SimSocketsTest, PortThatIsNoNumber_FailsAsOnTheNetwork) {
  ConnectTo("accept", "smtp");
  Sys().ui->DoEvents();
  EXPECT_EQ(recorder.events,
            std::vector<std::string>{"error 40014 The argument passed to a function was not in the correct "
                                     "format or in the "
                                     "specified range"});
  EXPECT_EQ(Transcript()["sockets"][0]["connected"], false);
}

TEST_F(SimSocketsTest, NoPeerInMachineJson_TheRunsDefaultPlays) {
  Install();
  sim::Current().defaultPeer = sim::SmtpPeer{};
  socket = Sys().sockets->CreateSocket(&recorder);
  ASSERT_FALSE(Sys().sockets->Connect(socket, "mail.example.com", "25").failed());
  Take();
  EXPECT_EQ(Take(), "220 mail.example.com Service ready\r\n");
  EXPECT_EQ(Transcript()["client"]["smtp"], "accept");
}

}  // namespace
