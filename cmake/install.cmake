# SPDX-License-Identifier: Apache-2.0
# What cmake --install puts where. All of it finds the rest relative to itself, so the tree may be moved as a whole; the
# programs know ../lib/gentl and ../lib/nq-gev, so these two are the same everywhere. The target uninstall undoes it.
include(CMakePackageConfigHelpers)

set(nq_gentl_folder lib/gentl)
set(nq_helper_folder lib/nq-gev)
set(nq_header_folder ${CMAKE_INSTALL_INCLUDEDIR}/nq_gev_rdma_tl)
set(nq_package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/nq_gev_rdma_tl)
set(nq_pkgconfig_folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# For programs that load the file themselves, the interface alone.
add_library(gentl_headers INTERFACE)
foreach(target IN ITEMS gentl_headers nq_gev_rdma_tl)
  target_include_directories(${target} INTERFACE $<INSTALL_INTERFACE:${nq_header_folder}>)
endforeach()
install(TARGETS nq_gev_rdma_tl gentl_headers EXPORT nq_gev_rdma_tl LIBRARY DESTINATION ${nq_gentl_folder})
install(DIRECTORY include/ DESTINATION ${nq_header_folder} FILES_MATCHING PATTERN *.h)

foreach(program IN ITEMS nq-gev nq-gev-camera gentl-check nq-software-rdma)
  if(TARGET ${program})
    install(TARGETS ${program} RUNTIME DESTINATION bin)
  endif()
endforeach()
install(PROGRAMS ${PROJECT_BINARY_DIR}/nq-gev-standard DESTINATION bin)
foreach(helper IN ITEMS nq_rdma_loopback nq-gev-features)
  if(TARGET ${helper})
    install(TARGETS ${helper} LIBRARY DESTINATION ${nq_helper_folder})
  endif()
endforeach()
install(FILES LICENSE docs/third-party.txt DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/nq_gev_rdma_tl)

install(EXPORT nq_gev_rdma_tl NAMESPACE nq_gev_rdma_tl:: FILE nq_gev_rdma_tl-targets.cmake
  DESTINATION ${nq_package_folder})
configure_package_config_file(cmake/package/nq_gev_rdma_tl-config.cmake.in
  ${PROJECT_BINARY_DIR}/package/nq_gev_rdma_tl-config.cmake INSTALL_DESTINATION ${nq_package_folder}
  PATH_VARS nq_gentl_folder NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/nq_gev_rdma_tl-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/package/nq_gev_rdma_tl-config.cmake
  ${PROJECT_BINARY_DIR}/package/nq_gev_rdma_tl-config-version.cmake DESTINATION ${nq_package_folder})

# The way from the file of pkg-config up to the prefix.
file(RELATIVE_PATH up_to_prefix /prefix/${nq_pkgconfig_folder} /prefix)
string(REGEX REPLACE "/$" "" up_to_prefix ${up_to_prefix})
configure_file(cmake/package/nq_gev_rdma_tl.pc.in package/nq_gev_rdma_tl.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/package/nq_gev_rdma_tl.pc DESTINATION ${nq_pkgconfig_folder})

set(nq_own_folders ${nq_gentl_folder} ${nq_helper_folder} ${nq_header_folder}/GenTL ${nq_header_folder}
  ${nq_package_folder} ${CMAKE_INSTALL_DATADIR}/doc/nq_gev_rdma_tl)
configure_file(cmake/package/uninstall.cmake.in package/uninstall.cmake @ONLY)
add_custom_target(uninstall COMMAND ${CMAKE_COMMAND} -P ${PROJECT_BINARY_DIR}/package/uninstall.cmake VERBATIM)
