# Script mode: install, configure and build the consumer, run it and check what it prints; then
# run the installed tools from the prefix, with no library path set, as a user would.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}\n${err}")
    endif()
    set(LAST_OUTPUT "${out}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/build -G ${GENERATOR}
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=Release)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run(${WORK_DIR}/build/consumer)
if(NOT LAST_OUTPUT MATCHES "^VessanUtilities [0-9]+\\.[0-9]+\\.[0-9]+\nfound: /tmp\n01:30:01.00\n$")
    message(FATAL_ERROR "unexpected consumer output: '${LAST_OUTPUT}'")
endif()
message(STATUS "consumer printed: ${LAST_OUTPUT}")

# The tools find the library through their own run path, not through the environment.
set(clean_env ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH)
if(EXISTS ${prefix}/bin/vktc)
    run(${clean_env} ${prefix}/bin/vktc -r 25 1+1)
    if(NOT LAST_OUTPUT STREQUAL "00:00:00.02\n")
        message(FATAL_ERROR "unexpected vktc output: '${LAST_OUTPUT}'")
    endif()
endif()
if(EXISTS ${prefix}/bin/vkseq)
    run(${clean_env} ${prefix}/bin/vkseq ${CONSUMER_DIR})
    if(NOT LAST_OUTPUT MATCHES "/main\\.cpp\t1\n")
        message(FATAL_ERROR "unexpected vkseq output: '${LAST_OUTPUT}'")
    endif()
endif()
message(STATUS "installed tools run from ${prefix}/bin")
