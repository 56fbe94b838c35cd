# The UDP tests run the reference host's probe answerer against the flow.
set(extra_libs oxelo_host_lib oxelo_socket_test_support)
