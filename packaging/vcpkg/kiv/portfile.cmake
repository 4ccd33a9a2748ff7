# Builds both DLLs, and kiv-resolve where the feature asks for it.
vcpkg_check_linkage(ONLY_DYNAMIC_LIBRARY)
if(VCPKG_TARGET_IS_MINGW)
  # MinGW's own C library is the system's msvcrt.dll.
  set(VCPKG_POLICY_ALLOW_OBSOLETE_MSVCRT enabled)
endif()

# With SHA512 0, the error of vcpkg shows the hash that belongs here.
vcpkg_from_github(
  OUT_SOURCE_PATH SOURCE_PATH
  REPO "<owner>/kiv"
  REF "v${VERSION}"
  SHA512 0
  HEAD_REF main)
vcpkg_check_features(OUT_FEATURE_OPTIONS features FEATURES tool KIV_TOOL)
vcpkg_cmake_configure(
  SOURCE_PATH "${SOURCE_PATH}"
  OPTIONS ${features} -DKIV_BEARSSL=OFF -DKIV_TESTS=OFF -DKIV_WARNINGS_ARE_ERRORS=OFF
  OPTIONS_DEBUG -DKIV_TOOL=OFF)
vcpkg_cmake_install()
vcpkg_copy_pdbs()
vcpkg_cmake_config_fixup(CONFIG_PATH lib/cmake/kiv)
vcpkg_fixup_pkgconfig()
if("tool" IN_LIST FEATURES)
  vcpkg_copy_tools(TOOL_NAMES kiv-resolve kiv-selfcheck AUTO_CLEAN)
  file(REMOVE "${CURRENT_PACKAGES_DIR}/bin/kiv-selfcheck.wsb")
endif()

# One set of headers and documents; the module definitions are for other linkers than those that vcpkg knows.
file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include" "${CURRENT_PACKAGES_DIR}/debug/share"
     "${CURRENT_PACKAGES_DIR}/share/doc")
file(GLOB definitions "${CURRENT_PACKAGES_DIR}/lib/*.def" "${CURRENT_PACKAGES_DIR}/debug/lib/*.def")
if(definitions)
  file(REMOVE ${definitions})
endif()
file(INSTALL "${CURRENT_PORT_DIR}/usage" DESTINATION "${CURRENT_PACKAGES_DIR}/share/${PORT}")
vcpkg_install_copyright(FILE_LIST "${SOURCE_PATH}/LICENSE" "${SOURCE_PATH}/NOTICES.txt")
