// libx265 3.5 keeps a few blocks of every encoder it opens after
// x265_encoder_close (its parameter copies, and the SAO state of a filter
// with SAO off); they are not ours to free. LeakSanitizer reads this list
// when the tests run under it; other builds ignore the function.
extern "C" const char* __lsan_default_suppressions() { return "leak:libx265.so\n"; }
