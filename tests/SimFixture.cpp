#include "tests/SimFixture.h"

#include "engine/modMain.h"
#include "platform/sim/SimContext.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace {

std::filesystem::path HostPathOf(const std::filesystem::path& dir, const std::string& windowsPath) {
  sim::ResolvedPath path = sim::ResolveWindowsPath(dir, windowsPath);
  if (path.host.empty()) ADD_FAILURE() << "not a path on the client's drives: " << windowsPath;
  return path.host;
}

}  // namespace

void SimFixture::SetUp() {
  std::string pattern = (std::filesystem::temp_directory_path() / "zandolin-test-XXXXXX").string();
  char* made = mkdtemp(pattern.data());
  ASSERT_NE(made, nullptr) << "cannot make a temporary folder";
  dir = made;
}

void SimFixture::TearDown() {
  client.reset();
  std::error_code ec;
  if (!dir.empty()) std::filesystem::remove_all(dir, ec);
}

void SimFixture::WriteFile(const std::string& windowsPath, const std::string& content) {
  std::filesystem::path host = HostPathOf(dir, windowsPath);
  std::filesystem::create_directories(host.parent_path());
  std::ofstream out(host, std::ios::binary | std::ios::trunc);
  out << content;
  ASSERT_TRUE(out.good()) << "cannot write " << host;
}

std::string SimFixture::ReadFile(const std::string& windowsPath) const {
  std::ifstream in(HostPathOf(dir, windowsPath), std::ios::binary);
  std::stringstream buffer;
  buffer << in.rdbuf();
  return buffer.str();
}

bool SimFixture::FileExists(const std::string& windowsPath) const {
  std::error_code ec;
  return std::filesystem::is_regular_file(HostPathOf(dir, windowsPath), ec);
}

namespace {

void WriteMachine(const std::filesystem::path& dir, const nlohmann::json& machine) {
  std::ofstream out(dir / "machine.json", std::ios::binary | std::ios::trunc);
  out << machine.dump(2) << "\n";
}

}  // namespace

void SimFixture::Install() {
  WriteMachine(dir, machine);
  client.reset();
  client = sim::Client::Load(dir);
  ResetProcessState();
  client->Install();
}

nlohmann::json SimFixture::Run(const std::string& commandLine, double limitSeconds) {
  WriteMachine(dir, machine);
  client.reset();
  client = sim::Client::Load(dir);
  sim::RunOptions options;
  options.commandLine = commandLine;
  options.limitSeconds = limitSeconds;
  return client->Run(options);
}

nlohmann::json SimFixture::Transcript() { return client->Transcript(); }
