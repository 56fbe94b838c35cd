# libswscale is the reference the GPU-side YUV output is checked against.
pkg_check_modules(FILTERS_TEST_SWS REQUIRED IMPORTED_TARGET libswscale libavutil)
set(extra_libs PkgConfig::FILTERS_TEST_SWS)
