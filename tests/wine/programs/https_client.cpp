// https_client get URL [OPTION...]
// https_client putfile URL FILE [OPTION...]
//
// Runs one request with the product's HTTPS client, for tests of requests that the shipped program never makes.
// Options:
//   --revocation --ignore-name --ignore-all --plain-http --pin=TEXT --pac=URL --user=NAME --password=TEXT
// --pin may come several times. --user comes before --password. The client writes the same log as the program, and
// prints one line of JSON: "ok" is what the operation returned, "status" the HTTP status, "bytes" the length of the
// response body. The exit code is 0 when the request was run, whatever its outcome, otherwise 1.

#include <cstdio>
#include <exception>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "core/log/log_context.h"
#include "core/log/logger.h"
#include "http/win_http_request.h"
#include "platform/platform.h"
#include "platform/windows/windows_platform.h"
#include "wine/native/arguments.h"

namespace {

void sendRequest(const std::vector<std::wstring>& arguments) {
  const auto request = WinHttpRequest::create();
  std::wstring user;
  const std::map<std::wstring, std::function<void(const std::wstring&)>> options = {
      {L"--revocation", [&](const auto&) { request->enableRevocationCheck(); }},
      {L"--ignore-name", [&](const auto&) { request->ignoreCertNameMismatch(); }},
      {L"--ignore-all", [&](const auto&) { request->ignoreCertErrors(); }},
      {L"--plain-http", [&](const auto&) { request->allowPlainHttp(); }},
      {L"--pin", [&](const auto& text) { request->addThumbprint(native::narrow(text)); }},
      {L"--pac", [&](const auto& url) { request->setPacUrl(url); }},
      {L"--user", [&](const auto& name) { user = name; }},
      {L"--password", [&](const auto& text) { request->setProxyCredentials(user, text); }},
  };
  const bool gets = arguments.at(0) == L"get";
  for (auto option = arguments.begin() + (gets ? 2 : 3); option != arguments.end(); ++option) {
    const std::size_t equals = option->find(L'=');
    options.at(option->substr(0, equals))(equals == option->npos ? L"" : option->substr(equals + 1));
  }
  const std::string url = native::narrow(arguments.at(1));
  std::string response;
  const bool ok = gets ? request->get(url, response)
                       : request->putFile(ContentType::kOctetStream, url, native::narrow(arguments[2]), response);
  std::printf("{\"ok\":%s,\"status\":%s,\"bytes\":%s}\n", ok ? "true" : "false",
              std::to_string(request->getResponseCode()).c_str(), std::to_string(response.size()).c_str());
}

}  // namespace

int main() {
  platform::install(&platform::windowsPlatform());
  CORE::corelogger::instance().start(L"mdDCT");
  CORE::setLogContext(L"main");
  int exitCode = 0;
  try {
    sendRequest(native::arguments());
  } catch (const std::exception& exception) {
    native::complain("https_client", exception.what());
    exitCode = 1;
  }
  CORE::corelogger::instance().flush();
  return exitCode;
}
