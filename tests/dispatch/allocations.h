#pragma once

/// Allocations of this thread by `new`, which this program replaces for the purpose.
extern thread_local int allocations;
