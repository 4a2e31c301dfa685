# SPDX-License-Identifier: Apache-2.0
# Aravis, a host for GigE Vision cameras that is none of ours: the target nq_aravis, where it is installed. Its own
# description for pkg-config asks for packages that nothing here needs.
find_path(aravis_headers arv.h PATH_SUFFIXES aravis-0.8)
find_library(aravis_library aravis-0.8)
pkg_check_modules(GIO QUIET IMPORTED_TARGET GLOBAL gio-2.0)
if(aravis_headers AND aravis_library AND TARGET PkgConfig::GIO)
  add_library(nq_aravis INTERFACE IMPORTED GLOBAL)
  target_include_directories(nq_aravis INTERFACE ${aravis_headers})
  target_link_libraries(nq_aravis INTERFACE ${aravis_library} PkgConfig::GIO)
endif()
