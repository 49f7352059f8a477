#pragma once

/// The lock that a request holds while its completion runs; a second base of the request, apart from its interface.
class RequestLock {
 public:
  virtual void lock() = 0;
  virtual void unlock() = 0;

 protected:
  ~RequestLock() = default;
};
