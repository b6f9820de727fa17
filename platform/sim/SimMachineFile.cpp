// machine.json on the host's disk.
#include "platform/sim/SimMachine.h"

#include "platform/sim/Simulator.h"

#include <fstream>
#include <sstream>

namespace sim {

namespace fs = std::filesystem;

Machine LoadMachine(const fs::path& folder) { return LoadMachineFile(folder / "machine.json"); }

Machine LoadMachineFile(const fs::path& file) {
  // Messages name the file as the user knows it; the caller knows the folder.
  const std::string name = file.filename().string();
  std::error_code ec;
  if (!fs::exists(file, ec)) return Machine{};
  if (fs::is_directory(file, ec)) throw MachineError{name + ": is a folder (expected a file)"};
  std::ifstream in(file, std::ios::binary);
  if (!in) throw MachineError{name + ": cannot be read"};
  std::stringstream buffer;
  buffer << in.rdbuf();
  if (in.bad()) throw MachineError{name + ": cannot be read"};
  return MachineFromText(buffer.str(), name);
}

void SaveMachine(const fs::path& folder, const Machine& machine) {
  fs::path file = folder / "machine.json";
  const std::string text = MachineText(machine);
  fs::path temp = folder / ".machine.json.new";
  {
    std::ofstream out(temp, std::ios::binary | std::ios::trunc);
    if (!out) throw MachineError{file.string() + ": cannot be written"};
    out << text;
    if (!out) throw MachineError{file.string() + ": cannot be written"};
  }
  std::error_code ec;
  fs::rename(temp, file, ec);
  if (ec) {
    fs::remove(temp, ec);
    throw MachineError{file.string() + ": cannot be written"};
  }
}

}  // namespace sim
