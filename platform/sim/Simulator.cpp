// The simulated client as a whole: loading it, making it the platform,
// running the engine process on it and reporting what happened.
#include "platform/sim/Simulator.h"

#include "engine/Runtime.h"
#include "engine/modMain.h"
#include "platform/sim/SimContext.h"
#include "platform/sim/SimServices.h"

namespace sim {

platform::ServiceSet SimulatedServices() {
  platform::ServiceSet services;
  services.system = &SystemService();
  services.profile = &ProfileService();
  services.registry = &RegistryService();
  services.eventLog = &EventLogService();
  services.files = &FilesService();
  services.clock = &ClockService();
  services.ui = &UserInterfaceService();
  services.sockets = &SocketsService();
  services.spooler = &SpoolerService();
  services.directory = &DirectoryService();
  return services;
}

namespace {

class SimClient : public Client {
 public:
  SimClient(const std::filesystem::path& folder, Machine machine) {
    context_.folder = folder;
    context_.machine = std::move(machine);
  }

  ~SimClient() override {
    if (&Current() == &context_) SetCurrent(nullptr);
  }

  void Install() override { InstallFor(RunOptions{}); }

  nlohmann::json Run(const RunOptions& options) override {
    ResetProcessState();
    InstallFor(options);
    try {
      RunEngineProcess();
      context_.ended = "returned";
    } catch (const FatalError& error) {
      context_.ended = "fatal";
      context_.fatal = nlohmann::json{{"number", error.Number}, {"description", error.Description}};
    } catch (const StuckError& stuck) {
      context_.ended = "stuck";
      context_.stuckIn = stuck.why;
      context_.stuckReason = stuck.plain;
    }
    return Transcript();
  }

  void Save() override {
    if (!context_.memory) SaveMachine(context_.folder, context_.machine);
  }

  Machine& State() override { return context_.machine; }

  void KeepFilesInMemory() override {
    if (!context_.memory) context_.memory.emplace();
  }

  platform::Failure PutFile(const std::string& windowsPath, const std::string& bytes) override {
    ResolvedPath path = ResolveWindowsPath(context_.folder, windowsPath);
    if (path.status != ResolvedPath::kOk) return StandardFailure(platform::kErrPathNotFound);
    DriveMakeFolders(context_, path.host.parent_path());
    if (int error = DriveWrite(context_, path.host, bytes, DriveWriteMode::kTruncate); error != 0)
      return StandardFailure(platform::kErrPermissionDenied);
    return {};
  }

  nlohmann::json Transcript() override {
    if (&Current() == &context_) CountQuietPulses(context_);
    return context_.Transcript();
  }

 private:
  void InstallFor(const RunOptions& options) {
    SetCurrent(&context_);
    context_.BeginRun(options.limitSeconds);
    context_.commandLine = options.commandLine;
    context_.stuckAtOnce = options.stuckAtOnce;
    context_.defaultPeer = options.defaultSmtpPeer;
    context_.tracing = options.trace;
    platform::SetServices(options.trace ? TracedServices(SimulatedServices()) : SimulatedServices());
  }

  Context context_;
};

}  // namespace

std::unique_ptr<Client> Client::Load(const std::filesystem::path& folder) {
  return std::make_unique<SimClient>(folder, LoadMachine(folder));
}

}  // namespace sim
