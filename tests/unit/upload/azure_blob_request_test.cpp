#include "upload/azure_blob_request.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include "tests/unit/http/http_test.h"

namespace {

const std::string kKey = "any 64 byte long account key, which the service hands out: 12345";
constexpr const char* kKeyText =
    "YW55IDY0IGJ5dGUgbG9uZyBhY2NvdW50IGtleSwgd2hpY2ggdGhlIHNlcnZpY2UgaGFuZHMgb3V0OiAxMjM0NQ==";

/// Base64 of the HMAC-SHA-256, by OpenSSL alone.
std::string signatureOf(const std::string& text) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  HMAC(EVP_sha256(), kKey.data(), static_cast<int>(kKey.size()), reinterpret_cast<const unsigned char*>(text.data()),
       text.size(), digest, &size);
  unsigned char encoded[EVP_MAX_MD_SIZE * 2];
  const int length = EVP_EncodeBlock(encoded, digest, static_cast<int>(size));
  return std::string(encoded, encoded + length);
}

class AzureBlobRequestTest : public ::testing::Test, protected World {
 protected:
  AzureBlobRequestTest() {
    blob->setKey(kKeyText);
    blob->setHeaders({{"x-ms-date", "stale"}, {"Content-Length", "05"}, {"If-Match", "\"tag\""}});
    blob->setQueryParameters({{"comp", "appendblock"}});
  }
  /// The signature that reached the service.
  std::string authorization() {
    EXPECT_TRUE(blob->putStringAsync(kZip, "https://myacct.blob.example/c/b%20c.zip?Comp=a%2Cb+c&sv=1&sig=x", "hello",
                                     [](HttpRequest*, const std::string&) {}));
    settle();
    EXPECT_EQ(exchange().body, "hello");
    return exchange().header("Authorization");
  }
  const std::shared_ptr<AzureBlobRequest> blob = AzureBlobRequest::create();
};

TEST_F(AzureBlobRequestTest, SignsTheWholeRequest) {
  EXPECT_EQ(authorization(),
            "SharedKey myacct:" + signatureOf("PUT\n\n\n05\n\napplication/zip\n\n\n\"tag\"\n\n\n\n"
                                              "x-ms-date:Fri, 13 Nov 2026 04:13:48 GMT\nx-ms-version:2020-04-08\n"
                                              "/myacct/c/b%20c.zip\ncomp:a,b c,appendblock\nsig:x\nsv:1"));
  EXPECT_EQ(log.count(L"YW55IDY0") + log.count(L"any 64 byte"), 0U) << "the key is never logged";
}

TEST_F(AzureBlobRequestTest, PathStyleTakesTheAccountFromThePath) {
  blob->setPathStyle(true);
  EXPECT_TRUE(authorization().starts_with("SharedKey c:"));
}

TEST_F(AzureBlobRequestTest, GoesOutUnsignedWhenTheHashFails) {
  windows.faults.failNth("BCryptFinishHash", 1, 0xC000009A);
  EXPECT_EQ(authorization(), "");
  EXPECT_TRUE(log.has(CORE::kWarn, L"AzureBlobRequest::finalizeHeaders(): Unable to generate hash"));
}

}  // namespace
