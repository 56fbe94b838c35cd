target_compile_definitions(${target} ${scope} ASIO_STANDALONE ASIO_SEPARATE_COMPILATION ASIO_NO_DEPRECATED)
# Asio's fenced blocks use std::atomic_thread_fence, which GCC flags under
# ThreadSanitizer; the handlers they guard are already ordered by the
# scheduler's mutex.
if(OXELO_SANITIZE MATCHES "thread" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(${target} ${scope} -Wno-tsan)
endif()
