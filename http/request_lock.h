#pragma once

/// The lock that a request holds while its completion runs. A second base of the request, beside its interface.
class RequestLock {
 public:
  virtual void lock() = 0;
  virtual void unlock() = 0;

 protected:
  ~RequestLock() = default;
};
