// The run's report and its channels.
#pragma once

#include <string>

// The accumulated report of this run.
extern std::string gOutcomeText;

// Appends CR LF and the line to gOutcomeText.
void AppendOutcome(const std::string& line);

std::string GetClientComputerName();
void DispatchNotifications();
void WriteNotificationFile();
std::string NotificationFileName();
void StartSMTPSession();
void ReportErrorOutcome(const std::string& Text);
