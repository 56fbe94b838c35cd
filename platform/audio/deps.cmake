pkg_check_modules(ALSA REQUIRED IMPORTED_TARGET alsa)
target_link_libraries(${target} ${scope} PkgConfig::ALSA)
