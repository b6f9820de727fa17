// libFuzzer target over the machine.json reader: any text either gives a
// machine or is refused with a MachineError that names the file; nothing
// else may escape, crash or hang. A machine that is read is written back,
// and what is written must read again as the same text.
#include "platform/sim/SimMachine.h"
#include "platform/sim/Simulator.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  sim::Machine machine;
  try {
    machine = sim::MachineFromText(text, "machine.json");
  } catch (const sim::MachineError& e) {
    if (e.message.rfind("machine.json: ", 0) != 0) {
      std::fprintf(stderr, "refusal without the file's name: %s\n", e.message.c_str());
      std::abort();
    }
    return 0;
  }
  const std::string written = sim::MachineText(machine);
  try {
    if (sim::MachineText(sim::MachineFromText(written, "machine.json")) != written) {
      std::fprintf(stderr, "written back, read again, it differs:\n%s\n", written.c_str());
      std::abort();
    }
  } catch (const sim::MachineError& e) {
    std::fprintf(stderr, "what was written back is refused: %s\n%s\n", e.message.c_str(), written.c_str());
    std::abort();
  }
  return 0;
}
