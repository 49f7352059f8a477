#pragma once

#include <new>
#include <stdexcept>

#include "core/base/exception.h"

namespace CORE {

/// Runs `work` and returns its result.
/// \throws coreException "OutOfMem" in place of std::bad_alloc and std::length_error, by which the standard library
///         reports that memory is exhausted.
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
