#pragma once

#include <cstddef>
#include <string>

namespace CORE {

/// Overwrites every "vtx", in any case, from that byte of a UTF-8 text on with three asterisks. Linear in its length.
void maskLegacyWord(std::string& text, std::size_t from = 0);

}  // namespace CORE
