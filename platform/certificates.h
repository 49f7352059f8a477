#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/handle.h"

namespace platform {

/// Layout of CERT_CONTEXT, which a certificate's handle points to; the encoded bytes are DER and the context's own.
struct CertificateContext {
  std::uint32_t encodingType;
  const std::byte* encoded;
  std::uint32_t encodedLength;
  NativeHandle info;
  NativeHandle store;
};

}  // namespace platform
