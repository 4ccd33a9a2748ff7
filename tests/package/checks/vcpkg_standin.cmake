# Stands in for vcpkg: runs a port with functions of its own in place of vcpkg's.
#
#   cmake -DPORT=folder -DSOURCE=folder -DBUILT=folder -DWORK=folder -DTOOLCHAIN=file -DFEATURES=list -P vcpkg_standin.cmake
#
# The port runs as it is. CMake is really configured, and really installs; what it would build is taken from BUILT. An
# unknown function, argument or option of the project is an error.
cmake_minimum_required(VERSION 3.25)

set(PORT_FOLDER ${PORT})
file(READ ${PORT_FOLDER}/vcpkg.json manifest)
string(JSON VERSION GET ${manifest} version)
string(JSON PORT GET ${manifest} name)
set(VCPKG_TARGET_IS_MINGW ON)
set(VCPKG_TARGET_IS_WINDOWS ON)
set(CURRENT_PORT_DIR ${PORT_FOLDER})
set(CURRENT_PACKAGES_DIR ${WORK}/packages/kiv)

# parse(VALUES): what a function is called with; its own name is in CMAKE_CURRENT_FUNCTION.
macro(parse options one_value many_values)
  cmake_parse_arguments(given "${options}" "${one_value}" "${many_values}" ${ARGN})
  if(given_UNPARSED_ARGUMENTS OR given_KEYWORDS_MISSING_VALUES)
    message(FATAL_ERROR "${CMAKE_CURRENT_FUNCTION} does not take these arguments: ${ARGN}")
  endif()
endmacro()

# run(COMMAND...): its output is in `said`.
macro(run)
  execute_process(COMMAND ${ARGV} OUTPUT_VARIABLE said ERROR_VARIABLE said COMMAND_ERROR_IS_FATAL ANY)
endmacro()

function(vcpkg_check_linkage)
  parse("ONLY_DYNAMIC_LIBRARY;ONLY_STATIC_LIBRARY" "" "" ${ARGN})
endfunction()

function(vcpkg_from_github)
  parse("" "OUT_SOURCE_PATH;REPO;REF;SHA512;HEAD_REF" "" ${ARGN})
  if(NOT given_REF STREQUAL "v${VERSION}" OR NOT given_REPO MATCHES "^[^/]+/kiv$" OR NOT DEFINED given_SHA512)
    message(FATAL_ERROR "These are not the sources: ${ARGN}")
  endif()
  set(${given_OUT_SOURCE_PATH} ${SOURCE} PARENT_SCOPE)
endfunction()

function(vcpkg_check_features)
  parse("" "OUT_FEATURE_OPTIONS" "FEATURES" ${ARGN})
  set(options "")
  while(given_FEATURES)
    list(POP_FRONT given_FEATURES feature option)
    string(JSON described ERROR_VARIABLE unknown GET ${manifest} features ${feature} description)
    if(unknown)
      message(FATAL_ERROR "vcpkg.json has no feature ${feature}")
    endif()
    set(value OFF)
    if(feature IN_LIST FEATURES)
      set(value ON)
    endif()
    list(APPEND options -D${option}=${value})
  endwhile()
  set(${given_OUT_FEATURE_OPTIONS} ${options} PARENT_SCOPE)
endfunction()

function(vcpkg_cmake_configure)
  parse("" "SOURCE_PATH" "OPTIONS;OPTIONS_DEBUG;OPTIONS_RELEASE" ${ARGN})
  set(of_RELEASE Release ${given_OPTIONS_RELEASE})
  set(of_DEBUG Debug ${given_OPTIONS_DEBUG})
  foreach(kind RELEASE DEBUG)
    list(POP_FRONT of_${kind} build_type)
    set(build ${WORK}/build-${kind})
    run(${CMAKE_COMMAND} -S ${given_SOURCE_PATH} -B ${build} -G Ninja --toolchain ${TOOLCHAIN}
        -DCMAKE_BUILD_TYPE=${build_type} ${given_OPTIONS} ${of_${kind}})
    if(said MATCHES "not used by the project")
      message(FATAL_ERROR "${said}")
    endif()
    # Tells of inputs that are missing.
    run(ninja -C ${build} -n)
  endforeach()
endfunction()

function(vcpkg_cmake_install)
  parse("" "" "" ${ARGN})
  foreach(kind RELEASE DEBUG)
    foreach(folder bin lib)
      file(GLOB built ${BUILT}/${folder}/*kiv*)
      list(FILTER built EXCLUDE REGEX tests)
      file(COPY ${built} DESTINATION ${WORK}/build-${kind}/${folder})
    endforeach()
  endforeach()
  run(${CMAKE_COMMAND} --install ${WORK}/build-RELEASE --prefix ${CURRENT_PACKAGES_DIR})
  run(${CMAKE_COMMAND} --install ${WORK}/build-DEBUG --prefix ${CURRENT_PACKAGES_DIR}/debug)
endfunction()

function(vcpkg_copy_pdbs)
  parse("" "" "BUILD_PATHS" ${ARGN})
endfunction()

function(vcpkg_cmake_config_fixup)
  parse("" "PACKAGE_NAME;CONFIG_PATH;TOOLS_PATH" "" ${ARGN})
  file(MAKE_DIRECTORY ${CURRENT_PACKAGES_DIR}/share)
  file(RENAME ${CURRENT_PACKAGES_DIR}/${given_CONFIG_PATH} ${CURRENT_PACKAGES_DIR}/share/${PORT})
  file(REMOVE_RECURSE ${CURRENT_PACKAGES_DIR}/debug/${given_CONFIG_PATH})
  # It is taken away with its folder, where that is left empty.
  file(REMOVE_RECURSE ${CURRENT_PACKAGES_DIR}/lib/cmake ${CURRENT_PACKAGES_DIR}/debug/lib/cmake)
endfunction()

function(vcpkg_fixup_pkgconfig)
  parse("" "" "" ${ARGN})
endfunction()

function(vcpkg_copy_tools)
  parse("AUTO_CLEAN" "SEARCH_DIR;DESTINATION" "TOOL_NAMES" ${ARGN})
  foreach(tool IN LISTS given_TOOL_NAMES)
    file(COPY ${CURRENT_PACKAGES_DIR}/bin/${tool}.exe DESTINATION ${CURRENT_PACKAGES_DIR}/tools/${PORT})
    file(REMOVE ${CURRENT_PACKAGES_DIR}/bin/${tool}.exe ${CURRENT_PACKAGES_DIR}/debug/bin/${tool}.exe)
  endforeach()
  # With the DLLs that they load.
  file(COPY ${CURRENT_PACKAGES_DIR}/bin/kiv.dll ${CURRENT_PACKAGES_DIR}/bin/kiv-session.dll DESTINATION ${CURRENT_PACKAGES_DIR}/tools/${PORT})
endfunction()

function(vcpkg_install_copyright)
  parse("" "COMMENT" "FILE_LIST" ${ARGN})
  foreach(name IN LISTS given_FILE_LIST)
    file(READ ${name} text)
    file(APPEND ${CURRENT_PACKAGES_DIR}/share/${PORT}/copyright "${text}")
  endforeach()
endfunction()

include(${PORT_FOLDER}/portfile.cmake)
