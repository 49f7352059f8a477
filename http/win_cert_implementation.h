#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "platform/handle.h"

/// Helpers over platform certificates, given by their contexts, which stay the caller's. Stateless; any thread. They
/// log their failures and report them by their result.
class WinCertImplementation {
 public:
  /// SHA-256 of the certificate's DER encoding, 32 bytes; empty when there is no certificate or it cannot be hashed.
  static std::vector<std::byte> GetThumbprintBinary(platform::NativeHandle certificate);

  /// That digest in upper-case hexadecimal pairs joined by colons; empty when there is none.
  static std::string GetThumbprint(platform::NativeHandle certificate);

  /// The thumbprint of each certificate in order; one that cannot be hashed is left out.
  static std::vector<std::string> GetThumbprints(const std::vector<platform::NativeHandle>& certificates);
};
