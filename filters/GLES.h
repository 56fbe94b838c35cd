#pragma once

// The GL headers of the filter graph, in one place: EGL and OpenGL ES 2 with
// the extensions we look for at run time.
#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>
