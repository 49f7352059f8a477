#include "fuzz/input.h"
#include "tests/sim/windows.h"

// In a file of its own, so that the targets need not read all of the simulation.

fuzz::Platform::Platform() : windows_(std::make_unique<sim::Windows>()) {}

fuzz::Platform::~Platform() = default;
