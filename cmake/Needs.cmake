# What the build looks for from outside, each with the Debian package that
# brings it (scripts/packages.txt lists them all). A part that is asked for
# and cannot be built stops the configuration with one line that names the
# package, and the option that builds without the part where there is one.
function(pricemsg_require found what package)
  if(NOT ${found})
    set(without "")
    if(ARGN)
      set(without ", or configure with ${ARGN}")
    endif()
    message(FATAL_ERROR
      "${what} was not found: install the Debian package ${package} (scripts/needs.sh build does)${without}")
  endif()
endfunction()
