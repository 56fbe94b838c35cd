target_link_libraries(${target} PUBLIC Threads::Threads fmt::fmt nlohmann_json::nlohmann_json)
