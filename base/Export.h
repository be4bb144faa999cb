#pragma once

// Marks what kvBase39.so offers; everything else in it is hidden.
#define KVBASE_API __attribute__((visibility("default")))
