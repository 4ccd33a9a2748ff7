# What kiv's tests are registered with.

file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/results)

# kiv_add_test(NAME LABEL COMMAND...): a test that CTest runs in the project's root, one at a time: tests share a Wine
# prefix and the servers. It writes how many checks passed and failed to the file that KIV_RESULTS names, which
# scripts/run_tests.py reads: {"passed": N, "failed": N}.
function(kiv_add_test name label)
  add_test(NAME ${name} COMMAND ${ARGN} WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
  set_tests_properties(${name} PROPERTIES LABELS ${label} RUN_SERIAL ON TIMEOUT 1200
                                          ENVIRONMENT KIV_RESULTS=${PROJECT_BINARY_DIR}/results/${name}.json)
endfunction()

# kiv_add_wine_test(NAME LABEL [OPTION...] PROGRAM [ARGUMENT...]): a program for Windows, as scripts/in_wine.sh runs it.
function(kiv_add_wine_test name label)
  kiv_add_test(${name} ${label} ${PROJECT_SOURCE_DIR}/scripts/in_wine.sh ${ARGN})
endfunction()

# kiv_add_google_test(TARGET): a program of GoogleTest, which writes its results as JSON of its own form.
function(kiv_add_google_test target)
  set(output --gtest_brief=1 --gtest_output=json:)
  set(results ${PROJECT_BINARY_DIR}/results/${target}.json)
  if(MINGW)
    kiv_add_wine_test(${target} unit $<TARGET_FILE:${target}> ${output}Z:${results})
  else()
    kiv_add_test(${target} unit ${target} ${output}${results})
  endif()
endfunction()
