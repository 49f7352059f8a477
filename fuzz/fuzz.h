#pragma once

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Ends the fuzzer, which then saves the input, when a property does not hold.
#define FUZZ_CHECK(...) fuzz::demand((__VA_ARGS__), __FILE__, __LINE__, #__VA_ARGS__)

namespace fuzz {

/// The function of a fuzz target: checks its properties for one input. Nothing that it allocates may stay until the
/// next input, because it would look like a leak.
void target(std::string_view input);

inline void demand(bool holds, const char* file, int line, const char* property) {
  if (!holds) {
    std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, property);
    std::abort();
  }
}

/// Returns what is before the first separator, and what is behind it.
template <class C>
std::pair<std::basic_string<C>, std::basic_string<C>> cut(const std::basic_string<C>& text, C separator) {
  const std::size_t at = text.find(separator);
  return {text.substr(0, at), at == text.npos ? std::basic_string<C>() : text.substr(at + 1)};
}

/// Returns the pieces between separators; there is always one piece more than separators.
inline std::vector<std::string> split(std::string_view text, char separator) {
  std::istringstream rest(std::string(text) + separator);
  std::vector<std::string> out;
  for (std::string piece; std::getline(rest, piece, separator);) {
    out.push_back(piece);
  }
  return out;
}

}  // namespace fuzz
