# What `cmake --install` lays out; every path in it is relative, so that the folder can be moved.
include(CMakePackageConfigHelpers)

set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
set(made ${PROJECT_BINARY_DIR}/package)
configure_file(cmake/kivConfig.cmake.in ${made}/kivConfig.cmake @ONLY)
write_basic_package_version_file(${made}/kivConfigVersion.cmake COMPATIBILITY SameMajorVersion)
configure_file(cmake/kiv.pc.in ${made}/kiv.pc @ONLY)

install(PROGRAMS $<TARGET_FILE:kiv::kiv> DESTINATION bin)
install(FILES $<TARGET_LINKER_FILE:kiv::kiv> DESTINATION lib)
if(TARGET kiv-resolve)
  install(TARGETS kiv-resolve RUNTIME DESTINATION bin)
endif()
if(MINGW)
  # The import library by the name that linkers look for when they are told to link statically. The system's own import
  # libraries have such names.
  install(FILES $<TARGET_LINKER_FILE:kiv::kiv> DESTINATION lib RENAME libkiv.a)
  install(FILES ${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/kiv.def DESTINATION lib)
  install(FILES ${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/kiv.lib DESTINATION lib OPTIONAL)
endif()
install(DIRECTORY include/kiv DESTINATION include)
install(FILES ${made}/kivConfig.cmake ${made}/kivConfigVersion.cmake DESTINATION lib/cmake/kiv)
install(FILES ${made}/kiv.pc DESTINATION lib/pkgconfig)
install(FILES LICENSE README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md DESTINATION share/doc/kiv)
install(DIRECTORY docs DESTINATION share/doc/kiv PATTERN Doxyfile EXCLUDE)
install(DIRECTORY examples DESTINATION share/doc/kiv PATTERN CMakeLists.txt EXCLUDE)
