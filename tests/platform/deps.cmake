set(extra_libs oxelo_platform_audio)
