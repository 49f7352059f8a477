#pragma once

#include <string>

/// Returns the folder in which the agent is installed: the setting "AgentInstallPath" under
/// HKLM\Software\Calvera\Meridon\Agent, as it stands there; empty when it is not set.
std::wstring agentInstallPath();

/// Returns the folder in which the agent logs. It has no trailing separator (a drive's root is "C:"): a caller appends
/// "\" and a name. The folder is the first of these that is set:
/// - the setting "LogFileDirectory" under HKLM\Software\Calvera\Meridon\Log, when the setting
///   "UseRegistryForLoggingPath" under ...\Meridon\Agent is on (it is off by default);
/// - the logger's default folder, %ProgramData%\Calvera\Meridon\logs;
/// - %LOCALAPPDATA%\vdx-sdct, in an environment without %ProgramData%.
///
/// Empty when the environment has neither variable.
std::wstring agentLoggingFolder();

/// Returns the full path of a new bundle: the folder, then "\agentDCT_2026-11-13_04-13-48_123.zip" with the local time
/// of the call to the millisecond (UTC when the system cannot convert it).
std::wstring newBundlePath(const std::wstring& folder);
