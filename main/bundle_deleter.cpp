#include "main/bundle_deleter.h"

#include <system_error>

#include "core/format/error_text.h"
#include "core/log/log.h"
#include "platform/files.h"
#include "platform/platform.h"

DCTDeleter::~DCTDeleter() {
  try {
    removeBundle();
  } catch (...) {
    CORE::log(CORE::kWarn, L"DCTDeleter::~DCTDeleter(): Unable to clean DCT bundle.");
  }
}

// The text names the destructor, which alone calls this.
void DCTDeleter::removeBundle() const {
  if (path_.empty()) {
    return;
  }
  std::error_code error;
  const bool removed = platform::current().files.remove(path_, error);
  if (!removed && CORE::logAdmits(CORE::kWarn)) {
    CORE::log(CORE::kWarn, L"DCTDeleter::~DCTDeleter(): Unable to clean DCT bundle. Error code: %d. Error msg: %s",
              error.value(), CORE::systemErrorText(static_cast<std::uint32_t>(error.value())));
  }
}
