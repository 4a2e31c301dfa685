# SPDX-License-Identifier: Apache-2.0
# Compiler flags shared by every target of the project.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(NQ_WARNINGS_AS_ERRORS)
  add_compile_options(-Werror)
endif()
if(NQ_SANITIZE)
  add_compile_options(-fsanitize=${NQ_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${NQ_SANITIZE})
endif()
