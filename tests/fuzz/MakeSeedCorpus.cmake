# Writes the fuzzer's seed packs with the pak tool: a small tree of text and binary files packed
# stored (mappable and not) and compressed. Arguments: TOOL, WORK_DIR.
file(REMOVE_RECURSE ${WORK_DIR}/tree ${WORK_DIR}/seeds)
file(MAKE_DIRECTORY ${WORK_DIR}/tree/models/rock ${WORK_DIR}/tree/text ${WORK_DIR}/seeds ${WORK_DIR}/found)
file(WRITE ${WORK_DIR}/tree/readme.txt "A pack for the fuzzer to start from.\n")
file(WRITE ${WORK_DIR}/tree/text/strings.txt "GREETING=Hello\nFAREWELL=Goodbye\nGREETING=Hello again\n")
string(REPEAT "0123456789abcdef" 300 pattern)
file(WRITE ${WORK_DIR}/tree/models/rock/mesh.bin "${pattern}")
file(WRITE ${WORK_DIR}/tree/models/rock/empty_name_neighbour.dat "x")

function(make_pack name)
    execute_process(COMMAND ${TOOL} pak create ${WORK_DIR}/tree ${WORK_DIR}/seeds/${name} ${ARGN}
        WORKING_DIRECTORY ${WORK_DIR} RESULT_VARIABLE status ERROR_VARIABLE errors OUTPUT_QUIET)
    if(NOT status EQUAL 0)
        message(FATAL_ERROR "corelib pak create ${name} ${ARGN} failed (${status}): ${errors}")
    endif()
endfunction()

make_pack(stored.pak)
make_pack(unmapped.pak --no-mmap)
make_pack(compressed.pak --compress)
