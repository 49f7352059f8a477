#pragma once

#include "tests/sim/certificates.h"

namespace sim {

/// What a store holds: certificates, by their bytes.
struct Store {
  std::set<std::string> content;
};

struct StoreObject : Object, Store {
  const char* kind() const override { return "certificate store"; }
};

/// A certificate. The same handle also refers to its store.
struct CertificateObject : Object, Store {
  const char* kind() const override { return "certificate"; }
  CertificateSpec about;
  std::vector<std::byte> extension;  ///< empty when there is none
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
  FileTime nextUpdate = 0;
  std::vector<std::string> revoked;
};

}  // namespace sim
