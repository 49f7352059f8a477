#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace standin {

/// What the stand-in is told to do: "key=value;key=value" in the environment variable MDDCT_STANDIN.
class Control {
 public:
  /// Throws std::runtime_error on an entry without "=" or with an unknown key.
  Control();

  const std::wstring& text(const std::wstring& key) const { return values_.at(key); }
  /// A number with K, M or G for powers of 1024; throws when the value is none.
  std::uint64_t number(const std::wstring& key) const;

 private:
  std::map<std::wstring, std::wstring> values_ = {
      {L"query", L"json"},    // or: garbage huge deep notutf8 silent fail hang
      {L"grandchild", L"0"},  // milliseconds for which a copy keeps the query's standard output open
      {L"collect", L"ok"},    // or: none (no bundle) empty sparse
      {L"delay", L"0"},       // milliseconds before the bundle is written
      {L"size", L"1M"},       // of the bundle
      {L"exit", L"0"},        // exit code of the collection
      {L"record", L""},       // file that gets a line a call; none when empty
  };
};

}  // namespace standin
