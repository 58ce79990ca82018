# Debian packages of the install: `cpack -G DEB` in a build directory (or
# `cmake --build <dir> --target package`) makes one package a component of
# cmake/Install.cmake, for /usr:
#
#   pricemsg-runtime  the stand-in runtime, libcallkyt and libcallkyt_dat
#                     (with the stand-in only: another runtime is its own)
#   pricemsg-libs     libpricemsg and libpricemsg_text
#   pricemsg-dev      headers, the CMake package, the pkg-config files
#   pricemsg-tools    pricemsg-catalogue and the reference pages
#   python3-pricemsg  the Python module (where it is built)
#
# `scripts/check.sh package` installs them with dpkg, builds a client
# against them and removes them again.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME pricemsg)
set(CPACK_PACKAGE_VENDOR "pricemsg")
set(CPACK_PACKAGE_CONTACT "pricemsg developers <pricemsg@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
  "typed message classes of a derivatives pricing service")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE amd64)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6, libstdc++6")

set(version ${PROJECT_VERSION})
set(CPACK_COMPONENTS_ALL libs dev tools)
set(CPACK_DEBIAN_LIBS_PACKAGE_NAME pricemsg-libs)
set(CPACK_DEBIAN_DEV_PACKAGE_NAME pricemsg-dev)
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME pricemsg-tools)
set(CPACK_COMPONENT_LIBS_DESCRIPTION "libpricemsg and libpricemsg_text: the message classes and message files")
set(CPACK_COMPONENT_DEV_DESCRIPTION "headers, CMake package and pkg-config files of pricemsg")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "pricemsg-catalogue and the reference pages of the classes")
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "pricemsg-libs (= ${version})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "pricemsg-libs (= ${version})")
if(PRICEMSG_BUILD_PYTHON)
  list(APPEND CPACK_COMPONENTS_ALL python)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-pricemsg)
  set(CPACK_COMPONENT_PYTHON_DESCRIPTION "the Python module of pricemsg")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "pricemsg-libs (= ${version}), python3")
endif()
if(PRICEMSG_STANDIN)
  list(APPEND CPACK_COMPONENTS_ALL runtime)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME pricemsg-runtime)
  set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "the stand-in runtime libcallkyt of pricemsg")
  set(CPACK_DEBIAN_LIBS_PACKAGE_DEPENDS "pricemsg-runtime (= ${version}), libc6, libstdc++6")
endif()
include(CPack)
