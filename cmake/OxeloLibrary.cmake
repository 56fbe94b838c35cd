# oxelo_add_layer(folder below): the static library oxelo_<folder> of every
# .cpp under <folder>/ (main.cpp excepted), linking `below`. A folder may add
# its own system libraries in <folder>/deps.cmake, which sees the target name
# in `target`.
function(oxelo_add_layer folder below)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${folder}/*.cpp)
  list(FILTER sources EXCLUDE REGEX "/main\\.cpp$")
  set(target oxelo_${folder})
  if(sources)
    add_library(${target} STATIC ${sources})
    target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR})
    target_link_libraries(${target} PUBLIC ${below})
  else()
    add_library(${target} INTERFACE)
    target_link_libraries(${target} INTERFACE ${below})
  endif()
  if(EXISTS ${PROJECT_SOURCE_DIR}/${folder}/deps.cmake)
    include(${PROJECT_SOURCE_DIR}/${folder}/deps.cmake)
  endif()
endfunction()
