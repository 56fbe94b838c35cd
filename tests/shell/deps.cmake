# The main queue's Qt backend and the window are tested here too.
set(extra_libs oxelo_shell_qt)
