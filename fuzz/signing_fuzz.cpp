#include <algorithm>

#include "core/convert.h"
#include "core/exception.h"
#include "core/text.h"
#include "fuzz/check.h"
#include "fuzz/input.h"
#include "http/win_http_request.h"
#include "upload/storage_signing.h"

// A query and its canonical form, and the text that is signed. The first line is the URL's query; the others are
// parameters and headers of the request, "name=value".

namespace {

/// A request that is refused as soon as its URL has been split.
class Probe : public WinHttpRequest {
 public:
  static std::shared_ptr<Probe> create() { return std::make_shared<Probe>(CreateKey{}); }
  explicit Probe(CreateKey key) : WinHttpRequest(key) { makeProbe(); }

  bool preflightCertVerification() override {
    query = canonicalQuery();
    asked = true;
    return false;
  }

  QueryList query;
  bool asked = false;
};

std::pair<std::string, std::string> pairOf(const std::string& text) {
  const std::size_t equals = std::min(text.find('='), text.size());
  return {text.substr(0, equals), text.substr(std::min(equals + 1, text.size()))};
}

std::ptrdiff_t count(std::string_view text, char c) { return std::count(text.begin(), text.end(), c); }

std::vector<std::string> valuesOf(const std::string& wanted, const QueryList& list) {
  std::vector<std::string> out;
  for (const auto& [name, value] : list) {
    if (name == wanted) {
      out.push_back(value);
    }
  }
  return out;
}

/// Every parameter is there, by name, and those of a name in the order of the URL and then of the request.
QueryList checkQuery(const std::string& query, const HttpMap& parameters) {
  const auto request = Probe::create();
  request->setQueryParameters(parameters);
  FUZZ_CHECK(!request->getAsync("https://h.example/c/b?" + query, [](HttpRequest*, const std::string&) {}));
  FUZZ_CHECK(request->asked);
  QueryList given;
  for (const std::string& piece : fuzz::split(query.substr(0, query.find('#')), '&')) {
    if (!piece.empty()) {
      given.push_back(pairOf(piece));
    }
  }
  given.insert(given.end(), parameters.begin(), parameters.end());
  FUZZ_CHECK(std::is_sorted(request->query.begin(), request->query.end(),
                            [](const auto& a, const auto& b) { return a.first < b.first; }));
  FUZZ_CHECK(request->query.size() == given.size());
  for (const auto& parameter : given) {
    FUZZ_CHECK(valuesOf(parameter.first, request->query) == valuesOf(parameter.first, given));
  }
  return request->query;
}

void checkText(const QueryList& query, const HttpMap& headers) {
  const std::string resource = StorageSigning::canonicalizedResource("acct", L"/c/b", query);
  FUZZ_CHECK(resource.starts_with("/acct/c/b") && (query.empty() || resource[9] == '\n'));

  const std::string lines = StorageSigning::canonicalizedHeaders(headers);
  std::string rest = StorageSigning::stringToSign(L"PUT", headers, lines, resource);
  FUZZ_CHECK(rest.starts_with("PUT\n") && rest.ends_with("\n" + lines + resource));
  rest.resize(rest.size() - resource.size() - lines.size());
  FUZZ_CHECK(count(rest, '\n') == 12 && count(lines, '\n') <= std::ssize(headers));
  FUZZ_CHECK(lines.empty() || (lines.starts_with("x-ms-") && lines.ends_with('\n')));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::Platform platform;
  const std::vector<std::string> lines = fuzz::split(fuzz::bytes(data, size), '\n');
  HttpMap texts;
  std::transform(lines.begin() + 1, lines.end(), std::inserter(texts, texts.end()), pairOf);
  try {
    static_cast<void>(CORE::to_wstr(lines.front(), CORE::kUtf8));
  } catch (const CORE::coreException&) {
    return 0;
  }
  checkText(checkQuery(lines.front(), texts), texts);
  return 0;
}
