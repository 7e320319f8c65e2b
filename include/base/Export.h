#pragma once

/// Marks what an embedder may use. A shared library hides everything else.
#define ZELOR_API __attribute__((visibility("default")))
