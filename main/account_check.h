#pragma once

/// Whether the process runs as the local system account (S-1-5-18), judged by the user of its token.
/// Every failure of the check itself is logged at ERROR and counts as "no". Main thread only.
/// Source: GetTokenInformation (TokenUser), SECURITY_LOCAL_SYSTEM_RID.
bool IsSystemProcess();
