#pragma once

#include <cstddef>
#include <string>

namespace CORE {

/// Overwrites the word "vtx", in any case, with three asterisks wherever it occurs in a UTF-8 text. Takes time that is
/// linear in the text's length.
/// \param from  the first byte that is searched.
void maskLegacyWord(std::string& text, std::size_t from = 0);

}  // namespace CORE
