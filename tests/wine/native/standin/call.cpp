#include "tests/wine/native/standin/call.h"

#include <windows.h>

#include <filesystem>
#include <regex>

#include "tests/wine/native/arguments.h"

namespace standin {
namespace {

std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (const char character : text) {
    const auto code = static_cast<unsigned char>(character);
    if (character == '"' || character == '\\') {
      result += {'\\', character};
    } else if (code < 0x20) {
      constexpr char kDigits[] = "0123456789abcdef";
      result += {'\\', 'u', '0', '0', kDigits[code >> 4], kDigits[code & 15]};
    } else {
      result += character;
    }
  }
  return result + "\"";
}

std::string quoted(const std::wstring& text) { return quoted(native::narrow(text)); }

// "none", "closed" (a pipe without a writer), or the kind of the handle.
std::string kindOf(DWORD which) {
  const HANDLE handle = ::GetStdHandle(which);
  if (handle == nullptr || handle == INVALID_HANDLE_VALUE) {
    return "none";
  }
  switch (::GetFileType(handle)) {
    case FILE_TYPE_CHAR:
      return "character";
    case FILE_TYPE_DISK:
      return "file";
    case FILE_TYPE_PIPE:
      return which != STD_INPUT_HANDLE || ::PeekNamedPipe(handle, nullptr, 0, nullptr, nullptr, nullptr) ? "pipe"
                                                                                                         : "closed";
    default:
      return "unknown";
  }
}

std::filesystem::path workingFolder() { return std::filesystem::current_path(); }

}  // namespace

bool isQuery(const std::wstring& commandLine) {
  return commandLine == L"powershell.exe -NoLogo -ExecutionPolicy RemoteSigned -File vdx-query.ps1 -l -o json";
}

std::optional<Collection> parseCollection(const std::wstring& commandLine) {
  static const std::wregex pattern(
      L"powershell\\.exe -nologo -ExecutionPolicy RemoteSigned -File \"([^\"]+)\" -f \"([^\"]+)\" -d \"([^\"]+)\" "
      L"(-s(?: -c [^ ,]+(?:,[^ ,]+)*)?(?: -dumps (?:none|prod|sys|prod,sys))?)");
  std::wsmatch parts;
  if (!std::regex_match(commandLine, parts, pattern)) {
    return std::nullopt;
  }
  return Collection{parts[1], parts[2], parts[3], parts[4]};
}

std::string objectionTo(const Collection& collection) {
  static const std::wregex name(L"agentDCT_\\d{4}-\\d\\d-\\d\\d_\\d\\d-\\d\\d-\\d\\d_\\d{3}\\.zip",
                                std::regex::ECMAScript);
  const std::filesystem::path script(collection.script);
  const std::filesystem::path bundle(collection.bundle);
  std::error_code error;
  if (script.filename() != L"vdx-support.ps1" || !std::filesystem::exists(script, error)) {
    return "no such script";
  }
  if (!std::filesystem::equivalent(script.parent_path(), workingFolder(), error)) {
    return "the working folder is not the script's";
  }
  if (!std::filesystem::is_directory(collection.folder, error)) {
    return "the temporary folder does not exist";
  }
  if (collection.bundle != collection.folder + L"\\" + bundle.filename().wstring() ||
      !std::regex_match(bundle.filename().wstring(), name)) {
    return "the bundle's path is out of place";
  }
  return {};
}

std::string objectionToQuery() {
  std::error_code error;
  return std::filesystem::exists(workingFolder() / L"vdx-query.ps1", error)
             ? std::string()
             : "vdx-query.ps1 is not in the working folder";
}

void record(const std::string& file, const std::string& mode, const std::string& outcome) {
  if (file.empty()) {
    return;
  }
  std::string line = "{\"mode\":" + quoted(mode) + ",\"outcome\":" + quoted(outcome) +
                     ",\"commandLine\":" + quoted(native::commandLineFrom(0)) + ",\"arguments\":[";
  const char* separator = "";
  for (const std::wstring& argument : native::arguments()) {
    line += separator;
    line += quoted(argument);
    separator = ",";
  }
  line += "],\"folder\":" + quoted(workingFolder().wstring()) + ",\"stdin\":" + quoted(kindOf(STD_INPUT_HANDLE)) +
          ",\"stdout\":" + quoted(kindOf(STD_OUTPUT_HANDLE)) + ",\"stderr\":" + quoted(kindOf(STD_ERROR_HANDLE)) +
          ",\"pid\":" + std::to_string(::GetCurrentProcessId()) + "}\n";
  const std::wstring path = native::windowsPath(native::wide(file));
  const HANDLE target = ::CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                      OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  DWORD written = 0;
  if (target == INVALID_HANDLE_VALUE ||
      !::WriteFile(target, line.data(), static_cast<DWORD>(line.size()), &written, nullptr)) {
    native::complain("powershell", "cannot write the record", ::GetLastError());
  }
  ::CloseHandle(target);
}

}  // namespace standin
