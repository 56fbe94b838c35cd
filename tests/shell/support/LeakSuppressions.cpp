// LeakSanitizer's list for the shell's tests, read in the sanitizer builds
// (other builds ignore the function). Qt's font database initialises
// fontconfig, whose configuration and caches stay allocated until the
// process ends (Qt never calls FcFini); the blocks are fontconfig's own, not
// ours. Nothing else of Qt or Mesa is left out.
extern "C" const char* __lsan_default_suppressions() { return "leak:libfontconfig.so\n"; }
