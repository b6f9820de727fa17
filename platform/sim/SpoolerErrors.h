// The spooler's refusals a rehearsal meets: the codes the simulated spooler
// gives as Windows does, and what each means to an administrator, in the
// words of both the readable report of zandolin-sim and zandolin-fleet.
#pragma once

#include <cstdint>
#include <string_view>

namespace sim {

// ERROR_INVALID_PRINTER_NAME: the queue is not on the server.
inline constexpr int32_t kErrorInvalidPrinterName = 1801;
// ERROR_PRINTER_DRIVER_DOWNLOAD_NEEDED (0x00000BCB), "The specified printer
// driver was not found on the system and needs to be downloaded.": a
// connection whose driver would have to come from the server, which the
// Point and Print policy leaves to administrators.
inline constexpr int32_t kErrorPrinterDriverDownloadNeeded = 3019;

// What the error means, or "" for one without words here.
inline std::string_view SpoolerErrorMeaning(int64_t error) {
  switch (error) {
    case 2: return "not found";
    case 5: return "access denied";
    case 1722: return "the print server cannot be reached";
    case 1795: return "the driver is already installed";
    case 1796: return "the port is unknown";
    case 1797: return "the printer driver is unknown";
    case kErrorInvalidPrinterName: return "the queue is missing on the target server";
    case 1802: return "the printer already exists";
    case kErrorPrinterDriverDownloadNeeded:
      return "a driver download is needed: Point and Print lets only administrators install the "
             "queue's driver";
    default: return "";
  }
}

}  // namespace sim
