#pragma once

/// Marks what front ends may use. Everything else in libobd.so stays hidden.
#define VELMARA_EXPORT __attribute__((visibility("default")))
