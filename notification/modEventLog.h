// Entries of the application event log, and the registry helpers behind the
// event source.
#pragma once

#include "platform/Win32Types.h"

#include <cstdint>
#include <string>

// The module's values while an entry is written; set afresh each time.
extern int16_t EventStringCount;
extern HANDLE EventSourceHandle;
extern char* EventMessagePointer;
extern int32_t EventMessageSize;

void WriteOutcomeToEventLog();
void WriteEventLogEntry(const std::string& Source, const std::string& Message, int16_t EventType,
                        int32_t EventId);
std::string GetRegistryString(HKEY RootKey, const std::string& SubKey, const std::string& ValueName);
void SetRegistryString(HKEY RootKey, const std::string& SubKey, const std::string& ValueName,
                       const std::string& Text);
std::string QueryRegistryString(HKEY Key, const std::string& ValueName);
std::string GetSystemFolder();
