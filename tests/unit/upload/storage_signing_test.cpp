#include "upload/storage_signing.h"

#include <gtest/gtest.h>

#include "core/exception.h"
#include "tests/sim/windows.h"

namespace {

using Query = std::vector<std::pair<std::string, std::string>>;

TEST(StorageSigning, DateAndAccount) {
  EXPECT_EQ(StorageSigning::dateText({2026, 11, 5, 13, 4, 2, 42, 7}), "Fri, 13 Nov 2026 04:02:42 GMT");
  EXPECT_EQ(StorageSigning::dateText({2028, 12, 0, 31, 23, 59, 59, 999}), "Sun, 31 Dec 2028 23:59:59 GMT");
  // Out of range, but never out of the tables.
  EXPECT_EQ(StorageSigning::dateText({800, 0, 9, 9, 1, 2, 3, 0}), "Sat, 09 Jan 800 01:02:03 GMT");
  EXPECT_EQ(StorageSigning::dateText({2026, 13, 1, 1, 0, 0, 0, 0}), "Mon, 01 Dec 2026 00:00:00 GMT");

  EXPECT_EQ(StorageSigning::accountName(L"m\u00E4rz.x", L"/p/b", false), "m\xC3\xA4rz");
  EXPECT_EQ(StorageSigning::accountName(L"h.x", L"/m\u00E4rz/b", true), "m\xC3\xA4rz");
  EXPECT_EQ(StorageSigning::accountName(L".x", L"", false) + StorageSigning::accountName(L"h", L"", true), "");
  EXPECT_THROW(StorageSigning::accountName(std::wstring(1, wchar_t{0xD800}), L"", false), CORE::coreException);
}

TEST(StorageSigning, CanonicalizedResource) {
  const std::tuple<std::wstring, Query, std::string> rows[] = {
      {L"/acct/a%20b+c", {}, "/acct/acct/a%20b+c"},  // path style; not decoded
      {L"/b", {{"sv", "1"}, {"sig", "x"}}, "/acct/b\nsv:1\nsig:x"},
      {L"/b", {{"Comp", "a"}, {"comp", "b"}, {"comp", "c"}}, "/acct/b\ncomp:a,b,c"},
      {L"/b", {{"A", "1"}, {"b", "2"}, {"a", "3"}}, "/acct/b\na:1\nb:2\na:3"},  // no neighbours
      {L"/b", {{"%41b", "1"}, {"ab", "2"}}, "/acct/b\nAb:1\nab:2"},             // decoded after folding
      {L"/b", {{"x", "a%2Cb+c"}, {"y", "%zz%00"}}, "/acct/b\nx:a,b c\ny:%zz%00"},
      {L"/b", {{"a", "1"}, {"ab", "2"}}, "/acct/b\na:1\nab:2"},
      {L"", {{"", "1"}, {"", "2"}}, "/acct\n:1,2"},
  };
  const sim::Windows windows;  // compares the names
  for (const auto& [path, query, text] : rows) {
    EXPECT_EQ(StorageSigning::canonicalizedResource("acct", path, query), text);
  }
}

// Of a whole request: see AzureBlobRequest.
TEST(StorageSigning, HeadersOfTheStringToSign) {
  const sim::Windows windows;  // lowers the names
  const HttpMap own = {{"X-MS-Upper", "not taken"},
                       {"x-ms-", "bare"},
                       {"x-ms-Meta-B", "  two  blanks "},
                       {"x-ms-meta-a", ""},
                       {"ax-ms-b", "inside"}};
  EXPECT_EQ(StorageSigning::canonicalizedHeaders(own), "x-ms-:bare\nx-ms-meta-b:  two  blanks \nx-ms-meta-a:\n");
  const HttpMap all = {{"Content-Encoding", "1"},     {"Content-Language", "2"}, {"Content-Length", "0"},
                       {"Content-MD5", "4"},          {"Content-Type", " 5 "},   {"Date", "6"},
                       {"If-Modified-Since", "7"},    {"If-Match", "8"},         {"If-None-Match", "9"},
                       {"If-Unmodified-Since", "10"}, {"Range", "11\xFF"},       {"range", "another header"}};
  EXPECT_EQ(StorageSigning::stringToSign(L"", all, "", "/"), "\n1\n2\n0\n4\n 5 \n6\n7\n8\n9\n10\n11\xFF\n/");
}

}  // namespace
