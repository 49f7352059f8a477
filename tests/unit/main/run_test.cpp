#include "main/run.h"

#include <algorithm>
#include <functional>

#include "tests/unit/main/run_world.h"

namespace {

const std::wstring kStarting = L"INFO wWinMain(): Starting DCT collection.\n";
const std::wstring kSucceeded = L"INFO wWinMain(): DCT collection succeeded.\n";
const std::wstring kUrl = L"https://store.example.net/c/b.zip?sig=abc";
const std::wstring kRegistry = L"HKLM\\Software\\Calvera\\Meridon\\";

std::wstring error(const std::wstring& text) { return L"ERROR wWinMain(): " + text + L"\n"; }

std::wstring uploading(const std::wstring& url = kUrl,
                       const std::wstring& proxy = L"Proxy Server: n/a. Proxy Bypass: n/a PACURL: n/a.") {
  return L"INFO wWinMain(): Uploading DCT log (" + kBundlePath + L") to url: " + url + L". \n" + proxy + L"\n";
}

const std::wstring kBadOptions =
    error(L"Invalid command line options.") + L"INFO PrintUsage(): Usage:\r\nmdDCT.exe -url \"<url>\"\n";

std::wstring badArgument(const std::wstring& argument) {
  return L"ERROR lParseCommandLine(): Unrecognized argument or bad syntax: " + argument + L"\n" + kBadOptions;
}

std::wstring notRemoved(int code) {
  const std::wstring number = std::to_wstring(code);
  return L"WARN DCTDeleter::~DCTDeleter(): Unable to clean DCT bundle. Error code: " + number +
         L". Error msg: Message " + number + L".\n";
}

using Prepare = std::function<void(RunWorld&)>;

struct Row {
  Prepare prepare;
  int code;
  std::wstring lines;        ///< after the first
  std::size_t children = 0;  ///< where the collection fails; afterwards always the query and the script
};

Prepare failing(const char* call, std::size_t n) {
  return [=](RunWorld& world) { world.windows.faults.failNth(call, n, 5); };
}

Prepare called(const std::wstring& arguments) {
  return [=](RunWorld& world) { world.windows.processes.commandLine = L"mdDCT.exe " + arguments; };
}

void expect(const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    SCOPED_TRACE("row " + std::to_string(&row - rows.data()));
    RunWorld world;
    row.prepare(world);
    testing::internal::CaptureStderr();
    EXPECT_EQ(world.run(), row.code);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(world.driverLines(), kStarting + row.lines) << world.log.text();
    EXPECT_EQ(world.bundleExists(), row.lines.ends_with(notRemoved(5)));
    world.mayStayOpen = world.windows.objects.mutexExists(kMutexName) ? "1 mutex" : "";
    EXPECT_EQ(world.windows.faults.callCount("ReleaseMutex"), row.code == 1 || row.code == 2 ? 0U : 1U);
    const bool collected = row.code == 0 || row.code >= 5;
    EXPECT_EQ(world.windows.processes.children().size(), collected ? 2U : row.children);
    EXPECT_EQ(world.windows.winHttp.sentRequests().size(), row.code == 0 || row.code == 7 ? 1U : 0U);
  }
}

TEST(Run, EndsBeforeTheCollection) {
  const std::wstring insufficient = error(L"Insufficient permissions.");
  const auto noIdentity = [&insufficient](const std::wstring& text) {
    return L"ERROR IsSystemProcess(): " + text + L"\n" + insufficient;
  };
  const std::wstring inProgress = error(L"DCT collection is already in progress.");
  expect({
      {[](RunWorld& world) { world.windows.security.localSystem = false; }, 1, insufficient},
      {failing("OpenProcessToken", 1), 1, noIdentity(L"OpenProcessToken: Message 5.")},
      {failing("GetTokenInformation", 1), 1, noIdentity(L"GetTokenInformation (size): Message 5.. Return Length: 0.")},
      {failing("GetTokenInformation", 2), 1, noIdentity(L"GetTokenInformation: Message 5.. Return Length: 0.")},
      {failing("AllocateAndInitializeSid", 1), 1, noIdentity(L"AllocateAndInitializeSid: Message 5.")},
      // kept: the handle of the foreign mutex stays open.
      {[](RunWorld& world) { world.windows.objects.addMutex(kMutexName); }, 2,
       L"ERROR DCTMutex::GetMutex(): Mutex already exists\n" + inProgress},
      {failing("CreateMutexW", 1), 2, L"ERROR DCTMutex::GetMutex(): CreateMutex failed: Message 5.\n" + inProgress},
      {failing("CommandLineToArgvW", 1), 3, kBadOptions},
  });
}

TEST(Run, CommandLines) {
  const auto taken = [](const std::wstring& url) { return uploading(url) + kSucceeded; };
  expect({
      {called(L""), 3, kBadOptions},
      {called(L"--url=https://h/b"), 0, taken(L"https://h/b")},
      {called(L"--ur https://h/b"), 0, taken(L"https://h/b")},
      {called(L"--=https://h/b"), 0, taken(L"https://h/b")},  // the empty name is a prefix of the only one
      {called(L"-url x --url https://h/b\u00E4"), 0, taken(L"https://h/b\u00E4")},
      {called(L"stray -url https://h/b more"), 0, taken(L"https://h/b")},
      {called(L"-url="), 3, error(L"Invalid URL.")},
      {called(L"-url nonsense"), 3, error(L"Invalid URL.")},
      {called(L"-- -url https://h/b"), 3, kBadOptions},
      {called(L"-url"), 3, badArgument(L"-url")},
      {called(L"stray -u https://h/b"), 3, badArgument(L"-u")},
      {called(L"-url https://h/b stray -nope y"), 3, badArgument(L"-nope")},
      {called(L"---url=https://h/b"), 3, badArgument(L"---url=https://h/b")},
      {called(L"-url \xDC00"), 3, error(L"to_mstr Failed")},  // no text
  });
}

TEST(Run, EndsWithTheCollection) {
  const auto failed = [](const std::wstring& text) { return error(L"Invoking the DCT script failed. Error " + text); };
  const auto noBundle = [](RunWorld& world) {
    world.writesBundle = false;
    world.exitCode = 5;
  };
  const auto neitherBundleNorExitCode = [](RunWorld& world) {
    world.writesBundle = false;
    world.windows.text.setMessage(0xFFFFFFFF, L"no such code");
    world.windows.faults.failNth("GetExitCodeProcess", 2, 5);
  };
  const auto noEnvironment = [](RunWorld& world) {
    world.windows.text.eraseVariable(L"ProgramData");
    world.windows.text.eraseVariable(L"LOCALAPPDATA");
  };
  const std::wstring noSystemFolder = error(L"Unable to make the system folder the current folder: Message 5.");
  const std::wstring noTempFolder = failed(L"130: Cannot create the temporary directory.");
  const std::wstring notStarted = L"ERROR dct_common::invokeDCTScript(): Could not create process.\n";
  const std::wstring scriptFailed = L"-1: The DCT script FAILED. Process exited with error ";
  expect({
      {failing("SetCurrentDirectoryW", 1), 4, noSystemFolder},
      {failing("GetSystemDirectoryW", 1), 4, noSystemFolder},
      {[](RunWorld& world) { world.windows.registry.clear(); }, 4,
       failed(L"80: Cannot get the AgentInstallPath from registry")},
      {[](RunWorld& world) { world.windows.files.erase(L"C:\\Agent\\dct\\vdx-support.ps1"); }, 4,
       failed(L"70: The DCT script is not found on disk.")},
      {failing("CreateDirectoryW", 4), 4, noTempFolder},
      {noEnvironment, 4, noTempFolder},
      {failing("CreateProcessW", 2), 4, notStarted + failed(L"60: The DCT script failed to start, error: Message 5."),
       1},
      {noBundle, 4, failed(scriptFailed + L"Message 5.."), 2},
      {neitherBundleNorExitCode, 4, failed(scriptFailed + L"no such code."), 2},
  });
}

TEST(Run, EndsWithTheUpload) {
  const auto withProxy = [](RunWorld& world) {
    world.windows.registry.set(kRegistry + L"Node Manager\\HTTP Proxy Server", L"proxy:8080");
    world.windows.registry.set(kRegistry + L"Node Manager\\HTTP Proxy Bypass", L"<local>");
    world.windows.registry.set(kRegistry + L"Node Manager\\HTTP Proxy Auto Config URL", L"http://pac/p\u00E4c");
  };
  const std::wstring proxy = L"Proxy Server: proxy:8080. Proxy Bypass: <local> PACURL: http://pac/p\u00E4c.";
  const std::wstring notStarted = error(L"Failed to start upload.");
  expect({
      {[](RunWorld&) {}, 0, uploading() + kSucceeded},
      {withProxy, 0, uploading(kUrl, proxy) + kSucceeded},
      // Neither the script's exit code nor a failed query matters, nor that the bundle is empty.
      {[](RunWorld& world) { world.exitCode = 5; }, 0, uploading() + kSucceeded},
      {[](RunWorld& world) { world.answer = "garbage"; }, 0, uploading() + kSucceeded},
      {[](RunWorld& world) { world.bundleSize = 0; }, 0, uploading() + kSucceeded},
      {failing("remove", 1), 0, uploading() + kSucceeded + notRemoved(5)},
      {failing("CreateEventW", 1), 5, error(L"CreateEvent failed: Message 5.")},
      {failing("WinHttpOpen", 1), 5, uploading() + notStarted},
      {failing("file_size", 1), 5, uploading() + error(L"filesystem error: file_size: Input/output error")},
      {called(L"-url http://h/b"), 5, uploading(L"http://h/b") + notStarted},  // without TLS
      {[](RunWorld& world) { world.failingRequest = 1; }, 7, uploading() + error(L"Upload failed.")},
  });
}

/// What a run closes behind the latest call of that name, the same things one behind the other taken together.
std::string closingsAfter(const std::string& name, const RunWorld& world) {
  const auto calls = world.windows.faults.calls();
  std::string out;
  for (auto call = std::find(calls.rbegin(), calls.rend(), name).base(); call != calls.end(); ++call) {
    for (const char* closing : {"WinHttpCloseHandle", "CloseHandle", "remove", "LocalFree", "ReleaseMutex"}) {
      if (*call == closing && !out.ends_with(" " + *call)) {
        out += " " + *call;
      }
    }
  }
  return out;
}

TEST(Run, ACompletionAfterAFailedWaitTouchesNothingDead) {
  RunWorld world;
  world.windows.winHttp.delivery = sim::Delivery::kLate;
  world.windows.faults.failNth("WaitForSingleObject", 4,
                               5);  // two go to the query, which has ended early, one to the script
  EXPECT_EQ(world.run(), 6);
  EXPECT_EQ(world.driverLines(), kStarting + uploading() + error(L"WaitForSingleObject failed: Message 5."));
  EXPECT_FALSE(world.bundleExists());
  EXPECT_EQ(world.windows.winHttp.sentRequests().size(), 1U);
  EXPECT_EQ(world.windows.faults.callCount("SetEvent"), 0U);
  // The event is closed at its place although the completion is still to come.
  EXPECT_EQ(closingsAfter("WaitForSingleObject", world),
            " CloseHandle remove LocalFree ReleaseMutex CloseHandle WinHttpCloseHandle");
}

TEST(Run, CleansUpInItsOrder) {
  RunWorld world;
  EXPECT_EQ(world.run(), 0);
  EXPECT_TRUE(closingsAfter("SetEvent", world).ends_with(" CloseHandle remove LocalFree ReleaseMutex CloseHandle"));
}

TEST(Run, ABundleWhoseNameIsNotAscii) {
  for (const bool ansiIsLatin1 : {false, true}) {
    RunWorld world;
    world.windows.files.ansiIsLatin1 = ansiIsLatin1;
    world.windows.registry.set(kRegistry + L"Agent\\UseRegistryForLoggingPath", L"true");
    world.windows.registry.set(kRegistry + L"Log\\LogFileDirectory", L"D:\\\u00FCber");
    EXPECT_EQ(world.run(), 0);
    // kept: the narrow path is taken in the process's own code page.
    EXPECT_EQ(world.windows.files.exists(L"D:\\\u00FCber\\Temp\\agentDCT_2026-11-13_04-13-48_123.zip"), ansiIsLatin1);
    EXPECT_EQ(world.driverLines().ends_with(kSucceeded + notRemoved(0)), ansiIsLatin1);
  }
}

}  // namespace
