#pragma once

// Marks what the shared library shows; everything else stays hidden in it.
#define XPACL_API __attribute__((visibility("default")))
