#include "http/win_cert_implementation.h"

#include "platform/certificates.h"
#include "tests/unit/http/http_test.h"

namespace {

class WinCertImplementationTest : public HttpTest {
 protected:
  static platform::CertificateContext certificate(std::string_view der) {
    return {0x10001, reinterpret_cast<const std::byte*>(der.data()), static_cast<std::uint32_t>(der.size()), nullptr,
            nullptr};
  }
};

// FIPS 180-2, appendix B.1.
TEST_F(WinCertImplementationTest, ThumbprintsAreSha256InUpperCasePairs) {
  World world;
  auto abc = certificate("abc");
  auto empty = certificate("");
  EXPECT_EQ(
      WinCertImplementation::GetThumbprints({&abc, &empty}),
      std::vector<std::string>({"BA:78:16:BF:8F:01:CF:EA:41:41:40:DE:5D:AE:22:23:B0:03:61:A3:96:17:7A:9C:B4:10:FF:"
                                "61:F2:00:15:AD",
                                "E3:B0:C4:42:98:FC:1C:14:9A:FB:F4:C8:99:6F:B9:24:27:AE:41:E4:64:9B:93:4C:A4:95:99:"
                                "1B:78:52:B8:55"}));
  EXPECT_EQ(WinCertImplementation::GetThumbprintBinary(&abc).size(), 32U);
}

TEST_F(WinCertImplementationTest, CertificateThatCannotBeHashedIsLeftOut) {
  World world;
  auto abc = certificate("abc");
  world.windows.faults.failNth("BCryptFinishHash", 1, 5);
  EXPECT_EQ(WinCertImplementation::GetThumbprints({&abc, nullptr, &abc}).size(), 1U);
  EXPECT_EQ(
      world.log.count(L"WinCertImplementation::GetThumbprintBinary::<lambda_1>::operator ()(): GenerateHash failed."),
      2U);
  EXPECT_EQ(world.log.count(L"WinCertImplementation::GetThumbprints(): Unable to generate hash for certificate:"), 2U);
}

TEST_F(WinCertImplementationTest, PinsFromCertificatesReachTheRequest) {
  World world;
  auto abc = certificate("abc");
  world.request->setThumbprintsFromCerts({&abc});
  EXPECT_TRUE(world.request->getAsync(kUrl, world.completions.function()));
  EXPECT_EQ(world.exchange().securityFlags(), 0x100U) << "a pin is set";
}

}  // namespace
