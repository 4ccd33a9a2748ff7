#!/usr/bin/env bash
# Checks layout (clang-format) and habits (clang-tidy) against the configuration at the root, that nothing is used which
# can hang, and that other compilers take the code (scripts/portability.sh).
. "$(dirname "$0")/lib.sh"
scripts/setup.sh build lint
# Clang asks for much memory in small pieces; in large pages it takes a third less time.
export GLIBC_TUNABLES=glibc.malloc.hugetlb=1
folders=(bench examples include packaging selfcheck session src tests tools)
find "${folders[@]}" -regex '.*\.\(h\|hpp\|c\|cpp\)' -print0 | xargs -0 clang-format --dry-run -Werror

# GCC's library for Windows can wait for ever in these: see tools/resolve/live_line.h.
if grep -rnE --include='*.h' --include='*.hpp' --include='*.cpp' 'std::(stop_(token|callback)|barrier|latch|counting_semaphore|binary_semaphore)' "${folders[@]}"; then
  echo 'lint: wait with std::condition_variable or std::future instead.' >&2
  exit 1
fi

# clang-tidy reads the native build's commands: it knows that compiler, and the code is the same, but for the files that
# only the DLL has.
[ -e build/native-asan/compile_commands.json ] || cmake --preset native-asan --log-level=WARNING >/dev/null
find session src -name '*.cpp' ! -name delay_load.cpp ! -name terminate.cpp ! -name module.cpp ! -name foreign_exceptions.cpp -print0 | xargs -0 -P "$(nproc)" -n 4 clang-tidy --quiet -p build/native-asan 2>&1 |
  sed '/warnings generated\.$/d; /^Suppressed /d; /^Use -header-filter/d'

scripts/portability.sh
report 1 0
