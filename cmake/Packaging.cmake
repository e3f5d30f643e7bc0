# The Debian package made by `./do package` (cpack -G DEB): one package, `rvitunes`, holding
# what `cmake --install` puts in place under /usr.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME rvitunes)
set(CPACK_PACKAGE_VENDOR "RVITunesHelper for Linux")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "framework to read the iTunes library file and drive a music player")
set(CPACK_PACKAGE_DESCRIPTION
    "RVITunesHelper reads the iTunes library file into playlist and track items a desktop media
application shows, and drives a running music player through Apple Events over a local
event bus. The package holds the framework's static libraries, headers, CMake package and
pkg-config file for applications that build against it, the command-line tool rvitunes and
the reference player rvitunes-player.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "RVITunesHelper developers <rvitunes@localhost>")
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# The static libraries leave their image libraries to the host's link, and the CMake package
# looks for them again, so building against the package needs their development files. The
# programs' own run-time libraries come from dpkg-shlibdeps when it is there.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libpng-dev, libjpeg-dev, libtiff-dev, zlib1g-dev")
find_program(RVITUNES_DPKG_SHLIBDEPS dpkg-shlibdeps)
if(RVITUNES_DPKG_SHLIBDEPS)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "bash-completion, zenity")

include(CPack)
