#include "upload/storage_signing.h"

#include <gtest/gtest.h>

#include "core/exception.h"
#include "tests/sim/windows.h"

namespace {

using Query = std::vector<std::pair<std::string, std::string>>;

TEST(StorageSigningTest, DateText) {
  struct Row {
    platform::SystemTime time;
    const char* text;
  };
  const Row rows[] = {
      {{2026, 11, 5, 13, 4, 2, 42, 7}, "Fri, 13 Nov 2026 04:02:42 GMT"},
      {{2028, 12, 0, 31, 23, 59, 59, 999}, "Sun, 31 Dec 2028 23:59:59 GMT"},
      {{800, 2, 6, 9, 1, 2, 3, 0}, "Sat, 09 Feb 800 01:02:03 GMT"},
      {{2026, 0, 9, 1, 0, 0, 0, 0}, "Sat, 01 Jan 2026 00:00:00 GMT"},  // out of range, but never out of the tables
      {{2026, 13, 1, 1, 0, 0, 0, 0}, "Mon, 01 Dec 2026 00:00:00 GMT"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(StorageSigning::dateText(row.time), row.text);
  }
}

TEST(StorageSigningTest, CanonicalizedHeaders) {
  const sim::Windows windows;  // lowers the names
  const HttpMap headers = {{"Content-Type", "application/zip"},
                           {"X-MS-Upper", "not taken"},
                           {"x-ms-", "bare"},
                           {"x-ms-Meta-B", "  two  blanks "},
                           {"x-ms-meta-a", ""},
                           {"x-ms-version", "2020-04-08"},
                           {"x-m", "short"},
                           {"ax-ms-b", "inside"}};
  EXPECT_EQ(StorageSigning::canonicalizedHeaders(headers),
            "x-ms-:bare\nx-ms-meta-b:  two  blanks \nx-ms-meta-a:\nx-ms-version:2020-04-08\n");
}

TEST(StorageSigningTest, AccountName) {
  struct Row {
    const wchar_t *host, *path;
    const char *fromHost, *fromPath;
  };
  const Row rows[] = {
      {L"", L"", "", ""},
      {L".x", L"/", "", ""},
      {L"m\u00E4rz.x", L"/m\u00E4rz/b", "m\xC3\xA4rz", "m\xC3\xA4rz"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(StorageSigning::accountName(row.host, row.path, false), row.fromHost);
    EXPECT_EQ(StorageSigning::accountName(row.host, row.path, true), row.fromPath);
  }
  EXPECT_THROW(StorageSigning::accountName(std::wstring(1, static_cast<wchar_t>(0xD800)), L"", false),
               CORE::coreException);
}

TEST(StorageSigningTest, CanonicalizedResource) {
  struct Row {
    const char* name;
    std::wstring path;
    Query query;
    std::string text;
  };
  const Row rows[] = {
      {"no query", L"/c/b.zip", {}, "/acct/c/b.zip"},
      {"account twice in path style", L"/acct/acct/b", {}, "/acct/acct/acct/b"},
      {"path stays undecoded", L"/c/a%20b+c", {}, "/acct/c/a%20b+c"},
      {"order of the list", L"/b", {{"sv", "1"}, {"sig", "x"}}, "/acct/b\nsv:1\nsig:x"},
      {"case folds, neighbours join", L"/b", {{"Comp", "a"}, {"comp", "b"}, {"comp", "c"}}, "/acct/b\ncomp:a,b,c"},
      {"not neighbours, not joined", L"/b", {{"A", "1"}, {"b", "2"}, {"a", "3"}}, "/acct/b\na:1\nb:2\na:3"},
      {"names decode after folding", L"/b", {{"%41b", "1"}, {"ab", "2"}}, "/acct/b\nAb:1\nab:2"},
      {"values decode", L"/b", {{"x", "a%2Cb+c"}, {"y", "%zz%00"}}, "/acct/b\nx:a,b c\ny:%zz%00"},
      {"a prefix is another name", L"/b", {{"a", "1"}, {"ab", "2"}}, "/acct/b\na:1\nab:2"},
      {"the first name may be empty", L"/b", {{"", "1"}, {"", "2"}}, "/acct/b\n:1,2"},
      {"no path", L"", {{"a", ""}}, "/acct\na:"},
  };
  const sim::Windows windows;  // compares the names
  for (const Row& row : rows) {
    EXPECT_EQ(StorageSigning::canonicalizedResource("acct", row.path, row.query), row.text) << row.name;
  }
}

// Of a whole request: see AzureBlobRequestTest.
TEST(StorageSigningTest, StringToSignTakesItsHeadersInTheirOrder) {
  const HttpMap all = {{"Content-Encoding", "1"},     {"Content-Language", "2"}, {"Content-Length", "0"},
                       {"Content-MD5", "4"},          {"Content-Type", " 5 "},   {"Date", "6"},
                       {"If-Modified-Since", "7"},    {"If-Match", "8"},         {"If-None-Match", "9"},
                       {"If-Unmodified-Since", "10"}, {"Range", "11\xFF"},       {"range", "another header"}};
  EXPECT_EQ(StorageSigning::stringToSign(L"", all, "", "/"), "\n1\n2\n0\n4\n 5 \n6\n7\n8\n9\n10\n11\xFF\n/");
}

}  // namespace
