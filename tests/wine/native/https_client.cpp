// https_client get URL | putfile URL FILE, then any of
//   --revocation --ignore-name --ignore-all --plain-http --pin TEXT --pac URL --user NAME --password TEXT
// runs one request as the program would, for tests of requests that the shipped program never makes. It logs where the
// program does and prints one line of JSON: "ok" is what the operation returned, "bytes" the length of the response
// body. --pin may come several times. The exit code is 0 when the request was run, whatever came of it, and 2 for bad
// usage.

#include <cstdio>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/log_context.h"
#include "core/logger.h"
#include "http/win_http_request.h"
#include "platform/platform.h"
#include "platform/windows/windows_platform.h"
#include "tests/wine/native/arguments.h"

namespace {

class Client {
 public:
  /// False for bad usage.
  bool configure(const std::vector<std::wstring>& arguments);
  /// The line of JSON.
  std::string run();

 private:
  bool takeSwitch(const std::wstring& name);
  bool takeValue(const std::wstring& name, const std::wstring& value);

  std::shared_ptr<WinHttpRequest> request_ = WinHttpRequest::create();
  std::wstring user_, password_;
  std::string url_;
  std::optional<std::string> file_;
};

bool Client::takeSwitch(const std::wstring& name) {
  if (name == L"--revocation") {
    request_->enableRevocationCheck();
  } else if (name == L"--ignore-name") {
    request_->ignoreCertNameMismatch();
  } else if (name == L"--ignore-all") {
    request_->ignoreCertErrors();
  } else if (name == L"--plain-http") {
    request_->allowPlainHttp();
  } else {
    return false;
  }
  return true;
}

bool Client::takeValue(const std::wstring& name, const std::wstring& value) {
  if (name == L"--pin") {
    request_->addThumbprint(native::narrow(value));
  } else if (name == L"--pac") {
    request_->setPacUrl(value);
  } else if (name == L"--user") {
    user_ = value;
  } else if (name == L"--password") {
    password_ = value;
  } else {
    return false;
  }
  return true;
}

bool Client::configure(const std::vector<std::wstring>& arguments) {
  const bool isPut = !arguments.empty() && arguments[0] == L"putfile";
  std::size_t next = isPut ? 3 : 2;
  if (arguments.size() < next || (!isPut && arguments[0] != L"get")) {
    return false;
  }
  url_ = native::narrow(arguments[1]);
  if (isPut) {
    file_ = native::narrow(arguments[2]);
  }
  for (; next < arguments.size(); ++next) {
    if (takeSwitch(arguments[next])) {
      continue;
    }
    if (next + 1 == arguments.size() || !takeValue(arguments[next], arguments[next + 1])) {
      return false;
    }
    ++next;
  }
  if (!user_.empty() || !password_.empty()) {
    request_->setProxyCredentials(user_, password_);
  }
  return true;
}

std::string Client::run() {
  std::string response;
  const bool succeeded =
      !file_ ? request_->get(url_, response) : request_->putFile(ContentType::kOctetStream, url_, *file_, response);
  return std::string(R"({"ok":)") + (succeeded ? "true" : "false") + R"(,"status":)" +
         std::to_string(request_->getResponseCode()) + R"(,"bytes":)" + std::to_string(response.size()) + "}";
}

int perform() {
  Client client;
  if (!client.configure(native::arguments())) {
    native::complain("https_client", "bad usage; see the top of its source");
    return 2;
  }
  std::printf("%s\n", client.run().c_str());
  return 0;
}

}  // namespace

int main() {
  platform::install(&platform::windowsPlatform());
  CORE::corelogger::instance().start(L"mdDCT");
  CORE::setLogContext(L"main");
  int exitCode = 1;
  try {
    exitCode = perform();
  } catch (const std::exception& exception) {
    native::complain("https_client", exception.what());
  }
  CORE::corelogger::instance().flush();
  return exitCode;
}
