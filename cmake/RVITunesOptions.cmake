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
option(RVITUNES_TSAN "Build with ThreadSanitizer (not with RVITUNES_SANITIZE)" OFF)
if(RVITUNES_TSAN)
  if(RVITUNES_SANITIZE)
    message(FATAL_ERROR "RVITUNES_TSAN and RVITUNES_SANITIZE cannot be combined")
  endif()
  target_compile_options(rvitunes_options INTERFACE -fsanitize=thread -fno-omit-frame-pointer)
  target_link_options(rvitunes_options INTERFACE -fsanitize=thread)
endif()
if(RVITUNES_BUILD_FUZZ)
  # Libraries get coverage instrumentation; the fuzz targets add the libFuzzer main.
  target_compile_options(rvitunes_options INTERFACE
    -fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer)
  target_link_options(rvitunes_options INTERFACE -fsanitize=address,undefined)
endif()

include(GNUInstallDirs)
find_package(Threads REQUIRED)

# rvitunes_add_layer(NAME SOURCES... [DEPS ...]) defines one layer library, and installs it
# into the export set that the package's config file loads (cmake/Install.cmake).
function(rvitunes_add_layer name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS;PRIVATE_DEPS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name}
    PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
           $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
    PRIVATE ${PROJECT_SOURCE_DIR}/src)
  # The public headers need C++20; saying so here carries the requirement to hosts.
  target_compile_features(${name} PUBLIC cxx_std_20)
  # Our warning and sanitizer flags are for our own build only: a static library would
  # otherwise hand them to every host through the exported link interface. The thread library
  # is public because the bus, the player and child processes start threads.
  target_link_libraries(${name}
    PUBLIC ${ARG_DEPS} Threads::Threads
    PRIVATE $<BUILD_INTERFACE:rvitunes_options> ${ARG_PRIVATE_DEPS})
  set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  install(TARGETS ${name} EXPORT RVITunesHelperTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
  set_property(GLOBAL APPEND PROPERTY RVITUNES_LAYERS ${name})
endfunction()
