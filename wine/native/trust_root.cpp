// trust_root CERTIFICATE.der
//
// Adds the certificate to the root certificates that the machine of this prefix trusts. The exit code is 0 when it has
// been added, otherwise 1.

#include <windows.h>

// After windows.h, which it needs.
#include <wincrypt.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "wine/native/arguments.h"

int main() {
  std::ifstream file(std::filesystem::path(native::arguments().at(0)), std::ios::binary);
  const std::vector<char> der{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  const HCERTSTORE store = ::CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE, L"ROOT");
  const auto* const bytes = reinterpret_cast<const BYTE*>(der.data());
  const bool done = store != nullptr &&
                    ::CertAddEncodedCertificateToStore(store, X509_ASN_ENCODING, bytes, static_cast<DWORD>(der.size()),
                                                       CERT_STORE_ADD_REPLACE_EXISTING, nullptr) &&
                    ::CertCloseStore(store, 0);  // writes the store back
  if (!done) {
    native::complain("trust_root", "not added, error " + std::to_string(::GetLastError()));
  }
  return done ? 0 : 1;
}
