pkg_check_modules(LIBAV REQUIRED IMPORTED_TARGET libavcodec libavutil libswscale)
pkg_check_modules(LIBVA REQUIRED IMPORTED_TARGET libva libva-drm)
target_link_libraries(${target} ${scope} PkgConfig::LIBAV PkgConfig::LIBVA)
