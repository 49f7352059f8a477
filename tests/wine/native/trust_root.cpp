// trust_root CERTIFICATE.der...: makes the machine of this prefix trust the certificates as roots.

#include <windows.h>

// After windows.h, which it needs.
#include <wincrypt.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "tests/wine/native/arguments.h"

namespace {

constexpr const char* kProgram = "trust_root";

bool addCertificate(HCERTSTORE store, const std::wstring& argument) {
  const std::string name = native::narrow(argument);
  std::ifstream file(std::filesystem::path(native::windowsPath(argument)), std::ios::binary);
  if (!file) {
    native::complain(kProgram, "cannot open " + name);
    return false;
  }
  const std::vector<char> der{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  const auto* const bytes = reinterpret_cast<const BYTE*>(der.data());
  if (!::CertAddEncodedCertificateToStore(store, X509_ASN_ENCODING, bytes, static_cast<DWORD>(der.size()),
                                          CERT_STORE_ADD_REPLACE_EXISTING, nullptr)) {
    native::complain(kProgram, "not a DER certificate, or not taken: " + name, ::GetLastError());
    return false;
  }
  return true;
}

}  // namespace

int main() {
  const std::vector<std::wstring> files = native::arguments();
  if (files.empty()) {
    native::complain(kProgram, "usage: trust_root CERTIFICATE.der...");
    return 64;
  }
  const HCERTSTORE store = ::CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE, L"ROOT");
  if (store == nullptr) {
    native::complain(kProgram, "cannot open the machine's root store", ::GetLastError());
    return 1;
  }
  bool added = true;
  for (const std::wstring& file : files) {
    added = addCertificate(store, file) && added;
  }
  // Closing writes the store back.
  if (!::CertCloseStore(store, 0)) {
    native::complain(kProgram, "cannot close the machine's root store", ::GetLastError());
    return 1;
  }
  return added ? 0 : 1;
}
