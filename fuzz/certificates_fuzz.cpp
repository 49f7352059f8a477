#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cctype>

#include "core/convert.h"
#include "fuzz/check.h"
#include "http/server_verification.h"
#include "http/win_cert_implementation.h"
#include "tests/sim/windows.h"

// Chains with any distribution points and any CRLs behind them: URLs, thumbprints, and the verdict of the manual check,
// each worked out here a second time from the description of the chain.

namespace {

using Certs = WinCertImplementation;

enum class Crl : std::uint8_t { kMissing, kNoCrl, kWithoutInfo, kClear, kRevoking, kMaxValue = kRevoking };

/// A CRL at a URL: its kind, and its next update from now on, negative when that has passed, or none.
struct Served {
  Crl kind;
  std::optional<std::int64_t> nextUpdate;

  bool isUsable() const { return kind >= Crl::kClear && nextUpdate && *nextUpdate >= 0; }
};

struct World {
  sim::Windows windows;
  sim::ServerChain chain;
  std::map<std::string, Served> crls;
};

sim::CertificateSpec makeCertificate(FuzzedDataProvider& input, std::size_t number, World& world) {
  sim::CertificateSpec about{std::to_string(number) + input.ConsumeRandomLengthString(20)};
  std::erase_if(about.der, [](unsigned char byte) { return std::isspace(byte) != 0; });  // which end a name in a CRL
  about.hasInfo = input.ConsumeIntegralInRange(0, 7) != 0;
  about.hasExtensions = input.ConsumeIntegralInRange(0, 7) != 0;
  if (input.ConsumeIntegralInRange(0, 7) == 0) {
    about.points.emplace(std::nullopt);
    return about;
  }
  auto& points = about.points.emplace().emplace();
  for (int left = input.ConsumeIntegralInRange(0, 3); left > 0; --left) {
    auto& point = points.emplace_back(platform::DistributionPoint{input.ConsumeBool(), {}});
    for (int names = input.ConsumeIntegralInRange(0, 3); names > 0; --names) {
      const std::wstring url = CORE::toWideLossy(input.ConsumeRandomLengthString(12));
      point.names.push_back({input.PickValueInArray({2u, platform::kAltNameUrl}), url});
      const Served served{input.ConsumeEnum<Crl>(), input.PickValueInArray<std::int64_t>({-1, 0, 1})};
      world.crls.emplace(CORE::toUtf8Lossy(url), input.ConsumeBool() ? served : Served{served.kind, std::nullopt});
    }
  }
  return about;
}

std::vector<std::string> urlsOf(const sim::CertificateSpec& about) {
  std::vector<std::string> urls;
  if (!about.hasInfo || !about.hasExtensions || !*about.points) {
    return urls;
  }
  for (const auto& point : **about.points) {
    for (const auto& name : point.names) {
      if (point.hasFullName && name.type == platform::kAltNameUrl) {
        urls.push_back(CORE::toUtf8Lossy(name.url));
      }
    }
  }
  return urls;
}

std::string thumbprintByPeer(const std::string& der) {
  sim::Sha256 hash;
  hash.add(std::as_bytes(std::span(der)));
  std::string text;
  for (const int digit : hash.hex()) {
    text += (text.size() % 3 == 2 ? ":" : "") + std::string(1, static_cast<char>(std::toupper(digit)));
  }
  return text;
}

/// Whether the first usable CRL of each certificate that names any clears it.
bool passesByPeer(const World& world) {
  return std::all_of(world.chain.certificates.begin(), world.chain.certificates.end(), [&](const auto& about) {
    const auto urls = urlsOf(about);
    const auto usable =
        std::find_if(urls.begin(), urls.end(), [&](const auto& url) { return world.crls.at(url).isUsable(); });
    return urls.empty() || (usable != urls.end() && world.crls.at(*usable).kind == Crl::kClear);
  });
}

/// Revoking CRLs list every certificate of the chain, clear ones something else.
bool download(const World& world, const std::string& url, std::string& body) {
  const Served& served = world.crls.at(url);
  const auto now = static_cast<std::int64_t>(world.windows.kernel.now());
  std::vector<std::string> revoked = {"another"};
  for (const auto& about : world.chain.certificates) {
    revoked.push_back(about.der);
  }
  revoked.resize(served.kind == Crl::kRevoking ? revoked.size() : 1);
  const auto nextUpdate = served.nextUpdate ? static_cast<platform::FileTime>(now + *served.nextUpdate) : 0;
  body = served.kind == Crl::kNoCrl         ? "no CRL"
         : served.kind == Crl::kWithoutInfo ? std::string(sim::Certificates::kCrlWithoutInfo)
                                            : sim::Certificates::crlText(nextUpdate, revoked);
  return served.kind != Crl::kMissing;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  World world;
  for (std::size_t number = input.ConsumeIntegralInRange<std::size_t>(0, 3); number > 0; --number) {
    world.chain.certificates.push_back(makeCertificate(input, number, world));
  }
  {
    ServerCertificates server;
    server.chain = world.windows.certificates.chainOf(world.chain);
    const auto listed = Certs::ExtractCrlUrlsFromChain(server.chain.get());
    FUZZ_CHECK(listed.size() == world.chain.certificates.size());
    for (std::size_t i = 0; i < listed.size(); ++i) {
      const auto& about = world.chain.certificates[i];
      FUZZ_CHECK(listed[i].urls == urlsOf(about));
      FUZZ_CHECK(Certs::GetThumbprint(listed[i].certificate) == thumbprintByPeer(about.der));
    }
    const std::wstring host;
    const ServerVerification verification(server, {}, host);
    const auto fetch = [&](const std::string& url, std::string& body) { return download(world, url, body); };
    FUZZ_CHECK(verification.performManualCRLCheck(fetch) == passesByPeer(world));
  }
  FUZZ_CHECK(world.windows.openHandlesText().empty());
  return 0;
}
