# run(<command>...): runs it, and fails with all that it has said where it fails. What it printed is in `output`.
function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE error)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${ARGN} failed:\n${output}${error}")
    endif()
    set(output "${output}" PARENT_SCOPE)
endfunction()
