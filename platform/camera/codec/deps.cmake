# MJPEG cameras are decoded with libavcodec.
pkg_check_modules(LIBAV_CAMERA REQUIRED IMPORTED_TARGET libavcodec libavutil)
target_link_libraries(${target} ${scope} PkgConfig::LIBAV_CAMERA)
