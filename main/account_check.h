#pragma once

/// Returns whether the process runs as the local system account (S-1-5-18): whether the user of its token is that
/// account. A failure of the check itself is logged at ERROR and gives false. Main thread only.
/// Source: GetTokenInformation (TokenUser), SECURITY_LOCAL_SYSTEM_RID.
bool IsSystemProcess();
