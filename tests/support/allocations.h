#pragma once

/// Allocations of this thread by `new`, which a program that links allocations.cpp replaces for the purpose.
extern thread_local int allocations;
/// Lets the next one fail.
extern thread_local bool nextAllocationFails;
