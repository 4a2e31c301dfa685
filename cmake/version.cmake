# SPDX-License-Identifier: Apache-2.0
# Writes nq_version.h, for programs that link nq_version, and nq-gev-standard, which is a script. As a script itself (cmake
# -Dsource=... -Dversion=... -Doutput=... [-Dstandard=...] -P) it runs with each build, for a commit changes no file; a file
# that is right already keeps its time.
if(CMAKE_SCRIPT_MODE_FILE)
  # An archive that git made has the commit in a file. The work tree of another repository around it is not ours.
  file(STRINGS ${source}/cmake/commit.txt commit LIMIT_COUNT 1)
  if(NOT commit MATCHES "^[0-9a-f]+$")
    set(commit unknown)
    if(EXISTS ${source}/.git)
      # Root also builds in a user's checkout, and leaves the index alone there.
      execute_process(
        COMMAND env GIT_OPTIONAL_LOCKS=0 git -c safe.directory=* -C ${source} describe --always --dirty "--exclude=*"
        OUTPUT_VARIABLE described OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
      if(described)
        set(commit ${described})
      endif()
    endif()
  endif()
  configure_file(${source}/cmake/nq_version.h.in ${output} @ONLY)
  if(standard)
    configure_file(${source}/tools/nq-gev-standard.in ${standard} @ONLY)
  endif()
  return()
endif()

set(version_folder ${PROJECT_BINARY_DIR}/version)
set(write_version ${CMAKE_COMMAND} -Dsource=${PROJECT_SOURCE_DIR} -Dversion=${PROJECT_VERSION}
  -Doutput=${version_folder}/nq_version.h -Dstandard=${PROJECT_BINARY_DIR}/nq-gev-standard -P ${CMAKE_CURRENT_LIST_FILE})
# Also now: a linter reads sources of a folder in which nothing was built.
execute_process(COMMAND ${write_version} COMMAND_ERROR_IS_FATAL ANY)
add_custom_target(nq_version_header COMMAND ${write_version} BYPRODUCTS ${version_folder}/nq_version.h
  ${PROJECT_BINARY_DIR}/nq-gev-standard VERBATIM
  COMMENT "Asking for the commit")
add_library(nq_version INTERFACE)
target_include_directories(nq_version INTERFACE ${version_folder})
add_dependencies(nq_version nq_version_header)
