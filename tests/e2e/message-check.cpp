// message-check DLL ID TEXT_FILE OUT_FILE [LANGID]: renders one message of an
// event message file the way an event viewer does. Loads DLL as a data file
// (so a 32-bit file is read by this 64-bit program too), has FormatMessageA
// take message ID (decimal or 0x hex) in language LANGID (default 0x409,
// English (United States); 0 for the system's search order) from it with the
// bytes of TEXT_FILE as the one insertion string, and writes the result to
// OUT_FILE as it came. On failure it writes "LoadLibraryExA failed: N" or
// "FormatMessageA failed: N" (N the last error) to standard error and exits 1.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

bool ReadAll(const char* path, std::string& text) {
  std::FILE* file = std::fopen(path, "rb");
  if (!file) return false;
  char chunk[4096];
  size_t got;
  while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0) text.append(chunk, got);
  std::fclose(file);
  return true;
}

int Failed(const char* call) {
  std::fprintf(stderr, "%s failed: %lu\n", call, ::GetLastError());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5 && argc != 6) {
    std::fprintf(stderr, "usage: message-check DLL ID TEXT_FILE OUT_FILE [LANGID]\n");
    return 2;
  }
  const DWORD id = std::strtoul(argv[2], nullptr, 0);
  const DWORD language =
      argc == 6 ? std::strtoul(argv[5], nullptr, 0) : MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US);
  std::string insertion;
  if (!ReadAll(argv[3], insertion)) {
    std::fprintf(stderr, "cannot read %s\n", argv[3]);
    return 2;
  }

  HMODULE module = ::LoadLibraryExA(argv[1], nullptr, LOAD_LIBRARY_AS_DATAFILE);
  if (!module) return Failed("LoadLibraryExA");

  DWORD_PTR arguments[1] = {reinterpret_cast<DWORD_PTR>(insertion.c_str())};
  char* message = nullptr;
  const DWORD length = ::FormatMessageA(
      FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY | FORMAT_MESSAGE_ALLOCATE_BUFFER,
      module, id, language, reinterpret_cast<LPSTR>(&message), 0,
      reinterpret_cast<va_list*>(arguments));
  if (length == 0) return Failed("FormatMessageA");

  std::FILE* out = std::fopen(argv[4], "wb");
  if (!out || std::fwrite(message, 1, length, out) != length || std::fclose(out) != 0) {
    std::fprintf(stderr, "cannot write %s\n", argv[4]);
    return 2;
  }
  ::LocalFree(message);
  ::FreeLibrary(module);
  return 0;
}
