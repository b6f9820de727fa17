// The services of the simulated platform, each working on sim::Current(),
// and the helpers they share.
#pragma once

#include "platform/Platform.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace sim {

platform::System& SystemService();
platform::Profile& ProfileService();
platform::Registry& RegistryService();
platform::EventLog& EventLogService();
platform::Files& FilesService();
platform::Clock& ClockService();
platform::UserInterface& UserInterfaceService();
platform::Sockets& SocketsService();
platform::Directory& DirectoryService();

// Delivers pending socket events inside DoEvents; true when any ran.
bool PumpSocketEvents();
// Waits until a socket event may be pending, or for at most limit.
void WaitForSocketEvents(std::chrono::steady_clock::duration limit);

// Counts the progress pulses the engine took without a call
// (platform::QuietPulses) as moves of the bar of c.
struct Context;
void CountQuietPulses(Context& c);

// Every service of the simulated platform.
platform::ServiceSet SimulatedServices();
// The services given, each call recorded in Current().trace (SimTrace.cpp).
platform::ServiceSet TracedServices(const platform::ServiceSet& inner);

// The run-time error of that number with the system's description of it.
platform::Failure StandardFailure(int32_t number);

// ASCII upper case, and whole-string compare that ignores ASCII case.
std::string UpperAscii(const std::string& text);
bool SameNoCase(const std::string& a, const std::string& b);

// Text across the A-calls: the engine's text is in the client's ANSI code
// page, machine text (machine.json, the drives' names, the transcript) is
// UTF-8. ToAnsi gives machine text as the A-calls hand it to the engine,
// FromAnsi the engine's text as machine text.
std::string ToAnsi(const std::string& text);
std::string FromAnsi(const std::string& text);

// The text of a C string argument as machine text; a null pointer gives the
// empty text.
inline std::string ArgText(const char* text) { return text ? FromAnsi(text) : std::string(); }

// Text of the A-calls in UTF-16, as the client converts it.
std::u16string Utf16FromAnsi(const std::string& text);

// Copies text and its NUL into a caller's buffer of size bytes.
void CopyWithNul(char* buffer, const std::string& text);

}  // namespace sim
