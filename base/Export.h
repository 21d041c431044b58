#pragma once

/// Marks what the shared library offers to its users; everything else stays inside it.
#define TAV_API __attribute__((visibility("default")))
