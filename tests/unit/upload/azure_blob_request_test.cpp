#include "upload/azure_blob_request.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include "tests/sim/log_capture.h"
#include "tests/sim/windows.h"

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

class AzureBlobRequestTest : public ::testing::Test {
 protected:
  AzureBlobRequestTest() { windows.winHttp.delivery = sim::Delivery::kInline; }
  ~AzureBlobRequestTest() override {
    EXPECT_EQ(windows.openHandlesText(), openBefore);
    EXPECT_EQ(windows.misuse(), std::vector<std::string>());
  }

  sim::HttpExchange put(AzureBlobRequest& request, const std::string& url, const std::string& body) {
    EXPECT_TRUE(request.putStringAsync(ContentType::kZip, url, body, [](HttpRequest*, const std::string&) {}));
    const auto sent = windows.winHttp.sentRequests();
    return sent.empty() ? sim::HttpExchange() : sent.back();
  }

  sim::Windows windows;
  sim::LogCapture log{windows};
  const std::string openBefore = windows.openHandlesText();
};

TEST_F(AzureBlobRequestTest, WithoutAKeyOnlyTheServiceHeadersAreAdded) {
  using Headers = std::vector<std::pair<std::string, std::string>>;
  const Headers empty = {{"Content-Type", "application/zip"},
                         {"x-ms-date", "Fri, 13 Nov 2026 04:13:48 GMT"},
                         {"x-ms-version", "2020-04-08"}};
  const auto first = AzureBlobRequest::create();
  first->setKey("");
  first->setHeaders({{"x-ms-date", "stale"}});
  EXPECT_EQ(put(*first, "https://acct.blob.example/c/b", "").headers, empty);
  Headers withBody = empty;
  withBody.insert(withBody.begin(), {"Content-Length", "5"});
  EXPECT_EQ(put(*AzureBlobRequest::create(), "https://acct.blob.example/c/b", "hello").headers, withBody);
  const auto given = AzureBlobRequest::create();
  given->setHeaders({{"Content-Length", "0"}});
  EXPECT_EQ(put(*given, "https://acct.blob.example/c/b", "hello").header("Content-Length"), "0");
}

TEST_F(AzureBlobRequestTest, SignsTheWholeRequest) {
  const auto request = AzureBlobRequest::create();
  request->setKey(kKeyText);
  request->setHeaders({{"x-ms-blob-type", "BlockBlob"}, {"If-Match", "\"tag\""}});
  request->setQueryParameters({{"comp", "appendblock"}});
  const auto sent = put(*request, "https://myacct.blob.example/c/b%20c.zip?Comp=a%2Cb+c&sv=1&sig=x", "hello");
  const std::string text =
      "PUT\n\n\n5\n\napplication/zip\n\n\n\"tag\"\n\n\n\n"
      "x-ms-blob-type:BlockBlob\nx-ms-date:Fri, 13 Nov 2026 04:13:48 GMT\nx-ms-version:2020-04-08\n"
      "/myacct/c/b%20c.zip\ncomp:a,b c,appendblock\nsig:x\nsv:1";
  EXPECT_EQ(sent.header("Authorization"), "SharedKey myacct:" + signatureOf(text));
}

TEST_F(AzureBlobRequestTest, PathStyleNamesTheAccountTwice) {
  const auto request = AzureBlobRequest::create();
  request->setKey(kKeyText);
  request->setPathStyle(true);
  const auto sent = put(*request, "https://127.0.0.1:10000/account/c/b", "");
  const std::string text =
      "PUT\n\n\n\n\napplication/zip\n\n\n\n\n\n\nx-ms-date:Fri, 13 Nov 2026 04:13:48 GMT\nx-ms-version:2020-04-08\n"
      "/account/account/c/b";
  EXPECT_EQ(sent.header("Authorization"), "SharedKey account:" + signatureOf(text));
}

TEST_F(AzureBlobRequestTest, GoesOutUnsignedWhenTheHashFails) {
  windows.faults.failNth("BCryptFinishHash", 1, 0xC000009A);
  const auto request = AzureBlobRequest::create();
  request->setKey(kKeyText);
  const auto sent = put(*request, "https://acct.blob.example/c/b", "hello");
  EXPECT_TRUE(sent.sent);
  EXPECT_EQ(sent.header("Authorization"), "");
  EXPECT_TRUE(log.has(CORE::kWarn, L"AzureBlobRequest::finalizeHeaders(): Unable to generate hash"));
}

TEST_F(AzureBlobRequestTest, TheKeyIsNeverLogged) {
  const auto request = AzureBlobRequest::create();
  request->setKey(kKeyText);
  put(*request, "https://acct.blob.example/c/b", "hello");
  EXPECT_EQ(log.count(L"YW55IDY0"), 0U);
  EXPECT_EQ(log.count(L"any 64 byte"), 0U);
}

}  // namespace
