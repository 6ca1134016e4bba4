# Install rules and the package of zqCoreAudio: the two shared libraries, the exported header
# with the platform headers it includes, a CMake package (find_package(zqCoreAudio) gives
# zqCoreAudio::zqCoreAudio, which brings zqCoreAudio::zqplatform) and a pkg-config file.
# Everything is in the install component "zqCoreAudio".
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(ZQ_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/zqCoreAudio)

target_include_directories(zqCoreAudio PUBLIC $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

install(TARGETS zqCoreAudio zqplatform EXPORT zqCoreAudioTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT zqCoreAudio
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT zqCoreAudio
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT zqCoreAudio
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${PROJECT_SOURCE_DIR}/core/zqCoreAudio.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT zqCoreAudio)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/include/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT zqCoreAudio
  FILES_MATCHING PATTERN "*.h")

install(EXPORT zqCoreAudioTargets NAMESPACE zqCoreAudio::
  DESTINATION ${ZQ_INSTALL_CMAKEDIR} COMPONENT zqCoreAudio)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/zqCoreAudioConfig.cmake.in
  ${PROJECT_BINARY_DIR}/zqCoreAudioConfig.cmake
  INSTALL_DESTINATION ${ZQ_INSTALL_CMAKEDIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zqCoreAudioConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zqCoreAudioConfig.cmake ${PROJECT_BINARY_DIR}/zqCoreAudioConfigVersion.cmake
  DESTINATION ${ZQ_INSTALL_CMAKEDIR} COMPONENT zqCoreAudio)

# pkg-config: the prefix is found from the .pc file's own place, so that the installed tree
# can be moved (and installed with cmake --install --prefix).
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(ZQ_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
  set(ZQ_PC_LIBDIR "${CMAKE_INSTALL_FULL_LIBDIR}")
  set(ZQ_PC_INCLUDEDIR "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
else()
  file(RELATIVE_PATH zq_pc_up "/zq/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/zq")
  set(ZQ_PC_PREFIX "\${pcfiledir}/${zq_pc_up}")
  set(ZQ_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
  set(ZQ_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/zqCoreAudio.pc.in ${PROJECT_BINARY_DIR}/zqCoreAudio.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zqCoreAudio.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT zqCoreAudio)
