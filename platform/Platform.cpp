#include "platform/Platform.h"

namespace platform {

ServiceSet gServices;

void SetServices(const ServiceSet& services) { gServices = services; }

Failure MakeFailure(int32_t number) {
  switch (number) {
    case kErrBadFileNameOrNumber: return {number, "Bad file name or number"};
    case kErrFileNotFound: return {number, "File not found"};
    case kErrPermissionDenied: return {number, "Permission denied"};
    case kErrPathFileAccess: return {number, "Path/File access error"};
    case kErrPathNotFound: return {number, "Path not found"};
    default: return {number, "Application-defined or object-defined error"};
  }
}

}  // namespace platform
