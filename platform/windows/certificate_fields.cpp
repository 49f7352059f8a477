// The operations that read fields of certificates, chains and CRLs.

#include "platform/windows/certificate_contexts.h"
#include "platform/windows/windows_certificates.h"

namespace platform {
namespace {

void freeLocal(void* memory) { ::LocalFree(memory); }

/// Owner of memory of the local heap, freed with LocalFree.
using LocalMemory = UniqueHandle<NullHandleTraits<void*, freeLocal>>;

DistributionPoint pointOf(const CRL_DIST_POINT& source) {
  DistributionPoint point;
  point.hasFullName = source.DistPointName.dwDistPointNameChoice == CRL_DIST_POINT_FULL_NAME;
  if (!point.hasFullName) {
    return point;
  }
  const CERT_ALT_NAME_INFO& names = source.DistPointName.FullName;
  for (const CERT_ALT_NAME_ENTRY& name : std::span(names.rgAltEntry, names.cAltEntry)) {
    const bool isUrl = name.dwAltNameChoice == CERT_ALT_NAME_URL && name.pwszURL != nullptr;
    point.names.push_back({name.dwAltNameChoice, isUrl ? std::wstring(name.pwszURL) : std::wstring()});
  }
  return point;
}

}  // namespace

Result<std::span<const std::byte>> WindowsCertificates::CertFindExtension(const std::string& oid,
                                                                          NativeHandle certificate) {
  const PCCERT_CONTEXT context = certificateOf(certificate);
  if (context == nullptr || context->pCertInfo == nullptr) {
    return {false, {}, kErrorInvalidParameter};
  }
  const CERT_EXTENSION* const found =
      ::CertFindExtension(oid.c_str(), context->pCertInfo->cExtension, context->pCertInfo->rgExtension);
  const ErrorCode error = ::GetLastError();
  if (found == nullptr) {
    return {false, {}, error};
  }
  return {true, std::as_bytes(std::span(found->Value.pbData, found->Value.cbData)), error};
}

Result<std::optional<std::vector<DistributionPoint>>> WindowsCertificates::CryptDecodeObjectEx(
    std::uint32_t encoding, std::span<const std::byte> encoded) {
  if (!fitsDword(encoded.size())) {
    return {false, {}, kErrorInvalidParameter};
  }
  const auto* const bytes = reinterpret_cast<const BYTE*>(encoded.data());
  const CRL_DIST_POINTS_INFO* info = nullptr;
  DWORD size = 0;
  const BOOL decoded = ::CryptDecodeObjectEx(encoding, szOID_CRL_DIST_POINTS, bytes, static_cast<DWORD>(encoded.size()),
                                             CRYPT_DECODE_ALLOC_FLAG, nullptr, &info, &size);
  const ErrorCode error = ::GetLastError();
  const LocalMemory memory(handleOf(info));
  if (!decoded || info == nullptr) {
    return {decoded != FALSE, {}, error};
  }
  std::vector<DistributionPoint> points;
  for (const CRL_DIST_POINT& point : std::span(info->rgDistPoint, info->cDistPoint)) {
    points.push_back(pointOf(point));
  }
  return {true, std::move(points), error};
}

CertificateView WindowsCertificates::certificate(NativeHandle certificate) {
  const PCCERT_CONTEXT context = certificateOf(certificate);
  if (context == nullptr) {
    return {};
  }
  CertificateView view;
  view.encoded = std::as_bytes(std::span(context->pbCertEncoded, context->cbCertEncoded));
  view.hasInfo = context->pCertInfo != nullptr;
  view.extensions = view.hasInfo ? context->pCertInfo->cExtension : 0;
  view.store = context->hCertStore;
  return view;
}

ChainView WindowsCertificates::chain(NativeHandle chain) {
  const PCCERT_CHAIN_CONTEXT context = chainOf(chain);
  if (context == nullptr) {
    return {};
  }
  ChainView view;
  view.errorStatus = context->TrustStatus.dwErrorStatus;
  view.infoStatus = context->TrustStatus.dwInfoStatus;
  view.simpleChains = context->rgpChain != nullptr ? context->cChain : 0;
  const CERT_SIMPLE_CHAIN* const first = view.simpleChains > 0 ? context->rgpChain[0] : nullptr;
  if (first == nullptr || first->rgpElement == nullptr) {
    return view;
  }
  for (const CERT_CHAIN_ELEMENT* const element : std::span(first->rgpElement, first->cElement)) {
    if (element != nullptr && element->pCertContext != nullptr) {
      view.certificates.push_back(handleOf(element->pCertContext));
    }
  }
  return view;
}

CrlView WindowsCertificates::crl(NativeHandle crl) {
  const PCCRL_CONTEXT context = crlOf(crl);
  if (context == nullptr || context->pCrlInfo == nullptr) {
    return {};
  }
  const FILETIME& next = context->pCrlInfo->NextUpdate;
  return {true, FileTime{next.dwHighDateTime} << 32 | next.dwLowDateTime};
}

}  // namespace platform
