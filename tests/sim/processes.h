#pragma once

#include "platform/processes.h"
#include "tests/sim/kernel.h"

namespace sim {

class Processes;
struct ChildState;

enum class Ending : std::uint8_t { kRunning, kExited, kTerminated, kJobTerminated };

/// What is known about a child process.
struct ChildRecord {
  std::uint32_t id = 0;
  std::wstring commandLine;
  std::wstring folder;
  std::uint32_t flags = 0;
  bool inheritHandles = false;
  std::size_t inheritedCount = 0;           ///< handles that came over
  bool inheritsOnlyStandardHandles = true;  ///< nothing but the two standard handles came over
  Ending ending = Ending::kRunning;
  std::uint32_t exitCode = 259;
};

/// Ends the script of a child that has been terminated; scripts let it pass.
struct ChildTerminated {};

/// A running child, as its script sees it. The script runs on a thread of its own; the child ends with exit code 0
/// when it returns, unless it has called exit.
class Child {
 public:
  /// The argument that follows `option` ("-f"), or empty.
  std::wstring argumentAfter(const std::wstring& option) const;

  /// Writes to the standard output; false when nobody reads any more or none is there.
  bool write(std::string_view text);
  /// Reads the standard input until its end (an inline child: what there is).
  std::string readInput();
  /// The code to end with (and the script should return).
  void exit(std::uint32_t code);
  /// Stays until somebody terminates the child.
  [[noreturn]] void hang();
  /// Starts a process below this one with the same standard handles (and so holding the same pipe), in the same job.
  void spawn(std::function<void(Child&)> script);

 private:
  friend class Processes;
  Child(Processes& owner, std::shared_ptr<ChildState> state);
  Guard runningGuard() const;

  Processes& owner_;
  const std::shared_ptr<ChildState> state_;
  const std::wstring commandLine_;
};

/// Command lines, scripted children, jobs and pipes.
class Processes : public platform::Processes {
 public:
  explicit Processes(Kernel& kernel) : kernel_(kernel) {}

  std::wstring commandLine = L"mdDCT.exe";
  std::uint32_t processId = 4242;
  std::uint32_t sessionId = 0;
  /// Runs each child's script inside CreateProcessW on the calling thread, with pipes that never fill: cheaper and in a
  /// fixed order, but such a script cannot hang.
  bool inlineChildren = false;

  /// The script of every child started from now on; without one a child ends at once with code 0.
  void onStart(std::function<void(Child&)> script);
  /// Every child and grandchild started so far, in order.
  std::vector<ChildRecord> children() const;
  /// How many of them are still running.
  std::size_t running() const;
  /// Terminates every process; part of the end of the simulation.
  void endAll();

  std::wstring GetCommandLineW() override;
  Result<platform::ArgumentVector> CommandLineToArgvW(const std::wstring& text, int& count) override;
  void LocalFree(wchar_t** arguments) override;
  NativeHandle GetCurrentProcess() override;
  std::uint32_t GetCurrentProcessId() override;
  std::uint32_t GetCurrentThreadId() override;
  Result<std::uint32_t> ProcessIdToSessionId(std::uint32_t id) override;
  Result<platform::ProcessInformation> CreateProcessW(const std::wstring& childCommandLine, bool inheritHandles,
                                                      std::uint32_t creationFlags, const std::wstring& currentDirectory,
                                                      const platform::StandardHandles& standardHandles) override;
  Status TerminateProcess(NativeHandle process, std::uint32_t exitCode) override;
  Result<std::uint32_t> GetExitCodeProcess(NativeHandle process) override;
  Result<KernelHandle> CreateJobObjectW() override;
  Status AssignProcessToJobObject(NativeHandle job, NativeHandle process) override;
  Status TerminateJobObject(NativeHandle job, std::uint32_t exitCode) override;
  Result<platform::Pipe> CreatePipe(bool inheritable) override;
  Result<std::uint32_t> PeekNamedPipe(NativeHandle pipe) override;
  void Sleep(std::uint32_t milliseconds) override;

 private:
  friend class Child;
  std::shared_ptr<ChildState> addChild(const std::wstring& childCommandLine, const std::wstring& folder);
  void inherit(ChildState& state, const platform::StandardHandles& standardHandles);
  void run(const std::shared_ptr<ChildState>& state, const std::function<void(Child&)>& script);
  void end(ChildState& state, Ending ending, std::uint32_t code);

  Kernel& kernel_;
  std::function<void(Child&)> script_;
  std::vector<std::shared_ptr<ChildState>> children_;
  std::uint32_t nextId_ = 5000;
};

/// Splits a command line by the rules of CommandLineToArgvW.
std::vector<std::wstring> splitCommandLine(const std::wstring& text);

}  // namespace sim
