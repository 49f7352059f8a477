#include <fuzzer/FuzzedDataProvider.h>
#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cctype>

#include "core/base/unicode.h"
#include "fuzz/fuzz.h"
#include "http/trust/server_verification.h"
#include "http/trust/win_cert_implementation.h"
#include "tests/sim/windows.h"

// Chains with any distribution points and any CRLs behind them. The target computes the URLs, the thumbprints and the
// result of the manual check a second time, from the description of the chain, and compares.

namespace {

using Certs = WinCertImplementation;

enum class Kind : std::uint8_t { kMissing, kNoCrl, kWithoutInfo, kUndated, kExpired, kCurrent, kMaxValue = kCurrent };

/// What is at a URL. A CRL that revokes lists every certificate of the chain, any other CRL lists none of them.
struct Crl {
  Kind kind;
  bool revokes;
};

struct World {
  sim::Windows windows;
  sim::ServerChain chain;
  std::vector<std::vector<std::string>> urls;  // of each certificate
  std::map<std::string, Crl> crls;
};

void addCertificate(FuzzedDataProvider& input, std::size_t number, World& world) {
  auto& urls = world.urls.emplace_back();
  world.chain.certificates.push_back({std::to_string(number) + input.ConsumeRandomLengthString(20)});
  auto& about = world.chain.certificates.back();
  // Without white space, which would end the name of the certificate in a CRL.
  std::erase_if(about.der, [](unsigned char byte) { return std::isspace(byte) != 0; });
  about.hasInfo = input.ConsumeIntegralInRange(0, 7) != 0;
  about.hasExtensions = input.ConsumeIntegralInRange(0, 7) != 0;
  if (input.ConsumeIntegralInRange(0, 7) == 0) {
    about.points.emplace(std::nullopt);
    return;
  }
  auto& points = about.points.emplace().emplace();
  for (int left = input.ConsumeIntegralInRange(0, 3); left > 0; --left) {
    auto& point = points.emplace_back(platform::DistributionPoint{input.ConsumeBool(), {}});
    for (int names = input.ConsumeIntegralInRange(0, 3); names > 0; --names) {
      const std::wstring url = CORE::toWideLossy(input.ConsumeRandomLengthString(12));
      const auto type = input.PickValueInArray({2u, platform::kAltNameUrl});
      point.names.push_back({type, url});
      world.crls.emplace(CORE::toUtf8Lossy(url), Crl{input.ConsumeEnum<Kind>(), input.ConsumeBool()});
      if (about.hasInfo && about.hasExtensions && point.hasFullName && type == platform::kAltNameUrl) {
        urls.push_back(CORE::toUtf8Lossy(url));
      }
    }
  }
}

std::string thumbprintByPeer(const std::string& der) {
  std::array<unsigned char, 32> digest{};
  EVP_Digest(der.data(), der.size(), digest.data(), nullptr, EVP_sha256(), nullptr);
  std::string text;
  for (const unsigned char value : digest) {
    text += (text.empty() ? "" : ":") + std::string{"0123456789ABCDEF"[value >> 4], "0123456789ABCDEF"[value & 15]};
  }
  return text;
}

/// Returns whether the first usable CRL of each certificate that names CRLs does not revoke it.
bool passesByPeer(const World& world) {
  return std::all_of(world.urls.begin(), world.urls.end(), [&](const auto& urls) {
    const auto usable = std::find_if(urls.begin(), urls.end(),
                                     [&](const auto& url) { return world.crls.at(url).kind == Kind::kCurrent; });
    return urls.empty() || (usable != urls.end() && !world.crls.at(*usable).revokes);
  });
}

bool download(const World& world, const std::string& url, std::string& body) {
  const auto [kind, revokes] = world.crls.at(url);
  const platform::FileTime now = world.windows.kernel.now();
  std::vector<std::string> revoked = {"another"};
  for (const auto& about : world.chain.certificates) {
    revoked.push_back(revokes ? about.der : "one more");
  }
  const platform::FileTime nextUpdate = kind == Kind::kUndated ? 0 : kind == Kind::kExpired ? now - 1 : now;
  body = kind == Kind::kNoCrl         ? "no CRL"
         : kind == Kind::kWithoutInfo ? std::string(sim::Certificates::kCrlWithoutInfo)
                                      : sim::Certificates::crlText(nextUpdate, revoked);
  return kind != Kind::kMissing;
}

}  // namespace

void fuzz::target(std::string_view bytes) {
  FuzzedDataProvider input(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  World world;
  for (std::size_t number = input.ConsumeIntegralInRange<std::size_t>(0, 3); number > 0; --number) {
    addCertificate(input, number, world);
  }
  {
    ServerCertificates server;
    server.chain = world.windows.certificates.chainOf(world.chain);
    const auto listed = Certs::ExtractCrlUrlsFromChain(server.chain.get());
    FUZZ_CHECK(listed.size() == world.urls.size());
    for (std::size_t i = 0; i < listed.size(); ++i) {
      FUZZ_CHECK(listed[i].urls == world.urls[i]);
      FUZZ_CHECK(Certs::GetThumbprint(listed[i].certificate) == thumbprintByPeer(world.chain.certificates[i].der));
    }
    const std::wstring host;
    const ServerVerification verification(server, {}, host);
    const auto fetch = [&](const std::string& url, std::string& body) { return download(world, url, body); };
    FUZZ_CHECK(verification.performManualCRLCheck(fetch) == passesByPeer(world));
  }
  FUZZ_CHECK(world.windows.openHandlesText().empty());
}
