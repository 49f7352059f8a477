#include <functional>

#include "dct/pipe_reader.h"
#include "tests/unit/dct/script_world.h"

namespace {

constexpr const wchar_t* kCommand = L"powershell.exe -x";

TEST(RunDctCommand, GivesTheOutput) {
  ScriptWorld world;
  world.windows.processes.onStart([](sim::Child& child) {
    child.write("in:" + child.readInput() + ";");  // the input is at its end
    child.write(std::string(20'000, 'x'));         // more than the pipe takes at once
  });
  CORE::PropertyBag result;
  std::string output = "old";
  EXPECT_TRUE(world.agent.runDctCommand(kCommand, result, output));
  EXPECT_EQ(output, "in:;" + std::string(20'000, 'x'));
  EXPECT_EQ(result.count(), 0U);
  EXPECT_TRUE(
      world.messages(CORE::kTrace)
          .back()
          .starts_with(L"dct_common::runDctCommand(): Retrieved the following output from calling DCT with command "
                       L"'powershell.exe -x' - 'in:;xxx"));

  const sim::ChildRecord child = world.windows.processes.children().at(0);
  EXPECT_EQ(child.commandLine, kCommand);
  EXPECT_EQ(child.folder, L"C:\\Agent\\dct");
  EXPECT_EQ(child.flags, 0x20U);
  EXPECT_TRUE(child.inheritHandles);
  EXPECT_TRUE(child.inheritsOnlyStandardHandles);
}

TEST(RunDctCommand, FailuresAreLoggedAndStored) {
  const auto failing = [](const char* call, std::size_t n) {
    return [=](sim::Windows& windows) { windows.faults.failNth(call, n, 5); };
  };
  const struct {
    const char* name;
    std::function<void(sim::Windows&)> prepare;
    std::uint32_t code;
    std::wstring text;
  } rows[] = {
      {"output pipe", failing("CreatePipe", 1), 5, L"Failed to create std pipe with error Message 5.."},
      {"output handle", failing("SetHandleInformation", 1), 5,
       L"Failed to set handle information with error Message 5.."},
      {"input pipe", failing("CreatePipe", 2), 5, L"Failed to create stdin pipe with error Message 5.."},
      {"input handle", failing("SetHandleInformation", 2), 5,
       L"Failed to set stdin handle information with error Message 5.."},
      {"start", failing("CreateProcessW", 1), 5,
       L"Failed to start DCT using command 'powershell.exe -x' with error Message 5.."},
      {"wait", failing("WaitForSingleObject", 1), 5,
       L"Failed to wait for DCT to complete using command 'powershell.exe -x' with error Message 5.."},
      {"exit code", failing("GetExitCodeProcess", 1), 5, L"Failed to get DCT process exit code with error Message 5.."},
      {"exit code 7", [](sim::Windows& windows) { windows.processes.onStart([](sim::Child& c) { c.exit(7); }); }, 7,
       L"DCT process failed with error Message 7.."},
      {"install path", [](sim::Windows& windows) { windows.registry.clear(); }, 80,
       L"Cannot get the AgentInstallPath from registry"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ScriptWorld world;
    row.prepare(world.windows);
    CORE::PropertyBag result;
    std::string output = "old";
    EXPECT_FALSE(world.agent.runDctCommand(kCommand, result, output));
    EXPECT_EQ(output, "old");
    EXPECT_EQ(result.getErrorCode(), row.code);
    EXPECT_EQ(result.getErrorText().str(), row.text);
    EXPECT_EQ(world.messages(CORE::kError), std::vector<std::wstring>{L"dct_common::runDctCommand(): " + row.text});
    EXPECT_EQ(world.windows.processes.running(), 0U);
  }
}

/// A child that starts another one and never ends.
void hangWithGrandchild(sim::Child& child) {
  child.spawn([](sim::Child& grandchild) { grandchild.hang(); });
  child.write("partial");
  child.hang();
}

TEST(RunDctCommand, EndsTheWholeTreeAfterAMinute) {
  ScriptWorld world;
  world.windows.processes.onStart(hangWithGrandchild);
  CORE::PropertyBag result;
  std::string output;
  const std::uint32_t before = world.windows.clock.GetTickCount();
  EXPECT_FALSE(world.agent.runDctCommand(kCommand, result, output));
  EXPECT_GE(world.windows.clock.GetTickCount() - before, 60000U);
  EXPECT_EQ(result.getErrorCode(), 258U);
  EXPECT_EQ(result.getErrorText().str(),
            L"Timed out reading script output from the pipe when using command powershell.exe -x.");
  for (const sim::ChildRecord& child : world.windows.processes.children()) {
    EXPECT_EQ(child.ending, sim::Ending::kJobTerminated) << child.id;
  }
  EXPECT_EQ(world.windows.processes.children().size(), 2U);
}

TEST(RunDctCommand, WithoutAJobTheChildAloneIsEnded) {
  for (const char* call : {"CreateJobObjectW", "AssignProcessToJobObject", "TerminateJobObject"}) {
    SCOPED_TRACE(call);
    ScriptWorld world;
    world.windows.faults.failNth(call, 1, 5);
    world.windows.processes.onStart(hangWithGrandchild);
    CORE::PropertyBag result;
    std::string output;
    EXPECT_FALSE(world.agent.runDctCommand(kCommand, result, output));
    EXPECT_EQ(result.getErrorCode(), 258U);
    EXPECT_EQ(world.windows.processes.children().at(0).ending, sim::Ending::kTerminated);
    const bool withoutJob = std::string(call) != "TerminateJobObject";
    EXPECT_EQ(world.messages(CORE::kWarn),
              withoutJob ? std::vector<std::wstring>{L"ScriptChild::start(): No job, only the child itself can be "
                                                     L"ended: Message 5."}
                         : std::vector<std::wstring>());
  }
}

TEST(RunDctCommand, AGrandchildThatHoldsThePipeHoldsNothingUp) {
  const std::function<void(sim::Child&)> grandchildren[] = {
      [](sim::Child& grandchild) { grandchild.hang(); },
      [](sim::Child& grandchild) {
        while (!grandchild.terminated() && grandchild.write(std::string(100, 'y'))) {
        }
      },
  };
  for (const auto& grandchild : grandchildren) {
    ScriptWorld world;
    world.windows.processes.onStart([&grandchild](sim::Child& child) {
      child.write("answer");
      child.spawn(grandchild);
    });
    CORE::PropertyBag result;
    std::string output;
    EXPECT_TRUE(world.agent.runDctCommand(kCommand, result, output));
    EXPECT_TRUE(output.starts_with("answer"));
  }
}

TEST(RunDctCommand, ReadErrorsAreLoggedAndEndTheReading) {
  for (const char* call : {"PeekNamedPipe", "ReadFile"}) {
    SCOPED_TRACE(call);
    ScriptWorld world;
    world.windows.faults.failAll(call, 5);
    bool readerGone = false;
    world.windows.processes.onStart([&readerGone](sim::Child& child) {
      while (child.write(std::string(1000, 'x'))) {
      }
      readerGone = true;
    });
    CORE::PropertyBag result;
    std::string output;
    EXPECT_TRUE(world.agent.runDctCommand(kCommand, result, output)) << "the exit code decides";
    EXPECT_TRUE(readerGone);
    EXPECT_EQ(output, "");
    EXPECT_EQ(world.messages(CORE::kError),
              std::vector<std::wstring>{L"dct_common::runDctCommand::<lambda_1>::operator ()(): Failed to read pipe "
                                        L"with error Message 5.."});
  }
}

TEST(PipeReader, DropsWhatIsTooMuch) {
  ScriptWorld world;
  auto pipe = world.windows.processes.CreatePipe(false);
  const std::string text(3000, 'x');
  ASSERT_TRUE(world.windows.files.WriteFile(pipe.value.write.get(), std::as_bytes(std::span(text))).ok);
  pipe.value.write.reset();
  PipeReader reader(std::move(pipe.value.read), 1000);
  ASSERT_TRUE(reader.start());
  reader.finish();
  EXPECT_EQ(reader.takeOutput(), std::string(1000, 'x'));
  EXPECT_EQ(world.messages(CORE::kWarn),
            std::vector<std::wstring>{L"dct_common::runDctCommand(): Script output beyond 1000 bytes is dropped."});
}

}  // namespace
