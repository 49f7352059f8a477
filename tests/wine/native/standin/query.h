#pragma once

#include "tests/wine/native/standin/control.h"

namespace standin {

/// Answers the capability query on the standard output as it was told to. Gives the exit code.
int answerQuery(const Control& control);

}  // namespace standin
