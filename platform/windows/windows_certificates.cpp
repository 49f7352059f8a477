#include "platform/windows/windows_certificates.h"

#include "platform/windows/certificate_contexts.h"

namespace platform {
namespace {

/// The result for a null context. It is refused here because the platform would read through the pointer.
template <class T>
Result<T> refused() {
  return {false, T{}, kErrorInvalidParameter};
}

template <class Handle>
Result<Handle> ownerOf(const void* context) {
  const ErrorCode error = ::GetLastError();
  return {context != nullptr, Handle(handleOf(context)), error};
}

const BYTE* bytesOf(std::span<const std::byte> data) { return reinterpret_cast<const BYTE*>(data.data()); }

}  // namespace

Result<std::uint32_t> WindowsCertificates::CryptStringToBinaryA(std::string_view text, std::uint32_t flags,
                                                                std::span<std::byte> buffer) {
  if (!fitsDword(text.size())) {
    return refused<std::uint32_t>();
  }
  const char* const characters = text.empty() ? "" : text.data();  // a length of 0 means "up to the terminator"
  BYTE* const bytes = buffer.empty() ? nullptr : reinterpret_cast<BYTE*>(buffer.data());
  DWORD size = atMostDword(buffer.size());
  const BOOL decoded =
      ::CryptStringToBinaryA(characters, static_cast<DWORD>(text.size()), flags, bytes, &size, nullptr, nullptr);
  return resultOf(decoded, std::uint32_t{size});
}

Result<CertificateHandle> WindowsCertificates::CertCreateCertificateContext(std::uint32_t encoding,
                                                                            std::span<const std::byte> encoded) {
  if (!fitsDword(encoded.size())) {
    return refused<CertificateHandle>();
  }
  return ownerOf<CertificateHandle>(
      ::CertCreateCertificateContext(encoding, bytesOf(encoded), static_cast<DWORD>(encoded.size())));
}

Result<CrlHandle> WindowsCertificates::CertCreateCRLContext(std::uint32_t encoding,
                                                            std::span<const std::byte> encoded) {
  if (!fitsDword(encoded.size())) {
    return refused<CrlHandle>();
  }
  return ownerOf<CrlHandle>(::CertCreateCRLContext(encoding, bytesOf(encoded), static_cast<DWORD>(encoded.size())));
}

Result<CertificateHandle> WindowsCertificates::CertDuplicateCertificateContext(NativeHandle certificate) {
  if (certificate == nullptr) {
    return refused<CertificateHandle>();
  }
  return ownerOf<CertificateHandle>(::CertDuplicateCertificateContext(certificateOf(certificate)));
}

void WindowsCertificates::CertFreeCertificateContext(NativeHandle certificate) {
  if (certificate != nullptr) {
    ::CertFreeCertificateContext(certificateOf(certificate));
  }
}

void WindowsCertificates::CertFreeCertificateChain(NativeHandle chain) {
  if (chain != nullptr) {
    ::CertFreeCertificateChain(chainOf(chain));
  }
}

void WindowsCertificates::CertFreeCRLContext(NativeHandle crl) {
  if (crl != nullptr) {
    ::CertFreeCRLContext(crlOf(crl));
  }
}

std::uint32_t WindowsCertificates::CertGetNameStringW(NativeHandle certificate, std::uint32_t type,
                                                      std::span<wchar_t> buffer) {
  if (certificate == nullptr) {
    return 0;
  }
  DWORD format = CERT_X500_NAME_STR;
  wchar_t* const text = buffer.empty() ? nullptr : buffer.data();
  return ::CertGetNameStringW(certificateOf(certificate), type, 0, &format, text, atMostDword(buffer.size()));
}

Result<StoreHandle> WindowsCertificates::CertOpenStore() {
  return ownerOf<StoreHandle>(::CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr));
}

Status WindowsCertificates::CertAddCertificateContextToStore(NativeHandle store, NativeHandle certificate,
                                                             std::uint32_t disposition) {
  if (store == nullptr || certificate == nullptr) {
    return {false, kErrorInvalidParameter};
  }
  return statusOf(::CertAddCertificateContextToStore(store, certificateOf(certificate), disposition, nullptr));
}

void WindowsCertificates::CertCloseStore(NativeHandle store) {
  if (store != nullptr) {
    ::CertCloseStore(store, 0);
  }
}

Result<ChainHandle> WindowsCertificates::CertGetCertificateChain(NativeHandle certificate, NativeHandle store,
                                                                 const std::vector<std::string>& usages,
                                                                 std::uint32_t flags, std::uint32_t retrievalTimeout) {
  if (certificate == nullptr) {
    return refused<ChainHandle>();
  }
  std::vector<char*> identifiers;  // the call only reads them, although it takes pointers to non-const
  for (const std::string& usage : usages) {
    identifiers.push_back(const_cast<char*>(usage.c_str()));
  }
  CERT_CHAIN_PARA parameters{};
  parameters.cbSize = sizeof(parameters);
  parameters.RequestedUsage.dwType = usages.empty() ? USAGE_MATCH_TYPE_AND : USAGE_MATCH_TYPE_OR;
  parameters.RequestedUsage.Usage.cUsageIdentifier = static_cast<DWORD>(identifiers.size());
  parameters.RequestedUsage.Usage.rgpszUsageIdentifier = identifiers.empty() ? nullptr : identifiers.data();
  parameters.dwUrlRetrievalTimeout = retrievalTimeout;
  PCCERT_CHAIN_CONTEXT chain = nullptr;
  const BOOL built = ::CertGetCertificateChain(nullptr, certificateOf(certificate), nullptr, store, &parameters, flags,
                                               nullptr, &chain);
  const ErrorCode error = ::GetLastError();
  return {built != FALSE, ChainHandle(handleOf(chain)), error};
}

Result<std::uint32_t> WindowsCertificates::CertVerifyCertificateChainPolicy(std::uint32_t policy, NativeHandle chain,
                                                                            const SslPolicy& parameters) {
  if (chain == nullptr) {
    return refused<std::uint32_t>();
  }
  SSL_EXTRA_CERT_CHAIN_POLICY_PARA ssl{};
  ssl.cbSize = sizeof(ssl);
  ssl.dwAuthType = parameters.authType;
  ssl.fdwChecks = parameters.checks;
  // The call only reads the name, although it takes a pointer to non-const.
  ssl.pwszServerName = parameters.serverName.empty() ? nullptr : const_cast<wchar_t*>(parameters.serverName.c_str());
  CERT_CHAIN_POLICY_PARA question{};
  question.cbSize = sizeof(question);
  question.dwFlags = parameters.flags;
  question.pvExtraPolicyPara = &ssl;
  CERT_CHAIN_POLICY_STATUS answer{};
  answer.cbSize = sizeof(answer);
  const auto* const number = reinterpret_cast<const char*>(std::uintptr_t{policy});
  const BOOL asked = ::CertVerifyCertificateChainPolicy(number, chainOf(chain), &question, &answer);
  return resultOf(asked, std::uint32_t{answer.dwError});
}

Result<bool> WindowsCertificates::CertFindCertificateInCRL(NativeHandle certificate, NativeHandle crl) {
  if (certificate == nullptr || crl == nullptr) {
    return refused<bool>();
  }
  PCRL_ENTRY entry = nullptr;
  const BOOL searched = ::CertFindCertificateInCRL(certificateOf(certificate), crlOf(crl), 0, nullptr, &entry);
  const ErrorCode error = ::GetLastError();
  return {searched != FALSE, searched != FALSE && entry != nullptr, error};
}

}  // namespace platform
