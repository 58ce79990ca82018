# What `cmake --install` puts under the prefix:
#
#   include/pricemsg/callkyt/*.h           the stand-in runtime's headers
#   include/pricemsg/MsgBase.h, Runtime.h  the frame headers the classes include
#   include/pricemsg/SchemaTables.h,       the schema tables, the reflection and
#                    Reflect.h, Search.h    the search of the catalogue
#   include/pricemsg/<family>/M_*.h, all.h the message classes
#   include/pricemsg/MsgText.h, MsgJson.h, message files in both forms and
#                    MsgExplain.h           failures explained by field names
#   include/pricemsg/version.h             the version
#   bin/pricemsg-catalogue                 the guide to the classes
#   share/doc/pricemsg/reference/*.html    the reference pages
#   include/pricemsg/PricemsgPython.h      messages handed to the Python module
#                                          (with it: see python/CMakeLists.txt)
#   lib/python3/dist-packages/pricemsg/    the Python module (component python)
#   lib/libpricemsg.so                     the message classes, the schema tables
#                                          and the reflection
#   lib/libpricemsg_text.so                message files (text and JSON),
#                                          templates, failures explained
#   lib/libcallkyt.so, libcallkyt_dat.so   the stand-in runtime
#   lib/cmake/pricemsg/                    find_package(pricemsg)
#   lib/pkgconfig/pricemsg.pc,             pkg-config pricemsg (the classes and
#                 pricemsg-text.pc          the runtime), pricemsg-text (message
#                                          files; it requires pricemsg)
#
# (lib/ is CMAKE_INSTALL_LIBDIR, include/ CMAKE_INSTALL_INCLUDEDIR, bin/
# CMAKE_INSTALL_BINDIR, share/doc/pricemsg/ CMAKE_INSTALL_DOCDIR.) A client
# includes <pricemsg/...> with include/ on its path; include/pricemsg/ is on
# it too, for the older spellings.
#
# Each part is a component of the install, for packages of their own
# (cmake/Packaging.cmake): runtime (the stand-in), libs (the libraries),
# dev (headers, CMake package, pkg-config files), tools (the catalogue tool
# and the reference pages).
#
# Headers reach each other from the include root alone: a client compiles
# with -I<prefix>/include (CMake's targets also give include/pricemsg, for
# the older spellings "rates/M_IrNoteHwOut.h").
#
# The installed tree can be moved as a whole: the libraries find each other
# through a $ORIGIN runpath, the CMake files and the pkg-config file locate
# the prefix from where they lie. Built on another runtime
# (PRICEMSG_RUNTIME_ROOT), the package installs none of the runtime: it
# records where that runtime lies, the library's runpath names its directory,
# and the CMake package and the pkg-config file point there. Tests, examples and MsgPattern.h (which only
# the generated sources include) stay out.
include(CMakePackageConfigHelpers)

# ---- headers ----
if(PRICEMSG_STANDIN)
  install(DIRECTORY ${CMAKE_SOURCE_DIR}/runtime/include/callkyt
    DESTINATION ${PRICEMSG_INSTALL_INCLUDEDIR} COMPONENT dev
    FILES_MATCHING PATTERN "*.h")
endif()
install(FILES ${CMAKE_SOURCE_DIR}/frame/MsgBase.h ${CMAKE_SOURCE_DIR}/frame/Runtime.h
  ${CMAKE_SOURCE_DIR}/frame/SchemaTables.h ${CMAKE_SOURCE_DIR}/frame/Reflect.h
  ${CMAKE_SOURCE_DIR}/frame/Search.h
  ${CMAKE_SOURCE_DIR}/msgtext/MsgText.h
  ${CMAKE_SOURCE_DIR}/msgtext/MsgJson.h
  ${CMAKE_SOURCE_DIR}/msgtext/MsgExplain.h
  ${PRICEMSG_BUILD_INCLUDE_DIR}/pricemsg/version.h
  DESTINATION ${PRICEMSG_INSTALL_INCLUDEDIR} COMPONENT dev)
# The generator's list, not a glob of the build tree, so that a class taken
# out of the schema is not installed from a stale header.
foreach(header IN LISTS PRICEMSG_GEN_MESSAGE_HEADERS)
  get_filename_component(dir ${header} DIRECTORY)
  get_filename_component(family ${dir} NAME)
  list(APPEND pricemsg_family_headers_${family} ${header})
endforeach()
foreach(family IN LISTS PRICEMSG_FAMILIES)
  install(FILES ${pricemsg_family_headers_${family}}
    DESTINATION ${PRICEMSG_INSTALL_INCLUDEDIR}/${family} COMPONENT dev)
endforeach()

# ---- reference pages ----
install(FILES ${PRICEMSG_GEN_REFERENCE_PAGES} DESTINATION ${CMAKE_INSTALL_DOCDIR}/reference
  COMPONENT tools)

# ---- libraries ----
# libpricemsg and libpricemsg_text have versioned sonames: their ABI changes
# with the schema. The runtime libraries keep plain names so that the
# service's own can be put in their place.
set_target_properties(pricemsg pricemsg_text PROPERTIES
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
if(PRICEMSG_STANDIN)
  set_target_properties(pricemsg pricemsg_text callkyt PROPERTIES INSTALL_RPATH "\$ORIGIN")
  install(TARGETS callkyt callkyt_dat EXPORT pricemsgTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime)
else()
  get_filename_component(runtime_libdir ${PRICEMSG_RUNTIME_LIBRARY} DIRECTORY)
  set_target_properties(pricemsg pricemsg_text PROPERTIES
    INSTALL_RPATH "\$ORIGIN;${runtime_libdir}")
endif()
install(TARGETS pricemsg pricemsg_text EXPORT pricemsgTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT libs)

# ---- CMake package: pricemsg::pricemsg, pricemsg::text, pricemsg::callkyt, pricemsg::callkyt_dat ----
set(pricemsg_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/pricemsg)
install(EXPORT pricemsgTargets NAMESPACE pricemsg:: DESTINATION ${pricemsg_cmake_dir}
  COMPONENT dev)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/pricemsgConfig.cmake.in
  ${CMAKE_BINARY_DIR}/pricemsgConfig.cmake
  INSTALL_DESTINATION ${pricemsg_cmake_dir})
# Before 1.0 a minor version may change the classes; only the same minor
# version is compatible.
write_basic_package_version_file(${CMAKE_BINARY_DIR}/pricemsgConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/pricemsgConfig.cmake
              ${CMAKE_BINARY_DIR}/pricemsgConfigVersion.cmake
  DESTINATION ${pricemsg_cmake_dir} COMPONENT dev)

# ---- pkg-config ----
# The prefix is taken relative to the file's own directory, which holds for
# any --prefix and DESTDIR given at install time; absolute directories are
# written as they are.
if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
  set(PRICEMSG_PC_PREFIX ${CMAKE_INSTALL_PREFIX})
  set(PRICEMSG_PC_LIBDIR ${CMAKE_INSTALL_LIBDIR})
else()
  file(RELATIVE_PATH up /root/${CMAKE_INSTALL_LIBDIR}/pkgconfig /root)
  string(REGEX REPLACE "/$" "" up "${up}")
  set(PRICEMSG_PC_PREFIX "\${pcfiledir}/${up}")
  set(PRICEMSG_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
endif()
if(IS_ABSOLUTE ${CMAKE_INSTALL_INCLUDEDIR})
  set(PRICEMSG_PC_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR})
else()
  set(PRICEMSG_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
if(PRICEMSG_STANDIN)
  set(PRICEMSG_PC_RUNTIME_CFLAGS "")
  set(PRICEMSG_PC_RUNTIME_LIBS "-lcallkyt -lcallkyt_dat")
else()
  set(PRICEMSG_PC_RUNTIME_CFLAGS " -I${PRICEMSG_RUNTIME_INCLUDE_DIR}")
  set(PRICEMSG_PC_RUNTIME_LIBS "-L${runtime_libdir} -lcallkyt -lcallkyt_dat")
endif()
# One file a library: pricemsg (the classes, on the runtime) and
# pricemsg-text (message files), which requires it.
configure_file(${CMAKE_CURRENT_LIST_DIR}/pricemsg.pc.in ${CMAKE_BINARY_DIR}/pricemsg.pc @ONLY)
configure_file(${CMAKE_CURRENT_LIST_DIR}/pricemsg-text.pc.in ${CMAKE_BINARY_DIR}/pricemsg-text.pc
  @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/pricemsg.pc ${CMAKE_BINARY_DIR}/pricemsg-text.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
