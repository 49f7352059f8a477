#include "upload/azure_blob_request.h"

#include "tests/unit/http/http_test.h"

namespace {

constexpr const char* kKey = "YW55IDY0IGJ5dGUgbG9uZyBhY2NvdW50IGtleSwgd2hpY2ggdGhlIHNlcnZpY2UgaGFuZHMgb3V0OiAxMjM0NQ==";

/// The signature that reaches the service.
std::string authorization(World& world, bool pathStyle) {
  const auto blob = AzureBlobRequest::create();
  blob->setKey(kKey);
  blob->setPathStyle(pathStyle);
  blob->setHeaders({{"x-ms-date", "stale"}, {"Content-Length", "05"}, {"If-Match", "\"tag\""}});
  blob->setQueryParameters({{"comp", "appendblock"}});
  EXPECT_TRUE(blob->putStringAsync(kZip, "https://myacct.blob.example/c/b%20c.zip?Comp=a%2Cb+c&sv=1&sig=x", "hello",
                                   [](HttpRequest*, const std::string&) {}));
  world.settle();
  EXPECT_EQ(world.exchange().body, "hello");
  return world.exchange().header("Authorization");
}

TEST(AzureBlobRequest, SignsTheWholeRequest) {
  World world;
  // OpenSSL's HMAC-SHA-256 with the decoded key of "PUT\n\n\n05\n\napplication/zip\n\n\n\"tag\"\n\n\n\n" +
  // "x-ms-date:Fri, 13 Nov 2026 04:13:48 GMT\nx-ms-version:2020-04-08\n" +
  // "/myacct/c/b%20c.zip\ncomp:a,b c,appendblock\nsig:x\nsv:1".
  EXPECT_EQ(authorization(world, false), "SharedKey myacct:1iW1a7bahpIikYeDP4qfXcOQPNXSwOAl1TIDuAru+fU=");
  EXPECT_TRUE(authorization(world, true).starts_with("SharedKey c:"));
  world.windows.faults.failNth("BCryptFinishHash", 1, 0xC000009A);
  EXPECT_EQ(authorization(world, false), "") << "goes out unsigned";
  EXPECT_TRUE(world.log.has(CORE::kWarn, L"AzureBlobRequest::finalizeHeaders(): Unable to generate hash"));
  EXPECT_EQ(world.log.count(L"YW55IDY0") + world.log.count(L"any 64 byte"), 0U) << "the key is never logged";
}

}  // namespace
