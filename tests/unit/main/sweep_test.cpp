#include <array>
#include <cstdlib>
#include <random>
#include <ranges>
#include <set>

#include "tests/unit/main/run_world.h"

// Whole runs of every kind in which platform calls fail: each in turn, each pair for the short ones, and by seed. What
// must hold after every one of them stands in check().

namespace {

using sim::Delivery;

constexpr platform::ErrorCode kError = 5;

struct Kind {
  const char* name;
  int code;              ///< of the undisturbed run
  std::size_t requests;  ///< of the undisturbed run
  void (*prepare)(RunWorld&);
  std::string from = {};  ///< the calls before the first of that name are left to another kind
  bool inPairs = false;   ///< short enough for two failing calls
};

void prepareProxied(RunWorld& world) {
  const std::wstring settings = L"HKLM\\Software\\Calvera\\Meridon\\Node Manager\\HTTP Proxy ";
  world.windows.registry.set(settings + L"Server", L"proxy:8080");
  world.windows.registry.set(settings + L"Auto Config URL", L"http://pac/p");
  world.windows.winHttp.proxies.pacFiles[L"http://pac/p"] = [](const std::wstring&) { return L""; };
}

/// An append run that the server ends at its second block, which is long enough to pass every call of such a run.
void prepareAppend(RunWorld& world) {
  world.bundleSize = (256u << 20) + 1;
  world.failingRequest = 3;
}

void prepareHanging(RunWorld& world) {
  world.queryHangs = true;
  world.windows.processes.inlineChildren = false;
}

const Kind kKinds[] = {
    {"NotLocalSystem", 1, 0, [](RunWorld& world) { world.windows.security.localSystem = false; }, "", true},
    {"SecondInstance", 2, 0, [](RunWorld& world) { world.windows.objects.addMutex(kMutexName); }, "", true},
    {"BadCommandLine", 3, 0, [](RunWorld& world) { world.windows.processes.commandLine = L"mdDCT.exe -no"; }, "", true},
    {"FailingScript", 4, 0, [](RunWorld& world) { world.writesBundle = false, world.exitCode = 5; }},
    {"HangingQuery", 0, 1, prepareHanging, "CreatePipe"},
    {"PutBlob", 0, 1, [](RunWorld&) {}},
    {"ProxiedPutBlob", 0, 1, prepareProxied, "CreateEventW"},
    {"RefusedPutBlob", 7, 1, [](RunWorld& world) { world.failingRequest = 1; }, "WinHttpSendRequest"},
    {"AppendBlocks", 7, 3, prepareAppend, "CreateEventW"},
};

void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }

struct Fault {
  std::string name;
  std::size_t nth;
  platform::ErrorCode error = kError;
};
using Faults = std::vector<Fault>;

/// The log texts that name the cause of a failed run where neither the failed call's name nor its error is logged.
/// EqualSid and IsValidURL have no error of their own; the others lose it by the product's texts.
const std::pair<const wchar_t*, std::string_view> kCauses[] = {
    {L"Insufficient permissions.", "EqualSid"},
    {L"Invalid URL.", "IsValidURL"},
    {L"Cannot create the temporary directory.",
     "ConvertStringSecurityDescriptorToSecurityDescriptorW CreateDirectoryW _waccess"},
    {L"The DCT script is not found on disk.", "_waccess"},
    {L"The DCT script FAILED.", "_waccess"},
    {L"Cannot get the AgentInstallPath from registry", "RegOpenKeyExW RegQueryValueExW CompareStringW"},
    {L"'featureData' does not exist as bag", "CompareStringW"},
    {L"DCT file path is unexpectedly empty.", "CompareStringW"},
    {L"Failed to set status callback", "WinHttpSetStatusCallback"},
    {L"File stream is invalid", "CreateFileW ReadFile"},
    {L"Unable to open file to upload", "CreateFileW"},
};

bool namesCause(RunWorld& world, const std::string& call) {
  const auto logged = [&world](std::wstring_view text) { return world.log.has(CORE::kError, text); };
  return logged(L"essage 5.") || logged(L"0x5") || logged(std::wstring(call.begin(), call.end())) ||
         std::ranges::any_of(
             kCauses, [&](const auto& row) { return row.second.find(call) != row.second.npos && logged(row.first); });
}

/// The exit codes that are possible after the calls and requests that were made.
std::set<int> fittingCodes(const RunWorld& world, const std::map<std::string, std::size_t>& made) {
  for (const auto& [code, nextCall] : {std::pair(1, "CreateMutexW"), std::pair(2, "CommandLineToArgvW"),
                                       std::pair(3, "GetSystemDirectoryW"), std::pair(4, "CreateEventW")}) {
    if (!made.contains(nextCall)) {
      return {code};
    }
  }
  const auto sent = world.windows.winHttp.sentRequests();
  const bool put = std::ranges::any_of(sent, [](const auto& request) { return request.verb == L"PUT"; });
  return put ? std::set<int>{0, 6, 7} : std::set<int>{5};
}

/// What must hold after a run that ended with a code.
struct Ending {
  std::size_t minSignals, maxSignals;  ///< SetEvent calls that succeeded
  bool knewTheBundle;                  ///< and has removed it
  bool logsError;
  bool sentEverything;
  const char* failedCall = "";  ///< the run ends so only when this call has failed
  const char* mayStayOpen = "";
};

const std::array<Ending, 8> kEndings = {{
    // by exit code
    {1, 1, true, false, true},
    {0, 0, false, true, false},
    {0, 0, false, true, false, "", "1 mutex"},  // kept: the handle of a mutex that was there stays open
    {0, 0, false, true, false},
    {0, 0, false, true, false},
    {0, 0, true, true, false},
    {0, 1, true, true, false, "WaitForSingleObject"},
    {1, 1, true, true, false},
}};

void check(const Kind& kind, RunWorld& world, int code, const Faults& hit,
           const std::map<std::string, std::size_t>& made) {
  const auto failed = [&hit](const char* name) { return std::ranges::count(hit, name, &Fault::name) != 0; };
  const std::string log = world.log.text();
  EXPECT_TRUE(!hit.empty() || code == kind.code) << code << log;
  EXPECT_TRUE(fittingCodes(world, made).contains(code)) << code << log;
  const Ending& ending = kEndings.at(static_cast<std::size_t>(code));
  EXPECT_TRUE(*ending.failedCall == 0 || failed(ending.failedCall)) << log;
  const std::size_t signals = made.contains("SetEvent") ? made.at("SetEvent") - (failed("SetEvent") ? 1 : 0) : 0;
  EXPECT_TRUE(signals >= ending.minSignals && signals <= ending.maxSignals) << signals << log;
  EXPECT_TRUE(world.answered <= kind.requests && world.answered >= (ending.sentEverything ? kind.requests : 0));
  EXPECT_TRUE(!ending.knewTheBundle || failed("remove") || !world.bundleExists()) << log;
  if (!failed("WriteFile")) {  // which loses a line of the log
    EXPECT_TRUE(!failed("remove") || world.log.has(CORE::kWarn, L"Unable to clean DCT bundle."));
    EXPECT_TRUE(!ending.logsError || !world.log.messages(CORE::kError).empty());
    EXPECT_TRUE(hit.size() != 1 || hit[0].error != kError || code == kind.code || namesCause(world, hit[0].name))
        << log;
  }
  auto& processes = world.windows.processes;
  const bool lostChild = failed("WaitForSingleObject") || (failed("TerminateJobObject") && failed("TerminateProcess"));
  EXPECT_TRUE(lostChild || processes.running() == 0);
  world.mayStayOpen = failed("CreateMutexW") ? "" : ending.mayStayOpen;
}

/// Makes one run in which these calls fail, and checks what must hold.
/// \return the calls that it made and that can fail, in order; of a call that is made again and again, the first few.
Faults runOnce(const Kind& kind, const Faults& faults, const std::function<void(sim::WinHttp&)>& configure) {
  std::string trace = kind.name;
  for (const Fault& fault : faults) {
    trace += ", " + fault.name + " " + std::to_string(fault.nth) + " fails with " + std::to_string(fault.error);
  }
  SCOPED_TRACE(trace);
  RunWorld world;
  kind.prepare(world);
  configure(world.windows.winHttp);
  auto& points = world.windows.faults;
  const std::size_t first = points.calls().size();
  for (const Fault& fault : faults) {
    points.failNth(fault.name, fault.nth, fault.error);
  }
  testing::internal::CaptureStderr();
  const int code = world.run();
  testing::internal::GetCapturedStderr();
  const auto calls = points.calls();
  std::map<std::string, std::size_t> made;
  Faults failable;
  for (std::size_t n = first; n < calls.size(); ++n) {
    const std::string name(calls[n].name);
    const bool repeats =
        name == "LockFileEx" || name == "WriteFile" || name == "PeekNamedPipe" || name.starts_with("FileTimeTo");
    if (++made[name] <= (repeats ? 6 : world.queryHangs ? 2 : 999) && calls[n].canFail) {
      failable.push_back({name, made[name]});
    }
  }
  Faults hit;
  std::copy_if(faults.begin(), faults.end(), std::back_inserter(hit),
               [&](const Fault& fault) { return made.contains(fault.name) && made[fault.name] >= fault.nth; });
  check(kind, world, code, hit, made);
  return failable;
}

auto delivering(Delivery delivery) {
  return [delivery](sim::WinHttp& winHttp) {
    winHttp.delivery = delivery;
    winHttp.bindContextOfFailedSend = delivery != Delivery::kInline;
    winHttp.lateDelay = std::chrono::milliseconds(1);
  };
}

class Sweep : public testing::TestWithParam<Kind> {};

TEST_P(Sweep, EachCallFailing) {
  const Kind& kind = GetParam();
  for (const auto& [name, delivery] : {std::pair("inline", Delivery::kInline), std::pair("worker", Delivery::kWorker),
                                       std::pair("mixed", Delivery::kMixed), std::pair("late", Delivery::kLate)}) {
    if (delivery != Delivery::kInline && (kind.requests == 0 || kind.prepare == prepareHanging)) {
      continue;
    }
    SCOPED_TRACE(name);
    const Faults calls = runOnce(kind, {}, delivering(delivery));
    const std::string from = kind.from.empty() && delivery != Delivery::kInline ? "WinHttpOpen" : kind.from;
    auto call = std::find_if(calls.begin(), calls.end(),
                             [&from](const Fault& made) { return from.empty() || made.name == from; });
    EXPECT_NE(call, calls.end());
    for (; call != calls.end() && !HasFailure(); ++call) {
      const Faults after = runOnce(kind, {*call}, delivering(delivery));
      const auto next = static_cast<std::size_t>(call - calls.begin()) + 1;
      for (std::size_t n = next; kind.inPairs && n < after.size() && !HasFailure(); ++n) {
        runOnce(kind, {*call, after[n]}, delivering(delivery));
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Run, Sweep, testing::ValuesIn(kKinds), [](const auto& kind) { return kind.param.name; });

std::size_t setting(const char* name, std::size_t preset) {
  const char* const text = std::getenv(name);
  return text == nullptr ? preset : std::strtoul(text, nullptr, 10);
}

/// Seeds from SWEEP_FROM on, SWEEP_SEEDS of them; scripts/sweep.sh sets both.
TEST(SweepSeeds, AnyKindAndDeliveryWithUpToThreeFaults) {
  std::map<std::string, Faults> calls;
  const std::size_t from = setting("SWEEP_FROM", 1);
  for (std::size_t seed = from; seed < from + setting("SWEEP_SEEDS", 150) && !HasFailure(); ++seed) {
    std::printf("seed %zu\n", seed);
    std::mt19937 random(static_cast<std::mt19937::result_type>(seed));
    const auto pick = [&random](std::size_t below) { return random() % below; };
    const Kind& kind = kKinds[pick(std::size(kKinds))];
    const auto configure = [&, delivery = static_cast<Delivery>(pick(4)), shape = random(),
                            onClose = static_cast<sim::OnClose>(pick(3))](sim::WinHttp& winHttp) {
      delivering(delivery)(winHttp);
      winHttp.seed = static_cast<std::uint32_t>(shape);
      winHttp.onClose = onClose;
      winHttp.closingInline = (shape & 16) != 0;
      winHttp.bindContextOfFailedSend = (shape & 32) != 0;
    };
    Faults& known = calls[kind.name];
    known = known.empty() ? runOnce(kind, {}, delivering(Delivery::kInline)) : known;
    std::map<std::string, Fault> faults;  // one a name: a SetEvent that fails three times is left to hang
    for (std::size_t count = pick(4); count > 0; --count) {
      const Fault& call = known[pick(known.size())];
      const platform::ErrorCode errors[] = {kError, platform::kErrorNotEnoughMemory, platform::kErrorMoreData,
                                            platform::kErrorInsufficientBuffer, platform::kErrorAlreadyExists};
      faults[call.name] = {call.name, call.nth + pick(3), errors[pick(std::size(errors))]};
    }
    Faults chosen;
    std::ranges::copy(std::views::values(faults), std::back_inserter(chosen));
    runOnce(kind, chosen, configure);
  }
}

}  // namespace
