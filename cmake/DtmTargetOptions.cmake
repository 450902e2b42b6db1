# One place that sets the language standard, warnings and sanitizers for every target of the
# project, so that the library, the tests, the benchmarks and the tools are built alike.
function(dtm_configure_target target)
  set_target_properties(${target} PROPERTIES
    CXX_STANDARD 17
    CXX_STANDARD_REQUIRED ON
    CXX_EXTENSIONS OFF)
  if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    # Results must be bit-identical to the stated order of floating-point operations, so the
    # compiler may never fuse a multiply and an add, whatever the target machine offers.
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -ffp-contract=off)
    if(DTM_WARNINGS_AS_ERRORS)
      target_compile_options(${target} PRIVATE -Werror)
    endif()
    dtm_sanitize_target(${target})
  endif()
endfunction()

# The sanitizer flags alone, for targets built from outside sources (GoogleTest) that must be
# instrumented like ours but keep their own warning settings.
function(dtm_sanitize_target target)
  if(NOT DTM_SANITIZE)
    return()
  endif()
  get_target_property(target_type ${target} TYPE)
  set(sanitize_flags -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_compile_options(${target} PRIVATE ${sanitize_flags})
  if(NOT target_type STREQUAL "OBJECT_LIBRARY")
    target_link_options(${target} PRIVATE ${sanitize_flags})
  endif()
  # A vector's capacity beyond its size is poisoned too, so that reading an element past the end
  # is reported even where the memory is still the vector's own.
  if(DTM_SANITIZE_VECTORS)
    target_compile_definitions(${target} PRIVATE _GLIBCXX_SANITIZE_VECTOR=1)
  endif()
endfunction()
