# Layer boundaries the compiler enforces.
#
# Every header is included as "layer/File.h". Instead of one include path at
# the source root (which would let any target reach any layer), each library
# gets a private include root in the build tree holding a single link,
# <root>/<layer> -> <source>/<layer>. A target sees a layer's headers only
# when it links that layer's library, so an include of a higher layer from a
# lower one fails to compile.
#
# korvex_layer_headers(<target> <folder> [PRIVATE])
#   Publishes <folder>'s headers to whoever links <target> (PUBLIC), or only
#   to <target> itself (PRIVATE, for executables and test support).
function(korvex_layer_headers target folder)
  set(scope PUBLIC)
  if(ARGC GREATER 2)
    set(scope ${ARGV2})
  endif()
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "EXECUTABLE" OR type STREQUAL "MODULE_LIBRARY")
    set(scope PRIVATE)
  elseif(type STREQUAL "INTERFACE_LIBRARY")
    set(scope INTERFACE)
  endif()
  set(root ${CMAKE_BINARY_DIR}/layer-include/${folder})
  if(NOT EXISTS ${root}/${folder})
    file(MAKE_DIRECTORY ${root})
    file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${folder} ${root}/${folder} SYMBOLIC)
  endif()
  target_include_directories(${target} ${scope} ${root})
endfunction()
