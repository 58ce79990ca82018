# An installed runtime in place of the stand-in: PRICEMSG_RUNTIME_ROOT holds
# its headers (include/callkyt/CMsg.h and the rest) and its two libraries.
# Defines the imported targets pricemsg::callkyt and pricemsg::callkyt_dat,
# and PRICEMSG_RUNTIME_INCLUDE_DIR, PRICEMSG_RUNTIME_LIBRARY and
# PRICEMSG_RUNTIME_DAT_LIBRARY for the installed package.
get_filename_component(root "${PRICEMSG_RUNTIME_ROOT}" ABSOLUTE)
find_path(PRICEMSG_RUNTIME_INCLUDE_DIR callkyt/CMsg.h
  PATHS ${root} PATH_SUFFIXES include NO_DEFAULT_PATH)
find_library(PRICEMSG_RUNTIME_LIBRARY callkyt
  PATHS ${root} PATH_SUFFIXES ${CMAKE_INSTALL_LIBDIR} lib lib64 NO_DEFAULT_PATH)
find_library(PRICEMSG_RUNTIME_DAT_LIBRARY callkyt_dat
  PATHS ${root} PATH_SUFFIXES ${CMAKE_INSTALL_LIBDIR} lib lib64 NO_DEFAULT_PATH)
foreach(var PRICEMSG_RUNTIME_INCLUDE_DIR PRICEMSG_RUNTIME_LIBRARY PRICEMSG_RUNTIME_DAT_LIBRARY)
  if(NOT ${var})
    message(FATAL_ERROR "PRICEMSG_RUNTIME_ROOT=${PRICEMSG_RUNTIME_ROOT} holds no runtime: "
      "expected include/callkyt/CMsg.h, lib/libcallkyt.so and lib/libcallkyt_dat.so under it")
  endif()
endforeach()
message(STATUS "Runtime: ${PRICEMSG_RUNTIME_LIBRARY}, headers in ${PRICEMSG_RUNTIME_INCLUDE_DIR}")

add_library(pricemsg::callkyt_dat SHARED IMPORTED GLOBAL)
set_target_properties(pricemsg::callkyt_dat PROPERTIES
  IMPORTED_LOCATION ${PRICEMSG_RUNTIME_DAT_LIBRARY})
add_library(pricemsg::callkyt SHARED IMPORTED GLOBAL)
set_target_properties(pricemsg::callkyt PROPERTIES
  IMPORTED_LOCATION ${PRICEMSG_RUNTIME_LIBRARY}
  INTERFACE_INCLUDE_DIRECTORIES ${PRICEMSG_RUNTIME_INCLUDE_DIR}
  INTERFACE_LINK_LIBRARIES pricemsg::callkyt_dat)
