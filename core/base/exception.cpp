#include "core/base/exception.h"

#include <new>

#include "core/base/unicode.h"

namespace CORE {

coreException::coreException(std::wstring message) : message_(std::move(message)), narrow_(toUtf8Lossy(message_)) {}

void throwOutOfMemory() { throw coreException(L"OutOfMem"); }

std::wstring currentExceptionText() {
  try {
    throw;
  } catch (const coreException& e) {
    return e.message();
  } catch (const std::bad_alloc&) {
    return L"OutOfMem";
  } catch (const std::exception& e) {
    return toWideLossy(e.what());
  } catch (...) {
    return L"unknown exception";
  }
}

}  // namespace CORE
