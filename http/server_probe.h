#pragma once

#include <memory>
#include <string>

#include "http/proxy/request_proxy.h"
#include "http/request_timeouts.h"
#include "http/trust/server_verification.h"

/// Sends a throw-away request to a URL and ends it before any HTTP data leaves, only to see the server's certificates.
/// The probe goes through the proxy as it is given, with the time limits, the pins and the ignored name of the request
/// that it probes for. Waits for its end, at most as long as the time limits say; any thread.
/// \return null when no certificates were captured.
std::shared_ptr<const ServerCertificates> probeServer(const std::wstring& url, const RequestProxy& proxy,
                                                      const RequestTimeouts& timeouts, const TrustSettings& trust);
