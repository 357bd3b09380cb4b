# What the scripts of this folder have in common.

# Runs the command, whose output is then in `output`. Ends the script when the command fails.
function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE status OUTPUT_VARIABLE output
                  ERROR_VARIABLE output)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${ARGV}\nexit status ${status}\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()
