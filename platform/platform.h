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

/// The services of Windows as the program sees them, one abstract class each, in a header of its own.
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

/// Makes `platform` the one that current() gives. The program does it once, first thing in its entry; a test does it
/// per simulated Windows. Whoever installs keeps the object alive until no thread uses it any more; null takes it away.
void install(const Platform* platform);

/// The installed platform. Any thread; aborts when none is installed.
const Platform& current();

}  // namespace platform
