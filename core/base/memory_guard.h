#pragma once

#include <new>
#include <stdexcept>

#include "core/base/exception.h"

namespace CORE {

/// Runs `work` and turns the library's reports of exhausted memory into coreException("OutOfMem").
template <class F>
decltype(auto) guardMemory(F&& work) {
  try {
    return work();
  } catch (const std::bad_alloc&) {
    throwOutOfMemory();
  } catch (const std::length_error&) {
    throwOutOfMemory();
  }
}

}  // namespace CORE
