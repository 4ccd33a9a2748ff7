# What `cmake --install` lays out; every path in it is relative, so that the folder can be moved.
include(CMakePackageConfigHelpers)

set(made ${PROJECT_BINARY_DIR}/package)
configure_file(cmake/kivConfig.cmake.in ${made}/kivConfig.cmake @ONLY)
write_basic_package_version_file(${made}/kivConfigVersion.cmake COMPATIBILITY SameMajorVersion)
configure_file(cmake/kiv.pc.in ${made}/kiv.pc @ONLY)
configure_file(cmake/kiv-session.pc.in ${made}/kiv-session.pc @ONLY)

# kiv_install_dll(TARGET NAME): the DLL of this file name, and what others link with.
function(kiv_install_dll target name)
  install(PROGRAMS $<TARGET_FILE:${target}> DESTINATION bin)
  install(FILES $<TARGET_LINKER_FILE:${target}> DESTINATION lib)
  if(MINGW)
    # The import library by the name that linkers look for when they are told to link statically. The system's own
    # import libraries have such names.
    install(FILES $<TARGET_LINKER_FILE:${target}> DESTINATION lib RENAME lib${name}.a)
    install(FILES ${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/${name}.def DESTINATION lib)
    install(FILES ${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/${name}.lib DESTINATION lib OPTIONAL)
  endif()
endfunction()
kiv_install_dll(kiv::kiv kiv)
kiv_install_dll(kiv::session kiv-session)
if(TARGET kiv-resolve)
  install(TARGETS kiv-resolve kiv-selfcheck RUNTIME DESTINATION bin)
  install(FILES selfcheck/kiv-selfcheck.wsb DESTINATION bin)
endif()
install(DIRECTORY include/kiv DESTINATION include)
install(FILES ${made}/kivConfig.cmake ${made}/kivConfigVersion.cmake DESTINATION lib/cmake/kiv)
install(FILES ${made}/kiv.pc ${made}/kiv-session.pc DESTINATION lib/pkgconfig)
install(FILES LICENSE NOTICES.txt README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md DESTINATION share/doc/kiv)
install(DIRECTORY docs DESTINATION share/doc/kiv PATTERN Doxyfile EXCLUDE)
install(DIRECTORY examples DESTINATION share/doc/kiv PATTERN CMakeLists.txt EXCLUDE)
