#include "platform/platform.h"

#include <atomic>
#include <cstdlib>

#include "platform/certificates.h"
#include "platform/digests.h"
#include "platform/files.h"
#include "platform/handle.h"
#include "platform/objects.h"
#include "platform/processes.h"
#include "platform/registry.h"
#include "platform/security.h"
#include "platform/winhttp.h"

namespace platform {
namespace {

std::atomic<const Platform*> installed{nullptr};

}  // namespace

void install(const Platform* platform) { installed.store(platform); }

const Platform& current() {
  const Platform* platform = installed.load();
  if (platform == nullptr) {
    std::abort();
  }
  return *platform;
}

void KernelHandleTraits::close(NativeHandle handle) { current().objects.CloseHandle(handle); }

void closeRegistryKey(NativeHandle key) { current().registry.RegCloseKey(key); }
void closeInternetHandle(NativeHandle handle) { current().winHttp.WinHttpCloseHandle(handle); }
void closeAlgorithmProvider(NativeHandle provider) { current().digests.BCryptCloseAlgorithmProvider(provider); }
void closeHash(NativeHandle hash) { current().digests.BCryptDestroyHash(hash); }
void freeCertificate(NativeHandle certificate) { current().certificates.CertFreeCertificateContext(certificate); }
void freeChain(NativeHandle chain) { current().certificates.CertFreeCertificateChain(chain); }
void freeCrl(NativeHandle crl) { current().certificates.CertFreeCRLContext(crl); }
void closeStore(NativeHandle store) { current().certificates.CertCloseStore(store); }
void FindHandleTraits::close(NativeHandle search) { current().files.FindClose(search); }
void freeSecurityDescriptor(NativeHandle descriptor) { current().security.freeDescriptor(descriptor); }
void closeSid(NativeHandle sid) { current().security.FreeSid(sid); }
void closeArgumentVector(wchar_t** arguments) { current().processes.LocalFree(arguments); }

}  // namespace platform
