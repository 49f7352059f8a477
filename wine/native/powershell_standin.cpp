// The stand-in for powershell.exe, which runs the agent's two scripts. It answers the capability query, writes the
// bundle of the collection, and misbehaves when the environment variable MDDCT_STANDIN orders it. It refuses every
// other command line with exit code 64 and a line in the record. When the stand-in itself fails, it ends with exit
// code 65.
//
// Tests also start it by hand, as a process that only holds something:
//   powershell.exe --hold MILLISECONDS        keeps the inherited standard output open for that time
//   powershell.exe --lock MILLISECONDS FILE   opens the file without sharing it and keeps it open for that time

#include <windows.h>

#include <algorithm>
#include <array>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "wine/native/arguments.h"

namespace fs = std::filesystem;

namespace {

constexpr int kRefused = 64;
constexpr int kStandinFailed = 65;

constexpr const wchar_t* kQueryLine =
    L"powershell.exe -NoLogo -ExecutionPolicy RemoteSigned -File vdx-query.ps1 -l -o json";
constexpr const wchar_t* kCollectionPattern =
    LR"re(powershell\.exe -nologo -ExecutionPolicy RemoteSigned -File "([^"]+)\\vdx-support\.ps1")re"
    LR"re( -f "(([^"]+)\\agentDCT_\d{4}-\d\d-\d\d_\d\d-\d\d-\d\d_\d{3}\.zip)" -d "\3")re"
    LR"re( -s(?: -c [^ ,]+(?:,[^ ,]+)*)?(?: -dumps (?:none|prod|sys|prod,sys))?)re";

/// The orders with their defaults. MDDCT_STANDIN changes them, as "key=value;key=value".
std::map<std::wstring, std::wstring> orders = {
    {L"query", L"json"},    // or: garbage huge deep notutf8 silent fail hang
    {L"grandchild", L"0"},  // milliseconds for which a copy keeps the query's standard output open
    {L"collect", L"ok"},    // or: none (no bundle) empty sparse (zeros)
    {L"delay", L"0"},       // milliseconds before the bundle is written
    {L"size", L"1M"},       // of the bundle, with K, M or G for powers of 1024
    {L"exit", L"0"},        // exit code of the collection
    {L"record", L""},       // file that gets one line for each call; none when empty
};

void readOrders() {
  std::array<wchar_t, 1024> text{};
  ::GetEnvironmentVariableW(L"MDDCT_STANDIN", text.data(), static_cast<DWORD>(text.size()));
  std::wistringstream entries(text.data());
  for (std::wstring entry; std::getline(entries, entry, L';');) {
    const std::size_t equals = std::min(entry.find(L'='), entry.size() - 1);
    orders.at(entry.substr(0, equals)) = entry.substr(equals + 1);
  }
}

/// Returns an order as a number; the suffixes K, M and G are powers of 1024.
std::uint64_t numberOf(const std::wstring& key) {
  static const std::map<std::wstring, int> shifts = {{L"", 0}, {L"K", 10}, {L"M", 20}, {L"G", 30}};
  std::size_t used = 0;
  const std::uint64_t value = std::stoull(orders.at(key), &used);
  return value << shifts.at(orders.at(key).substr(used));
}

/// Returns what a standard handle is: "none", "pipe" or "other".
std::wstring kindOf(DWORD which) {
  const HANDLE handle = ::GetStdHandle(which);
  const bool none = handle == nullptr || handle == INVALID_HANDLE_VALUE;
  return none ? L"none" : ::GetFileType(handle) == FILE_TYPE_PIPE ? L"pipe" : L"other";
}

/// Returns the full path of this program.
std::wstring ownPath() {
  std::array<wchar_t, MAX_PATH> path{};
  ::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
  return path.data();
}

/// Appends a line to the record: mode, outcome, working folder, path of this program, kinds of standard output and
/// standard error (see kindOf), and the arguments, with tabs between them.
void record(const std::wstring& mode, const std::wstring& outcome) {
  std::wstring line = mode + L'\t' + outcome + L'\t' + fs::current_path().wstring() + L'\t' + ownPath() + L'\t' +
                      kindOf(STD_OUTPUT_HANDLE) + L'\t' + kindOf(STD_ERROR_HANDLE);
  for (const std::wstring& argument : native::arguments()) {
    line += L'\t' + argument;
  }
  if (!orders.at(L"record").empty()) {
    std::ofstream(fs::path(orders.at(L"record")), std::ios::binary | std::ios::app) << native::narrow(line) << '\n';
  }
}

/// Records why the command line is refused, and returns the exit code.
int refuse(const std::wstring& objection) {
  record(L"refused", objection);
  native::complain("powershell", native::narrow(objection));
  return kRefused;
}

/// Returns what the capability query prints.
std::string answerOf(const std::wstring& kind) {
  if (kind == L"huge") {
    return R"({"featureData":{"AgentCore":{}},"note":")" + std::string(100 << 20, 'x') + "\"}\n";
  }
  if (kind == L"deep") {
    std::string text = R"({"featureData":)";
    constexpr int kDepth = 1000000;
    for (int i = 0; i < kDepth; ++i) {
      text += R"({"a":)";
    }
    return text + "1" + std::string(kDepth + 1, '}');
  }
  static const std::map<std::wstring, std::string> others = {
      {L"json", R"({"featureData": {
  "AgentCore": {"supportedLogLevels": "INFO,DEBUG,TRACE"}, "USB": {"supportedLogLevels": "DEBUG"}
}})"},
      {L"garbage", "vdx-query : the term is not recognised }{ \"featureData\": [\r\n"},
      {L"notutf8", "{\"featureData\":{\"Agent\xFF\xFE\xC0\":{\"supportedLogLevels\":\"INFO\"}}}"},
      {L"silent", ""},
      {L"fail", ""},
      {L"hang", ""}};
  return others.at(kind);
}

/// Starts a copy of this process that keeps the standard output of this process open for that time.
void startPipeHolder(const std::wstring& milliseconds) {
  std::wstring line = L"powershell.exe --hold " + milliseconds;
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION child{};
  if (!::CreateProcessW(ownPath().c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                        &child)) {
    throw std::runtime_error("cannot start the copy that holds the pipe");
  }
}

/// Answers the capability query on the standard output, and returns the exit code.
int answerQuery() {
  const std::wstring& kind = orders.at(L"query");
  record(L"query", kind);
  if (numberOf(L"grandchild") > 0) {
    startPipeHolder(orders.at(L"grandchild"));
  }
  const std::string answer = answerOf(kind);
  DWORD written = 0;
  ::WriteFile(::GetStdHandle(STD_OUTPUT_HANDLE), answer.data(), static_cast<DWORD>(answer.size()), &written, nullptr);
  ::Sleep(kind == L"hang" ? INFINITE : 0);
  if (kind == L"fail") {
    native::complain("powershell", "ordered to fail");
    return 1;
  }
  return 0;
}

/// Writes the bundle and returns the exit code. The bytes do not compress and are the same ones every time: nobody
/// opens a bundle.
int collect(const std::wstring& bundle) {
  const std::wstring& kind = orders.at(L"collect");
  record(L"collect", kind);
  ::Sleep(static_cast<DWORD>(numberOf(L"delay")));
  if (kind != L"none") {
    std::ofstream file(fs::path(bundle), std::ios::binary);
    std::uint64_t left = kind == L"empty" ? 0 : numberOf(L"size");
    if (kind == L"sparse" && left > 0) {
      file.seekp(static_cast<std::streamoff>(left - 1)).put('\0');
      left = 0;
    }
    std::mt19937_64 random;  // with its own seed
    std::vector<std::uint64_t> words(1 << 17);
    for (std::uint64_t part = 0; left > 0; left -= part) {
      std::generate(words.begin(), words.end(), std::ref(random));
      part = std::min<std::uint64_t>(left, words.size() * sizeof(words[0]));
      file.write(reinterpret_cast<const char*>(words.data()), static_cast<std::streamsize>(part));
    }
    if (!file.flush()) {
      throw std::runtime_error("cannot write the bundle");
    }
  }
  return static_cast<int>(numberOf(L"exit"));
}

/// Opens a file without sharing it, keeps it open for that time, and returns the exit code.
int lockFile(const std::wstring& milliseconds, const std::wstring& file) {
  if (::CreateFileW(file.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr) == INVALID_HANDLE_VALUE) {
    throw std::runtime_error("cannot lock the file");
  }
  record(L"lock", L"ok");
  ::Sleep(std::stoul(milliseconds));
  return 0;
}

/// Compares the whole command line with the two that the agent uses, checks the files that it names, and does what it
/// asks for. Returns the exit code.
int run() {
  const std::vector<std::wstring> arguments = native::arguments();
  if (arguments.size() == 2 && arguments.front() == L"--hold") {
    ::Sleep(std::stoul(arguments.back()));
    return 0;
  }
  readOrders();
  if (arguments.size() == 3 && arguments.front() == L"--lock") {
    return lockFile(arguments[1], arguments[2]);
  }
  const std::wstring line = ::GetCommandLineW();
  if (line == kQueryLine) {
    return fs::exists(L"vdx-query.ps1") ? answerQuery() : refuse(L"vdx-query.ps1 is not in the working folder");
  }
  std::wsmatch parts;
  if (!std::regex_match(line, parts, std::wregex(kCollectionPattern))) {
    return refuse(L"unknown command line");
  }
  std::error_code error;
  if (!fs::equivalent(parts[1].str(), fs::current_path(), error) || !fs::exists(L"vdx-support.ps1")) {
    return refuse(L"vdx-support.ps1 is not in the working folder");
  }
  return fs::is_directory(parts[3].str(), error) ? collect(parts[2]) : refuse(L"the temporary folder does not exist");
}

}  // namespace

int main() {
  try {
    return run();
  } catch (const std::exception& error) {
    native::complain("powershell", error.what());
    return kStandinFailed;
  }
}
