#pragma once

#include <string>

/// The folder in which the agent is installed: the setting "AgentInstallPath" under
/// HKLM\Software\Calvera\Meridon\Agent, as it stands there; empty when it is not set.
std::wstring agentInstallPath();

/// The folder in which the agent logs, without a trailing separator, so that a drive's root comes as "C:": it is meant
/// to be continued with "\". The first of these that gives one:
/// - the setting "LogFileDirectory" under HKLM\Software\Calvera\Meridon\Log, when the setting
///   "UseRegistryForLoggingPath" under ...\Meridon\Agent is on (it is off by default);
/// - the logger's default folder, %ProgramData%\Calvera\Meridon\logs;
/// - %LOCALAPPDATA%\vdx-sdct, in an environment without %ProgramData%.
/// Empty when the environment has neither.
std::wstring agentLoggingFolder();

/// The full path of a bundle that is written now: the folder, then "\agentDCT_2026-11-13_04-13-48_123.zip" with the
/// local time of the call in milliseconds (UTC when the system cannot convert it).
std::wstring newBundlePath(const std::wstring& folder);
