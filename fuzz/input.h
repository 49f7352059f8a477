#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace sim {
class Windows;
}

namespace fuzz {

inline std::string_view bytes(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

/// The pieces between separators; always one more piece than separators.
inline std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> out(1);
  for (const char c : text) {
    if (c == separator) {
      out.emplace_back();
    } else {
      out.back() += c;
    }
  }
  return out;
}

/// A simulated Windows as the platform for one input. It notes every call, so nothing of it outlives the input: else
/// each would look like a leak.
class Platform {
 public:
  Platform();
  ~Platform();
  Platform(const Platform&) = delete;
  Platform& operator=(const Platform&) = delete;

 private:
  std::unique_ptr<sim::Windows> windows_;
};

}  // namespace fuzz
