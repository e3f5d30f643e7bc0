# What `cmake --install` puts in place besides the libraries (installed by rvitunes_add_layer)
# and the programs (installed by their own folders): the public headers, the CMake package, the
# pkg-config file and the man pages. docs/using-the-framework.md describes the result.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(RVITUNES_CMAKE_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/RVITunesHelper)
# Where FrameworkBundle looks for the icons of a program installed as <prefix>/bin/<program>.
set(RVITUNES_RESOURCE_INSTALL_DIR
    ${CMAKE_INSTALL_DATADIR}/rvitunes/Contents/Frameworks/RVITunesHelper.framework/Resources)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/rvitunes
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h")

# An installation with --strip, and so the Debian package, keeps the symbols of the static
# libraries but drops their debug information, as Debian's own -dev packages do: nearly all
# of their size (4 MB stay of 106 MB in a RelWithDebInfo build).
get_property(RVITUNES_LAYERS GLOBAL PROPERTY RVITUNES_LAYERS)
foreach(layer IN LISTS RVITUNES_LAYERS)
  install(CODE "
    if(CMAKE_INSTALL_DO_STRIP)
      execute_process(COMMAND \"${CMAKE_STRIP}\" --strip-debug
        \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/$<TARGET_FILE_NAME:${layer}>\"
        COMMAND_ERROR_IS_FATAL ANY)
    endif()")
endforeach()

# --- the CMake package ----------------------------------------------------------------------

install(EXPORT RVITunesHelperTargets
  NAMESPACE RVITunesHelper::
  DESTINATION ${RVITUNES_CMAKE_INSTALL_DIR})

configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/RVITunesHelperConfig.cmake.in
  ${PROJECT_BINARY_DIR}/RVITunesHelperConfig.cmake
  INSTALL_DESTINATION ${RVITUNES_CMAKE_INSTALL_DIR}
  PATH_VARS CMAKE_INSTALL_INCLUDEDIR RVITUNES_RESOURCE_INSTALL_DIR)
# While the version is 0.x, a minor release may change the interface (docs/decisions.md), so
# a request for 0.1 accepts 0.1.z only.
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/RVITunesHelperConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/RVITunesHelperConfig.cmake
    ${PROJECT_BINARY_DIR}/RVITunesHelperConfigVersion.cmake
  DESTINATION ${RVITUNES_CMAKE_INSTALL_DIR})

# --- pkg-config -----------------------------------------------------------------------------

# The prefix is found from the .pc file's own folder, so that the file stays right whatever
# --prefix or DESTDIR the installation used.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  message(FATAL_ERROR "rvitunes.pc needs CMAKE_INSTALL_LIBDIR relative to the prefix")
endif()
file(RELATIVE_PATH RVITUNES_PC_PREFIX_FROM_PCDIR
     "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
string(REGEX REPLACE "/$" "" RVITUNES_PC_PREFIX_FROM_PCDIR "${RVITUNES_PC_PREFIX_FROM_PCDIR}")
foreach(var INCLUDEDIR LIBDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${var}}")
    set(RVITUNES_PC_${var} "${CMAKE_INSTALL_${var}}")
  else()
    set(RVITUNES_PC_${var} "\${prefix}/${CMAKE_INSTALL_${var}}")
  endif()
endforeach()
set(RVITUNES_PC_RESOURCEDIR "\${prefix}/${RVITUNES_RESOURCE_INSTALL_DIR}")
set(RVITUNES_PC_THREADS "${CMAKE_THREAD_LIBS_INIT}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/rvitunes.pc.in ${PROJECT_BINARY_DIR}/rvitunes.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/rvitunes.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# --- man pages ------------------------------------------------------------------------------

# Made from the programs' --help and --version by help2man. Without help2man, or in builds
# whose programs cannot simply be run at build time (sanitizers, fuzzing, cross builds), there
# are no man pages and nothing else changes.
find_program(RVITUNES_HELP2MAN help2man)
if(RVITUNES_HELP2MAN AND NOT CMAKE_CROSSCOMPILING AND NOT RVITUNES_SANITIZE
   AND NOT RVITUNES_BUILD_FUZZ)
  set(RVITUNES_MAN_PAGES_DEFAULT ON)
else()
  set(RVITUNES_MAN_PAGES_DEFAULT OFF)
endif()
option(RVITUNES_MAN_PAGES "Generate and install man pages with help2man"
       ${RVITUNES_MAN_PAGES_DEFAULT})

if(RVITUNES_MAN_PAGES)
  if(NOT RVITUNES_HELP2MAN)
    message(FATAL_ERROR "RVITUNES_MAN_PAGES is ON but help2man was not found")
  endif()
  set(pages)
  foreach(entry "rvitunes_cli|rvitunes|read iTunes library files and drive the player"
                "rvitunes-player|rvitunes-player|the reference music player on the event bus")
    string(REPLACE "|" ";" entry "${entry}")
    list(GET entry 0 target)
    list(GET entry 1 program)
    list(GET entry 2 summary)
    set(page ${PROJECT_BINARY_DIR}/man/${program}.1)
    add_custom_command(OUTPUT ${page}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man
      COMMAND ${RVITUNES_HELP2MAN} --no-info --section=1
              --name=${summary} --output=${page} $<TARGET_FILE:${target}>
      DEPENDS ${target}
      COMMENT "Writing the man page of ${program}"
      VERBATIM)
    list(APPEND pages ${page})
  endforeach()
  add_custom_target(rvitunes_man_pages ALL DEPENDS ${pages})
  install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()
