// Mesa's llvmpipe (swrast_dri.so, built without ThreadSanitizer) destroys the
// mutexes and condition variables of its rendering threads' fences in ways
// ThreadSanitizer cannot follow, and reports them as races inside that
// library. They are not ours; only reports that pass through it are
// suppressed. Other builds ignore the function.
extern "C" const char* __tsan_default_suppressions() { return "race:swrast_dri.so\n"; }
