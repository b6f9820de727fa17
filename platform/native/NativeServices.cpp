//===- NativeServices.cpp - The native service set --------------*- C++ -*-===//
//
// Gathers the services of platform/native into one platform::ServiceSet.
//
//===----------------------------------------------------------------------===//
//
// Rules of this file:
// - Every member of the set is filled: the engine may call any service.
//
//===----------------------------------------------------------------------===//

#include "platform/native/NativeServices.h"

namespace platform::native {

ServiceSet MakeServiceSet() {
  ServiceSet services;
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

void InstallNativeServices() { SetServices(MakeServiceSet()); }

}  // namespace platform::native
