# Compiler settings shared by every target of the project.
add_library(rvitunes_options INTERFACE)
target_compile_options(rvitunes_options INTERFACE -Wall -Wextra -Wpedantic)
if(RVITUNES_WERROR)
  target_compile_options(rvitunes_options INTERFACE -Werror)
endif()
if(RVITUNES_SANITIZE)
  target_compile_options(rvitunes_options INTERFACE
    -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  target_link_options(rvitunes_options INTERFACE -fsanitize=address,undefined)
endif()
if(RVITUNES_BUILD_FUZZ)
  # Libraries get coverage instrumentation; the fuzz targets add the libFuzzer main.
  target_compile_options(rvitunes_options INTERFACE
    -fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer)
  target_link_options(rvitunes_options INTERFACE -fsanitize=address,undefined)
endif()

# rvitunes_add_layer(NAME SOURCES... [DEPS ...]) defines one layer library.
function(rvitunes_add_layer name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS;PRIVATE_DEPS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name}
    PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:include>
    PRIVATE ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PUBLIC ${ARG_DEPS} PRIVATE rvitunes_options ${ARG_PRIVATE_DEPS})
  set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
endfunction()
