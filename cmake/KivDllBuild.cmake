# Builds the DLLs with a compiler of their own, where KIV_DLL_TOOLCHAIN names one: CMake has one compiler for each language
# in a build, so this is a second build of the same project below this one's folder. Nothing else of it is built.
set(KIV_DLL_BUILD ${PROJECT_BINARY_DIR}/dll)
set(same_in_both "")
foreach(
  name
  CMAKE_BUILD_TYPE
  CMAKE_C_COMPILER_LAUNCHER
  CMAKE_CXX_COMPILER_LAUNCHER
  CMAKE_EXPORT_COMPILE_COMMANDS
  CMAKE_MAKE_PROGRAM
  CMAKE_RUNTIME_OUTPUT_DIRECTORY
  CMAKE_LIBRARY_OUTPUT_DIRECTORY
  CMAKE_ARCHIVE_OUTPUT_DIRECTORY
  KIV_WARNINGS_ARE_ERRORS)
  list(APPEND same_in_both "-D${name}=${${name}}")
endforeach()
execute_process(
  COMMAND ${CMAKE_COMMAND} --no-warn-unused-cli -S ${PROJECT_SOURCE_DIR} -B ${KIV_DLL_BUILD} -G ${CMAKE_GENERATOR}
          --toolchain ${KIV_DLL_TOOLCHAIN} ${same_in_both} -DKIV_TOOL=OFF -DKIV_TESTS=OFF
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)

# Makes the target `name`, which builds the DLL there, and kiv::alias, which others link with. That build knows best what
# has changed, so it is always asked; one that waits for the console does not meet another in the same folder.
function(kiv_take_dll name alias)
  set(dll ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${name}.dll)
  set(import_library ${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/lib${name}.dll.a)
  add_custom_target(
    ${name} ALL
    COMMAND ${CMAKE_COMMAND} --build ${KIV_DLL_BUILD} --target ${name}
    BYPRODUCTS ${dll} ${import_library}
    USES_TERMINAL)
  add_library(kiv::${alias} SHARED IMPORTED GLOBAL)
  add_dependencies(kiv::${alias} ${name})
  set_target_properties(kiv::${alias} PROPERTIES IMPORTED_LOCATION ${dll} IMPORTED_IMPLIB ${import_library}
                                                IMPORTED_NO_SYSTEM ON)
  target_include_directories(kiv::${alias} INTERFACE ${PROJECT_SOURCE_DIR}/include)
endfunction()
