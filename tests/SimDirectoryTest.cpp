// The directory of the simulated client: binding and querying its in-memory
// print queues, and its ldap form against a real slapd started here on a
// free loopback port, also behind a small relay that slows the server down,
// drops the connection or never answers.
#include "SimFixture.h"

#include "IniFileBuilder.h"
#include "ScenarioHelpers.h"
#include "engine/Runtime.h"
#include "platform/DirectoryErrors.h"
#include "platform/sim/SimContext.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using platform::DirectoryRow;
using platform::Failure;

const std::string kDomain = "corp.example.com";
const std::string kContext = "DC=corp,DC=example,DC=com";
const std::string kServerDown = "-2147016646";
const std::string kServerDownText = "The server is not operational.";

std::string Query(const std::string& adsPath) {
  return "Select name, printShareName FROM '" + adsPath + "' WHERE objectCategory='printQueue'";
}

using namespace scenario;

// A print queue as a test publishes it.
struct PrintQueue {
  std::string name;                 // empty: the entry has no name
  std::vector<std::string> shares;  // printShareName values
};

// The queues as LDIF below the naming context. Each entry's common name is
// its position, not its name, so that asking for "name" is seen to bring
// the name and not the common name.
std::string Ldif(const std::vector<PrintQueue>& queues, const std::string& context = kContext) {
  std::string text;
  for (size_t i = 0; i < queues.size(); ++i) {
    const std::string cn = "q" + std::to_string(i);
    text += "dn: cn=" + cn + "," + context + "\nobjectClass: printQueue\ncn: " + cn + "\n";
    if (!queues[i].name.empty()) text += "name: " + queues[i].name + "\n";
    for (const std::string& share : queues[i].shares) text += "printShareName: " + share + "\n";
    text += "objectCategory: printQueue\n\n";
  }
  return text;
}

// A port on loopback that nobody listens on at the moment.
int FreePort() {
  int s = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = 0;
  socklen_t length = sizeof address;
  int port = 0;
  if (::bind(s, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
      ::getsockname(s, reinterpret_cast<sockaddr*>(&address), &length) == 0)
    port = ntohs(address.sin_port);
  ::close(s);
  return port;
}

// Whether the process runs: a killed server whose parent has gone may stay
// a zombie until something reaps it, and counts as ended.
bool ProcessAlive(pid_t pid) {
  if (pid <= 0 || ::kill(pid, 0) != 0) return false;
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  std::getline(stat, line);
  const size_t close = line.rfind(')');
  return close == std::string::npos || close + 2 >= line.size() || line[close + 2] != 'Z';
}

// Whether something accepts connections on the loopback port.
bool Listening(int port) {
  int s = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<uint16_t>(port));
  const bool open = ::connect(s, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  ::close(s);
  return open;
}

// A private slapd on a free loopback port, with a directory of print queues
// below one naming context; stopped when it goes.
class Slapd {
 public:
  ~Slapd() { Remove(); }

  // Starts the server; false, with the reason in error, when it will not.
  bool Start(const std::string& ldif, const std::string& context = kContext) {
    std::string pattern = (fs::temp_directory_path() / "zandolin-slapd-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) return Fail("cannot make a folder");
    work_ = pattern;
    std::ofstream(work_ / "queues.ldif") << ldif;
    const fs::path script =
        fs::path(ZANDOLIN_SOURCE_DIR) / "tests" / "servers" / "ldap" / "start-slapd.sh";
    // The port may be taken between the look and the start: try others.
    for (int attempt = 0; attempt < 5; ++attempt) {
      port_ = FreePort();
      const fs::path server = work_ / ("server" + std::to_string(attempt));
      const std::string command = "bash '" + script.string() + "' '" + server.string() + "' " +
                                  std::to_string(port_) + " '" + context + "' '" +
                                  (work_ / "queues.ldif").string() + "' >'" +
                                  (work_ / "pid").string() + "' 2>'" +
                                  (work_ / "error").string() + "'";
      if (std::system(command.c_str()) == 0) {
        std::ifstream in(work_ / "pid");
        in >> pid_;
        // The server may write its pid before it takes connections.
        for (int i = 0; i < 250 && ProcessAlive(pid_); ++i) {
          if (Listening(port_)) return true;
          std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        Stop();
      }
    }
    std::ifstream in(work_ / "error");
    std::stringstream reason;
    reason << in.rdbuf();
    return Fail("slapd did not start: " + reason.str());
  }

  // Kills the server outright (an orderly stop takes it over a second) and
  // removes its files.
  void Stop() {
    if (ProcessAlive(pid_)) {
      ::kill(pid_, SIGKILL);
      for (int i = 0; i < 250 && ProcessAlive(pid_); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    pid_ = 0;
  }

  void Remove() {
    Stop();
    std::error_code ec;
    if (!work_.empty()) fs::remove_all(work_, ec);
    work_.clear();
  }

  int Port() const { return port_; }
  std::string HostPort() const { return "127.0.0.1:" + std::to_string(port_); }
  std::string Url() const { return "ldap://" + HostPort(); }
  const std::string& Error() const { return error_; }

 private:
  bool Fail(const std::string& why) {
    error_ = why;
    return false;
  }
  fs::path work_;
  int port_ = 0;
  pid_t pid_ = 0;
  std::string error_;
};

// A relay on loopback in front of a server: it passes the traffic on, late,
// or drops the query's connection, or takes connections and never answers.
class Relay {
 public:
  enum Mode {
    kLate,       // every answer of the server waits delayMs
    kDropQuery,  // the second connection is closed when its second request comes
    kSilent,     // nothing is passed on and nothing answered
  };

  Relay(int targetPort, Mode mode, int delayMs = 0)
      : target_(targetPort), mode_(mode), delayMs_(delayMs) {
    listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
    int yes = 1;
    ::setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::listen(listener_, 8);
    ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread([this] { Accept(); });
  }

  ~Relay() {
    stop_ = true;
    acceptor_.join();
    std::lock_guard<std::mutex> lock(mutex_);
    for (std::thread& t : connections_) t.join();
    ::close(listener_);
  }

  int Port() const { return port_; }
  std::string HostPort() const { return "127.0.0.1:" + std::to_string(port_); }
  int Connections() const { return accepted_; }

 private:
  void Accept() {
    while (!stop_) {
      pollfd p{listener_, POLLIN, 0};
      if (::poll(&p, 1, 50) <= 0) continue;
      int client = ::accept(listener_, nullptr, nullptr);
      if (client < 0) continue;
      const int number = ++accepted_;
      std::lock_guard<std::mutex> lock(mutex_);
      connections_.emplace_back([this, client, number] { Serve(client, number); });
    }
  }

  void Serve(int client, int number) {
    int server = -1;
    if (mode_ != kSilent) {
      server = ::socket(AF_INET, SOCK_STREAM, 0);
      sockaddr_in address{};
      address.sin_family = AF_INET;
      address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      address.sin_port = htons(static_cast<uint16_t>(target_));
      if (::connect(server, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ::close(server);
        ::close(client);
        return;
      }
    }
    int requests = 0;
    char buffer[65536];
    while (!stop_) {
      pollfd p[2] = {{client, POLLIN, 0}, {server, POLLIN, 0}};
      if (::poll(p, server >= 0 ? 2 : 1, 50) <= 0) continue;
      if (p[0].revents) {
        ssize_t n = ::recv(client, buffer, sizeof buffer, 0);
        if (n <= 0) break;
        if (mode_ == kSilent) continue;
        if (mode_ == kDropQuery && number == 2 && ++requests == 2) break;
        ::send(server, buffer, static_cast<size_t>(n), MSG_NOSIGNAL);
      }
      if (server >= 0 && p[1].revents) {
        ssize_t n = ::recv(server, buffer, sizeof buffer, 0);
        if (n <= 0) break;
        if (mode_ == kLate) std::this_thread::sleep_for(std::chrono::milliseconds(delayMs_));
        ::send(client, buffer, static_cast<size_t>(n), MSG_NOSIGNAL);
      }
    }
    if (server >= 0) ::close(server);
    ::close(client);
  }

  int target_;
  Mode mode_;
  int delayMs_;
  int listener_ = -1;
  int port_ = 0;
  std::atomic<bool> stop_{false};
  std::atomic<int> accepted_{0};
  std::thread acceptor_;
  std::mutex mutex_;
  std::vector<std::thread> connections_;
};

class SimDirectoryTest : public SimFixture {
 protected:
  void InMemory(json queues) {
    machine["directory"] = {{"domain", kDomain}, {"namingContext", kContext},
                            {"printQueues", std::move(queues)}};
  }

  // The client's directory is the server, reached as host:port.
  void OnServer(const std::string& hostPort, const std::string& url) {
    machine["directory"] = {{"domain", hostPort}, {"ldap", url}};
  }

  Failure Bind(const std::string& path, std::string& adsPath) {
    return Sys().directory->BindObject(path, adsPath);
  }
  Failure Execute(const std::string& text, std::vector<DirectoryRow>& rows) {
    return Sys().directory->Execute(text, rows);
  }

  json RunWith(const IniFile& ini, double limitSeconds = 120) {
    WriteFile("C:\\Deploy\\x.ini", ini.Text());
    return Run("", limitSeconds);
  }

  static IniFile AdIni(const std::string& domain) {
    IniFile ini = ValidIni();
    ini.Set("GENERAL", "UseActiveDirectory", "True").Set("ACTIVE DIRECTORY", "DomainName", domain);
    return ini;
  }

  // The outcome text from the directory's header on.
  static std::string FromDirectory(const json& t) {
    const std::string text = t["outcomeText"];
    const size_t at = text.find("\r\n\r\n* ----- AD Printers ----- *");
    return at == std::string::npos ? text : text.substr(at);
  }

  void StartServer(const std::vector<PrintQueue>& queues) {
    ASSERT_TRUE(slapd.Start(Ldif(queues))) << slapd.Error();
  }

  Slapd slapd;
};

// ---------------------------------------------------------------------------
// The in-memory directory

TEST_F(SimDirectoryTest, Bind_DomainInAnyCase_GivesPathOfItsNamingContext) {
  InMemory(json::array());
  Install();
  std::string adsPath;
  EXPECT_FALSE(Bind("LDAP://CORP.example.com", adsPath).failed());
  EXPECT_EQ(adsPath, "LDAP://corp.example.com/DC=corp,DC=example,DC=com");
}

TEST_F(SimDirectoryTest, Bind_AnyOtherName_FailsAsServerNotOperational) {
  InMemory(json::array());
  Install();
  for (const std::string& path :
       {std::string("LDAP://other.example.com"), std::string("LDAP://"),
        std::string("LDAP://corp.example.com/DC=corp,DC=example,DC=com"),
        std::string("LDAP://corp.example.com.")}) {
    std::string adsPath = "left over";
    Failure f = Bind(path, adsPath);
    EXPECT_EQ(f.Number, -2147016646) << path;
    EXPECT_EQ(f.Description, kServerDownText) << path;
    EXPECT_EQ(adsPath, "left over") << path;
  }
}

TEST_F(SimDirectoryTest, Bind_NoDirectory_FailsAsServerNotOperational) {
  Install();
  std::string adsPath;
  Failure f = Bind("LDAP://corp.example.com", adsPath);
  EXPECT_EQ(f.Number, -2147016646);
  EXPECT_EQ(f.Description, kServerDownText);
}

TEST_F(SimDirectoryTest, Bind_Fault_FailsWithItsNumberAndText) {
  InMemory(json::array());
  machine["faults"] = json::array(
      {{{"call", "BindObject"}, {"match", "LDAP://corp.example.com"}, {"lastError", 2147950645u}},
       {{"call", "BindObject"}, {"match", "LDAP://x"}, {"lastError", 429}}});
  Install();
  std::string adsPath;
  Failure f = Bind("LDAP://corp.example.com", adsPath);
  EXPECT_EQ(f.Number, -2147016651);
  EXPECT_EQ(f.Description, "The server is unwilling to process the request.");
  f = Bind("LDAP://x", adsPath);
  EXPECT_EQ(f.Number, 429);
  EXPECT_EQ(f.Description, "ActiveX component can't create object");
}

TEST_F(SimDirectoryTest, Execute_DocumentedQuery_RowsInOrderWithWhatTheyHold) {
  InMemory(json::array({{{"name", "NEW-laser"}, {"printShareName", {"laser", "laser2"}}},
                        {{"name", "OLD-color"}, {"printShareName", "color"}},
                        {{"printShareName", {"noname"}}},
                        {{"name", nullptr}},
                        {{"name", ""}, {"printShareName", {""}}}}));
  Install();
  std::vector<DirectoryRow> rows;
  Failure f = Execute(Query("LDAP://corp.example.com/DC=corp,DC=example,DC=com"), rows);
  EXPECT_FALSE(f.failed()) << f.Number << " " << f.Description;
  ASSERT_EQ(rows.size(), 5u);
  EXPECT_TRUE(rows[0].hasName);
  EXPECT_EQ(rows[0].name, "NEW-laser");
  EXPECT_EQ(rows[0].printShareName, (std::vector<std::string>{"laser", "laser2"}));
  EXPECT_EQ(rows[1].printShareName, std::vector<std::string>{"color"});
  EXPECT_FALSE(rows[2].hasName);
  EXPECT_EQ(rows[2].printShareName, std::vector<std::string>{"noname"});
  EXPECT_FALSE(rows[3].hasName);
  EXPECT_TRUE(rows[3].printShareName.empty());
  EXPECT_TRUE(rows[4].hasName);
  EXPECT_EQ(rows[4].name, "");
  EXPECT_EQ(rows[4].printShareName, std::vector<std::string>{""});
}

TEST_F(SimDirectoryTest, Execute_MoreQueuesThanTheSizeLimit_FirstEntriesAndTheCutRecorded) {
  json queues = json::array();
  for (int i = 0; i < 1002; ++i) queues.push_back({{"name", "NEW-q" + std::to_string(i)}, {"printShareName", {"q"}}});
  InMemory(queues);
  Install();
  std::vector<DirectoryRow> rows;
  const std::string query = Query("LDAP://corp.example.com/DC=corp,DC=example,DC=com");
  EXPECT_FALSE(Execute(query, rows).failed());
  ASSERT_EQ(rows.size(), 1000u);
  EXPECT_EQ(rows.front().name, "NEW-q0");
  EXPECT_EQ(rows.back().name, "NEW-q999");
  EXPECT_EQ(Transcript()["directoryQueries"], json::parse(R"([{"entries": 1000, "cut": 2}])"));

  machine["directory"]["sizeLimit"] = 0;
  Install();
  EXPECT_FALSE(Execute(query, rows).failed());
  EXPECT_EQ(rows.size(), 1002u);
  EXPECT_EQ(Transcript()["directoryQueries"], json::parse(R"([{"entries": 1002, "cut": 0}])"));
}

TEST_F(SimDirectoryTest, Execute_ContextInOtherCase_Found) {
  InMemory(json::array({{{"name", "NEW-laser"}, {"printShareName", {"laser"}}}}));
  Install();
  std::vector<DirectoryRow> rows;
  EXPECT_FALSE(Execute(Query("LDAP://Corp.Example.Com/dc=corp,dc=example,dc=com"), rows).failed());
  EXPECT_EQ(rows.size(), 1u);
}

TEST_F(SimDirectoryTest, Execute_OtherNamingContext_NoSuchObject) {
  InMemory(json::array({{{"name", "NEW-laser"}, {"printShareName", {"laser"}}}}));
  Install();
  std::vector<DirectoryRow> rows;
  Failure f = Execute(Query("LDAP://corp.example.com/DC=other,DC=com"), rows);
  EXPECT_EQ(f.Number, -2147016656);
  EXPECT_EQ(f.Description, "There is no such object on the server.");
  EXPECT_TRUE(rows.empty());
}

TEST_F(SimDirectoryTest, Execute_OtherServer_ServerNotOperational) {
  InMemory(json::array());
  Install();
  std::vector<DirectoryRow> rows;
  Failure f = Execute(Query("LDAP://elsewhere/DC=corp,DC=example,DC=com"), rows);
  EXPECT_EQ(f.Number, -2147016646);
}

TEST_F(SimDirectoryTest, Execute_TextNotOfTheQuerysForm_CommandError) {
  InMemory(json::array());
  Install();
  std::vector<DirectoryRow> rows;
  for (const std::string& text :
       {std::string("Select name FROM 'LDAP://corp.example.com/DC=corp,DC=example,DC=com'"),
        Query("LDAP://corp'example.com/DC=corp"), Query("GC://corp.example.com"),
        std::string("")}) {
    Failure f = Execute(text, rows);
    EXPECT_EQ(f.Number, -2147217900) << text;
    EXPECT_EQ(f.Description, "One or more errors occurred during processing of command.") << text;
  }
}

TEST_F(SimDirectoryTest, Execute_QueryError_FailsWithIt) {
  InMemory(json::array({{{"name", "NEW-laser"}, {"printShareName", {"laser"}}}}));
  machine["directory"]["queryError"] = {{"number", -2147217865}, {"description", "Table does not exist."}};
  Install();
  std::vector<DirectoryRow> rows;
  Failure f = Execute(Query("LDAP://corp.example.com/DC=corp,DC=example,DC=com"), rows);
  EXPECT_EQ(f.Number, -2147217865);
  EXPECT_EQ(f.Description, "Table does not exist.");
  EXPECT_TRUE(rows.empty());
}

// ---------------------------------------------------------------------------
// The ldap form against a real server

TEST_F(SimDirectoryTest, Ldap_Bind_ReadsTheServersNamingContext) {
  StartServer({{"NEW-laser", {"laser"}}});
  OnServer(slapd.HostPort(), slapd.Url());
  Install();
  std::string adsPath;
  Failure f = Bind("LDAP://" + slapd.HostPort(), adsPath);
  EXPECT_FALSE(f.failed()) << f.Number << " " << f.Description;
  EXPECT_EQ(adsPath, "LDAP://" + slapd.HostPort() + "/DC=corp,DC=example,DC=com");
  f = Bind("LDAP://127.0.0.2:" + std::to_string(slapd.Port()), adsPath);
  EXPECT_EQ(f.Number, -2147016646);
}

TEST_F(SimDirectoryTest, Ldap_Execute_NameNotCommonNameAndEveryShareName) {
  StartServer({{"NEW-laser", {"laser", "laser2"}}, {"OLD-color", {}}, {"", {"noname"}}});
  OnServer(slapd.HostPort(), slapd.Url());
  Install();
  std::vector<DirectoryRow> rows;
  Failure f = Execute(Query("LDAP://" + slapd.HostPort() + "/" + kContext), rows);
  EXPECT_FALSE(f.failed()) << f.Number << " " << f.Description;
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_TRUE(rows[0].hasName);
  EXPECT_EQ(rows[0].name, "NEW-laser");
  EXPECT_EQ(rows[0].printShareName, (std::vector<std::string>{"laser", "laser2"}));
  EXPECT_EQ(rows[1].name, "OLD-color");
  EXPECT_TRUE(rows[1].printShareName.empty());
  EXPECT_FALSE(rows[2].hasName);
  EXPECT_EQ(rows[2].printShareName, std::vector<std::string>{"noname"});
  EXPECT_EQ(Transcript()["directoryQueries"], json::parse(R"([{"entries": 3, "cut": 0}])"));
}

TEST_F(SimDirectoryTest, Ldap_Execute_OtherNamingContext_NoSuchObject) {
  StartServer({{"NEW-laser", {"laser"}}});
  OnServer(slapd.HostPort(), slapd.Url());
  Install();
  std::vector<DirectoryRow> rows;
  Failure f = Execute(Query("LDAP://" + slapd.HostPort() + "/DC=other,DC=com"), rows);
  EXPECT_EQ(f.Number, -2147016656);
  EXPECT_EQ(f.Description, "There is no such object on the server.");
}

TEST_F(SimDirectoryTest, Ldap_MoreThanTheServersLimit_CutAt1000WithoutFailure) {
  std::vector<PrintQueue> queues;
  for (int i = 0; i < 1500; ++i) queues.push_back({"NEW-q" + std::to_string(i), {"q" + std::to_string(i)}});
  StartServer(queues);
  OnServer(slapd.HostPort(), slapd.Url());
  Install();
  std::vector<DirectoryRow> rows;
  Failure f = Execute(Query("LDAP://" + slapd.HostPort() + "/" + kContext), rows);
  EXPECT_FALSE(f.failed()) << f.Number << " " << f.Description;
  EXPECT_EQ(rows.size(), 1000u);
  // The server says that its limit cut the answer, not by how much.
  EXPECT_EQ(Transcript()["directoryQueries"], json::parse(R"([{"entries": 1000, "cut": null}])"));
}

TEST_F(SimDirectoryTest, Ldap_NoServerListening_BindFailsServerNotOperational) {
  const int port = FreePort();
  const std::string hostPort = "127.0.0.1:" + std::to_string(port);
  OnServer(hostPort, "ldap://" + hostPort);
  Install();
  std::string adsPath;
  Failure f = Bind("LDAP://" + hostPort, adsPath);
  EXPECT_EQ(f.Number, -2147016646);
  EXPECT_EQ(f.Description, kServerDownText);
}

// A run on the server, and the same run on the in-memory directory with the
// same queues: the same report, the same calls, the same printers after.
TEST_F(SimDirectoryTest, Ldap_Run_MovesAndOrphansAsOnTheInMemoryDirectory) {
  const std::vector<PrintQueue> queues = {{"NEW-laser", {"laser"}},
                                          {"OLD-color", {"color"}},
                                          {"OLD-plot", {"plot"}},
                                          {"NEW-plot", {"plot"}},
                                          {"NEW-HP4000", {"lj4"}}};
  StartServer(queues);
  const json printers = json::array({Net("OLD", "laser"), Net("old", "color"), Net("OLD", "plot"),
                                     Net("OLD", "HP4000"), Net("GONE", "fax")});
  const json servers = {{"NEW", {{"queues", {"laser", "plot", "lj4"}}}}};

  machine["printers"] = printers;
  machine["printServers"] = servers;
  OnServer(slapd.HostPort(), slapd.Url());
  json onServer = RunWith(AdIni(slapd.HostPort()));

  json inMemory = json::array();
  for (const PrintQueue& q : queues) inMemory.push_back({{"name", q.name}, {"printShareName", q.shares}});
  machine["directory"] = {{"domain", slapd.HostPort()}, {"namingContext", kContext},
                          {"printQueues", inMemory}};
  json local = RunWith(AdIni(slapd.HostPort()));

  const std::string expected = Report(
      {"", "* ----- AD Printers ----- *", "laser (\\\\NEW\\laser)", "color (\\\\OLD\\color)",
       "plot (\\\\OLD\\plot)", "plot (\\\\NEW\\plot)", "HP4000 (\\\\NEW\\lj4)", "",
       "* ----- Migrating Printers using AD ----- *", "Migrating: \\\\OLD\\laser to \\\\NEW\\laser",
       "Populated networked printer: \\\\NEW\\laser", "Deleted networked printer: \\\\OLD\\laser",
       "Printer already migrated: \\\\old\\color (\\\\old)",
       "Printer already migrated: \\\\OLD\\plot (\\\\OLD)",
       "Migrating: \\\\OLD\\plot to \\\\NEW\\plot", "Populated networked printer: \\\\NEW\\plot",
       "Deleted networked printer: \\\\OLD\\plot", "Migrating: \\\\OLD\\HP4000 to \\\\NEW\\HP4000",
       "Error (1801) populating network printer: \\\\NEW\\HP4000",
       "Deleted networked printer: \\\\OLD\\HP4000", "Printer NOT FOUND IN AD: \\\\GONE\\fax (\\\\GONE)",
       "", "* ----- Maintenance Prune All Orphaned Active Directory Printers ----- *",
       "Deleted networked printer: \\\\old\\color", "Deleted networked printer: \\\\GONE\\fax"});
  EXPECT_EQ(FromDirectory(onServer), expected);
  EXPECT_EQ(FromDirectory(local), expected);
  EXPECT_EQ(onServer["spoolerCalls"], local["spoolerCalls"]);
  EXPECT_EQ(Names(onServer["printersAfter"]),
            (std::vector<std::string>{"\\\\NEW\\laser", "\\\\NEW\\plot"}));
  EXPECT_EQ(onServer["printersAfter"], local["printersAfter"]);
  const std::string debug = onServer["debugBuffer"];
  EXPECT_NE(debug.find(">> Querying AD for printers, command:" +
                       Query("LDAP://" + slapd.HostPort() + "/DC=corp,DC=example,DC=com") + "\r\n"),
            std::string::npos)
      << debug;
}

TEST_F(SimDirectoryTest, Ldap_Run_DirectoryOverTheLimit_ThousandQueuesListed) {
  std::vector<PrintQueue> queues;
  for (int i = 0; i < 1200; ++i) queues.push_back({"NEW-q" + std::to_string(i), {"q" + std::to_string(i)}});
  StartServer(queues);
  OnServer(slapd.HostPort(), slapd.Url());
  json t = RunWith(AdIni(slapd.HostPort()));
  EXPECT_EQ(t["ended"], "returned");
  const std::string debug = t["debugBuffer"];
  EXPECT_EQ(Count(debug, ">> AD Printer: "), 1000u);
  EXPECT_NE(debug.find(">> Finished getting list of AD printers, abort status: False"), std::string::npos);
}

TEST_F(SimDirectoryTest, Ldap_Run_ServerStopped_FailurePathA) {
  const int port = FreePort();
  const std::string hostPort = "127.0.0.1:" + std::to_string(port);
  OnServer(hostPort, "ldap://" + hostPort);
  json t = RunWith(AdIni(hostPort));
  EXPECT_EQ(t["outcomeText"],
            Report({"* ----- Computer: PC042 Username: jdoe Printers ----- *",
                    "Warning no currently set default printer.",
                    "Error accessing Active Directory. Try installing an MDAC update.",
                    "> Error Number: " + kServerDown, "> Error Description: " + kServerDownText}));
}

TEST_F(SimDirectoryTest, Ldap_Run_SlowServer_SameReportOnlyLater) {
  StartServer({{"NEW-laser", {"laser"}}});
  Relay relay(slapd.Port(), Relay::kLate, 150);
  machine["printers"] = json::array({Net("OLD", "laser")});
  machine["printServers"] = {{"NEW", {{"queues", {"laser"}}}}};
  OnServer(relay.HostPort(), "ldap://" + relay.HostPort());
  const auto start = std::chrono::steady_clock::now();
  json t = RunWith(AdIni(relay.HostPort()));
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(FromDirectory(t),
            Report({"", "* ----- AD Printers ----- *", "laser (\\\\NEW\\laser)", "",
                    "* ----- Migrating Printers using AD ----- *",
                    "Migrating: \\\\OLD\\laser to \\\\NEW\\laser",
                    "Populated networked printer: \\\\NEW\\laser",
                    "Deleted networked printer: \\\\OLD\\laser", "",
                    "* ----- Maintenance Prune All Orphaned Active Directory Printers ----- *"}));
  // Two connections, each with a bind and a search answered late.
  EXPECT_EQ(relay.Connections(), 2);
  EXPECT_GE(took, std::chrono::milliseconds(4 * 150));
}

TEST_F(SimDirectoryTest, Ldap_Run_ConnectionDroppedAtTheQuery_FailurePathB) {
  StartServer({{"NEW-laser", {"laser"}}});
  Relay relay(slapd.Port(), Relay::kDropQuery);
  machine["printers"] = json::array({Net("OLD", "laser")});
  OnServer(relay.HostPort(), "ldap://" + relay.HostPort());
  json t = RunWith(AdIni(relay.HostPort()));
  EXPECT_EQ(t["ended"], "returned");
  EXPECT_EQ(t["outcomeText"],
            Report({"* ----- Computer: PC042 Username: jdoe Printers ----- *",
                    "\\\\OLD\\laser (\\\\OLD)", "Warning no currently set default printer.",
                    "Error quering Active Directory printers.", "> Error Number: " + kServerDown,
                    "> Error Description: " + kServerDownText}));
  EXPECT_TRUE(t["spoolerCalls"].empty());
}

TEST_F(SimDirectoryTest, Ldap_Run_ServerNeverAnswers_StuckAtTheRunsLimit) {
  Relay relay(0, Relay::kSilent);
  OnServer(relay.HostPort(), "ldap://" + relay.HostPort());
  const auto start = std::chrono::steady_clock::now();
  json t = RunWith(AdIni(relay.HostPort()), 1.0);
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(t["ended"], "stuck");
  EXPECT_EQ(t["stuckIn"], "the directory server does not answer");
  EXPECT_LT(took, std::chrono::seconds(5));
  EXPECT_NE(std::string(t["debugBuffer"]).find(">> Moving Printers Using AD <<"), std::string::npos);
}

}  // namespace
