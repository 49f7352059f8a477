#pragma once

#include <set>

#include "tests/sim/certificates.h"

namespace sim {

struct CertificateObject : Object {
  const char* kind() const override { return "certificate"; }
  CertificateSpec about;
  std::vector<std::byte> encoded;
  std::vector<std::byte> extension;  ///< empty when there is none
  std::vector<std::string> peers;    ///< the content of its own store
  NativeHandle store = nullptr;
};

struct ChainObject : Object {
  const char* kind() const override { return "certificate chain"; }
  ServerChain shown;
  std::vector<NativeHandle> certificates;
  std::uint32_t errorStatus = 0;
  std::uint32_t infoStatus = 0;
};

struct CrlObject : Object {
  const char* kind() const override { return "CRL"; }
  bool hasInfo = true;
  platform::FileTime nextUpdate = 0;
  std::vector<std::string> revoked;
};

struct StoreObject : Object {
  const char* kind() const override { return "certificate store"; }
  std::set<std::string> certificates;
};

/// As Kernel::callOn; null is refused as a parameter.
template <class T, class Work>
auto Certificates::callOn(const char* name, NativeHandle handle, const Work& work) {
  using R = decltype(work(std::declval<T&>()));
  return kernel_.call(name, [&]() -> R {
    if (handle == nullptr) {
      return Failure{platform::kErrorInvalidParameter};
    }
    const auto object = kernel_.get<T>(handle, name);
    return object == nullptr ? R(Failure{platform::kErrorInvalidHandle}) : work(*object);
  });
}

}  // namespace sim
