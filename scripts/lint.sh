#!/usr/bin/env bash
# Checks layout (clang-format) and habits (clang-tidy) against the configuration at the root.
. "$(dirname "$0")/lib.sh"
install_packages "${BUILD_PACKAGES[@]}" clang-format clang-tidy
mapfile -t formatted < <(git ls-files '*.h' '*.hpp' '*.c' '*.cpp')
clang-format --dry-run -Werror "${formatted[@]}"

# clang-tidy reads the native build's commands: it knows that compiler, and the code is the same.
cmake --preset native-asan --log-level=WARNING >/dev/null
git ls-files 'src/*.cpp' | xargs -P "$(nproc)" -n 4 clang-tidy --quiet -p build/native-asan 2>&1 |
  sed '/warnings generated\.$/d; /^Suppressed /d; /^Use -header-filter/d'
