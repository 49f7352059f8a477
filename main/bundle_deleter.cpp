#include "main/bundle_deleter.h"

#include <system_error>

#include "core/base/unicode.h"
#include "core/format/error_text.h"
#include "core/log/log.h"
#include "platform/files.h"
#include "platform/platform.h"

namespace {

/// The file-system library reports some failures as an errno of C, whose numbers Windows gives other meanings.
std::wstring textOf(const std::error_code& error) {
  return error.category() == std::generic_category() ? CORE::toWideLossy(error.message())
                                                     : CORE::systemErrorText(static_cast<std::uint32_t>(error.value()));
}

}  // namespace

DCTDeleter::~DCTDeleter() {
  try {
    removeBundle();
  } catch (...) {
    CORE::log(CORE::kWarn, L"DCTDeleter::~DCTDeleter(): Unable to clean DCT bundle.");
  }
}

// The text names the destructor, which alone calls this.
void DCTDeleter::removeBundle() const {
  auto& files = platform::current().files;
  std::error_code error;
  bool removed = true;
  if (!path_.empty()) {
    removed = files.remove(path_, error);
  } else if (!widePath_.empty()) {
    const platform::Status deleted = files.DeleteFileW(widePath_);
    removed = deleted.ok;
    error.assign(static_cast<int>(deleted.error), std::system_category());
  }
  if (!removed && CORE::logAdmits(CORE::kWarn)) {
    CORE::log(CORE::kWarn, L"DCTDeleter::~DCTDeleter(): Unable to clean DCT bundle. Error code: %d. Error msg: %s",
              error.value(), textOf(error));
  }
}
