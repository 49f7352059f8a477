#include "main/run.h"

#include <algorithm>
#include <cerrno>
#include <functional>

#include "tests/unit/main/run_world.h"

// Whole runs, with every line of the driver's own. What a run says when a platform call fails: see the sweep.

namespace {

const std::wstring kStarting = L"INFO wWinMain(): Starting DCT collection.\n";
const std::wstring kSucceeded = L"INFO wWinMain(): DCT collection succeeded.\n";
const std::wstring kUrl = L"https://store.example.net/c/b.zip?sig=abc";

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

using Prepare = std::function<void(RunWorld&)>;

struct Row {
  const char* name;
  int code;
  std::size_t scripts, requests;  ///< that were started, and sent
  Prepare prepare;
  std::wstring lines;        ///< after the first
  std::string console = "";  ///< what the option scanner says
  std::size_t releases = 1;  ///< of the mutex
  std::string staysOpen = "";
};

Prepare called(const std::wstring& arguments) {
  return [=](RunWorld& world) { world.windows.processes.commandLine = L"mdDCT.exe " + arguments; };
}

Prepare setting(const std::wstring& name, const std::wstring& value) {
  return [=](RunWorld& world) { world.windows.registry.set(L"HKLM\\Software\\Calvera\\Meridon\\" + name, value); };
}

void expect(const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    RunWorld world;
    row.prepare(world);
    testing::internal::CaptureStderr();
    EXPECT_EQ(world.run(), row.code);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), row.console);
    EXPECT_EQ(world.driverLines(), kStarting + row.lines) << world.log.text();
    EXPECT_FALSE(world.bundleExists());
    EXPECT_EQ(world.windows.faults.callCount("ReleaseMutex"), row.releases);
    EXPECT_EQ(world.windows.processes.children().size(), row.scripts);
    EXPECT_EQ(world.windows.winHttp.sentRequests().size(), row.requests);
    world.mayStayOpen = row.staysOpen;
  }
}

TEST(Run, EndsBeforeTheCollection) {
  const auto taken = [](const std::wstring& url) { return uploading(url) + kSucceeded; };
  const std::string unknown = "mdDCT.exe: unrecognized option '";
  const auto anotherAccount = [](RunWorld& world) { world.windows.security.localSystem = false; };
  const auto secondInstance = [](RunWorld& world) { world.windows.objects.addMutex(kMutexName); };
  const std::wstring exists = L"ERROR DCTMutex::GetMutex(): Mutex already exists\n";
  const std::wstring quoted = L"-=https://h/b", dashes = L"---url=https://h/b";
  expect({
      {"not the local system", 1, 0, 0, anotherAccount, error(L"Insufficient permissions."), "", 0},
      // kept: the handle of the foreign mutex stays open.
      {"second instance", 2, 0, 0, secondInstance, exists + error(L"DCT collection is already in progress."), "", 0,
       "1 mutex"},
      {"no option", 3, 0, 0, called(L""), kBadOptions},
      {"prefix", 0, 2, 1, called(L"--ur https://h/b"), taken(L"https://h/b")},  // a single "-" takes whole names only
      {"prefix after one dash", 3, 0, 0, called(L"-ur https://h/b"), badArgument(L"-ur"), unknown + "-ur'\n"},
      {"empty prefix", 0, 2, 1, called(L"--=https://h/b"), taken(L"https://h/b")},  // of the only name
      {"empty name after one dash", 3, 0, 0, called(quoted), badArgument(quoted), unknown + "-=https://h/b'\n"},
      {"twice", 0, 2, 1, called(L"-url x --url https://h/b\u00E4"), taken(L"https://h/b\u00E4")},
      {"among others", 0, 2, 1, called(L"stray -url=https://h/b -- -more"), taken(L"https://h/b")},
      {"no argument", 3, 0, 0, called(L"-url"), badArgument(L"-url"),
       "mdDCT.exe: option '-url' requires an argument\n"},
      {"no argument behind a prefix", 3, 0, 0, called(L"--u"), badArgument(L"--u"),
       "mdDCT.exe: option '--url' requires an argument\n"},
      {"capitals", 3, 0, 0, called(L"-url https://h/b - -URL y"), badArgument(L"-URL"), unknown + "-URL'\n"},
      {"three dashes", 3, 0, 0, called(dashes), badArgument(dashes), unknown + "---url=https://h/b'\n"},
      {"not UTF-16", 3, 0, 0, called(L"-url \xDC00"), error(L"to_mstr Failed")},
  });
}

TEST(Run, EndsWithTheCollectionOrTheUpload) {
  const auto failed = [](const std::wstring& text) { return error(L"Invoking the DCT script failed. Error " + text); };
  const auto noEnvironment = [](RunWorld& world) {
    world.windows.text.eraseVariable(L"ProgramData");
    world.windows.text.eraseVariable(L"LOCALAPPDATA");
  };
  const auto worthless = [](RunWorld& world) { world.exitCode = 5, world.answer = "garbage", world.bundleSize = 0; };
  const auto withProxy = [](RunWorld& world) {
    setting(L"Node Manager\\HTTP Proxy Server", L"proxy:8080")(world);
    setting(L"Node Manager\\HTTP Proxy Bypass", L"<local>")(world);
    setting(L"Node Manager\\HTTP Proxy Auto Config URL", L"http://pac/p\u00E4c")(world);
  };
  const std::wstring proxy = L"Proxy Server: proxy:8080. Proxy Bypass: <local> PACURL: http://pac/p\u00E4c.";
  const auto noInstallPath = [](RunWorld& world) { world.windows.registry.clear(); };
  const auto noFolder = [](RunWorld& world) {
    world.windows.files.erase(L"C:\\Windows\\System32\\WindowsPowerShell\\v1.0");
  };
  const auto noScript = [](RunWorld& world) { world.windows.files.erase(L"C:\\Agent\\dct\\vdx-support.ps1"); };
  const auto noPowerShell = [](RunWorld& world) { world.windows.faults.failNth("CreateProcessW", 2, 5); };
  const auto noBundle = [](RunWorld& world) { world.writesBundle = false, world.exitCode = 5; };
  const auto unnamable = [](RunWorld& world) {
    setting(L"Agent\\UseRegistryForLoggingPath", L"true")(world);
    setting(L"Log\\LogFileDirectory", L"D:\\\xDC00")(world);
  };
  const auto refused = [](RunWorld& world) { world.failingRequest = 1; };
  const std::wstring notStarted = error(L"Failed to start upload.");
  expect({
      {"no folder of PowerShell", 4, 0, 0, noFolder,
       error(L"Unable to make PowerShell's folder the current folder: 0x2 Message 2.")},
      {"no install path", 4, 0, 0, noInstallPath, failed(L"80: Cannot get the AgentInstallPath from registry")},
      {"no script", 4, 0, 0, noScript, failed(L"70: The DCT script is not found on disk.")},
      {"no environment", 4, 0, 0, noEnvironment, failed(L"130: Cannot create the temporary directory.")},
      {"no PowerShell", 4, 1, 0, noPowerShell,
       L"ERROR dct_common::invokeDCTScript(): Could not create process.\n" +
           failed(L"60: The DCT script failed to start, error: Message 5.")},
      {"no bundle", 4, 2, 0, noBundle, failed(L"-1: The DCT script FAILED. Process exited with error Message 5..")},
      {"success", 0, 2, 1, [](RunWorld&) {}, uploading() + kSucceeded},
      {"nothing that matters", 0, 2, 1, worthless, uploading() + kSucceeded},
      {"proxy", 0, 2, 1, withProxy, uploading(kUrl, proxy) + kSucceeded},
      {"without TLS", 5, 2, 0, called(L"-url http://h/b"), uploading(L"http://h/b") + notStarted},
      {"option as URL", 5, 2, 0, called(L"-url -url=https://h/b"), uploading(L"-url=https://h/b") + notStarted},
      {"refused SetEvent", 0, 2, 1, [](RunWorld& world) { world.windows.faults.failNth("SetEvent", 1, 5); },
       uploading() + error(L"SetEvent failed: 0x5 Message 5.") + kSucceeded},
      {"path that is not UTF-16", 4, 2, 0, unnamable, error(L"to_mstr Failed")},
      {"refused upload", 7, 2, 1, refused, uploading() + error(L"Upload failed.")},
  });
}

/// What a run closes behind the latest call of that name, the same things one behind the other taken together.
std::string closingsAfter(const std::string& name, const RunWorld& world) {
  const auto calls = world.windows.faults.calls();
  std::string out;
  const auto isIt = [&name](const auto& call) { return call.name == name; };
  for (auto call = std::find_if(calls.rbegin(), calls.rend(), isIt).base(); call != calls.end(); ++call) {
    for (const std::string closing : {"WinHttpCloseHandle", "CloseHandle", "remove", "LocalFree", "ReleaseMutex"}) {
      if (call->name == closing && !out.ends_with(" " + closing)) {
        out += " " + closing;
      }
    }
  }
  return out;
}

TEST(Run, CleansUpInItsOrder) {
  RunWorld world;
  EXPECT_EQ(world.run(), 0);
  EXPECT_TRUE(closingsAfter("SetEvent", world).ends_with(" CloseHandle remove LocalFree ReleaseMutex CloseHandle"));
}

TEST(Run, ACompletionAfterAFailedWaitTouchesNothingDead) {
  RunWorld world;
  world.windows.winHttp.delivery = sim::Delivery::kLate;
  // Two waits go to the query, which has ended early, one to the script.
  world.windows.faults.failNth("WaitForSingleObject", 4, 5);
  EXPECT_EQ(world.run(), 6);
  EXPECT_EQ(world.driverLines(), kStarting + uploading() + error(L"WaitForSingleObject failed: Message 5."));
  EXPECT_FALSE(world.bundleExists());
  EXPECT_EQ(world.windows.faults.callCount("SetEvent"), 0U);
  // The event is closed at its place although the completion is still to come.
  EXPECT_EQ(closingsAfter("WaitForSingleObject", world),
            " CloseHandle remove LocalFree ReleaseMutex CloseHandle WinHttpCloseHandle");
}

// kept: the narrow path of the bundle is taken in the process's own code page.
TEST(Run, ABundleWhoseNameIsNotAscii) {
  RunWorld world;
  world.windows.files.ansiIsLatin1 = true;
  setting(L"Agent\\UseRegistryForLoggingPath", L"true")(world);
  setting(L"Log\\LogFileDirectory", L"D:\\\u00FCber")(world);
  EXPECT_EQ(world.run(), 0);
  EXPECT_TRUE(world.bundleExists());
  EXPECT_TRUE(world.log.has(CORE::kWarn, L"Unable to clean DCT bundle. Error code: 0. Error msg: Message 0."));
  world.windows.files.removeErrno = EACCES;  // the library speaks in the terms of C, too
  EXPECT_EQ(world.run(), 0);
  EXPECT_TRUE(world.log.has(CORE::kWarn, L"Unable to clean DCT bundle. Error code: 13. Error msg: Permission denied"));
}

}  // namespace
