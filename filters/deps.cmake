# EGL and OpenGL ES 2: Mesa's libraries on a machine without a GPU (llvmpipe),
# a vendor's where the device has one.
pkg_check_modules(OXELO_GLES REQUIRED IMPORTED_TARGET egl glesv2)
target_link_libraries(${target} ${scope} PkgConfig::OXELO_GLES)
