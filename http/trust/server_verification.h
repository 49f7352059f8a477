#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "platform/certificates.h"
#include "platform/handle.h"

/// What a request demands of the server's certificates.
struct TrustSettings {
  bool ignoreAllErrors = false;
  bool ignoreName = false;
  bool checkRevocation = false;
  std::vector<std::string> pins;  ///< thumbprints, as WinCertImplementation::GetThumbprint writes them
};

/// The certificate and the chain that a server showed.
struct ServerCertificates {
  platform::CertificateHandle certificate;
  platform::ChainHandle chain;
};

/// SHA-256 of a certificate's DER encoding, 32 bytes.
using BinaryThumbprint = std::vector<std::byte>;

/// The checks of a server's certificates that are the program's own, on top of WinHTTP's. Each logs why it fails, under
/// the request's name, whose checks they are. An object is used by one thread; it borrows what it is given.
class ServerVerification {
 public:
  /// Downloads a CRL from a URL; false when that failed.
  using CrlDownload = std::function<bool(const std::string& url, std::string& body)>;

  /// The server's certificate, from a request whose TLS connection stands; null when it cannot be had, as before that
  /// (error 12019). Source: WINHTTP_OPTION_SERVER_CERT_CONTEXT.
  static platform::CertificateHandle GetServerCert(platform::NativeHandle request);

  /// The chain of that certificate: as WinHTTP built it, or, where it does not tell, built here from the certificate's
  /// own store without any retrieval from the network. Null when it cannot be had.
  static platform::ChainHandle GetCertChain(platform::NativeHandle request, platform::NativeHandle certificate);

  /// \param host  the name that the leaf must carry
  ServerVerification(const ServerCertificates& server, const TrustSettings& trust, const std::wstring& host)
      : server_(server), trust_(trust), host_(host) {}

  /// Whether the chain satisfies the SSL policy; an untrusted root alone does not make it fail.
  /// \param untrustedRoot  true when the chain may be accepted by a pin only; false on failure.
  bool verifyCertChain(bool& untrustedRoot) const;

  /// Whether a pin equals the thumbprint of one of the chain's certificates, upper and lower case being different.
  bool thumbprintMatch() const;

  /// Whether the platform finds nobody in the chain revoked. It may wait for the network, without the request's proxy.
  bool automaticCRLCheck() const;

  /// The same, with CRLs that are downloaded here: each certificate that names any must be cleared by one of them, the
  /// first that is usable. Certificates that name none pass.
  bool performManualCRLCheck(const CrlDownload& download) const;

  /// The thumbprint of every certificate in the chain, leaf first; one that cannot be hashed gives an empty one. Empty
  /// when the chain holds none.
  std::vector<BinaryThumbprint> thumbprints() const;

 private:
  const ServerCertificates& server_;
  const TrustSettings& trust_;
  const std::wstring& host_;
};
