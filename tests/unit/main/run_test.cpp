#include "main/run.h"

#include <algorithm>
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
  int code;
  Prepare prepare;
  std::wstring lines;        ///< after the first
  std::string console = "";  ///< what the option scanner says
};

Prepare called(const std::wstring& arguments) {
  return [=](RunWorld& world) { world.windows.processes.commandLine = L"mdDCT.exe " + arguments; };
}

Prepare setting(const std::wstring& name, const std::wstring& value) {
  return [=](RunWorld& world) { world.windows.registry.set(L"HKLM\\Software\\Calvera\\Meridon\\" + name, value); };
}

void expect(const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    SCOPED_TRACE("row " + std::to_string(&row - rows.data()));
    RunWorld world;
    row.prepare(world);
    testing::internal::CaptureStderr();
    EXPECT_EQ(world.run(), row.code);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), row.console);
    EXPECT_EQ(world.driverLines(), kStarting + row.lines) << world.log.text();
    EXPECT_FALSE(world.bundleExists());
    world.mayStayOpen = world.windows.objects.mutexState(kMutexName) == "none" ? "" : "1 mutex";
    EXPECT_EQ(world.windows.faults.callCount("ReleaseMutex"), row.code == 1 || row.code == 2 ? 0U : 1U);
    if (row.code != 4) {
      EXPECT_EQ(world.windows.processes.children().size(), row.code == 0 || row.code > 4 ? 2U : 0U);
    }
    EXPECT_EQ(world.windows.winHttp.sentRequests().size(), row.code == 0 || row.code == 7 ? 1U : 0U);
  }
}

TEST(Run, EndsBeforeTheCollection) {
  const auto taken = [](const std::wstring& url) { return uploading(url) + kSucceeded; };
  const std::string unknown = "mdDCT.exe: unrecognized option '";
  expect({
      {1, [](RunWorld& world) { world.windows.security.localSystem = false; }, error(L"Insufficient permissions.")},
      // kept: the handle of the foreign mutex stays open.
      {2, [](RunWorld& world) { world.windows.objects.addMutex(kMutexName); },
       L"ERROR DCTMutex::GetMutex(): Mutex already exists\n" + error(L"DCT collection is already in progress.")},
      {3, called(L""), kBadOptions},
      {0, called(L"--ur https://h/b"), taken(L"https://h/b")},  // a single "-" takes whole names only
      {3, called(L"-ur https://h/b"), badArgument(L"-ur"), unknown + "-ur'\n"},
      {0, called(L"--=https://h/b"), taken(L"https://h/b")},  // the empty name is a prefix of the only one
      {3, called(L"-=https://h/b"), badArgument(L"-=https://h/b"), unknown + "-=https://h/b'\n"},
      {0, called(L"-url x --url https://h/b\u00E4"), taken(L"https://h/b\u00E4")},
      {0, called(L"stray -url=https://h/b -- -more"), taken(L"https://h/b")},
      {3, called(L"-url"), badArgument(L"-url"), "mdDCT.exe: option '-url' requires an argument\n"},
      {3, called(L"-url https://h/b - -URL y"), badArgument(L"-URL"), unknown + "-URL'\n"},
      {3, called(L"---url=https://h/b"), badArgument(L"---url=https://h/b"), unknown + "---url=https://h/b'\n"},
      {3, called(L"-url \xDC00"), error(L"to_mstr Failed")},  // no text
  });
}

TEST(Run, EndsWithTheCollectionOrTheUpload) {
  const auto failed = [](const std::wstring& text) { return error(L"Invoking the DCT script failed. Error " + text); };
  const auto noEnvironment = [](RunWorld& world) {
    world.windows.text.eraseVariable(L"ProgramData");
    world.windows.text.eraseVariable(L"LOCALAPPDATA");
  };
  const auto worthless = [](RunWorld& world) {  // none of which matters
    world.exitCode = 5;
    world.answer = "garbage";
    world.bundleSize = 0;
  };
  const auto withProxy = [](RunWorld& world) {
    setting(L"Node Manager\\HTTP Proxy Server", L"proxy:8080")(world);
    setting(L"Node Manager\\HTTP Proxy Bypass", L"<local>")(world);
    setting(L"Node Manager\\HTTP Proxy Auto Config URL", L"http://pac/p\u00E4c")(world);
  };
  const std::wstring proxy = L"Proxy Server: proxy:8080. Proxy Bypass: <local> PACURL: http://pac/p\u00E4c.";
  expect({
      {4, [](RunWorld& world) { world.windows.registry.clear(); },
       failed(L"80: Cannot get the AgentInstallPath from registry")},
      {4, [](RunWorld& world) { world.windows.files.erase(L"C:\\Agent\\dct\\vdx-support.ps1"); },
       failed(L"70: The DCT script is not found on disk.")},
      {4, noEnvironment, failed(L"130: Cannot create the temporary directory.")},
      {4, [](RunWorld& world) { world.windows.faults.failNth("CreateProcessW", 2, 5); },
       L"ERROR dct_common::invokeDCTScript(): Could not create process.\n" +
           failed(L"60: The DCT script failed to start, error: Message 5.")},
      {4, [](RunWorld& world) { world.writesBundle = false, world.exitCode = 5; },
       failed(L"-1: The DCT script FAILED. Process exited with error Message 5..")},
      {0, [](RunWorld&) {}, uploading() + kSucceeded},
      {0, worthless, uploading() + kSucceeded},
      {0, withProxy, uploading(kUrl, proxy) + kSucceeded},
      {5, called(L"-url http://h/b"), uploading(L"http://h/b") + error(L"Failed to start upload.")},  // without TLS
      {5, called(L"-url -url=https://h/b"), uploading(L"-url=https://h/b") + error(L"Failed to start upload.")},
      {7, [](RunWorld& world) { world.failingRequest = 1; }, uploading() + error(L"Upload failed.")},
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
}

}  // namespace
