# Builds and runs a small host program against CoreLib, either with add_subdirectory or through
# an installed package, the two ways a project takes the library in.
cmake_minimum_required(VERSION 3.25)

function(run_step)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "step failed (${result}): ${ARGN}\n${output}")
    endif()
    set(last_output "${output}" PARENT_SCOPE)
endfunction()

set(host_dir ${WORK_DIR}/${MODE})
file(REMOVE_RECURSE ${host_dir})
file(MAKE_DIRECTORY ${host_dir})

if(MODE STREQUAL "package")
    run_step(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${host_dir}/prefix)
    run_step(${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/consumer/package -B ${host_dir}/build -G Ninja
             -DCMAKE_PREFIX_PATH=${host_dir}/prefix)
else()
    run_step(${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/consumer/subdirectory -B ${host_dir}/build -G Ninja
             -DCORELIB_SOURCE_DIR=${SOURCE_DIR})
endif()
run_step(${CMAKE_COMMAND} --build ${host_dir}/build)
execute_process(COMMAND ${host_dir}/build/host WORKING_DIRECTORY ${host_dir} RESULT_VARIABLE result
                OUTPUT_VARIABLE output ERROR_VARIABLE errors)
if(NOT result EQUAL 0 OR NOT output MATCHES "host: started and stopped")
    message(FATAL_ERROR "host program failed (${result}):\n${output}\n${errors}")
endif()
message(STATUS "${output}")
