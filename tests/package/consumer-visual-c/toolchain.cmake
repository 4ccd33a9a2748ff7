# Compiles and links as Visual C++ does, with clang and lld, and without its libraries: what is built has nothing but
# what it brings itself.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR AMD64)
set(CMAKE_C_COMPILER clang)
set(CMAKE_C_COMPILER_TARGET x86_64-pc-windows-msvc)
set(CMAKE_C_FLAGS_INIT "-ffreestanding -isystem ${CMAKE_CURRENT_LIST_DIR}/include")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=lld -nostdlib")
set(CMAKE_C_STANDARD_LIBRARIES "" CACHE STRING "")
set(CMAKE_MSVC_RUNTIME_LIBRARY "")
# Without libraries a test program cannot be linked.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
