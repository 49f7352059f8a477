#include <windows.h>

#include <array>

#include "platform/platform.h"
#include "platform/text.h"
#include "tests/wine/native/check/tap.h"

namespace check {
namespace {

platform::Text& text_() { return platform::current().text; }

void comparison() {
  using platform::kCstrEqual;
  using platform::kLocaleUserDefault;
  using platform::kNormIgnoreCase;
  const std::wstring_view whole = L"AgentCore";
  equal(static_cast<unsigned>(text_().CompareStringW(kLocaleUserDefault, kNormIgnoreCase, L"agentcore", whole)),
        kCstrEqual, "text: case is ignored when asked");
  that(text_().CompareStringW(kLocaleUserDefault, 0, L"agentcore", whole) != kCstrEqual, "text: and only then");
  that(text_().CompareStringW(kLocaleUserDefault, kNormIgnoreCase, L"Agent", whole) == 1 &&
           text_().CompareStringW(kLocaleUserDefault, kNormIgnoreCase, whole, L"Agent") == 3,
       "text: a prefix is less");
  equal(static_cast<unsigned>(text_().CompareStringW(kLocaleUserDefault, 0, whole.substr(0, 5), L"Agent")), kCstrEqual,
        "text: a view ends where it says");
  that(text_().CompareStringW(kLocaleUserDefault, 0, {}, L"a") == 1 &&
           text_().CompareStringW(kLocaleUserDefault, 0, {}, {}) == kCstrEqual,
       "text: empty views compare");
  that(text_().CompareStringA(kLocaleUserDefault, kNormIgnoreCase, "X-MS-Date", "x-ms-date") == kCstrEqual &&
           text_().CompareStringA(kLocaleUserDefault, kNormIgnoreCase, "a", "b") == 1,
       "text: narrow texts compare");
}

void lowering() {
  std::wstring wide = L"PR\u00d6D+Sys";
  text_().CharLowerBuffW(wide);
  equal(wide, L"pr\u00f6d+sys", "text: wide text is lowered in place");
  std::string narrow = "PROD,Sys";
  text_().CharLowerBuffA(std::span(narrow).first(5));
  that(narrow == "prod,Sys", "text: narrow text is lowered up to the length given");
}

void messages() {
  std::array<wchar_t, 4096> buffer{};
  const std::uint32_t flags = platform::kFormatMessageFromSystem | platform::kFormatMessageIgnoreInserts;
  const auto known = text_().FormatMessageW(flags, nullptr, 193, buffer);  // a text with an insert
  that(known.ok && known.value > 3 && std::wstring_view(buffer.data(), known.value).ends_with(L"\r\n"),
       "text: the system knows a message, inserts and all");
  const auto unknown = text_().FormatMessageW(flags, nullptr, 0x2FFFFFFF, buffer);
  that(!unknown.ok && unknown.value == 0 && unknown.error == ERROR_MR_MID_NOT_FOUND, "text: or says that it does not");
  std::array<wchar_t, 3> tooSmall{};
  that(!text_().FormatMessageW(flags, nullptr, 2, tooSmall).ok, "text: a short buffer is refused");
}

void expansion() {
  ::SetEnvironmentVariableW(L"MDDCT_CHECK", L"twelve chars");
  const std::wstring source = L"<%MDDCT_CHECK%>";
  equal(text_().ExpandEnvironmentStringsW(source, {}).value, 15, "text: the size of an expansion, with terminator");
  std::array<wchar_t, 15> buffer{};
  text_().ExpandEnvironmentStringsW(source, buffer);
  equal(std::wstring(buffer.data()), L"<twelve chars>", "text: variables are replaced");
}

}  // namespace

void text() {
  comparison();
  lowering();
  messages();
  expansion();
}

}  // namespace check
