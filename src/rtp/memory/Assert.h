// Assertions that are part of the contract: always on, whatever the build type says about NDEBUG. Include
// this header last, and only in source files.

#undef NDEBUG
#include <cassert>
