#include "upload/azure_blob_request.h"

#include "tests/unit/http/http_test.h"
#include "upload/storage_signing.h"

namespace {

constexpr const char* kKey = "YW55IDY0IGJ5dGUgbG9uZyBhY2NvdW50IGtleSwgd2hpY2ggdGhlIHNlcnZpY2UgaGFuZHMgb3V0OiAxMjM0NQ==";

/// The signature that reaches the service.
std::string authorization(World& world, bool pathStyle) {
  const auto blob = AzureBlobRequest::create();
  blob->setKey(kKey);
  blob->setPathStyle(pathStyle);
  blob->setHeaders({{"Content-Encoding", "1"},
                    {"Content-Language", "2"},
                    {"Content-Length", "05"},
                    {"Content-MD5", "4"},
                    {"Date", "6"},
                    {"If-Match", "\"tag\""},
                    {"If-Modified-Since", "7"},
                    {"If-None-Match", "9"},
                    {"If-Unmodified-Since", "10"},
                    {"Range", "11"},
                    {"X-MS-Upper", "not taken"},
                    {"ax-ms-b", "inside"},
                    {"range", "another"},
                    {"x-ms-Meta-B", "  two  blanks "},
                    {"x-ms-date", "stale"}});
  blob->setQueryParameters({{"comp", "appendblock"}});
  EXPECT_TRUE(blob->putStringAsync(
      kZip, "https://myacct.blob.example/c/b%20c.zip?abc=3&a=1&Comp=a%2Cb+c&ab=2&%41b=1&ab%AD=5&a=%zz%00&sv=1&sig=x",
      "hello", [](HttpRequest*, const std::string&) {}));
  world.waitUntilIdle();
  EXPECT_EQ(world.exchange().body, "hello");
  return world.exchange().header("Authorization");
}

TEST(AzureBlobRequest, SignsTheWholeRequest) {
  World world;
  // OpenSSL's HMAC-SHA-256 with the decoded key of
  // "PUT\n1\n2\n05\n4\napplication/zip\n6\n7\n\"tag\"\n9\n10\n11\n" +
  // "x-ms-meta-b:  two  blanks \nx-ms-date:Fri, 13 Nov 2026 04:13:48 GMT\nx-ms-version:2020-04-08\n" +
  // "/myacct/c/b%20c.zip\nAb:1\ncomp:a,b c\na:1,%zz%00\nab:2,5\nabc:3\ncomp:appendblock\nsig:x\nsv:1".
  // A name is decoded after it was lowered. Only neighbours are joined; a soft hyphen makes no difference to them.
  EXPECT_EQ(authorization(world, false), "SharedKey myacct:1v37Of2OZzDSmcpMQbbYK1jCTWbLEQiVG0O+hXqrcHM=");
  EXPECT_TRUE(authorization(world, true).starts_with("SharedKey c:"));
  world.windows.faults.failNth("BCryptFinishHash", 1, 0xC000009A);
  EXPECT_EQ(authorization(world, false), "") << "goes out unsigned";
  EXPECT_TRUE(world.log.has(CORE::kWarn, L"AzureBlobRequest::finalizeHeaders(): Unable to generate hash"));
  EXPECT_EQ(world.log.count(L"YW55IDY0") + world.log.count(L"any 64 byte"), 0U) << "the key is never logged";
}

TEST(AzureBlobRequest, Dates) {
  using StorageSigning::dateText;
  EXPECT_EQ(dateText({2028, 12, 0, 31, 23, 59, 59, 999}), "Sun, 31 Dec 2028 23:59:59 GMT");
  EXPECT_EQ(dateText({800, 0, 9, 9, 1, 2, 3, 0}), "Sat, 09 Jan 800 01:02:03 GMT") << "never out of the tables";
  EXPECT_EQ(dateText({2026, 13, 1, 1, 0, 0, 0, 0}), "Mon, 01 Dec 2026 00:00:00 GMT");
}

}  // namespace
