#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace standin {

/// What the stand-in is told to do: the lines "key=value" of the file that the environment variable MDDCT_STANDIN
/// names. Without the variable every key has its default; "#" begins a comment line.
///
/// | key       | values                                                        | default |
/// |-----------|---------------------------------------------------------------|---------|
/// | query     | json garbage huge deep notutf8 fail hang silent               | json    |
/// | queryexit | exit code of the query                                        | 0; 1 for fail |
/// | hugesize  | bytes of the huge answer                                      | 100M    |
/// | grandchild| keep-pipe: a copy keeps the query's standard output open      | none    |
/// | hold      | how long it does, milliseconds                                | 30000   |
/// | collect   | ok none exit hang empty grow vanish slow                      | ok      |
/// | exit      | exit code of the collection                                   | 0; 1 for exit |
/// | size      | bytes of the bundle, with K, M or G for powers of 1024        | 1M      |
/// | seed      | other numbers give other bundle bytes                         | 1       |
/// | delay     | slow: before the bundle; grow, vanish: after the script ended, milliseconds | 500 |
/// | record    | file that gets one JSON line a call                           | none    |
class Control {
 public:
  /// Reads the file. Throws std::runtime_error on a file that cannot be read, a line without "=" or an unknown key.
  static Control load();

  std::string text(const std::string& key, const std::string& otherwise) const;
  /// Throws std::runtime_error when the value is no number.
  std::uint64_t number(const std::string& key, std::uint64_t otherwise) const;

 private:
  std::map<std::string, std::string> values_;
};

}  // namespace standin
