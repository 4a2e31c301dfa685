# SPDX-License-Identifier: Apache-2.0
# Compiler flags shared by every target of the project.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(NQ_WARNINGS_AS_ERRORS)
  add_compile_options(-Werror)
endif()
if(NQ_SANITIZE)
  add_compile_options(-fsanitize=${NQ_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${NQ_SANITIZE})
  if(NQ_SANITIZE MATCHES "address" AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND NOT NQ_FUZZ)
    # The run-time as a library of its own, as with GCC: the software RDMA is also preloaded into programs without it.
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-runtime-dir
      OUTPUT_VARIABLE runtimes OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    add_link_options(-shared-libsan -Wl,-rpath,${runtimes})
    add_compile_definitions(__SANITIZE_ADDRESS__) # as GCC tells the sources
    # Of a function that another library has, clang compares types by each library's own description of them: what is
    # asked for by dlsym never fits. GCC has no such check. And it takes an object for a wrong one when no descriptor is
    # left to look at its type, as in the tests of that.
    add_compile_options(-fno-sanitize=function,vptr)
  endif()
endif()

# nq_in_pieces(TARGET NAME MOST FILE...): compiles up to so many of these files of a target together, since the headers that
# they share take most of the time. Each such set of files has a name. Names in the unnamed namespaces of one set have to
# differ. Whoever looks at files one by one, as clang-tidy does, gives -DCMAKE_UNITY_BUILD=OFF.
function(nq_in_pieces target name most)
  if(DEFINED CMAKE_UNITY_BUILD)
    return()
  endif()
  set(count 0)
  foreach(file IN LISTS ARGN)
    math(EXPR piece "${count} / ${most}")
    math(EXPR count "${count} + 1")
    set_source_files_properties(${file} PROPERTIES UNITY_GROUP ${name}${piece})
  endforeach()
  set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
endfunction()
