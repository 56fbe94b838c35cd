# The command line is read with CLI11 (header only).
find_package(CLI11 REQUIRED)
target_link_libraries(${target} ${scope} CLI11::CLI11)
