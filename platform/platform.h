#pragma once

namespace platform {

class Certificates;
class Clock;
class Crash;
class Digests;
class Files;
class Heap;
class Internet;
class Objects;
class Processes;
class Registry;
class Security;
class System;
class Text;
class WinHttp;

/// The services of Windows that the program uses. Each is an abstract class in a header of its own.
struct Platform {
  Certificates& certificates;
  Clock& clock;
  Crash& crash;
  Digests& digests;
  Files& files;
  Heap& heap;
  Internet& internet;
  Objects& objects;
  Processes& processes;
  Registry& registry;
  Security& security;
  System& system;
  Text& text;
  WinHttp& winHttp;
};

/// Makes current() return `platform`. The program calls it once, at the start of its entry point; a test calls it for
/// each simulated Windows. The caller keeps the object alive until no thread uses it any more.
/// \param platform  null: none is installed from now on.
void install(const Platform* platform);

/// Returns the installed platform, and aborts the process when none is installed. Any thread.
const Platform& current();

}  // namespace platform
