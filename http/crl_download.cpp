#include "http/crl_download.h"

#include "http/win_http_request.h"

bool downloadCrl(const std::string& url, const RequestProxy& proxy, std::string& body) {
  const auto request = WinHttpRequest::create();
  request->allowPlainHttp();
  request->setRequestProxy(proxy);
  return request->get(url, body);
}
