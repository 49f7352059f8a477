// trust_root CERTIFICATE.der: makes the machine of this prefix trust the certificate as a root.

#include <windows.h>

// After windows.h, which it needs.
#include <wincrypt.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/wine/native/arguments.h"

namespace {

int fail(const std::string& text) {
  native::complain("trust_root", text + ", error " + std::to_string(::GetLastError()));
  return 1;
}

}  // namespace

int main() {
  std::ifstream file(std::filesystem::path(native::arguments().at(0)), std::ios::binary);
  const std::vector<char> der{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  const HCERTSTORE store = ::CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE, L"ROOT");
  if (store == nullptr) {
    return fail("cannot open the machine's root store");
  }
  const auto* const bytes = reinterpret_cast<const BYTE*>(der.data());
  if (!::CertAddEncodedCertificateToStore(store, X509_ASN_ENCODING, bytes, static_cast<DWORD>(der.size()),
                                          CERT_STORE_ADD_REPLACE_EXISTING, nullptr)) {
    return fail("no DER certificate there, or not taken");
  }
  // Closing writes the store back.
  return ::CertCloseStore(store, 0) ? 0 : fail("cannot close the machine's root store");
}
