// machine.json: any bytes through the simulator's reader. Anything that is
// not the contract must give MachineError, which zandolin-sim reports with
// exit status 2 and a message that names the file; nothing else may escape.
// A machine that loads is saved and loads again.
#include "FuzzClient.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const fuzz::Folder made("fuzz-machine");
  const std::filesystem::path& folder = made.path();
  fuzz::WriteHostFile(folder / "machine.json", std::string(reinterpret_cast<const char*>(data), size));
  std::unique_ptr<sim::Client> client;
  try {
    client = sim::Client::Load(folder);
  } catch (const sim::MachineError& e) {
    fuzz::Require(e.message.rfind("machine.json: ", 0) == 0, "the message names machine.json");
    return 0;
  }
  client->Save();
  try {
    sim::Client::Load(folder);
  } catch (const sim::MachineError& e) {
    std::fprintf(stderr, "%s\n", e.message.c_str());
    fuzz::Require(false, "a saved machine loads again");
  }
  return 0;
}
