# Holds what CTest says of each sample against what it should say:
#   cmake -DCTEST=... -DSOURCE=... -DBINARY=... -DTARGETS=... -P check_skipping.cmake

file(REMOVE_RECURSE "${BINARY}")
foreach(step "-S;${SOURCE};-B;${BINARY};-G;Ninja;-DORLA_TARGETS=${TARGETS}" "--build;${BINARY}")
    execute_process(COMMAND "${CMAKE_COMMAND}" ${step}
        OUTPUT_VARIABLE output ERROR_VARIABLE output RESULT_VARIABLE status)
    if(NOT status EQUAL 0)
        message(FATAL_ERROR "The samples cannot be built:\n${output}")
    endif()
endforeach()
execute_process(COMMAND "${CTEST}" --test-dir "${BINARY}" OUTPUT_VARIABLE output ERROR_VARIABLE output)

set(wrong FALSE)
foreach(expected
    "all_cases_skip;\\*\\*\\*Skipped"
    "start_skips;\\*\\*\\*Skipped"
    "one_case_passes;   Passed"
    "all_cases_pass;   Passed"
    "one_case_fails;\\*\\*\\*Failed"
    "skips_then_leaks;\\*\\*\\*Failed")
    list(GET expected 0 sample)
    list(GET expected 1 outcome)
    if(NOT output MATCHES " ${sample} [.]+${outcome} ")
        message(SEND_ERROR "${sample} is not reported as it should be.")
        set(wrong TRUE)
    endif()
endforeach()
if(wrong)
    message("${output}")
endif()
