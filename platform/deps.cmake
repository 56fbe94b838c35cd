target_link_libraries(${target} ${scope} Threads::Threads fmt::fmt nlohmann_json::nlohmann_json)
