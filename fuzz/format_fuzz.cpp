#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>

#include "core/format/format.h"
#include "fuzz/fuzz.h"

// Expands any format with arguments of every kind, and compares single conversions with the C library's.

namespace {

using CORE::FormatArgument;
using CORE::FormatKind;

template <class C>
void checkAny(std::basic_string_view<C> format, const std::vector<FormatArgument>& arguments, std::size_t limit) {
  const auto whole = CORE::formatArguments(format, arguments);
  const auto cut = CORE::formatArguments(format, arguments, limit);
  std::vector<FormatKind> kinds(arguments.size());
  std::transform(arguments.begin(), arguments.end(), kinds.begin(), [](const auto& one) { return one.kind; });
  if (CORE::detail::matches(format, kinds.data(), kinds.size())) {
    FUZZ_CHECK(cut == whole.substr(0, limit));
    FUZZ_CHECK(whole.size() <= format.size() * (CORE::detail::Conversion::kMaxDigits + 64));
  }
}

/// Compares one conversion of a number or a text that both know.
void checkPeer(FuzzedDataProvider& input) {
  const char letter = input.PickValueInArray({'d', 'i', 'u', 'x', 'X', 's', 'c'});
  const bool isNumber = letter != 's' && letter != 'c';
  std::string conversion = "%";
  for (const char flag : {'-', '0', '+', ' ', '#'}) {
    // The other flags have no defined meaning for a text, so the C library may do anything with them.
    conversion.append(input.ConsumeBool() && (isNumber || flag == '-') ? 1 : 0, flag);
  }
  conversion += input.ConsumeBool() ? std::to_string(input.ConsumeIntegralInRange(1, 600) % 513) : "";
  conversion += letter != 'c' && input.ConsumeBool() ? "." + std::to_string(input.ConsumeIntegralInRange(0, 512)) : "";
  const bool is64 = isNumber && input.ConsumeBool();
  conversion += is64 ? std::string("ll") + letter : std::string(1, letter);

  const auto number = input.ConsumeIntegral<std::uint64_t>();
  std::string text = input.ConsumeRandomLengthString(40);
  text = text.substr(0, text.find('\0'));
  const FormatArgument argument = letter == 's' ? FormatArgument{FormatKind::kNarrow, 0, {}, text}
                                                : FormatArgument{FormatKind::kInteger, number, {}, {}};
  std::string wanted(1200, '\0');
  const auto print = [&](auto value) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    return std::snprintf(wanted.data(), wanted.size(), conversion.c_str(), value);
#pragma GCC diagnostic pop
  };
  const int size = letter == 's'   ? print(text.c_str())
                   : letter == 'c' ? print(static_cast<unsigned char>(number))
                   : is64          ? print(number)
                                   : print(static_cast<std::uint32_t>(number));
  FUZZ_CHECK(size >= 0 && static_cast<std::size_t>(size) < wanted.size());
  wanted.resize(static_cast<std::size_t>(size));
  FUZZ_CHECK(CORE::formatArguments(conversion, {&argument, 1}) == wanted);
}

}  // namespace

void fuzz::target(std::string_view bytes) {
  FuzzedDataProvider input(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  checkPeer(input);
  std::vector<FormatArgument> arguments;
  for (int left = input.ConsumeIntegralInRange(0, 4); left > 0; --left) {
    arguments.push_back(
        {input.PickValueInArray({FormatKind::kInteger, FormatKind::kPointer, FormatKind::kWide, FormatKind::kNarrow}),
         input.ConsumeIntegral<std::uint64_t>(), L"wide \u00E4", "narrow \xC3\xA4\xFF"});
  }
  const std::size_t limit = input.ConsumeIntegralInRange<std::size_t>(0, 100);
  const std::string format = input.ConsumeRemainingBytesAsString();
  checkAny<char>(format, arguments, limit);
  checkAny<wchar_t>(std::wstring(format.begin(), format.end()), arguments, limit);
}
