# What the DLLs have in common.

# Links the libraries as delay-loaded ones, whose functions the files in src/support/delay_load/ list, or in a folder of
# that name beside the target's CMakeLists.txt.
function(kiv_delay_load target)
  set(dlls ${ARGN})
  target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src/support/delay_load.cpp)
  if(NOT MINGW)
    target_link_libraries(${target} PRIVATE ${ARGN} delayimp)
    list(TRANSFORM dlls REPLACE "(.+)" "/DELAYLOAD:\\1.dll")
    target_link_options(${target} PRIVATE ${dlls})
    return()
  endif()
  set(folder ${PROJECT_SOURCE_DIR}/src/support/delay_load)
  foreach(name ${ARGN})
    set(library ${CMAKE_CURRENT_BINARY_DIR}/lib${name}_delay.a)
    set(definition ${CMAKE_CURRENT_SOURCE_DIR}/delay_load/${name}.def)
    if(NOT EXISTS ${definition})
      set(definition ${folder}/${name}.def)
    endif()
    add_custom_command(
      OUTPUT ${library}
      COMMAND ${CMAKE_DLLTOOL} --input-def ${definition} --output-delaylib ${library}
      DEPENDS ${definition})
    target_sources(${target} PRIVATE ${library})
    target_link_libraries(${target} PRIVATE ${library})
  endforeach()
  target_sources(${target} PRIVATE ${folder}/end_of_list.S)
  target_link_options(${target} PRIVATE -Wl,--undefined,kiv_end_of_delay_list)
  find_package(Python3 REQUIRED COMPONENTS Interpreter)
  set(list_delay_imports ${PROJECT_SOURCE_DIR}/cmake/list_delay_imports.py)
  list(TRANSFORM dlls APPEND .dll)
  add_custom_command(
    TARGET ${target}
    POST_BUILD
    COMMAND Python3::Interpreter ${list_delay_imports} $<TARGET_FILE:${target}> ${dlls})
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${list_delay_imports})
endfunction()

# Makes one small file that needs nothing but the system and exports what the headers declare; the same bytes wherever
# and whenever it is built (the address that it asks for would follow from the path of the file).
function(kiv_link_for_applications target)
  if(NOT MINGW)
    return()
  endif()
  target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src/support/terminate.cpp)
  target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-Os -ffunction-sections -fdata-sections>)
  target_link_options(
    ${target}
    PRIVATE
    -static
    -s
    -Wl,--gc-sections
    -Wl,--exclude-all-symbols
    -Wl,--no-insert-timestamp
    -Wl,--disable-auto-image-base)
  kiv_list_parts(${target})
  set_target_properties(${target} PROPERTIES PREFIX "" IMPORT_PREFIX "lib" IMPORT_SUFFIX ".dll.a")
endfunction()

# Writes, beside MinGW's import library, a module definition for toolchains that make one of their own, and Visual C++'s.
function(kiv_add_import_libraries target)
  if(NOT MINGW)
    return()
  endif()
  set(listed ${CMAKE_CURRENT_BINARY_DIR}/${target}_exports.def)
  set(definition ${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/${target}.def)
  target_link_options(${target} PRIVATE -Wl,--output-def,${listed})
  add_custom_command(
    TARGET ${target}
    POST_BUILD
    COMMAND ${CMAKE_COMMAND} -DDLL=${target}.dll -DLISTED=${listed} -DDEF=${definition} -P
            ${PROJECT_SOURCE_DIR}/cmake/write_def.cmake
    BYPRODUCTS ${listed} ${definition})
  find_program(LLVM_DLLTOOL NAMES llvm-dlltool llvm-dlltool-14 llvm-dlltool-15 llvm-dlltool-16 llvm-dlltool-17
                                  llvm-dlltool-18 llvm-dlltool-19)
  if(NOT LLVM_DLLTOOL)
    message(STATUS "Without llvm-dlltool there is no import library for Visual C++")
    return()
  endif()
  set(library ${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/${target}.lib)
  add_custom_command(
    TARGET ${target}
    POST_BUILD
    COMMAND ${LLVM_DLLTOOL} -m i386:x86-64 -d ${definition} -l ${library}
    BYPRODUCTS ${library})
endfunction()
