#pragma once

/// Marks what an embedder may use. In a shared library everything else is hidden.
#define ZELOR_API __attribute__((visibility("default")))
