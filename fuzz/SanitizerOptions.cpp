// The options of AddressSanitizer for all fuzzers; ASAN_OPTIONS overrides them. A freed block is kept from
// reuse until 1 MiB more was freed, ten times what an input of the session fuzzers frees. The default of 256
// MiB gives every input memory that is not in the caches, and often not yet mapped. Shorter call stacks of
// allocations are quicker to take.

extern "C" const char* __asan_default_options();

extern "C" const char* __asan_default_options() {
    return "quarantine_size_mb=1:thread_local_quarantine_size_kb=64:malloc_context_size=6";
}
