# SPDX-License-Identifier: Apache-2.0
# nq_embed(FOLDER TEMPLATE OUTPUT): writes the files of the folder into a source file when CMake configures, and has it
# configure again when one of them changes.
function(nq_embed folder template output)
  file(GLOB names RELATIVE ${folder} CONFIGURE_DEPENDS ${folder}/*.html ${folder}/*.css ${folder}/*.js ${folder}/*.svg)
  set(arrays "")
  set(rows "")
  foreach(name IN LISTS names)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${folder}/${name})
    file(READ ${folder}/${name} bytes HEX)
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${bytes}")
    string(MAKE_C_IDENTIFIER ${name} identifier)
    string(APPEND arrays "constexpr char kBytesOf_${identifier}[] = {${bytes}};\n")
    string(APPEND rows "    {\"${name}\", {kBytesOf_${identifier}, sizeof kBytesOf_${identifier}}},\n")
  endforeach()
  configure_file(${template} ${output} @ONLY)
endfunction()
