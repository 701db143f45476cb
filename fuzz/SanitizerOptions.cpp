// The options of AddressSanitizer for all fuzzers; ASAN_OPTIONS overrides them. A freed block is kept from
// reuse until 1 MiB more was freed, which is some hundred packets. The default of 256 MiB gives every input
// memory that is not in the caches, and often not yet mapped. The two innermost calls of an allocation are
// noted, which takes no walk up the stack; to see more of a find, run it again with malloc_context_size=30.

extern "C" const char* __asan_default_options();

extern "C" const char* __asan_default_options() {
    return "quarantine_size_mb=1:thread_local_quarantine_size_kb=64:malloc_context_size=2";
}
