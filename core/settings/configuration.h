#pragma once

#include <cstdint>
#include <string>

#include "core/settings/setting_names.h"
#include "platform/result.h"

namespace CORE {

// The settings of the program, by their constants in setting_names.h. Any thread may call; every call goes to the
// registry afresh. The only exception is coreException("OutOfMem"). The program has 64 bits, so its own view of the
// registry is the 64-bit one.

/// Reads a setting of any registry type as text up to its first NUL. The policies count first: see readConfig.
/// \return its default when it is nowhere set.
std::wstring readSetting(const Setting& setting);

/// Reads a switch: the setting's text by textToBool.
bool readSettingBool(const Setting& setting);

/// Writes a REG_DWORD below the product's key, which is made when it is missing.
platform::Status writeSetting(const Setting& setting, std::uint32_t value);

}  // namespace CORE
