#include "http/server_probe.h"

#include "core/text/convert.h"
#include "http/win_http_request.h"

std::shared_ptr<const ServerCertificates> probeServer(const std::wstring& url, const RequestProxy& proxy,
                                                      const RequestTimeouts& timeouts, const TrustSettings& trust) {
  const auto probe = WinHttpRequest::create();
  probe->actAsProbe();
  probe->setRequestProxy(proxy);
  probe->setRequestTimeouts(timeouts);
  probe->setThumbprints(trust.pins);
  if (trust.ignoreName) {
    probe->ignoreCertNameMismatch();
  }
  std::string response;
  probe->get(CORE::to_mstr(url, CORE::kUtf8), response);  // fails by design: its own gate ends it
  return probe->capturedCertificates();
}
