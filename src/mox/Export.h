#pragma once

/// Marks a type or function as part of the library's binary interface. Everything else is hidden.
#define NAXEL_EXPORT __attribute__((visibility("default")))
