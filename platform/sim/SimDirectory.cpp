// The directory of the simulated client. No directory server answers yet:
// binding fails the way a directory client fails for a server that does
// not answer, and so does a query.
#include "platform/sim/SimContext.h"
#include "platform/sim/SimServices.h"

namespace sim {

namespace {

constexpr int32_t kErrServerUnavailable = 462;

class SimDirectoryService : public platform::Directory {
 public:
  platform::Failure BindObject(const std::string& path, std::string& adsPath) override {
    Context& c = Current();
    if (const Fault* f = c.TakeFault("BindObject", path)) return StandardFailure(f->lastError);
    return StandardFailure(kErrServerUnavailable);
  }

  platform::Failure Execute(const std::string& commandText, std::vector<platform::DirectoryRow>& rows) override {
    Context& c = Current();
    if (const Fault* f = c.TakeFault("Execute", commandText)) return StandardFailure(f->lastError);
    return StandardFailure(kErrServerUnavailable);
  }
};

}  // namespace

platform::Directory& DirectoryService() {
  static SimDirectoryService service;
  return service;
}

}  // namespace sim
