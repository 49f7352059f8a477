#include "main/run.h"

#include <algorithm>
#include <functional>
#include <iterator>

#include "tests/unit/main/run_world.h"

namespace {

const std::string kStarting = "INFO wWinMain(): Starting DCT collection.";
std::string uploadingTo(const std::string& url) {
  return "INFO wWinMain(): Uploading DCT log (C:\\ProgramData\\Calvera\\Meridon\\logs\\Temp\\"
         "agentDCT_2026-11-13_04-13-48_123.zip) to url: " +
         url + ". \nProxy Server: n/a. Proxy Bypass: n/a PACURL: n/a.";
}

const std::string kUploading = uploadingTo("https://store.example.net/c/b.zip?sig=abc");
const std::string kInProgress = "ERROR wWinMain(): DCT collection is already in progress.";
const std::string kUsage = "INFO PrintUsage(): Usage:\r\nmdDCT.exe -url \"<url>\"";

struct Row {
  const char* name;
  std::function<void(RunWorld&)> prepare;
  int code;
  std::vector<std::string> lines;  ///< after the first
};

std::function<void(RunWorld&)> failing(const char* call, std::size_t n) {
  return [=](RunWorld& world) { world.windows.faults.failNth(call, n, 5); };
}

std::function<void(RunWorld&)> called(const wchar_t* commandLine) {
  return [=](RunWorld& world) { world.windows.processes.commandLine = commandLine; };
}

void expect(const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    RunWorld world;
    row.prepare(world);
    testing::internal::CaptureStderr();
    EXPECT_EQ(world.run(), row.code);
    testing::internal::GetCapturedStderr();
    std::vector<std::string> lines = {kStarting};
    lines.insert(lines.end(), row.lines.begin(), row.lines.end());
    EXPECT_EQ(world.driverLines(), lines) << world.log.text();
    EXPECT_FALSE(world.bundleExists());
    EXPECT_EQ(world.leftOpen(), world.windows.objects.mutexExists(kMutexName) ? "1 mutex" : "");
  }
}

TEST(Run, EndsBeforeTheCollection) {
  expect({
      {"another account",
       [](RunWorld& world) { world.windows.security.localSystem = false; },
       1,
       {"ERROR wWinMain(): Insufficient permissions."}},
      {"the check fails",
       failing("OpenProcessToken", 1),
       1,
       {"ERROR IsSystemProcess(): OpenProcessToken: Message 5.", "ERROR wWinMain(): Insufficient permissions."}},
      {"a second instance",
       [](RunWorld& world) { world.windows.objects.addMutex(kMutexName); },
       2,
       {"ERROR DCTMutex::GetMutex(): Mutex already exists", kInProgress}},
      {"no mutex",
       failing("CreateMutexW", 1),
       2,
       {"ERROR DCTMutex::GetMutex(): CreateMutex failed: Message 5.", kInProgress}},
      {"no argument", called(L"mdDCT.exe"), 3, {"ERROR wWinMain(): Invalid command line options.", kUsage}},
      {"no value",
       called(L"mdDCT.exe -url"),
       3,
       {"ERROR lParseCommandLine(): Unrecognized argument or bad syntax: -url",
        "ERROR wWinMain(): Invalid command line options.", kUsage}},
      {"an unknown option",
       called(L"mdDCT.exe -x -url https://h/b"),
       3,
       {"ERROR lParseCommandLine(): Unrecognized argument or bad syntax: -x",
        "ERROR wWinMain(): Invalid command line options.", kUsage}},
      {"no argument vector",
       failing("CommandLineToArgvW", 1),
       3,
       {"ERROR wWinMain(): Invalid command line options.", kUsage}},
      {"an empty URL", called(L"mdDCT.exe -url="), 3, {"ERROR wWinMain(): Invalid URL."}},
      {"no URL", called(L"mdDCT.exe -url nonsense"), 3, {"ERROR wWinMain(): Invalid URL."}},
      {"no text",
       [](RunWorld& world) { world.windows.processes.commandLine = L"mdDCT.exe -url \xDC00"; },
       3,
       {"ERROR wWinMain(): to_mstr Failed"}},
  });
}

TEST(Run, EndsWithTheCollection) {
  const auto failed = [](const std::string& error) {
    return std::vector<std::string>{"ERROR wWinMain(): Invoking the DCT script failed. Error " + error};
  };
  const auto erased = [](const wchar_t* path) { return [=](RunWorld& world) { world.windows.files.erase(path); }; };
  expect({
      {"the current folder",
       failing("SetCurrentDirectoryW", 1),
       4,
       {"ERROR wWinMain(): Unable to make the system folder the current folder: Message 5."}},
      {"the system folder",
       failing("GetSystemDirectoryW", 1),
       4,
       {"ERROR wWinMain(): Unable to make the system folder the current folder: Message 5."}},
      {"no install path",
       [](RunWorld& world) {
         world.windows.registry.eraseValue(L"HKLM\\Software\\Calvera\\Meridon\\Agent\\AgentInstallPath");
       },
       4, failed("80: Cannot get the AgentInstallPath from registry")},
      {"no script", erased(L"C:\\Agent\\dct\\vdx-support.ps1"), 4, failed("70: The DCT script is not found on disk.")},
      {"no temporary folder", failing("CreateDirectoryW", 1), 4, failed("130: Cannot create the temporary directory.")},
      {"PowerShell does not start", failing("CreateProcessW", 2), 4,
       failed("60: The DCT script failed to start, error: Message 5.")},
      {"no bundle",
       [](RunWorld& world) {
         world.writesBundle = false;
         world.exitCode = 5;
       },
       4, failed("-1: The DCT script FAILED. Process exited with error Message 5..")},
  });
}

TEST(Run, EndsWithTheUpload) {
  expect({
      {"success", [](RunWorld&) {}, 0, {kUploading, "INFO wWinMain(): DCT collection succeeded."}},
      {"the script's exit code does not matter",
       [](RunWorld& world) { world.exitCode = 5; },
       0,
       {kUploading, "INFO wWinMain(): DCT collection succeeded."}},
      {"an empty bundle",
       [](RunWorld& world) { world.bundleSize = 0; },
       0,
       {kUploading, "INFO wWinMain(): DCT collection succeeded."}},
      {"a failed query changes nothing",
       [](RunWorld& world) { world.answer = "garbage"; },
       0,
       {kUploading, "INFO wWinMain(): DCT collection succeeded."}},
      {"no session", failing("WinHttpOpen", 1), 5, {kUploading, "ERROR wWinMain(): Failed to start upload."}},
      {"no size",
       failing("file_size", 1),
       5,
       {kUploading,
        "ERROR wWinMain(): filesystem error: file_size: "
        "Input/output error"}},
      {"a URL without TLS",
       called(L"mdDCT.exe -url http://h/b"),
       5,
       {uploadingTo("http://h/b"), "ERROR wWinMain(): Failed to start upload."}},
      {"the server refuses",
       [](RunWorld& world) { world.failingRequest = 1; },
       7,
       {kUploading, "ERROR wWinMain(): Upload failed."}},
      {"the server refuses the third block",
       [](RunWorld& world) {
         world.bundleSize = (256u << 20) + 1;
         world.failingRequest = 4;
       },
       7,
       {kUploading, "ERROR wWinMain(): Upload failed."}},
  });
}

TEST(Run, SendsALargeBundleInBlocks) {
  RunWorld world;
  world.bundleSize = (256u << 20) + 1;
  EXPECT_EQ(world.run(), 0);
  const auto requests = world.windows.winHttp.sentRequests();
  ASSERT_EQ(requests.size(), 66U);
  EXPECT_EQ(requests.front().header("x-ms-blob-type"), "AppendBlob");
  std::uint64_t sent = 0;
  for (const sim::HttpExchange& request : requests) {
    sent += request.bodySize;
  }
  EXPECT_EQ(sent, world.bundleSize);
  EXPECT_FALSE(world.bundleExists());
}

TEST(Run, NoCompletionEvent) {
  RunWorld world;
  world.windows.faults.failNth("CreateEventW", 1, 5);
  EXPECT_EQ(world.run(), 5);
  EXPECT_EQ(world.driverLines(),
            (std::vector<std::string>{kStarting, "ERROR wWinMain(): CreateEvent failed: Message 5."}));
  EXPECT_FALSE(world.bundleExists());
  EXPECT_TRUE(world.windows.winHttp.requests().empty());
}

TEST(Run, ACompletionAfterAFailedWaitTouchesNothingDead) {
  RunWorld world;
  world.windows.winHttp.delivery = sim::Delivery::kLate;
  world.windows.faults.failNth("WaitForSingleObject", 3, 5);  // after the waits for the query and the script
  EXPECT_EQ(world.run(), 6);
  EXPECT_EQ(
      world.driverLines(),
      (std::vector<std::string>{kStarting, kUploading, "ERROR wWinMain(): WaitForSingleObject failed: Message 5."}));
  EXPECT_FALSE(world.bundleExists());
  EXPECT_EQ(world.windows.winHttp.sentRequests().size(), 1U);
  // The event is closed at its place although the completion is still to come.
  const auto calls = world.windows.faults.calls();
  const auto removal = std::find(calls.begin(), calls.end(), "remove");
  const auto wait = std::find(std::reverse_iterator(removal), calls.rend(), "WaitForSingleObject");
  EXPECT_NE(std::find(wait.base(), removal, "CloseHandle"), removal);
  EXPECT_EQ(world.windows.faults.callCount("SetEvent"), 0U);
  EXPECT_EQ(world.leftOpen(), "");
}

TEST(Run, CleansUpInItsOrder) {
  RunWorld world;
  EXPECT_EQ(world.run(), 0);
  std::vector<std::string> closings;
  bool signalled = false;
  for (const std::string& call : world.windows.faults.calls()) {
    signalled = signalled || call == "SetEvent";
    for (const char* closing : {"WinHttpCloseHandle", "CloseHandle", "remove", "LocalFree", "ReleaseMutex"}) {
      if (signalled && call == closing && (closings.empty() || closings.back() != call)) {
        closings.push_back(call);
      }
    }
  }
  const std::vector<std::string> want = {"CloseHandle", "remove", "LocalFree", "ReleaseMutex", "CloseHandle"};
  ASSERT_GE(closings.size(), want.size());
  EXPECT_EQ(std::vector<std::string>(closings.end() - static_cast<std::ptrdiff_t>(want.size()), closings.end()), want);
}

TEST(Run, UsesTheProxySettings) {
  RunWorld world;
  const std::wstring key = L"HKLM\\Software\\Calvera\\Meridon\\Node Manager\\";
  world.windows.registry.set(key + L"HTTP Proxy Server", L"proxy:8080");
  world.windows.registry.set(key + L"HTTP Proxy Bypass", L"<local>");
  world.windows.registry.set(key + L"HTTP Proxy Auto Config URL", L"http://pac/p\u00E4c");
  world.run();
  EXPECT_TRUE(world.log.has(
      CORE::kInfo, L"sig=abc. \nProxy Server: proxy:8080. Proxy Bypass: <local> PACURL: http://pac/p\u00E4c."));
}

TEST(Run, ABundleWhoseNameIsNotAscii) {
  for (const bool ansiIsLatin1 : {false, true}) {
    RunWorld world;
    world.windows.files.ansiIsLatin1 = ansiIsLatin1;
    world.windows.registry.set(L"HKLM\\Software\\Calvera\\Meridon\\Agent\\UseRegistryForLoggingPath", L"true");
    world.windows.registry.set(L"HKLM\\Software\\Calvera\\Meridon\\Log\\LogFileDirectory", L"D:\\\u00FCber");
    EXPECT_EQ(world.run(), 0);
    // kept: the narrow path is taken in the process's own code page.
    EXPECT_EQ(world.windows.files.exists(L"D:\\\u00FCber\\Temp\\agentDCT_2026-11-13_04-13-48_123.zip"), ansiIsLatin1);
    EXPECT_EQ(world.log.has(CORE::kWarn, L"DCTDeleter::~DCTDeleter(): Unable to clean DCT bundle. Error code: 0."),
              ansiIsLatin1);
  }
}

TEST(Run, ABundleThatChangesWhileItIsSent) {
  const std::function<void(sim::Files&)> changes[] = {
      [](sim::Files& files) { files.erase(kBundlePath); },
      [](sim::Files& files) { files.resize(kBundlePath, 5000); },
      [](sim::Files& files) { files.resize(kBundlePath, 20'000); },
  };
  for (const auto& change : changes) {
    RunWorld world;
    bool changed = false;
    world.windows.winHttp.onHeaders([&](const sim::HttpExchange&) -> std::optional<sim::HttpReply> {
      if (!changed) {
        changed = true;
        change(world.windows.files);
      }
      return std::nullopt;
    });
    const int code = world.run();
    EXPECT_TRUE(code == 0 || code == 7) << code;
    EXPECT_TRUE(changed);
    EXPECT_FALSE(world.bundleExists());
    EXPECT_EQ(world.leftOpen(), "");
  }
}

TEST(Run, StartsPowerShellFromTheSystemFolder) {
  RunWorld world;
  world.run();
  EXPECT_EQ(world.windows.system.currentDirectory(), L"C:\\Windows\\System32");
}

}  // namespace
