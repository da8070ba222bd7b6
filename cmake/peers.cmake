# Peer libraries that tests cross-check against and benchmarks time beside
# the kernels: GEOS, S2, Abseil's flat_hash_map, FAISS.  The library itself
# links none of them.  Each is optional: without it the comparison is skipped.
#
#   vorn_link_peer(<target> GEOS|S2|ABSL|FAISS)
# links the peer into <target> and defines VORN_HAVE_<peer>=1 there, when the
# peer is installed and the target exists.

find_package(GEOS CONFIG QUIET)
find_path(VORN_S2_INCLUDE_DIR s2/s2loop.h)
find_library(VORN_S2_LIBRARY s2)
find_package(absl QUIET)
find_package(OpenMP QUIET)
if(OpenMP_CXX_FOUND)
  find_package(faiss QUIET)
endif()

function(vorn_link_peer target peer)
  if(NOT TARGET ${target})
    return()
  endif()
  if(peer STREQUAL "GEOS" AND TARGET GEOS::geos_c)
    target_link_libraries(${target} PRIVATE GEOS::geos_c)
  elseif(peer STREQUAL "S2" AND VORN_S2_INCLUDE_DIR AND VORN_S2_LIBRARY AND NOT VORN_SANITIZE)
    # Not under the sanitizers: Abseil's containers change their layout when
    # compiled with AddressSanitizer, and the installed S2 was built without it.
    target_include_directories(${target} SYSTEM PRIVATE ${VORN_S2_INCLUDE_DIR})
    target_link_libraries(${target} PRIVATE ${VORN_S2_LIBRARY})
    # S2's headers call into Abseil where an unoptimised build does not inline.
    foreach(absl raw_logging_internal log_severity strings base throw_delegate int128)
      find_library(VORN_ABSL_${absl} absl_${absl})
      if(VORN_ABSL_${absl})
        target_link_libraries(${target} PRIVATE ${VORN_ABSL_${absl}})
      endif()
    endforeach()
  elseif(peer STREQUAL "ABSL" AND absl_FOUND)
    target_link_libraries(${target} PRIVATE absl::flat_hash_map)
  elseif(peer STREQUAL "FAISS" AND TARGET faiss)
    target_link_libraries(${target} PRIVATE faiss)
  else()
    return()
  endif()
  target_compile_definitions(${target} PRIVATE VORN_HAVE_${peer}=1)
endfunction()
