#include <algorithm>
#include <map>

#include "core/base/unicode.h"
#include "fuzz/fuzz.h"
#include "http/win_http_request.h"
#include "tests/sim/windows.h"
#include "upload/storage_signing.h"

// The canonical form of a query, and the text that is signed. The first line of the input is the query of the URL; each
// of the others, "name=value", is a parameter and a header of the request.

namespace {

/// A request that refuses itself when its URL has been split, and keeps its query.
class Probe : public WinHttpRequest {
 public:
  static std::shared_ptr<Probe> create() { return std::make_shared<Probe>(CreateKey{}); }
  explicit Probe(CreateKey key) : WinHttpRequest(key) { actAsProbe(); }

  bool preflightCertVerification() override {
    query = canonicalQuery();
    return false;
  }

  QueryList query = {{"not", "asked"}};
};

/// Checks that the query holds every parameter, ordered by name, those of one name in the order of the URL and then of
/// the request.
QueryList checkQuery(const std::string& query, const HttpMap& parameters) {
  const auto request = Probe::create();
  request->setQueryParameters(parameters);
  FUZZ_CHECK(!request->getAsync("https://h.example/c/b?" + query, [](HttpRequest*, const std::string&) {}));
  std::multimap<std::string, std::string> given;  // keeps those of a name in their order
  for (const std::string& piece : fuzz::split(query.substr(0, query.find('#')), '&')) {
    if (!piece.empty()) {
      given.insert(fuzz::cut(piece, '='));
    }
  }
  given.insert(parameters.begin(), parameters.end());
  FUZZ_CHECK(request->query == QueryList(given.begin(), given.end()));
  return request->query;
}

/// Checks the text that is signed, from its end to its beginning.
void checkText(const QueryList& query, const HttpMap& headers) {
  const std::string resource = StorageSigning::canonicalizedResource("acct", L"/c/b", query);
  FUZZ_CHECK(resource.starts_with("/acct/c/b") && (query.empty() || resource[9] == '\n'));

  const std::string lines = StorageSigning::canonicalizedHeaders(headers);
  std::string rest = StorageSigning::stringToSign(L"PUT", headers, lines, resource);
  FUZZ_CHECK(rest.starts_with("PUT\n") && rest.ends_with("\n" + lines + resource));
  rest.resize(rest.size() - resource.size() - lines.size());
  const auto breaks = [](std::string_view text) { return std::count(text.begin(), text.end(), '\n'); };
  FUZZ_CHECK(breaks(rest) == 12 && breaks(lines) <= std::ssize(headers));
  FUZZ_CHECK(lines.empty() || (lines.starts_with("x-ms-") && lines.ends_with('\n')));
}

}  // namespace

void fuzz::target(std::string_view input) {
  const sim::Windows windows;
  const std::vector<std::string> lines = fuzz::split(input, '\n');
  HttpMap texts;
  for (std::size_t i = 1; i < lines.size(); ++i) {
    texts.insert(fuzz::cut(lines[i], '='));
  }
  if (CORE::toUtf8Lossy(CORE::toWideLossy(lines[0])) == lines[0]) {  // else it is no UTF-8
    checkText(checkQuery(lines[0], texts), texts);
  }
}
