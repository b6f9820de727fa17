// Test helper: the SMTP peers of tests/servers/smtp, each a process of its
// own on a loopback port it chose, started and awaited from a test.
#pragma once

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace smtppeer {

// Debian's Python, which sees Debian's aiosmtpd.
inline constexpr const char* kPython = "/usr/bin/python3";

inline std::filesystem::path ServersDir() {
  return std::filesystem::path(ZANDOLIN_SOURCE_DIR) / "tests" / "servers" / "smtp";
}

class Peer {
 public:
  ~Peer() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    if (out_ >= 0) close(out_);
    std::error_code ec;
    if (!log_.empty()) std::filesystem::remove(log_, ec);
    if (!steps_.empty()) std::filesystem::remove(steps_, ec);
  }

  // A scripted peer playing steps (see peer.py). The texts of the steps are
  // bytes; each goes to the peer as the character of that number.
  static std::unique_ptr<Peer> Script(nlohmann::json steps, double lifetimeSeconds = 20) {
    for (nlohmann::json& step : steps)
      if (step.size() > 1 && step[1].is_string()) step[1] = BytesAsCharacters(step[1].get<std::string>());
    auto peer = std::unique_ptr<Peer>(new Peer);
    peer->log_ = TempName("peer");
    peer->steps_ = TempName("steps");
    std::ofstream(peer->steps_, std::ios::binary) << steps.dump();
    peer->Start({kPython, (ServersDir() / "peer.py").string(), "script", peer->steps_.string(),
                 peer->log_.string(), std::to_string(lifetimeSeconds)});
    return peer;
  }

  // A port whose connections never complete.
  static std::unique_ptr<Peer> Blackhole(double lifetimeSeconds = 20) {
    auto peer = std::unique_ptr<Peer>(new Peer);
    peer->Start({kPython, (ServersDir() / "peer.py").string(), "blackhole", std::to_string(lifetimeSeconds)});
    return peer;
  }

  // The real SMTP server.
  static std::unique_ptr<Peer> Server(double lifetimeSeconds = 20) {
    auto peer = std::unique_ptr<Peer>(new Peer);
    peer->log_ = TempName("server");
    peer->Start({kPython, (ServersDir() / "smtp_server.py").string(), peer->log_.string(),
                 std::to_string(lifetimeSeconds)});
    return peer;
  }

  const std::string& Port() const { return port_; }

  // Waits for the peer to end by itself and gives its log: what a script
  // peer received, or the server's JSON record.
  std::string Log(std::chrono::seconds patience = std::chrono::seconds(20)) {
    auto until = std::chrono::steady_clock::now() + patience;
    while (pid_ > 0) {
      int status = 0;
      pid_t done = waitpid(pid_, &status, WNOHANG);
      if (done == pid_) {
        pid_ = -1;
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the peer failed";
        break;
      }
      if (std::chrono::steady_clock::now() > until) {
        ADD_FAILURE() << "the peer did not end by itself";
        return "";
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    std::ifstream in(log_, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
  }

  nlohmann::json Record() {
    std::string text = Log();
    if (text.empty()) return nullptr;
    return nlohmann::json::parse(text);
  }

  // Bytes as the peers' records and scripts hold them: each byte the
  // character of that number, in UTF-8.
  static std::string BytesAsCharacters(const std::string& bytes) {
    std::string text;
    for (unsigned char b : bytes) {
      if (b < 0x80) {
        text += static_cast<char>(b);
      } else {
        text += static_cast<char>(0xC0 | (b >> 6));
        text += static_cast<char>(0x80 | (b & 0x3F));
      }
    }
    return text;
  }

 private:
  Peer() = default;

  static std::filesystem::path TempName(const char* what) {
    static int counter = 0;
    return std::filesystem::temp_directory_path() /
           ("zandolin-" + std::string(what) + "-" + std::to_string(getpid()) + "-" + std::to_string(++counter));
  }

  void Start(const std::vector<std::string>& args) {
    int pipeFds[2];
    ASSERT_EQ(0, pipe2(pipeFds, O_CLOEXEC));
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], 1);
    std::vector<char*> argv;
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    int error = posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(pipeFds[1]);
    out_ = pipeFds[0];
    ASSERT_EQ(0, error) << "cannot start " << args[1];

    // The first line: "PORT n".
    std::string line;
    auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (line.find('\n') == std::string::npos) {
      pollfd p{out_, POLLIN, 0};
      int left = static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                      until - std::chrono::steady_clock::now()).count());
      ASSERT_GT(left, 0) << "the peer did not say its port";
      if (poll(&p, 1, left) <= 0) continue;
      char c;
      ssize_t n = read(out_, &c, 1);
      ASSERT_EQ(1, n) << "the peer ended before saying its port";
      line += c;
    }
    ASSERT_EQ(0u, line.rfind("PORT ", 0)) << line;
    port_ = line.substr(5, line.size() - 6);
  }

  pid_t pid_ = -1;
  int out_ = -1;
  std::filesystem::path log_;
  std::filesystem::path steps_;
  std::string port_;
};

// A loopback port where nothing listens: bound, read and released.
inline std::string ClosedPort() {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  socklen_t size = sizeof address;
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
  close(fd);
  return std::to_string(ntohs(address.sin_port));
}

}  // namespace smtppeer
