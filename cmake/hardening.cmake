# SPDX-License-Identifier: Apache-2.0
# Hardening of the library, which lives in other people's processes, and of the programs beside it, which run as root.
# Sanitizer builds go without: they check more, and their run-times replace the functions that fortified calls go to.
#
# nq_harden_objects(TARGET) for what is compiled, nq_harden_library(TARGET) or nq_harden_program(TARGET) for what is
# linked.
include(CheckCXXCompilerFlag)
check_cxx_compiler_flag(-fcf-protection=full NQ_HAS_CF_PROTECTION)
check_cxx_compiler_flag(-fstack-clash-protection NQ_HAS_STACK_CLASH)

# Level 3 also sees sizes that are known at run time only.
set(fortify_level 2)
if((CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_GREATER_EQUAL 12)
   OR (CMAKE_CXX_COMPILER_ID STREQUAL Clang AND CMAKE_CXX_COMPILER_VERSION VERSION_GREATER_EQUAL 12))
  set(fortify_level 3)
endif()

function(nq_harden_objects target)
  target_compile_options(${target} PRIVATE -Wformat -Wformat-security -Werror=format-security)
  if(NQ_SANITIZE)
    return()
  endif()
  # Fortified calls need the optimiser.
  target_compile_options(${target} PRIVATE -fstack-protector-strong
    $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=${fortify_level}>
    $<$<BOOL:${NQ_HAS_CF_PROTECTION}>:-fcf-protection=full> $<$<BOOL:${NQ_HAS_STACK_CLASH}>:-fstack-clash-protection>)
endfunction()

function(nq_harden_library target)
  target_link_options(${target} PRIVATE -Wl,-z,relro,-z,now,-z,noexecstack,-z,text)
  if(NQ_HAS_CF_PROTECTION AND NOT NQ_SANITIZE)
    # The C library's start files may lack the property, and then the linker drops it. All that is called through a
    # pointer in them is _init and _fini, which do nothing here; without these two the property is true.
    if(CMAKE_SHARED_LINKER_FLAGS MATCHES "lld")
      set(ibt force-ibt)
    else()
      set(ibt ibt)
    endif()
    target_link_options(${target} PRIVATE -Wl,-z,${ibt},-z,shstk -Wl,-init=nq_no_init,-fini=nq_no_fini)
  endif()
endfunction()

# Without the property of control-flow protection: the C library's start files, which no program does without, may lack it.
function(nq_harden_program target)
  target_link_options(${target} PRIVATE -pie -Wl,-z,relro,-z,now,-z,noexecstack)
endfunction()
