# What kiv's tests are registered with.

file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/results)

# kiv_add_test(NAME LABELS COMMAND...): a test that CTest runs in the project's root, one at a time: tests share a Wine
# prefix and the servers. It writes how many checks passed and failed to the file that KIV_RESULTS names, which
# scripts/run_tests.py reads: {"passed": N, "failed": N}. That script runs a test with the label "busy" too beside others:
# one that keeps the processors busy, and has nothing to do with Wine or the servers.
function(kiv_add_test name labels)
  add_test(NAME ${name} COMMAND ${ARGN} WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
  set_tests_properties(${name} PROPERTIES LABELS "${labels}" RUN_SERIAL ON TIMEOUT 1200
                                          ENVIRONMENT KIV_RESULTS=${PROJECT_BINARY_DIR}/results/${name}.json)
endfunction()

# kiv_add_wine_test(NAME LABELS [OPTION...] PROGRAM [ARGUMENT...]): a program for Windows, as scripts/in_wine.sh runs it.
function(kiv_add_wine_test name labels)
  kiv_add_test(${name} "${labels}" ${PROJECT_SOURCE_DIR}/scripts/in_wine.sh ${ARGN})
endfunction()

# kiv_add_google_test(TARGET): a program of GoogleTest, which writes its results as JSON of its own form.
function(kiv_add_google_test target)
  set(output --gtest_brief=1 --gtest_output=json:)
  set(results ${PROJECT_BINARY_DIR}/results/${target}.json)
  if(MINGW)
    kiv_add_wine_test(${target} unit $<TARGET_FILE:${target}> ${output}Z:${results})
  else()
    kiv_add_test(${target} "unit;busy" ${target} ${output}${results})
  endif()
endfunction()
